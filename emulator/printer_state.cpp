#include "emulator/printer_state.h"

#include "emulator/panel_settings.h"

namespace langmon::emulator {

bool IsFamilyModel(const std::string& model) { return model == Model6200 || model == Model6300; }

SupplyState SupplyStateForLevel(int level) {
    if (level == UnknownLevel || level > 10) return SupplyState::Ok;
    if (level <= 0) return SupplyState::Empty;
    if (level <= 2) return SupplyState::NearEmpty;
    return SupplyState::Low;
}

PrinterState PrinterState::Default() {
    PrinterState state;
    state.trays[0] = Tray{TrayKind::Manual, false, 100, 100, 2, 1};
    state.trays[1] = Tray{TrayKind::Normal, false, 250, 500, 2, 1};
    state.settings = DefaultPanelSettings();
    return state;
}

}  // namespace langmon::emulator
