// `langmon emulate --listen --snmp` beside `langmon print` and `langmon
// status`, on the real clock: the network printer is reached at the address
// the emulator prints, a framed job goes over raw TCP and the printer's job
// reports come back on the connection to the client; the device ID comes
// over SNMP and follows the printer's state; a printer gone from the network
// is one that does not answer; one killed with a job and started again on
// its ports prints the next job whole.

#include "child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>


namespace {

using langmon::testing::Argv;
using langmon::testing::Child;
using langmon::testing::Finish;
using langmon::testing::Start;
using langmon::testing::ReadUntil;
using langmon::testing::ReadWhole;
using langmon::testing::RunToEnd;

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// `langmon emulate` on 127.0.0.1 at `tcp` and `snmp` (0: ports the system
// picks), with the address it printed in `address`.
Child Emulate(const std::string& description, const std::string& tcp, const std::string& snmp,
              std::vector<std::string> more, std::string* address) {
    std::vector<std::string> words = {LANGMON_COMMAND, "emulate", "--printer", description,
                                      "--listen", "127.0.0.1:" + tcp, "--snmp", "127.0.0.1:" + snmp};
    words.insert(words.end(), more.begin(), more.end());
    Child emulator = Start(words, false);
    std::string shown;
    if (emulator.pid > 0 && ReadUntil(emulator.output, &shown, "\n", 3000)) *address = shown.substr(0, shown.find('\n'));
    return emulator;
}

const std::regex AddressForm(R"(langmon://127\.0\.0\.1:(\d+)\?snmp=(\d+))");

TEST(NetworkPrinter, PrintsOverTcpReadsItsDeviceIdOverSnmpAndIsReachedAgainOnceBack) {
    const std::string jobPath = std::string(LANGMON_EXAMPLES) + "/brochure.ps";
    const std::string job = ReadWhole(jobPath);
    // Ports 0: the system picks free ones, and the address tells them. Pages
    // slow enough that the job is still at the printer when it dies, whether
    // the status thread's first poll after the job's end comes at once or a
    // pass (3 s) later.
    std::string address;
    Child first = Emulate("emulator:page-time=3000", "0", "0", {}, &address);
    ASSERT_GT(first.pid, 0);
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(address, parts, AddressForm)) << address;
    const std::string tcp = parts[1].str();
    const std::string snmp = parts[2].str();
    EXPECT_NE(tcp, "0");
    EXPECT_NE(snmp, "0");

    // A two-way port: the job is framed in PJL and the printer's model comes
    // in the device ID. The printer dies with the job: it had been handed
    // over whole, the printer's silence is seen at the next poll, the
    // monitor stops following a job the printer can't report on, and the
    // command ends without waiting for it.
    Child print = Start({LANGMON_COMMAND, "print", jobPath, "--printer", address}, true);
    ASSERT_GT(print.pid, 0);
    std::string report;
    ASSERT_TRUE(ReadUntil(print.output, &report, "1 job still at the printer", 6000)) << report;
    const auto killed = std::chrono::steady_clock::now();
    kill(first.pid, SIGKILL);
    EXPECT_EQ(Finish(first), -1);
    // To the end of its output: the report holds no NUL.
    EXPECT_FALSE(ReadUntil(print.output, &report, std::string(1, '\0'), 8000));
    EXPECT_EQ(Finish(print), 0) << report;
    EXPECT_LT(std::chrono::steady_clock::now() - killed, std::chrono::seconds(8));
    EXPECT_TRUE(Has(report, "the network printer at 127.0.0.1:" + tcp + ",\n  on port LPT1:")) << report;
    EXPECT_TRUE(Has(report, "WritePort       1 call, 404 of 404 bytes taken")) << report;
    EXPECT_TRUE(Has(report, "136 bytes ahead of the job's")) << report;
    EXPECT_TRUE(Has(report, "printer      Quor Laser Printer 6200tx")) << report;
    EXPECT_TRUE(Has(report, ": the printer does not answer; the job has left the printer\n")) << report;
    EXPECT_TRUE(Has(report, "status       the printer does not answer")) << report;

    // Started again on the same ports, it prints the next job whole, and its
    // reports of it come back on the connection to the client.
    char receivedPath[] = "/tmp/langmon-received-XXXXXX";
    close(mkstemp(receivedPath));
    std::string again;
    Child second = Emulate("emulator:page-time=200", tcp, snmp, {"--at", "2:jam", "--received", receivedPath}, &again);
    ASSERT_GT(second.pid, 0);
    EXPECT_EQ(again, address);
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "print", jobPath, "--printer", address}, &report), 0) << report;
    EXPECT_TRUE(Has(report, "job 1 ended: 3 pages")) << report;
    std::smatch sent;
    ASSERT_TRUE(std::regex_search(report, sent, std::regex(R"(the printer received (\d+) bytes: 136 bytes ahead)")))
        << report;
    // Taken now: the match points into `report`, which the next run replaces.
    const std::size_t printed = std::stoul(sent[1].str());

    // The jam made after the job shows in the next reading of the device ID.
    std::string shown;
    ASSERT_TRUE(ReadUntil(second.output, &shown, ": the printer: jam\n", 3000)) << shown;
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "status", "--printer", address}, &report), 0) << report;
    EXPECT_TRUE(Has(report, "status       paper jam (error)")) << report;

    // What the print command says it sent is what the printer received
    // first: the job once, framed, and nothing of the job the first printer
    // died with; the status command's own requests follow.
    kill(second.pid, SIGTERM);
    EXPECT_TRUE(ReadUntil(second.output, &shown, "the printer received", 3000)) << shown;
    EXPECT_EQ(Finish(second), 0);
    const std::string received = ReadWhole(receivedPath);
    unlink(receivedPath);
    const std::string uel = "\x1b%-12345X";
    EXPECT_EQ(received.substr(0, uel.size()), uel);
    EXPECT_EQ(received.find(job), 136u);
    EXPECT_EQ(received.find(job, 137), std::string::npos);
    EXPECT_EQ(received.substr(printed - uel.size(), uel.size()), uel);
    EXPECT_EQ(received.substr(printed), uel + "@PJL INFO STATUS\r\n@PJL INFO SERVICETAG\r\n" + uel);

    // Nothing listens any more: a refused connection and an SNMP request
    // that times out are a printer that does not answer, not a broken port.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "status", "--printer", address}, &report), 0) << report;
    EXPECT_TRUE(Has(report, "status       the printer does not answer")) << report;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
}

}  // namespace
