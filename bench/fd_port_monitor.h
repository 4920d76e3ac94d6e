// The port monitor below the data-path benchmark: the sink's table, but every
// write goes to a file descriptor with one write(2), as a port monitor's
// write to a device would. What it takes is what write(2) took, so a short
// write shows to the language monitor as a partial take.
#pragma once

#include <langmon/monitor.h>

#include <vector>

namespace langmon::bench {

// The table of the port monitor; its writes go to `fd`, which the caller
// keeps open for as long as a port is open through it. The length of each
// write is appended to `writes` while its capacity lasts, so that a plain
// loop can make the very same writes; the log never grows, so a job through
// the monitor allocates nothing for it.
MONITOR FdPortTable(int fd, std::vector<DWORD>* writes);

}  // namespace langmon::bench
