// What a decoded STS block does to the port's status variables: memory,
// covers, toner, unit, jams, trays, options, supplies, and the one Condition
// that clients get as PrinterStatus and IconState.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;
struct StatusRecord;

// Applies the record, whose StatusCode is still the printer's. 1 if
// PrinterStatus or IconState took a new value; the caller then publishes.
int ApplyStatusRecord(StatusRecord* record, PortContext* port);

// The Condition order: a lower number is the more urgent one, and a paper
// problem (18) gives way to paper out or an empty feeding tray. 0 stays 0.
void RaiseCondition(StatusRecord* record, uint32_t condition);

// PrinterStatus and IconState of a Condition.
struct ConditionStatus {
    uint32_t StatusWord1;
    uint32_t StatusWord2;
    uint32_t IconState;
};
ConditionStatus StatusOfCondition(uint32_t condition);

// One entry of PrinterOptConfig.
struct OptionEntry {
    uint16_t OptionId;
    uint16_t OptionSubId;
    uint32_t OptionValue;
};
static_assert(sizeof(OptionEntry) == 8);

// Change PrinterOptConfig; 1 if the variable changed.
int AddOption(uint16_t id, uint16_t subId, uint32_t value, PortContext* port);
int RemoveOption(uint16_t id, uint16_t subId, PortContext* port);
// Puts `entry` into the `count` entries of `list`, which has room for one more.
void InsertOption(const OptionEntry& entry, OptionEntry* list, uint32_t* count);

// The sizes of the tray values.
constexpr uint32_t BinConfigBytes = 40;
constexpr uint32_t BinEntryBytes = 12;

}  // namespace langmon
