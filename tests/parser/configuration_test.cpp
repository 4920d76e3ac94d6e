// Replies that describe the printer: what INFO CONFIG does to the trays and
// options clients see, how INFO VARIABLES and INQUIRE replies arrive, and the
// page count and service tag.

#include "acquisition/status_record.h"
#include "platform/memory.h"

#include "parser/reply_fixture.h"

#include <algorithm>
#include <utility>

namespace langmon {
namespace {

// The printer's reply to "@PJL INFO CONFIG" with two cassettes, a duplex unit
// and two output trays, laid out as the printer sends it.
const std::string ConfigReply =
    "@PJL INFO CONFIG\r\n"
    "IN TRAYS [2 ENUMERATED]\r\n\tINTRAY1\r\n\tINTRAY2\r\n"
    "INTRAY1TYPE=NORMAL\r\n"
    "INTRAY2TYPE=LARGE\r\n"
    "DUPLEX\r\n"
    "OUT TRAYS [2 ENUMERATED]\r\n\tOUTTRAY1\r\n\tOUTTRAY2\r\n"
    "PAPER SIZES [4 ENUMERATED]\r\n\tA4\r\n\tA3\r\n\tLETTER\r\n\tLEGAL\r\n"
    "LANGUAGES [2 ENUMERATED]\r\n\tNPDL\r\n\tNMPS-C\r\n"
    "USTATUS [3 ENUMERATED]\r\n\tDEVICE\r\n\tJOB\r\n\tPAGE\r\n"
    "MEMORY=134217728\r\n"
    "\f";

using Words = std::vector<uint16_t>;

class ConfigurationTest : public testing::ReplyTest {
protected:
    // PrinterBinConfig as the STS block left it: the multi-purpose tray 2001
    // and the cassettes 1 and 2, with these input types.
    void SeedTrays(const Words& types) {
        auto* value = static_cast<uint8_t*>(GlobalAlloc(GPTR, BinConfigBytes));
        ASSERT_NE(value, nullptr);
        const uint16_t ids[3] = {2001, 1, 2};
        value[0] = 3;
        for (uint32_t i = 0; i < 3; ++i) {
            std::memcpy(value + 4 + BinEntryBytes * i, &ids[i], 2);
            std::memcpy(value + 6 + BinEntryBytes * i, &types[i], 2);
        }
        StatusVariable* row = Row("PrinterBinConfig");
        GlobalFree(row->Value);
        row->Value = value;
        row->Dirty = 0;
    }
    void SeedOptions(const Words& ids) {
        Row("PrinterOptConfig")->Value = GlobalFree(Row("PrinterOptConfig")->Value);
        for (uint16_t id : ids) AddOption(id, id, 0, port);
        Row("PrinterOptConfig")->Dirty = 0;
    }
    // The 16-bit field at `offset` of each element of a counted value.
    Words Field(const char* name, uint32_t offset) const {
        Words out;
        const StatusVariable* row = Row(name);
        for (uint32_t i = 0; i < Word(name).value_or(0); ++i) {
            uint16_t field = 0;
            std::memcpy(&field,
                        static_cast<const uint8_t*>(row->Value) + 4 + row->ElementSize * i + offset,
                        2);
            out.push_back(field);
        }
        return out;
    }
    Words TrayTypes() const { return Field("PrinterBinConfig", 2); }
    Words Options() const {
        Words ids = Field("PrinterOptConfig", 0);
        std::sort(ids.begin(), ids.end());
        return ids;
    }
};

const Words StsTrays = {2001, 1, 1};

TEST_F(ConfigurationTest, AConfigReplyGivesTheSameTraysAndOptionsWhereverTheReadSplitsIt) {
    for (std::size_t cut = 0; cut <= ConfigReply.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        SeedTrays(StsTrays);
        SeedOptions({1, 3001});
        EXPECT_EQ(Feed({ConfigReply.substr(0, cut), ConfigReply.substr(cut)}).back(), 0);
        EXPECT_EQ(Tail(), "");
        EXPECT_EQ(TrayTypes(), (Words{2001, 2, 3})) << "NORMAL is 2, LARGE 3";
        // The duplex unit, taken away at the start and named again, is
        // there once; the other options stay.
        EXPECT_EQ(Options(), (Words{1, 3001, 6001}));
    }
}

TEST_F(ConfigurationTest, AReplyTakesAwayTheUnitsItDoesNotNameAndOnlyKnownTraysAndTypesChange) {
    SeedTrays(StsTrays);
    SeedOptions({1, 1001, 3001});
    Feed({"@PJL INFO CONFIG\r\n"
          "INTRAY2001TYPE=LARGE\r\n"  // a number of more digits is no tray
          "INTRAY1TYPE=HUGE\r\n"      // a size class of no meaning
          "INTRAY2TYPE LARGE\r\n"     // no value
          "INTRAY3TYPE=LARGE\r\n"     // a tray the printer's trays don't list
          "\f"},
         0);
    EXPECT_EQ(TrayTypes(), StsTrays);
    EXPECT_FALSE(Dirty("PrinterBinConfig"));
    EXPECT_EQ(Options(), Words{3001}) << "no duplex unit";

    // One output tray: the entries behind it are read all the same.
    Feed({"@PJL INFO CONFIG\r\nOUT TRAYS [1 ENUMERATED]\r\n\tOUTTRAY1\r\nINTRAY2TYPE=LARGE\r\n\f"});
    EXPECT_EQ(Options(), Words{3001});
    EXPECT_EQ(TrayTypes(), (Words{2001, 1, 3}));
}

TEST_F(ConfigurationTest,
       PanelSettingsReplyStepsOverUnknownEntriesAndAnInquiryWaitsForItsFormFeed) {
    Feed(
        {"@PJL INFO VARIABLES\r\n"
         "PAPERTYPE1=HEAVY [13 ENUMERATED]\r\n\tNORMAL\r\n\tHEAVY\r\n"
         "RESOLUTION=600 [2 ENUMERATED]\r\n\t300\r\n\t600\r\n"
         "LANG=ENGLISH\r\n"
         "OUTBIN=OUTTRAY2 [2 ENUMERATED]\r\n\tOUTTRAY1\r\n\tOUTTRAY2\r\n"
         "\f"});
    EXPECT_EQ(Word("OppPaperType1"), 18u);
    EXPECT_EQ(Word("OppOuttray"), 2u);

    // An inquiry is read only as a whole: all of it waits for the form feed.
    EXPECT_EQ(Feed({"@PJL INQUIRE PAPERSORT\r\nON\r\n"}), std::vector<int>{1});
    EXPECT_EQ(Tail(), "PAPERSORT\r\nON\r\n");
    EXPECT_EQ(Word("OppPaperSort"), std::nullopt);
    EXPECT_EQ(Feed({"\f"}), std::vector<int>{0});
    EXPECT_EQ(Word("OppPaperSort"), 1u);
}

TEST_F(ConfigurationTest, APageCountIsDirtyEvenWhenUnchangedAndOneWithTwoLinesIsGivenUp) {
    const std::string count = "@PJL INFO PAGECOUNT\r\nPAGECOUNT=1234\r\n\f";
    Feed({count});
    EXPECT_EQ(Word("PageCount"), 1234u);
    EXPECT_FALSE(Dirty("PageCount")) << "published";
    Feed({count}, 0);
    EXPECT_TRUE(Dirty("PageCount"));

    Feed({count});
    EXPECT_EQ(Feed({"@PJL INFO PAGECOUNT\r\nPAGECOUNT=77\r\nMORE\r\n\f", "", ""}),
              (std::vector<int>{1, 1, 0}));
    EXPECT_EQ(Word("PageCount"), 1234u);
    EXPECT_FALSE(Dirty("PageCount"));
}

TEST_F(ConfigurationTest, AServiceTagReachesTheVariableOnlyWhileARefreshAsksAndOnlyWhenNew) {
    const auto tag = [](const char* text) {
        return "@PJL INFO SERVICETAG\r\n" + std::string(text) + "\r\n\f";
    };
    const auto variable = [&] {
        const StatusVariable* row = Row("ServiceTag");
        return row->Value != nullptr ? std::string(static_cast<const char*>(row->Value), 32)
                                     : std::string();
    };
    port->serviceTagPublish = 1;
    Feed({tag("ABC1234")});
    EXPECT_STREQ(port->serviceTagText, "ABC1234");
    EXPECT_EQ(variable(), std::string("ABC1234") + std::string(25, '\0'));
    Feed({tag("ABC1234")}, 0);
    EXPECT_FALSE(Dirty("ServiceTag")) << "the same tag again";
    Feed({tag("XYZ98765")}, 0);
    EXPECT_STREQ(port->serviceTagText, "XYZ9876") << "seven bytes";
    EXPECT_TRUE(Dirty("ServiceTag"));

    port->serviceTagPublish = 0;
    Feed({tag("QQQ0000")});
    EXPECT_STREQ(port->serviceTagText, "QQQ0000");
    EXPECT_EQ(variable(), std::string("XYZ9876") + std::string(25, '\0'));
}

}  // namespace
}  // namespace langmon
