// langmond's configuration as an administrator meets it: a whole file, every
// kind of mistake told with its line and column, `--printer`, what a reload
// changes, and the [monitor] settings reaching the monitor.

#include "daemon/daemon_config.h"

#include "background/thread_throttle.h"
#include "platform/thread.h"
#include "support/job_road_fixture.h"

#include <gtest/gtest.h>

namespace langmon::daemon {
namespace {

using testing::JobRoadTest;

// A printer as a reading gives it; where it came from does not count in ==.
PrinterConfig Printer(std::string name, std::string address, std::string port) {
    PrinterConfig printer;
    printer.name = std::move(name);
    printer.address = std::move(address);
    printer.port = std::move(port);
    return printer;
}

TEST(DaemonConfigTest, TheSampleFileReadsWholeAndEveryMistakeIsPlaced) {
    DaemonConfig config;
    std::string error;
    ASSERT_TRUE(ReadDaemonConfig(LANGMON_EXAMPLES "/langmond.conf", &config, &error)) << error;
    ASSERT_EQ(config.printers.size(), 3u);
    EXPECT_EQ(config.printers[0], (Printer("office", "langmon://192.0.2.10:9100?snmp=161", "LPT1:")));
    // No port given: the daemon chooses one when it opens the printer.
    EXPECT_EQ(config.printers[0].origin, LANGMON_EXAMPLES "/langmond.conf:12");
    EXPECT_EQ(config.printers[1], (Printer("basement", "langmon:/dev/usb/lp0", "")));
    EXPECT_EQ(config.printers[2], (Printer("emulated", "langmon:/emulator?page-time=1500", "")));
    EXPECT_EQ(config.socket, "/run/langmon/langmond.sock");
    EXPECT_TRUE(config.usb);
    EXPECT_EQ(config.monitor, MonitorSettings{});

    ASSERT_TRUE(ParseDaemonConfig("[daemon]\nusb = false\n", "t.conf", &config, &error));
    EXPECT_TRUE(config.printers.empty()) << "a new reading starts from the defaults";
    EXPECT_FALSE(config.usb);

    const std::string printer = "[[printer]]\nname = \"a\"\naddress = \"emulator\"\n";
    const struct {
        std::string text;
        std::string error;
    } mistakes[] = {
        {"colour = true\n", "t.conf:1:1: unknown key \"colour\" in the file (known: printer, daemon, monitor)"},
        {printer + "adress = \"x\"\n", "t.conf:4:1: unknown key \"adress\" in [[printer]] (known: name, address, port)"},
        {"\n[[printer]]\nname = \"a\"\n", "t.conf:2:1: [[printer]] has no address"},
        {"[[printer]]\nname = 3\naddress = \"emulator\"\n", "t.conf:2:8: name must be a text in quotes"},
        {"[[printer]]\nname = \"a\\tb\"\naddress = \"emulator\"\n", "t.conf:2:8: name has a control character"},
        {"[[printer]]\nname = \"\"\naddress = \"emulator\"\n", "t.conf:2:8: name is empty"},
        {"[[printer]]\nname = \"" + std::string(256, 'n') + "\"\naddress = \"emulator\"\n",
         "t.conf:2:8: name is longer than 255 bytes"},
        {printer + "[[printer]]\nname = \"A\"\naddress = \"emulator\"\n",
         "t.conf:5:8: printer name \"A\" is taken by the printer at t.conf:1"},
        {"[[printer]]\nname = \"a\"\naddress = \"langmon://printer:0\"\n",
         "t.conf:3:11: address \"langmon://printer:0\": the port 0 is not a number from 1 to 65535"},
        {printer + "port = \"lpt1:\"\n[[printer]]\nname = \"b\"\naddress = \"emulator\"\nport = \"LPT1:\"\n",
         "t.conf:8:8: port \"LPT1:\" is taken by the printer at t.conf:1"},
        {"[printer]\nname = \"a\"\n", "t.conf:1:1: printers are [[printer]] tables, one per printer"},
        {"daemon = 5\n", "t.conf:1:10: [daemon] must be a table"},
        {"[daemon]\nsocket = \"run/x.sock\"\n", "t.conf:2:10: socket must be an absolute path"},
        {"[daemon]\nsocket = \"/" + std::string(107, 's') + "\"\n",
         "t.conf:2:10: socket path is longer than 107 bytes, the most a socket address holds"},
        {"[daemon]\nusb = \"yes\"\n", "t.conf:2:7: usb must be true or false"},
        {"[monitor]\nthread_start_interval_ms = 60001\n",
         "t.conf:2:28: thread_start_interval_ms must be a whole number from 0 to 60000"},
        {"[monitor]\nport_mode = \"fast\"\n", "t.conf:2:13: port_mode must be \"auto\", \"compatibility\" or \"ecp\""},
        {"[monitor]\nprinting_priority = -3\n", "t.conf:2:21: printing_priority must be a whole number from -2 to 2"},
    };
    for (const auto& mistake : mistakes) {
        DaemonConfig kept;
        kept.socket = "/kept";
        EXPECT_FALSE(ParseDaemonConfig(mistake.text, "t.conf", &kept, &error)) << mistake.text;
        EXPECT_EQ(error, mistake.error) << mistake.text;
        EXPECT_EQ(kept.socket, "/kept") << "a refused file changes nothing";
    }
    // TOML's own errors are placed too, whatever toml++ calls them.
    EXPECT_FALSE(ParseDaemonConfig("[[printer]]\nname = \"a\n", "t.conf", &config, &error));
    EXPECT_TRUE(error.starts_with("t.conf:2:")) << error;
    EXPECT_FALSE(ReadDaemonConfig("/nonexistent/langmond.conf", &config, &error));
    EXPECT_EQ(error, "/nonexistent/langmond.conf: cannot be read: No such file or directory");
}

TEST(DaemonConfigTest, PrinterOptionsJoinTheFileAndAReloadSaysWhatChanged) {
    DaemonConfig before;
    std::string error;
    ASSERT_TRUE(ParseDaemonConfig("[[printer]]\nname = \"office\"\naddress = \"langmon://10.0.0.1\"\n"
                                  "[[printer]]\nname = \"lab\"\naddress = \"langmon:/dev/usb/lp0\"\n",
                                  "t.conf", &before, &error))
        << error;
    ASSERT_TRUE(AddPrinterOption("usb2=langmon:/dev/usb/lp1", &before, &error)) << error;
    ASSERT_TRUE(AddPrinterOption("net=langmon://10.0.0.2?snmp=1161&community=x", &before, &error)) << error;
    EXPECT_EQ(before.printers[2], (Printer("usb2", "langmon:/dev/usb/lp1", "")));
    EXPECT_EQ(before.printers[3], (Printer("net", "langmon://10.0.0.2?snmp=1161&community=x", "")))
        << "split at the first '='";
    EXPECT_EQ(before.printers[3].origin, "--printer");

    DaemonConfig kept = before;
    EXPECT_FALSE(AddPrinterOption("emulator", &kept, &error));
    EXPECT_EQ(error, "--printer emulator: give NAME=ADDRESS");
    EXPECT_FALSE(AddPrinterOption("Office=emulator", &kept, &error));
    EXPECT_EQ(error, "--printer Office=emulator: printer name \"Office\" is taken by the printer at t.conf:1");
    EXPECT_FALSE(AddPrinterOption("=emulator", &kept, &error));
    EXPECT_EQ(error, "--printer =emulator: name is empty");
    EXPECT_FALSE(AddPrinterOption("x=langmon:/dev/usb/lpX", &kept, &error));
    EXPECT_EQ(error, "--printer x=langmon:/dev/usb/lpX: address \"langmon:/dev/usb/lpX\": a USB printer is /dev/usb/lpN");
    EXPECT_EQ(kept.printers, before.printers);

    // The reload: office moves, lab stays, usb2 and net go, a new one comes.
    DaemonConfig after;
    ASSERT_TRUE(ParseDaemonConfig("[[printer]]\nname = \"lab\"\naddress = \"langmon:/dev/usb/lp0\"\n"
                                  "[[printer]]\nname = \"office\"\naddress = \"langmon://10.0.0.9\"\n"
                                  "[[printer]]\nname = \"new\"\naddress = \"emulator\"\n",
                                  "t.conf", &after, &error))
        << error;
    const ConfigChange change = CompareConfigs(before, after);
    EXPECT_EQ(change.added, (std::vector{Printer("new", "emulator", "")}));
    EXPECT_EQ(change.removed, (std::vector<PrinterConfig>{before.printers[2], before.printers[3]}));
    EXPECT_EQ(change.changed, (std::vector{Printer("office", "langmon://10.0.0.9", "")}));
    const ConfigChange none = CompareConfigs(after, after);
    EXPECT_TRUE(none.added.empty() && none.removed.empty() && none.changed.empty());
}

// The values written are the ones the monitor reads: the thread starts'
// settings, the port mode at a job's start and the job thread's priority.
TEST_F(JobRoadTest, TheMonitorSettingsOfTheFileReachTheMonitor) {
    char root[] = "System\\CurrentControlSet\\control\\Print\\Monitors\\Quor Language Monitor";
    ASSERT_STREQ(root, MonitorRegistryRoot);
    InitializeMonitorEx(root, &monitor);
    DaemonConfig config;
    std::string error;
    ASSERT_TRUE(ParseDaemonConfig("[monitor]\nthread_start_interval_ms = 7\nserialize_thread_starts = false\n"
                                  "port_mode = \"ecp\"\nprinting_priority = -2\n",
                                  "t.conf", &config, &error))
        << error;
    ApplyMonitorSettings(config);
    EXPECT_EQ(ReadThrottleSetting("CreateThreadInterval", 50), 7u);
    EXPECT_EQ(ReadThrottleSetting("CTIFlag", 3), DWORD{CtiStartSuspended});

    PortContext* port = Open("LPT1");
    HANDLE self = GetCurrentThread();
    ASSERT_TRUE(Start(port));
    EXPECT_EQ(port->portMode, uint32_t{PM_ECP});
    EXPECT_EQ(GetThreadPriority(self), -2);
    EXPECT_TRUE(EndDocPort(port));
    CloseHandle(self);

    // A reload that drops the keys puts the defaults back.
    ApplyMonitorSettings(DaemonConfig{});
    EXPECT_EQ(ReadThrottleSetting("CreateThreadInterval", 0), 50u);
    EXPECT_EQ(ReadThrottleSetting("CTIFlag", 0), 3u);
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, PortModeKey, PortModeValue), 0u);
    InitializeMonitorEx(nullptr, &monitor);
}

}  // namespace
}  // namespace langmon::daemon
