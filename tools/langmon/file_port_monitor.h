// A port monitor whose one port is a file: what the printer would receive is
// written to it. It has no way back, so device ID requests fail, as they do
// with a printer that does not answer.
#pragma once

#include <langmon/monitor.h>

#include <string>

namespace langmon::tool {

// The table of the port monitor; every port it opens writes to `path`.
MONITOR FilePortMonitor(const std::string& path);

}  // namespace langmon::tool
