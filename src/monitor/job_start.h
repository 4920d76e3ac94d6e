// StartDocPort: the spooler's signal that a job begins on a port.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

BOOL StartDocPort(HANDLE hPort, LPSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo);

}  // namespace langmon
