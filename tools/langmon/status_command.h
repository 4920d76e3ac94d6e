// `langmon status`: a status application on a port. It binds to the printer's
// store in the status manager library as any client does, asks the monitor
// for fresh values, and shows the printer; with --watch it keeps the monitor
// polling and shows each change until it is interrupted.
#pragma once

#include "command_words.h"
#include "timed_change.h"

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

// Without a printer of the machine on the port, the command adds a queue
// for the emulated model.
struct StatusOptions : PortChoice {
    bool json = false;
    bool variables = false;  // the client's variables in hex too
    bool watch = false;
    uint32_t forMs = 0;  // with --watch, how long; 0 until interrupted
    std::vector<TimedChange> changes;  // in the order of their moments
    // A printer that langmond serves, by name: shown through the daemon
    // instead of a port of the command's own (see daemon_status.h).
    std::string daemonPrinter;
    std::string socket;  // the daemon's socket; empty: LANGMON_SOCKET or the default
};

bool ParseStatusOptions(const std::vector<std::string>& words, StatusOptions* options, std::string* error);

// Shows the printer on `out`, and what went wrong on `err`; with --watch
// follows it until `forMs` has passed on the platform clock or `interrupted`
// is set. Returns the exit code: 0 when the printer was shown, 1 when the
// port or its client could not be had.
int RunStatus(const StatusOptions& options, std::ostream& out, std::ostream& err,
              const std::atomic<bool>& interrupted);

}  // namespace langmon::tool
