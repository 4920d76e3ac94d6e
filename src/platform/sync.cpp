#include "platform/sync.h"

#include "platform/kernel.h"
#include "platform/memory.h"

namespace langmon {

using platform::Kernel;
using platform::KernelObject;
using platform::ObjectKind;

namespace {

// Creates an object, or opens the one that carries `name` already. Lock held.
// Sets the last error as CreateEvent and CreateMutex do.
KernelObject* CreateNamed(Kernel& kernel, ObjectKind kind, LPCSTR name, bool* existed) {
    *existed = false;
    if (platform::CreationFails()) {
        return nullptr;
    }
    if (name != nullptr && *name != '\0') {
        auto found = kernel.names.find(name);
        if (found != kernel.names.end()) {
            if (found->second->kind != kind) {
                SetLastError(ERROR_INVALID_HANDLE);
                return nullptr;
            }
            ++found->second->handles;
            *existed = true;
            SetLastError(ERROR_ALREADY_EXISTS);
            return found->second;
        }
    }
    KernelObject* object = kernel.NewObject(kind);
    if (name != nullptr && *name != '\0') {
        object->name = name;
        kernel.names.emplace(object->name, object);
        // A caller tells a new named object from an existing one by this.
        SetLastError(ERROR_SUCCESS);
    }
    return object;
}

DWORD WaitOn(KernelObject* const* objects, DWORD count, DWORD milliseconds) {
    Kernel& kernel = Kernel::Get();
    std::unique_lock lock(kernel.mutex);
    platform::ThreadRecord* self = kernel.CurrentThread();
    for (DWORD i = 0; i < count; ++i) {
        if (!Kernel::IsLive(objects[i])) {
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
    }
    if (count == 1) {
        Kernel::NoteChecked(objects[0]);
    }
    // The call counts as waiting before it looks: a semaphore's release
    // without the lock either finds it waiting, and wakes it under the
    // lock, or came before the look, which then finds the count.
    for (DWORD i = 0; i < count; ++i) {
        objects[i]->waiting.fetch_add(1);
    }
    const auto stopWaiting = [&] {
        for (DWORD i = 0; i < count; ++i) {
            objects[i]->waiting.fetch_sub(1);
        }
    };
    // Of the objects signalled now, the lowest index wins.
    for (DWORD i = 0; i < count; ++i) {
        if (Kernel::TryAcquire(objects[i], self)) {
            stopWaiting();
            return WAIT_OBJECT_0 + i;
        }
    }
    if (milliseconds == 0) {
        stopWaiting();
        return WAIT_TIMEOUT;
    }
    platform::Waiter waiter;
    waiter.thread = self;
    waiter.objects = objects;
    waiter.count = count;
    waiter.deadline = kernel.DeadlineAfter(milliseconds);
    for (DWORD i = 0; i < count; ++i) {
        objects[i]->waiters.push_back(&waiter);
        ++objects[i]->pins;
    }
    kernel.Block(lock, waiter);  // Complete() stops its waiting
    for (DWORD i = 0; i < count; ++i) {
        kernel.Unpin(objects[i]);
    }
    return waiter.result;
}

// Adds `releaseCount` to the count unless that would pass the maximum.
bool AddToCount(KernelObject* object, LONG releaseCount, LONG* previousCount) {
    LONG count = object->count.load();
    do {
        if (releaseCount > object->maximum - count) {
            SetLastError(ERROR_TOO_MANY_POSTS);
            return false;
        }
    } while (!object->count.compare_exchange_weak(count, count + releaseCount));
    if (previousCount != nullptr) {
        *previousCount = count;
    }
    return true;
}

}  // namespace

HANDLE CreateSemaphoreA(void*, LONG initialCount, LONG maximumCount, LPCSTR name) {
    if (maximumCount <= 0 || initialCount < 0 || initialCount > maximumCount) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    bool existed = false;
    KernelObject* object = CreateNamed(kernel, ObjectKind::Semaphore, name, &existed);
    if (object != nullptr && !existed) {
        object->count = initialCount;
        object->maximum = maximumCount;
    }
    return object;
}

// A semaphore that a port's every block takes and gives back is seldom
// waited for: its take and its release go without the kernel's lock while
// nobody waits. Neither blocks, so the virtual clock has nothing to see.
BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LONG* previousCount) {
    auto* fast = static_cast<KernelObject*>(semaphore);
    if (releaseCount > 0 && Kernel::CheckedBefore(fast) && fast->kind == ObjectKind::Semaphore) {
        if (!AddToCount(fast, releaseCount, previousCount)) {
            return FALSE;
        }
        if (fast->waiting.load() != 0) {
            Kernel& kernel = Kernel::Get();
            std::lock_guard lock(kernel.mutex);
            kernel.WakeWaiters(fast);
        }
        return TRUE;
    }
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    kernel.CurrentThread();
    KernelObject* object = Kernel::ObjectOf(semaphore, ObjectKind::Semaphore);
    if (object == nullptr) {
        return FALSE;
    }
    if (releaseCount <= 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!AddToCount(object, releaseCount, previousCount)) {
        return FALSE;
    }
    kernel.WakeWaiters(object);
    return TRUE;
}

HANDLE CreateEventA(void*, BOOL manualReset, BOOL initialState, LPCSTR name) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    bool existed = false;
    KernelObject* object = CreateNamed(kernel, ObjectKind::Event, name, &existed);
    if (object != nullptr && !existed) {
        object->manualReset = manualReset != FALSE;
        object->signalled = initialState != FALSE;
    }
    return object;
}

HANDLE OpenEventA(DWORD, BOOL, LPCSTR name) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    if (name == nullptr || *name == '\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto found = kernel.names.find(name);
    if (found == kernel.names.end() || found->second->kind != ObjectKind::Event) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return nullptr;
    }
    if (platform::CreationFails()) {
        return nullptr;
    }
    ++found->second->handles;
    return found->second;
}

BOOL SetEvent(HANDLE event) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    kernel.CurrentThread();
    KernelObject* object = Kernel::ObjectOf(event, ObjectKind::Event);
    if (object == nullptr) {
        return FALSE;
    }
    object->signalled = true;
    kernel.WakeWaiters(object);
    return TRUE;
}

BOOL ResetEvent(HANDLE event) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    KernelObject* object = Kernel::ObjectOf(event, ObjectKind::Event);
    if (object == nullptr) {
        return FALSE;
    }
    object->signalled = false;
    return TRUE;
}

HANDLE CreateMutexA(void*, BOOL initialOwner, LPCSTR name) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    platform::ThreadRecord* self = kernel.CurrentThread();
    bool existed = false;
    KernelObject* object = CreateNamed(kernel, ObjectKind::Mutex, name, &existed);
    if (object != nullptr && !existed && initialOwner) {
        object->owner = self;
        object->recursion = 1;
    }
    return object;
}

BOOL ReleaseMutex(HANDLE mutex) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    platform::ThreadRecord* self = kernel.CurrentThread();
    KernelObject* object = Kernel::ObjectOf(mutex, ObjectKind::Mutex);
    if (object == nullptr) {
        return FALSE;
    }
    if (object->owner != self) {
        SetLastError(ERROR_NOT_OWNER);
        return FALSE;
    }
    if (--object->recursion == 0) {
        object->owner = nullptr;
        kernel.WakeWaiters(object);
    }
    return TRUE;
}

BOOL CloseHandle(HANDLE handle) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    auto* object = static_cast<KernelObject*>(handle);
    if (!Kernel::IsLive(object)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    kernel.CloseObject(object);
    return TRUE;
}

HANDLE GetCurrentProcess() { return CurrentProcessHandle; }

BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target, DWORD,
                     BOOL, DWORD options) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    auto* object = static_cast<KernelObject*>(source);
    if (sourceProcess != CurrentProcessHandle || targetProcess != CurrentProcessHandle || target == nullptr ||
        (options & ~DUPLICATE_SAME_ACCESS) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!Kernel::IsLive(object)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (platform::CreationFails()) {
        return FALSE;
    }
    ++object->handles;
    *target = object;
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) {
    auto* fast = static_cast<KernelObject*>(object);
    if (Kernel::CheckedBefore(fast) && fast->kind == ObjectKind::Semaphore && Kernel::TryTakeSemaphore(fast)) {
        return WAIT_OBJECT_0;
    }
    KernelObject* objects[1] = {fast};
    return WaitOn(objects, 1, milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll,
                             DWORD milliseconds) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || handles == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    if (waitAll) {
        // Nothing in the system waits for all of several objects.
        SetLastError(ERROR_NOT_SUPPORTED);
        return WAIT_FAILED;
    }
    KernelObject* objects[MAXIMUM_WAIT_OBJECTS];
    for (DWORD i = 0; i < count; ++i) {
        objects[i] = static_cast<KernelObject*>(handles[i]);
    }
    return WaitOn(objects, count, milliseconds);
}

// A critical section is an unnamed mutex that lives as long as the section.

void InitializeCriticalSection(CRITICAL_SECTION* section) {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    section->lockObject = kernel.NewObject(ObjectKind::Mutex);
}

void EnterCriticalSection(CRITICAL_SECTION* section) {
    KernelObject* objects[1] = {static_cast<KernelObject*>(section->lockObject)};
    WaitOn(objects, 1, INFINITE);
}

void LeaveCriticalSection(CRITICAL_SECTION* section) {
    ReleaseMutex(section->lockObject);
}

void DeleteCriticalSection(CRITICAL_SECTION* section) {
    if (section->lockObject != nullptr) {
        CloseHandle(section->lockObject);
        section->lockObject = nullptr;
    }
}

namespace platform {

std::size_t LiveObjectCount() {
    Kernel& kernel = Kernel::Get();
    std::lock_guard lock(kernel.mutex);
    return kernel.live.size();
}

}  // namespace platform
}  // namespace langmon
