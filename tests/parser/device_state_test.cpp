// The printer's panel text as its clients are shown it: what each DISPLAY
// line makes of PrinterDisplay, when a client is handed it, and that nothing
// else in a device state response moves a variable.

#include "parser/response_parser.h"

#include "acquisition/poll.h"
#include "manager/manager_link.h"
#include "platform/registry.h"
#include "support/client_fixture.h"

#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace langmon {
namespace {

constexpr std::size_t DisplayUnits = 32;

// The panel's 32 units as a client reads them: the text, then zeros.
std::u16string Panel(std::u16string text) {
    text.resize(DisplayUnits, u'\0');
    return text;
}

std::string Device(const std::string& display, const char* head = "@PJL USTATUS DEVICE") {
    return std::string(head) + "\r\nCODE=10001\r\nDISPLAY=\"" + display + "\"\r\nONLINE=TRUE\r\n\f";
}

class DeviceStateTest : public testing::ClientTest {
protected:
    void SetUp() override {
        ClientTest::SetUp();
        port = Open("LPT1");
        ASSERT_NE(port, nullptr);
        ASSERT_EQ(PollPrinterStatus(port), 1);  // a 6200tx answers: its state can be read
        testing::DescribePrinter(Printer, testing::Driver6200, "LPT1");
        ASSERT_NE(CreateManagerLink(Printer, port), nullptr);
        manager.ForgetHanded();
    }

    void Feed(const std::string& block) { ParseResponseBuffer(port, block.c_str(), 1); }

    // Each PrinterDisplay the client was handed since the last look, as its
    // 32 units; a value of any other shape fails the test.
    std::vector<std::u16string> Shown() {
        std::vector<std::u16string> shown;
        for (const auto& value : manager.HandedTo(Printer, "PrinterDisplay")) {
            EXPECT_EQ(value.bytes.size(), 132u);
            if (value.bytes.size() != 132) continue;
            EXPECT_EQ(value.Word(0), 16u) << "characters a line";
            EXPECT_EQ(std::vector<uint8_t>(value.bytes.begin() + 68, value.bytes.end()), std::vector<uint8_t>(64, 0));
            std::u16string units(DisplayUnits, u'\0');
            std::memcpy(units.data(), value.bytes.data() + 4, 2 * DisplayUnits);
            shown.push_back(units);
        }
        manager.ForgetHanded();
        return shown;
    }

    // Every row's value and mark, to show that a response moved none.
    std::map<std::string, std::pair<std::vector<uint8_t>, uint32_t>> Rows() const {
        std::map<std::string, std::pair<std::vector<uint8_t>, uint32_t>> rows;
        for (const StatusVariable* row = port->variables; row->Name != nullptr; ++row) {
            const auto* bytes = static_cast<const uint8_t*>(row->Value);
            const std::size_t size = bytes != nullptr ? VariableSize(row) : 0;
            rows[row->Name] = {std::vector<uint8_t>(bytes, bytes + size), row->Dirty};
        }
        return rows;
    }

    PortContext* port = nullptr;
};

TEST_F(DeviceStateTest, ThePanelTextGoesToTheClientsWhenItChangesAndOnlyThen) {
    Feed(Device("READY"));
    EXPECT_EQ(Shown(), std::vector{Panel(u"READY")});
    // The same text again: nothing to tell. Read without publishing, as the
    // service tag read does, the row is left unmarked.
    Feed(Device("READY", "@PJL INFO STATUS"));
    EXPECT_TRUE(Shown().empty());
    ParseResponseBuffer(port, Device("READY").c_str(), 0);
    EXPECT_EQ(RowOf(port, "PrinterDisplay")->Dirty, 0u);

    // An empty panel after text is a change, to all zeros; twice is not.
    Feed(Device(""));
    EXPECT_EQ(Shown(), std::vector{Panel(u"")});
    Feed(Device(""));
    EXPECT_TRUE(Shown().empty());

    // Two lines of 16 and what stands behind them: the 32 are kept.
    Feed(Device("PAPER OUT TRAY 1LOAD A4 PLAIN   AND PRESS GO"));
    EXPECT_EQ(Shown(), std::vector<std::u16string>{u"PAPER OUT TRAY 1LOAD A4 PLAIN   "});

    // CODE and ONLINE are read from the device ID, not from here: a response
    // without DISPLAY changes nothing, whatever its code. What the end of a
    // response hands out again is what the clients hold already.
    const auto before = Rows();
    Feed("@PJL INFO STATUS\r\nCODE=40010\r\nONLINE=FALSE\r\n\f@PJL USTATUS DEVICE\r\nCODE=10023\r\n\f");
    EXPECT_EQ(Rows(), before);
    for (const auto& value : manager.Handed()) EXPECT_EQ(value.bytes, before.at(value.name).first) << value.name;
}

TEST_F(DeviceStateTest, ASecondLineBetweenTheHidingMarksIsShownBlank) {
    const std::string first = "JOB CANCELLED   ";
    const std::string start = "\xEE\x80\x81";  // U+E001
    const std::string end = "\xEE\x80\x82";    // U+E002
    Feed(Device(first + start + "SECRET LINE 2 " + end));
    EXPECT_EQ(Shown(), std::vector<std::u16string>{u"JOB CANCELLED   " + std::u16string(16, u' ')});
    // One mark alone, or the marks elsewhere, is shown as it is.
    Feed(Device(first + start + "SECRET LINE 2 X"));
    EXPECT_EQ(Shown(), std::vector<std::u16string>{u"JOB CANCELLED   \uE001SECRET LINE 2 X"});
    Feed(Device(first + "X" + start + "SECRET LINE 2" + end));
    EXPECT_EQ(Shown(), std::vector<std::u16string>{u"JOB CANCELLED   X\uE001SECRET LINE 2\uE002"});
}

// Windows 95 (platform 1, minor 0) has no UTF-8 code page: there the monitor
// decodes on its own, one unit from each sequence as its lead byte says.
// Every other system converts. A character beyond U+FFFF tells the two apart.
TEST_F(DeviceStateTest, ATextTakesAUnitACharacterWhicheverDecoderTheSystemHas) {
    struct System {
        DWORD platform, minor;
        bool ownDecoder;
    };
    const System systems[] = {{1, 10, false}, {1, 0, true}, {2, 0, false}, {1, 90, false}};
    for (const System& s : systems) {
        SCOPED_TRACE("platform " + std::to_string(s.platform) + " minor " + std::to_string(s.minor));
        platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "VersionPlatform", s.platform);
        platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "Software\\langmon", "VersionMinor", s.minor);
        Feed(Device("Grüße ÄÖ 用紙 Ω"));
        EXPECT_EQ(Shown(), std::vector{Panel(u"Grüße ÄÖ 用紙 Ω")});
        // U+1F5A8, four bytes: a surrogate pair from the system; from the
        // own decoder a three-byte unit and one more from the stray fourth.
        Feed(Device("\xF0\x9F\x96\xA8" "AB"));
        EXPECT_EQ(Shown(), std::vector{s.ownDecoder ? Panel(u"\u07D6\u8042") : Panel(u"\U0001F5A8AB")});
        Feed(Device(""));
        Shown();
    }
}

TEST_F(DeviceStateTest, AValueWithoutItsClosingQuoteEndsWithItsLine) {
    Feed("@PJL USTATUS DEVICE\r\nDISPLAY=\"WARMING UP\r\nONLINE=FALSE\r\n\f");
    EXPECT_EQ(Shown(), std::vector{Panel(u"WARMING UP")});
    // Without the CR too, and at the response's last line.
    Feed("@PJL USTATUS DEVICE\r\nDISPLAY=\"READY\n\f");
    EXPECT_EQ(Shown(), std::vector{Panel(u"READY")});
    // A DISPLAY line with no quoted value is passed over.
    Feed("@PJL USTATUS DEVICE\r\nDISPLAY=READY2\r\nDISPLAY\r\n\f");
    EXPECT_TRUE(Shown().empty());
}

}  // namespace
}  // namespace langmon
