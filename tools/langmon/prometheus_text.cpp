#include "prometheus_text.h"

#include <map>
#include <sstream>

namespace langmon::tool {

namespace {

using json = nlohmann::json;

// A label value with the format's escapes: backslash, double quote, newline.
std::string LabelValue(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\') escaped += "\\\\";
        else if (c == '"') escaped += "\\\"";
        else if (c == '\n') escaped += "\\n";
        else escaped += c;
    }
    return escaped;
}

std::string Text(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

// The samples of one metric family, written together under its HELP and TYPE.
struct Family {
    const char* help;
    const char* type;
    std::vector<std::string> samples;
};

}  // namespace

std::string PrometheusMetrics(const std::vector<std::pair<std::string, json>>& printers) {
    // Families in the order they are written.
    static constexpr const char* Order[] = {
        "langmon_printer_up",          "langmon_printer_state",       "langmon_printer_condition",
        "langmon_supply_level_percent", "langmon_supply_state",        "langmon_covers_open",
        "langmon_paper_jams",          "langmon_printer_pages_total",
    };
    std::map<std::string, Family> families = {
        {"langmon_printer_up", {"Whether the printer's status is read: 1, or 0 while it does not answer.", "gauge", {}}},
        {"langmon_printer_state", {"The printer's state as CUPS and IPP name it: idle, processing or stopped.", "gauge", {}}},
        {"langmon_printer_condition", {"The printer's most urgent condition (ready, paper-jam, cover-open, ...).", "gauge", {}}},
        {"langmon_supply_level_percent", {"A supply's level in percent, where the printer tells one.", "gauge", {}}},
        {"langmon_supply_state", {"A supply's state: ok, low, near-empty, empty, failed or unknown.", "gauge", {}}},
        {"langmon_covers_open", {"How many of the printer's covers are open.", "gauge", {}}},
        {"langmon_paper_jams", {"How many places the paper is jammed at.", "gauge", {}}},
        {"langmon_printer_pages_total", {"Pages the printer has printed in its life, as it counts them.", "counter", {}}},
    };
    for (const auto& [name, view] : printers) {
        const std::string printer = "printer=\"" + LabelValue(name) + "\"";
        const bool read = view.is_object() && !Text(view, "state").empty() && Text(view, "condition") != "not-responding";
        families["langmon_printer_up"].samples.push_back("langmon_printer_up{" + printer + "} " + (read ? "1" : "0"));
        if (!view.is_object()) continue;
        if (const std::string state = Text(view, "state"); !state.empty()) {
            families["langmon_printer_state"].samples.push_back("langmon_printer_state{" + printer + ",state=\"" +
                                                                LabelValue(state) + "\"} 1");
        }
        if (const std::string condition = Text(view, "condition"); !condition.empty()) {
            families["langmon_printer_condition"].samples.push_back("langmon_printer_condition{" + printer +
                                                                    ",condition=\"" + LabelValue(condition) + "\"} 1");
        }
        if (const auto supplies = view.find("supplies"); supplies != view.end() && supplies->is_array()) {
            for (const json& supply : *supplies) {
                if (!supply.is_object()) continue;
                const std::string labels = printer + ",supply=\"" + LabelValue(Text(supply, "name")) + "\",kind=\"" +
                                           LabelValue(Text(supply, "kind")) + "\"";
                if (const auto level = supply.find("level"); level != supply.end() && level->is_number()) {
                    families["langmon_supply_level_percent"].samples.push_back(
                        "langmon_supply_level_percent{" + labels + "} " + std::to_string(level->get<int>()));
                }
                families["langmon_supply_state"].samples.push_back("langmon_supply_state{" + labels + ",state=\"" +
                                                                   LabelValue(Text(supply, "state")) + "\"} 1");
            }
        }
        for (const auto& [key, family] : {std::pair{"covers_open", "langmon_covers_open"}, std::pair{"jams", "langmon_paper_jams"}}) {
            if (const auto list = view.find(key); list != view.end() && list->is_array()) {
                families[family].samples.push_back(std::string(family) + "{" + printer + "} " + std::to_string(list->size()));
            }
        }
        if (const auto pages = view.find("page_count"); pages != view.end() && pages->is_number_unsigned()) {
            families["langmon_printer_pages_total"].samples.push_back("langmon_printer_pages_total{" + printer + "} " +
                                                                      std::to_string(pages->get<uint64_t>()));
        }
    }
    std::ostringstream out;
    for (const char* name : Order) {
        const Family& family = families[name];
        if (family.samples.empty()) continue;
        out << "# HELP " << name << ' ' << family.help << "\n# TYPE " << name << ' ' << family.type << '\n';
        for (const std::string& sample : family.samples) out << sample << '\n';
    }
    return out.str();
}

}  // namespace langmon::tool
