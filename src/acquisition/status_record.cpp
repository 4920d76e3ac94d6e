#include "acquisition/status_record.h"

#include "acquisition/lm_values.h"
#include "acquisition/sts_block.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/memory.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <cstring>

namespace langmon {

namespace {

StatusVariable* Row(PortContext* port, const char* name, int create = 1) {
    return GetVariable(name, port->variables, port, create);
}

void UpdateWord(PortContext* port, const char* name, uint32_t value) {
    UpdateVariable(Row(port, name), &value);
}

struct ConditionRow {
    uint32_t Condition;
    ConditionStatus Status;
};

// What clients see of each Condition; any other gives three zero words and
// IconState 0.
constexpr ConditionRow ConditionRows[] = {
    {7, {0x00000080, 0, 1}},          {10, {0, 0x00008000, 1}}, {11, {0, 0x00002000, 1}},
    {12, {0x80000000, 0, 1}},         {13, {0x00000004, 0, 1}}, {15, {0x00000008, 0, 1}},
    {16, {0, 0x00010000, 1}},         {17, {0, 0x00004000, 1}}, {18, {0, 0x04000000, 1}},
    {19, {0, 0x00040000, 1}},         {23, {0, 0x00200000, 1}}, {26, {0, 0x40000000, 1}},
    {27, {0, 0x00800000, 1}},         {28, {0, 0x00001000, 1}}, {30, {0, 0x00000200, 2}},
    {31, {0, 0x00000010, 2}},         {33, {0, 0x00000008, 0}}, {38, {0, 0x00000002, 2}},
    {40, {0, 0x00000040, 0}},         {41, {0, 0x00000001, 0}},
};

uint8_t SupplyLevel(uint16_t word) {
    return word == SupplyMarkerWord ? 254 : static_cast<uint8_t>(SupplyRemain(word));
}

void ApplyMemory(const StatusRecord* record, PortContext* port) {
    port->lmBlock.LM_MemorySizeInMByte = record->MemoryUnits * 32u;
    port->lmBlock.LM_MemorySizeInKByte = record->MemoryUnits * 32768u;
    // A printer that reports no memory leaves the last figure standing.
    if (record->MemoryUnits != 0) {
        UpdateWord(port, "PrinterMemory", record->MemoryUnits * 32768u);
    }
}

void ApplyCovers(StatusRecord* record, PortContext* port) {
    const uint32_t open = record->CoverWord ^ CoversClosed;
    UpdateWord(port, "ErrCoverOpen", open);
    if (open != 0) RaiseCondition(record, 10);
}

void ApplyToner(const StatusRecord* record, PortContext* port) {
    uint8_t levels[4];
    for (int i = 0; i < 4; ++i) levels[i] = SupplyLevel(record->SupplyWord[i]);
    UpdateVariable(Row(port, "TonerRemain"), levels);
}

void ApplyCru(const StatusRecord* record, PortContext* port) {
    const uint8_t levels[4] = {SupplyLevel(record->CruWord), 0, 0, 0};
    UpdateVariable(Row(port, "CRURemain"), levels);
}

void ApplyJams(StatusRecord* record, PortContext* port) {
    // Bit 6 is no jam place: the places above it close the gap.
    const uint32_t places = (record->JamWord & 0x3F) + ((record->JamWord >> 1) & 0xFFFC0);
    UpdateWord(port, "ErrPaperJam", places);
    if (places != 0) RaiseCondition(record, 16);
    if ((record->JamWord & 0x40) != 0) RaiseCondition(record, 15);
}

// One 12-byte entry of PrinterBinConfig for a tray word.
void FillBinEntry(uint8_t* entry, uint32_t slot, uint16_t word) {
    const uint32_t kind = TrayKind(word);
    const uint16_t binId = BinIdTable[slot];
    const uint16_t inputType = BinInputTypeTable[kind == 2 && TrayVariant(word) ? 4 : kind];
    const uint32_t sizeIndex = TrayMediaSize(word);
    const uint16_t mediaSize = sizeIndex < MediaSizeCount ? MediaSizeTable[sizeIndex] : NoPaperSize;
    // Only a normal cassette tells "some paper" apart from empty; the others
    // read as if bit 13 were set.
    const uint32_t levelIndex = TrayLevel(word) | (kind != 2 ? 0x2 : 0);
    std::memcpy(entry, &binId, 2);
    std::memcpy(entry + 2, &inputType, 2);
    std::memcpy(entry + 4, &mediaSize, 2);
    entry[6] = BinLevelTable[levelIndex];
    entry[7] = BinMediaTypeTable[TrayMediaType(word)];
}

void ApplyTrays(StatusRecord* record, PortContext* port) {
    uint8_t config[BinConfigBytes] = {};
    uint32_t count = 0;
    for (uint32_t slot = 0; slot < 3; ++slot) {
        if (TrayKind(record->TrayWord[slot]) == 0) continue;
        FillBinEntry(config + 4 + BinEntryBytes * count, slot, record->TrayWord[slot]);
        ++count;
    }
    std::memcpy(config, &count, sizeof count);
    // A new value needs its block before anything changes: without it the
    // trays change nowhere, so PrinterBinConfig, their LM_ picture and the
    // feeder never disagree. Trays as they were cost no block at all.
    const uint32_t filled = 4 + BinEntryBytes * count;  // the rest of the 40 bytes is zero
    StatusVariable* row = Row(port, "PrinterBinConfig", 0);
    void* block = nullptr;
    if (row != nullptr && (row->Value == nullptr || VariableSize(row) != filled ||
                           std::memcmp(row->Value, config, filled) != 0)) {
        block = GlobalAlloc(GPTR, BinConfigBytes);
        if (block == nullptr) return;
    }
    FillLmTrays(record, config, port);
    if (block != nullptr) {
        std::memcpy(block, config, sizeof config);
        GlobalFree(row->Value);
        row->Value = block;
        row->Dirty = 1;
    }

    // The feeding tray. The feed word's fourth slot names no tray: it
    // needs tray 0 and stands for the first entry.
    const uint32_t feedSlot = FeedSlot(record->FeedWord);
    const uint16_t neededBinId = feedSlot < 3 ? BinIdTable[feedSlot] : 0;
    uint32_t feeder = 0;
    for (uint32_t i = 0; neededBinId != 0 && i < 3; ++i) {
        uint16_t binId = 0;
        std::memcpy(&binId, config + 4 + BinEntryBytes * i, 2);
        if (binId == neededBinId) {
            feeder = i;
            break;
        }
    }
    const uint8_t* feederEntry = config + 4 + BinEntryBytes * feeder;
    if (port->jobListHead == nullptr) {
        return;  // the feeder matters only while the port has jobs
    }
    if (StatusVariable* row = Row(port, "CurrentFeeder"); row != nullptr) {
        uint16_t binId = 0;
        std::memcpy(&binId, feederEntry, 2);
        const uint32_t value = binId;
        SetVariable(row, &value);
        row->Dirty = 1;
    }
    uint8_t needed[8] = {};
    const uint32_t sizeIndex = FeedMediaSize(record->FeedWord);
    const uint16_t neededSize = sizeIndex < MediaSizeCount ? MediaSizeTable[sizeIndex] : NoPaperSize;
    std::memcpy(needed, &neededBinId, 2);
    std::memcpy(needed + 2, &neededSize, 2);
    needed[5] = BinMediaTypeTable[FeedMediaType(record->FeedWord)];
    if (record->StatusCode == 18 && feederEntry[6] == 0) {
        RaiseCondition(record, 27);
    }
    UpdateVariable(Row(port, "ErrNoPaper2"), needed);
}

struct OptionSource {
    uint16_t Id;
    bool (*Present)(const StatusRecord*);
};

constexpr OptionSource OptionSources[] = {
    {1, [](const StatusRecord* r) { return (r->OptionWord & 0x1) != 0; }},
    {7001, [](const StatusRecord* r) { return (r->OptionWord & 0x2) != 0; }},
    {3001, [](const StatusRecord* r) { return (r->OptionWord & 0x4) != 0; }},
    {8001, [](const StatusRecord* r) { return SupplyFitted(r->SupplyWord[0]); }},
    {8002, [](const StatusRecord* r) { return SupplyFitted(r->SupplyWord[1]); }},
    {8003, [](const StatusRecord* r) { return SupplyFitted(r->SupplyWord[2]); }},
    {8004, [](const StatusRecord* r) { return SupplyFitted(r->SupplyWord[3]); }},
};

void ApplyOptions(const StatusRecord* record, PortContext* port) {
    for (const OptionSource& source : OptionSources) {
        if (source.Present(record)) {
            AddOption(source.Id, source.Id, 0, port);
        } else {
            RemoveOption(source.Id, source.Id, port);
        }
    }
    port->lmBlock.LM_DuplexModule = (record->OptionWord & 0x01) != 0 ? 1 : 0;
    port->lmBlock.LM_RamDisk = (record->OptionWord & 0x80) != 0 ? 1 : 0;
}

void ApplySupplies(StatusRecord* record, PortContext* port) {
    if (record->StatusCode == 7) {
        UpdateWord(port, "ErrHWError", record->HwErrorHigh * 65536u + record->HwErrorLow);
    }
    // The five words with a level, then the sixth item of the aux byte.
    const uint16_t words[5] = {record->SupplyWord[0], record->SupplyWord[1], record->SupplyWord[2],
                               record->SupplyWord[3], record->CruWord};
    uint32_t masks[4] = {};  // by SupplyState; state 3 has nothing to report
    uint32_t flags = 0;
    for (int i = 0; i < 5; ++i) {
        masks[SupplyState(words[i])] |= 1u << i;
        if (SupplyFault(words[i])) flags |= 1u << i;
    }
    masks[record->AuxByte & 0x3] |= 0x20;
    const bool unitFault = CruFault(record->CruWord);
    if (masks[0] != 0) {
        RaiseCondition(record, 11);
    } else if (flags != 0) {
        RaiseCondition(record, 12);
        if (unitFault) flags |= 0x80;
    } else if (unitFault) {
        flags |= 0x80;
        RaiseCondition(record, 13);
    } else if (masks[1] != 0) {
        RaiseCondition(record, 17);
    } else if (masks[2] != 0) {
        RaiseCondition(record, 38);
    }
    if (record->CruWord == SupplyMarkerWord || record->StatusCode == 39) {
        flags |= 0x40;
    }
    UpdateWord(port, "ErrSupplies", masks[0] | masks[1] << 8 | masks[2] << 16 | flags << 24);

    // An empty or failed supply shows as 255, whatever level it reported.
    const uint32_t gone = (masks[0] | flags) & 0x1F;
    if (gone != 0) {
        if (StatusVariable* row = Row(port, "TonerRemain"); row != nullptr) {
            auto* levels = static_cast<uint8_t*>(row->Value);
            for (int i = 0; i < 4; ++i) {
                if ((gone & (1u << i)) != 0) levels[i] = 255;
            }
            row->Dirty = 1;
        }
        if (StatusVariable* row = Row(port, "CRURemain"); row != nullptr) {
            if ((gone & 0x10) != 0) static_cast<uint8_t*>(row->Value)[0] = 255;
            row->Dirty = 1;
        }
    }
    UpdateWord(port, "ErrPeriodicChange", ((record->AuxByte >> 4) & 0x3) == 1 ? 1 : 0);
}

int ApplyPrinterStatus(StatusRecord* record, PortContext* port) {
    BindLmValues(port);
    const uint32_t idle = record->StatusCode;
    if (idle == 39 || idle == 40 || idle == 41) {
        // A printer that stays idle while jobs are listed and none is being
        // sent has lost them: the third such record in a row closes them.
        if (port->jobListHead != nullptr && !HasPortFlag(port, PF_JOB_ACTIVE)) {
            if (port->cancelStateCount == 2) {
                CancelJobTracking(port, 1);
                port->cancelStateCount = 0;
            } else {
                ++port->cancelStateCount;
            }
        } else {
            port->cancelStateCount = 0;
        }
    }
    if (record->EngineState == 1 || record->StatusCode == 33 || port->jobListHead != nullptr) {
        RaiseCondition(record, 33);
    } else if (record->EngineState == 2) {
        RaiseCondition(record, 30);
    }
    if (record->StatusCode == 4) {
        UpdateJobStatus(port, 4, 1);
    }
    const ConditionStatus status = StatusOfCondition(record->StatusCode);
    const uint32_t words[3] = {0, status.StatusWord1, status.StatusWord2};
    const int changed = UpdateVariable(Row(port, "PrinterStatus"), words);
    if (UpdateVariable(Row(port, "IconState"), &status.IconState) != 0) {
        return 1;
    }
    return changed;
}

}  // namespace

void RaiseCondition(StatusRecord* record, uint32_t condition) {
    if (record->StatusCode > condition) {
        record->StatusCode = condition;
    } else if (record->StatusCode == 18 && (condition == 26 || condition == 27)) {
        record->StatusCode = condition;
    }
}

ConditionStatus StatusOfCondition(uint32_t condition) {
    for (const ConditionRow& row : ConditionRows) {
        if (row.Condition == condition) return row.Status;
    }
    return {0, 0, 0};
}

/* ApplyStatusRecord: the nine steps, in an order that matters: later steps
   read the Condition that earlier ones raised, and the supplies step
   overrides the levels that the toner and unit steps stored. */
int ApplyStatusRecord(StatusRecord* record, PortContext* port) {
    MapStatusCode(record);
    LockPort(port);
    ApplyMemory(record, port);
    ApplyCovers(record, port);
    ApplyToner(record, port);
    ApplyCru(record, port);
    ApplyJams(record, port);
    ApplyTrays(record, port);
    ApplyOptions(record, port);
    ApplySupplies(record, port);
    const int changed = ApplyPrinterStatus(record, port);
    UnlockPort(port);
    return changed;
}

/* InsertOption: the first entry stays first; an entry goes in front of the
   first smaller id that follows one at least as large, else at the end. */
void InsertOption(const OptionEntry& entry, OptionEntry* list, uint32_t* count) {
    uint32_t at = *count;
    for (uint32_t i = 0; *count >= 2 && i + 1 < *count; ++i) {
        if (list[i].OptionId >= entry.OptionId && list[i + 1].OptionId < entry.OptionId) {
            at = i + 1;
            break;
        }
    }
    std::memmove(list + at + 1, list + at, (*count - at) * sizeof(OptionEntry));
    list[at] = entry;
    ++*count;
}

namespace {

// The entries of PrinterOptConfig's value, or none.
uint32_t OptionCount(const StatusVariable* row) {
    uint32_t count = 0;
    if (row->Value != nullptr) std::memcpy(&count, row->Value, sizeof count);
    return count;
}
const OptionEntry* OptionAt(const StatusVariable* row, uint32_t i) {
    return reinterpret_cast<const OptionEntry*>(static_cast<const uint8_t*>(row->Value) + 4) + i;
}

// A value block of `capacity` entries with no entry yet.
uint8_t* NewOptionValue(uint32_t capacity) {
    return static_cast<uint8_t*>(GlobalAlloc(GPTR, 4 + capacity * sizeof(OptionEntry)));
}

void StoreOptionValue(StatusVariable* row, uint8_t* value) {
    GlobalFree(row->Value);
    row->Value = value;
    row->Dirty = 1;
}

}  // namespace

int AddOption(uint16_t id, uint16_t subId, uint32_t value, PortContext* port) {
    StatusVariable* row = Row(port, "PrinterOptConfig", 0);
    if (row == nullptr) return 0;
    const uint32_t old = OptionCount(row);
    for (uint32_t i = 0; i < old; ++i) {
        if (OptionAt(row, i)->OptionId == id && OptionAt(row, i)->OptionSubId == subId) return 0;
    }
    uint8_t* block = NewOptionValue(old + 1);
    if (block == nullptr) return 0;
    auto* list = reinterpret_cast<OptionEntry*>(block + 4);
    uint32_t count = 0;
    for (uint32_t i = 0; i < old; ++i) InsertOption(*OptionAt(row, i), list, &count);
    InsertOption(OptionEntry{id, subId, value}, list, &count);
    std::memcpy(block, &count, sizeof count);
    StoreOptionValue(row, block);
    return 1;
}

int RemoveOption(uint16_t id, uint16_t subId, PortContext* port) {
    StatusVariable* row = Row(port, "PrinterOptConfig", 0);
    if (row == nullptr) return 0;
    if (row->Value == nullptr) {
        uint8_t* block = NewOptionValue(0);
        if (block == nullptr) return 0;
        StoreOptionValue(row, block);
        return 1;
    }
    // The copy is made where it costs nothing: a poll removes every option
    // that is absent, and nearly always nothing changes.
    const uint32_t old = OptionCount(row);
    constexpr uint32_t OnStack = 32;
    uint8_t stackCopy[4 + OnStack * sizeof(OptionEntry)];
    uint8_t* copy = old <= OnStack ? stackCopy : NewOptionValue(old);
    if (copy == nullptr) return 0;
    auto* list = reinterpret_cast<OptionEntry*>(copy + 4);
    uint32_t count = 0;
    for (uint32_t i = 0; i < old; ++i) {
        const OptionEntry* entry = OptionAt(row, i);
        if (entry->OptionId == id && entry->OptionSubId == subId) continue;
        InsertOption(*entry, list, &count);
    }
    std::memcpy(copy, &count, sizeof count);
    const uint32_t bytes = 4 + count * static_cast<uint32_t>(sizeof(OptionEntry));
    int changed = 0;
    if (count != old || std::memcmp(copy, row->Value, bytes) != 0) {
        uint8_t* block = copy != stackCopy ? copy : NewOptionValue(count);
        if (block != nullptr) {
            if (block != copy) std::memcpy(block, copy, bytes);
            StoreOptionValue(row, block);
            changed = 1;
        }
        copy = block;
    }
    if (copy != stackCopy && changed == 0) GlobalFree(copy);
    return changed;
}

}  // namespace langmon
