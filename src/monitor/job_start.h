// StartDocPort: the spooler's signal that a job begins on a port.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

BOOL StartDocPort(HANDLE hPort, LPSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo);

// The semaphore wait of a job start: bounded at 30000 ms, repeated without end
// on a local port, given up elsewhere. True when the semaphore was got.
bool WaitSerialForJobStart(PortContext* port);

}  // namespace langmon
