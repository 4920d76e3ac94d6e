#include "background/thread_throttle.h"

#include "platform/clock.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "platform/thread.h"

#include <atomic>

namespace langmon {

namespace {

constexpr LPCSTR ThrottleKey = "SOFTWARE\\Quor\\Status Monitor";
constexpr DWORD NotRead = 0xFFFFFFFFu;
constexpr DWORD DefaultInterval = 50;
constexpr DWORD DefaultCtiFlag = CtiSerialize | CtiStartSuspended;
constexpr REGSAM QueryAndSet = KEY_QUERY_VALUE | KEY_SET_VALUE;

// Read once per process. Threads that race on the first start read the same
// registry values and store the same results, so no lock is needed.
std::atomic<DWORD> createThreadInterval{NotRead};
std::atomic<DWORD> ctiFlag{NotRead};

}  // namespace

DWORD ReadThrottleSetting(LPCSTR valueName, DWORD defaultValue) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, ThrottleKey, 0, QueryAndSet, &key) != ERROR_SUCCESS) {
        return defaultValue;
    }
    DWORD value = 0;
    DWORD size = sizeof value;
    DWORD result = defaultValue;
    if (RegQueryValueExA(key, valueName, nullptr, nullptr, reinterpret_cast<BYTE*>(&value),
                         &size) == ERROR_SUCCESS) {
        result = value;
    } else {
        // First use: write the default back so that an administrator finds the
        // setting in place. Whether the write works is not our concern.
        RegSetValueExA(key, valueName, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&defaultValue),
                       sizeof defaultValue);
    }
    RegCloseKey(key);
    return result;
}

HANDLE ThrottledCreateThread(void* security, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                             LPVOID argument, DWORD creationFlags, LPDWORD threadId) {
    if (createThreadInterval.load() == NotRead) {
        createThreadInterval = ReadThrottleSetting("CreateThreadInterval", DefaultInterval);
    }
    if (ctiFlag.load() == NotRead) {
        ctiFlag = ReadThrottleSetting("CTIFlag", DefaultCtiFlag);
    }
    const DWORD interval = createThreadInterval.load();
    const DWORD flags = ctiFlag.load();

    HANDLE mutex = nullptr;
    if (flags & CtiSerialize) {
        mutex = CreateMutexA(nullptr, FALSE, "CTIMutex");
        WaitForSingleObject(mutex, INFINITE);
    }
    // A caller that asked for a suspended thread resumes it itself.
    bool resume = false;
    if ((flags & CtiStartSuspended) && creationFlags != CREATE_SUSPENDED) {
        creationFlags = CREATE_SUSPENDED;
        resume = true;
    }
    HANDLE thread = CreateThread(security, stackSize, routine, argument, creationFlags, threadId);
    Sleep(interval);
    if (resume) {
        ResumeThread(thread);
    }
    if (mutex != nullptr) {
        ReleaseMutex(mutex);
        CloseHandle(mutex);
    }
    return thread;
}

void ForgetThrottleSettings() {
    createThreadInterval = NotRead;
    ctiFlag = NotRead;
}

}  // namespace langmon
