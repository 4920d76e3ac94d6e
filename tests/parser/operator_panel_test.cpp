// Operator panel settings as the printer reports them, in an INFO VARIABLES
// list or an INQUIRE reply: the number each value word becomes in its Opp
// variable, and what is left alone.

#include "monitor/monitor_entry.h"
#include "platform/memory.h"

#include "parser/reply_fixture.h"

#include <initializer_list>

namespace langmon {
namespace {

class OperatorPanelTest : public testing::ReplyTest {
protected:
    // The known models keep no row for some panel settings, so that their
    // lines are read and dropped. These rows, shaped like the Opp rows that
    // exist, show what the handlers would store.
    void AddPanelRows(std::initializer_list<const char*> names) {
        LockPort(port);
        std::size_t count = 0;
        while (port->variables[count].Name != nullptr) ++count;
        auto* table = static_cast<StatusVariable*>(
            GlobalAlloc(GPTR, (count + names.size() + 1) * sizeof(StatusVariable)));
        ASSERT_NE(table, nullptr);
        std::memcpy(table, port->variables, count * sizeof(StatusVariable));
        StatusVariable shape = *Row("OppOuttray");
        shape.Value = nullptr;
        shape.Dirty = 0;
        for (const char* name : names) {
            table[count] = shape;
            table[count++].Name = name;
        }
        GlobalFree(port->variables);
        port->variables = table;
        UnlockPort(port);
    }
    // Every Opp row back to no value.
    void ForgetPanel() {
        for (StatusVariable* row = port->variables; row->Name != nullptr; ++row) {
            if (std::strncmp(row->Name, "Opp", 3) != 0) continue;
            row->Value = GlobalFree(row->Value);
            row->Dirty = 0;
        }
    }
};

// One setting as each reply carries it.
std::string InVariables(const std::string& keyword, const std::string& value) {
    return "@PJL INFO VARIABLES\r\n" + keyword + "=" + value +
           " [2 ENUMERATED]\r\n\tONE\r\n\tTWO\r\n\f";
}
std::string InInquiry(const std::string& keyword, const std::string& value) {
    return "@PJL INQUIRE " + keyword + "\r\n" + value + "\r\n\f";
}

TEST_F(OperatorPanelTest, EachValueWordBecomesItsNumberInEitherReply) {
    AddPanelRows({"OppCopies", "OppOrientation"});
    // In order; each step leaves its variable with the value told, none for
    // no value.
    const struct {
        const char* keyword;
        const char* value;
        const char* variable;
        std::optional<uint32_t> expected;
    } steps[] = {
        {"COPIES", "999", "OppCopies", 999},
        {"COPIES", "1000", "OppCopies", 999},
        {"COPIES", "0", "OppCopies", 999},
        {"COPIES", " 5", "OppCopies", 999},         // a number begins at once
        {"COPIES", "4294967297", "OppCopies", 1},   // and wraps at 32 bits
        {"ORIENTATION", "LANDSCAPE", "OppOrientation", 1},
        {"ORIENTATION", "PORTLAIT", "OppOrientation", 0},
        {"PAPERTYPE", "RECYCLE", "OppPaperType", 16},
        {"PAPERTYPE3", "RECYCLE", "OppPaperType3", 16},
        {"PAPERTYPE2", "COATED2", "OppPaperType2", 17},
        {"PAPERTYPE5", "HEAVY", "OppPaperType", 16},  // its row is hidden on this model
        {"PAPERTYPE1", "GLOSSY", "OppPaperType1", std::nullopt},
        {"PAPERSORT", "ON", "OppPaperSort", 1},
        {"OUTBIN", "OUTTRAY2", "OppOuttray", 2},
        {"INTRAYMTDIR", "LONG", "OppIntrayMTDir", 1},
        {"POWERSAVETIME", "30", "OppPowerSaveTime", 30},
        {"POWERSAVETIME2", "45", "OppPowerSaveTime", 30},  // the second's row is hidden
    };
    for (const auto form : {InVariables, InInquiry}) {
        ForgetPanel();
        for (const auto& step : steps) {
            const std::string reply = form(step.keyword, step.value);
            SCOPED_TRACE(::testing::PrintToString(reply));
            EXPECT_EQ(Feed({reply}), std::vector<int>{0});
            EXPECT_EQ(Word(step.variable), step.expected);
        }
        EXPECT_EQ(Row("OppPaperType5"), nullptr);
        EXPECT_EQ(Word("OppPaperType4"), std::nullopt);
    }
}

TEST_F(OperatorPanelTest, AValueComesFromItsOwnEntryAndARepeatedOneIsNotDirty) {
    const std::string list =
        "@PJL INFO VARIABLES\r\n"
        "PAPERSORT [2 ENUMERATED]\r\n\tON\r\n\tOFF\r\n"  // no value of its own
        "ECONOMODE=ON [2 ENUMERATED]\r\n\tOFF\r\n\tON\r\n"
        "POWERSAVE=OFF [2 ENUMERATED]\r\n\tON\r\n\tOFF\r\n"
        "POWERSAVETIME=15 [2 RANGE]\r\n\t1\r\n\t240\r\n"
        "INTRAYMTDIR=SHORT [2 ENUMERATED]\r\n\tSHORT\r\n\tLONG\r\n"
        "\f";
    Feed({list});
    EXPECT_EQ(Word("OppPaperSort"), std::nullopt) << "the '=' of the next entry is not its own";
    EXPECT_EQ(Word("OppPowerSaveTime"), 15u);
    EXPECT_EQ(Word("OppIntrayMTDir"), 0u);

    Feed({list}, 0);
    EXPECT_FALSE(Dirty("OppPowerSaveTime"));
    EXPECT_FALSE(Dirty("OppIntrayMTDir"));
    Feed({InInquiry("INTRAYMTDIR", "LONG")}, 0);
    EXPECT_TRUE(Dirty("OppIntrayMTDir"));

    // An inquiry without an LF ahead of its form feed has no value line; the
    // next response's value is not its.
    Feed({"@PJL INQUIRE POWERSAVETIME\f" + InInquiry("PAPERSORT", "ON")});
    EXPECT_EQ(Word("OppPowerSaveTime"), 15u);
    EXPECT_EQ(Word("OppPaperSort"), 1u);
}

}  // namespace
}  // namespace langmon
