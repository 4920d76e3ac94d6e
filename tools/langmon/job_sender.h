// One job sent through the monitor the way the spooler sends it: StartDocPort,
// WritePort again and again with what the port has not yet taken, and
// EndDocPort.
#pragma once

#include <langmon/monitor.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace langmon::tool {

// What each call of a job gave. A call that failed keeps the last error it
// left behind.
struct SentJob {
    BOOL started = FALSE;
    DWORD startError = 0;
    unsigned writeCalls = 0;
    std::size_t taken = 0;
    std::string writeFailure;  // why the writes stopped short; empty when all was taken
    BOOL ended = FALSE;        // EndDocPort is called only for a started job
    DWORD endError = 0;
};

// The job `bytes` on an open port of `printerName`, named `document`, handed
// over in blocks of `blockSize` bytes. Writes stop at a failed call or when
// the port has taken nothing many times running, as a spooler gives up on a
// printer that holds it back.
SentJob SendJob(const MONITOR& monitor, HANDLE port, const std::string& printerName, DWORD jobId,
                const std::string& document, std::string_view bytes, unsigned blockSize);

// A job file's bytes; false when it can't be read.
bool ReadWholeFile(const std::string& path, std::string* bytes);

// "ok", or "failed, last error N".
std::string CallOutcome(BOOL result, DWORD error);

}  // namespace langmon::tool
