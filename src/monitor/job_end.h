// EndDocPort: the end of the spooler's side of a job. On a two-way port the
// job lives on in the port's job list until the printer reports its end.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

BOOL EndDocPort(HANDLE hPort);

// Jobs in the printer's spooler queue that still wait to be sent: none of
// paused, deleting, printing, printed or deleted. 0 when it can't be told.
DWORD CountWaitingJobs(PortContext* port);

}  // namespace langmon
