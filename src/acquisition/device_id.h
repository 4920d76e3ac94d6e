// The fields of the printer's IEEE 1284 device ID: who it is, which languages
// it speaks and, in "STS:", its whole state. Fields are `KEY:value;`, keys
// compared byte for byte and case-sensitively, right behind the ';' before.
#pragma once

#include "variables/model_mask.h"

#include <cstdint>

namespace langmon {

struct PortContext;

// The printers the monitor knows, and the drivers that go with them.
struct ModelRow {
    const char* ModelName;  // null ends the table
    uint32_t ModelNameLength;
    const char* DriverName;
    uint32_t DriverNameLength;
    ModelMask RowMask;
};
extern const ModelRow ModelTable[7];

// The printer languages the monitor can name in EmulationInfo.
struct EmulationRow {
    const char* EmulationName;
    uint32_t EmulationCode;
};
extern const EmulationRow EmulationTable[2];

// `text` is a private, writable copy of the device ID, which this consumes:
// the ';' it passes become NUL. The value of the last "MODEL:" or "MDL:"
// field, or null.
char* FindModelField(char* text);
// Sets the port's modelMask from the model field of `text` (consumed as
// above); 1 if the model is in the ModelTable. Without a model field the
// mask stays as it was.
int IdentifyPrinter(PortContext* port, char* text);

// The fields of a known model's device ID: maker, model, languages and the
// STS block. The ';' it cuts for a moment are put back.
void ApplyDeviceId(char* text, PortContext* port);
// The fields of any other printer's device ID: maker and model alone.
void ApplyForeignDeviceId(char* text, PortContext* port);

// 1 if the variable took a new value.
int StoreManufacturer(const char* value, PortContext* port);
// Also LM_SysName.
int StoreModel(const char* value, PortContext* port);
// `value` runs to the next ';' or NUL.
int StoreEmulations(const char* value, PortContext* port);

}  // namespace langmon
