// The serial port monitor on a real tty (a pty whose master the test holds
// as the printer's end), on the real clock with short time-outs: a line
// that takes nothing times out rather than blocking, a read honours its
// time-out and returns what came, the device ID is not there, and a line
// whose other end went away says so.

#include "ports/serial_port_monitor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

namespace langmon::ports {
namespace {

using Clock = std::chrono::steady_clock;

long MsSince(Clock::time_point start) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

TEST(SerialPort, HonoursItsTimeOutsAndTellsALineGone) {
    int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    const std::string slave = ptsname(master);

    SerialPortMonitor monitor;
    monitor.Attach("COM1:", {slave, 115200});
    MONITOR& table = *monitor.Table();
    HANDLE port = nullptr;
    char name[] = "com1";  // case and the colon do not matter
    ASSERT_TRUE(table.OpenPort(name, &port));
    char missing[] = "COM2:";
    HANDLE none = nullptr;
    EXPECT_FALSE(table.OpenPort(missing, &none));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);

    COMMTIMEOUTS timeOuts{};
    timeOuts.ReadTotalTimeoutConstant = 150;
    timeOuts.WriteTotalTimeoutConstant = 150;
    ASSERT_TRUE(table.SetPortTimeOuts(port, &timeOuts, 0));
    std::vector<BYTE> block(4096, 'x');
    DWORD count = 99;
    EXPECT_FALSE(table.WritePort(port, block.data(), 10, &count));  // no document yet
    EXPECT_EQ(count, 0u);
    ASSERT_TRUE(table.StartDocPort(port, nullptr, 1, 1, nullptr));

    // The printer reads nothing: the line fills, and then a write waits out
    // its time-out and takes nothing, rather than blocking the thread.
    Clock::time_point start;
    BOOL ok = TRUE;
    long elapsed = 0;
    for (int i = 0; i < 1000 && ok; ++i) {
        start = Clock::now();
        ok = table.WritePort(port, block.data(), static_cast<DWORD>(block.size()), &count);
        elapsed = MsSince(start);
    }
    ASSERT_FALSE(ok);
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(count, 0u);
    EXPECT_GE(elapsed, 140);
    EXPECT_LT(elapsed, 2000);

    // What the printer sends back is read, raw, within the read time-out;
    // with nothing more, the read ends at its time-out.
    const std::string reply = "@PJL USTATUS DEVICE\r\nCODE=10001\r\n\f";
    ASSERT_EQ(write(master, reply.data(), reply.size()), static_cast<ssize_t>(reply.size()));
    std::vector<BYTE> answer(256);
    start = Clock::now();
    ASSERT_TRUE(table.ReadPort(port, answer.data(), static_cast<DWORD>(answer.size()), &count));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(answer.data()), count), reply);
    EXPECT_GE(MsSince(start), 140);

    char id[64];
    DWORD returned = 7;
    EXPECT_FALSE(table.GetPrinterDataFromPort(port, 17, nullptr, nullptr, 0, id, sizeof id, &returned));
    EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
    EXPECT_EQ(returned, 0u);

    // The printer's end goes away: the line is not connected any more.
    close(master);
    EXPECT_FALSE(table.WritePort(port, block.data(), 10, &count));
    EXPECT_EQ(GetLastError(), ERROR_DEVICE_NOT_CONNECTED);
    EXPECT_TRUE(table.EndDocPort(port));
    EXPECT_TRUE(table.ClosePort(port));
    char gone[] = "COM1";
    EXPECT_FALSE(table.OpenPort(gone, &port));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

}  // namespace
}  // namespace langmon::ports
