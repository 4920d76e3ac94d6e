// `langmon print FILE --printer NAME` for a printer that langmond owns: the
// job streamed to the daemon, which sends it through the port it holds open,
// and a short report in the command's usual order: what the daemon did with
// the job, what was sent, and the printer's report of the job's end.
#pragma once

#include "print_command.h"

#include <atomic>
#include <iosfwd>
#include <string>

namespace langmon::tool {

// Sends `options.jobFile` to the daemon's printer `printer` through the
// daemon at `socketPath`. Exit codes as RunPrint's.
int RunDaemonPrint(const PrintOptions& options, const std::string& printer,
                   const std::string& socketPath, std::ostream& out, std::ostream& err,
                   const std::atomic<bool>& interrupted);

}  // namespace langmon::tool
