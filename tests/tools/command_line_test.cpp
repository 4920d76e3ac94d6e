// The langmon command as a shell runs it: the exit code, what it shows on
// standard output, and every error on standard error, in words and with the
// input it echoes made safe for a terminal.

#include "langmon/command_line.h"
#include "langmon/error_words.h"
#include "langmon/job_sender.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>
#include <unistd.h>

namespace langmon::tool {
namespace {

class CommandLineTest : public testing::MonitorTest {
protected:
    void TearDown() override {
        SettleThreads();
        MonitorTest::TearDown();
    }
    int Run(const std::vector<std::string>& words) {
        out.str("");
        err.str("");
        const std::atomic<bool> interrupted{false};
        return RunCommandLine(words, out, err, interrupted);
    }
    std::ostringstream out;
    std::ostringstream err;
};

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

// Help and the version go to standard output with 0; a wrong command line
// is one line on standard error, saying what is wrong and where the help is,
// with 2; a failure at run time says what failed in words, with 1.
TEST_F(CommandLineTest, EachLineGivesItsAnswerOnItsStreamWithItsExitCode) {
    const std::string job = ::testing::TempDir() + "command-line-job-" + std::to_string(::getpid());
    std::ofstream(job) << "x";
    struct Case {
        std::vector<std::string> words;
        int exitCode;
        std::string out;  // the first line, or "" for no output at all
        std::string err;  // the same for standard error
    };
    const std::string general = "usage: langmon COMMAND [ARGUMENT]... [OPTION]...";
    const std::string version = std::string("langmon ") + LANGMON_VERSION;
    const Case cases[] = {
        {{}, 2, "", "usage: langmon print FILE [OPTION]..."},
        {{"--help"}, 0, general, ""},
        {{"-h"}, 0, general, ""},
        {{"help"}, 0, general, ""},
        {{"help", "status"}, 0, "usage: langmon status [OPTION]...", ""},
        {{"print", "--help"}, 0, "usage: langmon print FILE [OPTION]...", ""},
        // Asked for, the help comes whatever else is wrong on the line.
        {{"status", "--colour", "-h"}, 0, "usage: langmon status [OPTION]...", ""},
        {{"decode", "-h"}, 0, "usage: langmon decode DEVICE_ID [--json] [--variables]", ""},
        {{"--version"}, 0, version, ""},
        {{"version"}, 0, version, ""},
        {{"help", "frob"}, 2, "", "langmon help: no command frob (print, status, decode, emulate, printers); see 'langmon help --help'"},
        {{"frob"}, 2, "", "langmon: unknown command frob; see 'langmon --help'"},
        {{"--frob"}, 2, "", "langmon: unknown option --frob; see 'langmon --help'"},
        {{"print"}, 2, "", "langmon print: no FILE given; see 'langmon print --help'"},
        {{"print", job, "--colour=red"}, 2, "", "langmon print: unknown option --colour; see 'langmon print --help'"},
        {{"print", job, "--port"}, 2, "", "langmon print: --port needs a value; see 'langmon print --help'"},
        {{"status", "--json=yes"}, 2, "", "langmon status: --json takes no value; see 'langmon status --help'"},
        {{"status", "--watch", "--for=0"}, 2, "",
         "langmon status: --for takes seconds, more than 0 and at most 86400; see 'langmon status --help'"},
        {{"status", "--watch", "--at=1:covers=front,tpo"}, 2, "",
         "langmon status: --at covers=front,tpo: bad value \"tpo\" for covers (front, top, right, rear, duplex, "
         "fuser, toner, cassette, or none alone); see 'langmon status --help'"},
        {{"decode", "--json=1", "MFG:x;"}, 2, "", "langmon decode: --json takes no value; see 'langmon decode --help'"},
        {{"decode"}, 2, "", "langmon decode: no DEVICE_ID given; see 'langmon decode --help'"},
        {{"decode", "MFG:x;", "MDL:y;"}, 2, "",
         "langmon decode: one device ID at a time (quote it: it holds blanks and ';'); see 'langmon decode --help'"},
        {{"print", "a", "b"}, 2, "", "langmon print: one job file at a time; see 'langmon print --help'"},
        {{"print", "a", "--block-size", "0"}, 2, "",
         "langmon print: --block-size takes a number of bytes from 1 to 16777216; see 'langmon print --help'"},
        {{"status", "--printer", "lpt:1"}, 2, "",
         "langmon status: --printer lpt:1: not a printer address (emulator[:DESCRIPTION], file:PATH, "
         "langmon:/dev/TTY[?baud=N], langmon:/emulator[?DESCRIPTION], langmon:/dev/usb/lpN or "
         "langmon://HOST[:PORT][?snmp=PORT][&community=NAME]); see 'langmon status --help'"},
        {{"status", "--for", "10"}, 2, "", "langmon status: --for and --at go with --watch; see 'langmon status --help'"},
        {{"status", "--watch", "--at", "-1:jam"}, 2, "",
         "langmon status: --at takes SECONDS:CHANGE, e.g. --at 5:cover-open or --at 20:print=job.ps; see 'langmon "
         "status --help'"},
        {{"status", "--watch", "--printer", "file:/tmp/x", "--at", "3:jam"}, 2, "",
         "langmon status: --at jam: only the emulated printer can be changed; see 'langmon status --help'"},
        // What the line echoes is made safe for the terminal.
        {{"\x9B" "31m"}, 2, "", "langmon: unknown command \\x9B31m; see 'langmon --help'"},
        {{"print", "job", "--\x1B[2Jcolour"}, 2, "",
         "langmon print: unknown option --\\x1B[2Jcolour; see 'langmon print --help'"},
        {{"print", "job", "--printer", "emulator:\x1B]0;x\x07"}, 2, "",
         "langmon print: --printer emulator:\\x1B]0;x\\x07: unknown printer word \"\\x1B]0;x\\x07\": neither "
         "KEY=VALUE nor a fault word (silent, one-byte, small-reads, garbage, crlf-after-form-feed, cover-open, "
         "jam, toner-low, toner-empty, out-of-memory, operator-attention, hardware-failure, warming-up, power-off, "
         "foreign, paper-out); see 'langmon print --help'"},
        {{"status", "--watch", "--at", "1:print=/"}, 2, "",
         "langmon status: --at print=/: /: cannot be read (Is a directory); see 'langmon status --help'"},
        {{"decode", "-\x1B"}, 2, "", "langmon decode: unknown option -\\x1B; see 'langmon decode --help'"},
        // Run-time failures: the line was right, values after '=' included.
        {{"print", "/"}, 1, "", "langmon print: /: cannot be read (Is a directory)"},
        {{"print", "/nonexistent/\x1B[2J", "--document=d"}, 1, "",
         "langmon print: /nonexistent/\\x1B[2J: cannot be read (No such file or directory)"},
        {{"print", job, "--block-size=7", "--printer=file:/nonexistent/dir/out"}, 1,
         "langmon print " + job + " to file:/nonexistent/dir/out,",
         "langmon print: the port LPT1: could not be opened: the file was not found (error 2)"},
        {{"status", "--printer-name=TYPO"}, 1, "",
         "langmon status: no status client: the machine has no printer named \"TYPO\" (see LANGMON_REGISTRY)"},
        {{"decode", "MFG:x;MDL:y;"}, 0, "what the monitor makes of the device ID", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.words));
        EXPECT_EQ(Run(c.words), c.exitCode);
        EXPECT_EQ(FirstLine(out.str()), c.out);
        EXPECT_EQ(out.str().empty(), c.out.empty()) << out.str();
        EXPECT_EQ(FirstLine(err.str()), c.err);
        EXPECT_EQ(err.str().empty(), c.err.empty()) << err.str();
        if (c.exitCode == 2 && !c.words.empty()) {
            EXPECT_EQ(err.str(), c.err + "\n") << "one line";
        }
        EXPECT_EQ(err.str().find_first_of("\x07\x1B\x9B"), std::string::npos) << err.str();
        // Help is read in a terminal of 80 columns.
        if (c.exitCode == 0 && c.out.rfind("usage:", 0) == 0) {
            std::istringstream lines(out.str());
            for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
        }
    }
    std::remove(job.c_str());
}

// A failed call is told in words, its number kept for support; every code the
// system gives has words.
TEST(ErrorWordsTest, AFailedCallIsToldInWordsWithItsNumber) {
    EXPECT_EQ(CallOutcome(TRUE, ERROR_ACCESS_DENIED), "ok");
    EXPECT_EQ(CallOutcome(FALSE, ERROR_FILE_NOT_FOUND), "failed: the file was not found (error 2)");
    EXPECT_EQ(ErrorWords(ERROR_TIMEOUT), "the time-out ran out (error 1460)");
    EXPECT_EQ(ErrorWords(987654), "error 987654");
    const DWORD occurring[] = {ERROR_SUCCESS, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE,
                               ERROR_NOT_ENOUGH_MEMORY, 21, 31, ERROR_NOT_SUPPORTED, ERROR_INVALID_PARAMETER,
                               ERROR_BUFFER_OVERFLOW, ERROR_INSUFFICIENT_BUFFER, 124, 126, 127, ERROR_BUSY,
                               ERROR_ALREADY_EXISTS, ERROR_MORE_DATA, ERROR_NO_MORE_ITEMS, ERROR_NOT_OWNER,
                               ERROR_TOO_MANY_POSTS, 1113, ERROR_DEVICE_NOT_CONNECTED, 1168,
                               ERROR_CONNECTION_UNAVAIL, ERROR_CANCELLED, ERROR_TIMEOUT, 1797, 1801, 1905,
                               ERROR_INVALID_PRINTER_STATE, ERROR_NOT_CONNECTED};
    for (DWORD code : occurring) {
        const std::string words = ErrorWords(code);
        const std::string number = "(error " + std::to_string(code) + ")";
        EXPECT_GT(words.size(), number.size() + 1) << code << " has no words";
        EXPECT_EQ(words.substr(words.size() - number.size()), number);
    }
}

// The machine is read once per process, so each case runs in a process of
// its own: whatever is wrong with the description, the command does not run
// on an empty machine in place of the one described, and says where the
// description goes wrong.
TEST(CommandLineMachineTest, ABrokenMachineDescriptionStopsEveryCommand) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string refused = ::testing::TempDir() + "refused-machine.reg";
    std::ofstream(refused, std::ios::binary) << "REGEDIT4\n[HKEY_CURRENT_USER\x1B[2J\\Software]\n";
    const std::string missing = ::testing::TempDir() + "missing-machine.reg";
    std::remove(missing.c_str());
    struct Case {
        std::vector<std::string> words;
        std::string path;
        std::string problem;  // a regular expression
    };
    const Case cases[] = {
        {{"print", "job.ps"}, refused,
         ".*refused-machine.reg:2: unknown root key \"HKEY_CURRENT_USER\\\\x1B\\[2J\" "
         "\\(HKEY_LOCAL_MACHINE or HKEY_DYN_DATA\\)"},
        {{"status"}, missing, ".*missing-machine.reg: cannot be read \\(No such file or directory\\)"},
        {{"decode", "MFG:x;MDL:y;"}, "/", "/: cannot be read \\(Is a directory\\)"},
    };
    for (const Case& c : cases) {
        EXPECT_EXIT(
            {
                setenv("LANGMON_REGISTRY", c.path.c_str(), 1);
                std::ostringstream out;
                const std::atomic<bool> interrupted{false};
                const int code = RunCommandLine(c.words, out, std::cerr, interrupted);
                std::exit(out.str().empty() ? code : 99);
            },
            ::testing::ExitedWithCode(2),
            "^langmon: " + c.problem + "\nlangmon " + c.words[0] +
                ": not run: the machine description that LANGMON_REGISTRY names is refused\n$");
    }
}

}  // namespace
}  // namespace langmon::tool
