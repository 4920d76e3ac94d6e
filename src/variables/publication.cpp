#include "variables/publication.h"

#include "framing/job_record.h"
#include "manager/manager_link.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "parser/job_progress.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/text.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <cstring>

namespace langmon {

namespace {

// PrinterStatus's states that every client is shown, whatever its model. A
// replay looks at one bit fewer than a publication: the printer's own
// choice, kept as it is.
constexpr uint32_t SharedStateBits = 0x1F00;
constexpr uint32_t ReplayedStateBits = 0x0F00;

// The manager's result of a hand-over when the client has no manager.
constexpr int32_t NoManagerResult = -19;

bool ModelFits(const PortContext* port, const ManagerLink* link) {
    return MasksIntersect(port->modelMask.low, port->modelMask.high, link->modelMask.low,
                          link->modelMask.high) != 0;
}

int32_t HandOver(ManagerLink* link, const StatusVariable* row, const void* value, uint32_t size) {
    return link->UpdatePrinterStatusA(link->managerHandle, row->Name, value, size);
}

// PrinterStatus as `link` is to see it: the real value, or the stand-in for a
// client of another model unless the printer is in one of `sharedBits`.
const void* StatusFor(const PortContext* port, const ManagerLink* link, const StatusVariable* row,
                      uint32_t sharedBits) {
    if ((ReadWord(row->Value, 4) & sharedBits) == 0 && !ModelFits(port, link)) {
        return OtherModelStatus;
    }
    return row->Value;
}

// The walk of the routines that go to every client. A client that can't take
// a value ends the walk: those behind it get nothing this pass, those ahead
// get the value again on the next. A refusal spoils the result, but the walk
// goes on. `valueFor` gives what a client gets, null to pass it over.
template <typename ValueFor>
int WalkClients(PortContext* port, const StatusVariable* row, uint32_t size, ValueFor valueFor) {
    int result = 1;
    for (ManagerLink* link = port->managers; link != nullptr; link = link->next) {
        if (!LinkUsable(link)) return 0;
        const void* value = valueFor(link);
        if (value != nullptr && HandOver(link, row, value, size) != 0) result = 0;
    }
    return result;
}

int PublishToAll(PortContext* port, StatusVariable* row, uint32_t size) {
    return WalkClients(port, row, size, [&](const ManagerLink*) { return row->Value; });
}

int PublishToModel(PortContext* port, StatusVariable* row, uint32_t size) {
    if (row->Value == nullptr) return 0;
    return WalkClients(port, row, size, [&](const ManagerLink* link) {
        return ModelFits(port, link) ? row->Value : nullptr;
    });
}

int PublishStatus(PortContext* port, StatusVariable* row, uint32_t size) {
    if (row->Value == nullptr || size > sizeof OtherModelStatus) return 0;
    return WalkClients(port, row, size, [&](const ManagerLink* link) {
        return StatusFor(port, link, row, SharedStateBits);
    });
}

int PublishToJobClient(PortContext* port, StatusVariable* row, uint32_t size) {
    ManagerLink* link = port->jobManager;
    if (link == nullptr || !LinkUsable(link)) return 0;
    return HandOver(link, row, row->Value, size) == 0 ? 1 : 0;
}

void ClearQueueMarks(PortContext* port) {
    for (ManagerLink* link = port->managers; link != nullptr; link = link->next) {
        link->linkFlags &= ~LinkQueueSent;
    }
}

// Each client with a job in the list gets the queue once. A job whose client
// is gone holds the row for a later pass; a client that refuses does not.
int PublishQueue(PortContext* port, StatusVariable* row, uint32_t size) {
    int result = 1;
    for (JobRecord* job = port->jobListHead; job != nullptr; job = job->Next) {
        ManagerLink* link = job->Link;
        if (link == nullptr) {
            result = 0;
            continue;
        }
        if ((link->linkFlags & LinkQueueSent) != 0 || !LinkUsable(link)) continue;
        if (HandOver(link, row, row->Value, size) == 0) link->linkFlags |= LinkQueueSent;
    }
    ClearQueueMarks(port);
    return result;
}

// The job's end report, filled from the page statistics. The divisions are
// unsigned and truncate.
void FillJobFigures(const PortContext* port, void* value) {
    const uint32_t colour = port->colorPageTotal;
    const uint32_t pages = colour + port->bwPageTotal;
    WriteWord(value, YellowCoverageOffset, colour != 0 ? port->yellowCoverageSum / colour : 0);
    WriteWord(value, MagentaCoverageOffset, colour != 0 ? port->magentaCoverageSum / colour : 0);
    WriteWord(value, CyanCoverageOffset, colour != 0 ? port->cyanCoverageSum / colour : 0);
    WriteWord(value, BlackCoverageOffset, pages != 0 ? port->blackCoverageSum / pages : 0);
    WriteWord(value, ColorPagesOffset, colour);
    WriteWord(value, BwPagesOffset, port->bwPageTotal);
    WriteWord(value, PagesOffset, pages);
}

// The job at the head of the chain is over: the next one, if any, takes the
// row, and its client sees it at once, with the figures of a fresh job.
void MoveChainUp(PortContext* port, StatusVariable* row, ManagerLink* link, int32_t result,
                 uint32_t size) {
    JobInfoNode* first = port->jobInfoChain;
    if (first == nullptr) return;
    JobInfoNode* second = first->Next;
    port->jobInfoChain = second;
    FreeJobInfoNode(first, row->Value);
    GlobalFree(row->Value);
    row->Value = nullptr;
    row->Attributes = 0;
    if (second == nullptr) {
        row->Dirty = 0;
        return;
    }
    // The row and the node share the block from here on; the parser lets go
    // of the node's hold before it replaces the row's value.
    if (second->Snapshot != nullptr) {
        row->Value = second->Snapshot->Value;
        row->Attributes = second->Snapshot->Attributes;
    }
    if (result == 0 && row->Value != nullptr) {
        Sleep(JobEndSpacingMs);
        ClearPageStatistics(port);
        HandOver(link, row, row->Value, size);
    }
}

// Serves SendingJobInfo and PrintingJobInfo2. The first goes out plainly while
// its job is sent and is closed at the job's end; the second follows the
// printer's reports and, at a job's end, finishes the job towards its client.
int PublishJobInfo(PortContext* port, StatusVariable* row, uint32_t size) {
    if (row->Value == nullptr || size < JobIdOffset + sizeof(uint32_t)) return 0;
    const bool hasPages = size >= PagesOffset + sizeof(uint32_t);
    const uint32_t jobId = ReadWord(row->Value, JobIdOffset);
    JobRecord* job = port->jobListHead;
    while (job != nullptr && job->JobId != jobId) job = job->Next;
    // A value that can't find its job holds only itself up.
    if (job == nullptr) return 0;

    const bool open = (row->Attributes & VarJobOpen) != 0;
    const bool closing = (row->Attributes & VarJobClosing) != 0;
    if (open && job != port->jobListHead) FinishEarlierJobs(job, row, port);

    ManagerLink* link = job->Link;
    int32_t result = -1;
    if (link != nullptr) {
        if (open && closing && hasPages) {
            FillJobFigures(port, row->Value);
            if (LinkUsable(link)) HandOver(link, row, row->Value, size);
        }
        if (closing) {
            WriteWord(row->Value, JobIdOffset, 0);
            if (open && hasPages) WriteWord(row->Value, PagesOffset, 0);
        }
        if (LinkUsable(link)) {
            if (open && closing) {
                Sleep(JobEndSpacingMs);
            } else if (open && hasPages && ReadWord(row->Value, PagesOffset) == 0) {
                ClearPageStatistics(port);
            }
            result = HandOver(link, row, row->Value, size);
        } else {
            result = NoManagerResult;
        }
    }
    if (open) job->Reported = 1;
    if (!closing) return 1;
    row->Attributes &= ~VarJobClosing;
    if (!open) return 1;
    row->Attributes &= ~VarJobOpen;
    MoveChainUp(port, row, link, result, size);

    if (port->jobListHead != nullptr && port->jobListHead->JobId == jobId) {
        DropOldestJobRecord(port);
        if (port->jobListHead == nullptr) SetPrinterJobBit(port, 0);
    }
    return 1;
}

using PublishRoutine = int (*)(PortContext* port, StatusVariable* row, uint32_t size);

// The routine of each PublishType; types without one are never published.
constexpr PublishRoutine PublishRoutines[] = {
    nullptr,             // 0: kept in the monitor
    PublishToAll,        // 1
    PublishJobInfo,      // 2
    nullptr,             // 3
    nullptr,             // 4
    PublishQueue,        // 5
    PublishToJobClient,  // 6
    nullptr,             // 7
    PublishStatus,       // 8
    PublishToModel,      // 9
};
static_assert(PublishRoutines[PublishAll] == PublishToAll);
static_assert(PublishRoutines[PublishModel] == PublishToModel);

PublishRoutine RoutineOf(const StatusVariable* row) {
    return row->PublishType < std::size(PublishRoutines) ? PublishRoutines[row->PublishType] : nullptr;
}

}  // namespace

int PublishVariables(PortContext* port) {
    LockPort(port);
    if (port->variables == nullptr) {
        UnlockPort(port);
        return -1;
    }
    int finished = 0;
    for (StatusVariable* row = port->variables; row->Name != nullptr; ++row) {
        if (row->Dirty == 0 || row->Value == nullptr) continue;
        const uint32_t size = VariableSize(row);
        const PublishRoutine routine = RoutineOf(row);
        if (size == 0 || routine == nullptr) continue;
        if (routine(port, row, size) == 0) continue;
        ++finished;
        row->Dirty = 0;
        if ((row->Attributes & VarKeepValue) == 0) {
            GlobalFree(row->Value);
            row->Value = nullptr;
        }
    }
    UnlockPort(port);
    return finished;
}

void FinishEarlierJobs(JobRecord* target, StatusVariable* row, PortContext* port) {
    if (target == nullptr || target == port->jobListHead) return;
    const uint32_t size = VariableSize(row);
    if (size < PagesOffset + sizeof(uint32_t)) return;
    void* blank = GlobalAlloc(GPTR, size);
    if (blank == nullptr) return;

    const bool closing = (row->Attributes & VarJobClosing) != 0;
    bool skipFirst = closing || port->jobListHead->Reported != 0;
    const bool announceTarget = closing;
    // Each client of a job the printer passed over sees it start and end in
    // one step, then the empty record.
    while (port->jobListHead != target) {
        JobRecord* job = port->jobListHead;
        ManagerLink* link = job->Link;
        bool announceEnd = true;
        if (link != nullptr && LinkUsable(link)) {
            if (skipFirst) {
                skipFirst = false;
            } else {
                WriteWord(blank, JobIdOffset, job->JobId);
                WriteWord(blank, PagesOffset, 0);
                announceEnd = HandOver(link, row, blank, size) == 0;
            }
        }
        if (announceEnd && link != nullptr && LinkUsable(link)) {
            WriteWord(blank, JobIdOffset, 0);
            WriteWord(blank, PagesOffset, 0);
            HandOver(link, row, blank, size);
        }
        DropOldestJobRecord(port);
    }
    // The target's own client hears that its job is the one printing now.
    ManagerLink* targetLink = target->Link;
    if (announceTarget && targetLink != nullptr && LinkUsable(targetLink)) {
        WriteWord(blank, JobIdOffset, target->JobId);
        WriteWord(blank, PagesOffset, 0);
        HandOver(targetLink, row, blank, size);
    }
    GlobalFree(blank);
}

int ReplayVariables(PortContext* port, ManagerLink* link) {
    if (port->variables == nullptr || link == nullptr) return -1;
    int accepted = 0;
    for (StatusVariable* row = port->variables; row->Name != nullptr; ++row) {
        const uint32_t size = VariableSize(row);
        if ((row->Attributes & VarReplayToNewClient) == 0 || row->Value == nullptr || size == 0) continue;
        // Its row asks for a replay, but a file spooled for another client's
        // job is none of a new client's business.
        if (lstrcmpA(row->Name, "SpooledFileInfo") == 0) continue;
        const uint32_t type = row->PublishType;
        const bool replayed = type == PublishAll || type == PublishJobClient ||
                              type == PublishStatusWord ||
                              (type == PublishModel && ModelFits(port, link));
        if (!replayed || !LinkUsable(link)) continue;
        const void* value = row->Value;
        if (type == PublishStatusWord) {
            if (size > sizeof OtherModelStatus) continue;
            value = StatusFor(port, link, row, ReplayedStateBits);
        }
        if (HandOver(link, row, value, size) == 0) ++accepted;
    }
    return accepted;
}

void ClearPageStatistics(PortContext* port) {
    port->colorPageTotal = 0;
    port->bwPageTotal = 0;
    port->yellowCoverageSum = 0;
    port->magentaCoverageSum = 0;
    port->cyanCoverageSum = 0;
    port->blackCoverageSum = 0;
    port->yellowCoverage = 0;
    port->magentaCoverage = 0;
    port->cyanCoverage = 0;
    port->blackCoverage = 0;
    port->lastColorPages = 0;
    port->skipPageReport = 0;
}

}  // namespace langmon
