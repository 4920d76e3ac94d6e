// One CUPS job for a printer that langmond owns: the job streamed to the
// daemon, which sends it through the port it holds open, and CUPS told the
// printer's state, supplies and panel from the daemon's view of it, and the
// pages from the printer's report of the job's end as the daemon followed it.
#pragma once

#include "backend_job.h"
#include "cups_link.h"

#include <atomic>
#include <string>

namespace langmon::backend {

// Runs `job` at the daemon's printer `printer`, through the daemon at
// `socketPath`. Returns a CUPS_BACKEND_* exit code.
int RunDaemonJob(const BackendJob& job, const std::string& printer, const std::string& socketPath,
                 CupsLines& lines, const std::atomic<bool>& cancelled);

}  // namespace langmon::backend
