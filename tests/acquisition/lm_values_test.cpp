// The LM_ values as a caller of GetPrinterDataFromPort finds them: the trays
// in that interface's terms, paper sizes and their dimensions, and the one
// table that shows the port that last had a record, and never a closed one.
#include "acquisition/acquisition_fixture.h"

#include "acquisition/lm_values.h"
#include "platform/clock.h"

#include <array>
#include <cstring>
#include <string>

namespace langmon {
namespace {

using testing::AcquisitionTest;
using testing::ReadyRecord;

constexpr uint32_t None = 0xFFFFFFFFu;
// Index, input type, tray type, media type, size, feed, cross-feed, direction.
using Tray = std::array<uint32_t, 8>;

Tray Fields(const LmTray& t) {
    Tray fields;
    std::memcpy(fields.data(), &t, sizeof t);
    return fields;
}

const LmValue* Row(const char* name) {
    for (const LmValue* row = LmValueTable; row->LmName != nullptr; ++row) {
        if (std::strcmp(row->LmName, name) == 0) return row;
    }
    return nullptr;
}

// The names of a tray's fields, in the order of LmTray.
const char* const TrayFieldNames[8] = {"TrayIndex",
                                       "InputType",
                                       "TrayType",
                                       "MediaType",
                                       "MediaSize",
                                       "MediaDimFeedDirChosen",
                                       "MediaDimXFeedDirChosen",
                                       "MediaDirection"};

TEST(LmValues, PaperSizesAndTheirDimensions) {
    const struct {
        uint32_t paper;
        uint32_t size, feed, cross;
    } cases[] = {
        // clang-format off
        {9, 25, 2970, 2100}, {0xFFFF, 10000, None, None}, {256, 10004, None, None},
        {7, 10014, 1842, 2667}, {1, 1, 2794, 2159}, {1238, 10015, None, None},
        {0, 0, 0, 0}, {2, 0, 0, 0}, {0x1FFFF, 0, 0, 0},
        // clang-format on
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

TEST_F(AcquisitionTest, TheReadyPrinterInLmTerms) {
    Apply(ReadyRecord());
    const LmBlock& lm = port->lmBlock;
    EXPECT_EQ(lm.LM_MemorySizeInKByte, 131072u);
    EXPECT_EQ(lm.LM_MemorySizeInMByte, 128u);
    EXPECT_EQ(lm.LM_DuplexModule, 1u);
    EXPECT_EQ(lm.LM_RamDisk, 0u);
    EXPECT_EQ(lm.LM_InputTray, 2u);
    EXPECT_EQ(Fields(lm.LmTrays[0]), (Tray{1, 5, 0, 1, 25, 2970, 2100, 3}));
    EXPECT_EQ(Fields(lm.LmTrays[1]), (Tray{2, 3, 0, 1, 25, 2970, 2100, 3}));
    EXPECT_EQ(Fields(lm.LmTrays[2]), (Tray{3, 0, 0, 0, 0, 0, 0, 3}));
    // The count and two tray records go out as one block.
    EXPECT_EQ(Row("LM_InputTray")->LmValue, &lm.LM_InputTray);
    EXPECT_EQ(Row("LM_InputTray")->LmSize, 68u);
    EXPECT_EQ(Row("GetTime")->LmSize, 4u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(Row("GetTime")->LmValue), uintptr_t{GetTickCount()});
}

TEST_F(AcquisitionTest, TraysInLmTermsGoByEntryButTheMediaTypeBySlot) {
    // Slot 0 a cassette with the variant bit, slot 1 a kind-3 tray, slot 2 the
    // variant again: the first tray reads as multi-purpose all the same.
    StatusRecord r = ReadyRecord();
    r.TrayWord[0] = 0x8040;
    r.TrayWord[1] = 0xC002;
    r.TrayWord[2] = 0x8042;
    Apply(r);
    const LmBlock& lm = port->lmBlock;
    EXPECT_EQ(Fields(lm.LmTrays[0]), (Tray{1, 5, 0, 0, 10000, None, None, 3}));
    EXPECT_EQ(Fields(lm.LmTrays[1]), (Tray{2, 4, 0, 0, 25, 2970, 2100, 3}));
    EXPECT_EQ(Fields(lm.LmTrays[2]), (Tray{3, 3, 1, 0, 25, 2970, 2100, 3}));
    EXPECT_EQ(Row("LM_InputTray")->LmSize, 100u);

    // Slot 1 empty: its entry is slot 2's tray, whose input type is one the
    // LM_ interface doesn't name, so the last one stays. The media types go
    // by slot: none for slot 1, type 7 for slot 2; type 5 has no LM_ code.
    r.TrayWord[0] = 0x5282;
    r.TrayWord[1] = 0x0382;  // no tray, whatever the other bits say
    r.TrayWord[2] = 0x4382;
    Apply(r);
    EXPECT_EQ(lm.LM_InputTray, 2u);
    EXPECT_EQ(Fields(lm.LmTrays[0]), (Tray{1, 5, 0, 0, 25, 2970, 2100, 3}));
    EXPECT_EQ(Bytes("PrinterBinConfig", 12)[11], 15u);  // the same type for clients
    EXPECT_EQ(Fields(lm.LmTrays[1]), (Tray{2, 4, 0, 0, 25, 2970, 2100, 3}));
    EXPECT_EQ(Fields(lm.LmTrays[2]), (Tray{3, 3, 1, 7, 0, 0, 0, 3}));
    EXPECT_EQ(Row("LM_InputTray")->LmSize, 68u);
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
