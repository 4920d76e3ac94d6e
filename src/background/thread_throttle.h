// Every thread of the monitor starts here: starts are spaced out in time and may
// be serialised across all processes that load the monitor, by two registry
// settings under "SOFTWARE\Quor\Status Monitor".
#pragma once

#include "platform/win32_types.h"

namespace langmon {

enum CtiFlagBits : uint32_t {
    CtiSerialize = 0x1,       // hold "CTIMutex" around creation and sleep
    CtiStartSuspended = 0x2,  // create suspended, resume after the sleep
};

HANDLE ThrottledCreateThread(void* security, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                             LPVOID argument, DWORD creationFlags, LPDWORD threadId);
DWORD ReadThrottleSetting(LPCSTR valueName, DWORD defaultValue);

// Forgets the settings read, as a fresh process would not know them.
void ForgetThrottleSettings();

}  // namespace langmon
