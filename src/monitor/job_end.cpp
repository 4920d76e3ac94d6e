#include "monitor/job_end.h"

#include "framing/job_frame.h"
#include "framing/job_identifier.h"
#include "framing/job_record.h"
#include "manager/job_printer.h"
#include "monitor/lower_port.h"
#include "monitor/monitor_entry.h"
#include "monitor/serial_hold.h"
#include "monitor/write_strategy.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/spooler_jobs.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "portkind/port_kind.h"
#include "variables/derived.h"
#include "variables/publication.h"
#include "variables/status_variable.h"

#include <cstring>

namespace langmon {

namespace {

// JOB_STATUS_PAUSED, _DELETING, _PRINTING, _PRINTED and _DELETED: a job with
// any of these is not waiting to be sent.
constexpr DWORD NotWaitingStatus = 0x195;
constexpr int SpoolerTries = 3;
// The job bit of PrinterStatus's StatusWord2: a job is on the port.
constexpr uint32_t PrinterJobBit = 0x8;
constexpr int StatusWord2 = 2;

/* SendTrailer: the EOJ line that closes the job at the printer, behind the
   bytes of the job that the delay line still holds. */
void SendTrailer(PortContext* port) {
    if (port->trailerIdentifier[0] == '\0') {
        // The job's data named no job of its own: close it under a name the
        // header didn't use. An identifier counts milliseconds, so one made
        // in the header's millisecond is the header's own, and the printer's
        // report of the job's end would then find the job by it or not as
        // the clock happened to fall: the next millisecond names it.
        NewJobIdentifier(port->trailerIdentifier);
        while (std::strcmp(port->trailerIdentifier, port->jobIdentifier) == 0) {
            Sleep(1);
            NewJobIdentifier(port->trailerIdentifier);
        }
    }
    JobFrameRequest request{};
    request.wantJob = 1;
    request.wantName = 1;
    std::memcpy(request.name, port->trailerIdentifier, sizeof port->trailerIdentifier);
    request.quantity = NoCount;
    request.copies = NoCount;

    // The held bytes and the trailer leave in one write. Both live here, not
    // on the heap, so that no failure can lose the job's last bytes. A job
    // cut short sends them too: the spooler handed them over before the cut,
    // and the discard swallows only what came after it. Only the job's own
    // bytes: a line this job never filled holds nothing of an earlier one.
    uint8_t payload[DataTailLength + JobFrameBufferSize];
    DWORD held = 0;
    if (!IsUsbPort(port) && (port->portMode & PM_ECP) == 0) {
        held = port->tailLength;
        std::memcpy(payload, HeldJobBytes(port), held);
    }
    const DWORD trailer = BuildJobTrailer(reinterpret_cast<char*>(payload + held), &request, port);
    port->tailLength = 0;
    port->tailValid = 0;

    LockPort(port);
    SetJobIdentifier(port->jobIdentifier, JobEndName, port);
    UnlockPort(port);
    SendPjl(port, payload, held + trailer, nullptr, 1, 0);
}

/* RestorePrintingPriority: the spooler's thread gets back the priority it had
   before the job. */
void RestorePrintingPriority(PortContext* port) {
    if (port->priorityThread == nullptr) {
        return;
    }
    SetThreadPriority(port->priorityThread, port->savedPriority);
    CloseHandle(port->priorityThread);
    port->priorityThread = nullptr;
}

void ClearPrinterQueue(PortContext* port) {
    StatusVariable* row = GetVariable("PrinterQueue", port->variables, port, 1);
    if (row == nullptr) {
        return;
    }
    const uint32_t none = 0;
    SetVariable(row, &none);
    row->Dirty = 1;
    PublishVariables(port);
}

void ClearJobBit(PortContext* port) {
    StatusVariable* row = FindVariable("PrinterStatus", port->variables, port);
    if (row != nullptr && row->Value != nullptr) {
        static_cast<uint32_t*>(row->Value)[StatusWord2] &= ~PrinterJobBit;
    }
}

/* TidyJobList: what the port keeps of the job now depends on how far it got. */
void TidyJobList(PortContext* port) {
    if (!HasPortFlag(port, PF_JOB_GONE)) {
        PublishSendingJobInfo(port, 0);
    }
    UpdateJobStatus(port, 0x107, 0);
    const bool headerSent = HasPortFlag(port, PF_HEADER_SENT);
    if (!headerSent || port->dataSeen == 0) {
        ClearPrinterQueue(port);
        if (port->dataSeen == 0) {
            FreeJobRecords(port);
            SetPrinterJobBit(port, 0);
        }
    }
    if (HasPortFlag(port, PF_JOB_GONE) || !headerSent) {
        if (!HasPortFlag(port, PF_JOB_GONE)) {
            CancelJobTracking(port, 0);
        }
        ClearJobBit(port);
        ClearPortFlag(port, PF_JOB_GONE);
    }
    if (!headerSent) {
        // The printer knows nothing of this job, nor will it tell of any.
        FreeJobRecords(port);
    }
}

/* EndPassThroughJob: a port that can't answer only closes the document and
   tells the spooler the job's last page is out. */
void EndPassThroughJob(PortContext* port) {
    ClearPortFlag(port, PF_DOC_OPEN);
    LowerEndDoc(port);
    ClearPortFlag(port, PF_JOB_ACTIVE);
    HANDLE printer = nullptr;
    if (OpenPrinterA(port->printerName, &printer, nullptr)) {
        SetJobA(printer, port->jobId, 0, nullptr, JOB_CONTROL_LAST_PAGE_EJECTED);
        ClosePrinter(printer);
    }
}

}  // namespace

BOOL EndDocPort(HANDLE hPort) {
    auto* port = static_cast<PortContext*>(hPort);
    if (port == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (HasPortFlag(port, PF_CHANNEL_DOC)) {
        ClearPortFlag(port, PF_CHANNEL_DOC);
        return TRUE;
    }
    if ((port->portKind & PK_BIDI) == 0) {
        // jobOpen stays: nothing on such a port asks it, and a port reset
        // clears it.
        EndPassThroughJob(port);
        return TRUE;
    }

    // The job ends whether or not the semaphore comes.
    SerialHold serial(port);
    serial.Take();
    ClearPortFlag(port, PF_JOB_DELETED);
    bool opened = false;
    OpenPseudoDocumentIfClosed(port, &opened);
    // A job whose data was never looked at had no header either.
    if (port->sniffResult != 0 && !HasPortFlag(port, PF_JOB_RESET)) {
        SendTrailer(port);
    }
    if (HasPortFlag(port, PF_DOC_OPEN) && LowerEndDoc(port)) {
        ClearPortFlag(port, PF_DOC_OPEN);
    }

    LockPort(port);
    RestorePrintingPriority(port);
    if (port->docInfo != nullptr) {
        FreeDocInfo(port->docInfoLevel, port->docInfo);
        port->docInfo = nullptr;
    }
    port->docInfoLevel = 0;
    TidyJobList(port);
    ClearPortFlag(port, PF_JOB_ACTIVE);
    UnlockPort(port);

    if (CountWaitingJobs(port) == 0) {
        port->ecpBusy = 0;
    }
    // The job's own words change while the semaphore keeps the status
    // thread, which resets them too, away.
    port->jobOpen = 0;
    ClearPortFlag(port, PF_JOB_RESET);
    // An ECP port is looked at anew for each job.
    port->portMode &= ~PM_ECP;
    serial.Release();
    // With no status thread alive nobody else will send what the port
    // didn't take.
    if (!HasPortFlag(port, PF_STATUS_ALIVE)) FlushPending(port);
    return TRUE;
}

DWORD CountWaitingJobs(PortContext* port) {
    const JobPrinter job(port);
    const HANDLE printer = job.Handle();
    if (printer == nullptr) {
        return 0;
    }
    DWORD waiting = 0;
    for (int attempt = 0; attempt < SpoolerTries; ++attempt) {
        DWORD needed = 0;
        DWORD returned = 0;
        if (EnumJobsA(printer, 0, 0xFFFFFFFFu, 1, nullptr, 0, &needed, &returned)) {
            if (returned == 0) {
                break;
            }
            continue;
        }
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
            continue;
        }
        auto* jobs = static_cast<JOB_INFO_1*>(GlobalAlloc(GPTR, needed));
        if (jobs == nullptr) {
            continue;
        }
        const bool listed = EnumJobsA(printer, 0, 0xFFFFFFFFu, 1, reinterpret_cast<LPBYTE>(jobs), needed,
                                      &needed, &returned) != 0;
        if (listed) {
            for (DWORD i = 0; i < returned; ++i) {
                if ((jobs[i].Status & NotWaitingStatus) == 0) {
                    ++waiting;
                }
            }
        }
        GlobalFree(jobs);
        if (listed) {
            break;
        }
    }
    return waiting;
}

}  // namespace langmon
