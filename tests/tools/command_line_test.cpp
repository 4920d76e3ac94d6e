// The langmon command as a shell runs it: the exit code, what it shows on
// standard output, and every error on standard error, with the input it
// echoes made safe for a terminal.

#include "langmon/command_line.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace langmon::tool {
namespace {

class CommandLineTest : public testing::MonitorTest {
protected:
    int Run(const std::vector<std::string>& words) {
        out.str("");
        err.str("");
        const std::atomic<bool> interrupted{false};
        return RunCommandLine(words, out, err, interrupted);
    }
    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(CommandLineTest, ErrorsGoToStandardErrorWithTheirInputEscaped) {
    struct Case {
        std::vector<std::string> words;
        int exitCode;
        std::string firstLine;  // of standard error
    };
    const Case cases[] = {
        {{"\x9B" "31m"}, 2, "langmon: unknown command \\x9B31m"},
        {{"print", "job", "--\x1B[2Jcolour"}, 2, "langmon print: unknown option --\\x1B[2Jcolour"},
        {{"print", "job", "--printer", "emulator:\x1B]0;x\x07"}, 2,
         "langmon print: --printer emulator:\\x1B]0;x\\x07: unknown printer word \"\\x1B]0;x\\x07\""},
        {{"status", "--watch", "--at", "1:print=/"}, 2, "langmon status: --at print=/: /: cannot be read (Is a directory)"},
        {{"decode", "-\x1B"}, 2, "langmon decode: unknown option -\\x1B"},
        {{"print", "/"}, 1, "langmon print: /: cannot be read (Is a directory)"},
        {{"print", "/nonexistent/\x1B[2J"}, 1, "langmon print: /nonexistent/\\x1B[2J: cannot be read (No such file or directory)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.firstLine);
        EXPECT_EQ(Run(c.words), c.exitCode);
        EXPECT_EQ(out.str(), "");
        EXPECT_EQ(err.str().substr(0, err.str().find('\n')), c.firstLine);
        EXPECT_EQ(err.str().find_first_of("\x07\x1B\x9B"), std::string::npos) << err.str();
    }
    // Asked for, the usage is the output.
    EXPECT_EQ(Run({"--help"}), 0);
    EXPECT_EQ(out.str().rfind("usage: langmon print FILE", 0), 0u);
    EXPECT_EQ(err.str(), "");
}

// The machine is read once per process, so each case runs in a process of
// its own: the command does not run on an empty machine in place of the one
// described, and says where the description goes wrong.
TEST(CommandLineMachineTest, ARefusedMachineDescriptionStopsEveryCommand) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string path = ::testing::TempDir() + "refused-machine.reg";
    std::ofstream(path, std::ios::binary) << "REGEDIT4\n[HKEY_CURRENT_USER\x1B[2J\\Software]\n";
    const std::vector<std::string> commands[] = {{"print", "job.ps"}, {"status"}, {"decode", "MFG:x;MDL:y;"}};
    for (const std::vector<std::string>& words : commands) {
        EXPECT_EXIT(
            {
                setenv("LANGMON_REGISTRY", path.c_str(), 1);
                std::ostringstream out;
                const std::atomic<bool> interrupted{false};
                const int code = RunCommandLine(words, out, std::cerr, interrupted);
                std::exit(out.str().empty() ? code : 99);
            },
            ::testing::ExitedWithCode(2),
            "^langmon: .*refused-machine.reg:2: unknown root key \"HKEY_CURRENT_USER\\\\x1B\\[2J\" "
            "\\(HKEY_LOCAL_MACHINE or HKEY_DYN_DATA\\)\n"
            "langmon [a-z]+: not run: the machine description that LANGMON_REGISTRY names is refused\n$");
    }
}

}  // namespace
}  // namespace langmon::tool
