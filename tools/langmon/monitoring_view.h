// What the port's status thread does after the job's end, pass by pass, as
// the person who printed wants to follow it: each poll of the printer with
// the printer's condition, until the job has left the printer.
#pragma once

#include <langmon/monitor.h>

#include <atomic>
#include <iosfwd>

namespace langmon {
struct PortContext;
}

namespace langmon::tool {

// Counts the device ID requests that pass through the table from now on;
// the table's own entry is called for each. One table at a time.
void CountPolls(MONITOR* lower);

// Follows the port's status thread until it ends, `limitMs` have passed or
// `stop` is set, one line per poll. Nothing when the port has no thread.
void FollowMonitoring(std::ostream& out, PortContext* port, DWORD limitMs, const std::atomic<bool>& stop);

}  // namespace langmon::tool
