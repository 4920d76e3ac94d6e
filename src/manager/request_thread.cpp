#include "manager/request_thread.h"

#include "background/thread_throttle.h"
#include "manager/manager_link.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace langmon {

namespace {

constexpr SIZE_T RequestThreadStack = 16384;

}  // namespace

void StartManagerThread(PortContext* port, ManagerLink* link) {
    DWORD id = 0;
    HANDLE thread = ThrottledCreateThread(nullptr, RequestThreadStack, ManagerRequestThread, port,
                                          CREATE_SUSPENDED, &id);
    if (thread == nullptr) return;
    link->threadId = id;
    ResumeThread(thread);
    CloseHandle(thread);
}

// The watch of the manager's "Port", "PrinterName" and "TerminateManager" is
// not built yet: the thread ends at once and touches neither the port nor the
// link, which may both be gone by the time it runs. A link's stopEvent is
// therefore closed by RemoveLink alone; once the thread waits on it, it will
// hold a handle of its own.
DWORD ManagerRequestThread(LPVOID) { return 0; }

}  // namespace langmon
