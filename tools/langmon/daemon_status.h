// `langmon status NAME`: a printer that langmond serves, shown from this
// process as any status application sees it: through the status manager
// library, whose handle on the printer's store is the daemon's. The daemon
// keeps the printer polled; this side only reads the store and, with
// --watch, is told of each change.
#pragma once

#include "status_command.h"

#include <atomic>
#include <iosfwd>

namespace langmon::tool {

// Shows `options.daemonPrinter`. Returns the exit code: 0 when it was shown,
// 1 when no daemon answers, it serves no printer of that name, or it went
// away during a watch.
int RunDaemonStatus(const StatusOptions& options, std::ostream& out, std::ostream& err,
                    const std::atomic<bool>& interrupted);

}  // namespace langmon::tool
