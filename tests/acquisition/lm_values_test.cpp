// The LM_ values as a caller of GetPrinterDataFromPort finds them: the one
// table that shows the port that last had a record, and never a closed one,
// and how fresh its values are across the tick count's wrap.
#include "acquisition/acquisition_fixture.h"

#include "acquisition/lm_values.h"
#include "monitor/device_requests.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "support/device_ids.h"

#include <cstring>
#include <string>

namespace langmon {
namespace {

using testing::AcquisitionTest;
using testing::CallKind;
using testing::ReadyRecord;

constexpr uint32_t None = 0xFFFFFFFFu;

const LmValue* Row(const char* name) {
    for (const LmValue* row = LmValueTable; row->LmName != nullptr; ++row) {
        if (std::strcmp(row->LmName, name) == 0) return row;
    }
    return nullptr;
}

// The names of a tray's fields, in the order of LmTray.
constexpr const char* TrayFieldNames[8] = {
    "TrayIndex", "InputType", "TrayType", "MediaType", "MediaSize", "MediaDimFeedDirChosen",
    "MediaDimXFeedDirChosen", "MediaDirection"};

TEST_F(AcquisitionTest, TheTableShowsThePortThatHadTheLastRecord) {
    PortContext* second = Open("USB001");
    ASSERT_NE(second, nullptr);
    Apply(ReadyRecord(), port);
    StatusRecord r = ReadyRecord();
    r.MemoryUnits = 2;
    Apply(r, second);

    EXPECT_EQ(*static_cast<const uint32_t*>(Row("LM_MemorySizeInKByte")->LmValue), 65536u);
    EXPECT_EQ(Row("LM_SysName")->LmValue, second->lmBlock.LM_SysName);
    EXPECT_EQ(Row("LM_RamDisk")->LmValue, &second->lmBlock.LM_RamDisk);
    EXPECT_EQ(Row("LM_DuplexModule")->LmValue, &second->lmBlock.LM_DuplexModule);
    EXPECT_EQ(Row("LM_InputTray")->LmSize, 68u);  // the count and two trays as one block
    EXPECT_EQ(Row("GetTime")->LmSize, 4u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(Row("GetTime")->LmValue), uintptr_t{GetTickCount()});
    for (int field = 0; field < 8; ++field) {
        for (int n = 0; n < 3; ++n) {
            const std::string name =
                "LM_InputTray_" + std::to_string(n) + "_" + TrayFieldNames[field];
            SCOPED_TRACE(name);
            const auto* tray = reinterpret_cast<const uint32_t*>(&second->lmBlock.LmTrays[n]);
            EXPECT_EQ(Row(name.c_str())->LmValue, tray + field);
        }
    }

    // The first port going away changes nothing; the second takes the
    // table back to "never read".
    Close(port);
    EXPECT_EQ(Row("LM_InputTray")->LmValue, &second->lmBlock.LM_InputTray);
    Close(second);
    for (const LmValue* row = LmValueTable; row->LmName != nullptr; ++row) {
        EXPECT_EQ(row->LmValue, nullptr) << row->LmName;
    }
    EXPECT_EQ(Row("GetTime")->LmSize, 0xFFFFFFFFu);
    EXPECT_EQ(Row("LM_InputTray")->LmSize, 100u);
}

// LPT1 with a ready 6200tx behind it that answers each poll at once, on a
// clock that starts two seconds before the tick count wraps.
class LmFreshnessTest : public testing::JobRoadTest {
protected:
    static constexpr DWORD StartTick = 0xFFFFF800u;

    void SetUp() override {
        JobRoadTest::SetUp();
        ASSERT_EQ(platform::ManagedThreadCount(), 1u) << "the clock may only be set with no other thread";
        platform::UseVirtualClock(StartTick);
        port = Open("LPT1");
    }
    void TearDown() override {
        // The port's close takes the process's table back to "never read".
        if (port != nullptr) {
            EXPECT_TRUE(Close(port));
        }
        EXPECT_EQ(Row("GetTime")->LmSize, None);
        EXPECT_EQ(LmValuesStale(), 1);
        JobRoadTest::TearDown();
    }

    // LM_SysName as a status application reads it.
    std::string AskSysName() {
        char name[32] = {};
        DWORD returned = 0;
        EXPECT_TRUE(GetPrinterDataFromPort(port, 0, const_cast<LPSTR>("LM_SysName"), nullptr, 0, name,
                                           sizeof name, &returned));
        return std::string(name);
    }
    // The printer's device ID was asked for this often: once per poll.
    int Polls() {
        int polls = 0;
        for (const auto& call : lower.Port("LPT1").Calls(CallKind::GetPrinterDataFromPort)) {
            polls += call.controlId == 17;
        }
        return polls;
    }

    PortContext* port = nullptr;
};

// The values are a second's picture of the printer: a request within the
// second is answered from them, the first at a second polls. A tick count
// that went backwards because it wrapped counts as old, so the request just
// after the wrap polls though the values are moments old.
TEST_F(LmFreshnessTest, AClientsRequestJustAfterTheTickCountWrapsPollsThePrinterAfresh) {
    ASSERT_EQ(Row("GetTime")->LmSize, None) << "another test left the table bound";
    EXPECT_EQ(LmValuesStale(), 1) << "values never read";
    EXPECT_EQ(AskSysName(), "Laser Printer 6200tx");
    EXPECT_EQ(Polls(), 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(Row("GetTime")->LmValue), uintptr_t{StartTick})
        << "the poll stamps the values with its tick";
    EXPECT_EQ(LmValuesStale(), 0);

    Sleep(999);
    EXPECT_EQ(LmValuesStale(), 0);
    EXPECT_EQ(AskSysName(), "Laser Printer 6200tx");
    EXPECT_EQ(Polls(), 1) << "values under a second old stand";
    Sleep(1);
    EXPECT_EQ(LmValuesStale(), 1);
    EXPECT_EQ(AskSysName(), "Laser Printer 6200tx");
    EXPECT_EQ(Polls(), 2) << "values a second old are read anew";

    // A poll 16 ms before the wrap, a request 16 ms after it.
    Sleep(0xFFFFFFF0u - GetTickCount());
    ASSERT_EQ(GetTickCount(), 0xFFFFFFF0u);
    ASSERT_EQ(LmValuesStale(), 1);
    AskSysName();
    EXPECT_EQ(Polls(), 3);
    EXPECT_EQ(LmValuesStale(), 0);
    Sleep(32);
    ASSERT_EQ(GetTickCount(), 0x10u);
    EXPECT_EQ(LmValuesStale(), 1) << "32 ms old, across the wrap";
    EXPECT_EQ(AskSysName(), "Laser Printer 6200tx");
    EXPECT_EQ(Polls(), 4) << "the request after the wrap polls afresh";
    EXPECT_EQ(reinterpret_cast<uintptr_t>(Row("GetTime")->LmValue), uintptr_t{0x10});

    // Past the wrap the second counts as before.
    Sleep(999);
    EXPECT_EQ(LmValuesStale(), 0);
    AskSysName();
    EXPECT_EQ(Polls(), 4);
}

}  // namespace
}  // namespace langmon
