// The one status the printer shows for its whole state: the status code of
// its status block, the engine state, the PJL status code and the two panel
// lines. Several things can hold at once; the most urgent one is shown.
#pragma once

#include "emulator/printer_state.h"

#include <array>
#include <cstdint>
#include <string>

namespace langmon::emulator {

// What the engine is doing, which the state record alone doesn't say.
enum class Activity : uint8_t {
    Idle,
    Busy,        // a job is in the printer and no page is on its way
    Printing,    // a page is on its way
    Cancelling,  // a cancelled job is being flushed
    WarmingUp,
};

struct PrinterCondition {
    uint32_t statusCode = 0;  // class in bits 31-8, detail in bits 7-0
    uint8_t engineState = 0;  // 1: printing, 2: busy, 0: neither
    uint32_t pjlCode = 0;     // the CODE of INFO STATUS and USTATUS DEVICE
    bool online = true;
    std::array<std::string, 2> panel;  // UTF-8, at most 16 characters each
};

// The printer's status codes, by class. A detail of 0 to 3 after the class of
// supply codes names the toner (cyan, magenta, yellow, black), 4 the unit.
namespace status_code {
inline constexpr uint32_t HardwareFailure = 0x0100;
inline constexpr uint32_t Cancelling = 0x0400;
inline constexpr uint32_t PaperJam = 0x0700;
inline constexpr uint32_t SupplyEmpty = 0x0800;  // + item
inline constexpr uint32_t UnitFault = 0x0805;
inline constexpr uint32_t SupplyFault = 0x0815;  // + item
inline constexpr uint32_t CoverOpen = 0x0900;
inline constexpr uint32_t PaperOut = 0x0A00;
inline constexpr uint32_t OutOfMemory = 0x0A03;
inline constexpr uint32_t OperatorAttention = 0x0C01;
inline constexpr uint32_t Busy = 0x0C02;
inline constexpr uint32_t Printing = 0x0D00;
inline constexpr uint32_t WasteEmpty = 0x0E03;
inline constexpr uint32_t SupplyNearEmpty = 0x0E04;  // + toner
inline constexpr uint32_t WasteNearEmpty = 0x0E07;
inline constexpr uint32_t SupplyLow = 0x0E08;  // + item
inline constexpr uint32_t WasteLow = 0x0E0D;
inline constexpr uint32_t WarmingUp = 0x0F00;
inline constexpr uint32_t Ready = 0x0F01;
}  // namespace status_code

// Whether the state lets the engine feed a page: no failure, closed covers,
// no jam, every toner fitted and not empty, a working unit, paper in the
// feeding tray, memory, no call for the operator.
bool EngineCanPrint(const PrinterState& state);

// Whether the feeding tray has run out (or isn't there).
bool FeedTrayEmpty(const PrinterState& state);

PrinterCondition EvaluateCondition(const PrinterState& state, Activity activity);

}  // namespace langmon::emulator
