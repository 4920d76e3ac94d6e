// Whether a printer a command is given belongs to langmond: when the daemon
// owns a printer, its jobs go through the daemon, so that its port is never
// opened by two processes.
#pragma once

#include <string>

namespace langmon::tool {

// True when `a` and `b` lead to the same printer: the same device or file,
// or the same host and raw port. Never for the emulated printer, which each
// process has one of its own.
bool SamePrinter(const std::string& a, const std::string& b);

// The name of langmond's printer that `printer` names, when a daemon answers
// on `socketPath`: a printer of that name, or one at the same printer (see
// SamePrinter). Empty when no daemon answers or none of its printers is it.
std::string DaemonPrinterFor(const std::string& printer, const std::string& socketPath);

}  // namespace langmon::tool
