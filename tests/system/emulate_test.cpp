// `langmon emulate --pty` as a user runs it beside `langmon print`, on the
// real clock: the printer is reached at the address it prints, a job goes
// over the serial line byte for byte, a change is made while it serves, and
// SIGTERM ends it cleanly.

#include "child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>


namespace {

using langmon::testing::ReadUntil;
using langmon::testing::ReadWhole;
using langmon::testing::RunToEnd;
using langmon::testing::Child;
using langmon::testing::Finish;
using langmon::testing::Start;

TEST(Emulate, PrintsOverAPtyTakesAChangeAndEndsOnSigterm) {
    const std::string job = std::string(LANGMON_EXAMPLES) + "/letter.txt";
    const std::string sent = ReadWhole(job);
    ASSERT_FALSE(sent.empty());
    char directory[] = "/tmp/langmon-emulate-XXXXXX";
    ASSERT_NE(mkdtemp(directory), nullptr);
    const std::string received = std::string(directory) + "/received";

    Child emulator = Start({LANGMON_COMMAND, "emulate", "--pty", "--at", "0.3:jam", "--received", received});
    ASSERT_GT(emulator.pid, 0);
    const int output = emulator.output;

    std::string shown;
    ASSERT_TRUE(ReadUntil(output, &shown, "\n", 3000)) << shown;
    const std::string address = shown.substr(0, shown.find('\n'));
    ASSERT_EQ(address.rfind("langmon:/dev/pts/", 0), 0u) << shown;

    // Serial is pass-through: no PJL around the job, on port COM1:.
    std::string report;
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "print", job, "--printer", address}, &report), 0) << report;
    EXPECT_NE(report.find("the serial printer on " + address.substr(8) + " at 9600 baud"), std::string::npos) << report;
    EXPECT_NE(report.find("on port COM1:"), std::string::npos) << report;
    const std::string taken = std::to_string(sent.size()) + " of " + std::to_string(sent.size()) + " bytes taken";
    EXPECT_NE(report.find(taken), std::string::npos) << report;

    EXPECT_TRUE(ReadUntil(output, &shown, ": the printer: jam\n", 3000)) << shown;
    // The line stays up for the next host, and the printer takes a second
    // job after the change: it holds the jam, not the line.
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "print", job, "--printer", address + "?baud=115200", "--port", "COM2"}, &report),
              0)
        << report;
    EXPECT_NE(report.find("on port COM2"), std::string::npos) << report;

    kill(emulator.pid, SIGTERM);
    const std::string total = "the printer received " + std::to_string(2 * sent.size()) + " bytes\n";
    EXPECT_TRUE(ReadUntil(output, &shown, total, 3000)) << shown;
    EXPECT_EQ(Finish(emulator), 0);
    EXPECT_EQ(ReadWhole(received), sent + sent);

    // A device that is gone is the port's failure, told in words.
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "print", job, "--printer", address}, &report), 1) << report;
    EXPECT_NE(report.find("could not be opened: the file was not found (error 2)"), std::string::npos) << report;
    unlink(received.c_str());
    rmdir(directory);
}

}  // namespace
