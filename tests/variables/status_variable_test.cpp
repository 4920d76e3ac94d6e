// The status variable table as clients and writers meet it: the rows under
// their names and which rows a printer model has.
#include "variables/status_variable.h"

#include "manager/manager_link.h"
#include "monitor/port_context.h"
#include "platform/memory.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace langmon {
namespace {

// A port's own copy of the table, as port creation makes it: one heap block
// owned by the test, its values freed at the end.
class StatusVariableTest : public testing::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        table = static_cast<StatusVariable*>(GlobalAlloc(GPTR, sizeof StatusVariableTable));
        ASSERT_NE(table, nullptr);
        std::memcpy(table, StatusVariableTable, sizeof StatusVariableTable);
        port.modelMask = ModelMask6300;
    }
    void TearDown() override {
        for (StatusVariable* row = table; row->Name != nullptr; ++row) GlobalFree(row->Value);
        GlobalFree(table);
        PlatformTest::TearDown();
    }

    StatusVariable* Find(const char* name) { return FindVariable(name, table, &port); }

    StatusVariable* table = nullptr;
    PortContext port{};
};

TEST_F(StatusVariableTest, ExtendedRowsExistOnlyOnModelsOutsideTheKnownOnes) {
    ManagerLink link{};
    const ModelMask outside{0, 0x10u};
    struct Case { ModelMask mask; bool seen; };
    for (const Case c : {Case{ModelMask6200, false}, Case{ModelMask6300, false},
                         Case{{0, 0}, false}, Case{outside, true}, Case{{0x1u, 0}, true}}) {
        SCOPED_TRACE(::testing::Message() << "model mask " << c.mask.low << "/" << c.mask.high);
        port.modelMask = c.mask;
        for (const char* name : {"OppPaperType5", "OppPowerSaveTime2"}) {
            for (int create : {0, 1}) {
                const StatusVariable* row = GetVariable(name, table, &port, create);
                EXPECT_EQ(std::string(row != nullptr ? row->Name : "none"), c.seen ? name : "none");
            }
        }
        EXPECT_STREQ(GetVariable("OppPaperType4", table, &port, 1)->Name, "OppPaperType4");

        // A client sees the rows as its own printer has them, whatever the port's.
        link.modelMask = c.mask;
        port.modelMask = c.seen ? ModelMask6300 : outside;
        EXPECT_EQ(FindVariableForClient("OppPaperType5", table, &link, &port) != nullptr, c.seen);
        EXPECT_NE(FindVariableForClient("OppPaperType4", table, &link, &port), nullptr);
    }
    // Without a link the port decides; without a table or a name nothing is found.
    port.modelMask = ModelMask6300;
    EXPECT_EQ(FindVariableForClient("OppPaperType5", table, nullptr, &port), nullptr);
    EXPECT_STREQ(FindVariableForClient("PrinterStatus", table, nullptr, &port)->Name,
                 "PrinterStatus");
    EXPECT_EQ(FindVariableForClient("PrinterStatus", nullptr, &link, &port), nullptr);
    EXPECT_EQ(FindVariableForClient(nullptr, table, &link, &port), nullptr);
}

TEST_F(StatusVariableTest, NamesMatchExactlyAndWholly) {
    for (const char* name :
         {"printerstatus", "PRINTERSTATUS", "PrinterStatu", "PrinterStatus ", ""}) {
        EXPECT_EQ(FindVariable(name, table, &port), nullptr) << name;
        EXPECT_EQ(GetVariable(name, table, &port, 1), nullptr) << name;
    }
    EXPECT_STREQ(Find("PrinterStatus")->Name, "PrinterStatus");
    EXPECT_STREQ(Find("PrinterStatusEx")->Name, "PrinterStatusEx");

    // The all-zero row ends the walk: in a table cut short after its fifth row
    // later names are out of reach. A hidden row does not end it: one name may
    // have rows for different models.
    StatusVariable shortTable[6]{};
    std::memcpy(shortTable, table, 5 * sizeof(StatusVariable));
    EXPECT_EQ(FindVariable("ErrSupplies", shortTable, &port), nullptr);
    shortTable[3].Name = "ErrHWError";
    shortTable[3].ModelMaskLow = ModelMaskExtended.low;
    shortTable[3].ModelMaskHigh = ModelMaskExtended.high;
    EXPECT_EQ(FindVariable("ErrHWError", shortTable, &port), &shortTable[4]);
}

}  // namespace
}  // namespace langmon
