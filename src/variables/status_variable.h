// The status variables: 46 named rows per port that hold everything the monitor
// knows about the printer on it. The names are the contract with the clients.
#pragma once

#include "variables/model_mask.h"

#include <cstdint>

namespace langmon {

struct PortContext;
struct ManagerLink;

// RefreshClass bits: what a client's refresh must do for the variable.
enum RefreshClassBits : uint32_t {
    RefreshPoll = 0x01,
    RefreshPollOnline = 0x02,
    RefreshPollAlways = 0x04,
    RefreshInfoStatus = 0x08,
    RefreshInfoServiceTag = 0x10,
};

// Attributes bits.
enum VariableAttributeBits : uint32_t {
    VarReplayToNewClient = 0x01,  // offered to a client at the moment it binds
    VarKeepValue = 0x02,          // the value stays in the row after publication
    VarJobOpen = 0x100,
    VarJobClosing = 0x200,
};

constexpr uint32_t CountedSize = 0xFFFFFFFFu;  // Size of a counted value

struct StatusVariable {
    const char* Name;  // null ends the table
    uint32_t ModelMaskLow;
    uint32_t ModelMaskHigh;
    void* Value;  // owned, from GlobalAlloc; null while the row has no value
    uint32_t Size;
    uint32_t ElementSize;
    uint32_t PublishType;
    uint32_t Dirty;
    uint32_t RefreshClass;
    uint32_t Attributes;
};

constexpr int StatusVariableCount = 46;
// The master copy: 46 rows and the all-zero row that ends the table.
extern const StatusVariable StatusVariableTable[StatusVariableCount + 1];

// The lookups take a port's table, which begins with a whole copy of the
// master: a master name stands at the same row in both.
StatusVariable* FindVariable(const char* name, StatusVariable* table, const PortContext* port);
StatusVariable* GetVariable(const char* name, StatusVariable* table, const PortContext* port,
                            int create);
StatusVariable* FindVariableForClient(const char* name, StatusVariable* table,
                                      const ManagerLink* link, const PortContext* port);
int SetVariable(StatusVariable* row, const void* bytes);
uint32_t VariableSize(const StatusVariable* row);

// The writers' step: the bytes become the row's value and the row is marked
// Dirty, unless the value already reads so. 1 when something changed; 0 also
// when there is no row or no block could be had, and the old value stays.
int UpdateVariable(StatusVariable* row, const void* bytes);
// The same for a value that may change size (a counted value): a new block of
// `blockSize` bytes takes the old one's place. The values compare over the
// size the row's rule gives them.
int ReplaceVariable(StatusVariable* row, const void* bytes, uint32_t blockSize);

}  // namespace langmon
