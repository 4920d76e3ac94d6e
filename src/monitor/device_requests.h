// Requests of the spooler and of clients that reach the port outside a job's
// data: ReadPort and GetPrinterDataFromPort.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

BOOL ReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead);
BOOL GetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPSTR pValueName, LPSTR lpInBuffer,
                            DWORD cbInBuffer, LPSTR lpOutBuffer, DWORD cbOutBuffer,
                            LPDWORD lpcbReturned);
// The spooler's reset of the running job (ControlID 7 on a printer of the family).
void ResetRunningJob(PortContext* port);

}  // namespace langmon
