// The language monitor as a benchmark or a fuzz target drives it, with no
// spooler around it: initialised under the monitor's own registry key, on a
// machine whose USB port monitor describes "USB001" as two-way, so that a
// port opened there is polled as a printer's USB port would be.
#pragma once

#include <langmon/monitor.h>

namespace langmon::tool {

// Fills `table` with the monitor's entry points; FALSE, with the last error,
// when the monitor would not initialise. The caller chooses the clock first.
BOOL InitializeHarnessMonitor(MONITOR* table);

}  // namespace langmon::tool
