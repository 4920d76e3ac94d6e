// Kernel objects and the waits on them, with the contracts of their Win32
// namesakes: counting semaphores, auto-reset and manual-reset events, mutexes,
// named objects in one process-wide name table, re-entrant critical sections.
// Every blocking call here is a platform wait, so the virtual clock sees it.
#pragma once

#include "platform/win32_types.h"

#include <cstdint>

namespace langmon {

// Semaphores. A release that would pass the maximum fails with
// ERROR_TOO_MANY_POSTS and changes nothing.
HANDLE CreateSemaphoreA(void* security, LONG initialCount, LONG maximumCount, LPCSTR name);
BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LONG* previousCount);

// Events. A named event that exists already is opened again and the last error
// is ERROR_ALREADY_EXISTS.
HANDLE CreateEventA(void* security, BOOL manualReset, BOOL initialState, LPCSTR name);
HANDLE OpenEventA(DWORD access, BOOL inherit, LPCSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

// Mutexes, re-entrant for their owner.
HANDLE CreateMutexA(void* security, BOOL initialOwner, LPCSTR name);
BOOL ReleaseMutex(HANDLE mutex);

BOOL CloseHandle(HANDLE object);

// One process, so the only process handle is the pseudo handle of this one.
constexpr DWORD DUPLICATE_SAME_ACCESS = 0x2;
inline const HANDLE CurrentProcessHandle = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));
HANDLE GetCurrentProcess();
// Another handle to the same object within this process, closed on its own;
// the object lives until its last handle is closed. Access and inheritance
// don't exist here; the only option is DUPLICATE_SAME_ACCESS.
BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target,
                     DWORD desiredAccess, BOOL inheritHandle, DWORD options);

// Waits. A semaphore is taken by decrementing its count, an auto-reset event by
// resetting it, a mutex by owning it; a thread is signalled when it has ended.
// Of several signalled objects the lowest index wins. Only bWaitAll FALSE.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL waitAll, DWORD milliseconds);

// A re-entrant lock that lives in the caller's memory. The block may be a
// zero-filled one from GlobalAlloc: InitializeCriticalSection makes it usable,
// DeleteCriticalSection undoes that before the block is freed.
struct CRITICAL_SECTION {
    void* lockObject;  // the kernel's re-entrant lock behind the section
};
void InitializeCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);

namespace platform {
// Live kernel objects and open handles, for leak checks in tests.
std::size_t LiveObjectCount();
}  // namespace platform

}  // namespace langmon
