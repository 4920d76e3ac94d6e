// What CUPS is told of a printer: the emulated printer in each of its
// conditions, read as `langmon status --json` reads it on the virtual clock,
// and the STATE:, ATTR: and INFO: lines the backend makes of that view.

#include "cups_messages.h"
#include "side_channel.h"

#include "langmon/status_command.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace langmon::backend {
namespace {

using json = nlohmann::ordered_json;

class CupsMessagesTest : public testing::MonitorTest {
protected:
    void TearDown() override {
        SettleThreads();
        MonitorTest::TearDown();
    }
    // The "printer" object of `langmon status --json --printer DESCRIPTION`.
    json PrinterView(const std::string& description) {
        tool::StatusOptions options;
        std::string error;
        EXPECT_TRUE(tool::ParseStatusOptions({"--json", "--printer", description}, &options, &error)) << error;
        std::ostringstream out, err;
        const std::atomic<bool> interrupted{false};
        tool::RunStatus(options, out, err, interrupted);
        const json document = json::parse(out.str(), nullptr, false);
        EXPECT_FALSE(document.is_discarded()) << out.str() << err.str();
        return document.is_discarded() ? json::object() : document["printer"];
    }
};

TEST_F(CupsMessagesTest, EachConditionOfThePrinterGivesItsKeywords) {
    struct Case {
        const char* description;
        std::set<std::string> keywords;
    };
    const Case cases[] = {
        {"emulator", {}},
        {"emulator:jam=3", {"media-jam-error"}},
        {"emulator:covers=front", {"cover-open-error"}},
        {"emulator:paper-out", {"media-empty-error", "media-needed-error"}},
        {"emulator:toner.black=5", {"toner-low-warning", "marker-supply-low-warning"}},
        {"emulator:toner-empty", {"toner-empty-error"}},
        {"emulator:unit=5", {"opc-near-eol-warning", "marker-supply-low-warning"}},
        {"emulator:unit.fault=yes", {"opc-life-over-error"}},
        {"emulator:waste=near-empty", {"marker-waste-almost-full-warning"}},
        {"emulator:waste=empty", {"marker-waste-full-error"}},
        {"emulator:operator-attention", {"other-error", "org.langmon.operator-attention-error"}},
        {"emulator:foreign", {"org.langmon.foreign-printer-report"}},
        {"emulator:power-off", {"offline-report"}},
    };
    for (const Case& c : cases) {
        const json printer = PrinterView(c.description);
        EXPECT_EQ(CupsKeywords(printer), c.keywords) << c.description << "\n" << printer.dump(2);
    }
}

TEST_F(CupsMessagesTest, AnnouncesEachChangeOnceWithTheSuppliesAndThePanel) {
    StateAnnouncer announcer;
    const json ready = PrinterView("emulator:toner.cyan=80,toner.black=35");
    const std::vector<std::string> first = announcer.Update(ready);
    ASSERT_EQ(first.size(), 2u) << ::testing::PrintToString(first);
    EXPECT_EQ(first[0],
              "ATTR: marker-colors=#00FFFF,#FF00FF,#FFFF00,#000000,none,none "
              "marker-names=\"Cyan Toner\",\"Magenta Toner\",\"Yellow Toner\",\"Black Toner\",\"Drum Unit\","
              "\"Waste Toner Box\" marker-types=toner,toner,toner,toner,opc,waste-toner "
              "marker-levels=80,100,100,35,100,-2 marker-low-levels=10,10,10,10,10,10 "
              "marker-high-levels=100,100,100,100,100,100");
    EXPECT_EQ(first[1], "INFO: Ready");
    // Nothing changed: nothing to say.
    EXPECT_TRUE(announcer.Update(ready).empty());

    const json jammed = PrinterView("emulator:toner.cyan=80,toner.black=35,jam=3,covers=top");
    const std::vector<std::string> jam = announcer.Update(jammed);
    EXPECT_NE(std::find(jam.begin(), jam.end(), "STATE: +media-jam-error"), jam.end()) << ::testing::PrintToString(jam);
    EXPECT_NE(std::find(jam.begin(), jam.end(), "STATE: +cover-open-error"), jam.end()) << ::testing::PrintToString(jam);
    EXPECT_EQ(SideChannelState(announcer.Standing(), true),
              unsigned{CUPS_SC_STATE_ONLINE | CUPS_SC_STATE_BUSY | CUPS_SC_STATE_ERROR});
    EXPECT_TRUE(announcer.Update(jammed).empty());

    // The jam clears, the cover stays open: one withdrawal, nothing else.
    const std::vector<std::string> cleared = announcer.Update(PrinterView("emulator:toner.cyan=80,toner.black=35,covers=top"));
    EXPECT_NE(std::find(cleared.begin(), cleared.end(), "STATE: -media-jam-error"), cleared.end())
        << ::testing::PrintToString(cleared);
    EXPECT_EQ(std::count_if(cleared.begin(), cleared.end(), [](const std::string& l) { return l.rfind("STATE:", 0) == 0; }),
              1);
    EXPECT_EQ(announcer.WithdrawAll(), std::vector<std::string>{"STATE: -cover-open-error"});

    // A printer that does not answer has no supplies to show, and is offline.
    StateAnnouncer silent;
    EXPECT_EQ(silent.Update(PrinterView("emulator:power-off")), std::vector<std::string>{"STATE: +offline-report"});
    EXPECT_EQ(SideChannelState(silent.Standing(), true), unsigned{CUPS_SC_STATE_OFFLINE});
}

}  // namespace
}  // namespace langmon::backend
