#include "support/port_waits.h"

#include "background/status_thread.h"
#include "platform/clock.h"
#include "platform/sync.h"

namespace langmon::testing {

namespace {

// The PJL text the port has not yet taken, read while holding the port's
// semaphore as its writers do.
uint32_t PendingBytes(PortContext* port) {
    WaitForSingleObject(port->serialSemaphore, INFINITE);
    const uint32_t pending = port->pendingLength;
    ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
    return pending;
}

}  // namespace

bool WaitUntilPendingSent(PortContext* port, DWORD limitMs) {
    const DWORD start = GetTickCount();
    while (PendingBytes(port) != 0) {
        if (TickAge(GetTickCount(), start) >= limitMs) return false;
        Sleep(StatusPassJobMs);
    }
    return true;
}

bool WaitUntilThreadEnded(PortContext* port, DWORD limitMs) {
    const DWORD start = GetTickCount();
    while (HasPortFlag(port, PF_STATUS_ALIVE)) {
        if (TickAge(GetTickCount(), start) >= limitMs) return false;
        Sleep(500);
    }
    return true;
}

}  // namespace langmon::testing
