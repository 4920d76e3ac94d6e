// Input a user hands the programs: read up to its bound and no further, and
// echoed back in messages without bytes a terminal would obey.

#include "platform/user_input.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>

namespace langmon::platform {
namespace {

TEST(UserInputTest, EchoedTextKeepsPrintableCharactersAndEscapesTheRest) {
    const std::pair<std::string, std::string> cases[] = {
        {"job.ps --printer", "job.ps --printer"},
        // Well-formed UTF-8 is shown as it is.
        {"Brief f\xC3\xBCr Anna \xE2\x82\xAC \xF0\x9F\x96\xA8.txt", "Brief f\xC3\xBCr Anna \xE2\x82\xAC \xF0\x9F\x96\xA8.txt"},
        // Controls, as a terminal would obey them: a clear screen, a title, a bell.
        {"\x1B[2J\x1B]0;x\x07\r\n\t\x7F", "\\x1B[2J\\x1B]0;x\\x07\\x0D\\x0A\\x09\\x7F"},
        {std::string("a\0b", 3), "a\\x00b"},
        // The C1 controls, as bytes and in UTF-8.
        {"\x9B" "31m \xC2\x9B" "31m", "\\x9B31m \\xC2\\x9B31m"},
        // Not UTF-8: a stray byte, a sequence cut short, an overlong form, a surrogate.
        {"\xFF \xC3", "\\xFF \\xC3"},
        {"\xE0\x80\xAF \xED\xA0\x80", "\\xE0\\x80\\xAF \\xED\\xA0\\x80"},
    };
    for (const auto& [text, shown] : cases) EXPECT_EQ(Printable(text), shown);
}

TEST(UserInputTest, AFileIsReadUpToItsBoundAndNoFurther) {
    const std::string path = ::testing::TempDir() + "user-input-" + std::to_string(::getpid());
    std::ofstream(path, std::ios::binary) << "0123456789";
    std::string bytes = "stale";
    EXPECT_EQ(ReadFileUpTo(path, 10, "a test file", &bytes), "");
    EXPECT_EQ(bytes, "0123456789");
    EXPECT_EQ(ReadFileUpTo(path, 9, "a test file", &bytes), path + ": more than 9 bytes, the most a test file may hold");
    EXPECT_EQ(bytes, "");

    // Block by block, to the end.
    InputFile file(path);
    char block[4];
    std::string read;
    for (std::size_t got; (got = file.Read(block, sizeof block)) != 0;) read.append(block, got);
    EXPECT_EQ(read, "0123456789");
    EXPECT_EQ(file.Problem(), "");
    std::remove(path.c_str());

    // A file without an end, a directory and a missing file.
    EXPECT_EQ(ReadFileUpTo("/dev/zero", 1 << 20, "a test file", &bytes),
              "/dev/zero: more than 1048576 bytes, the most a test file may hold");
    EXPECT_EQ(ReadFileUpTo("/", 10, "a test file", &bytes), "/: cannot be read (Is a directory)");
    InputFile missing(path);
    EXPECT_EQ(missing.Read(block, sizeof block), 0u);
    EXPECT_EQ(missing.Problem(), path + ": cannot be read (No such file or directory)");
}

}  // namespace
}  // namespace langmon::platform
