#include "variables/status_variable.h"

#include "manager/manager_link.h"
#include "monitor/port_context.h"
#include "platform/memory.h"

#include <cstring>
#include <string_view>

namespace langmon {

namespace {

// Shorthands for the table below, so that each row reads as one line.
constexpr uint32_t Keep = VarReplayToNewClient | VarKeepValue;  // 3
constexpr uint32_t Counted = CountedSize;

constexpr StatusVariable Row(const char* name, uint32_t size, uint32_t elementSize,
                             uint32_t publishType, uint32_t refreshClass, uint32_t attributes,
                             ModelMask mask = ModelMaskAny) {
    return StatusVariable{name,        mask.low,    mask.high,    nullptr,     size,
                          elementSize, publishType, 0,            refreshClass, attributes};
}

}  // namespace

// The master copy that every port copies at creation. The order is the order in
// which publication walks the rows, so it is the order in which a client sees
// variables that changed together: keep it.
constexpr StatusVariable StatusVariableTable[StatusVariableCount + 1] = {
    Row("ErrPeriodicChange", 4, 0, 1, 0, Keep),
    Row("TonerRemain", 4, 0, 1, RefreshPoll, Keep),
    Row("CRURemain", 4, 0, 1, RefreshPoll, Keep),
    Row("ErrBinError", 4, 0, 1, 0, Keep),
    Row("ErrHWError", 4, 0, 1, 0, Keep),
    Row("ErrSupplies", 4, 0, 1, 0, Keep),
    Row("ErrPaperJam", 4, 0, 1, 0, Keep),
    Row("ErrPaperSizeError", 4, 0, 1, 0, Keep),
    Row("ErrNoPaper2", 8, 0, 1, 0, Keep),
    Row("ErrCoverOpen", 4, 0, 1, RefreshPoll, Keep),
    Row("PowerSaveEnd", 4, 0, 1, RefreshPollOnline, Keep),
    Row("CurrentFeeder", 4, 0, 1, RefreshPollOnline, Keep),
    Row("PrinterBinConfig", Counted, 12, 9, RefreshPollOnline, Keep),
    Row("PrinterExtConfig", 4, 0, 1, RefreshPoll, Keep),
    Row("PrinterStatus", 12, 0, 8, RefreshPoll, Keep),
    Row("PrinterDisplay", 132, 0, 1, RefreshInfoStatus, Keep),
    Row("ServiceTag", 32, 0, 9, RefreshInfoServiceTag, Keep),
    Row("PrinterExtStatus", 4, 0, 1, RefreshPoll, Keep),
    Row("PrinterManufacturer", 32, 0, 1, RefreshPollOnline, Keep),
    Row("PrinterModel", 32, 0, 1, RefreshPollOnline, Keep),
    Row("JobStatus", 4, 0, 6, 0, Keep),
    Row("SendingJobInfo", 292, 0, 2, 0, 0),
    Row("PrintingJobInfo2", 320, 0, 2, 0, 0),
    Row("PrinterQueue", 4, 0, 5, 0, 0),
    Row("PrinterOptConfig", Counted, 8, 9, RefreshPollOnline, Keep),
    Row("PrinterMemory", 4, 0, 9, RefreshPollOnline, Keep),
    Row("EmulationInfo", Counted, 4, 9, RefreshPollOnline, Keep),
    Row("PageCount", 4, 0, 9, 0, Keep),
    // Names of variables on the manager's side; the rows never hold a value.
    Row("PrinterName", 0, 0, 0, 0, 0),
    Row("Port", 0, 0, 0, 0, 0),
    Row("OppPowerSaveTime", 4, 0, 9, RefreshPollAlways, Keep),
    // Hidden on both known models: no port of theirs has this row.
    Row("OppPowerSaveTime2", 4, 0, 9, RefreshPollAlways, Keep, ModelMaskExtended),
    Row("OppPaperType", 4, 0, 9, RefreshPollAlways, Keep),
    Row("OppPaperType1", 4, 0, 9, RefreshPollAlways, Keep),
    Row("OppPaperType2", 4, 0, 9, RefreshPollAlways, Keep),
    Row("OppPaperType3", 4, 0, 9, RefreshPollAlways, Keep),
    Row("OppPaperType4", 4, 0, 9, RefreshPollAlways, Keep),
    Row("OppPaperType5", 4, 0, 9, RefreshPollAlways, Keep, ModelMaskExtended),
    Row("OppIntrayMTDir", 4, 0, 9, RefreshPollAlways, Keep),
    Row("OppPaperSort", 4, 0, 9, RefreshPollAlways, Keep),
    Row("OppOuttray", 4, 0, 9, RefreshPollAlways, Keep),
    Row("SpooledFileInfo", 300, 0, 6, 0, Keep),
    // Names a client's refresh list may carry to ask for a poll; no value.
    Row("CurrentStatus", 0, 0, 0, RefreshPoll, 0),
    Row("PrinterStatusEx", 0, 0, 0, RefreshPoll, 0),
    Row("PortEx", 0, 0, 0, RefreshPoll, 0),
    Row("IconState", 4, 0, 1, RefreshPollOnline, 0),
    // The all-zero row that ends every walk.
    StatusVariable{},
};

namespace {

// Where each name stands, found by its hash: variables are looked up by name
// on every poll and after every response, and a walk that compares each row's
// name would cost most of the poll. Every table begins with a copy of the
// master, so a name's place in the master is its place in any port's table.
// The length and four of its bytes tell the names apart well enough; the
// probe compares whole names.
constexpr uint32_t NameHash(std::string_view name) {
    const std::size_t n = name.size();
    if (n < 2) return static_cast<uint32_t>(n);
    const auto byte = [&](std::size_t i) { return static_cast<uint32_t>(static_cast<uint8_t>(name[i])); };
    uint32_t hash = static_cast<uint32_t>(n) * 0x9E3779B1u ^ byte(n - 1) * 0x85EBCA77u ^
                    byte(n - 2) * 0xC2B2AE3Du ^ byte(n / 2) * 0x27D4EB2Fu ^ byte(n / 3) * 0x165667B1u;
    hash ^= hash >> 15;
    hash *= 0x2C1B3C6Du;
    return hash ^ (hash >> 12);
}

constexpr uint32_t NameSlotCount = 128;  // a power of two, well above the row count
static_assert(NameSlotCount >= 2 * StatusVariableCount);

struct NameSlots {
    int8_t index[NameSlotCount];
};

constexpr NameSlots MakeNameSlots() {
    NameSlots slots{};
    for (int8_t& slot : slots.index) slot = -1;
    for (int i = 0; i < StatusVariableCount; ++i) {
        uint32_t at = NameHash(StatusVariableTable[i].Name) & (NameSlotCount - 1);
        while (slots.index[at] >= 0) at = (at + 1) & (NameSlotCount - 1);
        slots.index[at] = static_cast<int8_t>(i);
    }
    return slots;
}

constexpr NameSlots VariableNameSlots = MakeNameSlots();

// The row index of `name` in the master copy; -1 when no row has that name.
constexpr int IndexOf(std::string_view name) {
    for (uint32_t at = NameHash(name) & (NameSlotCount - 1);; at = (at + 1) & (NameSlotCount - 1)) {
        const int index = VariableNameSlots.index[at];
        if (index < 0 || StatusVariableTable[index].Name == name) return index;
    }
}

// Each row is found at its own place: so the names are unique, and the
// slots lose none of them.
constexpr bool EveryNameFindsItsOwnRow() {
    for (int i = 0; i < StatusVariableCount; ++i) {
        if (IndexOf(StatusVariableTable[i].Name) != i) return false;
    }
    return IndexOf("") == -1 && IndexOf("P") == -1 && IndexOf("PrinterStatu") == -1 &&
           IndexOf("PrinterStatusX") == -1;
}

// Compile-time facts about the master copy.

constexpr bool IsAny(const StatusVariable& row) {
    return MasksDiffer(row.ModelMaskLow, row.ModelMaskHigh, ModelMaskAny.low, ModelMaskAny.high) ==
           0;
}

constexpr bool EveryRowNamedUntilTheEnd() {
    for (int i = 0; i < StatusVariableCount; ++i) {
        if (StatusVariableTable[i].Name == nullptr || StatusVariableTable[i].Name[0] == '\0') {
            return false;
        }
    }
    return true;
}

constexpr bool TerminatorIsAllZero() {
    const StatusVariable& end = StatusVariableTable[StatusVariableCount];
    return end.Name == nullptr && end.ModelMaskLow == 0 && end.ModelMaskHigh == 0 &&
           end.Value == nullptr && end.Size == 0 && end.ElementSize == 0 &&
           end.PublishType == 0 && end.Dirty == 0 && end.RefreshClass == 0 &&
           end.Attributes == 0;
}

constexpr bool MasterCopyHoldsNoValue() {
    for (int i = 0; i < StatusVariableCount; ++i) {
        if (StatusVariableTable[i].Value != nullptr || StatusVariableTable[i].Dirty != 0) {
            return false;
        }
    }
    return true;
}

// Only the two extended rows are restricted, and those exist on no known model.
constexpr bool MasksAsIntended() {
    for (int i = 0; i < StatusVariableCount; ++i) {
        const StatusVariable& row = StatusVariableTable[i];
        const bool extended = i == IndexOf("OppPowerSaveTime2") || i == IndexOf("OppPaperType5");
        if (extended) {
            if (row.ModelMaskLow != ModelMaskExtended.low ||
                row.ModelMaskHigh != ModelMaskExtended.high) {
                return false;
            }
        } else if (!IsAny(row)) {
            return false;
        }
    }
    return MasksIntersect(ModelMaskExtended.low, ModelMaskExtended.high, ModelMask6200.low,
                          ModelMask6200.high) == 0 &&
           MasksIntersect(ModelMaskExtended.low, ModelMaskExtended.high, ModelMask6300.low,
                          ModelMask6300.high) == 0;
}

// A counted row says how big one element is; no other row does. A row that
// never holds a value is never published.
constexpr bool SizesConsistent() {
    for (int i = 0; i < StatusVariableCount; ++i) {
        const StatusVariable& row = StatusVariableTable[i];
        if ((row.Size == CountedSize) != (row.ElementSize != 0)) {
            return false;
        }
        if (row.Size == 0 && row.PublishType != 0) {
            return false;
        }
    }
    return true;
}

static_assert(EveryRowNamedUntilTheEnd());
static_assert(EveryNameFindsItsOwnRow());
static_assert(TerminatorIsAllZero());
static_assert(MasterCopyHoldsNoValue());
static_assert(MasksAsIntended());
static_assert(SizesConsistent());
// Ordering facts that clients see in the order of publication.
static_assert(IndexOf("ErrPeriodicChange") == 0);
static_assert(IndexOf("PrinterStatus") == 14);
static_assert(IndexOf("SendingJobInfo") + 1 == IndexOf("PrintingJobInfo2"));
static_assert(IndexOf("PrinterName") == 28 && IndexOf("Port") == 29);
static_assert(IndexOf("OppPowerSaveTime") == 30 && IndexOf("OppOuttray") == 40);
static_assert(IndexOf("IconState") == StatusVariableCount - 1);

// The row's visibility under a filter mask: a row without restriction is seen
// everywhere (by equality), any other only where the masks share a bit.
bool Visible(const StatusVariable& row, ModelMask filter) {
    return IsAny(row) ||
           MasksIntersect(filter.low, filter.high, row.ModelMaskLow, row.ModelMaskHigh) != 0;
}

// The first visible row of that exact name. A master row stands at its own
// place, and names are unique, so its row is the only one there can be; rows
// that a table carries behind the master's are walked.
StatusVariable* FindVisible(const char* name, StatusVariable* table, ModelMask filter) {
    if (const int index = IndexOf(name); index >= 0) {
        return Visible(table[index], filter) ? &table[index] : nullptr;
    }
    for (StatusVariable* row = table + StatusVariableCount; row->Name != nullptr; ++row) {
        if (std::strcmp(row->Name, name) == 0 && Visible(*row, filter)) {
            return row;
        }
    }
    return nullptr;
}

}  // namespace

/* FindVariable: the row of that name that is visible on the port. */
StatusVariable* FindVariable(const char* name, StatusVariable* table, const PortContext* port) {
    if (name == nullptr || table == nullptr || port == nullptr) {
        return nullptr;
    }
    return FindVisible(name, table, port->modelMask);
}

/* GetVariable: as FindVariable; with create 1 the row comes only with a value
   block in place. */
StatusVariable* GetVariable(const char* name, StatusVariable* table, const PortContext* port,
                            int create) {
    StatusVariable* row = FindVariable(name, table, port);
    if (row == nullptr || create == 0 || row->Value != nullptr) {
        return row;
    }
    // A counted row without a value has no count, so no size to create.
    const uint32_t size = VariableSize(row);
    if (size == 0 || size == CountedSize) {
        return nullptr;
    }
    void* block = GlobalAlloc(GPTR, size);
    if (block == nullptr) {
        return nullptr;
    }
    row->Value = block;
    return row;
}

/* FindVariableForClient: the row as the client behind `link` sees it; with no
   link, as the port sees it. */
StatusVariable* FindVariableForClient(const char* name, StatusVariable* table,
                                      const ManagerLink* link, const PortContext* port) {
    if (link == nullptr) {
        return FindVariable(name, table, port);
    }
    if (name == nullptr || table == nullptr) {
        return nullptr;
    }
    return FindVisible(name, table, link->modelMask);
}

/* SetVariable: stores the bytes if they differ from the row's value. 1 when
   something was stored; the caller then marks the row dirty. */
int SetVariable(StatusVariable* row, const void* bytes) {
    if (row == nullptr || bytes == nullptr) {
        return 0;
    }
    // A counted row without a value has no size yet: its writer puts in a
    // block of its own.
    const uint32_t size = VariableSize(row);
    if (size == 0 || size == CountedSize) {
        return 0;
    }
    if (row->Value != nullptr) {
        if (std::memcmp(row->Value, bytes, size) == 0) {
            return 0;
        }
    } else {
        void* block = GlobalAlloc(GPTR, size);
        if (block == nullptr) {
            return 0;
        }
        row->Value = block;
    }
    std::memcpy(row->Value, bytes, size);
    return 1;
}

/* VariableSize: the bytes of the row's value; a counted value is its count
   word and that many elements. */
uint32_t VariableSize(const StatusVariable* row) {
    if (row == nullptr) {
        return 0;
    }
    if (row->Size != CountedSize) {
        return row->Size;
    }
    if (row->Value == nullptr) {
        return CountedSize;
    }
    uint32_t count = 0;
    std::memcpy(&count, row->Value, sizeof count);
    return row->ElementSize * count + 4;
}

int UpdateVariable(StatusVariable* row, const void* bytes) {
    if (SetVariable(row, bytes) == 0) {
        return 0;
    }
    row->Dirty = 1;
    return 1;
}

int ReplaceVariable(StatusVariable* row, const void* bytes, uint32_t blockSize) {
    if (row == nullptr || bytes == nullptr) {
        return 0;
    }
    uint32_t size = row->Size;
    if (size == CountedSize) {
        uint32_t count = 0;
        std::memcpy(&count, bytes, sizeof count);
        size = row->ElementSize * count + 4;
    }
    if (row->Value != nullptr && VariableSize(row) == size && size <= blockSize &&
        std::memcmp(row->Value, bytes, size) == 0) {
        return 0;
    }
    void* block = GlobalAlloc(GPTR, blockSize);
    if (block == nullptr) {
        return 0;
    }
    std::memcpy(block, bytes, blockSize);
    GlobalFree(row->Value);
    row->Value = block;
    row->Dirty = 1;
    return 1;
}

}  // namespace langmon
