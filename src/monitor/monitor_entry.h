// The entry table and the port objects: InitializeMonitorEx, OpenPortEx,
// ClosePort, the list of open ports and the two levels of locking.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

// Process-wide state.
extern PortContext* portList;          // open ports, a new one at the tail
extern CRITICAL_SECTION globalLock;    // creation and destruction of ports
extern char* registryRoot;             // own copy of the path given at initialisation

BOOL OpenPortEx(LPSTR pPortName, LPSTR pPrinterName, PHANDLE pHandle, LPMONITOR pMonitor);
BOOL ClosePort(HANDLE hPort);

// portLock of the port, or globalLock for a null port. A port whose portLock
// could not be allocated runs unlocked.
void LockPort(PortContext* port);
void UnlockPort(PortContext* port);

// The port of that name from `first` on, case not counting; null for a null name.
PortContext* FindPort(PortContext* first, LPCSTR name);

PortContext* CreatePortContext(LPCSTR name, LPCSTR printerName);
// 0 if the record is not in portList, and then nothing is touched.
int DestroyPortContext(PortContext* port);

// Heap copies of texts; both accept null.
char* DuplicateString(LPCSTR text);
void FreeString(char* text);

}  // namespace langmon
