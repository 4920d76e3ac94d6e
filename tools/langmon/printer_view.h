// The printer as a person wants to see it, made from what the monitor
// publishes: who it is, its state and panel, supply levels, trays with
// their paper, covers, jams, options, memory, page count, service tag and
// the job in progress; and the same facts as the "printer" object of the
// command's JSON. The facts come from the port's own variables (`langmon
// decode`, print's last poll) or from a status client's store (`langmon
// status`, print's client).
#pragma once

#include "variables_view.h"

#include <nlohmann/json_fwd.hpp>

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
    // along the feed direction, when the printer told them; by default none,
    // and the view takes them from the paper size.
    virtual std::optional<std::pair<uint32_t, uint32_t>> TrayPaper(int) const { return std::nullopt; }
    // Whether the levels, trays and faults are the printer's own reading:
    // by default, when PrinterStatus says the printer is read.
    virtual bool StatusRead() const;
    // Whether the monitor knows the printer's model, when the facts say.
    virtual std::optional<bool> ModelKnown() const { return std::nullopt; }
};

// The facts of a list of values, as a client read them.
class ValueFacts final : public PrinterFacts {
public:
    explicit ValueFacts(const std::vector<VariableValue>& values) : values_(values) {}
    std::optional<std::vector<uint8_t>> Variable(const char* name) const override;

private:
    const std::vector<VariableValue>& values_;
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
// The lines of `now` that differ from `before`, and a line for each of
// `before`'s that went: what a watch shows of a change.
std::vector<std::string> ChangedViewLines(const std::vector<ViewLine>& before, const std::vector<ViewLine>& now);

// The same facts as the "printer" object of docs/langmon.schema.json; what
// the printer didn't tell, or the scope doesn't hold, is null.
nlohmann::ordered_json PrinterJson(const PrinterFacts& facts, ViewScope scope);

// What PrinterStatus's StatusWord1 and StatusWord2 say, in words, with the
// severity: "paper jam (error)".
std::string PrinterStatusText(uint32_t word1, uint32_t word2);

// Whether the printer, as PrinterStatus's words tell, can't go on with a job
// until somebody sees to it (a jam, an open cover, no paper: a status shown
// as an error) or does not answer at all.
bool StopsPrinting(uint32_t word1, uint32_t word2);

// The two lines of the printer's panel, from PrinterDisplay, in UTF-8 and
// without the blanks that pad them.
std::vector<std::string> PanelLines(const std::vector<uint8_t>& display);

}  // namespace langmon::tool
