// One job sent through the monitor the way the spooler sends it: StartDocPort,
// then block by block: a block read from the job file, WritePort again and
// again with what the port has not yet taken, the next block; and EndDocPort.
// The job is never held whole, however long it is.
#pragma once

#include "printer_target.h"
#include "stream_record.h"

#include "platform/user_input.h"

#include <langmon/monitor.h>

#include <atomic>
#include <cstdint>
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
    BOOL ended = FALSE;        // EndDocPort is called only for a started job
    DWORD endError = 0;
};

// The job read from `job` on an open port of `printerName`, named
// `document`, handed over in blocks of `blockSize` bytes. Writes stop at a
// failed call, at a problem reading the job, once `printer` has taken
// nothing for StalledPrinterLimitMs on the platform clock, or once `stop` is
// set (the user interrupted); the job is ended in every case.
SentJob SendJob(const MONITOR& monitor, HANDLE port, const std::string& printerName, DWORD jobId,
                const std::string& document, platform::InputFile& job, unsigned blockSize,
                const PrinterTarget& printer, const std::atomic<bool>& stop);

// "ok", or "failed: " and the error in words, e.g. "failed: the file was not
// found (error 2)".
std::string CallOutcome(BOOL result, DWORD error);

}  // namespace langmon::tool
