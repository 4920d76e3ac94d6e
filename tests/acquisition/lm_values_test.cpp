// The LM_ values as a caller of GetPrinterDataFromPort finds them: paper sizes
// and their dimensions, and the one table that shows the port that last had a
// record, and never a closed one.
#include "acquisition/acquisition_fixture.h"

#include "acquisition/lm_values.h"
#include "platform/clock.h"

#include <cstring>
#include <string>

namespace langmon {
namespace {

using testing::AcquisitionTest;
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

// A paper number the printer has no size for has no dimensions either.
TEST(LmValues, PaperSizesAndTheirDimensions) {
    const struct {
        uint32_t paper;
        uint32_t size, feed, cross;
    } cases[] = {
        {9, 25, 2970, 2100}, {0xFFFF, 10000, None, None}, {0, 0, 0, 0}, {2, 0, 0, 0},
        {0x1FFFF, 0, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.paper);
        LmTray tray;
        std::memset(&tray, 0xEE, sizeof tray);
        LookupMediaDimensions(c.paper, &tray);
        EXPECT_EQ(tray.MediaSize, c.size);
        EXPECT_EQ(tray.MediaDimFeedDirChosen, c.feed);
        EXPECT_EQ(tray.MediaDimXFeedDirChosen, c.cross);
    }
}

TEST_F(AcquisitionTest, TheTableShowsThePortThatHadTheLastRecord) {
    PortContext* second = Open("LPT2");
    ASSERT_NE(second, nullptr);
    Apply(ReadyRecord(), port);
    StatusRecord r = ReadyRecord();
    r.MemoryUnits = 2;
    Apply(r, second);

    const auto* block = reinterpret_cast<const uint8_t*>(&second->lmBlock);
    for (const LmValue* row = LmValueTable + 1; row->LmName != nullptr; ++row) {
        SCOPED_TRACE(row->LmName);
        const auto* at = static_cast<const uint8_t*>(row->LmValue);
        EXPECT_TRUE(at >= block && at < block + sizeof(LmBlock));
    }
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

}  // namespace
}  // namespace langmon
