// The status variable table as clients and writers meet it: the rows under
// their names, which rows a printer model has, and how values are stored.
#include "variables/status_variable.h"

#include "manager/manager_link.h"
#include "monitor/port_context.h"
#include "platform/memory.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace langmon {
namespace {

constexpr uint32_t Counted = 0xFFFFFFFFu;

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
        for (StatusVariable* row = table; row->Name != nullptr; ++row) {
            GlobalFree(row->Value);
        }
        GlobalFree(table);
        PlatformTest::TearDown();
    }

    // A counted value: the count word, then `count` elements of `elementSize`.
    static void* CountedValue(uint32_t count, uint32_t elementSize) {
        void* block = GlobalAlloc(GPTR, 4 + SIZE_T{count} * elementSize);
        std::memcpy(block, &count, 4);
        return block;
    }

    // The row of that name whatever the masks say.
    StatusVariable* RowNamed(const char* name) const {
        for (StatusVariable* row = table; row->Name != nullptr; ++row) {
            if (std::strcmp(row->Name, name) == 0) {
                return row;
            }
        }
        return nullptr;
    }

    StatusVariable* table = nullptr;
    PortContext port{};
};

// What a client relies on for each row: its name at its place in the order of
// publication, the size of its value and how it is published.
struct ExpectedRow {
    const char* name;
    uint32_t size;
    uint32_t elementSize;
    uint32_t publishType;
};

const std::vector<ExpectedRow> ClientRows = {
    {"ErrPeriodicChange", 4, 0, 1},   {"TonerRemain", 4, 0, 1},
    {"CRURemain", 4, 0, 1},           {"ErrBinError", 4, 0, 1},
    {"ErrHWError", 4, 0, 1},          {"ErrSupplies", 4, 0, 1},
    {"ErrPaperJam", 4, 0, 1},         {"ErrPaperSizeError", 4, 0, 1},
    {"ErrNoPaper2", 8, 0, 1},         {"ErrCoverOpen", 4, 0, 1},
    {"PowerSaveEnd", 4, 0, 1},        {"CurrentFeeder", 4, 0, 1},
    {"PrinterBinConfig", Counted, 12, 9}, {"PrinterExtConfig", 4, 0, 1},
    {"PrinterStatus", 12, 0, 8},      {"PrinterDisplay", 132, 0, 1},
    {"ServiceTag", 32, 0, 9},         {"PrinterExtStatus", 4, 0, 1},
    {"PrinterManufacturer", 32, 0, 1}, {"PrinterModel", 32, 0, 1},
    {"JobStatus", 4, 0, 6},           {"SendingJobInfo", 292, 0, 2},
    {"PrintingJobInfo2", 320, 0, 2},  {"PrinterQueue", 4, 0, 5},
    {"PrinterOptConfig", Counted, 8, 9}, {"PrinterMemory", 4, 0, 9},
    {"EmulationInfo", Counted, 4, 9}, {"PageCount", 4, 0, 9},
    {"PrinterName", 0, 0, 0},         {"Port", 0, 0, 0},
    {"OppPowerSaveTime", 4, 0, 9},    {"OppPowerSaveTime2", 4, 0, 9},
    {"OppPaperType", 4, 0, 9},        {"OppPaperType1", 4, 0, 9},
    {"OppPaperType2", 4, 0, 9},       {"OppPaperType3", 4, 0, 9},
    {"OppPaperType4", 4, 0, 9},       {"OppPaperType5", 4, 0, 9},
    {"OppIntrayMTDir", 4, 0, 9},      {"OppPaperSort", 4, 0, 9},
    {"OppOuttray", 4, 0, 9},          {"SpooledFileInfo", 300, 0, 6},
    {"CurrentStatus", 0, 0, 0},       {"PrinterStatusEx", 0, 0, 0},
    {"PortEx", 0, 0, 0},              {"IconState", 4, 0, 1},
};

TEST_F(StatusVariableTest, RowsAreTheOnesClientsKnowInPublicationOrder) {
    ASSERT_EQ(ClientRows.size(), 46u);
    for (std::size_t i = 0; i < ClientRows.size(); ++i) {
        const StatusVariable& row = StatusVariableTable[i];
        const ExpectedRow& want = ClientRows[i];
        ASSERT_NE(row.Name, nullptr) << "row " << i;
        EXPECT_STREQ(row.Name, want.name) << "row " << i;
        EXPECT_EQ(row.Size, want.size) << want.name;
        EXPECT_EQ(row.ElementSize, want.elementSize) << want.name;
        EXPECT_EQ(row.PublishType, want.publishType) << want.name;
        EXPECT_EQ(row.Value, nullptr) << want.name;
        EXPECT_EQ(row.Dirty, 0u) << want.name;
    }
    EXPECT_EQ(StatusVariableTable[46].Name, nullptr);
}

TEST_F(StatusVariableTest, RefreshAndReplayAttributesOfRowsClientsAskFor) {
    struct Case {
        const char* name;
        uint32_t refreshClass;
        uint32_t attributes;
    };
    const Case cases[] = {
        {"TonerRemain", RefreshPoll, VarReplayToNewClient | VarKeepValue},
        {"PrinterDisplay", RefreshInfoStatus, 3},
        {"ServiceTag", RefreshInfoServiceTag, 3},
        {"CurrentFeeder", RefreshPollOnline, 3},
        {"OppPaperSort", RefreshPollAlways, 3},
        // Job rows and the queue reach each client once per value.
        {"SendingJobInfo", 0, 0},
        {"PrintingJobInfo2", 0, 0},
        {"PrinterQueue", 0, 0},
        {"IconState", RefreshPollOnline, 0},
        // Names in a refresh list that only ask for a poll.
        {"CurrentStatus", RefreshPoll, 0},
        {"PortEx", RefreshPoll, 0},
    };
    for (const Case& c : cases) {
        const StatusVariable* row = FindVariable(c.name, table, &port);
        ASSERT_NE(row, nullptr) << c.name;
        EXPECT_EQ(row->RefreshClass, c.refreshClass) << c.name;
        EXPECT_EQ(row->Attributes, c.attributes) << c.name;
    }
}

TEST_F(StatusVariableTest, ExtendedRowsDoNotExistOnTheKnownModelsNorOnAnUnknownPrinter) {
    const ModelMask masks[] = {ModelMask6200, ModelMask6300, ModelMask{0, 0}};
    for (const ModelMask& mask : masks) {
        SCOPED_TRACE(::testing::Message() << "port mask " << mask.low << "/" << mask.high);
        port.modelMask = mask;
        for (int create : {0, 1}) {
            EXPECT_EQ(GetVariable("OppPaperType5", table, &port, create), nullptr);
            EXPECT_EQ(GetVariable("OppPowerSaveTime2", table, &port, create), nullptr);
            StatusVariable* neighbour = GetVariable("OppPaperType4", table, &port, create);
            ASSERT_NE(neighbour, nullptr);
            EXPECT_STREQ(neighbour->Name, "OppPaperType4");
        }
        EXPECT_EQ(FindVariable("OppPaperType5", table, &port), nullptr);
    }
    // Nothing was created for the hidden rows.
    EXPECT_EQ(RowNamed("OppPaperType5")->Value, nullptr);
    EXPECT_EQ(RowNamed("OppPowerSaveTime2")->Value, nullptr);

    // A model outside the two known ones does have them.
    port.modelMask = ModelMask{0, 0x00000010u};
    EXPECT_STREQ(FindVariable("OppPaperType5", table, &port)->Name, "OppPaperType5");
    port.modelMask = ModelMask{0x1u, 0};
    EXPECT_STREQ(FindVariable("OppPowerSaveTime2", table, &port)->Name, "OppPowerSaveTime2");
}

TEST_F(StatusVariableTest, ClientLookupUsesTheLinksModelElseThePorts) {
    ManagerLink link{};
    port.modelMask = ModelMask{0, 0x00000010u};  // a port on which the rows exist

    link.modelMask = ModelMask6200;
    EXPECT_EQ(FindVariableForClient("OppPaperType5", table, &link, &port), nullptr);
    EXPECT_STREQ(FindVariableForClient("OppPaperType4", table, &link, &port)->Name,
                 "OppPaperType4");

    port.modelMask = ModelMask6300;  // and one on which they don't
    link.modelMask = ModelMask{0, 0x00000100u};
    EXPECT_STREQ(FindVariableForClient("OppPaperType5", table, &link, &port)->Name,
                 "OppPaperType5");

    // Without a link the port decides.
    EXPECT_EQ(FindVariableForClient("OppPaperType5", table, nullptr, &port), nullptr);
    EXPECT_STREQ(FindVariableForClient("PrinterStatus", table, nullptr, &port)->Name,
                 "PrinterStatus");
    EXPECT_EQ(FindVariableForClient("PrinterStatus", nullptr, &link, &port), nullptr);
    EXPECT_EQ(FindVariableForClient(nullptr, table, &link, &port), nullptr);
}

TEST_F(StatusVariableTest, NamesMatchExactlyAndWholly) {
    EXPECT_STREQ(FindVariable("PrinterStatus", table, &port)->Name, "PrinterStatus");
    EXPECT_EQ(FindVariable("printerstatus", table, &port), nullptr);
    EXPECT_EQ(FindVariable("PRINTERSTATUS", table, &port), nullptr);
    EXPECT_EQ(FindVariable("PrinterStatu", table, &port), nullptr);
    EXPECT_EQ(FindVariable("PrinterStatus ", table, &port), nullptr);
    EXPECT_STREQ(FindVariable("PrinterStatusEx", table, &port)->Name, "PrinterStatusEx");
    EXPECT_EQ(FindVariable("", table, &port), nullptr);
    EXPECT_EQ(GetVariable("", table, &port, 1), nullptr);
    EXPECT_EQ(GetVariable(nullptr, table, &port, 0), nullptr);
    EXPECT_EQ(FindVariable("PrinterStatus", nullptr, &port), nullptr);
    EXPECT_EQ(FindVariable("PrinterStatus", table, nullptr), nullptr);
}

TEST_F(StatusVariableTest, TheAllZeroRowEndsTheWalk) {
    // A table cut short after its fifth row: later names are out of reach.
    StatusVariable shortTable[6]{};
    std::memcpy(shortTable, table, 5 * sizeof(StatusVariable));
    ASSERT_NE(FindVariable("ErrHWError", shortTable, &port), nullptr);
    EXPECT_EQ(FindVariable("ErrSupplies", shortTable, &port), nullptr);
    EXPECT_EQ(FindVariable("IconState", shortTable, &port), nullptr);
}

TEST_F(StatusVariableTest, GetVariableCreatesZeroedValuesOnlyWhereASizeIsKnown) {
    const std::size_t blocks = platform::LiveBlockCount();

    // A row that never holds a value.
    EXPECT_EQ(GetVariable("Port", table, &port, 1), nullptr);
    StatusVariable* portRow = GetVariable("Port", table, &port, 0);
    ASSERT_NE(portRow, nullptr);
    EXPECT_EQ(portRow->Value, nullptr);

    // A counted row without its count can't be made.
    EXPECT_EQ(GetVariable("EmulationInfo", table, &port, 1), nullptr);
    EXPECT_EQ(FindVariable("EmulationInfo", table, &port)->Value, nullptr);
    EXPECT_EQ(platform::LiveBlockCount(), blocks);

    // A fixed row gets a zeroed block of its size, once.
    StatusVariable* status = GetVariable("PrinterStatus", table, &port, 1);
    ASSERT_NE(status, nullptr);
    ASSERT_NE(status->Value, nullptr);
    const uint8_t zeros[12] = {};
    EXPECT_EQ(std::memcmp(status->Value, zeros, 12), 0);
    EXPECT_EQ(status->Dirty, 0u);
    void* first = status->Value;
    EXPECT_EQ(GetVariable("PrinterStatus", table, &port, 1)->Value, first);
    EXPECT_EQ(platform::LiveBlockCount(), blocks + 1);

    // A counted row that has a value is returned as it is.
    StatusVariable* emulation = FindVariable("EmulationInfo", table, &port);
    emulation->Value = CountedValue(2, 4);
    EXPECT_EQ(GetVariable("EmulationInfo", table, &port, 1), emulation);

    // With create 0 nothing is made.
    StatusVariable* toner = GetVariable("TonerRemain", table, &port, 0);
    ASSERT_NE(toner, nullptr);
    EXPECT_EQ(toner->Value, nullptr);
}

TEST_F(StatusVariableTest, GetVariableGivesNothingWhenTheBlockCannotBeHad) {
    const std::size_t blocks = platform::LiveBlockCount();
    platform::FailAllocation(1, false);
    EXPECT_EQ(GetVariable("TonerRemain", table, &port, 1), nullptr);
    EXPECT_TRUE(platform::AllocationFailureHit());
    platform::StopFailingAllocations();
    EXPECT_EQ(FindVariable("TonerRemain", table, &port)->Value, nullptr);
    EXPECT_EQ(platform::LiveBlockCount(), blocks);
}

TEST_F(StatusVariableTest, VariableSizeOfFixedAndCountedValues) {
    EXPECT_EQ(VariableSize(FindVariable("PrinterStatus", table, &port)), 12u);
    EXPECT_EQ(VariableSize(FindVariable("SpooledFileInfo", table, &port)), 300u);
    EXPECT_EQ(VariableSize(FindVariable("PrinterName", table, &port)), 0u);
    EXPECT_EQ(VariableSize(nullptr), 0u);

    StatusVariable* bins = FindVariable("PrinterBinConfig", table, &port);
    ASSERT_EQ(bins->ElementSize, 12u);
    EXPECT_EQ(VariableSize(bins), 0xFFFFFFFFu);  // no value, no count
    bins->Value = CountedValue(3, 12);
    EXPECT_EQ(VariableSize(bins), 40u);
    uint32_t none = 0;
    std::memcpy(bins->Value, &none, 4);
    EXPECT_EQ(VariableSize(bins), 4u);
}

TEST_F(StatusVariableTest, SetVariableStoresOnlyChanges) {
    StatusVariable* status = FindVariable("PrinterStatus", table, &port);
    ASSERT_EQ(status->Value, nullptr);

    // The first store makes a value, even one of all zeros.
    const uint32_t zeros[3] = {0, 0, 0};
    EXPECT_EQ(SetVariable(status, zeros), 1);
    ASSERT_NE(status->Value, nullptr);
    EXPECT_EQ(std::memcmp(status->Value, zeros, 12), 0);
    EXPECT_EQ(status->Dirty, 0u);  // marking is the caller's part

    // The same bytes again change nothing, whatever Dirty says.
    status->Dirty = 1;
    EXPECT_EQ(SetVariable(status, zeros), 0);
    EXPECT_EQ(status->Dirty, 1u);
    status->Dirty = 0;
    EXPECT_EQ(SetVariable(status, zeros), 0);
    EXPECT_EQ(status->Dirty, 0u);

    // Other bytes go into the same block.
    void* block = status->Value;
    const uint32_t busy[3] = {0, 0x200, 7};
    EXPECT_EQ(SetVariable(status, busy), 1);
    EXPECT_EQ(status->Value, block);
    EXPECT_EQ(std::memcmp(status->Value, busy, 12), 0);

    // A row without a size takes nothing.
    EXPECT_EQ(SetVariable(FindVariable("CurrentStatus", table, &port), busy), 0);
    EXPECT_EQ(FindVariable("CurrentStatus", table, &port)->Value, nullptr);
    EXPECT_EQ(SetVariable(nullptr, busy), 0);
}

TEST_F(StatusVariableTest, SetVariableOnACountedRowComparesOverItsCurrentCount) {
    StatusVariable* options = FindVariable("PrinterOptConfig", table, &port);
    const uint32_t twoOptions[5] = {2, 1, 2, 3, 4};
    EXPECT_EQ(SetVariable(options, twoOptions), 0);  // no count yet: its writer puts it in
    EXPECT_EQ(options->Value, nullptr);

    options->Value = CountedValue(2, 8);
    EXPECT_EQ(SetVariable(options, twoOptions), 1);
    EXPECT_EQ(std::memcmp(options->Value, twoOptions, sizeof twoOptions), 0);
    EXPECT_EQ(SetVariable(options, twoOptions), 0);
}

TEST_F(StatusVariableTest, SetVariableStoresNothingWhenTheBlockCannotBeHad) {
    StatusVariable* toner = FindVariable("TonerRemain", table, &port);
    const uint32_t level = 80;
    const std::size_t blocks = platform::LiveBlockCount();
    platform::FailAllocation(1, false);
    EXPECT_EQ(SetVariable(toner, &level), 0);
    platform::StopFailingAllocations();
    EXPECT_EQ(toner->Value, nullptr);
    EXPECT_EQ(platform::LiveBlockCount(), blocks);

    // The next store of the same value is a first store.
    EXPECT_EQ(SetVariable(toner, &level), 1);
    EXPECT_EQ(*static_cast<uint32_t*>(toner->Value), 80u);
}

}  // namespace
}  // namespace langmon
