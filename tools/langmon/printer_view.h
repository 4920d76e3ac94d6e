// The printer as a person wants to see it, made from what the monitor
// publishes: who it is, its state and panel, toner and unit levels, trays
// with their paper, covers, jams, options, memory, page count, service tag
// and the job in progress. The facts come from the port's own variables
// (`langmon decode`) or from a status client's store (`langmon status`).
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace langmon::tool {

// Where a view takes its facts from.
class PrinterFacts {
public:
    virtual ~PrinterFacts() = default;
    // A status variable's value as clients get it; none without a value.
    virtual std::optional<std::vector<uint8_t>> Variable(const char* name) const = 0;
    // A tray's paper (tray 0 to 2) in tenths of a millimetre, across and
    // along the feed direction, when the printer told them.
    virtual std::optional<std::pair<uint32_t, uint32_t>> TrayPaper(int tray) const = 0;
    // Whether the levels, trays and faults are the printer's own reading:
    // by default, when PrinterStatus says the printer is read.
    virtual bool StatusRead() const;
    // Whether the monitor knows the printer's model, when the facts say.
    virtual std::optional<bool> ModelKnown() const { return std::nullopt; }
};

// One line of a view: `key` names what it shows (for telling what changed),
// `text` is the line as printed, without its end.
struct ViewLine {
    std::string key;
    std::string text;
};

// What the view shows beyond what the device ID tells: the panel, the page
// count, the service tag and the job, which only a status client is given.
enum class ViewScope { DeviceId, Client };

std::vector<ViewLine> DescribePrinter(const PrinterFacts& facts, ViewScope scope);
void WriteView(std::ostream& out, const std::vector<ViewLine>& lines);

// The same facts as one JSON object on one line: {"printer": {"manufacturer",
// "model"}, "status", "panel": [2 texts], "toner": {"cyan", "magenta",
// "yellow", "black"}, "drum_unit", "supplies", "trays": [{"name",
// "paper_size", "paper_mm": [across, along], "media_type", "level"}],
// "covers_open", "jams", "options": [...], "memory_mb", "languages": [...],
// "page_count", "service_tag", "job": {"id", "document", "state", "pages"}};
// what the printer didn't tell is null.
void WriteViewJson(std::ostream& out, const PrinterFacts& facts);

// What PrinterStatus's StatusWord1 and StatusWord2 say, in words.
std::string PrinterStatusText(uint32_t word1, uint32_t word2);

// Whether the printer, as PrinterStatus's words tell, can't go on with a job
// until somebody sees to it (a jam, an open cover, no paper: a status shown
// as an error) or does not answer at all.
bool StopsPrinting(uint32_t word1, uint32_t word2);

// The two lines of the printer's panel, from PrinterDisplay, in UTF-8 and
// without the blanks that pad them.
std::vector<std::string> PanelLines(const std::vector<uint8_t>& display);

}  // namespace langmon::tool
