// The LM_ values: a flat picture of the printer and its trays that a caller of
// GetPrinterDataFromPort reads by name. The block lives in the PortContext;
// one table for the whole process gives each value its name and points at
// the block of the port that last got a status record.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;
struct StatusRecord;

struct LmTray {
    uint32_t TrayIndex;
    uint32_t InputType;
    uint32_t TrayType;
    uint32_t MediaType;
    uint32_t MediaSize;
    uint32_t MediaDimFeedDirChosen;   // tenths of a millimetre; 0xFFFFFFFF: none
    uint32_t MediaDimXFeedDirChosen;  // tenths of a millimetre; 0xFFFFFFFF: none
    uint32_t MediaDirection;
};

struct LmBlock {
    char LM_SysName[32];
    uint32_t LM_MemorySizeInKByte;
    uint32_t LM_MemorySizeInMByte;
    uint16_t LM_RamDisk;
    uint16_t LM_DuplexModule;
    uint32_t LM_InputTray;  // trays present, 0 to 3; the tray records follow it
    LmTray LmTrays[3];
};

struct LmValue {
    const char* LmName;  // null ends the table
    void* LmValue;       // into the bound port's LmBlock; for "GetTime" the tick itself
    uint32_t LmSize;
};

constexpr int LmValueCount = 31;
// The process's one table: 31 rows and the row that ends it. Its rows change
// only under LockLmValues.
extern LmValue LmValueTable[LmValueCount + 1];

// Makes the table's lock, once per process; InitializeMonitorEx calls it.
void InitializeLmValues();
// The table's own lock; nothing else is taken while it is held.
void LockLmValues();
void UnlockLmValues();

// One row of the 27 of paper size numbers and what the LM_ interface calls them.
struct MediaDimensions {
    uint16_t PaperSize;
    uint32_t MediaSize;
    uint32_t Feed;       // tenths of a millimetre along the feed
    uint32_t CrossFeed;  // and across it
};
extern const MediaDimensions MediaDimensionTable[27];

// The tray part of the LM_ values from the entries of the new PrinterBinConfig
// value (the 40 bytes: count, then three entries) and the record's tray words.
void FillLmTrays(const StatusRecord* record, const uint8_t* binConfig, PortContext* port);
// MediaSize and both dimensions of a tray; zeros for a size the table lacks.
void LookupMediaDimensions(uint32_t paperSize, LmTray* tray);
// Points the table at this port's LmBlock and stamps "GetTime".
void BindLmValues(PortContext* port);
// A port that goes away while the table points into it takes the table back
// to "never read": every LmValue null, "GetTime" 0xFFFFFFFF.
void UnbindLmValues(PortContext* port);

// 1 when the values were never read or are a second old or more.
int LmValuesStale();
// One row's value, by its exact name: with `outSize` 0 its size goes to
// `returned`; otherwise the smaller of `outSize` and the size is copied to
// `out` and `returned` isn't written. 0 for a name that is no row, or a row
// without a value when bytes were asked for.
int ReadLmValue(const char* name, void* out, uint32_t outSize, uint32_t* returned);

}  // namespace langmon
