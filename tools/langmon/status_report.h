// What the monitor knows of the printer on a port, as a person reads it and
// as one JSON object: the status variables with a value, and the LM_ values.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

namespace langmon {
struct PortContext;
}

namespace langmon::tool {

// The printer as a person supporting it wants to see it: who it is, its
// state, toner and unit levels, trays with their paper, covers, jams,
// options, memory; with `listVariables` then every variable with a value,
// in hex.
void DescribePrinterStatus(std::ostream& out, PortContext* port, bool listVariables);

// {"model_known": bool, "model_mask": [low, high], "variables": {NAME:
// {"hex": "...", "dirty": 0|1}}, "lm": {...}} on one line.
void WritePrinterStatusJson(std::ostream& out, PortContext* port);

}  // namespace langmon::tool
