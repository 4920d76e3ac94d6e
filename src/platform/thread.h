// Threads, with the contracts of CreateThread and its companions. A thread made
// here is managed by the clock from its creation on; one made suspended counts
// as blocked until ResumeThread lets it run.
#pragma once

#include "platform/win32_types.h"

namespace langmon {

HANDLE CreateThread(void* security, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                    LPVOID argument, DWORD creationFlags, LPDWORD threadId);
// Returns the suspend count before the call, or 0xFFFFFFFF for a bad handle.
DWORD ResumeThread(HANDLE thread);
BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode);

// A new handle to the calling thread, to be closed with CloseHandle. (Win32 gives
// a pseudo handle here; a real one lets the logic keep it past the call.)
HANDLE GetCurrentThread();
DWORD GetCurrentThreadId();

// Priorities are recorded, not applied: Linux gives ordinary threads no levels.
int GetThreadPriority(HANDLE thread);
BOOL SetThreadPriority(HANDLE thread, int priority);

namespace platform {
// Ends every thread that CreateThread made, but the caller, before what they
// use goes: from the call on, every wait and sleep with a time-out ends at
// once, so a thread that retries or polls reaches its end; the call then
// waits up to `boundMs` for them and joins them. A thread still running then
// (one that waits without a time-out, or works outside the platform) is left
// to itself and named on standard error. Returns how many were left.
// The process's end calls it (with a bound of 2000 ms) once any thread has
// been made, and so does an unload of the library.
std::size_t EndThreads(DWORD boundMs);

// Managed threads that have not ended, the caller included: a test waits for
// the short-lived threads it caused by sleeping until only it is left.
std::size_t ManagedThreadCount();
}  // namespace platform

}  // namespace langmon
