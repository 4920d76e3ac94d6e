#include "cups_messages.h"

#include <algorithm>

namespace langmon::backend {

namespace {

using json = nlohmann::ordered_json;

// A supply's level counts as low from this percent on, for CUPS's gauges:
// the printer itself says "low" by a flag, not by a level it tells.
constexpr int LowLevelPercent = 10;
// marker-levels for a supply whose level the printer does not tell.
constexpr int LevelUnknown = -2;

struct MarkerRow {
    const char* supply;  // the view's supply name
    const char* name;
    const char* color;
    const char* type;
};
// In the order CUPS lists them; the waste box only where the printer
// reports its state.
constexpr MarkerRow MarkerRows[] = {
    {"cyan", "Cyan Toner", "#00FFFF", "toner"},
    {"magenta", "Magenta Toner", "#FF00FF", "toner"},
    {"yellow", "Yellow Toner", "#FFFF00", "toner"},
    {"black", "Black Toner", "#000000", "toner"},
    {"drum", "Drum Unit", "none", "opc"},
    {"waste", "Waste Toner Box", "none", "waste-toner"},
};

std::string Text(const json& value) { return value.is_string() ? value.get<std::string>() : std::string(); }

// CUPS reads an attribute's values separated by commas; a name with a
// comma or a blank in it is quoted.
std::string Quoted(const std::string& value) {
    return value.find_first_of(", ") == std::string::npos ? value : "\"" + value + "\"";
}

}  // namespace

const std::vector<CupsKeywordRow>& CupsKeywordTable() {
    // The view's reasons come from the printer's condition, its supplies,
    // covers and jams. A condition whose reason is only "other" has a
    // vendor keyword of its own beside "other-error".
    static const std::vector<CupsKeywordRow> table = {
        {"offline-report", "offline-report", nullptr},
        {"media-jam", "media-jam-error", nullptr},
        {"cover-open", "cover-open-error", nullptr},
        {"media-empty", "media-empty-error", "media-needed-error"},
        {"media-needed", "media-needed-error", nullptr},
        {"toner-empty", "toner-empty-error", nullptr},
        {"toner-low", "toner-low-warning", "marker-supply-low-warning"},
        {"opc-life-over", "opc-life-over-error", nullptr},
        {"opc-near-eol", "opc-near-eol-warning", "marker-supply-low-warning"},
        {"marker-waste-full", "marker-waste-full-error", nullptr},
        {"marker-waste-almost-full", "marker-waste-almost-full-warning", nullptr},
        {"condition:hardware-failure", "other-error", "org.langmon.hardware-failure-error"},
        {"condition:supply-failed", "other-error", "org.langmon.supply-failed-error"},
        {"condition:sensor-failed", "other-error", "org.langmon.sensor-failed-error"},
        {"condition:paper-problem", "other-error", "org.langmon.paper-problem-error"},
        {"condition:out-of-memory", "other-error", "org.langmon.out-of-memory-error"},
        {"condition:operator-attention", "other-error", "org.langmon.operator-attention-error"},
        {"condition:unknown-model", "org.langmon.foreign-printer-report", nullptr},
    };
    return table;
}

std::set<std::string> CupsKeywords(const json& printer) {
    std::set<std::string> from;
    if (const auto reasons = printer.find("state_reasons"); reasons != printer.end() && reasons->is_array()) {
        for (const json& reason : *reasons) from.insert(Text(reason));
    }
    if (const auto condition = printer.find("condition"); condition != printer.end()) {
        from.insert("condition:" + Text(*condition));
    }
    std::set<std::string> keywords;
    for (const CupsKeywordRow& row : CupsKeywordTable()) {
        if (from.count(row.from) == 0) continue;
        keywords.insert(row.keyword);
        if (row.beside != nullptr) keywords.insert(row.beside);
    }
    return keywords;
}

std::string MarkerAttributes(const json& printer) {
    const auto supplies = printer.find("supplies");
    if (supplies == printer.end() || !supplies->is_array()) return "";
    std::string colors, names, types, levels, lows, highs;
    for (const MarkerRow& row : MarkerRows) {
        const auto supply = std::find_if(supplies->begin(), supplies->end(),
                                         [&](const json& s) { return Text(s.value("name", json())) == row.supply; });
        if (supply == supplies->end()) continue;
        const std::string state = Text(supply->value("state", json()));
        if (std::string_view(row.type) == "waste-toner" && state == "unknown") continue;
        int level = LevelUnknown;
        if (const json value = supply->value("level", json()); value.is_number_unsigned()) {
            level = static_cast<int>(std::min<unsigned>(value.get<unsigned>(), 100));
        } else if (state == "empty") {
            level = 0;  // for the waste box: no room left
        }
        const auto add = [](std::string& list, const std::string& item) { list += (list.empty() ? "" : ",") + item; };
        add(colors, row.color);
        add(names, Quoted(row.name));
        add(types, row.type);
        add(levels, std::to_string(level));
        add(lows, std::to_string(LowLevelPercent));
        add(highs, "100");
    }
    if (names.empty()) return "";
    return "ATTR: marker-colors=" + colors + " marker-names=" + names + " marker-types=" + types +
           " marker-levels=" + levels + " marker-low-levels=" + lows + " marker-high-levels=" + highs;
}

std::string PanelInfo(const json& printer) {
    const auto panel = printer.find("panel");
    if (panel == printer.end() || !panel->is_array()) return "";
    std::string text;
    for (const json& line : *panel) {
        const std::string part = Text(line);
        if (!part.empty()) text += (text.empty() ? "" : " / ") + part;
    }
    return text;
}

std::vector<std::string> StateAnnouncer::Update(const json& printer) {
    std::vector<std::string> lines;
    const std::set<std::string> now = CupsKeywords(printer);
    for (const std::string& gone : standing_) {
        if (now.count(gone) == 0) lines.push_back("STATE: -" + gone);
    }
    for (const std::string& come : now) {
        if (standing_.count(come) == 0) lines.push_back("STATE: +" + come);
    }
    standing_ = now;
    if (std::string markers = MarkerAttributes(printer); !markers.empty() && markers != markers_) {
        markers_ = std::move(markers);
        lines.push_back(markers_);
    }
    if (std::string info = PanelInfo(printer); !info.empty() && info != info_) {
        info_ = std::move(info);
        lines.push_back("INFO: " + info_);
    }
    return lines;
}

std::vector<std::string> StateAnnouncer::WithdrawAll() {
    std::vector<std::string> lines;
    for (const std::string& gone : standing_) lines.push_back("STATE: -" + gone);
    standing_.clear();
    return lines;
}

}  // namespace langmon::backend
