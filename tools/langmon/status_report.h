// What the monitor knows of the printer on a port, read from the port's own
// variables: as a person reads it, as the "printer" object of the JSON, and
// every variable with a value.
#pragma once

#include "variables_view.h"

#include <nlohmann/json_fwd.hpp>

#include <iosfwd>
#include <vector>

namespace langmon {
struct PortContext;
}

namespace langmon::tool {

// The printer as a person supporting it wants to see it: who it is, its
// state, supply levels, trays with their paper, covers, jams, options,
// memory.
void DescribePrinterStatus(std::ostream& out, PortContext* port);
nlohmann::ordered_json PortPrinterJson(PortContext* port);

// Every variable of the port that has a value, in the table's order.
std::vector<VariableValue> PortVariables(PortContext* port);

}  // namespace langmon::tool
