#include "monitor/job_start.h"

#include "monitor/job_data.h"
#include "monitor/lower_port.h"
#include "monitor/monitor_entry.h"
#include "platform/last_error.h"
#include "platform/text.h"
#include "portkind/port_kind.h"

namespace langmon {

namespace {

constexpr DWORD SerialWait = 30000;

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

}  // namespace

bool WaitSerialForJobStart(PortContext* port) {
    // The status thread holds the semaphore for one poll at a time, and a poll
    // ends: on a local port waiting on is safe, elsewhere the job goes on.
    for (;;) {
        if (WaitForSingleObject(port->serialSemaphore, SerialWait) == WAIT_OBJECT_0) {
            return true;
        }
        if ((port->portKind & PK_LOCAL) == 0) {
            return false;
        }
    }
}

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
    WaitSerialForJobStart(port);
    port->jobOpen = 1;
    TakePrinterName(port, pPrinterName);

    if (HasPortFlag(port, PF_JOB_ACTIVE)) {
        ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
        port->jobOpen = 0;
        SetLastError(ERROR_BUSY);
        return FALSE;
    }
    SetPortFlag(port, PF_JOB_ACTIVE);

    if (HasPortFlag(port, PF_DOC_OPEN)) {
        ClearPortFlag(port, PF_DOC_OPEN);
        LowerEndDoc(port);
    }
    if (LowerStartDoc(port, pPrinterName, JobId, Level, pDocInfo)) {
        SetPortFlag(port, PF_DOC_OPEN);
    } else if (!IsUsbName(port->portName)) {
        LastErrorKeeper lowerError;
        ClearPortFlag(port, PF_JOB_ACTIVE);
        ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
        port->jobOpen = 0;
        lowerError.Restore();
        return FALSE;
    }
    port->jobId = JobId;
    ClearPortFlag(port, PF_HEADER_SENT | PF_JOB_RESET | PF_DISCARD);

    // Jobs are not framed yet: every port runs its jobs as plain pass-through.
    ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
    ClearPortFlag(port, PF_JOB_GONE);
    port->tailValid = 0;
    ResetSniffState(port);
    port->dataSeen = 0;
    port->trailerEof = 0;
    return TRUE;
}

}  // namespace langmon
