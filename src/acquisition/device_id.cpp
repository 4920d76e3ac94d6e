#include "acquisition/device_id.h"

#include "acquisition/status_record.h"
#include "acquisition/sts_block.h"
#include "manager/manager_link.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/memory.h"
#include "platform/text.h"
#include "variables/publication.h"
#include "variables/spooler_status.h"
#include "variables/status_variable.h"

#include <algorithm>
#include <cstring>

namespace langmon {

const ModelRow ModelTable[7] = {
    {"Laser Printer 6200tx", 20, "Quor Printer 6200tx PS", 22, ModelMask6200},
    {"Laser Printer 6200tx", 20, "Quor Printer 6200tx mono PS", 27, ModelMask6200},
    {"Laser Printer 6200tx", 20, "Quor Laser Printer 6200tx PCL6", 30, ModelMask6200},
    {"Laser Printer 6300tx", 20, "Quor Printer 6300tx PS", 22, ModelMask6300},
    {"Laser Printer 6300tx", 20, "Quor Printer 6300tx mono PS", 27, ModelMask6300},
    {"Laser Printer 6300tx", 20, "Quor Laser Printer 6300tx PCL6", 30, ModelMask6300},
    {nullptr, 0, nullptr, 0, {0, 0}},
};

const EmulationRow EmulationTable[2] = {
    {"NPDL", 0},
    {"NMPS-C", 5},
};

namespace {

constexpr std::size_t TextValueBytes = 64;  // the block of a maker or model value

// The key at `cursor` if it is this one: the cursor moves behind it.
bool TakeKey(char** cursor, const char* key) {
    const std::size_t length = std::strlen(key);
    if (std::strncmp(*cursor, key, length) != 0) return false;
    *cursor += length;
    return true;
}

// Stores the value that starts at `cursor` and runs to its field's ';' (or
// the text's end), with the ';' cut for the store and put back.
int StoreField(char* cursor, int (*store)(const char*, PortContext*), PortContext* port) {
    char* end = std::strchr(cursor, ';');
    if (end == nullptr) return store(cursor, port);
    *end = '\0';
    const int result = store(cursor, port);
    *end = ';';
    return result;
}

// The cursor behind the next ';', or null when the walk is over.
char* NextField(char* cursor) {
    char* end = std::strchr(cursor, ';');
    if (end == nullptr || end[1] == '\0') return nullptr;
    return end + 1;
}

// A text variable's new value, the text cut to 63 bytes in a 64-byte block.
int StoreText(const char* name, const char* value, PortContext* port) {
    char text[TextValueBytes] = {};
    std::strncpy(text, value, TextValueBytes - 1);
    LockPort(port);
    StatusVariable* row = GetVariable(name, port->variables, port, 0);
    int changed = 0;
    if (row != nullptr && (row->Value == nullptr || lstrcmpA(static_cast<char*>(row->Value), text) != 0)) {
        void* block = GlobalAlloc(GPTR, TextValueBytes);
        if (block != nullptr) {
            std::memcpy(block, text, TextValueBytes);
            GlobalFree(row->Value);
            row->Value = block;
            row->Dirty = 1;
            changed = 1;
        }
    }
    UnlockPort(port);
    return changed;
}

}  // namespace

/* FindModelField: the value of the last model field. The text is cut up on
   the way. */
char* FindModelField(char* text) {
    char* result = nullptr;
    char* cursor = text;
    while (*cursor != '\0') {
        char* colon = std::strchr(cursor, ':');
        if (colon == nullptr) break;
        const std::size_t keyLength = static_cast<std::size_t>(colon - cursor) + 1;
        if ((keyLength == 6 && std::strncmp(cursor, "MODEL:", 6) == 0) ||
            (keyLength == 4 && std::strncmp(cursor, "MDL:", 4) == 0)) {
            result = colon + 1;
        }
        char* end = std::strchr(colon + 1, ';');
        if (end == nullptr) break;
        *end = '\0';
        cursor = end + 1;
    }
    return result;
}

/* IdentifyPrinter: a known model or not, by the model table. */
int IdentifyPrinter(PortContext* port, char* text) {
    const ModelMask before = port->modelMask;
    int result = 0;
    if (const char* model = FindModelField(text); model != nullptr) {
        const std::size_t length = std::strlen(model);
        ModelMask found{0, 0};
        for (const ModelRow* row = ModelTable; row->ModelName != nullptr; ++row) {
            if (length == row->ModelNameLength && std::memcmp(model, row->ModelName, length) == 0) {
                found = row->RowMask;
                result = 1;
                break;
            }
        }
        SetMask(&port->modelMask, found.low, found.high);
    }
    if (HasPortFlag(port, PF_JOB_ACTIVE) || port->jobListHead != nullptr) {
        return result;
    }
    // Another model stands on the port: its clients see other rows now.
    if (MasksDiffer(before.low, before.high, port->modelMask.low, port->modelMask.high)) {
        for (ManagerLink* link = port->managers; link != nullptr; link = link->next) {
            ReplayVariables(port, link);
        }
    }
    return result;
}

int StoreManufacturer(const char* value, PortContext* port) {
    return StoreText("PrinterManufacturer", value, port);
}

int StoreModel(const char* value, PortContext* port) {
    LockPort(port);
    // The LM_ name is the model text in its 32 bytes, with no room kept for a NUL.
    std::memset(port->lmBlock.LM_SysName, 0, sizeof port->lmBlock.LM_SysName);
    std::memcpy(port->lmBlock.LM_SysName, value,
                strnlen(value, sizeof port->lmBlock.LM_SysName));
    UnlockPort(port);
    return StoreText("PrinterModel", value, port);
}

/* StoreEmulations: the languages of "CMD:" as codes, ascending. The walk
   looks for known names anywhere, not for whole tokens: "XNPDL" is NPDL. */
int StoreEmulations(const char* value, PortContext* port) {
    if (port->variables == nullptr) return 0;
    constexpr std::size_t OnStack = 64;
    uint32_t stackCodes[1 + OnStack];
    // Every name is at least four bytes long, which bounds the list.
    std::size_t length = 0;
    while (value[length] != '\0' && value[length] != ';') ++length;
    const std::size_t most = length / 4;
    uint32_t* block = most <= OnStack ? stackCodes
                                      : static_cast<uint32_t*>(GlobalAlloc(GPTR, 4 * (most + 1)));
    if (block == nullptr) return 0;
    uint32_t count = 0;
    for (std::size_t at = 0; at < length;) {
        if (value[at] == ',') {
            ++at;
            continue;
        }
        bool matched = false;
        for (const EmulationRow& row : EmulationTable) {
            const std::size_t nameLength = std::strlen(row.EmulationName);
            if (std::strncmp(value + at, row.EmulationName, nameLength) == 0) {
                block[1 + count++] = row.EmulationCode;
                at += nameLength;
                matched = true;
                break;
            }
        }
        if (!matched) ++at;
    }
    std::stable_sort(block + 1, block + 1 + count);
    block[0] = count;
    LockPort(port);
    const int changed = ReplaceVariable(GetVariable("EmulationInfo", port->variables, port, 0), block,
                                        4 * (count + 1));
    UnlockPort(port);
    if (block != stackCodes) GlobalFree(block);
    return changed;
}

/* ApplyDeviceId: every field of a known model's device ID that says
   something, the status block among them. */
void ApplyDeviceId(char* text, PortContext* port) {
    for (char* cursor = text; cursor != nullptr && *cursor != '\0'; cursor = NextField(cursor)) {
        if (TakeKey(&cursor, "MANUFACTURER:") || TakeKey(&cursor, "MFG:")) {
            StoreField(cursor, StoreManufacturer, port);
        } else if (TakeKey(&cursor, "MDL:")) {
            StoreField(cursor, StoreModel, port);
        } else if (TakeKey(&cursor, "CMD:")) {
            StoreEmulations(cursor, port);
        } else if (TakeKey(&cursor, "STS:")) {
            StatusRecord record;
            if (DecodeStsBlock(cursor, &record) && ApplyStatusRecord(&record, port) != 0) {
                PublishVariables(port);
                NotifySpoolerStatus(port);
            }
        }
    }
}

/* ApplyForeignDeviceId: of a printer the monitor doesn't know, maker and
   model alone. The caller tells the spooler; a change here is published. */
void ApplyForeignDeviceId(char* text, PortContext* port) {
    int changed = 0;
    for (char* cursor = text; cursor != nullptr && *cursor != '\0'; cursor = NextField(cursor)) {
        if (TakeKey(&cursor, "MFG:") || TakeKey(&cursor, "MANUFACTURER:")) {
            changed |= StoreField(cursor, StoreManufacturer, port);
        } else if (TakeKey(&cursor, "MDL:") || TakeKey(&cursor, "MODEL:")) {
            changed |= StoreField(cursor, StoreModel, port);
        }
    }
    if (changed != 0) PublishVariables(port);
}

}  // namespace langmon
