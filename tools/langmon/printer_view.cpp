#include "printer_view.h"

#include "job_progress_view.h"

#include "acquisition/device_id.h"
#include "acquisition/status_record.h"
#include "variables/derived.h"

#include <cstdio>
#include <cstring>
#include <ostream>
#include <sstream>

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

std::string Hex32(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

// A text value, up to its first NUL or the end of its block.
std::string Text(const std::vector<uint8_t>& bytes) {
    const auto* text = reinterpret_cast<const char*>(bytes.data());
    return std::string(text, strnlen(text, bytes.size()));
}

std::string JsonText(const std::string& text) {
    std::string quoted = "\"";
    for (const unsigned char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += static_cast<char>(c);
        } else if (c < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            quoted += escape;
        } else {
            quoted += static_cast<char>(c);
        }
    }
    return quoted + '"';
}

// What the monitor makes of the printer's status, by the words it shows.
struct StatusName {
    uint32_t Condition;
    const char* Name;
};
constexpr StatusName StatusNames[] = {
    {7, "hardware failure"},     {10, "a cover is open"},        {11, "a supply is empty"},
    {12, "a supply has failed"}, {13, "the drum unit has failed"}, {15, "a sensor has failed"},
    {16, "paper jam"},           {17, "a supply is nearly empty"}, {18, "paper problem"},
    {19, "paper size problem"},  {23, "out of memory"},            {26, "paper out"},
    {27, "the feeding tray is empty"}, {28, "operator attention"}, {30, "busy"},
    {31, "warming up"},          {33, "printing"},                 {38, "toner low"},
    {40, "idle (engine off)"},   {41, "ready"},
};

std::string Level(uint8_t level) {
    if (level == 254) return "unknown";
    if (level == 255) return "empty or failed";
    return std::to_string(level);
}

std::string TrayLevel(uint8_t level) {
    switch (level) {
        case 0: return "empty";
        case 253: return "some paper";
        case 254: return "full";
        case 255: return "unknown";
        default: return std::to_string(level);
    }
}

std::string Dimension(uint32_t tenths) {
    if (tenths == 0xFFFFFFFFu) return "?";
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u", tenths / 10, tenths % 10);
    return text;
}

std::string TrayName(uint16_t binId) {
    switch (binId) {
        case 2001: return "multi-purpose tray";
        case 1: return "cassette 1";
        case 2: return "cassette 2";
        default: return "tray " + std::to_string(binId);
    }
}

std::string OptionName(uint16_t id) {
    if (id == 1) return "duplex";
    if (id >= 8001 && id <= 8004) return "toner" + std::to_string(id - 8000);
    return std::to_string(id);
}

std::string LanguageName(uint32_t code) {
    for (const EmulationRow& row : EmulationTable) {
        if (row.EmulationCode == code) return row.EmulationName;
    }
    return std::to_string(code);
}

// One tray of PrinterBinConfig, as far as its value holds it.
struct Tray {
    std::string name;
    uint16_t paperSize;
    uint8_t level;
    uint8_t mediaType;
    std::optional<std::pair<uint32_t, uint32_t>> paper;
};

std::vector<Tray> Trays(const PrinterFacts& facts, const std::vector<uint8_t>& bins) {
    std::vector<Tray> trays;
    const uint32_t count = Word(bins);
    for (uint32_t i = 0; i < count && 4 + (i + 1) * BinEntryBytes <= bins.size(); ++i) {
        const uint8_t* entry = bins.data() + 4 + i * BinEntryBytes;
        Tray tray{TrayName(Half(entry)), Half(entry + 4), entry[6], entry[7], std::nullopt};
        // The monitor keeps the paper's dimensions of the first three.
        if (i < 3) {
            const auto paper = facts.TrayPaper(static_cast<int>(i));
            if (paper && paper->second != 0 && paper->second != 0xFFFFFFFFu) tray.paper = paper;
        }
        trays.push_back(tray);
    }
    return trays;
}

std::vector<uint32_t> CountedWords(const std::vector<uint8_t>& value, std::size_t wordsPerEntry) {
    std::vector<uint32_t> entries;
    const uint32_t count = Word(value);
    for (uint32_t i = 0; i < count && 4 + (i + 1) * 4 * wordsPerEntry <= value.size(); ++i) {
        entries.push_back(Word(value, 1 + i * wordsPerEntry));
    }
    return entries;
}

// All bits set is an error variable's clear value, as 0 is.
constexpr uint32_t ErrorClear = 0xFFFFFFFFu;

std::string JamText(uint32_t places) {
    return places == 0 || places == ErrorClear ? "none" : "at places " + Hex32(places);
}

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

// What the spooler's side says of the job: "" once it has handed it over.
std::string JobStateText(uint32_t status) {
    if ((status & JobCancelling) != 0) return "cancelling";
    if ((status & JobPaused) != 0) return "paused";
    if ((status & JobRunning) != 0) return "being sent";
    return "";
}

std::string JobText(const Job& job) {
    std::string text = !job.report.empty() ? job.report : job.id != 0 ? "job " + std::to_string(job.id) : "a job";
    if (!job.document.empty()) text += ", \"" + job.document + "\"";
    const std::string state = JobStateText(job.status);
    return state.empty() ? text : text + " (" + state + ")";
}

void Add(std::vector<ViewLine>& lines, const std::string& key, const std::string& label, const std::string& text) {
    std::string line = "  " + label;
    line.append(label.size() < 13 ? 13 - label.size() : 1, ' ');
    lines.push_back({key, line + text});
}

}  // namespace

bool PrinterFacts::StatusRead() const {
    const Bytes status = Variable("PrinterStatus");
    return status && status->size() >= 12 && (Word(*status, 1) & NotReadWords) == 0;
}

std::string PrinterStatusText(uint32_t word1, uint32_t word2) {
    if ((word1 & PrinterLostWord) != 0) return "the printer does not answer";
    if ((word1 & PrinterForeignWord) != 0) return "a printer of no known model";
    if ((word1 & 0x400) != 0) return "the port has no way back from the printer";
    if ((word1 & 0x800) != 0) return "not read yet";
    for (const StatusName& name : StatusNames) {
        const ConditionStatus status = StatusOfCondition(name.Condition);
        // A job on the port adds its bit to any of them.
        if (status.StatusWord1 == word1 && (status.StatusWord2 | JobOnPortBit) == (word2 | JobOnPortBit)) {
            // The icon a status display shows for it, which the status words
            // carry with them: IconState itself goes once it is published.
            const char* severity = status.IconState == 1 ? " (error)" : status.IconState == 2 ? " (warning)" : "";
            return std::string(name.Name) + severity;
        }
    }
    return word1 == 0 && (word2 & ~JobOnPortBit) == 0 ? "nothing to report"
                                                      : "status words " + Hex32(word1) + " " + Hex32(word2);
}

bool StopsPrinting(uint32_t word1, uint32_t word2) {
    if ((word1 & PrinterLostWord) != 0) return true;
    for (const StatusName& name : StatusNames) {
        const ConditionStatus status = StatusOfCondition(name.Condition);
        if (status.StatusWord1 == word1 && (status.StatusWord2 | JobOnPortBit) == (word2 | JobOnPortBit)) {
            return status.IconState == 1;
        }
    }
    return false;
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
    std::vector<ViewLine> lines;
    const bool client = scope == ViewScope::Client;
    const Bytes maker = facts.Variable("PrinterManufacturer");
    const Bytes model = facts.Variable("PrinterModel");
    std::string who = (maker ? Text(*maker) + " " : "") + (model ? Text(*model) : "(no model named)");
    if (const std::optional<bool> known = facts.ModelKnown()) who += *known ? ", a known model" : ", no known model";
    Add(lines, "printer", "printer", who);
    if (const Bytes status = facts.Variable("PrinterStatus"); status && status->size() >= 12) {
        Add(lines, "status", "status", PrinterStatusText(Word(*status, 1), Word(*status, 2)));
    }
    if (client) {
        const Bytes display = facts.Variable("PrinterDisplay");
        std::string panel = "not reported";
        if (display) {
            const std::vector<std::string> panelLines = PanelLines(*display);
            panel = "\"" + panelLines[0] + "\"" + (panelLines[1].empty() ? "" : " / \"" + panelLines[1] + "\"");
            if (panelLines[0].empty() && panelLines[1].empty()) panel = "blank";
        }
        Add(lines, "panel", "panel", panel);
    }
    // Levels, trays and faults mean something only for a printer whose
    // status the monitor reads; otherwise they stand at "unknown".
    if (facts.StatusRead()) {
        if (const Bytes toner = facts.Variable("TonerRemain"); toner && toner->size() >= 4) {
            const std::vector<uint8_t>& l = *toner;
            Add(lines, "toner", "toner", Level(l[0]) + ", " + Level(l[1]) + ", " + Level(l[2]) + ", " + Level(l[3]));
        }
        if (const Bytes unit = facts.Variable("CRURemain"); unit && !unit->empty()) {
            Add(lines, "drum unit", "drum unit", Level((*unit)[0]));
        }
        if (const Bytes supplies = facts.Variable("ErrSupplies"); supplies && Word(*supplies) != 0) {
            Add(lines, "supplies", "supplies", Hex32(Word(*supplies)) + " (empty, near empty, low, faults by byte)");
        }
        if (const Bytes bins = facts.Variable("PrinterBinConfig")) {
            Add(lines, "trays", "trays", std::to_string(Word(*bins)));
            for (const Tray& tray : Trays(facts, *bins)) {
                std::string text = "    " + tray.name + ": paper size " + std::to_string(tray.paperSize);
                if (tray.paper) {
                    text += " (" + Dimension(tray.paper->first) + " x " + Dimension(tray.paper->second) + " mm)";
                }
                text += ", media type " + std::to_string(tray.mediaType) + ", " + TrayLevel(tray.level);
                lines.push_back({"tray " + tray.name, text});
            }
        }
        if (const Bytes covers = facts.Variable("ErrCoverOpen")) {
            Add(lines, "covers", "covers", Word(*covers) == 0 ? "closed" : "open: " + Hex32(Word(*covers)));
        }
        if (const Bytes jams = facts.Variable("ErrPaperJam")) Add(lines, "jams", "jams", JamText(Word(*jams)));
        if (const Bytes options = facts.Variable("PrinterOptConfig")) {
            std::string text;
            for (const uint32_t entry : CountedWords(*options, sizeof(OptionEntry) / 4)) {
                text += (text.empty() ? "" : " ") + OptionName(static_cast<uint16_t>(entry & 0xFFFF));
            }
            Add(lines, "options", "options", text.empty() ? "none" : text);
        }
        if (const Bytes memory = facts.Variable("PrinterMemory")) {
            Add(lines, "memory", "memory", std::to_string(Word(*memory) / 1024) + " MB");
        }
    }
    if (const Bytes languages = facts.Variable("EmulationInfo")) {
        std::string text;
        for (const uint32_t code : CountedWords(*languages, 1)) text += (text.empty() ? "" : " ") + LanguageName(code);
        Add(lines, "languages", "languages", text.empty() ? "none known" : text);
    }
    if (client) {
        const Bytes pages = facts.Variable("PageCount");
        Add(lines, "page count", "page count", pages ? std::to_string(Word(*pages)) : "not reported");
        const Bytes tag = facts.Variable("ServiceTag");
        Add(lines, "service tag", "service tag", tag && !Text(*tag).empty() ? Text(*tag) : "not reported");
        const std::optional<Job> job = JobInProgress(facts);
        Add(lines, "job", "job", job ? JobText(*job) : "none");
    }
    return lines;
}

void WriteView(std::ostream& out, const std::vector<ViewLine>& lines) {
    for (const ViewLine& line : lines) out << line.text << '\n';
}

void WriteViewJson(std::ostream& out, const PrinterFacts& facts) {
    const auto number = [](const std::optional<uint32_t>& value) {
        return value ? std::to_string(*value) : std::string("null");
    };
    const auto text = [](const Bytes& value) { return value ? JsonText(Text(*value)) : std::string("null"); };
    const auto level = [](uint8_t value) { return value >= 254 ? std::string("null") : std::to_string(value); };
    const auto word = [&](const char* name) -> std::optional<uint32_t> {
        const Bytes value = facts.Variable(name);
        if (!value || value->size() < 4) return std::nullopt;
        return Word(*value);
    };
    const bool read = facts.StatusRead();
    std::ostringstream json;
    json << "{\"printer\": {\"manufacturer\": " << text(facts.Variable("PrinterManufacturer"))
         << ", \"model\": " << text(facts.Variable("PrinterModel")) << "}, \"status\": ";
    const Bytes status = facts.Variable("PrinterStatus");
    json << (status && status->size() >= 12 ? JsonText(PrinterStatusText(Word(*status, 1), Word(*status, 2)))
                                            : std::string("null"));
    json << ", \"panel\": ";
    if (const Bytes display = facts.Variable("PrinterDisplay")) {
        const std::vector<std::string> panel = PanelLines(*display);
        json << '[' << JsonText(panel[0]) << ", " << JsonText(panel[1]) << ']';
    } else {
        json << "null";
    }
    json << ", \"toner\": ";
    if (const Bytes toner = facts.Variable("TonerRemain"); read && toner && toner->size() >= 4) {
        json << "{\"cyan\": " << level((*toner)[0]) << ", \"magenta\": " << level((*toner)[1])
             << ", \"yellow\": " << level((*toner)[2]) << ", \"black\": " << level((*toner)[3]) << '}';
    } else {
        json << "null";
    }
    const Bytes unit = facts.Variable("CRURemain");
    json << ", \"drum_unit\": " << (read && unit && !unit->empty() ? level((*unit)[0]) : "null");
    json << ", \"supplies\": " << (read ? number(word("ErrSupplies")) : "null") << ", \"trays\": ";
    const Bytes bins = facts.Variable("PrinterBinConfig");
    if (read && bins) {
        json << '[';
        const char* separator = "";
        for (const Tray& tray : Trays(facts, *bins)) {
            json << separator << "{\"name\": " << JsonText(tray.name) << ", \"paper_size\": " << tray.paperSize
                 << ", \"paper_mm\": ";
            if (tray.paper) {
                json << '[' << tray.paper->first / 10.0 << ", " << tray.paper->second / 10.0 << ']';
            } else {
                json << "null";
            }
            json << ", \"media_type\": " << unsigned{tray.mediaType} << ", \"level\": " << JsonText(TrayLevel(tray.level))
                 << '}';
            separator = ", ";
        }
        json << ']';
    } else {
        json << "null";
    }
    json << ", \"covers_open\": " << (read ? number(word("ErrCoverOpen")) : "null");
    const std::optional<uint32_t> jams = read ? word("ErrPaperJam") : std::nullopt;
    json << ", \"jams\": " << (!jams ? "null" : std::to_string(jams.value_or(0) == ErrorClear ? 0 : jams.value_or(0)))
         << ", \"options\": ";
    if (const Bytes options = facts.Variable("PrinterOptConfig"); read && options) {
        json << '[';
        const char* separator = "";
        for (const uint32_t entry : CountedWords(*options, sizeof(OptionEntry) / 4)) {
            json << separator << JsonText(OptionName(static_cast<uint16_t>(entry & 0xFFFF)));
            separator = ", ";
        }
        json << ']';
    } else {
        json << "null";
    }
    const std::optional<uint32_t> memory = read ? word("PrinterMemory") : std::nullopt;
    json << ", \"memory_mb\": " << (memory ? std::to_string(*memory / 1024) : "null") << ", \"languages\": ";
    if (const Bytes languages = facts.Variable("EmulationInfo")) {
        json << '[';
        const char* separator = "";
        for (const uint32_t code : CountedWords(*languages, 1)) {
            json << separator << JsonText(LanguageName(code));
            separator = ", ";
        }
        json << ']';
    } else {
        json << "null";
    }
    const Bytes tag = facts.Variable("ServiceTag");
    json << ", \"page_count\": " << number(word("PageCount"))
         << ", \"service_tag\": " << (tag && !Text(*tag).empty() ? JsonText(Text(*tag)) : "null") << ", \"job\": ";
    if (const std::optional<Job> job = JobInProgress(facts)) {
        json << "{\"id\": " << job->id << ", \"document\": " << JsonText(job->document)
             << ", \"state\": " << (JobStateText(job->status).empty() ? "null" : JsonText(JobStateText(job->status))) << ", \"pages\": " << job->pages << '}';
    } else {
        json << "null";
    }
    json << "}\n";
    out << json.str();
}

}  // namespace langmon::tool
