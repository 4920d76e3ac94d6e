// USB printers plugged into langmond's machine and out again, on the real
// clock, with devices that `langmon emulate --usb-device` serves through
// FUSE in place of udev's /dev/usb/lpN: what the daemon does as udev tells
// it of each. Skipped, saying why, where FUSE cannot mount.

#include "child_process.h"

#include "daemon/usb_hotplug.h"
#include "langmon/own_stores.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace langmon::daemon {
namespace {

using langmon::testing::UsbEmulator;

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

TEST(UsbHotplug, ServesPrintersOfTheFamilyAsTheyComeAndLetsThemGoAsTheyLeave) {
    UsbEmulator office({});
    if (!office.Why().empty()) GTEST_SKIP() << office.Why();
    UsbEmulator foreign({"--printer", "emulator:foreign"});
    UsbEmulator named({});
    ASSERT_FALSE(office.Address().empty() || foreign.Address().empty() || named.Address().empty());
    const std::string officeNode = office.Address().substr(8);  // past "langmon:"
    const std::string namedNode = named.Address().substr(8);

    // The monitor of this process keeps its stores its own, and finds
    // libkvtrm.so beside the build's programs.
    tool::KeepStatusStoresOwn();
    setenv("LANGMON_LIBRARY_PATH", LANGMON_BUILD_DIR, 1);
    PrinterHost host;
    std::vector<std::string> said;
    std::vector<std::string> letGo;
    UsbHotplug hotplug(host, [&](const std::string& name) {
        letGo.push_back(name);
        host.Remove(name);
    }, [&](const std::string& line) { said.push_back(line); });
    hotplug.SetConfigured({{"front-desk", named.Address(), "", "langmond.conf:3"}});

    // One of the family, told twice (at the start and by an event), is
    // served once, on a USB port, under its model's name; one of another
    // make is left alone; a configured one takes its configuration's name.
    hotplug.Plugged(officeNode);
    hotplug.Plugged(officeNode);
    hotplug.Plugged(foreign.Address().substr(8));
    hotplug.Plugged(namedNode);
    std::vector<HostedPrinter> printers = host.Printers();
    ASSERT_EQ(printers.size(), 2u) << Joined(said);
    EXPECT_EQ(printers[0].name, "Laser_Printer_6200tx-lp0");
    EXPECT_EQ(printers[0].address, office.Address());
    EXPECT_EQ(printers[0].portName, "USB001");
    EXPECT_EQ(printers[0].model, "Laser Printer 6200tx");
    EXPECT_EQ(printers[1].name, "front-desk");
    EXPECT_EQ(printers[1].portName, "USB002");
    EXPECT_EQ(Joined(said), "printer \"Laser_Printer_6200tx-lp0\" at " + office.Address() + " plugged in\n" +
                                "the USB printer " + foreign.Address().substr(8) +
                                " plugged in (Foreign Printer 1) is not of the family; left alone\n" +
                                "printer \"front-desk\" at " + named.Address() + " plugged in\n");

    // Unplugged: the device goes, then udev tells; the printer is let go
    // and its port is free for the next one.
    EXPECT_EQ(office.Stop(), 0) << office.Shown();
    hotplug.Unplugged(officeNode);
    hotplug.Unplugged("/dev/usb/lp9");
    EXPECT_EQ(letGo, std::vector<std::string>{"Laser_Printer_6200tx-lp0"});
    ASSERT_EQ(host.Printers().size(), 1u);
    EXPECT_EQ(host.Printers()[0].name, "front-desk");

    // The configured printer comes back under its name when plugged in again.
    hotplug.Unplugged(namedNode);
    hotplug.Plugged(namedNode);
    printers = host.Printers();
    ASSERT_EQ(printers.size(), 1u) << Joined(said);
    EXPECT_EQ(printers[0].name, "front-desk");
    EXPECT_EQ(printers[0].portName, "USB001");
    host.CloseAll();
    unsetenv("LANGMON_LIBRARY_PATH");
}

}  // namespace
}  // namespace langmon::daemon
