// The printer addresses --printer reads: each form into its parts, and what
// is wrong with an address that is not one.

#include "langmon/printer_address.h"

#include <gtest/gtest.h>

namespace langmon::tool {
namespace {

TEST(PrinterAddress, ReadsEveryFormIntoItsPartsAndRefusesBadOnes) {
    struct Case {
        const char* text;
        AddressKind kind;
        const char* detail;  // description, path or host
        unsigned number;     // baud or port
        unsigned snmp;
        const char* community;
    };
    const Case good[] = {
        {"emulator", AddressKind::Emulator, "", 0, 0, ""},
        {"emulator:jam,toner.cyan=4", AddressKind::Emulator, "jam,toner.cyan=4", 0, 0, ""},
        {"langmon:/emulator", AddressKind::Emulator, "", 0, 0, ""},
        {"langmon:/emulator?covers=front,top", AddressKind::Emulator, "covers=front,top", 0, 0, ""},
        {"file:/tmp/out.prn", AddressKind::File, "/tmp/out.prn", 0, 0, ""},
        {"langmon:/dev/ttyS0", AddressKind::Serial, "/dev/ttyS0", 9600, 0, ""},
        {"langmon:/dev/pts/7?baud=115200", AddressKind::Serial, "/dev/pts/7", 115200, 0, ""},
        {"langmon:/dev/usb/lp0", AddressKind::Usb, "/dev/usb/lp0", 0, 0, ""},
        {"langmon:/tmp/emulated/lp12", AddressKind::Usb, "/tmp/emulated/lp12", 0, 0, ""},
        {"langmon://printer.lan", AddressKind::Network, "printer.lan", 9100, 161, "public"},
        {"langmon://10.0.0.5:9101?snmp=1161&community=office", AddressKind::Network, "10.0.0.5", 9101, 1161, "office"},
        {"langmon://[::1]:9100?community=x&snmp=16100", AddressKind::Network, "::1", 9100, 16100, "x"},
    };
    for (const Case& c : good) {
        PrinterAddress address;
        EXPECT_EQ(ParsePrinterAddress(c.text, &address), "") << c.text;
        EXPECT_EQ(address.kind, c.kind) << c.text;
        switch (c.kind) {
            case AddressKind::Emulator: EXPECT_EQ(address.description, c.detail) << c.text; break;
            case AddressKind::Network:
                EXPECT_EQ(address.host, c.detail) << c.text;
                EXPECT_EQ(address.port, c.number) << c.text;
                EXPECT_EQ(address.snmpPort, c.snmp) << c.text;
                EXPECT_EQ(address.community, c.community) << c.text;
                break;
            default:
                EXPECT_EQ(address.path, c.detail) << c.text;
                if (c.kind == AddressKind::Serial) {
                    EXPECT_EQ(address.baud, c.number) << c.text;
                }
        }
        const char* port = c.kind == AddressKind::Serial ? "COM1:" : c.kind == AddressKind::Usb ? "USB001" : "LPT1:";
        EXPECT_EQ(DefaultPortName(address), port) << c.text;
    }

    const std::pair<const char*, const char*> bad[] = {
        {"file:", "file: needs a PATH"},
        {"ipp://host/queue", "not a printer address"},
        {"langmon:/tmp/x", "a local printer is a device"},
        {"langmon:/dev/ttyS0?baud=9601", "baud 9601 is not a rate"},
        {"langmon:/dev/ttyS0?speed=9600", "takes baud=N, not speed"},
        {"langmon:/dev/usb/lpX", "a USB printer is /dev/usb/lpN"},
        {"langmon:/dev/usb/lp0?baud=9600", "a USB printer takes no settings"},
        {"langmon://", "no host"},
        {"langmon://host:0", "the port 0 is not a number from 1 to 65535"},
        {"langmon://host:", "the port after ':' is missing"},
        {"langmon://[::1", "an IPv6 address goes in brackets"},
        {"langmon://host?snmp=70000", "snmp takes a port from 1 to 65535"},
        {"langmon://host?timeout=5", "takes snmp=PORT and community=NAME, not timeout"},
        {"langmon://host?snmp", "\"snmp\" is not NAME=VALUE"},
    };
    for (const auto& [text, words] : bad) {
        PrinterAddress address;
        const std::string problem = ParsePrinterAddress(text, &address);
        EXPECT_NE(problem.find(words), std::string::npos) << text << ": " << problem;
    }
}

}  // namespace
}  // namespace langmon::tool
