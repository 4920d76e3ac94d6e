#include "acquisition/poll.h"

#include "acquisition/device_id.h"
#include "monitor/lower_port.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "monitor/serial_hold.h"
#include "parser/response_parser.h"
#include "platform/clock.h"
#include "portkind/port_kind.h"
#include "variables/derived.h"
#include "variables/publication.h"
#include "variables/spooler_status.h"
#include "variables/status_variable.h"

#include <cstring>

namespace langmon {

namespace {

constexpr DWORD TryPauseMs = 1000;
constexpr DWORD JobSettleMs = 100;
constexpr DWORD StallRespiteMs = 20000;
constexpr DWORD NoTick = 0xFFFFFFFFu;
// A run of this many blanks is no device ID but a port that gives filler.
constexpr std::size_t BlankRunLimit = 258;
// More stale input than this: the printer is still talking; give it time.
constexpr DWORD DrainLimitBytes = 4500;
constexpr DWORD DrainPauseMs = 4000;
constexpr DWORD DrainWaitMs = 1100;

// What a read of the printer's input takes in one go, and the block around it.
DWORD ReadSize(const PortContext* port) { return IsUsbPort(port) ? 1024 : 1023; }
constexpr DWORD ReadBlockBytes = 1025;

/* ShowPrinterLost: clients and the spooler see a printer that doesn't answer. */
void ShowPrinterLost(PortContext* port) {
    LockPort(port);
    StatusVariable* row = GetVariable("PrinterStatus", port->variables, port, 1);
    if (row == nullptr) {
        UnlockPort(port);
        return;
    }
    auto* words = static_cast<uint32_t*>(row->Value);
    words[0] = 0;
    words[1] = PrinterLostWord;
    words[2] &= JobOnPortBit;
    row->Dirty = 1;
    UnlockPort(port);
    PublishVariables(port);
    DeriveErrorVariables(port, 1);
    DerivePrinterVariables(port, 1);
    NotifySpoolerStatus(port);
}

// The jobs on the port while the printer goes away: JobCancelling rises,
// and falls again for a job whose header never went out, and the tracking
// ends.
void WindUpJobs(PortContext* port) {
    if (port->jobListHead != nullptr) {
        UpdateJobStatus(port, JobCancelling, 1);
        Sleep(JobSettleMs);
        if (!(HasPortFlag(port, PF_JOB_ACTIVE) && HasPortFlag(port, PF_HEADER_SENT))) {
            UpdateJobStatus(port, JobCancelling, 0);
        }
    }
    CancelJobTracking(port, 1);
}

/* DocumentFailed: there is no way to the printer at all. */
int DocumentFailed(PortContext* port) {
    DropPending(port);
    if (!HasPortFlag(port, PF_OFFLINE)) {
        ShowPrinterLost(port);
        WindUpJobs(port);
    }
    port->portMode = 0;
    ClearPortFlag(port, PF_MODEL_KNOWN);
    SetPortFlag(port, PF_OFFLINE);
    return 0;
}

/* NoAnswer: the channel is there and the printer says nothing. */
void NoAnswer(PortContext* port) {
    DropPending(port);
    if (!HasPortFlag(port, PF_OFFLINE)) {
        ShowPrinterLost(port);
        // An ECP port sending a job, and a job still waiting for its header:
        // the silence says nothing about the job yet.
        const bool ecpSending = (port->portMode & PM_ECP) != 0 && HasPortFlag(port, PF_JOB_ACTIVE) &&
                                port->ecpBusy == 0;
        if (!ecpSending && !HasPortFlag(port, PF_HEADER_DUE)) {
            WindUpJobs(port);
        }
    }
    SetPortFlag(port, PF_OFFLINE);
    if (!HasPortFlag(port, PF_JOB_ACTIVE)) port->portMode = 0;
    ClearPortFlag(port, PF_MODEL_KNOWN);
}

/* ShowForeignPrinter: a printer answers that isn't one of the known models.
   Its status is written once; later polls find it standing. */
void ShowForeignPrinter(PortContext* port) {
    static constexpr uint32_t Foreign[3] = {0, PrinterForeignWord, 0};
    LockPort(port);
    StatusVariable* row = GetVariable("PrinterStatus", port->variables, port, 1);
    bool changed = false;
    if (row != nullptr && std::memcmp(row->Value, Foreign, sizeof Foreign) != 0) {
        auto* words = static_cast<uint32_t*>(row->Value);
        words[0] = 0;
        words[1] = PrinterForeignWord;
        words[2] &= JobOnPortBit;
        row->Dirty = 1;
        changed = true;
    }
    UnlockPort(port);
    if (changed) {
        DeriveErrorVariables(port, 1);
        DerivePrinterVariables(port, 1);
        NotifySpoolerStatus(port);
        PublishVariables(port);
    }
}

bool IsBlank(char c) { return c == ' '; }

// Reads until a read fails or gives nothing; the number of bytes read. Each
// block goes to `consume` unless it is null.
template <typename Consume>
DWORD ReadUntilEmpty(PortContext* port, char* block, DWORD pauseMs, Consume consume) {
    DWORD total = 0;
    for (;;) {
        if (pauseMs != 0) Sleep(pauseMs);
        DWORD read = 0;
        if (LowerRead(port, block, ReadSize(port), &read) == 0) read = 0;
        if (read > ReadSize(port)) read = ReadSize(port);
        block[read] = '\0';
        total += read;
        consume(block);
        if (read == 0) return total;
    }
}

}  // namespace

int DeviceIdUsable(const char* text) {
    std::size_t length = 0;
    std::size_t run = 0;
    for (; text[length] != '\0'; ++length) {
        run = IsBlank(text[length]) ? run + 1 : 0;
        if (run >= BlankRunLimit) return 0;
    }
    while (length > 0 && IsBlank(text[length - 1])) --length;
    return length > 0 && text[length - 1] == ';' ? 1 : 0;
}

/* PollPrinterStatus: asks for the device ID and settles from the answer
   whether the printer is there, whether it is a known model, and its state.
   The answer and the copy that identification cuts up live on the stack: a
   poll neither allocates nor fails for memory. */
int PollPrinterStatus(PortContext* port) {
    if ((port->portKind & PK_BIDI) == 0) return 1;
    char answer[DeviceIdBytes + 1];
    char copy[DeviceIdBytes + 1];

    bool opened = false;
    if (!HasPortFlag(port, PF_DOC_OPEN)) {
        if (!OpenPseudoDocument(port)) return DocumentFailed(port);
        opened = true;
    }
    const int tries = HasPortFlag(port, PF_JOB_ACTIVE) ? 3 : 1;
    bool answered = false;
    for (int t = 1; t <= tries && !answered; ++t) {
        std::memset(answer, 0, sizeof answer);
        DWORD returned = 0;
        answered = ForwardPortRequest(port, DeviceIdControl, nullptr, nullptr, 0, answer,
                                      DeviceIdBytes, &returned) != 0 &&
                   returned > 0;
        if (answered) break;
        const bool more = t < tries;
        if (IsUsbPort(port)) {
            if (more) Sleep(TryPauseMs);
        } else if (LowerEndDoc(port) != 0) {
            // The channel is opened afresh for the next try, and after the
            // last one for whoever uses the port next.
            ClearPortFlag(port, PF_DOC_OPEN);
            if (more) Sleep(TryPauseMs);
            OpenPseudoDocument(port);
        }
    }

    int result = 0;
    if (!answered) {
        NoAnswer(port);
    } else if (DeviceIdUsable(answer) == 0) {
        // Neither for nor against the printer: nothing changes.
        if (opened) ClosePseudoDocument(port);
        return 0;
    } else {
        ClearPortFlag(port, PF_OFFLINE);
        std::memcpy(copy, answer, sizeof copy);
        if (IdentifyPrinter(port, copy) != 0) {
            if (!HasPortFlag(port, PF_MODEL_KNOWN)) {
                SetPortFlag(port, PF_MODEL_KNOWN);
                LockPort(port);
                MarkPublishedDirty(port->variables);
                UnlockPort(port);
            }
            ApplyDeviceId(answer, port);
            result = 1;
        } else {
            ShowForeignPrinter(port);
            ApplyForeignDeviceId(answer, port);
            ClearPortFlag(port, PF_MODEL_KNOWN);
        }
    }
    if (opened) ClosePseudoDocument(port);
    return result;
}

int PollPrinterStatusHoldingSemaphore(PortContext* port) {
    SerialHold serial(port);
    if (!serial.Take()) return -1;
    return PollPrinterStatus(port);
}

/* PollRound: the status thread's work on the printer, once. */
int PollRound(PortContext* port) {
    port->pollDocOpened = 0;
    bool pollDue = true;
    if (port->stallTick != NoTick) {
        // A port that took one byte and stalled is left alone for a while.
        if (TickAge(GetTickCount(), port->stallTick) < StallRespiteMs) {
            pollDue = false;
        } else {
            port->stallTick = NoTick;
        }
    }
    if (pollDue && (port->portKind & PK_BIDI) != 0) {
        EnsurePollDocument(port);
        PollPrinterStatus(port);
    }
    if (port->pendingLength != 0 && port->pendingData != nullptr && !HasPortFlag(port, PF_JOB_ACTIVE)) {
        EnsurePollDocument(port);
        DWORD written = 0;
        SendPjl(port, nullptr, 0, &written, 0, 0);
    }
    if (port->jobListHead != nullptr) {
        EnsurePollDocument(port);
        ReadPrinterResponses(port, 1);
    }
    if (port->pollDocOpened != 0) {
        ClosePseudoDocument(port);
        port->pollDocOpened = 0;
    }
    return 1;
}

int EnsurePollDocument(PortContext* port) {
    if (port == nullptr) return 0;
    if (HasPortFlag(port, PF_DOC_OPEN) || (port->portKind & PK_BIDI) == 0) return 1;
    if (!OpenPseudoDocument(port)) return 0;
    port->pollDocOpened = 1;
    if (!IsUsbPort(port)) SetReadTimeouts(port);
    return 1;
}

/* ReadPrinterResponses: everything the printer has sent goes to the parser,
   block by block, the empty last one included. */
int ReadPrinterResponses(PortContext* port, int publish) {
    if ((port->portKind & PK_BIDI) == 0) return 1;
    bool opened = false;
    if (!HasPortFlag(port, PF_DOC_OPEN)) {
        if (!OpenPseudoDocument(port)) {
            if (IsUsbPort(port)) {
                port->portMode = 0;
                SetPortFlag(port, PF_OFFLINE);
            }
            return 0;
        }
        opened = true;
    }
    char block[ReadBlockBytes];
    bool parsing = true;
    ReadUntilEmpty(port, block, 0, [&](char* text) {
        // Once the parser has said 2, the rest is read and let go.
        if (parsing && ParseResponseBuffer(port, text, publish) == 2) parsing = false;
    });
    if (opened) ClosePseudoDocument(port);
    return 1;
}

/* DrainPrinterInput: stale input is read and dropped. A printer that is still
   sending a lot is given four seconds and read once more. */
int DrainPrinterInput(int wait, PortContext* port) {
    if (port == nullptr) return 0;
    bool opened = false;
    if (!HasPortFlag(port, PF_DOC_OPEN)) {
        if (!OpenPseudoDocument(port)) return 0;
        opened = true;
        if (!IsUsbPort(port)) SetReadTimeouts(port);
    }
    char block[ReadBlockBytes];
    const DWORD total = ReadUntilEmpty(port, block, wait != 0 ? DrainWaitMs : 0, [](char*) {});
    if (total > DrainLimitBytes) {
        Sleep(DrainPauseMs);
        ReadUntilEmpty(port, block, 0, [](char*) {});
    }
    if (opened) ClosePseudoDocument(port);
    return 1;
}

PrinterConversation::PrinterConversation(PortContext* port) : port_(port) {
    if (HasPortFlag(port, PF_DOC_OPEN)) return;
    ready_ = opened_ = OpenPseudoDocument(port);
    if (opened_ && !IsUsbPort(port)) SetReadTimeouts(port);
}

PrinterConversation::~PrinterConversation() {
    if (opened_) ClosePseudoDocument(port_);
}

int SetReadTimeouts(PortContext* port) {
    COMMTIMEOUTS timeouts{};
    timeouts.ReadIntervalTimeout = 10;
    // A parallel port on a machine of that keyboard class answers slowly.
    timeouts.ReadTotalTimeoutConstant =
        IsParallelName(port->portName) != 0 && KeyboardClassD00() != 0 ? 1001 : 100;
    if (port->lower.SetPortTimeOuts == nullptr) return 0;
    port->lower.SetPortTimeOuts(port->downstreamPort, &timeouts, 0);
    return 1;
}

void MarkPublishedDirty(StatusVariable* table) {
    if (table == nullptr) return;
    for (StatusVariable* row = table; row->Name != nullptr; ++row) {
        if (row->Value != nullptr && (row->PublishType & 0x9) != 0) row->Dirty = 1;
    }
}

}  // namespace langmon
