// The status thread: one per port, the monitor's main loop while a job is
// watched or a client holds it awake.
#pragma once

namespace langmon {

struct PortContext;

// Starts the port's status thread; 1 if it runs.
int StartStatusThread(PortContext* port);

}  // namespace langmon
