// What the port's status thread does after the job's end, pass by pass, as
// the person who printed wants to follow it: each poll of the printer with
// the printer's condition, until the job has left the printer.
#pragma once

#include <langmon/monitor.h>

#include "progress_line.h"

#include <atomic>
#include <functional>
#include <iosfwd>
#include <string>

namespace langmon {
struct PortContext;
}

namespace langmon::tool {

// Counts the device ID requests that pass through the table from now on;
// the table's own entry is called for each. One table at a time.
void CountPolls(MONITOR* lower);

// How long a printer that stopped (a jam, an open cover, no paper) may keep
// a job standing before the command gives the job up at it.
inline constexpr DWORD StoppedPrinterLimitMs = 10000;

// What stops the printer on `port` from going on with a job, in words, as
// the monitor's last poll found it ("paper jam (error)", "the printer does
// not answer"); empty while nothing does.
std::string StoppingCondition(PortContext* port);

// Where following begins: the polls counted so far and the tick then. Taken
// before the job's end, whose release of the port the thread may meet with
// a poll at once, before the command has begun to follow it.
struct FollowStart {
    unsigned polls = 0;
    DWORD tick = 0;
};
FollowStart FollowFromNow();

// How following the status thread ended.
struct FollowOutcome {
    // The condition that held the printer still with the job at it for
    // StoppedPrinterLimitMs; empty when the printer went on.
    std::string stoppedBy;
};

// Follows the port's status thread from `from` until it ends, `limitMs` have passed,
// the printer has stood stopped with the job at it for `stoppedLimitMs`, or
// `stop` is set: one line per poll, with the client's latest word on the job
// from `jobNow` when it has one, and that word on `progress` between polls.
// Nothing when the port has no thread.
FollowOutcome FollowMonitoring(std::ostream& out, PortContext* port, FollowStart from, DWORD limitMs, DWORD stoppedLimitMs,
                               const std::atomic<bool>& stop, ProgressLine& progress,
                               const std::function<std::string()>& jobNow);

}  // namespace langmon::tool
