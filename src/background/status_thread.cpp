#include "background/status_thread.h"

#include "acquisition/poll.h"
#include "background/reconcile.h"
#include "background/thread_throttle.h"
#include "framing/job_record.h"
#include "manager/manager_link.h"
#include "monitor/lower_port.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "monitor/serial_hold.h"
#include "platform/clock.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "portkind/port_kind.h"
#include "variables/derived.h"
#include "variables/publication.h"
#include "variables/status_variable.h"

#include <atomic>
#include <cstring>

namespace langmon {

namespace {

constexpr SIZE_T StatusThreadStack = 16384;
constexpr DWORD ClosePollMs = 500;
// PrinterExtStatus's mark of background monitoring.
constexpr uint32_t MonitoringBit = 0x10;
// StatusWord2 bits of a printer too busy with a fault to be told anything.
constexpr uint32_t GoodbyeBlockingWord2 = 0x1200;
// Reconciliation on every third pass.
constexpr uint32_t ReconcileEvery = 3;

HANDLE WakeEvent(PortContext* port) {
    return std::atomic_ref<HANDLE>(port->statusWakeEvent).load();
}

bool HasClients(PortContext* port) {
    LockPort(port);
    const bool clients = port->managers != nullptr;
    UnlockPort(port);
    return clients;
}

bool Running(PortContext* port) { return HasPortFlag(port, PF_STATUS_RUN); }

/* JobLeft: the watched job is over at the printer and in the spooler. */
bool JobLeft(PortContext* port) {
    return !HasPortFlag(port, PF_JOB_ACTIVE) && !JobsTracked(port) && PortWord(port->watchJob) != 0;
}

void StopWatchingJob(PortContext* port) {
    SetPortWord(port->watchJob, 0);
    port->ecpBusy = 0;
}

/* LeaveStatusThread: the thread's last acts, unless a client's "Wake Up"
   or a job's start came while it was on its way out: they found the thread
   alive and started none, so it stays for them, and false says so. The look
   and the end of PF_STATUS_ALIVE are one step under the port's lock, as
   theirs are. Once statusWakeEvent is null the closing port may go on; the
   join in StopStatusThread covers the rest of these steps. */
bool LeaveStatusThread(PortContext* port, SerialHold* serial) {
    LockPort(port);
    if (Running(port) && (PortWord(port->wakeRequested) != 0 || PortWord(port->watchJob) != 0)) {
        UnlockPort(port);
        serial->Release();
        return false;
    }
    ClearPortFlag(port, PF_STATUS_RUN | PF_STATUS_ALIVE);
    UnlockPort(port);
    std::atomic_ref<HANDLE>(port->statusWakeEvent).store(nullptr);
    SetEvent(port->statusEndedEvent);
    serial->Release();
    return true;
}

/* ForgetRequests: a thread that leaves for want of clients leaves no wish
   behind to hold the next one. */
void ForgetRequests(PortContext* port) {
    LockPort(port);
    SetPortWord(port->wakeRequested, 0);
    SetPortWord(port->watchJob, 0);
    UnlockPort(port);
}

/* JoinStatusThread: waits for a thread that has been told to end or has
   ended, and closes what it leaves behind. */
void JoinStatusThread(PortContext* port) {
    if (port->statusThread != nullptr) {
        WaitForSingleObject(port->statusThread, INFINITE);
        CloseHandle(port->statusThread);
        port->statusThread = nullptr;
    }
    if (port->statusWakeObject != nullptr) {
        CloseHandle(port->statusWakeObject);
        port->statusWakeObject = nullptr;
    }
}

/* FollowPrinter: the loop, up to the last acts before the thread goes. Each
   pass takes the semaphore for its body only and never sleeps holding it,
   so a spooler call waits for one pass body at most. Returns with the
   semaphore held if it could be had. */
void FollowPrinter(PortContext* port, HANDLE wake, SerialHold& serial) {
    SetPortFlag(port, PF_STATUS_ALIVE);
    port->statusTickCount = 0;
    bool reconciled = false;
    MarkMonitoring(1, port);

    // Whether anything holds the thread is asked holding the semaphore: a job
    // that starts between the look and the port's reset would lose its flags.
    serial.Take();
    if (StatusThreadShouldStop(port) != 0) {
        FinishMonitoring(port);
        ResetPortState(port);
        return;
    }
    serial.Release();

    for (;;) {
        bool leaving = false;
        if (Running(port)) {
            if (StatusThreadShouldStop(port) != 0) {
                leaving = true;
            } else if (port->statusTickCount == 0) {
                ReconcileClients(port);
                port->statusTickCount = 1;
                reconciled = true;
            } else {
                reconciled = false;
                if (++port->statusTickCount == ReconcileEvery) port->statusTickCount = 0;
            }
        }
        if (leaving || !HasClients(port) || !Running(port)) {
            // Leaving, or holding on for a client that a second look may find.
            if (!HasPortFlag(port, PF_CLOSING)) serial.Take();
            if (Running(port)) {
                if (StatusThreadShouldStop(port) != 0) break;
                if (reconciled) ReconcileClients(port);
            }
            if (!HasClients(port) || !Running(port)) {
                ForgetRequests(port);
                break;
            }
            serial.Release();
        }

        // The semaphore comes first: with both signalled, the pass polls.
        if (!serial.TakeOr(wake)) continue;

        BindPendingClients(port);
        if (HasPortFlag(port, PF_JOB_ACTIVE)) CheckSpoolerJob(port);
        // The watched job ended earlier, without a word to the printer.
        if (JobLeft(port)) StopWatchingJob(port);
        if (Running(port) && StatusThreadShouldStop(port) != 0) {
            serial.Release();
            continue;
        }
        if (HasClients(port) || JobsTracked(port)) PollRound(port);
        if (JobLeft(port)) {
            // The last job left during this poll: the printer may stop
            // reporting once the thread goes.
            if ((port->portKind & PK_BIDI) != 0) SetPortWord(port->goodbyePending, 1);
            StopWatchingJob(port);
        }
        serial.Release();

        if ((Running(port) && StatusThreadShouldStop(port) != 0) || !HasClients(port) ||
            !Running(port)) {
            continue;
        }
        const bool busy = HasPortFlag(port, PF_JOB_ACTIVE) || JobsTracked(port);
        WaitForSingleObject(wake, busy ? StatusPassJobMs : StatusPassIdleMs);
    }

    FinishMonitoring(port);
    if (!HasClients(port) && Running(port)) {
        // Nobody to tell: the port's own status goes back to its opening
        // form, unpublished.
        UpdatePrinterExtStatus(port);
        InitPrinterStatus(port, 0);
        DeriveErrorVariables(port, 0);
    }
    ResetPortState(port);
}

DWORD StatusThreadMain(LPVOID argument) {
    auto* port = static_cast<PortContext*>(argument);
    const HANDLE wake = WakeEvent(port);
    // A wait of the way out that runs out is no error: the thread goes on
    // without the semaphore.
    SerialHold serial(port);
    do {
        FollowPrinter(port, wake, serial);
    } while (!LeaveStatusThread(port, &serial));
    return 0;
}

/* StartStatusThreadLocked: the start itself, with the port's lock held and
   PF_STATUS_ALIVE clear. */
int StartStatusThreadLocked(PortContext* port) {
    // A thread that has cleared PF_STATUS_ALIVE only finishes its last acts,
    // none of which needs the port's lock.
    JoinStatusThread(port);
    SetPortFlag(port, PF_STATUS_RUN);
    HANDLE wake = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (wake == nullptr) return 0;
    port->statusWakeObject = wake;
    std::atomic_ref<HANDLE>(port->statusWakeEvent).store(wake);
    ResetEvent(port->statusEndedEvent);
    // Alive from here on, not from the thread's first step: whoever looks
    // (the next job, ClosePort) already sees a thread it must not start
    // again or forget to stop.
    SetPortFlag(port, PF_STATUS_ALIVE);
    DWORD id = 0;
    HANDLE thread =
        ThrottledCreateThread(nullptr, StatusThreadStack, StatusThreadMain, port, 0, &id);
    if (thread == nullptr) {
        // PF_STATUS_RUN stays: the next job or "Wake Up" tries again.
        ClearPortFlag(port, PF_STATUS_ALIVE);
        std::atomic_ref<HANDLE>(port->statusWakeEvent).store(nullptr);
        JoinStatusThread(port);
        return 0;
    }
    SetThreadPriority(thread, (port->portMode & PM_ECP) != 0 ? THREAD_PRIORITY_BELOW_NORMAL
                                                             : THREAD_PRIORITY_LOWEST);
    port->statusThread = thread;
    return 1;
}

}  // namespace

int StartStatusThread(PortContext* port) {
    if ((port->portKind & (PK_LOCAL | PK_SERIAL)) == 0) return 0;
    LockPort(port);
    const int runs = HasPortFlag(port, PF_STATUS_ALIVE) ? 1 : StartStatusThreadLocked(port);
    UnlockPort(port);
    return runs;
}

int StatusThreadShouldStop(PortContext* port) {
    if (port == nullptr) return 1;
    if (PortWord(port->suspendRequested) != 0) {
        if (HasPortFlag(port, PF_JOB_ACTIVE)) {
            // The suspend came too late: a job has begun since.
            SetPortWord(port->suspendRequested, 0);
            SetPortWord(port->goodbyePending, 0);
            return 0;
        }
        if (JobsTracked(port) && (port->portKind & PK_BIDI) != 0) {
            SetPortWord(port->goodbyePending, 1);
        }
        SetPortWord(port->wakeRequested, 0);
        SetPortWord(port->watchJob, 0);
        return 1;
    }
    return PortWord(port->wakeRequested) == 0 && PortWord(port->watchJob) == 0 ? 1 : 0;
}

void MarkMonitoring(int on, PortContext* port) {
    ReconcileClients(port);
    LockPort(port);
    StatusVariable* row = FindVariable("PrinterExtStatus", port->variables, port);
    const bool present = row != nullptr && row->Value != nullptr;
    if (present) {
        auto* word = static_cast<uint32_t*>(row->Value);
        *word = on != 0 ? *word | MonitoringBit : *word & ~MonitoringBit;
        row->Dirty = 1;
    }
    UnlockPort(port);
    if (present) PublishVariables(port);
}

void FinishMonitoring(PortContext* port) {
    // What the port has not taken is the end of a job: the trailer, and on
    // the ports that hold a job's last bytes back those bytes too. Nobody
    // sends it once the thread has gone, and the port's reset would drop it,
    // so the printer is given it here, for up to a minute, though the
    // semaphore is held meanwhile: anything sent next would have to go
    // behind it anyway. A printer that doesn't answer has nobody to take it.
    if (!HasPortFlag(port, PF_OFFLINE)) FlushPending(port);
    if (PortWord(port->suspendRequested) != 0 && JobsTracked(port)) CancelQueuedJobs(port);
    if (PortWord(port->goodbyePending) != 0) {
        if (!HasPortFlag(port, PF_CLOSING)) SendUstatusOff(port);
        SetPortWord(port->goodbyePending, 0);
    }
    MarkMonitoring(0, port);
    // The wishes that held the thread are left as they are: one that came
    // after the thread chose to go keeps it (LeaveStatusThread).
    SetPortWord(port->suspendRequested, 0);
    SetPortWord(port->goodbyePending, 0);
}

int SendUstatusOff(PortContext* port) {
    uint32_t words[3];
    const bool known = ReadPrinterStatusWords(port, words);
    // A printer that doesn't answer, isn't one of ours, or stands in a fault
    // is not told anything.
    if (known && ((words[1] & PrinterLostWord) != 0 || !HasPortFlag(port, PF_MODEL_KNOWN) ||
                  (words[2] & GoodbyeBlockingWord2) != 0)) {
        return 0;
    }
    bool opened = false;
    if (!OpenPseudoDocumentIfClosed(port, &opened)) return 0;
    if (opened) SetReadTimeouts(port);
    DWORD written = 0;
    SendPjl(port, UstatusOffText, UstatusOffLength, &written, 0, 0);
    if (opened) ClosePseudoDocument(port);
    // What the port didn't take of the goodbye ends here.
    DropPending(port);
    return 1;
}

void CancelQueuedJobs(PortContext* port) {
    LockPort(port);
    bool changed = false;
    if (StatusVariable* queue = GetVariable("PrinterQueue", port->variables, port, 1);
        queue != nullptr && queue->Value != nullptr) {
        *static_cast<uint32_t*>(queue->Value) = 0;
        queue->Dirty = 1;
        changed = true;
    }
    if (StatusVariable* info = FindVariable("PrintingJobInfo2", port->variables, port);
        info != nullptr && info->Value != nullptr) {
        auto* value = static_cast<uint8_t*>(info->Value);
        if (port->jobListHead != nullptr) {
            std::memcpy(value + JobIdOffset, &port->jobListHead->JobId, sizeof(uint32_t));
        }
        std::memset(value + PagesOffset, 0, sizeof(uint32_t));
        info->Attributes = (info->Attributes & ~VarKeepValue) | VarJobClosing;
        info->Dirty = 1;
        changed = true;
    }
    UnlockPort(port);
    if (changed) PublishVariables(port);
}

void WakeStatusThread(PortContext* port) {
    if (HANDLE wake = WakeEvent(port); wake != nullptr) SetEvent(wake);
}

void StopStatusThread(PortContext* port) {
    if (HasPortFlag(port, PF_STATUS_ALIVE)) {
        ClearPortFlag(port, PF_STATUS_RUN);
        WakeStatusThread(port);
        while (WakeEvent(port) != nullptr) Sleep(ClosePollMs);
    }
    JoinStatusThread(port);
}

}  // namespace langmon
