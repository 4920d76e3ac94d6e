// `langmon print` as a user runs it: the job reaches the printer whole and the
// report says what happened.

#include "langmon/job_sender.h"
#include "langmon/print_command.h"
#include "support/platform_fixture.h"

#include "emulator/printer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>
#include <unistd.h>

namespace langmon::tool {
namespace {

const std::atomic<bool> notInterrupted{false};

std::string TempPath(const std::string& stem) {
    return ::testing::TempDir() + stem + "-" + std::to_string(::getpid());
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// What the report says of the printer's bytes: the total, and where the
// job's bytes stand in it, taken from the first and last bytes and a hash of
// the rest as they pass, since neither the job nor the output is kept.
struct ReceivedLine {
    std::uint64_t total = 0;
    std::uint64_t ahead = 0;
    std::uint64_t job = 0;
    std::uint64_t behind = 0;
};
std::optional<ReceivedLine> ReceivedIn(const std::string& report) {
    std::smatch match;
    const std::regex line(R"(the printer received (\d+) bytes: (\d+) bytes ahead of the job's (\d+), (\d+) bytes behind it)");
    if (!std::regex_search(report, match, line)) return std::nullopt;
    return ReceivedLine{std::stoull(match[1]), std::stoull(match[2]), std::stoull(match[3]), std::stoull(match[4])};
}

// On the virtual clock, so that the emulated printer's pages cost no real time.
class PrintCommandTest : public testing::MonitorTest {
protected:
    std::ostringstream err;  // what the command tells of errors
};

TEST_F(PrintCommandTest, AJobReachesTheFilePrinterWholeInBlocks) {
    const std::string job = TempPath("job");
    const std::string printer = TempPath("printer");
    std::string bytes(10000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 7);
    }
    WriteFile(job, bytes);

    PrintOptions options;
    std::string error;
    ASSERT_TRUE(ParsePrintOptions({job, "--printer", "file:" + printer, "--port", "COM2",
                                   "--block-size", "4096"},
                                  &options, &error))
        << error;
    std::ostringstream report;
    EXPECT_EQ(RunPrint(options, report, err, notInterrupted), 0) << report.str();
    EXPECT_EQ(ReadFile(printer), bytes);
    EXPECT_NE(report.str().find("3 calls, 10000 of 10000 bytes taken"), std::string::npos)
        << report.str();
    EXPECT_NE(report.str().find("the printer received 10000 bytes: the job's 10000 bytes, unchanged"),
              std::string::npos);
    // What the printer received is seen on its way to it, whatever the file
    // makes of it.
    std::ostringstream again;
    options.printer = "file:/dev/null";
    EXPECT_EQ(RunPrint(options, again, err, notInterrupted), 0) << again.str();
    EXPECT_NE(again.str().find("the printer received 10000 bytes: the job's 10000 bytes, unchanged"),
              std::string::npos)
        << again.str();
    EXPECT_EQ(err.str(), "");
    std::remove(job.c_str());
    std::remove(printer.c_str());
}

// A job longer than the emulated printer keeps a record of is sent block by
// block, and the report still finds it whole between the monitor's header
// and trailer.
TEST_F(PrintCommandTest, ALongJobIsFoundWholeBetweenTheHeaderAndTheTrailer) {
    testing::DescribePrinter("Office", testing::Driver6200, "LPT1:");
    const std::string job = TempPath("long.ps");
    std::string bytes = "%!PS-Adobe-3.0\n";
    const std::string filler = "% a line that only fills the job, so that it is long\n";
    while (bytes.size() < emulator::Printer::RecordLimit + 1000) bytes += filler;
    bytes += "showpage\n%%EOF\n";
    WriteFile(job, bytes);
    PrintOptions options;
    std::string error;
    ASSERT_TRUE(ParsePrintOptions({job}, &options, &error)) << error;
    std::ostringstream report;
    EXPECT_EQ(RunPrint(options, report, err, notInterrupted), 0) << report.str() << err.str();
    const std::string text = report.str();
    const std::string size = std::to_string(bytes.size());
    EXPECT_NE(text.find(" of " + size + " bytes taken\n"), std::string::npos) << text;
    const std::optional<ReceivedLine> received = ReceivedIn(text);
    ASSERT_TRUE(received.has_value()) << text;
    EXPECT_EQ(received->job, bytes.size());
    EXPECT_EQ(received->total, received->ahead + received->job + received->behind);
    EXPECT_NE(text.find("    ahead of the job:\n      <UEL>@PJL"), std::string::npos) << text;
    EXPECT_NE(text.find("    behind the job:\n      @PJL EOJ NAME=\""), std::string::npos) << text;
    EXPECT_NE(text.find("1 page printed, 0 in colour and 1 in black; printed"), std::string::npos) << text;
    std::remove(job.c_str());
}

// A printer that stops, before or after it has taken the job, has the job
// given up in seconds: the command says what it waits for before it waits,
// then what stopped the printer, and exits 3. The command itself leaves the
// port as it stands; here it is handed to the test, which closes it.
TEST_F(PrintCommandTest, AStoppedPrinterHasItsJobGivenUpInSeconds) {
    PrintOptions options;
    std::string error;
    // An endless job to a printer that does not answer: no more than a
    // block of it is read.
    ASSERT_TRUE(ParsePrintOptions({"/dev/zero", "--printer", "emulator:silent"}, &options, &error)) << error;
    std::ostringstream report;
    const DWORD start = GetTickCount();
    EXPECT_EQ(RunPrint(options, report, err, notInterrupted), StoppedJobExitCode) << report.str();
    EXPECT_LT(GetTickCount() - start, 20000u);
    EXPECT_NE(report.str().find("  StartDocPort    job 1, ok\n  the printer has stopped (it does not answer); "
                                "waiting up to 10 s for it to take the job\n  WritePort       "),
              std::string::npos)
        << report.str();
    EXPECT_EQ(err.str(), "langmon print: the job did not go through: given up: the printer has stopped (it does not "
                         "answer) and took nothing for 10 seconds\n");

    // A jam with the job at the printer.
    const std::string job = TempPath("letter");
    WriteFile(job, "Dear reader,\n");
    options = PrintOptions{};
    ASSERT_TRUE(ParsePrintOptions({job, "--printer", "emulator:jam"}, &options, &error)) << error;
    int left = 0;
    options.leaveStoppedPort = [&left](int code) { left = code; };
    report.str("");
    err.str("");
    EXPECT_EQ(RunPrint(options, report, err, notInterrupted), StoppedJobExitCode) << report.str();
    // The waiting, the giving up and the port left as it stands are the
    // documents' example; the report also tells what the printer shows.
    const std::string text = report.str();
    EXPECT_EQ(left, StoppedJobExitCode);
    EXPECT_NE(text.find("has not finished job \"03"), std::string::npos) << text;
    EXPECT_NE(text.find("  shows \"Paper jam\""), std::string::npos) << text;
    EXPECT_NE(text.find("  status       paper jam (error)\n"), std::string::npos) << text;
    std::remove(job.c_str());
}

}  // namespace
}  // namespace langmon::tool
