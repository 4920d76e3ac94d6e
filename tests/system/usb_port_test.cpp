// The USB printer on both sides, on the real clock: `langmon emulate
// --usb-device` serves a USB printer class device through FUSE, and `langmon
// print` and `langmon status` reach it through the USB port monitor, as they
// would a printer on /dev/usb/lp0. A framed job reaches the printer whole,
// the device ID comes by usblp's ioctl and follows the printer's state, the
// job's reports come back through the device's reads. Below the command,
// the port monitor meets a printer that takes nothing with its time-out and
// a device that is gone as one not connected.
//
// Where FUSE cannot mount (no /dev/fuse, no right to mount) the tests are
// skipped, saying why.

#include "child_process.h"

#include "ports/usb_port_monitor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using langmon::testing::ReadUntil;
using langmon::testing::ReadWhole;
using langmon::testing::RunToEnd;
using langmon::testing::Child;
using langmon::testing::Finish;
using langmon::testing::Start;
using langmon::testing::UsbEmulator;
using Clock = std::chrono::steady_clock;

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

long MsSince(Clock::time_point start) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

TEST(UsbPrinter, PrintsThroughTheDeviceReadsItsDeviceIdAndSeesAJam) {
    const std::string job = std::string(LANGMON_EXAMPLES) + "/brochure.ps";
    char received[] = "/tmp/langmon-usb-received-XXXXXX";
    const int file = mkstemp(received);
    ASSERT_GE(file, 0);
    close(file);
    UsbEmulator emulator({"--printer", "emulator:page-time=200", "--at", "2:jam", "--received", received});
    if (!emulator.Why().empty()) GTEST_SKIP() << emulator.Why();
    ASSERT_EQ(emulator.Address(), "langmon:" + emulator.Folder() + "/printer/lp0") << emulator.Shown();

    // A two-way USB port: the job is framed in PJL, the model comes in the
    // device ID, and the printer's reports of the job come back on reads.
    std::string report;
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "print", job, "--printer", emulator.Address()}, &report), 0) << report;
    EXPECT_TRUE(Has(report, "the USB printer on " + emulator.Address().substr(8) + ",\n  on port USB001 ")) << report;
    EXPECT_TRUE(Has(report, "the printer received 626 bytes: 136 bytes ahead of the job's 404")) << report;
    EXPECT_TRUE(Has(report, "printer      Quor Laser Printer 6200tx")) << report;
    EXPECT_TRUE(Has(report, "job 1 ended: 3 pages")) << report;

    // The jam made after the job shows in the next device ID.
    ASSERT_TRUE(emulator.Said(": the printer: jam\n")) << emulator.Shown();
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "status", "--printer", emulator.Address()}, &report), 0) << report;
    EXPECT_TRUE(Has(report, "on port USB001, the USB printer on")) << report;
    EXPECT_TRUE(Has(report, "status       paper jam (error)")) << report;

    // The job went whole, between the monitor's header and trailer; the
    // device went with the emulator, and the folder it made with it.
    // (The status that followed sent a request of its own after it.)
    EXPECT_EQ(emulator.Stop(), 0) << emulator.Shown();
    const std::string printed = ReadWhole(received).substr(0, 626);
    unlink(received);
    EXPECT_EQ(printed.rfind("\x1b%-12345X@PJL USTATUS DEVICE=ON\r\n", 0), 0u) << printed;
    EXPECT_TRUE(Has(printed, ReadWhole(job))) << printed;
    EXPECT_EQ(printed.substr(printed.size() - 9), "\x1b%-12345X") << printed;
    EXPECT_NE(access((emulator.Folder() + "/printer").c_str(), F_OK), 0);
}

// What the end-to-end test cannot reach in seconds: a printer that takes
// nothing (the monitor's own write time-out is 10 s), and a device that
// goes while the port is open.
TEST(UsbPort, TimesOutOnAPrinterThatTakesNothingAndTellsADeviceGone) {
    UsbEmulator emulator({"--printer", "emulator:silent"});
    if (!emulator.Why().empty()) GTEST_SKIP() << emulator.Why();
    ASSERT_FALSE(emulator.Address().empty()) << emulator.Shown();

    langmon::ports::UsbPortMonitor monitor;
    monitor.Attach("USB001", emulator.Address().substr(8));
    MONITOR& table = *monitor.Table();
    char name[] = "usb001:";  // case and the colon do not matter
    HANDLE port = nullptr;
    ASSERT_TRUE(table.OpenPort(name, &port));
    // usblp lets one program have the printer at a time.
    HANDLE second = nullptr;
    EXPECT_FALSE(table.OpenPort(name, &second));
    EXPECT_EQ(GetLastError(), ERROR_BUSY);

    COMMTIMEOUTS timeOuts{};
    timeOuts.ReadTotalTimeoutConstant = 150;
    timeOuts.WriteTotalTimeoutConstant = 150;
    ASSERT_TRUE(table.SetPortTimeOuts(port, &timeOuts, 0));
    ASSERT_TRUE(table.StartDocPort(port, nullptr, 1, 1, nullptr));

    // A silent printer answers no device ID request.
    char id[64];
    DWORD count = 7;
    EXPECT_FALSE(table.GetPrinterDataFromPort(port, 17, nullptr, nullptr, 0, id, sizeof id, &count));
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(count, 0u);

    // It takes nothing: the device holds the first write, and the next
    // waits out its time-out and takes nothing, rather than blocking.
    std::vector<BYTE> block(4096, 'x');
    ASSERT_TRUE(table.WritePort(port, block.data(), static_cast<DWORD>(block.size()), &count));
    EXPECT_EQ(count, block.size());
    Clock::time_point start = Clock::now();
    EXPECT_FALSE(table.WritePort(port, block.data(), static_cast<DWORD>(block.size()), &count));
    const long elapsed = MsSince(start);
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(count, 0u);
    EXPECT_GE(elapsed, 140);
    EXPECT_LT(elapsed, 2000);
    // It says nothing either: a read ends at its time-out with nothing.
    start = Clock::now();
    EXPECT_TRUE(table.ReadPort(port, block.data(), static_cast<DWORD>(block.size()), &count));
    EXPECT_EQ(count, 0u);
    EXPECT_GE(MsSince(start), 140);

    // The device goes (the emulator ends, as a printer is unplugged).
    EXPECT_EQ(emulator.Stop(), 0) << emulator.Shown();
    EXPECT_FALSE(table.WritePort(port, block.data(), 10, &count));
    EXPECT_EQ(GetLastError(), ERROR_DEVICE_NOT_CONNECTED);
    EXPECT_FALSE(table.GetPrinterDataFromPort(port, 17, nullptr, nullptr, 0, id, sizeof id, &count));
    EXPECT_EQ(GetLastError(), ERROR_DEVICE_NOT_CONNECTED);
    EXPECT_TRUE(table.EndDocPort(port));
    EXPECT_TRUE(table.ClosePort(port));
}

}  // namespace
