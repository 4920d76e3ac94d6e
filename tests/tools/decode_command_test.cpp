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

TEST_F(DecodeCommandTest, AReadyPrinterShowsItsLevelsTraysAndOptions) {
    ASSERT_EQ(Decode(testing::KnownPrinterId, false), 0) << err.str();
    const std::string text = out.str();
    for (const char* line : {
             "  printer      Quor Laser Printer 6200tx, a known model\n",
             "  status       ready\n",
             "  toner        90, 75, 60, 45\n",
             "  drum unit    100\n",
             "    multi-purpose tray: paper size 9 (210.0 x 297.0 mm), media type 0, full\n",
             "    cassette 1: paper size 9 (210.0 x 297.0 mm), media type 0, some paper\n",
             "  covers       closed\n",
             "  options      duplex toner1 toner2 toner3 toner4\n",
             "  memory       128 MB\n",
             "  languages    NPDL NMPS-C\n",
             "    TonerRemain         5a4b3c2d\n",
         }) {
        EXPECT_NE(text.find(line), std::string::npos) << line << "in\n" << text;
    }
}

TEST_F(DecodeCommandTest, JsonCarriesEveryValueInHexAndTheLmValues) {
    ASSERT_EQ(Decode(testing::KnownPrinterId, true), 0) << err.str();
    const std::string json = out.str();
    EXPECT_EQ(json.rfind("{\"model_known\": true, \"model_mask\": [0, 8], \"variables\": {", 0), 0u) << json;
    for (const char* piece : {
             // Published already: with no client there is nobody to wait for.
             "\"PrinterStatus\": {\"hex\": \"000000000000000001000000\", \"dirty\": 0}",
             "\"PrinterMemory\": {\"hex\": \"00000200\", \"dirty\": 0}",
             "\"EmulationInfo\": {\"hex\": \"020000000000000005000000\", \"dirty\": 0}",
             // Count 2: the block's zero rest is not part of the value.
             "\"PrinterBinConfig\": {\"hex\": \"02000000d107d1070900fe0000000000010001000900fd0000000000\"",
             "\"LM_SysName\": \"4c61736572205072696e74657220363230307478000000000000000000000000\"",
             "\"LM_MemorySizeInKByte\": 131072, \"LM_MemorySizeInMByte\": 128, \"LM_RamDisk\": 0, "
             "\"LM_DuplexModule\": 1, \"LM_InputTray\": 2",
             "\"LmTrays\": [[1, 5, 0, 1, 25, 2970, 2100, 3], [2, 3, 0, 1, 25, 2970, 2100, 3], [3, 0, 0, 0, 0, 0, 0, 3]]}}\n",
         }) {
        EXPECT_NE(json.find(piece), std::string::npos) << piece << "\nin\n" << json;
    }
    // Five options: the duplex module and the four toners.
    EXPECT_NE(json.find("\"PrinterOptConfig\": {\"hex\": \"05000000" "01000100" "00000000"), std::string::npos)
        << json;
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

TEST_F(DecodeCommandTest, TheCommandLineTakesOneTextAndJson) {
    DecodeOptions options;
    std::string error;
    EXPECT_TRUE(ParseDecodeOptions({"MFG:x;MDL:y;", "--json"}, &options, &error)) << error;
    EXPECT_TRUE(options.json);
    EXPECT_EQ(options.deviceId, "MFG:x;MDL:y;");
    EXPECT_FALSE(ParseDecodeOptions({}, &options, &error));
    EXPECT_NE(error.find("no DEVICE_ID given"), std::string::npos);
    EXPECT_FALSE(ParseDecodeOptions({"MFG:x;", "MDL:y;"}, &options, &error));
    EXPECT_NE(error.find("one device ID at a time"), std::string::npos);
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
