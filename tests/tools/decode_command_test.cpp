// `langmon decode` as a person supporting a printer runs it: the text of a
// device ID in, what the monitor makes of it out.

#include "langmon/decode_command.h"
#include "support/device_ids.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace langmon::tool {
namespace {

class DecodeCommandTest : public testing::MonitorTest {
protected:
    int Decode(const std::string& text, bool json) {
        out.str("");
        err.str("");
        DecodeOptions options;
        options.deviceId = text;
        options.json = json;
        return RunDecode(options, out, err);
    }
    std::ostringstream out;
    std::ostringstream err;
};

// What a person reads of a troubled printer: supplies by colour, trays by
// paper size and media type, covers and jams by name; the variables' hex
// only when asked for.
TEST_F(DecodeCommandTest, ATroubledPrinterShowsWhatIsWrongByName) {
    // The ready printer's whole output is the documents' example; here the
    // same block with Letter on card in the multi-purpose tray (the
    // status block's size index 6, type index 14), the black toner near its
    // end (2), the front and top covers open and places 3 and 7 jammed.
    const std::string troubled = "MFG:Quor;CMD:PJL,NPDL,NMPS-C;MDL:Laser Printer 6200tx;CLS:PRINTER;"
                                 "STS:AAAPAQAAAAAABAJ8WiNLIzwjAiFkAwADVwaAggAAQQIAAQAAAIgAAAAA;";
    ASSERT_EQ(Decode(troubled, false), 0) << err.str();
    for (const char* line : {
             "  status       a cover is open (error)\n",
             "               black    [----------]   2%  nearly empty\n",
             "  trays        multi-purpose tray: Letter (215.9 x 279.4 mm), card, full\n",
             "  covers       front cover, top cover open\n",
             "  jams         at places 3, 7 (the printer numbers its places without naming them)\n",
         }) {
        EXPECT_NE(out.str().find(line), std::string::npos) << line << "in\n" << out.str();
    }
    EXPECT_EQ(out.str().find("TonerRemain"), std::string::npos) << "no hex unless asked for";
    out.str("");
    DecodeOptions options;
    std::string error;
    ASSERT_TRUE(ParseDecodeOptions({testing::KnownPrinterId, "--variables"}, &options, &error)) << error;
    ASSERT_EQ(RunDecode(options, out, err), 0) << err.str();
    EXPECT_NE(out.str().find("  languages    NPDL, NMPS-C\nthe port's variables, in hex:\n"), std::string::npos)
        << out.str();
    EXPECT_NE(out.str().find("\n  TonerRemain         5a4b3c2d\n"), std::string::npos) << out.str();
}

// The monitor passes over a status block that does not decode; what it
// would show then is no reading of the printer, so the command refuses.
TEST_F(DecodeCommandTest, AStatusFieldThatDoesNotDecodeIsAnError) {
    const std::string block = testing::ReadyStatusBlock;
    const std::pair<std::string, std::string> cases[] = {
        {block.substr(0, 6) + "!" + block.substr(7), "character 7 ('!') is not Base64"},
        {block.substr(0, 40), "it is 40 characters long, and the printer's status takes 56"},
    };
    for (const auto& [sts, reason] : cases) {
        EXPECT_EQ(Decode("MFG:Quor;MDL:Laser Printer 6200tx;STS:" + sts + ";", false), 1);
        EXPECT_EQ(out.str(), "");
        EXPECT_EQ(err.str(), "langmon decode: the STS field does not decode: " + reason + "\n");
    }
}

TEST_F(DecodeCommandTest, AnotherMakersPrinterIsForeignAndShowsOnlyItsName) {
    ASSERT_EQ(Decode(testing::ForeignPrinterId, false), 0) << err.str();
    EXPECT_NE(out.str().find("  printer      Other Office Jet 12, no known model\n"), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("  status       a printer of no known model\n"), std::string::npos) << out.str();
    EXPECT_EQ(out.str().find("  toner "), std::string::npos) << "nothing is read of a foreign printer";
}

TEST_F(DecodeCommandTest, TextThatIsNoDeviceIdIsRefusedWithItsReason) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "the text is empty"},
        {"MFG:Quor;MDL:Laser Printer 6200tx", "does not end in ';'"},
        {"hello", "does not end in ';'"},
        {"MFG:x;" + std::string(258, ' ') + "MDL:y;", "a run of 258 or more blanks"},
        {std::string(3000, 'A') + ";", "3001 bytes long"},
        {std::string("MFG:x;\0MDL:y;", 13), "holds a NUL byte"},
    };
    for (const auto& [text, reason] : cases) {
        SCOPED_TRACE(reason);
        EXPECT_EQ(Decode(text, false), 2);
        EXPECT_EQ(out.str(), "");
        EXPECT_NE(err.str().find("not a device ID: "), std::string::npos) << err.str();
        EXPECT_NE(err.str().find(reason), std::string::npos) << err.str();
    }
    // Trailing blanks are no reason: the text still ends in ';'.
    EXPECT_EQ(Decode("MFG:x;MDL:y;" + std::string(257, ' '), false), 0) << err.str();
}

// "-" reads standard input, up to the longest answer a printer gives and its
// line break: a file that goes on is refused, however long it would go on.
TEST_F(DecodeCommandTest, StandardInputIsReadUpToTheLongestDeviceId) {
    const int savedInput = ::dup(STDIN_FILENO);
    ASSERT_GE(savedInput, 0);
    const auto readFrom = [](const std::string& path) {
        const int file = ::open(path.c_str(), O_RDONLY);
        ASSERT_GE(file, 0) << path;
        ::dup2(file, STDIN_FILENO);
        ::close(file);
    };
    const std::string path = ::testing::TempDir() + "device-id-" + std::to_string(::getpid());
    std::ofstream(path, std::ios::binary) << "MFG:x;MDL:y;" + std::string(2047 - 12, ' ') + "\r\n";
    DecodeOptions options;
    std::string error;
    readFrom(path);
    EXPECT_TRUE(ParseDecodeOptions({"-"}, &options, &error)) << error;
    EXPECT_EQ(options.deviceId.size(), 2047u) << "the line break is not part of the text";

    readFrom("/dev/zero");
    EXPECT_FALSE(ParseDecodeOptions({"-"}, &options, &error));
    EXPECT_EQ(error, "standard input: more than 2049 bytes, the most a device ID with its line break may hold");
    ::dup2(savedInput, STDIN_FILENO);
    ::close(savedInput);
    std::remove(path.c_str());
}

}  // namespace
}  // namespace langmon::tool
