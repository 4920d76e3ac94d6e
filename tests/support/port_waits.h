// Waiting, on the virtual clock, for what a port's status thread does in its
// own time.
#pragma once

#include "monitor/port_context.h"

namespace langmon::testing {

// Lets the status thread's passes send the queued text; true once nothing
// is left, false if something still is after `limitMs` of virtual time.
bool WaitUntilPendingSent(PortContext* port, DWORD limitMs = 600000);
// Lets virtual time run until the port's status thread has ended; false if
// it is still there after `limitMs`.
bool WaitUntilThreadEnded(PortContext* port, DWORD limitMs = 120000);

}  // namespace langmon::testing
