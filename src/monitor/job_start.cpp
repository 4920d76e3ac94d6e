#include "monitor/job_start.h"

#include "acquisition/poll.h"
#include "background/status_thread.h"
#include "framing/job_identifier.h"
#include "framing/job_record.h"
#include "manager/manager_link.h"
#include "monitor/job_data.h"
#include "monitor/lower_port.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_mode.h"
#include "monitor/serial_hold.h"
#include "platform/last_error.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "platform/thread.h"
#include "portkind/port_kind.h"
#include "variables/derived.h"

#include <cstring>

namespace langmon {

namespace {

constexpr const char* PrintingPriorityValue = "PrintingPriority";

// The spooler may name another printer for the same port from job to job.
void TakePrinterName(PortContext* port, LPSTR printerName) {
    if (lstrcmpA(printerName, port->printerName) == 0) {
        return;
    }
    LockPort(port);
    FreeString(port->printerName);
    port->printerName = DuplicateString(printerName);
    UnlockPort(port);
}

/* RaisePrintingPriority: the registry may ask that the spooler's thread run at
   another priority while it sends a job; EndDocPort puts it back. */
void RaisePrintingPriority(PortContext* port) {
    if (registryRoot == nullptr) {
        return;
    }
    HKEY key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, registryRoot, 0, KEY_READ, &key) != ERROR_SUCCESS) {
        return;
    }
    DWORD priority = 0;
    DWORD size = sizeof priority;
    if (RegQueryValueExA(key, PrintingPriorityValue, nullptr, nullptr,
                         reinterpret_cast<LPBYTE>(&priority), &size) == ERROR_SUCCESS) {
        // A job that never reached EndDocPort left its thread's handle behind.
        if (port->priorityThread != nullptr) {
            CloseHandle(port->priorityThread);
        }
        port->priorityThread = GetCurrentThread();
        port->savedPriority = GetThreadPriority(port->priorityThread);
        SetThreadPriority(port->priorityThread, static_cast<int>(priority));
    }
    RegCloseKey(key);
}

/* FailJobStart: the document below would not open; the spooler gets the lower
   monitor's reason. */
BOOL FailJobStart(PortContext* port, SerialHold* serial) {
    const LastErrorKeeper lowerError;
    ClearPortFlag(port, PF_JOB_ACTIVE);
    serial->Release();
    port->jobOpen = 0;
    lowerError.Restore();
    return FALSE;
}

/* FollowJob: a job on a two-way port gets a client, a record and a name by
   which the printer's reports will find it. Runs under the port's lock. */
void FollowJob(PortContext* port, LPSTR printerName, DWORD jobId, DWORD level, LPBYTE docInfo) {
    port->jobManager = FindLink(printerName, port);
    if (port->jobManager == nullptr) {
        port->jobManager = CreateManagerLink(printerName, port);
    }
    PollPrinterStatus(port);
    // Only a printer with a client gets a header: nobody else would read
    // what the printer reports on the job. Settled either way for each job,
    // since an earlier job with a client that sent no data left it set.
    if (port->jobManager != nullptr) {
        SetPortFlag(port, PF_HEADER_DUE);
    } else {
        ClearPortFlag(port, PF_HEADER_DUE);
    }
    if (port->jobListHead == nullptr) {
        DrainPrinterInput(0, port);
    }
    if (port->jobManager != nullptr) {
        SetPortWord(port->watchJob, 1);
        StartStatusThread(port);
    }
    if (port->docInfo != nullptr) {
        FreeDocInfo(port->docInfoLevel, port->docInfo);
        port->docInfo = nullptr;
    }
    port->docInfo = CopyDocInfo(level, docInfo);
    port->docInfoLevel = level;
    if (port->jobListHead == nullptr && HasPortFlag(port, PF_HEADER_DUE)) {
        SetPrinterJobBit(port, 1);
    }
    if (port->jobManager != nullptr) {
        AddJobRecord(jobId, port);
    }
    NewJobIdentifier(port->jobIdentifier);
    PublishSendingJobInfo(port, 1);
    UpdateJobStatus(port, 1, 1);
    RaisePrintingPriority(port);
}

}  // namespace

BOOL StartDocPort(HANDLE hPort, LPSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo) {
    auto* port = static_cast<PortContext*>(hPort);
    if (port == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (IsChannelDoc(Level, pDocInfo)) {
        SetPortFlag(port, PF_CHANNEL_DOC);
        TakePrinterName(port, pPrinterName);
        return TRUE;
    }
    ClearPortFlag(port, PF_NO_MANAGER);
    SerialHold serial(port);
    serial.TakeWaitingOnLocalPort();
    port->jobOpen = 1;
    TakePrinterName(port, pPrinterName);

    if (HasPortFlag(port, PF_JOB_ACTIVE)) {
        serial.Release();
        port->jobOpen = 0;
        SetLastError(ERROR_BUSY);
        return FALSE;
    }
    SetPortFlag(port, PF_JOB_ACTIVE);
    CheckPortMode(port);

    if (HasPortFlag(port, PF_DOC_OPEN)) {
        ClearPortFlag(port, PF_DOC_OPEN);
        LowerEndDoc(port);
    }
    if (LowerStartDoc(port, pPrinterName, JobId, Level, pDocInfo)) {
        if (!IsUsbPort(port)) {
            SetReadTimeouts(port);
        }
        SetPortFlag(port, PF_DOC_OPEN);
    } else if (!IsUsbPort(port)) {
        return FailJobStart(port, &serial);
    }
    // A USB port whose document would not open carries on: WritePort tries again.

    port->jobId = JobId;
    ClearPortFlag(port, PF_HEADER_SENT | PF_JOB_RESET | PF_DISCARD);
    // The delay line starts empty, so that no byte of an earlier job can
    // leave with this one.
    std::memset(port->dataTail, 0, sizeof port->dataTail);
    port->tailLength = 0;

    if ((port->portKind & PK_BIDI) == 0) {
        return TRUE;
    }

    LockPort(port);
    FollowJob(port, pPrinterName, JobId, Level, pDocInfo);
    UnlockPort(port);
    serial.Release();

    ClearPortFlag(port, PF_JOB_GONE);
    port->tailValid = 0;
    ResetSniffState(port);
    port->dataSeen = 0;
    port->trailerEof = 0;
    return TRUE;
}

}  // namespace langmon
