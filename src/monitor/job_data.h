// WritePort: each block of a job on its way to the printer.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

BOOL WritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten);

// Forgets what the first block of the last job showed.
void ResetSniffState(PortContext* port);

}  // namespace langmon
