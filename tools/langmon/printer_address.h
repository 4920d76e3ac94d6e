// A printer's address: the one syntax that `--printer` takes (and that a
// device URI and the daemon's configuration will take), read into its parts.
//
//     emulator, emulator:DESCRIPTION, langmon:/emulator[?DESCRIPTION]
//     file:PATH
//     langmon:/dev/ttyS0[?baud=N]              a serial line; any tty path
//     langmon:/dev/usb/lpN                     a USB printer; any path whose file is lpN
//     langmon://HOST[:PORT][?snmp=PORT][&community=NAME]   a network printer
//
// Reading an address checks its form only: whether the device is there, or
// the emulator's description makes sense, is found out by whoever uses it.
#pragma once

#include <cstdint>
#include <string>

namespace langmon::tool {

enum class AddressKind { Emulator, File, Serial, Usb, Network };

struct PrinterAddress {
    AddressKind kind = AddressKind::Emulator;
    std::string description;  // Emulator: the words after "emulator:" or '?'
    std::string path;         // File, Serial, Usb: the file or the device
    unsigned baud = 9600;     // Serial
    std::string host;         // Network: a name, an IPv4 address or an IPv6 one without brackets
    uint16_t port = 9100;     // Network: the printer's raw port
    uint16_t snmpPort = 161;  // Network
    std::string community = "public";  // Network: the SNMP community
};

// Reads `text` into `address`. Returns an empty text, or what is wrong with
// the address, as words that can follow "--printer TEXT: ".
std::string ParsePrinterAddress(const std::string& text, PrinterAddress* address);

// The port the printer is on unless --port says otherwise: a serial printer
// on COM1:, as the port kinds make COM ports one-way; a USB printer on
// USB001, a two-way USB port once described as one (see DescribeUsbPort);
// any other on LPT1:, which they take for local and two-way. A network printer is that too:
// the monitor writes PJL to it and reads the replies on the connection,
// unlike a port of the network monitors, whose jobs it passes through.
std::string DefaultPortName(const PrinterAddress& address);

}  // namespace langmon::tool
