// WritePort: each block of a job on its way to the printer.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

BOOL WritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten);

// Looks once at the job's first block: PostScript, a PJL job of its own, or
// neither. Decides the name that the trailer will carry.
void SniffJobStart(PortContext* port, const uint8_t* data, DWORD length);
// Forgets what the first block of the last job showed.
void ResetSniffState(PortContext* port);

}  // namespace langmon
