// One job sent through the monitor the way the spooler sends it: StartDocPort,
// then block by block: a block read from the job file, WritePort again and
// again with what the port has not yet taken, the next block; and EndDocPort.
// The job is never held whole, however long it is.
#pragma once

#include "monitoring_view.h"
#include "printer_target.h"
#include "progress_line.h"
#include "stream_record.h"

#include "platform/user_input.h"

#include <langmon/monitor.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

namespace langmon::tool {

// A printer that takes nothing for this long, neither the job's bytes nor
// the monitor's own, has its job given up. A printer that takes bytes,
// however slowly, gets the whole job.
inline constexpr DWORD StalledPrinterLimitMs = 60000;

// What each call of a job gave. A call that failed keeps the last error it
// left behind.
struct SentJob {
    BOOL started = FALSE;
    DWORD startError = 0;
    std::uint64_t writeCalls = 0;
    std::uint64_t taken = 0;
    StreamRecord job;          // what was read of the job file
    std::string writeFailure;  // why the writes stopped short; empty when all was taken
    std::string stoppedBy;     // what stopped the printer, when that is why
    BOOL ended = FALSE;        // EndDocPort is called only for a started job
    DWORD endError = 0;
};

// What the sender looks at, and tells, while it sends.
struct SendWatch {
    explicit SendWatch(const std::atomic<bool>& interrupted) : stop(interrupted) {}
    // Set when the user interrupted.
    const std::atomic<bool>& stop;
    // Why the printer can't go on, as the monitor last found it (see
    // StoppingCondition); empty while it can. None: never stopped.
    std::function<std::string()> stoppedBy;
    // Called once StartDocPort has returned, before any write, and just
    // before EndDocPort.
    std::function<void()> started;
    std::function<void()> ending;
    // Where a wait is said before it begins; none: not said.
    std::ostream* out = nullptr;
    // Where the bytes sent so far are shown; none: not shown.
    ProgressLine* progress = nullptr;
    // A spooler's patience: a call that fails or takes nothing is made again
    // until the printer takes the job or `stop` is set, however long that
    // is; `waiting` is told, with the reason, each time the writes begin or
    // end a wait that way ("" when they go on). Without it, a failed call
    // ends the job and so does a printer that takes nothing for long.
    bool patient = false;
    // A spooler passing on a filter's output: each block is what one read
    // of the job gives, sent at once, rather than a block filled first.
    bool streaming = false;
    // Set while a block read from the job is not yet all taken: what a
    // spooler's "drain" waits on. None: not told.
    std::atomic<bool>* holdingBlock = nullptr;
    std::function<void(const std::string& reason)> waiting;
};

// The job as the spooler's job list holds it.
struct JobTicket {
    DWORD id = 1;
    std::string document;
    std::string user;
};

// The user a command sends its jobs for: $USER, or "langmon" without one.
std::string CommandUser();

// The job `ticket` read from `job` on an open port of `printerName`, handed over in blocks of `blockSize` bytes. Writes stop at a
// failed call, at a problem reading the job, once `printer` has taken
// nothing for StalledPrinterLimitMs on the platform clock (for
// StoppedPrinterLimitMs when the monitor finds the printer stopped), or once
// the user interrupted; the job is ended in every case.
SentJob SendJob(const MONITOR& monitor, HANDLE port, const std::string& printerName, const JobTicket& ticket,
                platform::InputFile& job, unsigned blockSize, const PrinterTarget& printer, const SendWatch& watch);

// "ok", or "failed: " and the error in words, e.g. "failed: the file was not
// found (error 2)".
std::string CallOutcome(BOOL result, DWORD error);

}  // namespace langmon::tool
