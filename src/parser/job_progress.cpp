#include "parser/job_progress.h"

#include "framing/job_record.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "parser/pjl_text.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <cstring>

namespace langmon {

namespace {

// A report's NAME is a spooler job name, which carries the JobId itself, or
// the identifier the job header or trailer gave the job.
constexpr const char* SpoolerJobName = "\"MSJOB ";
constexpr std::size_t SpoolerJobNameLength = 7;
constexpr const char* IdentifierStart = "03";
constexpr std::size_t IdentifierBytes = 24;

// After a job's end record the printer's next reports may already be about
// the next job; a pause lets the client see the end first.
constexpr DWORD JobEndPauseMs = 100;

StatusVariable* JobInfoRow(PortContext* port) {
    return GetVariable("PrintingJobInfo2", port->variables, port, 0);
}

// A fresh job info record for the report in hand, in place of any earlier
// one. Without memory there is none, and the report's NAME changes nothing.
bool NewScratchRecord(PjlParserState* state, StatusVariable* row) {
    if (state->ScratchSize != 0) GlobalFree(state->ScratchValue);
    state->ScratchValue = nullptr;
    state->ScratchSize = 0;
    const uint32_t size = VariableSize(row);
    state->ScratchValue = GlobalAlloc(GPTR, size);
    if (state->ScratchValue == nullptr) return false;
    state->ScratchSize = size;
    return true;
}

void ForgetScratchRecord(PjlParserState* state) {
    state->ScratchValue = nullptr;
    state->ScratchSize = 0;
    state->JobFlags = 0;
}

// A node with its snapshot; null, with nothing held, without memory.
JobInfoNode* NewJobInfoNode() {
    auto* node = static_cast<JobInfoNode*>(GlobalAlloc(GPTR, sizeof(JobInfoNode)));
    auto* snapshot = static_cast<StatusVariable*>(GlobalAlloc(GPTR, sizeof(StatusVariable)));
    if (node == nullptr || snapshot == nullptr) {
        GlobalFree(node);
        GlobalFree(snapshot);
        return nullptr;
    }
    node->Snapshot = snapshot;
    return node;
}

void AppendJobInfoNode(PortContext* port, JobInfoNode* node) {
    JobInfoNode** link = &port->jobInfoChain;
    while (*link != nullptr) link = &(*link)->Next;
    *link = node;
}

/* TakeJobName: the job the report names, by `which` identifier. 1 and the
   JobId when found; the start identifier of a job found by it is used up, so
   a second report with it finds nothing. Only the first 24 bytes of a
   longer name are compared, and nothing behind its line is looked at. */
bool TakeJobName(const char* value, uint32_t which, PortContext* port, uint32_t* jobId) {
    if (*value == '"') ++value;
    char identifier[IdentifierBytes + 1] = {};
    for (std::size_t i = 0; i < IdentifierBytes; ++i) {
        const char c = value[i];
        if (c == '"' || c == '\r' || c == '\n' || c == '\0') break;
        identifier[i] = c;
    }
    LockPort(port);
    JobRecord* job = FindJobRecord(identifier, which, port);
    if (job != nullptr) {
        *jobId = job->JobId;
        if (which == JobStartName) std::memset(job->StartIdentifier, 0, sizeof job->StartIdentifier);
    }
    UnlockPort(port);
    return job != nullptr;
}

// The closing record replaces the row's; a first node that shared the old
// block lets go of it first. The rest of this report's statistics are the
// job's whole figures again, which the running sums already hold.
void CloseJobRecord(PjlParserState* state, StatusVariable* row, uint32_t jobId, PortContext* port) {
    JobInfoNode* first = port->jobInfoChain;
    if (first != nullptr && first->Snapshot != nullptr && first->Snapshot->Value == row->Value) {
        first->Snapshot->Value = nullptr;
    }
    GlobalFree(row->Value);
    row->Value = state->ScratchValue;
    row->Attributes = state->JobFlags;
    WriteWord(row->Value, JobIdOffset, jobId);
    row->Dirty = 1;
    ForgetScratchRecord(state);
    port->lastPageReport = 0;
    port->skipPageReport = 1;
    Sleep(JobEndPauseMs);
}

// Another job is still open at the printer: this one waits in the chain.
int QueueJobRecord(PjlParserState* state, uint32_t jobId, PortContext* port) {
    JobInfoNode* node = NewJobInfoNode();
    if (node == nullptr) return 0;
    StatusVariable* snapshot = node->Snapshot;
    snapshot->Value = state->ScratchValue;
    snapshot->Attributes = state->JobFlags;
    snapshot->Dirty = 1;
    WriteWord(snapshot->Value, JobIdOffset, jobId);
    ForgetScratchRecord(state);
    AppendJobInfoNode(port, node);
    return 1;
}

// A start with no other job open: the new record takes the row over, and the
// chain holds it alone. Whatever is needed is got first, so a failure
// changes nothing.
int StartJobRecord(PjlParserState* state, StatusVariable* row, uint32_t jobId, PortContext* port) {
    JobInfoNode* node = NewJobInfoNode();
    void* copy = node != nullptr ? GlobalAlloc(GPTR, state->ScratchSize) : nullptr;
    if (copy == nullptr) {
        if (node != nullptr) {
            GlobalFree(node->Snapshot);
            GlobalFree(node);
        }
        return 0;
    }
    ClearJobInfoChain(port);
    GlobalFree(row->Value);
    row->Value = state->ScratchValue;
    row->Attributes = state->JobFlags;
    WriteWord(row->Value, JobIdOffset, jobId);
    row->Dirty = 1;
    std::memcpy(copy, row->Value, state->ScratchSize);
    node->Snapshot->Value = copy;
    node->Snapshot->Attributes = state->JobFlags;
    node->Snapshot->Dirty = 1;
    port->jobInfoChain = node;
    ForgetScratchRecord(state);
    port->lastPageReport = 0;
    return 1;
}

}  // namespace

// Keep the order: the first prefix wins ("PAGE" also takes "PAGES").
const KeyRow JobKeys[10] = {
    {"START", JobStartKeyHandler},
    {"END", JobEndKeyHandler},
    {"NAME", JobNameKeyHandler},
    {"PAGE", SkipLineKeyHandler},
    {"COLORPAGE", ColorPageKeyHandler},
    {"BWPAGE", BwPageKeyHandler},
    {"COVERAGE", CoverageKeyHandler},
    {"CANCELED", JobResultKeyHandler},
    {"RESULT", JobResultKeyHandler},
    {nullptr, nullptr},
};

int JobReportHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port) {
    return StrictScan(text, cursor, JobKeys, state, port);
}

/* PageReportHandler: the printer's count of the job's pages so far. Only a
   whole non-zero number with the form feed right behind it is used; anything
   else stays as a rest until it is given up. */
int PageReportHandler(const char* text, const char** cursor, PjlParserState*, PortContext* port) {
    *cursor = text;
    const uint32_t pages = ParseDecimal(text);
    const char* next = text;
    if (*text != '\0' && pages != 0 && SkipLine(text, &next) != 0 && *next == FormFeed) {
        LockPort(port);
        StatusVariable* row = JobInfoRow(port);
        if (row != nullptr && row->Value != nullptr) {
            row->Dirty = 1;
            uint32_t total = ReadWord(row->Value, PagesOffset);
            if (total == 0) port->lastPageReport = 0;
            if (pages != port->lastPageReport) {
                // Unsigned: a smaller count takes pages away.
                total += pages - port->lastPageReport;
                WriteWord(row->Value, PagesOffset, total);
                port->lastPageReport = pages;
            }
        }
        UnlockPort(port);
        *cursor = next;
    }
    return **cursor == FormFeed ? 5 : 6;
}

int JobStartKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port) {
    if (SkipLine(text, cursor) == 0) return 0;
    LockPort(port);
    StatusVariable* row = JobInfoRow(port);
    if (row != nullptr && NewScratchRecord(state, row)) {
        state->JobFlags = (state->JobFlags & ~VarJobClosing) | VarJobOpen | VarKeepValue;
    }
    UnlockPort(port);
    return 1;
}

/* JobEndKeyHandler: an END for which no START was seen is ignored. */
int JobEndKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port) {
    if (SkipLine(text, cursor) == 0) return 0;
    LockPort(port);
    port->lastPageReport = 0;
    StatusVariable* row = JobInfoRow(port);
    if (row != nullptr && row->Value != nullptr && NewScratchRecord(state, row)) {
        uint32_t flags = row->Attributes;
        if (const JobInfoNode* first = port->jobInfoChain) {
            flags = first->Snapshot != nullptr ? flags | VarKeepValue : flags & ~VarKeepValue;
        }
        state->JobFlags = flags | VarJobClosing;
    }
    UnlockPort(port);
    return 1;
}

int JobNameKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port) {
    *cursor = text;
    if (*text == '\0') return 0;
    const char* value = text + 1;  // behind the '='
    uint32_t jobId = 0;
    if (StartsWith(value, SpoolerJobName)) {
        jobId = ParseDecimal(value + SpoolerJobNameLength);
        if (SkipLine(value, cursor) == 0) return 0;
    } else {
        if (SkipLine(value, cursor) == 0) return 0;
        if (*value != '"' && !StartsWith(value, IdentifierStart)) return 0;
        const uint32_t which = (state->JobFlags & VarJobClosing) != 0 ? JobEndName : JobStartName;
        // A job the port doesn't follow: the line is used, and the record
        // under construction waits on.
        if (!TakeJobName(value, which, port, &jobId)) return 1;
    }

    LockPort(port);
    StatusVariable* row = JobInfoRow(port);
    int result = 1;
    if (row == nullptr || state->ScratchSize == 0 || state->ScratchValue == nullptr) {
        // No START or END prepared a record, as in USTATUS EOJ.
    } else if (row->Value != nullptr && (state->JobFlags & VarJobClosing) != 0) {
        CloseJobRecord(state, row, jobId, port);
    } else if ((state->JobFlags & (VarJobOpen | VarJobClosing)) == VarJobOpen &&
               (row->Attributes & (VarJobOpen | VarJobClosing)) == VarJobOpen) {
        result = QueueJobRecord(state, jobId, port);
    } else {
        result = StartJobRecord(state, row, jobId, port);
    }
    UnlockPort(port);
    return result;
}

int ColorPageKeyHandler(const char* text, const char** cursor, PjlParserState*, PortContext* port) {
    if (SkipLine(text, cursor) == 0) return 0;
    LockPort(port);
    if (port->skipPageReport != 1) {
        port->lastColorPages = ParseDecimal(text + 1);
        port->colorPageTotal += port->lastColorPages;
    }
    UnlockPort(port);
    return 1;
}

/* CoverageKeyHandler: " C=", " M=", " Y=" or " K=" and the colour's coverage
   on this report's colour pages. */
int CoverageKeyHandler(const char* text, const char** cursor, PjlParserState*, PortContext* port) {
    if (SkipLine(text, cursor) == 0) return 0;
    LockPort(port);
    uint32_t* coverage = nullptr;
    if (port->skipPageReport != 1 && text[0] == ' ') {
        switch (text[1]) {
            case 'C': coverage = &port->cyanCoverage; break;
            case 'M': coverage = &port->magentaCoverage; break;
            case 'Y': coverage = &port->yellowCoverage; break;
            case 'K': coverage = &port->blackCoverage; break;
            default: break;
        }
    }
    if (coverage != nullptr) *coverage = ParseDecimal(text + 3);
    UnlockPort(port);
    return 1;
}

/* BwPageKeyHandler: the line that closes a statistics report; the coverage
   numbers before it weigh its pages. The end report's figures are the job's
   whole, already summed: its BWPAGE only ends their passing over. */
int BwPageKeyHandler(const char* text, const char** cursor, PjlParserState*, PortContext* port) {
    if (SkipLine(text, cursor) == 0) return 0;
    LockPort(port);
    if (port->skipPageReport == 1) {
        port->skipPageReport = 0;
    } else {
        const uint32_t pages = ParseDecimal(text + 1);
        const uint32_t colour = port->lastColorPages;
        port->bwPageTotal += pages;
        port->cyanCoverageSum += port->cyanCoverage * colour;
        port->magentaCoverageSum += port->magentaCoverage * colour;
        port->yellowCoverageSum += port->yellowCoverage * colour;
        port->blackCoverageSum += port->blackCoverage * (colour + pages);
        port->yellowCoverage = 0;
        port->magentaCoverage = 0;
        port->cyanCoverage = 0;
        port->blackCoverage = 0;
        port->lastColorPages = 0;
    }
    UnlockPort(port);
    return 1;
}

/* JobResultKeyHandler: a plain CANCELED line marks the job cancelling; a
   value of "HOST_CALCELED", the printer's own spelling, means the host
   cancelled it, and the port stops following its jobs. */
int JobResultKeyHandler(const char* text, const char** cursor, PjlParserState*, PortContext* port) {
    if (SkipLine(text, cursor) == 0) return 0;
    LockPort(port);
    if (text[0] == '=' && text[1] != '\n') {
        if (StartsWith(text + 1, "HOST_CALCELED")) CancelJobTracking(port, 1);
    } else {
        UpdateJobStatus(port, JobCancelling, 1);
    }
    UnlockPort(port);
    return 1;
}

}  // namespace langmon
