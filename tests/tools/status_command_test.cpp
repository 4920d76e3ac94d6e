// `langmon status` as a person runs it against the emulated printer, on the
// virtual clock: what it shows of the printer through the status client,
// and what --watch reports as the printer changes and a
// job goes through.

#include "langmon/status_command.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>
#include <unistd.h>

namespace langmon::tool {
namespace {

class StatusCommandTest : public testing::MonitorTest {
protected:
    void TearDown() override {
        SettleThreads();
        MonitorTest::TearDown();
    }
    // The command's output and exit code for the words after "status".
    std::string Run(const std::vector<std::string>& words, int* exitCode = nullptr, bool interrupt = false) {
        StatusOptions options;
        std::string error;
        EXPECT_TRUE(ParseStatusOptions(words, &options, &error)) << error;
        std::ostringstream out;
        std::ostringstream err;
        const std::atomic<bool> interrupted{interrupt};
        const int code = RunStatus(options, out, err, interrupted);
        if (exitCode != nullptr) *exitCode = code;
        return out.str();
    }
    static std::size_t Find(const std::string& text, const std::string& part, std::size_t from = 0) {
        return text.find(part, from);
    }
};

TEST_F(StatusCommandTest, ShowsWhatIsWrongWithThePrinterAndWhyValuesAreNotFresh) {
    std::string text = Run({"--printer", "emulator:jam=3,cover-open,toner.black=2", "--variables"});
    EXPECT_NE(Find(text, "               black    [----------]   2%  nearly empty\n"), std::string::npos) << text;
    EXPECT_NE(Find(text, "  covers       front cover open\n"
                         "  jams         at place 3 (the printer numbers its places without naming them)\n"),
              std::string::npos)
        << text;
    // Asked for, the client's variables follow in hex.
    EXPECT_NE(Find(text, "  job          none\nthe client's variables, in hex:\n"), std::string::npos) << text;
    EXPECT_NE(Find(text, "\n  ErrCoverOpen        01000000\n"), std::string::npos) << text;

    // A machine printer on the port is the one shown; a silent printer gives
    // no fresh values, and the status says why.
    testing::DescribePrinter("Front Desk", testing::Driver6200, "LPT2:");
    int code = -1;
    text = Run({"--printer", "emulator:silent", "--port", "LPT2:"}, &code);
    EXPECT_EQ(code, 0) << text;
    EXPECT_NE(Find(text, "langmon status of printer \"Front Desk\" on port LPT2:"), std::string::npos) << text;
    EXPECT_NE(Find(text, "  (no fresh values: the printer does not answer)\n"), std::string::npos) << text;
    EXPECT_NE(Find(text, "  status       the printer does not answer\n"), std::string::npos) << text;
    EXPECT_EQ(Find(text, "  toner "), std::string::npos) << "no levels of a printer that isn't read\n" << text;
}

TEST_F(StatusCommandTest, WatchFollowsACoverAJamAndAJobInTheOrderTheyHappen) {
    const std::string job = ::testing::TempDir() + "report-" + std::to_string(::getpid()) + ".pjl";
    const std::string bytes =
        "\x1b%-12345X@PJL\r\n@PJL JOB NAME=\"r\"\r\n@PJL INFO PAGECOUNT\r\n@PJL ENTER LANGUAGE=NPDL\r\n"
        "page 1\fpage 2\f\x1b%-12345X@PJL EOJ NAME=\"r\"\r\n\x1b%-12345X";
    std::ofstream(job, std::ios::binary) << bytes;
    int code = -1;
    const DWORD start = GetTickCount();
    // Given out of order, the moments are taken in theirs; a change is
    // echoed with the bytes a terminal would obey escaped.
    const std::string text = Run({"--watch", "--for", "40", "--at", "26:print=" + job, "--at", "2:covers=front,top",
                                  "--at", "8:covers=none", "--at", "38:panel=\x1B[2J|\x07", "--at", "14:jam=3",
                                  "--at", "20:jam=none"},
                                 &code);
    EXPECT_EQ(code, 0) << text;
    EXPECT_GE(GetTickCount() - start, 40000u) << "the watch lasted its 40 s on the clock";
    // Each happening, then what the client saw of it, in order; what one
    // poll brings may come in any order.
    const std::vector<std::vector<std::string>> sequence = {
        {"following the printer for 40.0 s:\n"},
        {"+2.0 s: the printer: covers=front,top\n"},
        {"  status       a cover is open (error)\n", "  covers       front cover, top cover open\n"},
        {"  panel        \"Cover open\" / \"Close cover\"\n"},
        {"+8.0 s: the printer: covers=none\n"},
        {"  status       ready\n", "  covers       closed\n"},
        {"  panel        \"Ready\"\n"},
        {"+14.0 s: the printer: jam=3\n"},
        {"  status       paper jam (error)\n", "  jams         at place 3 ("},
        {"+20.0 s: the printer: jam=none\n"},
        {"  jams         none\n"},
        {"+26.0 s: job 1 (" + job + ") is sent\n"},
        {"  status       printing\n"},
        {"handed over: " + std::to_string(bytes.size()) + " of " + std::to_string(bytes.size()) + " bytes taken\n"},
        {"  job          job 1: 2 pages printed\n"},
        {"  job          job 1 ended: 2 pages, 0 in colour and 2 in black;"},
        {"  job          none\n"},
    };
    std::size_t at = 0;
    for (const std::vector<std::string>& together : sequence) {
        std::size_t end = at;
        for (const std::string& part : together) {
            const std::size_t found = Find(text, part, at);
            ASSERT_NE(found, std::string::npos) << "missing, or out of order: " << part << "\n" << text;
            end = std::max(end, found + part.size());
        }
        at = end;
    }
    EXPECT_NE(Find(text, "+38.0 s: the printer: panel=\\x1B[2J|\\x07\n"), std::string::npos) << text;
    // The printer answered the job's own INFO PAGECOUNT, which the client sees.
    EXPECT_NE(Find(text, "  page count   1024\n"), std::string::npos) << text;
    std::remove(job.c_str());
}

}  // namespace
}  // namespace langmon::tool
