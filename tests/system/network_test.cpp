// `langmon emulate --listen --snmp` beside `langmon print` and `langmon
// status`, on the real clock: the network printer is reached at the address
// the emulator prints, a framed job goes over raw TCP and the printer's job
// reports come back on the connection to the client; the device ID comes
// over SNMP and follows the printer's state; a printer gone from the network
// is one that does not answer.

#include "child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>


namespace {

using langmon::testing::ReadUntil;
using langmon::testing::ReadWhole;
using langmon::testing::RunToEnd;
using langmon::testing::StartWithOutput;

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(NetworkPrinter, PrintsOverTcpReadsItsDeviceIdOverSnmpAndSeesItGo) {
    const std::string job = std::string(LANGMON_EXAMPLES) + "/brochure.ps";
    // Ports 0: the system picks free ones, and the address tells them.
    int output = -1;
    const pid_t emulator = StartWithOutput({LANGMON_COMMAND, "emulate", "--printer", "emulator:page-time=200",
                                      "--listen", "127.0.0.1:0", "--snmp", "127.0.0.1:0", "--at", "2:jam"}, &output);
    ASSERT_GT(emulator, 0);

    std::string shown;
    ASSERT_TRUE(ReadUntil(output, &shown, "\n", 3000)) << shown;
    const std::string address = shown.substr(0, shown.find('\n'));
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(address, parts, std::regex(R"(langmon://127\.0\.0\.1:(\d+)\?snmp=(\d+))"))) << shown;
    EXPECT_NE(parts[1].str(), "0");
    EXPECT_NE(parts[2].str(), "0");

    // A two-way port: the job is framed in PJL, the printer's reports of it
    // come back on the connection, and its model comes in the device ID.
    std::string report;
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "print", job, "--printer", address}, &report), 0) << report;
    EXPECT_TRUE(Has(report, "the network printer at 127.0.0.1:" + parts[1].str() + ",\n  on port LPT1:")) << report;
    EXPECT_TRUE(Has(report, "136 bytes ahead of the job's")) << report;
    EXPECT_TRUE(Has(report, "printer      Quor Laser Printer 6200tx")) << report;
    EXPECT_TRUE(Has(report, "job 1 ended: 3 pages")) << report;

    // The jam made after the job shows in the next reading of the device ID.
    ASSERT_TRUE(ReadUntil(output, &shown, ": the printer: jam\n", 3000)) << shown;
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "status", "--printer", address}, &report), 0) << report;
    EXPECT_TRUE(Has(report, "status       paper jam (error)")) << report;

    kill(emulator, SIGTERM);
    EXPECT_TRUE(ReadUntil(output, &shown, "the printer received", 3000)) << shown;
    int status = -1;
    ASSERT_EQ(waitpid(emulator, &status, 0), emulator);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    close(output);

    // Nothing listens any more: a refused connection and an SNMP request
    // that times out are a printer that does not answer, not a broken port.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "status", "--printer", address}, &report), 0) << report;
    EXPECT_TRUE(Has(report, "status       the printer does not answer")) << report;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
}

}  // namespace
