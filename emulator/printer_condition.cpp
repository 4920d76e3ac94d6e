#include "emulator/printer_condition.h"

#include <cstdio>

namespace langmon::emulator {
namespace {

constexpr const char* TonerNames[] = {"Cyan", "Magenta", "Yellow", "Black"};

// Which supply item stops the engine, if any: 0 to 3 a toner, 4 the unit.
struct SupplyStop {
    uint32_t code = 0;
    std::string line2;
};

SupplyStop FindSupplyStop(const PrinterState& state) {
    for (int i = 0; i < 4; ++i) {
        const Toner& toner = state.toners[i];
        if (!toner.fitted || SupplyStateForLevel(toner.level) == SupplyState::Empty) {
            return {status_code::SupplyEmpty + i, std::string(TonerNames[i]) + " toner"};
        }
        if (toner.fault) return {status_code::SupplyFault + i, std::string(TonerNames[i]) + " toner"};
    }
    if (SupplyStateForLevel(state.unit.level) == SupplyState::Empty) {
        return {status_code::SupplyEmpty + 4, "Drum unit"};
    }
    if (state.unit.fault) return {status_code::UnitFault, "Drum unit"};
    return {};
}

// The least urgent codes: supplies that run low but still print.
SupplyStop FindSupplyWarning(const PrinterState& state) {
    for (int i = 0; i < 4; ++i) {
        if (SupplyStateForLevel(state.toners[i].level) == SupplyState::NearEmpty) {
            return {status_code::SupplyNearEmpty + i, std::string(TonerNames[i]) + " near end"};
        }
    }
    for (int i = 0; i < 4; ++i) {
        if (SupplyStateForLevel(state.toners[i].level) == SupplyState::Low) {
            return {status_code::SupplyLow + i, std::string(TonerNames[i]) + " low"};
        }
    }
    if (SupplyStateForLevel(state.unit.level) == SupplyState::Low ||
        SupplyStateForLevel(state.unit.level) == SupplyState::NearEmpty) {
        return {status_code::SupplyLow + 4, "Drum unit low"};
    }
    switch (state.wasteState) {
        case SupplyState::Empty: return {status_code::WasteEmpty, "Waste box full"};
        case SupplyState::NearEmpty: return {status_code::WasteNearEmpty, "Waste box near"};
        case SupplyState::Low: return {status_code::WasteLow, "Waste box low"};
        case SupplyState::Ok: break;
    }
    return {};
}

const char* TrayName(int slot) {
    static constexpr const char* Names[] = {"MP tray", "Tray 1", "Tray 2"};
    return slot >= 0 && slot < TraySlots ? Names[slot] : "Tray ?";
}

}  // namespace

bool FeedTrayEmpty(const PrinterState& state) {
    if (state.feedSlot < 0 || state.feedSlot >= TraySlots) return true;
    const Tray& tray = state.trays[state.feedSlot];
    return tray.kind == TrayKind::None || tray.sheets <= 0;
}

bool EngineCanPrint(const PrinterState& state) {
    return state.poweredOn && state.hardwareError == 0 && (state.openCovers & AllCovers) == 0 &&
           state.jamPlaces == 0 && FindSupplyStop(state).code == 0 && !FeedTrayEmpty(state) &&
           !state.outOfMemory && !state.operatorAttention;
}

PrinterCondition EvaluateCondition(const PrinterState& state, Activity activity) {
    // In order of urgency; the first that holds is shown.
    PrinterCondition c;
    auto show = [&c](uint32_t code, uint32_t pjl, bool online, std::string line1, std::string line2) {
        c.statusCode = code;
        c.pjlCode = pjl;
        c.online = online;
        c.panel = {std::move(line1), std::move(line2)};
    };
    SupplyStop stop = FindSupplyStop(state);
    if (state.hardwareError != 0) {
        char number[16];
        std::snprintf(number, sizeof number, "Error %08X", state.hardwareError);
        show(status_code::HardwareFailure, 50000, false, "Service call", number);
    } else if (activity == Activity::Cancelling) {
        show(status_code::Cancelling, 10007, true, "Cancelling job", "");
    } else if ((state.openCovers & AllCovers) != 0) {
        show(status_code::CoverOpen, 40021, false, "Cover open", "Close cover");
    } else if (state.jamPlaces != 0) {
        show(status_code::PaperJam, 42000, false, "Paper jam", "Open cover");
    } else if (stop.code != 0) {
        show(stop.code, 40038, false, "Replace", stop.line2);
    } else if (FeedTrayEmpty(state)) {
        show(status_code::PaperOut, 41000 + state.feedSlot, false, "Load paper", TrayName(state.feedSlot));
    } else if (state.outOfMemory) {
        show(status_code::OutOfMemory, 20001, false, "Memory full", "");
    } else if (state.operatorAttention) {
        show(status_code::OperatorAttention, 40000, false, "Check printer", "");
    } else if (activity == Activity::WarmingUp) {
        show(status_code::WarmingUp, 10003, true, "Warming up", "Please wait");
    } else if (activity == Activity::Printing) {
        show(status_code::Printing, 10023, true, "Printing", "");
    } else if (activity == Activity::Busy) {
        show(status_code::Busy, 10024, true, "Processing", "");
    } else if (SupplyStop warning = FindSupplyWarning(state); warning.code != 0) {
        show(warning.code, 10006, true, "Ready", warning.line2);
    } else {
        show(status_code::Ready, 10001, true, "Ready", "");
    }
    if (activity == Activity::Printing) c.engineState = 1;
    if (activity == Activity::Busy) c.engineState = 2;
    if (state.panelOverride) c.panel = *state.panelOverride;
    return c;
}

}  // namespace langmon::emulator
