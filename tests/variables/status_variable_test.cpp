// The status variable table as clients and writers meet it: the rows under
// their names, which rows a printer model has, and how values are stored.
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

    // A counted value: the count word, then `count` elements of `elementSize`.
    static void* CountedValue(uint32_t count, uint32_t elementSize) {
        void* block = GlobalAlloc(GPTR, 4 + SIZE_T{count} * elementSize);
        std::memcpy(block, &count, 4);
        return block;
    }
    StatusVariable* Find(const char* name) { return FindVariable(name, table, &port); }

    StatusVariable* table = nullptr;
    PortContext port{};
};

// What a client relies on for each row, in the order of publication: its name,
// the size of its value ("n*E": a count word and n elements of E bytes), its
// publish type, its refresh class and its attributes.
const char* const ClientRows[] = {
    "ErrPeriodicChange 4 1 0 3", "TonerRemain 4 1 1 3", "CRURemain 4 1 1 3",
    "ErrBinError 4 1 0 3", "ErrHWError 4 1 0 3", "ErrSupplies 4 1 0 3", "ErrPaperJam 4 1 0 3",
    "ErrPaperSizeError 4 1 0 3", "ErrNoPaper2 8 1 0 3", "ErrCoverOpen 4 1 1 3",
    "PowerSaveEnd 4 1 2 3", "CurrentFeeder 4 1 2 3", "PrinterBinConfig n*12 9 2 3",
    "PrinterExtConfig 4 1 1 3", "PrinterStatus 12 8 1 3", "PrinterDisplay 132 1 8 3",
    "ServiceTag 32 9 16 3", "PrinterExtStatus 4 1 1 3", "PrinterManufacturer 32 1 2 3",
    "PrinterModel 32 1 2 3", "JobStatus 4 6 0 3", "SendingJobInfo 292 2 0 0",
    "PrintingJobInfo2 320 2 0 0", "PrinterQueue 4 5 0 0", "PrinterOptConfig n*8 9 2 3",
    "PrinterMemory 4 9 2 3", "EmulationInfo n*4 9 2 3", "PageCount 4 9 0 3",
    "PrinterName 0 0 0 0", "Port 0 0 0 0", "OppPowerSaveTime 4 9 4 3",
    "OppPowerSaveTime2 4 9 4 3", "OppPaperType 4 9 4 3", "OppPaperType1 4 9 4 3",
    "OppPaperType2 4 9 4 3", "OppPaperType3 4 9 4 3", "OppPaperType4 4 9 4 3",
    "OppPaperType5 4 9 4 3", "OppIntrayMTDir 4 9 4 3", "OppPaperSort 4 9 4 3",
    "OppOuttray 4 9 4 3", "SpooledFileInfo 300 6 0 3", "CurrentStatus 0 0 1 0",
    "PrinterStatusEx 0 0 1 0", "PortEx 0 0 1 0", "IconState 4 1 2 0",
};

TEST_F(StatusVariableTest, RowsAreTheOnesClientsKnowInPublicationOrder) {
    static_assert(std::size(ClientRows) == StatusVariableCount);
    for (int i = 0; i < StatusVariableCount; ++i) {
        const StatusVariable& row = StatusVariableTable[i];
        const std::string size = row.Size == CountedSize ? "n*" + std::to_string(row.ElementSize)
                                                         : std::to_string(row.Size);
        EXPECT_EQ(std::string(row.Name) + " " + size + " " + std::to_string(row.PublishType) + " " +
                      std::to_string(row.RefreshClass) + " " + std::to_string(row.Attributes),
                  ClientRows[i]);
    }
    EXPECT_EQ(StatusVariableTable[StatusVariableCount].Name, nullptr);
}

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
    EXPECT_EQ(GetVariable(nullptr, table, &port, 0), nullptr);
    EXPECT_EQ(FindVariable("PrinterStatus", nullptr, &port), nullptr);
    EXPECT_EQ(FindVariable("PrinterStatus", table, nullptr), nullptr);

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

TEST_F(StatusVariableTest, GetVariableCreatesZeroedValuesOnlyWhereASizeIsKnown) {
    // A row that never holds a value, and a counted row without its count.
    for (const char* name : {"Port", "EmulationInfo"}) {
        EXPECT_EQ(GetVariable(name, table, &port, 1), nullptr) << name;
        EXPECT_EQ(Find(name)->Value, nullptr) << name;
    }
    // With create 0 nothing is made.
    EXPECT_EQ(GetVariable("TonerRemain", table, &port, 0)->Value, nullptr);

    // A fixed row gets a zeroed block of its size, once.
    StatusVariable* status = GetVariable("PrinterStatus", table, &port, 1);
    ASSERT_TRUE(status != nullptr && status->Value != nullptr);
    const uint8_t zeros[12] = {};
    EXPECT_EQ(std::memcmp(status->Value, zeros, 12), 0);
    EXPECT_EQ(status->Dirty, 0u);
    EXPECT_EQ(GetVariable("PrinterStatus", table, &port, 1)->Value, status->Value);

    // A counted row that has a value is returned as it is.
    StatusVariable* emulation = Find("EmulationInfo");
    emulation->Value = CountedValue(2, 4);
    EXPECT_EQ(GetVariable("EmulationInfo", table, &port, 1), emulation);
}

TEST_F(StatusVariableTest, SetVariableStoresOnlyChanges) {
    StatusVariable* status = Find("PrinterStatus");
    // The first store makes a value, even one of all zeros; marking the row
    // dirty is the caller's part.
    const uint32_t zeros[3] = {0, 0, 0};
    EXPECT_EQ(SetVariable(status, zeros), 1);
    ASSERT_NE(status->Value, nullptr);
    EXPECT_EQ(std::memcmp(status->Value, zeros, 12), 0);
    EXPECT_EQ(status->Dirty, 0u);

    // The same bytes again change nothing, whatever Dirty says.
    status->Dirty = 1;
    EXPECT_EQ(SetVariable(status, zeros), 0);
    EXPECT_EQ(status->Dirty, 1u);

    // Other bytes, down to the last, go into the same block.
    void* block = status->Value;
    uint8_t busy[12] = {};
    busy[11] = 7;
    EXPECT_EQ(SetVariable(status, busy), 1);
    EXPECT_EQ(status->Value, block);
    EXPECT_EQ(std::memcmp(status->Value, busy, 12), 0);

    // A row without a size takes nothing.
    EXPECT_EQ(SetVariable(Find("CurrentStatus"), busy), 0);
    EXPECT_EQ(Find("CurrentStatus")->Value, nullptr);
    EXPECT_EQ(SetVariable(nullptr, busy), 0);
    EXPECT_EQ(SetVariable(status, nullptr), 0);
}

TEST_F(StatusVariableTest, ACountedValueIsItsCountWordAndThatManyElements) {
    EXPECT_EQ(VariableSize(Find("PrinterStatus")), 12u);
    EXPECT_EQ(VariableSize(Find("PrinterName")) + VariableSize(nullptr), 0u);
    StatusVariable* options = Find("PrinterOptConfig");
    const uint32_t twoOptions[5] = {2, 1, 2, 3, 4};
    // No value, no count: the row can't take bytes until its writer puts a value in.
    EXPECT_EQ(VariableSize(options), CountedSize);
    EXPECT_EQ(SetVariable(options, twoOptions), 0);
    EXPECT_EQ(options->Value, nullptr);

    options->Value = CountedValue(2, 8);
    EXPECT_EQ(VariableSize(options), 20u);
    EXPECT_EQ(SetVariable(options, twoOptions), 1);
    EXPECT_EQ(std::memcmp(options->Value, twoOptions, sizeof twoOptions), 0);
    EXPECT_EQ(SetVariable(options, twoOptions), 0);
    std::memset(options->Value, 0, 4);
    EXPECT_EQ(VariableSize(options), 4u);
}

TEST_F(StatusVariableTest, NoBlockNoValueAndTheNextStoreIsAFirstStore) {
    const uint32_t level = 80;
    platform::FailAllocation(1, true);
    EXPECT_EQ(GetVariable("TonerRemain", table, &port, 1), nullptr);
    EXPECT_EQ(SetVariable(Find("TonerRemain"), &level), 0);
    EXPECT_TRUE(platform::AllocationFailureHit());
    platform::StopFailingAllocations();
    EXPECT_EQ(Find("TonerRemain")->Value, nullptr);

    EXPECT_EQ(SetVariable(Find("TonerRemain"), &level), 1);
    EXPECT_EQ(*static_cast<uint32_t*>(Find("TonerRemain")->Value), 80u);
}

}  // namespace
}  // namespace langmon
