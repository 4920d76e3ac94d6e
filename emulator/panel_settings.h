// The operator panel settings the printer keeps and reports by their PJL
// names: what INFO VARIABLES lists, INQUIRE answers and DEFAULT changes.
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>

namespace langmon::emulator {

struct PanelSetting {
    const char* name;
    const char* defaultValue;
    // A range has exactly two choices, its lowest and highest number.
    bool range;
    std::span<const char* const> choices;
};

std::span<const PanelSetting> PanelSettings();
const PanelSetting* FindPanelSetting(std::string_view name);

// Whether `value` is one the setting takes: a choice, or a number in its range.
bool SettingAccepts(const PanelSetting& setting, std::string_view value);

// Every setting at its default.
std::map<std::string, std::string> DefaultPanelSettings();

}  // namespace langmon::emulator
