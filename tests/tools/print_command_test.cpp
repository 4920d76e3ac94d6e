// `langmon print` as a user runs it: the job reaches the printer whole and the
// report says what happened.

#include "langmon/print_command.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>
#include <unistd.h>

namespace langmon::tool {
namespace {

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

// On the virtual clock, so that the emulated printer's pages cost no real time.
class PrintCommandTest : public testing::MonitorTest {};

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
    EXPECT_EQ(RunPrint(options, report), 0) << report.str();
    EXPECT_EQ(ReadFile(printer), bytes);
    EXPECT_NE(report.str().find("3 calls, 10000 of 10000 bytes taken"), std::string::npos)
        << report.str();
    EXPECT_NE(report.str().find("the job's 10000 bytes, unchanged"), std::string::npos);
    std::remove(job.c_str());
    std::remove(printer.c_str());
}

TEST_F(PrintCommandTest, AJobThatCannotBeReadOrPrintedFails) {
    PrintOptions options;
    std::string error;
    ASSERT_TRUE(ParsePrintOptions({TempPath("absent"), "--printer", "file:/nonexistent/dir/out"},
                                  &options, &error));
    std::ostringstream report;
    EXPECT_EQ(RunPrint(options, report), 1);
    EXPECT_NE(report.str().find("cannot read"), std::string::npos) << report.str();

    const std::string job = TempPath("job2");
    WriteFile(job, "x");
    options.jobFile = job;
    std::ostringstream refused;
    EXPECT_EQ(RunPrint(options, refused), 1);
    EXPECT_NE(refused.str().find("OpenPortEx      failed, last error 2"), std::string::npos)
        << refused.str();
    std::remove(job.c_str());
}

TEST_F(PrintCommandTest, TheEmulatedPrinterPrintsTheJobAndTellsWhatItDid) {
    const std::string job = TempPath("brochure.ps");
    WriteFile(job, "%!PS\n1 0 0 setrgbcolor showpage\nshowpage\n%%EOF\n");
    PrintOptions options;
    std::string error;
    ASSERT_TRUE(ParsePrintOptions({job, "--printer", "emulator:page-time=40000"}, &options, &error))
        << error;
    const DWORD start = GetTickCount();
    std::ostringstream report;
    EXPECT_EQ(RunPrint(options, report), 0) << report.str();
    // Two pages of 40 s each: the command waited for them on the clock.
    EXPECT_GE(GetTickCount() - start, 80000u);
    EXPECT_NE(report.str().find("to the emulated Laser Printer 6200tx"), std::string::npos) << report.str();
    EXPECT_NE(report.str().find("2 pages printed, 1 in colour and 1 in black; printed"), std::string::npos)
        << report.str();
    EXPECT_NE(report.str().find("the printer shows \"Ready\""), std::string::npos) << report.str();
    // The monitor closed the job with its trailer, and the report shows it.
    EXPECT_NE(report.str().find("51 bytes behind it\n  behind the job:\n    @PJL EOJ NAME=\""), std::string::npos)
        << report.str();
    std::remove(job.c_str());
}

// A printer of a known model on the port has a client: the command follows
// the status thread until the printed job has left the printer, and the port
// then closes without waiting.
TEST_F(PrintCommandTest, AJobWithAClientIsFollowedPollByPollUntilItHasLeftThePrinter) {
    testing::DescribePrinter("Office", testing::Driver6200, "LPT1:");
    const std::string job = TempPath("memo.ps");
    // A PostScript job's trailer names the job as its header does, so the
    // printer's report of its end is known to be the job's.
    WriteFile(job, "%!PS-Adobe-3.0\nshowpage\nshowpage\nshowpage\n%%EOF\n");
    PrintOptions options;
    std::string error;
    // Pages of 4 s: the printer takes several of the thread's passes.
    ASSERT_TRUE(ParsePrintOptions({job, "--printer", "emulator:page-time=4000"}, &options, &error)) << error;
    std::ostringstream report;
    EXPECT_EQ(RunPrint(options, report), 0) << report.str();
    const std::string text = report.str();
    EXPECT_NE(text.find("of printer \"Office\""), std::string::npos) << text;
    EXPECT_NE(text.find("  the status thread follows the job:\n    poll 1 at +"), std::string::npos) << text;
    // The polls come 3 s apart while the job is at the printer.
    std::vector<double> at;
    const std::regex pollLine(R"(    poll \d+ at \+(\d+\.\d) s: )");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), pollLine); it != std::sregex_iterator(); ++it) {
        at.push_back(std::stod((*it)[1]));
    }
    ASSERT_GE(at.size(), 2u) << text;
    for (std::size_t i = 1; i < at.size(); ++i) EXPECT_DOUBLE_EQ(at[i] - at[i - 1], 3.0) << text;
    EXPECT_NE(text.find("; the job has left the printer\n  the status thread has ended\n  ClosePort       ok"),
              std::string::npos)
        << text;
    EXPECT_EQ(text.find("ClosePort waits"), std::string::npos) << text;
    // The client was handed the job's start, its page and its figures as the
    // printer reported them, then the empty record.
    EXPECT_NE(text.find("the job as the client followed it:\n  job 1 started\n  job 1: "), std::string::npos) << text;
    EXPECT_NE(text.find("  job 1: 2 pages printed\n  job 1: 3 pages printed\n"
                        "  job 1 ended: 3 pages, 0 in colour and 3 in black; "
                        "coverage cyan 0%, magenta 0%, yellow 0%, black "),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("%\n  no job printing\n"), std::string::npos) << text;
    std::remove(job.c_str());
}

TEST_F(PrintCommandTest, AJammedPrinterTakesTheJobAndShowsWhyItDoesNotPrint) {
    const std::string job = TempPath("letter");
    WriteFile(job, "Dear reader,\n");
    PrintOptions options;
    std::string error;
    ASSERT_TRUE(ParsePrintOptions({job, "--printer", "emulator:jam"}, &options, &error)) << error;
    std::ostringstream report;
    EXPECT_EQ(RunPrint(options, report), 0) << report.str();
    EXPECT_NE(report.str().find("has not finished a job without a PJL JOB line: 0 pages"), std::string::npos)
        << report.str();
    EXPECT_NE(report.str().find("the printer shows \"Paper jam\""), std::string::npos) << report.str();
    // The monitor read the jam from the printer's device ID.
    EXPECT_NE(report.str().find("  status       paper jam (error)\n"), std::string::npos) << report.str();
    EXPECT_EQ(report.str().find("  jams         none"), std::string::npos) << report.str();
    std::remove(job.c_str());
}

TEST_F(PrintCommandTest, ACommandLineThatMakesNoJobIsRefused) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "which file?"},
        {{"a", "b"}, "one job file at a time"},
        {{"a", "--printer", "lpt:1"}, "--printer takes emulator, emulator:DESCRIPTION or file:PATH"},
        {{"a", "--printer", "emulator:toner.cyan=200"}, "bad value \"200\" for toner.cyan"},
        {{"a", "--printer", "emulator:smoke"}, "unknown printer word \"smoke\""},
        {{"a", "--block-size", "0"}, "--block-size takes"},
        {{"a", "--port"}, "--port needs a value"},
        {{"a", "--colour"}, "unknown option --colour"},
    };
    for (const auto& [words, message] : cases) {
        PrintOptions options;
        std::string error;
        EXPECT_FALSE(ParsePrintOptions(words, &options, &error));
        EXPECT_NE(error.find(message), std::string::npos) << error;
    }
}

}  // namespace
}  // namespace langmon::tool
