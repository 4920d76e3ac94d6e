// One CUPS job through the monitor, as the spooler of the monitor's own
// system would send it: the machine made from what CUPS says (the queue,
// the job, the port of the device URI, the driver of the model the printer
// names), then OpenPortEx, StartDocPort, WritePort block by block and
// EndDocPort; then the job followed as its status client until the printer
// reports its end, and ClosePort. Meanwhile CUPS is told the printer's
// state, supplies and panel, and its side channel is answered.
#pragma once

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace langmon::backend {

struct BackendJob {
    std::string deviceUri;  // a printer address: "langmon://HOST:PORT?snmp=PORT", ...
    std::string queue;      // the CUPS queue, which is the monitor's printer
    uint32_t id = 0;
    std::string user;
    std::string title;
    std::string file;  // empty: the job comes on standard input
    bool sideChannel = false;  // CUPS gave the backend its side channel
};

// Runs `job`, telling CUPS on `cups` (standard error) in the message forms
// of filter(7); `cancelled` is set by CUPS's SIGTERM. Returns a CUPS_BACKEND_*
// exit code; after a cancel it ends the process with CUPS_BACKEND_OK once the
// job is ended at the printer.
int RunBackendJob(const BackendJob& job, std::ostream& cups, const std::atomic<bool>& cancelled);

}  // namespace langmon::backend
