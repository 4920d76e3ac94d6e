#include "monitor/value_requests.h"

#include "acquisition/lm_values.h"
#include "acquisition/poll.h"
#include "acquisition/service_tag.h"
#include "background/refresh.h"
#include "background/status_thread.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/text.h"

#include <algorithm>
#include <cstring>

namespace langmon {

namespace {

// How long "Suspend" waits for the status thread to go.
constexpr DWORD SuspendWaitMs = 4000;

constexpr char RefreshPrefix[] = "Refresh:";

// The LM_ values, each tested by its own first bytes, whatever follows: a
// tray field's name passes as "LM_InputTray".
constexpr const char* LmPrefixes[] = {"LM_InputTray", "LM_SysName", "LM_MemorySizeInKByte",
                                      "LM_MemorySizeInMByte", "LM_RamDisk", "LM_DuplexModule"};
constexpr char ServiceTagStatusName[] = "LM_ServiceTagStatus";
constexpr char ServiceTagName[] = "LM_ServiceTag";

template <std::size_t N>
bool HasPrefix(const char* name, const char (&prefix)[N]) {
    return std::strncmp(name, prefix, N - 1) == 0;
}

bool IsLmValueName(const char* name) {
    for (const char* prefix : LmPrefixes) {
        if (std::strncmp(name, prefix, std::strlen(prefix)) == 0) return true;
    }
    return false;
}

/* Answer: the 4-byte answer of every request but "IsWakeup" and the LM_
   values. The caller learns the size it needs even when its buffer is too
   small. */
BOOL Answer(int32_t value, LPSTR out, DWORD outSize, LPDWORD returned) {
    if (returned != nullptr) *returned = sizeof value;
    if (out == nullptr || outSize < sizeof value) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(out, &value, sizeof value);
    return TRUE;
}

bool HasRoom(LPSTR out, DWORD outSize) { return out != nullptr && outSize >= sizeof(int32_t); }

/* Refresh: a client's refresh, unless a job has the port. */
int32_t Refresh(const char* printerName, PortContext* port) {
    if (HasPortFlag(port, PF_JOB_ACTIVE) || PortWord(port->jobOpen) != 0) return RequestPortBusy;
    return RefreshClientStatus(printerName, port);
}

/* WakeUp: the status thread runs from now on, jobs or none, until "Stop
   Polling". A second wake-up without a stop between is refused. */
int32_t WakeUp(PortContext* port) {
    // Under the port's lock, as a job's start does the same: of two clients
    // that ask at once one is refused, and a job starting meanwhile finds
    // the thread this starts.
    LockPort(port);
    const bool asked = PortWord(port->wakeRequested) != 0;
    if (!asked) {
        SetPortWord(port->wakeRequested, 1);
        StartStatusThread(port);
    }
    UnlockPort(port);
    return asked ? RequestRefused : RequestDone;
}

int32_t StopPolling(PortContext* port) {
    LockPort(port);
    const bool asked = PortWord(port->wakeRequested) != 0;
    SetPortWord(port->wakeRequested, 0);
    UnlockPort(port);
    return asked ? RequestDone : RequestRefused;
}

/* Suspend: an idle status thread is asked to end, and given a few seconds to
   do it; it may take longer over its pass. Never during a job. */
int32_t Suspend(PortContext* port) {
    if (HasPortFlag(port, PF_JOB_ACTIVE)) return RequestRefused;
    if (HasPortFlag(port, PF_STATUS_ALIVE)) {
        SetPortWord(port->suspendRequested, 1);
        WakeStatusThread(port);
        WaitForSingleObject(port->statusEndedEvent, SuspendWaitMs);
    }
    return RequestDone;
}

/* LmValueRequest: one LM_ value. Stale values are read anew by a poll that holds the
   semaphore like every other; without it the values stand as they are. */
BOOL LmValueRequest(PortContext* port, const char* name, LPSTR out, DWORD outSize, LPDWORD returned) {
    if (LmValuesStale()) {
        ClearPortFlag(port, PF_NO_MANAGER);
        PollPrinterStatusHoldingSemaphore(port);
    }
    if (HasPortFlag(port, PF_OFFLINE)) {
        // The answer is a 4-byte code here, whatever the value's size.
        if (!HasRoom(out, outSize)) return Answer(RequestPrinterSilent, out, outSize, returned);
        const int32_t silent = RequestPrinterSilent;
        std::memcpy(out, &silent, sizeof silent);
        return TRUE;
    }
    return ReadLmValue(name, out, outSize, returned) != 0 ? TRUE : FALSE;
}

}  // namespace

BOOL AnswerValueRequest(PortContext* port, LPSTR name, LPSTR out, DWORD outSize, LPDWORD returned) {
    if (name == nullptr) return FALSE;
    if (lstrcmpA(name, "IsWakeup") == 0) return Answer(WakeupKnown, out, outSize, returned);
    // A request with a 4-byte answer is carried out only when the answer has
    // room; `wakes` requests end the port's refusal of the manager.
    const auto request = [&](bool wakes, auto work) {
        if (!HasRoom(out, outSize)) return Answer(0, out, outSize, returned);
        if (wakes) ClearPortFlag(port, PF_NO_MANAGER);
        return Answer(work(), out, outSize, returned);
    };
    if (HasPrefix(name, RefreshPrefix)) {
        return request(true, [&] { return Refresh(name + sizeof RefreshPrefix - 1, port); });
    }
    if (lstrcmpA(name, "Wake Up") == 0) return request(true, [&] { return WakeUp(port); });
    if (lstrcmpA(name, "Stop Polling") == 0) return request(false, [&] { return StopPolling(port); });
    if (lstrcmpA(name, "Suspend") == 0) return request(false, [&] { return Suspend(port); });
    if (IsLmValueName(name)) return LmValueRequest(port, name, out, outSize, returned);
    if (HasPrefix(name, ServiceTagStatusName)) {
        return request(true, [&] { return static_cast<int32_t>(port->serviceTagStatus); });
    }
    if (HasPrefix(name, ServiceTagName)) {
        ClearPortFlag(port, PF_NO_MANAGER);
        const int result = ReadServiceTag(port, out, outSize);
        // The tag's bytes, as many as the buffer took.
        if (returned != nullptr) {
            *returned = result != 0 ? std::min<DWORD>(outSize, sizeof port->serviceTagText) : 0;
        }
        return result != 0 ? TRUE : FALSE;
    }
    return FALSE;
}

}  // namespace langmon
