#include "emulator/printer_description.h"

#include "emulator/panel_settings.h"
#include "emulator/pjl_command.h"

#include "platform/user_input.h"

#include <charconv>
#include <vector>

namespace langmon::emulator {
namespace {

std::string_view Trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

// Splits `text` at each `separator`, trimming every piece.
std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (;;) {
        size_t at = text.find(separator);
        pieces.push_back(Trim(text.substr(0, at)));
        if (at == std::string_view::npos) return pieces;
        text.remove_prefix(at + 1);
    }
}

bool Number(std::string_view text, uint32_t* value) {
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
        base = 16;
    }
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value, base);
    return !text.empty() && error == std::errc{} && end == text.data() + text.size();
}

bool YesNo(std::string_view text, bool* value) {
    if (text == "yes" || text == "on" || text == "true") return *value = true, true;
    if (text == "no" || text == "off" || text == "false") return *value = false, true;
    return false;
}

// Looks `text` up among `names`; the index is the value.
template <size_t N>
bool Named(std::string_view text, const char* const (&names)[N], uint32_t* value) {
    for (size_t i = 0; i < N; ++i) {
        if (names[i] && EqualsNoCase(text, names[i])) return *value = static_cast<uint32_t>(i), true;
    }
    return false;
}

constexpr const char* TonerNames[] = {"cyan", "magenta", "yellow", "black"};
constexpr const char* SlotNames[] = {"mp", "1", "2"};
constexpr const char* TrayKindNames[] = {"none", "manual", "normal", "large"};
constexpr const char* SupplyStateNames[] = {"empty", "near-empty", "low", "ok"};
constexpr const char* ColorRuleNames[] = {"auto", "color", "mono"};
// The paper sizes of the status block's size table that have a name; the
// others are given by their index.
constexpr const char* PaperSizeNames[] = {nullptr,  "A3",   "A4", "A5",     "B4",      "B5",
                                          "LETTER", "LEDGER", nullptr, "LEGAL", "A3W",   nullptr,
                                          nullptr,  "EXECUTIVE", "STATEMENT", "JPOST", "JPOSTD", "COM10",
                                          "MONARCH", "C5",  "DL", "C6", nullptr, "ENV4", nullptr,
                                          "USER"};
// Media types of the status block's type table that have a name.
constexpr const char* MediaTypeNames[] = {nullptr, "plain", "ohp", "label", "heavy", nullptr, nullptr, nullptr,
                                          nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, "card", "envelope"};

struct CoverName {
    const char* name;
    uint16_t bit;
};
constexpr CoverName Covers[] = {{"front", CoverFront},   {"top", CoverTop},       {"right", CoverRight},
                                {"rear", CoverRear},     {"duplex", CoverDuplex}, {"fuser", CoverFuser},
                                {"toner", CoverToner},   {"cassette", CoverCassette}};

std::string Bad(std::string_view key, std::string_view value) {
    return "bad value \"" + std::string(value) + "\" for " + std::string(key);
}

std::string SetTonerValue(Toner& toner, std::string_view field, std::string_view key, std::string_view value) {
    uint32_t number = 0;
    if (field.empty()) {
        if (value == "unknown") return toner.level = UnknownLevel, "";
        if (!Number(value, &number) || number > 127) return Bad(key, value);
        return toner.level = static_cast<int>(number), "";
    }
    if (field == "fitted") return YesNo(value, &toner.fitted) ? "" : Bad(key, value);
    if (field == "fault") return YesNo(value, &toner.fault) ? "" : Bad(key, value);
    return "unknown key " + std::string(key);
}

std::string SetTrayValue(Tray& tray, std::string_view field, std::string_view key, std::string_view value) {
    uint32_t number = 0;
    if (field == "kind") {
        if (value == "universal") return tray.kind = TrayKind::Normal, tray.variant = true, "";
        if (!Named(value, TrayKindNames, &number)) return Bad(key, value);
        tray.kind = static_cast<TrayKind>(number);
        tray.variant = false;
        return "";
    }
    if (field == "sheets" || field == "capacity") {
        if (!Number(value, &number) || number > 100000) return Bad(key, value);
        (field == "sheets" ? tray.sheets : tray.capacity) = static_cast<int>(number);
        return "";
    }
    if (field == "size") {
        if (!Named(value, PaperSizeNames, &number) && (!Number(value, &number) || number > 31)) {
            return Bad(key, value);
        }
        return tray.mediaSize = static_cast<uint8_t>(number), "";
    }
    if (field == "type") {
        if (!Named(value, MediaTypeNames, &number) && (!Number(value, &number) || number > 31)) {
            return Bad(key, value);
        }
        return tray.mediaType = static_cast<uint8_t>(number), "";
    }
    return "unknown key " + std::string(key);
}

// A wrong word of a list, with the words the list takes: a typo is fixed
// at once.
std::string BadListWord(std::string_view key, std::string_view word, const std::string& choices) {
    return Bad(key, word) + " (" + choices + ", or none alone)";
}

std::string SetListValue(std::string_view key, std::string_view value, PrinterState& state) {
    if (key == "covers") {
        state.openCovers = 0;
        if (value == "none") return "";
        for (std::string_view word : Split(value, ',')) {
            bool found = false;
            for (const CoverName& cover : Covers) {
                if (word == cover.name) state.openCovers |= cover.bit, found = true;
            }
            if (!found) {
                std::string names;
                for (const CoverName& cover : Covers) names += (names.empty() ? "" : ", ") + std::string(cover.name);
                return BadListWord(key, word, names);
            }
        }
        return "";
    }
    if (key == "jam") {
        state.jamPlaces = 0;
        if (value == "none") return "";
        for (std::string_view word : Split(value, ',')) {
            uint32_t place = 0;
            if (!Number(word, &place) || place > 20) return BadListWord(key, word, "places 0 to 20");
            state.jamPlaces |= 1u << place;
        }
        return "";
    }
    // options
    state.duplex = state.ramDisk = state.outTray2 = state.option7001 = state.option3001 = false;
    if (value == "none") return "";
    for (std::string_view word : Split(value, ',')) {
        if (word == "duplex") state.duplex = true;
        else if (word == "ramdisk") state.ramDisk = true;
        else if (word == "outtray2") state.outTray2 = true;
        else if (word == "option7001") state.option7001 = true;
        else if (word == "option3001") state.option3001 = true;
        else return BadListWord(key, word, "duplex, ramdisk, outtray2, option7001, option3001");
    }
    return "";
}

// The fault words of the command line, each a setting or two.
struct FaultWord {
    const char* word;
    const char* settings;  // `key=value` pairs separated by ';'
};
constexpr FaultWord FaultWords[] = {
    {"silent", "silent=yes"},
    {"one-byte", "write-limit=1"},
    {"small-reads", "read-piece=7"},
    {"garbage", "garbage=yes"},
    {"crlf-after-form-feed", "crlf-after-form-feed=yes"},
    {"cover-open", "covers=front"},
    {"jam", "jam=3"},
    {"toner-low", "toner.black=5"},
    {"toner-empty", "toner.black=0"},
    {"out-of-memory", "out-of-memory=yes"},
    {"operator-attention", "operator-attention=yes"},
    {"hardware-failure", "hardware-error=0x0001002A"},
    {"warming-up", "warm-up-time=20000"},
    {"power-off", "power=off"},
    {"foreign", "model=Foreign Printer 1;manufacturer=Other;commands=PJL,PCL"},
};

// A word standing alone after "emulator:" that is not a fault word: it
// empties the tray that feeds, whichever that is by then.
constexpr std::string_view PaperOutWord = "paper-out";

bool IsPresetWord(std::string_view item) {
    if (item == PaperOutWord) return true;
    for (const FaultWord& fault : FaultWords) {
        if (item == fault.word) return true;
    }
    return false;
}

// Settings whose value is a list separated by commas. After "emulator:" the
// commas also separate settings, so a list goes on over the words that
// follow it as long as they are neither a setting nor a fault word: no cover,
// jam place, option or command language is spelled as one.
bool TakesList(std::string_view key) {
    return key == "covers" || key == "jam" || key == "options" || key == "commands";
}

std::string UnknownWord(std::string_view item) {
    std::string words;
    for (const FaultWord& fault : FaultWords) words += std::string(fault.word) + ", ";
    return "unknown printer word \"" + std::string(item) + "\": neither KEY=VALUE nor a fault word (" + words +
           std::string(PaperOutWord) + ")";
}

}  // namespace

std::string SetPrinterValue(PrinterState& state, std::string_view key, std::string_view value) {
    uint32_t number = 0;
    size_t dot = key.find('.');
    std::string_view group = key.substr(0, dot);
    std::string_view rest = dot == std::string_view::npos ? std::string_view{} : key.substr(dot + 1);

    if (group == "toner" && !rest.empty()) {
        size_t dot2 = rest.find('.');
        std::string_view field = dot2 == std::string_view::npos ? std::string_view{} : rest.substr(dot2 + 1);
        if (!Named(rest.substr(0, dot2), TonerNames, &number)) return "unknown key " + std::string(key);
        return SetTonerValue(state.toners[number], field, key, value);
    }
    if (group == "tray" && !rest.empty()) {
        size_t dot2 = rest.find('.');
        if (dot2 == std::string_view::npos || !Named(rest.substr(0, dot2), SlotNames, &number)) {
            return "unknown key " + std::string(key);
        }
        return SetTrayValue(state.trays[number], rest.substr(dot2 + 1), key, value);
    }
    if (group == "setting" && !rest.empty()) {
        const PanelSetting* setting = FindPanelSetting(rest);
        if (!setting) return "unknown panel setting " + std::string(rest);
        if (!SettingAccepts(*setting, value)) return Bad(key, value);
        return state.settings[std::string(rest)] = std::string(value), "";
    }
    if (key == "unit") {
        if (value == "unknown") return state.unit.level = UnknownLevel, "";
        if (!Number(value, &number) || number > 127) return Bad(key, value);
        return state.unit.level = static_cast<int>(number), "";
    }
    if (key == "unit.fault") return YesNo(value, &state.unit.fault) ? "" : Bad(key, value);
    if (key == "covers" || key == "jam" || key == "options") return SetListValue(key, value, state);

    struct Text {
        const char* key;
        std::string PrinterState::*field;
    };
    static constexpr Text Texts[] = {{"model", &PrinterState::model},
                                     {"manufacturer", &PrinterState::manufacturer},
                                     {"commands", &PrinterState::commandSet}};
    for (const Text& text : Texts) {
        if (key == text.key) {
            if (value.empty() || value.find(';') != std::string_view::npos) return Bad(key, value);
            return state.*text.field = std::string(value), "";
        }
    }
    struct Flag {
        const char* key;
        bool* field;
    };
    const Flag flags[] = {{"periodic-change", &state.periodicChange},
                          {"operator-attention", &state.operatorAttention},
                          {"out-of-memory", &state.outOfMemory},
                          {"power", &state.poweredOn},
                          {"silent", &state.faults.silent},
                          {"garbage", &state.faults.garbage},
                          {"crlf-after-form-feed", &state.faults.crlfAfterFormFeed}};
    for (const Flag& f : flags) {
        if (key == f.key) return YesNo(value, f.field) ? "" : Bad(key, value);
    }
    struct Count {
        const char* key;
        uint32_t* field;
        uint32_t most;
    };
    const Count counts[] = {{"memory", &state.memoryMB, 255 * 32},
                            {"hardware-error", &state.hardwareError, 0xFFFFFFFF},
                            {"page-count", &state.pageCount, 0xFFFFFFFF},
                            {"page-time", &state.pageTimeMs, 3600000},
                            {"warm-up-time", &state.warmUpMs, 3600000},
                            {"mono-coverage", &state.monoCoverage, 100},
                            {"write-limit", &state.faults.writeLimit, 0xFFFFFFFF},
                            {"read-piece", &state.faults.readPiece, 0xFFFFFFFF}};
    for (const Count& c : counts) {
        if (key == c.key) {
            if (!Number(value, &number) || number > c.most) return Bad(key, value);
            return *c.field = number, "";
        }
    }
    if (key == "waste") {
        if (!Named(value, SupplyStateNames, &number)) return Bad(key, value);
        return state.wasteState = static_cast<SupplyState>(number), "";
    }
    if (key == "feed") {
        if (!Named(value, SlotNames, &number)) return Bad(key, value);
        return state.feedSlot = static_cast<int>(number), "";
    }
    if (key == "color") {
        if (!Named(value, ColorRuleNames, &number)) return Bad(key, value);
        return state.colorRule = static_cast<ColorRule>(number), "";
    }
    if (key == "coverage") {
        std::vector<std::string_view> parts = Split(value, ' ');
        std::erase(parts, std::string_view{});
        if (parts.size() != 4) return Bad(key, value);
        for (size_t i = 0; i < 4; ++i) {
            if (!Number(parts[i], &number) || number > 100) return Bad(key, value);
            state.colorCoverage[i] = number;
        }
        return "";
    }
    if (key == "service-tag") {
        if (value.size() != 7) return Bad(key, value);
        return state.serviceTag = std::string(value), "";
    }
    if (key == "panel") {
        if (value.empty()) return state.panelOverride.reset(), "";
        size_t bar = value.find('|');
        std::string first(Trim(value.substr(0, bar)));
        std::string second(bar == std::string_view::npos ? "" : Trim(value.substr(bar + 1)));
        state.panelOverride = std::array<std::string, 2>{first, second};
        return "";
    }
    return "unknown key " + std::string(key);
}

std::string LoadPrinterStateFile(const std::string& path, PrinterState& state) {
    std::string text;
    if (std::string problem = platform::ReadFileUpTo(path, PrinterStateFileByteLimit, "a printer description", &text);
        !problem.empty()) {
        return problem;
    }
    return ReadPrinterStateText(text, path, state);
}

std::string ReadPrinterStateText(std::string_view text, std::string_view source, PrinterState& state) {
    for (int number = 1; !text.empty(); ++number) {
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (size_t hash = line.find('#'); hash != std::string_view::npos) line = line.substr(0, hash);
        line = Trim(line);
        if (line.empty()) continue;
        const auto at = [&](const std::string& problem) {
            return std::string(source) + ":" + std::to_string(number) + ": " + problem;
        };
        size_t equals = line.find('=');
        if (equals == std::string_view::npos) return at("expected key = value");
        std::string problem = SetPrinterValue(state, Trim(line.substr(0, equals)), Trim(line.substr(equals + 1)));
        if (!problem.empty()) return at(problem);
    }
    return "";
}

std::string ApplyPrinterDescription(std::string_view description, PrinterState& state) {
    if (Trim(description).empty()) return "";
    const std::vector<std::string_view> items = Split(description, ',');
    for (std::size_t i = 0; i < items.size(); ++i) {
        const std::string_view item = items[i];
        size_t equals = item.find('=');
        if (equals == std::string_view::npos) {
            if (item == PaperOutWord) {
                state.trays[state.feedSlot].sheets = 0;
                continue;
            }
            const FaultWord* fault = nullptr;
            for (const FaultWord& f : FaultWords) {
                if (item == f.word) fault = &f;
            }
            if (!fault) return UnknownWord(item);
            for (std::string_view setting : Split(fault->settings, ';')) {
                size_t at = setting.find('=');
                std::string problem = SetPrinterValue(state, setting.substr(0, at), setting.substr(at + 1));
                if (!problem.empty()) return problem;
            }
            continue;
        }
        std::string_view key = Trim(item.substr(0, equals));
        std::string value(Trim(item.substr(equals + 1)));
        if (TakesList(key)) {
            while (i + 1 < items.size() && items[i + 1].find('=') == std::string_view::npos &&
                   !IsPresetWord(items[i + 1])) {
                value += ',';
                value += items[++i];
            }
        }
        std::string problem = key == "state" ? LoadPrinterStateFile(value, state) : SetPrinterValue(state, key, value);
        if (!problem.empty()) return problem;
    }
    return "";
}

}  // namespace langmon::emulator
