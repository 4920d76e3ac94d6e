// The LM_ values: a flat picture of the printer and its trays that a caller of
// GetPrinterDataFromPort reads by name. The block lives in the PortContext.
#pragma once

#include <cstdint>

namespace langmon {

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

}  // namespace langmon
