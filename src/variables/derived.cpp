#include "variables/derived.h"

#include "framing/job_record.h"
#include "manager/manager_link.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "parser/job_progress.h"
#include "platform/clock.h"
#include "platform/last_error.h"
#include "platform/memory.h"
#include "platform/spooler_jobs.h"
#include "portkind/port_kind.h"
#include "variables/publication.h"
#include "variables/spooler_status.h"
#include "variables/status_variable.h"

#include <atomic>
#include <cstring>

namespace langmon {

namespace {

// An Err variable, the bits of PrinterStatus that report its fault, and the
// value it falls back to when none of them does.
struct ErrorRow {
    const char* Name;
    uint32_t Masks[3];
};

// The clear value is all one bits over the variable's Size.
constexpr ErrorRow ErrorRows[] = {
    {"ErrPaperJam", {0, 0x8, 0x10000}},
    {"ErrPaperSizeError", {0, 0, 0x40000}},
    {"ErrNoPaper2", {0, 0, 0x4840000}},
    {"ErrCoverOpen", {0, 0, 0x8000}},
    {"ErrHWError", {0, 0x80, 0}},
    {"ErrSupplies", {0, 0x80000000, 0x26002}},
    {"ErrBinError", {0, 0x40004010, 0}},
    {"ErrPeriodicChange", {0, 0, 0x80800}},
};

constexpr const char* OfflineRows[] = {"PrinterDisplay", "IconState", "TonerRemain", "CRURemain",
                                       "PrinterBinConfig"};

// The trays an unreadable printer is shown with: the multi-purpose tray, and
// two cassettes of A4 whose level can't be told.
constexpr uint8_t DefaultBinConfig[40] = {
    3, 0, 0, 0,
    0xD1, 0x07, 0xD1, 0x07, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0,  // 2001, 2001, 0xFFFF, 0xFF
    1, 0, 1, 0, 9, 0, 0xF9, 0, 0, 0, 0, 0,                    // 1, 1, 9, 0xF9
    2, 0, 3, 0, 9, 0, 0xF9, 0, 0, 0, 0, 0,                    // 2, 3, 9, 0xF9
};

constexpr uint32_t PrinterStatusBidi = 0x800;
constexpr uint32_t PrinterStatusOneWay = 0x400;
constexpr DWORD SpoolerRetryMs = 120;
constexpr DWORD QueueSettleMs = 200;

StatusVariable* Row(PortContext* port, const char* name, int create) {
    return GetVariable(name, port->variables, port, create);
}

// The three words of PrinterStatus; zeros when it has no value.
void ReadPrinterStatus(PortContext* port, uint32_t words[3]) {
    words[0] = words[1] = words[2] = 0;
    StatusVariable* row = Row(port, "PrinterStatus", 0);
    if (row != nullptr && row->Value != nullptr) std::memcpy(words, row->Value, 12);
}

void StoreAllOnes(StatusVariable* row) {
    std::memset(row->Value, 0xFF, row->Size);
    row->Dirty = 1;
}

// The size of the job's JOB_INFO_1 as the spooler gives it; 0 when the
// spooler doesn't know the job.
DWORD SpoolerJobSize(HANDLE printer, DWORD jobId, bool pauseOnError) {
    DWORD needed = 0;
    uint8_t probe[4];
    if (!GetJobA(printer, jobId, 1, probe, sizeof probe, &needed) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER && pauseOnError) {
        Sleep(SpoolerRetryMs);
    }
    return needed;
}

void CopyField(uint8_t* field, uint32_t size, const char* text) {
    if (text != nullptr) std::memcpy(field, text, strnlen(text, size - 1));
}

/* UpdateJobStatusLocked: UpdateJobStatus with the port's lock held. The
   client's copy of JobStatus is the reference; the new value goes out
   through the row for the length of one publication. */
int UpdateJobStatusLocked(PortContext* port, uint32_t mask, int set) {
    ManagerLink* link = port->jobManager;
    if (port->variables == nullptr || link == nullptr) return 0;
    StatusVariable* row = Row(port, "JobStatus", 0);
    if (row == nullptr || row->Value == nullptr) return 0;
    if (link->GetPrinterStatusA == nullptr || link->managerHandle == 0) return 0;
    auto* block = static_cast<uint32_t*>(GlobalAlloc(GPTR, sizeof(uint32_t)));
    if (block == nullptr) return 0;
    DWORD needed = 0;
    if (link->GetPrinterStatusA(link->managerHandle, "JobStatus", block, sizeof *block, &needed) != 0) {
        GlobalFree(block);
        return 0;
    }
    const uint32_t now = set != 0 ? *block | mask : *block & ~mask;
    if (now == *block) {
        GlobalFree(block);
        return 0;
    }
    *block = now;
    void* own = row->Value;
    row->Value = block;
    row->Dirty = 1;
    PublishVariables(port);
    row->Value = own;
    GlobalFree(block);
    return 1;
}

/* SpoolerJobPaused: whether the spooler holds the running job paused, asked
   through its client's printer handle: 1 or 0, -1 when it can't be had.
   Called with the port's lock held, which keeps the client's link. */
int SpoolerJobPaused(PortContext* port) {
    const ManagerLink* link = port->jobManager;
    if (link == nullptr || link->spoolerHandle == nullptr) return -1;
    const DWORD size = SpoolerJobSize(link->spoolerHandle, port->jobId, false);
    if (size < sizeof(JOB_INFO_1)) return -1;
    auto* job = static_cast<JOB_INFO_1*>(GlobalAlloc(GPTR, size));
    if (job == nullptr) return -1;
    DWORD again = 0;
    const bool read = GetJobA(link->spoolerHandle, port->jobId, 1, reinterpret_cast<LPBYTE>(job), size, &again) != 0;
    const bool paused = read && (job->Status & 0x1) != 0 && HasPortFlag(port, PF_JOB_ACTIVE);
    GlobalFree(job);
    return read ? (paused ? 1 : 0) : -1;
}

}  // namespace

bool ReadPrinterStatusWords(PortContext* port, uint32_t words[3]) {
    LockPort(port);
    const StatusVariable* row = Row(port, "PrinterStatus", 0);
    const bool known = row != nullptr && row->Value != nullptr;
    ReadPrinterStatus(port, words);
    UnlockPort(port);
    return known;
}

bool StatusReadable(PortContext* port) {
    uint32_t words[3];
    ReadPrinterStatus(port, words);
    return !HasPortFlag(port, PF_OFFLINE) && (words[1] & PrinterLostWord) == 0 &&
           MasksIntersect(port->modelMask.low, port->modelMask.high, ModelMask6200.low,
                          ModelMask6200.high) != 0;
}

void InitPrinterStatus(PortContext* port, int publish) {
    const uint32_t words[3] = {0, (port->portKind & PK_BIDI) != 0 ? PrinterStatusBidi : PrinterStatusOneWay, 0};
    LockPort(port);
    StatusVariable* row = Row(port, "PrinterStatus", 1);
    if (row != nullptr && SetVariable(row, words) != 0 && publish != 0) row->Dirty = 1;
    UnlockPort(port);
    if (publish != 0) {
        PublishVariables(port);
        NotifySpoolerStatus(port);
    }
}

/* DeriveErrorVariables: an Err variable whose fault PrinterStatus no longer
   reports falls back to its clear value; an unreadable printer has no cover
   or supply state at all. */
int DeriveErrorVariables(PortContext* port, int publish) {
    LockPort(port);
    if (Row(port, "PrinterStatus", 0) == nullptr) {
        UnlockPort(port);
        return 0;
    }
    uint32_t status[3];
    ReadPrinterStatus(port, status);
    // Read once: under the lock nothing this loop changes can change it, and
    // every row is judged by the same state of the printer.
    const bool readable = StatusReadable(port);
    for (const ErrorRow& error : ErrorRows) {
        StatusVariable* row = Row(port, error.Name, 1);
        if (row == nullptr) continue;
        const bool supplies = std::strcmp(error.Name, "ErrSupplies") == 0;
        const bool cover = std::strcmp(error.Name, "ErrCoverOpen") == 0;
        // On a printer that is read, the supplies are the status record's alone.
        if (readable && supplies) continue;
        const bool reported = (status[0] & error.Masks[0]) != 0 ||
                              (status[1] & error.Masks[1]) != 0 || (status[2] & error.Masks[2]) != 0;
        uint8_t clear[8];
        std::memset(clear, 0xFF, sizeof clear);
        if (!reported && std::memcmp(row->Value, clear, row->Size) != 0) {
            // The cover's value comes from the cover word alone.
            if (!cover) std::memcpy(row->Value, clear, row->Size);
            if (publish != 0) row->Dirty = 1;
        }
        if (!readable && (cover || supplies)) {
            StoreAllOnes(row);
            publish = 1;
        }
    }
    UnlockPort(port);
    if (publish != 0) PublishVariables(port);
    return 1;
}

/* DerivePrinterVariables: what can't be read is shown as unknown while the
   printer can't be read. */
int DerivePrinterVariables(PortContext* port, int publish) {
    LockPort(port);
    if (Row(port, "PrinterStatus", 0) == nullptr) {
        UnlockPort(port);
        return 0;
    }
    const bool readable = StatusReadable(port);
    for (const char* name : OfflineRows) {
        if (readable) break;
        if (std::strcmp(name, "PrinterDisplay") == 0) {
            StatusVariable* row = Row(port, name, 0);
            if (row == nullptr) continue;
            void* blank = GlobalAlloc(GPTR, row->Size);
            if (blank == nullptr) continue;
            GlobalFree(row->Value);
            row->Value = blank;
            row->Dirty = 1;
        } else if (std::strcmp(name, "PrinterBinConfig") == 0) {
            StatusVariable* row = Row(port, name, 0);
            if (row == nullptr) continue;
            void* trays = GlobalAlloc(GPTR, sizeof DefaultBinConfig);
            if (trays == nullptr) continue;
            std::memcpy(trays, DefaultBinConfig, sizeof DefaultBinConfig);
            GlobalFree(row->Value);
            row->Value = trays;
            row->Dirty = 1;
        } else {
            StatusVariable* row = Row(port, name, 1);
            if (row == nullptr) continue;
            StoreAllOnes(row);
        }
        publish = 1;
    }
    UnlockPort(port);
    if (publish != 0) PublishVariables(port);
    return 1;
}

void ResetJobStatus(PortContext* port) {
    // Creating the row's block gives it the value 0: blocks are zero-filled.
    StatusVariable* row = Row(port, "JobStatus", 1);
    if (row != nullptr) {
        *static_cast<uint32_t*>(row->Value) = 0;
    }
}

void UpdatePrinterExtStatus(PortContext* port) {
    LockPort(port);
    StatusVariable* row = Row(port, "PrinterExtStatus", 1);
    if (row == nullptr) {
        UnlockPort(port);
        return;
    }
    uint32_t value = *static_cast<uint32_t*>(row->Value);
    if ((std::atomic_ref<uint32_t>(port->portKind).load() & PK_MONITORED) != 0) {
        value = 1;
    } else {
        // A port no longer watched carries nothing either way: its clients
        // are told 0, not the two-way bits it had while it was open.
        std::atomic_ref<uint32_t>(port->portKind).store(0);
        value &= ~0x7u;
    }
    if ((port->portKind & PK_BIDI) != 0) value |= 0x6;
    *static_cast<uint32_t*>(row->Value) = value;
    const bool clients = port->managers != nullptr;
    if (clients) row->Dirty = 1;
    UnlockPort(port);
    if (clients) {
        PublishVariables(port);
        NotifySpoolerStatus(port);
    }
}

void SetPrinterJobBit(PortContext* port, int on) {
    LockPort(port);
    StatusVariable* row = Row(port, "PrinterStatus", 1);
    int changed = 0;
    if (row != nullptr) {
        uint32_t words[3];
        std::memcpy(words, row->Value, sizeof words);
        words[2] = on != 0 ? words[2] | JobOnPortBit : words[2] & ~JobOnPortBit;
        changed = UpdateVariable(row, words);
    }
    UnlockPort(port);
    if (changed != 0) {
        PublishVariables(port);
        NotifySpoolerStatus(port);
    }
}

int UpdateJobStatus(PortContext* port, uint32_t mask, int set) {
    // The job's client is used under the port's lock: its link may be taken
    // down by its request thread or a reconciling of the port at any time.
    LockPort(port);
    const int changed = UpdateJobStatusLocked(port, mask, set);
    UnlockPort(port);
    return changed;
}

/* PublishSendingJobInfo: the job the port sends, as the spooler names it. */
int PublishSendingJobInfo(PortContext* port, int starting) {
    LockPort(port);
    ManagerLink* link = port->jobManager;
    StatusVariable* row = link != nullptr ? Row(port, "SendingJobInfo", 0) : nullptr;
    if (row == nullptr || (starting == 0 && row->Value == nullptr)) {
        UnlockPort(port);
        return 0;
    }
    if (starting != 0) {
        auto* value = static_cast<uint8_t*>(GlobalAlloc(GPTR, row->Size));
        GlobalFree(row->Value);
        row->Value = value;
        if (value == nullptr) {
            UnlockPort(port);
            return 0;
        }
        // Opened as the link opens it, shared, so that the spooler is told the
        // printer's status through it and the link's end closes it.
        if (link->spoolerHandle == nullptr) OpenLinkPrinter(link);
        // One attempt each, with a pause for a spooler that is busy.
        const DWORD size = SpoolerJobSize(link->spoolerHandle, port->jobId, true);
        JOB_INFO_1* job = nullptr;
        if (size == 0) {
            SetPortFlag(port, PF_JOB_DELETED);
        } else if (size >= sizeof(JOB_INFO_1)) {
            job = static_cast<JOB_INFO_1*>(GlobalAlloc(GPTR, size));
        }
        if (job != nullptr) {
            DWORD again = 0;
            if (!GetJobA(link->spoolerHandle, port->jobId, 1, reinterpret_cast<LPBYTE>(job), size,
                         &again)) {
                const DWORD error = GetLastError();
                if (error != 0 && !(error == ERROR_INSUFFICIENT_BUFFER && again == size)) {
                    Sleep(SpoolerRetryMs);
                }
            }
            if (job->JobId == 0) SetPortFlag(port, PF_JOB_DELETED);
            CopyField(value, DocumentBytes, job->pDocument);
            CopyField(value + DocumentBytes, UserNameBytes, job->pUserName);
            if ((job->Status & JOB_STATUS_PRINTING) == 0) {
                job->Status |= JOB_STATUS_PRINTING;
                job->Position = 0;
                job->PagesPrinted = 0;
                SetJobA(link->spoolerHandle, port->jobId, 1, reinterpret_cast<LPBYTE>(job), 0);
            }
            GlobalFree(job);
        }
        row->Attributes = (row->Attributes & ~VarJobClosing) | VarKeepValue;
    } else {
        std::memset(row->Value, 0, DocumentBytes + UserNameBytes);
        row->Attributes = (row->Attributes & ~VarKeepValue) | VarJobClosing;
    }
    std::memcpy(static_cast<uint8_t*>(row->Value) + JobIdOffset, &port->jobId, sizeof port->jobId);
    row->Dirty = 1;
    UnlockPort(port);
    PublishVariables(port);
    return 1;
}

void CheckSpoolerJob(PortContext* port) {
    LockPort(port);
    if (const int paused = SpoolerJobPaused(port); paused >= 0) UpdateJobStatusLocked(port, JobPaused, paused);
    UnlockPort(port);
}

/* CancelJobTracking: the port stops following its jobs. The running job, if
   its header is out, is cancelled in the spooler and its data swallowed. */
int CancelJobTracking(PortContext* port, int cancel) {
    LockPort(port);
    int result = 0;
    bool sendingClosed = false;
    if (HasPortFlag(port, PF_JOB_ACTIVE) && HasPortFlag(port, PF_HEADER_SENT) &&
        port->jobListTail != nullptr) {
        if (cancel != 0) {
            SetPortFlag(port, PF_JOB_GONE | PF_DISCARD);
            result = 1;
            const JobRecord* running = port->jobListTail;
            if (running->Link != nullptr && running->Link->spoolerHandle != nullptr) {
                SetJobA(running->Link->spoolerHandle, running->JobId, 0, nullptr, JOB_CONTROL_CANCEL);
                UpdateJobStatus(port, JobCancelling, 1);
            }
        }
        sendingClosed = PublishSendingJobInfo(port, 0) != 0;
    }
    ClearJobInfoChain(port);
    if (StatusVariable* row = Row(port, "PrintingJobInfo2", 0); row != nullptr && row->Value != nullptr) {
        auto* value = static_cast<uint8_t*>(row->Value);
        if (port->jobListHead != nullptr) {
            std::memcpy(value + JobIdOffset, &port->jobListHead->JobId, sizeof(uint32_t));
        }
        std::memset(value + PagesOffset, 0, sizeof(uint32_t));
        row->Attributes = (row->Attributes & ~VarKeepValue) | VarJobClosing;
        row->Dirty = 1;
        PublishVariables(port);
        NotifySpoolerStatus(port);
        SetPortFlag(port, PF_JOB_GONE);
    }
    if (StatusVariable* row = Row(port, "PrinterQueue", 1); row != nullptr) {
        *static_cast<uint32_t*>(row->Value) = 0;
        row->Dirty = 1;
        Sleep(QueueSettleMs);
        PublishVariables(port);
    }
    while (port->jobListHead != nullptr && port->jobListHead != port->jobListTail) {
        DropOldestJobRecord(port);
        SetPortFlag(port, PF_JOB_GONE);
    }
    if (!HasPortFlag(port, PF_JOB_ACTIVE) || sendingClosed) {
        FreeJobRecords(port);
    }
    if (port->jobListHead == nullptr) {
        SetPrinterJobBit(port, 0);
    }
    if ((port->portMode & PM_ECP) != 0) {
        port->ecpBusy = 0;
    }
    UnlockPort(port);
    return result;
}

void FreeJobInfoNode(JobInfoNode* node, const void* rowValue) {
    if (node->Snapshot != nullptr) {
        if (node->Snapshot->Value != rowValue) GlobalFree(node->Snapshot->Value);
        GlobalFree(node->Snapshot);
    }
    GlobalFree(node);
}

void ClearJobInfoChain(PortContext* port) {
    StatusVariable* row = Row(port, "PrintingJobInfo2", 0);
    const void* rowValue = row != nullptr ? row->Value : nullptr;
    JobInfoNode* node = port->jobInfoChain;
    port->jobInfoChain = nullptr;
    while (node != nullptr) {
        JobInfoNode* next = node->Next;
        FreeJobInfoNode(node, rowValue);
        node = next;
    }
}

}  // namespace langmon
