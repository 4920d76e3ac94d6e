// What the port's status thread does after the job's end, pass by pass, as
// the person who printed wants to follow it: each poll of the printer with
// the printer's condition, until the job has left the printer.
#pragma once

#include <langmon/monitor.h>

#include <iosfwd>

namespace langmon {
struct PortContext;
}

namespace langmon::tool {

// Counts the device ID requests that pass through the table from now on;
// the table's own entry is called for each. One table at a time.
void CountPolls(MONITOR* lower);

// Follows the port's status thread until it ends or `limitMs` have passed,
// one line per poll. Nothing when the port has no thread.
void FollowMonitoring(std::ostream& out, PortContext* port, DWORD limitMs);

}  // namespace langmon::tool
