#include "printer_view.h"

#include "job_progress_view.h"
#include "printer_names.h"
#include "state_keywords.h"
#include "supplies.h"

#include "acquisition/status_record.h"
#include "variables/derived.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <map>
#include <ostream>

namespace langmon::tool {

namespace {

// PrinterStatus's StatusWord1 for a printer the monitor does not read.
constexpr uint32_t NotReadWords = 0xF00;

// A value's bytes, none when it is shorter than what is read from it.
using Bytes = std::optional<std::vector<uint8_t>>;

uint32_t Word(const std::vector<uint8_t>& bytes, std::size_t index = 0) {
    uint32_t value = 0;
    if (bytes.size() >= 4 * (index + 1)) std::memcpy(&value, bytes.data() + 4 * index, sizeof value);
    return value;
}

uint16_t Half(const uint8_t* at) {
    uint16_t value = 0;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// A text value, up to its first NUL or the end of its block.
std::string Text(const std::vector<uint8_t>& bytes) {
    const auto* text = reinterpret_cast<const char*>(bytes.data());
    return std::string(text, strnlen(text, bytes.size()));
}

std::string Join(const std::vector<std::string>& parts, const char* separator) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : separator) + part;
    return text;
}

// One tray of PrinterBinConfig, as far as its value holds it.
struct Tray {
    std::string name;
    uint16_t paperSize;
    std::optional<std::pair<uint32_t, uint32_t>> paper;  // tenths of a millimetre, across and along
    uint8_t level;
    uint8_t mediaType;
};

// The paper levels PrinterBinConfig gives a tray.
std::optional<std::string> TrayLevelKeyword(uint8_t level) {
    switch (level) {
        case 0: return "empty";
        case 253: return "some";
        case 254: return "full";
        default: return std::nullopt;
    }
}

std::string TrayLevelText(uint8_t level) {
    switch (level) {
        case 0: return "empty";
        case 253: return "some paper";
        case 254: return "full";
        case 255: return "paper level unknown";
        default: return "paper level " + std::to_string(level) + " (not a level the monitor gives)";
    }
}

// "210 x 297 mm", "215.9 x 279.4 mm".
std::string Millimetres(const std::pair<uint32_t, uint32_t>& tenths) {
    const auto one = [](uint32_t value) {
        return std::to_string(value / 10) + (value % 10 != 0 ? "." + std::to_string(value % 10) : "");
    };
    return one(tenths.first) + " x " + one(tenths.second) + " mm";
}

double MillimetresOf(uint32_t tenths) { return tenths / 10.0; }

// The job in progress as its client holds it: JobStatus's bits, the
// document that SendingJobInfo names and the printer's report in
// PrintingJobInfo2.
struct Job {
    uint32_t status = 0;
    std::string document;
    std::string report;  // "job 3: 2 pages printed", ...
    uint32_t id = 0;
    uint32_t pages = 0;
};

std::optional<Job> JobInProgress(const PrinterFacts& facts) {
    Job job;
    bool any = false;
    if (const Bytes status = facts.Variable("JobStatus"); status && status->size() >= 4) {
        job.status = Word(*status);
        any = any || job.status != 0;
    }
    if (const Bytes sending = facts.Variable("SendingJobInfo"); sending && sending->size() >= JobIdOffset + 4) {
        // A record that names no job is the one that closed the last.
        if (const uint32_t id = Word(*sending, JobIdOffset / 4); id != 0) {
            job.id = id;
            job.document = Text(std::vector<uint8_t>(sending->begin(), sending->begin() + DocumentBytes));
            any = true;
        }
    }
    if (const Bytes printing = facts.Variable("PrintingJobInfo2");
        printing && printing->size() >= BlackCoverageOffset + 4 && Word(*printing, JobIdOffset / 4) != 0) {
        job.id = Word(*printing, JobIdOffset / 4);
        job.pages = Word(*printing, PagesOffset / 4);
        job.report = JobRecordText(*printing);
        any = true;
    }
    if (!any) return std::nullopt;
    return job;
}

// What the spooler's side says of the job, as a keyword and in words; none
// once it has handed it over.
std::optional<std::pair<std::string, std::string>> JobState(uint32_t status) {
    if ((status & JobCancelling) != 0) return std::pair{"cancelling", "cancelling"};
    if ((status & JobPaused) != 0) return std::pair{"paused", "paused"};
    if ((status & JobRunning) != 0) return std::pair{"sending", "being sent"};
    return std::nullopt;
}

std::string JobText(const Job& job) {
    std::string text = !job.report.empty() ? job.report : job.id != 0 ? "job " + std::to_string(job.id) : "a job";
    if (!job.document.empty()) text += ", \"" + job.document + "\"";
    const auto state = JobState(job.status);
    return state ? text + " (" + state->second + ")" : text;
}

// Everything the view shows, read once from the facts.
struct Reading {
    std::optional<std::string> manufacturer;
    std::optional<std::string> model;
    std::optional<bool> modelKnown;
    std::optional<PrinterCondition> condition;
    std::optional<std::vector<std::string>> panel;  // Client scope, with a PrinterDisplay
    bool read = false;  // levels, trays and faults are the printer's
    std::vector<Supply> supplies;
    std::optional<std::vector<Tray>> trays;
    std::optional<std::vector<std::string>> covers;  // open ones
    std::optional<std::vector<unsigned>> jams;       // places
    std::optional<std::vector<std::string>> options;
    std::optional<uint32_t> memoryMb;
    std::optional<std::vector<std::string>> languages;
    std::optional<uint32_t> pageCount;
    std::optional<std::string> serviceTag;
    std::optional<Job> job;
};

std::optional<uint32_t> ErrorWord(const PrinterFacts& facts, const char* name) {
    const Bytes value = facts.Variable(name);
    if (!value || value->size() < 4 || Word(*value) == NotReported) return std::nullopt;
    return Word(*value);
}

Reading Read(const PrinterFacts& facts, ViewScope scope) {
    Reading r;
    if (const Bytes maker = facts.Variable("PrinterManufacturer")) r.manufacturer = Text(*maker);
    if (const Bytes model = facts.Variable("PrinterModel")) r.model = Text(*model);
    r.modelKnown = facts.ModelKnown();
    if (const Bytes status = facts.Variable("PrinterStatus"); status && status->size() >= 12) {
        r.condition = ConditionOfStatus(Word(*status, 1), Word(*status, 2));
    }
    if (scope == ViewScope::Client) {
        if (const Bytes display = facts.Variable("PrinterDisplay")) r.panel = PanelLines(*display);
        if (const Bytes pages = facts.Variable("PageCount"); pages && pages->size() >= 4) r.pageCount = Word(*pages);
        if (const Bytes tag = facts.Variable("ServiceTag"); tag && !Text(*tag).empty()) r.serviceTag = Text(*tag);
        r.job = JobInProgress(facts);
    }
    if (const Bytes languages = facts.Variable("EmulationInfo")) {
        r.languages.emplace();
        const uint32_t count = Word(*languages);
        for (uint32_t i = 0; i < count && 4 * (i + 2) <= languages->size(); ++i) {
            r.languages->push_back(LanguageName(Word(*languages, 1 + i)));
        }
    }
    // Levels, trays and faults mean something only for a printer whose
    // status the monitor reads; otherwise they stand at "unknown".
    r.read = facts.StatusRead();
    if (!r.read) return r;
    r.supplies = ReadSupplies(facts.Variable("TonerRemain"), facts.Variable("CRURemain"), ErrorWord(facts, "ErrSupplies"));
    if (const Bytes bins = facts.Variable("PrinterBinConfig")) {
        r.trays.emplace();
        const uint32_t count = Word(*bins);
        for (uint32_t i = 0; i < count && 4 + (i + 1) * BinEntryBytes <= bins->size(); ++i) {
            const uint8_t* entry = bins->data() + 4 + i * BinEntryBytes;
            Tray tray{TrayName(Half(entry)), Half(entry + 4), std::nullopt, entry[6], entry[7]};
            // The monitor keeps the paper's dimensions of the first three.
            if (i < 3) {
                const auto paper = facts.TrayPaper(static_cast<int>(i));
                if (paper && paper->first != 0 && paper->second != 0 && paper->first != NotReported &&
                    paper->second != NotReported) {
                    tray.paper = paper;
                }
            }
            if (!tray.paper) tray.paper = PaperSizeTenths(tray.paperSize);
            r.trays->push_back(tray);
        }
    }
    if (const auto covers = ErrorWord(facts, "ErrCoverOpen")) r.covers = OpenCoverNames(*covers);
    // The clear value of an error variable is 0 as much as all bits set.
    if (const Bytes jams = facts.Variable("ErrPaperJam"); jams && jams->size() >= 4) r.jams = JamPlaces(Word(*jams));
    if (const Bytes options = facts.Variable("PrinterOptConfig")) {
        r.options.emplace();
        const uint32_t count = Word(*options);
        constexpr std::size_t Words = sizeof(OptionEntry) / 4;
        for (uint32_t i = 0; i < count && 4 + (i + 1) * sizeof(OptionEntry) <= options->size(); ++i) {
            r.options->push_back(OptionName(static_cast<uint16_t>(Word(*options, 1 + i * Words) & 0xFFFF)));
        }
    }
    if (const Bytes memory = facts.Variable("PrinterMemory"); memory && memory->size() >= 4) {
        r.memoryMb = Word(*memory) / 1024;
    }
    return r;
}

std::vector<std::string> Reasons(const Reading& r) {
    if (!r.condition) return {};
    return StateReasons(*r.condition, r.supplies, r.covers && !r.covers->empty(), r.jams && !r.jams->empty());
}

// "[#########-]  90%": a bar of ten, a tenth of the level each.
std::string LevelBar(unsigned level) {
    const unsigned filled = std::min(10u, (level + 5) / 10);
    char percent[16];
    std::snprintf(percent, sizeof percent, "%3u%%", level);
    return "[" + std::string(filled, '#') + std::string(10 - filled, '-') + "] " + percent;
}

std::string SupplyText(const Supply& supply) {
    std::string text;
    if (supply.level) {
        text = LevelBar(*supply.level);
    } else if (supply.state != SupplyState::Failed && supply.state != SupplyState::Empty) {
        text = "level unknown";
    }
    if (supply.state != SupplyState::Ok && supply.state != SupplyState::Unknown) {
        text += (text.empty() ? "" : "  ") + SupplyStateText(supply.state);
    }
    return text;
}

std::string CoverText(const std::vector<std::string>& open) {
    if (open.empty()) return "closed";
    std::vector<std::string> names;
    for (const std::string& cover : open) {
        names.push_back(cover.rfind("bit ", 0) == 0 ? "the unnamed cover of " + cover : cover + " cover");
    }
    return Join(names, ", ") + " open";
}

std::string JamText(const std::vector<unsigned>& places) {
    if (places.empty()) return "none";
    std::vector<std::string> numbers;
    for (const unsigned place : places) numbers.push_back(std::to_string(place));
    return std::string(places.size() == 1 ? "at place " : "at places ") + Join(numbers, ", ") +
           " (the printer numbers its places without naming them)";
}

void Add(std::vector<ViewLine>& lines, const std::string& key, const std::string& label, const std::string& text) {
    std::string line = "  " + label;
    line.append(label.size() < 13 ? 13 - label.size() : 1, ' ');
    lines.push_back({key, line + text});
}

std::string PanelText(const std::vector<std::string>& panel) {
    if (panel[0].empty() && panel[1].empty()) return "blank";
    return "\"" + panel[0] + "\"" + (panel[1].empty() ? "" : " / \"" + panel[1] + "\"");
}

}  // namespace

bool PrinterFacts::StatusRead() const {
    const Bytes status = Variable("PrinterStatus");
    return status && status->size() >= 12 && (Word(*status, 1) & NotReadWords) == 0;
}

std::optional<std::vector<uint8_t>> ValueFacts::Variable(const char* name) const {
    for (const VariableValue& value : values_) {
        if (value.name == name) return value.bytes;
    }
    return std::nullopt;
}

std::string PrinterStatusText(uint32_t word1, uint32_t word2) {
    const PrinterCondition condition = ConditionOfStatus(word1, word2);
    return condition.severity ? condition.words + " (" + *condition.severity + ")" : condition.words;
}

bool StopsPrinting(uint32_t word1, uint32_t word2) {
    if ((word1 & PrinterLostWord) != 0) return true;
    return ConditionOfStatus(word1, word2).severity == "error";
}

std::vector<std::string> PanelLines(const std::vector<uint8_t>& display) {
    std::vector<std::string> lines;
    constexpr std::size_t TextAt = 4;
    constexpr std::size_t UnitsPerLine = 16;
    for (std::size_t line = 0; line < 2; ++line) {
        std::string text;
        for (std::size_t i = 0; i < UnitsPerLine; ++i) {
            const std::size_t at = TextAt + 2 * (line * UnitsPerLine + i);
            if (at + 2 > display.size()) break;
            uint32_t unit = Half(display.data() + at);
            if (unit == 0) break;
            // A pair of surrogates is one character.
            if (unit >= 0xD800 && unit < 0xDC00 && i + 1 < UnitsPerLine && at + 4 <= display.size()) {
                const uint32_t low = Half(display.data() + at + 2);
                if (low >= 0xDC00 && low < 0xE000) {
                    unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
            if (unit < 0x80) {
                text += static_cast<char>(unit);
            } else if (unit < 0x800) {
                text += static_cast<char>(0xC0 | (unit >> 6));
                text += static_cast<char>(0x80 | (unit & 0x3F));
            } else if (unit < 0x10000) {
                text += static_cast<char>(0xE0 | (unit >> 12));
                text += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
                text += static_cast<char>(0x80 | (unit & 0x3F));
            } else {
                text += static_cast<char>(0xF0 | (unit >> 18));
                text += static_cast<char>(0x80 | ((unit >> 12) & 0x3F));
                text += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
                text += static_cast<char>(0x80 | (unit & 0x3F));
            }
        }
        while (!text.empty() && text.back() == ' ') text.pop_back();
        lines.push_back(text);
    }
    return lines;
}

std::vector<ViewLine> DescribePrinter(const PrinterFacts& facts, ViewScope scope) {
    const Reading r = Read(facts, scope);
    const bool client = scope == ViewScope::Client;
    std::vector<ViewLine> lines;
    std::string who = (r.manufacturer ? *r.manufacturer + " " : "") + r.model.value_or("(no model named)");
    if (r.modelKnown) who += *r.modelKnown ? ", a known model" : ", no known model";
    Add(lines, "printer", "printer", who);
    if (r.condition) {
        Add(lines, "status", "status",
            r.condition->severity ? r.condition->words + " (" + *r.condition->severity + ")" : r.condition->words);
    }
    if (client) Add(lines, "panel", "panel", r.panel ? PanelText(*r.panel) : "not reported");
    if (r.read) {
        bool first = true;
        for (const Supply& supply : r.supplies) {
            if (supply.kind != SupplyKind::Toner) continue;
            std::string name = supply.name;
            name.append(9 - name.size(), ' ');
            Add(lines, "toner " + supply.name, first ? "toner" : "", name + SupplyText(supply));
            first = false;
        }
        for (const Supply& supply : r.supplies) {
            if (supply.kind == SupplyKind::Drum) Add(lines, "drum unit", "drum unit", SupplyText(supply));
            // The waste box has a state alone, and nothing to show while it
            // is well.
            if (supply.kind == SupplyKind::Waste && supply.state != SupplyState::Ok &&
                supply.state != SupplyState::Unknown) {
                Add(lines, "waste box", "waste box", "reported " + SupplyStateText(supply.state));
            }
        }
        if (r.trays) {
            if (r.trays->empty()) Add(lines, "trays", "trays", "none");
            first = true;
            for (const Tray& tray : *r.trays) {
                std::string text = tray.name + ": " + PaperSizeText(tray.paperSize);
                if (tray.paper) text += " (" + Millimetres(*tray.paper) + ")";
                text += ", " + MediaTypeText(tray.mediaType) + ", " + TrayLevelText(tray.level);
                Add(lines, "tray " + tray.name, first ? "trays" : "", text);
                first = false;
            }
        }
        if (r.covers) Add(lines, "covers", "covers", CoverText(*r.covers));
        if (r.jams) Add(lines, "jams", "jams", JamText(*r.jams));
        if (r.options) Add(lines, "options", "options", r.options->empty() ? "none" : Join(*r.options, ", "));
        if (r.memoryMb) Add(lines, "memory", "memory", std::to_string(*r.memoryMb) + " MB");
    }
    if (r.languages) Add(lines, "languages", "languages", r.languages->empty() ? "none known" : Join(*r.languages, ", "));
    if (client) {
        Add(lines, "page count", "page count", r.pageCount ? std::to_string(*r.pageCount) : "not reported");
        Add(lines, "service tag", "service tag", r.serviceTag.value_or("not reported"));
        Add(lines, "job", "job", r.job ? JobText(*r.job) : "none");
    }
    return lines;
}

void WriteView(std::ostream& out, const std::vector<ViewLine>& lines) {
    for (const ViewLine& line : lines) out << line.text << '\n';
}

std::vector<std::string> ChangedViewLines(const std::vector<ViewLine>& before, const std::vector<ViewLine>& now) {
    std::map<std::string, std::string> old;
    for (const ViewLine& line : before) old[line.key] = line.text;
    std::vector<std::string> changed;
    for (const ViewLine& line : now) {
        auto found = old.find(line.key);
        if (found == old.end() || found->second != line.text) changed.push_back(line.text);
        if (found != old.end()) old.erase(found);
    }
    for (const ViewLine& line : before) {
        if (old.count(line.key) != 0) changed.push_back("  " + line.key + ": no longer reported");
    }
    return changed;
}

nlohmann::ordered_json PrinterJson(const PrinterFacts& facts, ViewScope scope) {
    using json = nlohmann::ordered_json;
    const Reading r = Read(facts, scope);
    const auto optional = [](const auto& value) { return value ? json(*value) : json(nullptr); };
    json printer = json::object();
    printer["manufacturer"] = optional(r.manufacturer);
    printer["model"] = optional(r.model);
    printer["model_known"] = optional(r.modelKnown);
    printer["condition"] = r.condition ? json(r.condition->keyword) : json(nullptr);
    printer["status"] = r.condition ? json(r.condition->words) : json(nullptr);
    printer["severity"] = r.condition ? optional(r.condition->severity) : json(nullptr);
    printer["state"] = r.condition ? optional(r.condition->state) : json(nullptr);
    printer["state_reasons"] = Reasons(r);
    printer["panel"] = optional(r.panel);
    if (r.read) {
        json supplies = json::array();
        for (const Supply& supply : r.supplies) {
            static constexpr const char* Kinds[] = {"toner", "drum", "waste"};
            supplies.push_back({{"name", supply.name},
                                {"kind", Kinds[static_cast<int>(supply.kind)]},
                                {"level", optional(supply.level)},
                                {"state", SupplyStateKeyword(supply.state)}});
        }
        printer["supplies"] = supplies;
    } else {
        printer["supplies"] = nullptr;
    }
    if (r.trays) {
        json trays = json::array();
        for (const Tray& tray : *r.trays) {
            json mm = nullptr;
            if (tray.paper) mm = {MillimetresOf(tray.paper->first), MillimetresOf(tray.paper->second)};
            trays.push_back({{"name", tray.name},
                             {"paper", {{"name", optional(PaperSizeName(tray.paperSize))},
                                        {"code", tray.paperSize},
                                        {"mm", mm}}},
                             {"media", {{"name", optional(MediaTypeName(tray.mediaType))}, {"code", tray.mediaType}}},
                             {"paper_level", optional(TrayLevelKeyword(tray.level))}});
        }
        printer["trays"] = trays;
    } else {
        printer["trays"] = nullptr;
    }
    printer["covers_open"] = optional(r.covers);
    if (r.jams) {
        json jams = json::array();
        for (const unsigned place : *r.jams) jams.push_back("place " + std::to_string(place));
        printer["jams"] = jams;
    } else {
        printer["jams"] = nullptr;
    }
    printer["options"] = optional(r.options);
    printer["memory_mb"] = optional(r.memoryMb);
    printer["languages"] = optional(r.languages);
    printer["page_count"] = optional(r.pageCount);
    printer["service_tag"] = optional(r.serviceTag);
    if (r.job) {
        const auto state = JobState(r.job->status);
        printer["job"] = {{"id", r.job->id},
                          {"document", r.job->document},
                          {"state", state ? json(state->first) : json(nullptr)},
                          {"pages", r.job->pages},
                          {"report", r.job->report.empty() ? json(nullptr) : json(r.job->report)}};
    } else {
        printer["job"] = nullptr;
    }
    return printer;
}

}  // namespace langmon::tool
