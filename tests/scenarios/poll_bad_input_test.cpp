// What a port monitor below may hand back as a device ID: no closing ';',
// runs of blanks, a whole 2047-byte answer without a NUL in it, STS fields of
// the wrong length or with bytes outside the alphabet, long and strange names,
// missing fields. Each outcome is checked as a client would see it: the port's
// flags and every variable. Run under the address sanitizer, a read past the
// 2047 bytes of the answer fails these tests.

#include "acquisition/poll.h"
#include "monitor/port_context.h"
#include "variables/status_variable.h"

#include "support/job_road_fixture.h"
#include "support/status_codes.h"

#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace langmon::testing {
namespace {

// The ready block with the cassette cover open: CoverWord 0x0200.
const std::string CoverOpenBlock = "AAAPAQAAAAAABAIAWiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA";
const std::string KnownStart = "MFG:Quor;CMD:PJL,NPDL,NMPS-C;MDL:Laser Printer 6200tx;";

std::string U32s(std::initializer_list<uint32_t> words) {
    std::string out;
    for (uint32_t word : words) out.append(reinterpret_cast<const char*>(&word), 4);
    return out;
}
// `head`, a filler field, then `tail`: exactly the 2047 bytes the answer holds.
std::string Full(const std::string& head, const std::string& tail) {
    const std::string start = head + "CLS:";
    return start + std::string(DeviceIdBytes - start.size() - 1 - tail.size(), 'P') + ";" + tail;
}

// What a client and the port's state show, by name: the flags the poll
// settles, the model mask, every variable's value and the LM_ values.
using Picture = std::map<std::string, std::optional<std::string>>;

class PollBadInputTest : public JobRoadTest {
protected:
    static std::optional<std::string> Value(PortContext* port, const char* name) {
        const StatusVariable* row = FindVariable(name, port->variables, port);
        if (row == nullptr || row->Value == nullptr) return std::nullopt;
        // The maker's and the model's blocks hold 64 bytes, of which clients get 32.
        const bool text =
            std::strcmp(name, "PrinterManufacturer") == 0 || std::strcmp(name, "PrinterModel") == 0;
        const uint32_t size = text ? 64 : VariableSize(row);
        return std::string(static_cast<const char*>(row->Value), size);
    }
    static Picture Take(PortContext* port, const std::string& except = "") {
        const uint32_t flags = port->flags & (PF_MODEL_KNOWN | PF_OFFLINE | PF_DOC_OPEN);
        Picture picture{{"flags", U32s({flags})},
                        {"modelMask", U32s({port->modelMask.low, port->modelMask.high})},
                        {"LM_", std::string(reinterpret_cast<const char*>(&port->lmBlock),
                                            sizeof port->lmBlock)}};
        for (const StatusVariable* row = port->variables; row->Name != nullptr; ++row) {
            if (row->Name != except) picture[row->Name] = Value(port, row->Name);
        }
        return picture;
    }
    // The printer answers `text` (cut to what the buffer takes), and one poll reads it.
    int Poll(PortContext* port, const std::string& text) {
        lower.Port(port->portName).ForgetCalls();
        PrinterAnswers(port, text);
        const int result = PollPrinterStatusHoldingSemaphore(port);
        const auto asked = lower.Port(port->portName).Calls(CallKind::GetPrinterDataFromPort);
        EXPECT_EQ(asked.size(), 1u);
        if (!asked.empty()) {
            EXPECT_EQ(asked[0].outSize, DeviceIdBytes) << "the answer's room below";
        }
        return result;
    }
    // Each case starts from a ready printer of a known model.
    PortContext* Ready(PortContext* port) {
        EXPECT_EQ(Poll(port, KnownPrinterId), 1);
        EXPECT_EQ(Value(port, "PrinterStatus"), U32s({0, 0, 1}));
        return port;
    }
    static bool HasMask(PortContext* port, ModelMask mask) {
        return !MasksDiffer(port->modelMask.low, port->modelMask.high, mask.low, mask.high);
    }
    void ExpectForeign(PortContext* port, const std::string& maker, const std::string& model) {
        EXPECT_FALSE(HasPortFlag(port, PF_MODEL_KNOWN | PF_OFFLINE));
        EXPECT_EQ(Value(port, "PrinterStatus"), U32s({0, 0x200, 0}));
        EXPECT_EQ(Value(port, "PrinterManufacturer"), TextBlock(maker));
        EXPECT_EQ(Value(port, "PrinterModel"), TextBlock(model));
    }
};

TEST_F(PollBadInputTest, AnAnswerThatIsNoDeviceIdChangesNothing) {
    // Each would make the port foreign if it were read.
    const std::string cases[] = {
        "MFG:Other;MDL:Office Jet 12;CLS:PRINTER",
        "MFG:Other;MDL:Office Jet 12" + std::string(100, ' '),
        "MFG:x;MDL:y;" + std::string(258, ' '),
        "MFG:x;MDL:y;" + std::string(DeviceIdBytes - 12, ' '),
        "MFG:x;MDL:y;" + std::string(258, ' ') + "CLS:PRINTER;",
        std::string(DeviceIdBytes, 'A'),
        std::string(DeviceIdBytes, ' '),
        std::string(DeviceIdBytes - 1, ' ') + ";",
        "MFG:x;MDL:y;CLS:" + std::string(3000, 'P') + ";",  // cut inside its last field
        std::string("\0MFG:x;MDL:y;", 13),                  // bytes, but an empty text
    };
    for (const char* name : {"LPT1", "USB001"}) {
        PortContext* port = Open(name);
        for (const std::string& text : cases) {
            SCOPED_TRACE(std::string(name) + ", " + std::to_string(text.size()) +
                         " bytes: " + text.substr(0, 40));
            const Picture before = Take(Ready(port));
            EXPECT_EQ(Poll(port, text), 0);
            EXPECT_EQ(Take(port), before);
        }
    }
}

TEST_F(PollBadInputTest, AUsableAnswerIsReadToItsLastByteEvenWhenItFillsTheBuffer) {
    for (const char* name : {"LPT1", "USB001"}) {
        SCOPED_TRACE(name);
        PortContext* port = Open(name);
        // 257 blanks behind the last ';' still leave it the last byte; blanks
        // behind the text's NUL are no part of it.
        for (const std::string& text :
             {"MFG:x;MDL:y;" + std::string(257, ' '),
              "MFG:x;MDL:y;" + std::string(1, '\0') + std::string(300, ' '),
              Full("MFG:x;", "MDL:y;" + std::string(257, ' '))}) {
            SCOPED_TRACE(text.size());
            Ready(port);
            EXPECT_EQ(Poll(port, text), 0);
            ExpectForeign(port, "x", "y");
        }
        // The STS field in the last bytes of the buffer still counts.
        Ready(port);
        const std::string known = Full(KnownStart, "STS:" + CoverOpenBlock + ";");
        ASSERT_EQ(known.size(), DeviceIdBytes);
        EXPECT_EQ(Poll(port, known), 1);
        EXPECT_TRUE(HasPortFlag(port, PF_MODEL_KNOWN));
        EXPECT_EQ(Value(port, "ErrCoverOpen"), U32s({0x7F}));
        EXPECT_EQ(Value(port, "PrinterStatus"), U32s({0, 0, 0x8000}));
        // Nothing but field ends: a printer that names no model is foreign, and
        // the names it doesn't give stay as they were.
        Ready(port);
        EXPECT_EQ(Poll(port, std::string(DeviceIdBytes, ';')), 0);
        ExpectForeign(port, "Quor", "Laser Printer 6200tx");
        EXPECT_TRUE(HasMask(port, ModelMask6200));
    }
}

TEST_F(PollBadInputTest, AnStsFieldThatDoesNotDecodeLeavesTheStatusAsItWas) {
    std::vector<std::string> blocks = {CoverOpenBlock.substr(0, 55), CoverOpenBlock + "A",
                                       CoverOpenBlock + std::string(1900, 'A')};
    for (std::size_t at = 0; at < CoverOpenBlock.size(); ++at) {
        for (char bad : {'\x80', '\xC1', '\xFF', '-', '_', ' ', ':'}) {
            blocks.push_back(CoverOpenBlock);
            blocks.back()[at] = bad;
        }
    }
    for (const char* name : {"LPT1", "USB001"}) {
        PortContext* port = Open(name);
        for (const std::string& block : blocks) {
            SCOPED_TRACE(std::string(name) + ", STS of " + std::to_string(block.size()) + ": " +
                         block.substr(0, 60));
            const Picture before = Take(Ready(port), "PrinterManufacturer");
            // The walk goes on behind the field that doesn't decode.
            EXPECT_EQ(Poll(port, KnownStart + "STS:" + block + ";MFG:Later;"), 1);
            EXPECT_EQ(Take(port, "PrinterManufacturer"), before);
            EXPECT_EQ(Value(port, "PrinterManufacturer"), TextBlock("Later"));
        }
        // A short field in the buffer's last bytes: 56 characters from its
        // start would run past the answer.
        for (std::size_t length : {1, 20, 55}) {
            const Picture before = Take(Ready(port));
            EXPECT_EQ(Poll(port, Full(KnownStart, "STS:" + CoverOpenBlock.substr(0, length) + ";")),
                      1);
            EXPECT_EQ(Take(port), before) << length << " characters";
        }
    }
}

TEST_F(PollBadInputTest, LongAndStrangeNamesAreCutToTheirBlocks) {
    PortContext* port = Open("LPT1");
    // A model of 40 bytes stands whole in its block, and cut to 32 without a NUL in LM_SysName.
    std::string model;
    for (int i = 0; i < 40; ++i) {
        model += static_cast<char>(i % 2 == 0 ? 'a' + i % 26 : 0x80 + i * 3);
    }
    Ready(port);
    EXPECT_EQ(Poll(port, "MFG:x;MDL:" + model + ";"), 0);
    ExpectForeign(port, "x", model);
    EXPECT_EQ(std::string(port->lmBlock.LM_SysName, 32), model.substr(0, 32));
    // The known name with more behind it is another printer.
    Ready(port);
    const std::string longer = "Laser Printer 6200tx" + std::string(20, 'X');
    EXPECT_EQ(Poll(port, "MFG:x;MDL:" + longer + ";"), 0);
    ExpectForeign(port, "x", longer);
    // Names longer than the blocks are cut to 63 bytes.
    Ready(port);
    const std::string maker(1500, '\xE9');
    EXPECT_EQ(Poll(port, "MFG:" + maker + ";MDL:" + std::string(70, 'm') + ";"), 0);
    ExpectForeign(port, maker, std::string(70, 'm'));
    EXPECT_EQ(std::string(port->lmBlock.LM_SysName, 32), std::string(32, 'm'));
    Ready(port);
    EXPECT_EQ(Poll(port, "MFG:" + maker + ";MDL:Laser Printer 6300tx;"), 1);
    EXPECT_EQ(Value(port, "PrinterManufacturer"), TextBlock(maker));
    EXPECT_TRUE(HasMask(port, ModelMask6300));
}

TEST_F(PollBadInputTest, AFieldThatIsMissingLeavesItsVariableAsItWas) {
    PortContext* port = Open("LPT1");
    const std::string sts = "STS:" + CoverOpenBlock + ";";
    // Without the maker or the languages, the status is still read, and the
    // value the field would give keeps the last one.
    for (const char* absent : {"MFG:Quor;", "CMD:PJL,NPDL,NMPS-C;"}) {
        SCOPED_TRACE(absent);
        Ready(port);
        const auto maker = Value(port, "PrinterManufacturer"),
                   languages = Value(port, "EmulationInfo");
        std::string text = KnownStart + sts;
        text.erase(text.find(absent), std::strlen(absent));
        EXPECT_EQ(Poll(port, text), 1);
        EXPECT_EQ(Value(port, "ErrCoverOpen"), U32s({0x7F}));
        EXPECT_EQ(Value(port, "PrinterManufacturer"), maker);
        EXPECT_EQ(Value(port, "EmulationInfo"), languages);
    }
    // Without the STS field, or with it behind a NUL, no status variable changes.
    for (const std::string& text : {KnownStart, KnownStart + std::string(1, '\0') + sts}) {
        const Picture before = Take(Ready(port));
        EXPECT_EQ(Poll(port, text), 1);
        EXPECT_EQ(Take(port), before);
    }
    // Without a model, the printer is foreign, and its mask and names stay.
    for (const std::string& text :
         {"MFG:Quor;CMD:PJL;" + sts, std::string("CLS:PRINTER;"), std::string(";")}) {
        SCOPED_TRACE(text);
        Ready(port);
        const std::optional<std::string> languages = Value(port, "EmulationInfo");
        EXPECT_EQ(Poll(port, text), 0);
        ExpectForeign(port, "Quor", "Laser Printer 6200tx");
        EXPECT_NE(Value(port, "ErrCoverOpen"), U32s({0x7F})) << "a foreign printer's STS is read";
        EXPECT_EQ(Value(port, "EmulationInfo"), languages);
        EXPECT_TRUE(HasMask(port, ModelMask6200));
    }
}

}  // namespace
}  // namespace langmon::testing
