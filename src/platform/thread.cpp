#include "platform/thread.h"

#include "platform/kernel.h"
#include "platform/memory.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace langmon {

using platform::Kernel;
using platform::KernelObject;
using platform::ObjectKind;
using platform::ThreadRecord;

namespace {

// How long the process's end waits for the threads the platform made.
constexpr DWORD ExitThreadBoundMs = 2000;

void EndThreadsAtExit() { platform::EndThreads(ExitThreadBoundMs); }

bool IsValidPriority(int priority) {
    return (priority >= THREAD_PRIORITY_LOWEST && priority <= THREAD_PRIORITY_HIGHEST) ||
           priority == 15 || priority == -15;
}

}  // namespace

namespace platform {
// Body of every thread that CreateThread makes.
void RunManagedThread(ThreadRecord* record, LPTHREAD_START_ROUTINE routine, LPVOID argument);
}  // namespace platform

HANDLE CreateThread(void*, SIZE_T, LPTHREAD_START_ROUTINE routine, LPVOID argument,
                    DWORD creationFlags, LPDWORD threadId) {
    if (routine == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (platform::CreationFails()) {
        return nullptr;
    }
    static std::once_flag teardown;
    std::call_once(teardown, [] { std::atexit(EndThreadsAtExit); });
    Kernel& kernel = Kernel::Get();
    std::vector<std::thread> ended;
    KernelObject* object = nullptr;
    ThreadRecord* record = nullptr;
    {
        std::lock_guard lock(kernel.mutex);
        ended = kernel.TakeEndedWorkers();
        kernel.CurrentThread();
        object = kernel.NewObject(ObjectKind::Thread);
        object->handles = 2;  // the caller's handle and the thread's own
        record = kernel.AddThread();
        record->made = true;
        record->object = object;
        object->thread = record;
        object->threadId = record->id;
        if (creationFlags & CREATE_SUSPENDED) {
            record->suspended = true;
            object->suspendCount = 1;
        } else {
            kernel.ThreadStarted();
        }
    }
    // Threads that have ended are joined here, by whoever starts the next one.
    for (std::thread& worker : ended) {
        worker.join();
    }
    std::thread worker;
    try {
        worker = std::thread(platform::RunManagedThread, record, routine, argument);
    } catch (const std::system_error&) {
        std::lock_guard lock(kernel.mutex);
        if (record->suspended) {
            kernel.ThreadStarted();  // ThreadEnded counts it out again
        }
        object->handles = 1;
        kernel.ThreadEnded(record, 0);
        kernel.CloseObject(object);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    {
        // The record holds its system thread before the thread may run, and
        // so before it can end.
        std::lock_guard lock(kernel.mutex);
        record->worker = std::move(worker);
        record->resumed.notify_all();
    }
    if (threadId != nullptr) {
        *threadId = object->threadId;
    }
    return object;
}

namespace platform {

void RunManagedThread(ThreadRecord* record, LPTHREAD_START_ROUTINE routine, LPVOID argument) {
    Kernel& kernel = Kernel::Get();
    {
        std::unique_lock lock(kernel.mutex);
        kernel.AdoptThread(record);
        record->resumed.wait(lock, [record] { return record->worker.joinable() && !record->suspended; });
    }
    const DWORD exitCode = routine(argument);
    std::lock_guard lock(kernel.mutex);
    kernel.AdoptThread(nullptr);
    kernel.ThreadEnded(record, exitCode);
}

}  // namespace platform

DWORD ResumeThread(HANDLE thread) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    KernelObject* object = Kernel::ObjectOf(thread, ObjectKind::Thread);
    if (object == nullptr) {
        return 0xFFFFFFFFu;
    }
    const DWORD previous = object->suspendCount;
    if (previous > 0 && --object->suspendCount == 0 && object->thread != nullptr) {
        kernel.ResumeLocked(object->thread);
    }
    return previous;
}

BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    KernelObject* object = Kernel::ObjectOf(thread, ObjectKind::Thread);
    if (object == nullptr || exitCode == nullptr) {
        return FALSE;
    }
    *exitCode = object->exitCode;
    return TRUE;
}

HANDLE GetCurrentThread() {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    ThreadRecord* self = kernel.CurrentThread();
    if (self->object == nullptr) {
        KernelObject* object = kernel.NewObject(ObjectKind::Thread);
        object->thread = self;
        object->threadId = self->id;
        self->object = object;  // its one handle is the thread's own reference
    }
    ++self->object->handles;
    return self->object;
}

DWORD GetCurrentThreadId() {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    return kernel.CurrentThread()->id;
}

int GetThreadPriority(HANDLE thread) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    KernelObject* object = Kernel::ObjectOf(thread, ObjectKind::Thread);
    if (object == nullptr) {
        return THREAD_PRIORITY_ERROR_RETURN;
    }
    return object->priority;
}

BOOL SetThreadPriority(HANDLE thread, int priority) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    KernelObject* object = Kernel::ObjectOf(thread, ObjectKind::Thread);
    if (object == nullptr) {
        return FALSE;
    }
    if (!IsValidPriority(priority)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    object->priority = priority;
    return TRUE;
}

namespace platform {

std::size_t EndThreads(DWORD boundMs) {
    Kernel& kernel = Kernel::Get();
    std::vector<std::string> abandoned;
    std::vector<std::thread> ended;
    {
        std::unique_lock lock(kernel.mutex);
        abandoned = kernel.EndMadeThreads(lock, boundMs);
        ended = kernel.TakeEndedWorkers();
    }
    for (std::thread& worker : ended) {
        worker.join();
    }
    if (!abandoned.empty()) {
        std::fprintf(stderr, "langmon: %zu thread%s did not end within %u ms and %s abandoned:\n", abandoned.size(),
                     abandoned.size() == 1 ? "" : "s", boundMs, abandoned.size() == 1 ? "is" : "are");
        for (const std::string& thread : abandoned) {
            std::fprintf(stderr, "  %s\n", thread.c_str());
        }
    }
    return abandoned.size();
}

std::size_t ManagedThreadCount() {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    return kernel.ThreadCount();
}

}  // namespace platform
}  // namespace langmon
