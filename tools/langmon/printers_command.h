// `langmon printers`: the printers langmond serves, each with its state in
// one line, asked of the daemon on its control socket; or, with
// --prometheus, every printer's status as metrics for Prometheus.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::tool {

struct PrintersOptions {
    std::string socket;  // empty: LANGMON_SOCKET, or the daemon's default
    bool json = false;
    bool prometheus = false;  // every printer's status as Prometheus metrics
};

bool ParsePrintersOptions(const std::vector<std::string>& words, PrintersOptions* options, std::string* error);

// 0 with the list; 1 with a message when no daemon answers.
int RunPrinters(const PrintersOptions& options, std::ostream& out, std::ostream& err);

}  // namespace langmon::tool
