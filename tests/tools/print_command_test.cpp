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

TEST_F(PrintCommandTest, AJobThatCannotBeReadOrPrintedFails) {
    PrintOptions options;
    std::string error;
    // A job file that is missing, or a directory, is told on standard error
    // before anything is sent.
    const std::pair<std::string, std::string> unreadable[] = {
        {TempPath("absent"), "No such file or directory"},
        {::testing::TempDir(), "Is a directory"},
    };
    for (const auto& [path, reason] : unreadable) {
        ASSERT_TRUE(ParsePrintOptions({path, "--printer", "file:/nonexistent/dir/out"}, &options, &error));
        std::ostringstream report;
        err.str("");
        EXPECT_EQ(RunPrint(options, report, err, notInterrupted), 1);
        EXPECT_EQ(report.str(), "");
        EXPECT_EQ(err.str(), "langmon print: " + path + ": cannot be read (" + reason + ")\n");
        options = PrintOptions{};
    }
    ASSERT_TRUE(ParsePrintOptions({TempPath("absent"), "--printer", "file:/nonexistent/dir/out"}, &options, &error));

    const std::string job = TempPath("job2");
    WriteFile(job, "x");
    options.jobFile = job;
    std::ostringstream refused;
    EXPECT_EQ(RunPrint(options, refused, err, notInterrupted), 1);
    EXPECT_NE(refused.str().find("OpenPortEx      failed: the file was not found (error 2)\n"), std::string::npos)
        << refused.str();
    std::remove(job.c_str());
}

// Without a machine file the emulated printer has a queue of its own: the
// job is framed, a client follows it, and the report tells, in the order it
// happened, what was sent, what the printer said, what the client saw and
// what the spooler was told.
TEST_F(PrintCommandTest, AFirstRunWithoutAMachineShowsTheWholeJob) {
    const std::string job = TempPath("brochure.ps");
    WriteFile(job, "%!PS-Adobe-3.0\n1 0 0 setrgbcolor showpage\nshowpage\n%%EOF\n");
    PrintOptions options;
    std::string error;
    ASSERT_TRUE(ParsePrintOptions({job, "--printer", "emulator:page-time=40000"}, &options, &error)) << error;
    const DWORD start = GetTickCount();
    std::ostringstream report;
    EXPECT_EQ(RunPrint(options, report, err, notInterrupted), 0) << report.str();
    // Two pages of 40 s each: the command waited for them on the clock.
    EXPECT_GE(GetTickCount() - start, 80000u);
    const std::string text = report.str();
    EXPECT_NE(text.find("to the emulated Laser Printer 6200tx,\n  on port LPT1: of printer \"langmon\" (a queue of "
                        "the command's own"),
              std::string::npos)
        << text;
    std::size_t at = 0;
    for (const char* heading : {"\nwhat the spooler did:\n", "\nwhat was sent:\n", "\nwhat the printer said:\n",
                                "\nwhat a status client of \"langmon\" saw:\n",
                                "\nwhat the spooler was told of \"langmon\":\n"}) {
        const std::size_t found = text.find(heading, at);
        ASSERT_NE(found, std::string::npos) << heading << " after byte " << at << ":\n" << text;
        at = found;
    }
    // The header went ahead of the job and named it; the printer reported
    // the job by that name, and the client heard its end.
    const std::optional<ReceivedLine> received = ReceivedIn(text);
    ASSERT_TRUE(received.has_value()) << text;
    EXPECT_EQ(received->ahead, 136u);
    EXPECT_EQ(received->behind, 86u) << "the trailer, and USTATUSOFF once the job has left";
    EXPECT_NE(text.find("  finished job \"03"), std::string::npos) << text;
    EXPECT_NE(text.find("2 pages printed, 1 in colour and 1 in black; printed"), std::string::npos) << text;
    EXPECT_NE(text.find("  shows \"Ready\"\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  panel        \"Ready\"\n"), std::string::npos) << text;
    EXPECT_NE(text.find("    job 1 ended: 2 pages, 1 in colour and 1 in black;"), std::string::npos) << text;
    EXPECT_NE(text.find("\"langmon\":\n  PRINTER_STATUS_PRINTING\n"), std::string::npos) << text;
    EXPECT_EQ(err.str(), "");
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
    EXPECT_EQ(RunPrint(options, report, err, notInterrupted), 0) << report.str();
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
    EXPECT_NE(text.find("the job, as the client followed it:\n    job 1 started\n    job 1: "), std::string::npos) << text;
    EXPECT_NE(text.find("    job 1: 2 pages printed\n    job 1: 3 pages printed\n"
                        "    job 1 ended: 3 pages, 0 in colour and 3 in black; "
                        "coverage cyan 0%, magenta 0%, yellow 0%, black "),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("%\n    no job printing\n"), std::string::npos) << text;
    std::remove(job.c_str());
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

// A printer that takes a byte a call gets the whole job: the monitor's
// header a byte at a time while WritePort reports none of the job taken,
// then the job and the trailer, each byte once and in order.
TEST_F(PrintCommandTest, APrinterThatTakesAByteACallGetsTheWholeJobOnce) {
    testing::DescribePrinter("Office", testing::Driver6200, "LPT1:");
    const std::string job = TempPath("slow.ps");
    const std::string bytes = "%!PS-Adobe-3.0\n1 0 0 setrgbcolor showpage\nshowpage\n%%EOF\n";
    WriteFile(job, bytes);
    PrintOptions options;
    std::string error;
    ASSERT_TRUE(ParsePrintOptions({job, "--printer", "emulator:one-byte"}, &options, &error)) << error;
    std::ostringstream report;
    EXPECT_EQ(RunPrint(options, report, err, notInterrupted), 0) << report.str() << err.str();
    const std::string text = report.str();
    EXPECT_NE(text.find(std::to_string(bytes.size()) + " of " + std::to_string(bytes.size()) + " bytes taken\n"),
              std::string::npos)
        << text;
    const std::optional<ReceivedLine> received = ReceivedIn(text);
    ASSERT_TRUE(received.has_value()) << text;
    EXPECT_EQ(received->job, bytes.size());
    EXPECT_EQ(received->total, received->ahead + received->job + received->behind);
    EXPECT_GT(received->ahead, 100u) << "the header, a byte at a time";
    EXPECT_NE(text.find("    behind the job:\n      @PJL EOJ NAME=\""), std::string::npos) << text;
    // Nothing of the job stands in the header or the trailer.
    const std::size_t ahead = text.find("    ahead of the job:\n");
    const std::size_t behind = text.find("    behind the job:\n");
    ASSERT_LT(ahead, behind) << text;
    EXPECT_EQ(text.substr(ahead, text.find("what the printer said", behind) - ahead).find("showpage"), std::string::npos)
        << text;
    EXPECT_NE(text.find("2 pages printed, 1 in colour and 1 in black; printed"), std::string::npos) << text;
    EXPECT_EQ(err.str(), "");
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
    DWORD start = GetTickCount();
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
    start = GetTickCount();
    EXPECT_EQ(RunPrint(options, report, err, notInterrupted), StoppedJobExitCode) << report.str();
    const std::string text = report.str();
    EXPECT_EQ(left, StoppedJobExitCode);
    const std::string waiting = "  the printer has stopped (paper jam); waiting up to 10 s for it to go on with the job\n";
    ASSERT_NE(text.find(waiting), std::string::npos) << text;
    EXPECT_EQ(text.find(waiting, text.find(waiting) + 1), std::string::npos) << "said once\n" << text;
    EXPECT_NE(text.find("  the printer has stood stopped for 10 s; the job stays at it\n"), std::string::npos) << text;
    EXPECT_NE(text.find("has not finished job \"03"), std::string::npos) << text;
    EXPECT_NE(text.find("  shows \"Paper jam\""), std::string::npos) << text;
    EXPECT_NE(text.find("  status       paper jam (error)\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\nthe port is left as it stands"), std::string::npos) << text;
    EXPECT_EQ(err.str().rfind("langmon print: the printer has stopped (paper jam); the job stays at it\n", 0), 0u)
        << err.str();
    std::remove(job.c_str());
}

TEST_F(PrintCommandTest, ACommandLineThatMakesNoJobIsRefused) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "no FILE given"},
        {{"a", "b"}, "one job file at a time"},
        {{"a", "--printer", "lpt:1"}, "--printer lpt:1: not a printer address (emulator[:DESCRIPTION], file:PATH, langmon:/dev/TTY"},
        {{"a", "--printer", "emulator:toner.cyan=200"}, "bad value \"200\" for toner.cyan"},
        {{"a", "--block-size", "0"}, "--block-size takes"},
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
