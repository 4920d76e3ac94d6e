#include "acquisition/lm_values.h"

#include "acquisition/sts_block.h"
#include "monitor/port_context.h"
#include "platform/clock.h"
#include "platform/sync.h"

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>

namespace langmon {

namespace {

constexpr uint32_t NeverRead = 0xFFFFFFFFu;
constexpr uint32_t InputTrayFirstSize = 100;
constexpr uint32_t NoDimension = 0xFFFFFFFFu;

// The sizes the table starts with, before any port has had a record.
#define LM_TRAY_ROWS(field)                                                 \
    {"LM_InputTray_0_" #field, nullptr, 4}, {"LM_InputTray_1_" #field, nullptr, 4}, \
        {"LM_InputTray_2_" #field, nullptr, 4}

// Which LmBlock field each row points at, by its place in the table.
constexpr std::size_t TrayFieldOffset(int row) {
    const int field = (row - 7) / 3;
    const int tray = (row - 7) % 3;
    return offsetof(LmBlock, LmTrays) + tray * sizeof(LmTray) + field * sizeof(uint32_t);
}

struct FixedRow {
    int row;
    std::size_t offset;
};
constexpr FixedRow FixedRows[] = {
    {1, offsetof(LmBlock, LM_SysName)},
    {2, offsetof(LmBlock, LM_MemorySizeInKByte)},
    {3, offsetof(LmBlock, LM_MemorySizeInMByte)},
    {4, offsetof(LmBlock, LM_RamDisk)},
    {5, offsetof(LmBlock, LM_DuplexModule)},
    {6, offsetof(LmBlock, LM_InputTray)},
};
constexpr int GetTimeRow = 0;
// Values bound this recently are answered as they are; older ones are read anew.
constexpr DWORD LmFreshMs = 1000;
constexpr int InputTrayRow = 6;
constexpr int FirstTrayRow = 7;

// The port whose LmBlock the table shows; null before the first record.
PortContext* boundPort = nullptr;

CRITICAL_SECTION* TableLock() {
    static CRITICAL_SECTION* lock = [] {
        static CRITICAL_SECTION section{};
        InitializeCriticalSection(&section);
        return &section;
    }();
    return lock;
}

void ResetTableLocked() {
    for (int i = 0; i < LmValueCount; ++i) LmValueTable[i].LmValue = nullptr;
    LmValueTable[GetTimeRow].LmSize = NeverRead;
    LmValueTable[InputTrayRow].LmSize = InputTrayFirstSize;
    boundPort = nullptr;
}

}  // namespace

LmValue LmValueTable[LmValueCount + 1] = {
    {"GetTime", nullptr, NeverRead},
    {"LM_SysName", nullptr, 32},
    {"LM_MemorySizeInKByte", nullptr, 4},
    {"LM_MemorySizeInMByte", nullptr, 4},
    {"LM_RamDisk", nullptr, 2},
    {"LM_DuplexModule", nullptr, 2},
    {"LM_InputTray", nullptr, InputTrayFirstSize},
    LM_TRAY_ROWS(TrayIndex),
    LM_TRAY_ROWS(InputType),
    LM_TRAY_ROWS(TrayType),
    LM_TRAY_ROWS(MediaType),
    LM_TRAY_ROWS(MediaSize),
    LM_TRAY_ROWS(MediaDimFeedDirChosen),
    LM_TRAY_ROWS(MediaDimXFeedDirChosen),
    LM_TRAY_ROWS(MediaDirection),
    {nullptr, nullptr, 0},
};
#undef LM_TRAY_ROWS

static_assert(FirstTrayRow + 24 == LmValueCount);
static_assert(TrayFieldOffset(8) == offsetof(LmBlock, LmTrays) + sizeof(LmTray));
static_assert(TrayFieldOffset(10) == offsetof(LmBlock, LmTrays) + 4);
// The count and the trays go out as one counted block.
static_assert(offsetof(LmBlock, LmTrays) == offsetof(LmBlock, LM_InputTray) + 4);

const MediaDimensions MediaDimensionTable[27] = {
    {0xFFFF, 10000, NoDimension, NoDimension},
    {8, 24, 4200, 2970},
    {9, 25, 2970, 2100},
    {11, 26, 2100, 1480},
    {12, 45, 3640, 2570},
    {13, 46, 2570, 1820},
    {1, 1, 2794, 2159},
    {4, 10001, 4318, 2794},
    {41, 10002, 3302, 2159},
    {5, 2, 3556, 2159},
    {1234, 10012, 4530, 3280},
    {58, 10009, 4572, 3048},
    {1236, 10011, 4572, 3200},
    // The one size whose feed dimension is the smaller: so the printer has it.
    {7, 10014, 1842, 2667},
    {6, 10, 2159, 1397},
    {43, 10003, 1480, 1000},
    {69, 10015, 2000, 1480},
    {20, 5, 2413, 1048},
    {37, 12, 1905, 984},
    {28, 66, 2290, 1620},
    {27, 70, 2200, 1100},
    {31, 10015, 1620, 1140},
    {1237, 10015, 1480, 980},
    {91, 10015, 2350, 1050},
    {73, 10015, 2350, 1200},
    {256, 10004, NoDimension, NoDimension},
    {1238, 10015, NoDimension, NoDimension},
};

void InitializeLmValues() { TableLock(); }

void LockLmValues() { EnterCriticalSection(TableLock()); }
void UnlockLmValues() { LeaveCriticalSection(TableLock()); }

/* LookupMediaDimensions: the LM_ size code and dimensions of a paper size. */
void LookupMediaDimensions(uint32_t paperSize, LmTray* tray) {
    for (const MediaDimensions& row : MediaDimensionTable) {
        if (row.PaperSize == paperSize) {
            tray->MediaSize = row.MediaSize;
            tray->MediaDimFeedDirChosen = row.Feed;
            tray->MediaDimXFeedDirChosen = row.CrossFeed;
            return;
        }
    }
    tray->MediaSize = 0;
    tray->MediaDimFeedDirChosen = 0;
    tray->MediaDimXFeedDirChosen = 0;
}

/* FillLmTrays: the trays as the LM_ interface names them. The entries follow
   PrinterBinConfig by place; the media type goes by slot. */
void FillLmTrays(const StatusRecord* record, const uint8_t* binConfig, PortContext* port) {
    LmBlock& lm = port->lmBlock;
    std::memcpy(&lm.LM_InputTray, binConfig, sizeof lm.LM_InputTray);
    for (int i = 0; i < 3; ++i) {
        const uint8_t* entry = binConfig + 4 + 12 * i;
        uint16_t inputType = 0;
        uint16_t mediaSize = 0;
        std::memcpy(&inputType, entry + 2, sizeof inputType);
        std::memcpy(&mediaSize, entry + 4, sizeof mediaSize);
        LmTray& tray = lm.LmTrays[i];
        tray.TrayIndex = static_cast<uint32_t>(i + 1);
        if (i == 0) {
            // The first tray is the multi-purpose tray whatever the printer says.
            tray.InputType = 5;
            tray.TrayType = 0;
        } else if (inputType == 1) {
            tray.InputType = 3;
            tray.TrayType = 0;
        } else if (inputType == 9) {
            tray.InputType = 3;
            tray.TrayType = 1;
        } else if (inputType == 3) {
            tray.InputType = 4;
            tray.TrayType = 0;
        }
        const uint16_t word = record->TrayWord[i];
        tray.MediaType = TrayKind(word) == 0 ? 0 : LmMediaTypeTable[TrayMediaType(word)];
        LookupMediaDimensions(mediaSize, &tray);
        tray.MediaDirection = 3;
    }
}

/* BindLmValues: the table shows this port from now on. */
void BindLmValues(PortContext* port) {
    auto* block = reinterpret_cast<uint8_t*>(&port->lmBlock);
    LockLmValues();
    LmValueTable[GetTimeRow].LmValue =
        reinterpret_cast<void*>(static_cast<uintptr_t>(GetTickCount()));
    LmValueTable[GetTimeRow].LmSize = 4;
    for (const FixedRow& fixed : FixedRows) {
        LmValueTable[fixed.row].LmValue = block + fixed.offset;
    }
    LmValueTable[InputTrayRow].LmSize = 32 * port->lmBlock.LM_InputTray + 4;
    for (int row = FirstTrayRow; row < LmValueCount; ++row) {
        LmValueTable[row].LmValue = block + TrayFieldOffset(row);
    }
    boundPort = port;
    UnlockLmValues();
}

void UnbindLmValues(PortContext* port) {
    LockLmValues();
    if (boundPort == port) {
        ResetTableLocked();
    }
    UnlockLmValues();
}


/* LmValuesStale: 1 when the values were never read or are a second old or
   more; a tick count that went backwards (it wrapped) counts as old. */
int LmValuesStale() {
    LockLmValues();
    const LmValue& time = LmValueTable[GetTimeRow];
    const bool never = time.LmSize == NeverRead;
    const auto stamp = static_cast<DWORD>(reinterpret_cast<uintptr_t>(time.LmValue));
    UnlockLmValues();
    if (never) return 1;
    const DWORD now = GetTickCount();
    return now < stamp || now - stamp >= LmFreshMs ? 1 : 0;
}

/* ReadLmValue: the value of the row named exactly `name`. A size of 0 asks
   for the value's size alone; otherwise as much of the value as `out` holds
   is copied, and `returned` is left alone. 0 for a name that is no row, and
   for a row without a value when bytes were asked for. */
int ReadLmValue(const char* name, void* out, uint32_t outSize, uint32_t* returned) {
    if (name == nullptr) return 0;
    LockLmValues();
    // "GetTime" holds a tick count where the others hold a pointer: it is
    // no value to hand out.
    const LmValue* row = LmValueTable + GetTimeRow + 1;
    while (row->LmName != nullptr && std::strcmp(row->LmName, name) != 0) ++row;
    int result = 1;
    if (row->LmName == nullptr) {
        result = 0;
    } else if (outSize == 0) {
        if (returned != nullptr) *returned = row->LmSize;
    } else if (row->LmValue == nullptr || out == nullptr) {
        result = 0;
    } else {
        std::memcpy(out, row->LmValue, std::min(outSize, row->LmSize));
    }
    UnlockLmValues();
    return result;
}

}  // namespace langmon
