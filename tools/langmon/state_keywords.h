// The one table from the monitor's status to stable keywords: the status
// that PrinterStatus carries (the most urgent Condition, or why the printer
// is not read), in words for a person and as keywords for scripts, with
// the printer state and the printer-state-reasons words a CUPS backend
// reports. Supplies, covers and jams add their own reasons.
#pragma once

#include "supplies.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace langmon::tool {

struct PrinterCondition {
    std::string keyword;  // "ready", "printing", "cover-open", "paper-jam", "not-responding", ...
    std::string words;    // "ready", "a cover is open", ...
    std::optional<std::string> severity;  // "error" or "warning", as the status icon shows it
    // "idle", "processing" or "stopped", as CUPS and IPP name a printer's
    // state; none when the printer is not read.
    std::optional<std::string> state;
    std::optional<std::string> reason;  // the Condition's own printer-state-reason
};

// What PrinterStatus's StatusWord1 and StatusWord2 say.
PrinterCondition ConditionOfStatus(uint32_t word1, uint32_t word2);

// Every printer-state-reason that stands: the condition's, each supply's,
// "cover-open" for open covers, "media-jam" for jams; each once, none when
// nothing is wrong.
std::vector<std::string> StateReasons(const PrinterCondition& condition, const std::vector<Supply>& supplies,
                                      bool coverOpen, bool jammed);

}  // namespace langmon::tool
