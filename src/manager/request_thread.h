// The manager request thread: one per bound link, watching the manager's side
// of the binding.
#pragma once

#include "platform/win32_types.h"

namespace langmon {

struct PortContext;
struct ManagerLink;

// Starts the link's request thread and stores its id in the link before it
// runs: the thread finds its link by that id.
void StartManagerThread(PortContext* port, ManagerLink* link);
// The thread's entry; its argument is the port.
DWORD ManagerRequestThread(LPVOID port);

}  // namespace langmon
