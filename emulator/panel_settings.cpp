#include "emulator/panel_settings.h"

#include <charconv>

namespace langmon::emulator {
namespace {

constexpr const char* OnOff[] = {"ON", "OFF"};
constexpr const char* OffOn[] = {"OFF", "ON"};
constexpr const char* CopiesRange[] = {"1", "999"};
constexpr const char* Orientations[] = {"PORTRAIT", "LANDSCAPE"};
constexpr const char* RetLevels[] = {"OFF", "MEDIUM"};
constexpr const char* Cassettes[] = {"INTRAY1", "INTRAY2"};
constexpr const char* MultiPurposeSizes[] = {"LETTER", "A3W", "A3",    "A4",   "A5",
                                             "B4",     "B5",  "JPOST", "JPOSTD", "ENV4",
                                             "LEGAL",  "LEDGER", "USER"};
constexpr const char* Directions[] = {"SHORT", "LONG"};
constexpr const char* PowerSaveMinutes[] = {"1", "240"};
constexpr const char* Feeds[] = {"AUTO", "MANUAL"};
constexpr const char* PaperTypes[] = {"NORMAL", "HEAVY",  "OHP",   "CARD",  "RECYCLE",
                                      "COATED", "LABEL",  "ENVELOPE", "MLIGHT", "COATED2",
                                      "SHEAVY", "NOSEL",  "USER"};
constexpr const char* TimeoutSeconds[] = {"5", "300"};
constexpr const char* BindPositions[] = {"LONGEDGE1", "SHORTEDGE1", "LONGEDGE2", "SHORTEDGE2"};
constexpr const char* OutBins[] = {"OUTTRAY1", "OUTTRAY2"};

// In the order INFO VARIABLES lists them.
constexpr PanelSetting Settings[] = {
    {"COPIES", "1", true, CopiesRange},
    {"ORIENTATION", "PORTRAIT", false, Orientations},
    {"RET", "MEDIUM", false, RetLevels},
    {"ECONOMODE", "OFF", false, OffOn},
    {"INTRAY", "INTRAY1", false, Cassettes},
    {"INTRAYMTSIZE", "A4", false, MultiPurposeSizes},
    {"INTRAYMTDIR", "SHORT", false, Directions},
    {"POWERSAVE", "ON", false, OnOff},
    {"POWERSAVETIME", "15", true, PowerSaveMinutes},
    {"PAPERFEED", "AUTO", false, Feeds},
    {"PAPERSORT", "OFF", false, OffOn},
    {"PAPERTYPE", "NORMAL", false, PaperTypes},
    {"PAPERTYPE1", "NORMAL", false, PaperTypes},
    {"PAPERTYPE2", "NORMAL", false, PaperTypes},
    {"PAPERTYPE3", "NORMAL", false, PaperTypes},
    {"PAPERTYPE4", "NORMAL", false, PaperTypes},
    {"TIMEOUT", "15", true, TimeoutSeconds},
    {"DUPLEX", "OFF", false, OffOn},
    {"BINDPOSITION", "LONGEDGE1", false, BindPositions},
    {"OUTBIN", "OUTTRAY1", false, OutBins},
};

bool ParseNumber(std::string_view text, long* value) {
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
    return error == std::errc{} && end == text.data() + text.size();
}

}  // namespace

std::span<const PanelSetting> PanelSettings() { return Settings; }

const PanelSetting* FindPanelSetting(std::string_view name) {
    for (const PanelSetting& setting : Settings) {
        if (name == setting.name) return &setting;
    }
    return nullptr;
}

bool SettingAccepts(const PanelSetting& setting, std::string_view value) {
    if (setting.range) {
        long number = 0, low = 0, high = 0;
        return ParseNumber(value, &number) && ParseNumber(setting.choices[0], &low) &&
               ParseNumber(setting.choices[1], &high) && number >= low && number <= high;
    }
    for (const char* choice : setting.choices) {
        if (value == choice) return true;
    }
    return false;
}

std::map<std::string, std::string> DefaultPanelSettings() {
    std::map<std::string, std::string> values;
    for (const PanelSetting& setting : Settings) values[setting.name] = setting.defaultValue;
    return values;
}

}  // namespace langmon::emulator
