#include "platform/clock.h"

#include "platform/kernel.h"

#include <thread>

namespace langmon {

using platform::Kernel;

DWORD GetTickCount() {
    Kernel& kernel = Kernel::Get();
    {
        std::lock_guard lock(kernel.mutex);
        kernel.CurrentThread();
    }
    return static_cast<DWORD>(kernel.Now());
}

void Sleep(DWORD milliseconds) {
    Kernel& kernel = Kernel::Get();
    std::unique_lock lock(kernel.mutex);
    platform::Waiter waiter;
    waiter.thread = kernel.CurrentThread();
    if (milliseconds == 0) {
        lock.unlock();
        std::this_thread::yield();
        return;
    }
    waiter.deadline = kernel.DeadlineAfter(milliseconds);
    kernel.Block(lock, waiter);
}

namespace platform {

void UseVirtualClock(DWORD startTick) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    kernel.UseVirtualClock(startTick);
}

void UseRealClock() {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    kernel.UseRealClock();
}

bool UsingVirtualClock() { return Kernel::Get().virtualClock(); }

}  // namespace platform
}  // namespace langmon
