#include "monitor/job_data.h"

#include "acquisition/poll.h"
#include "framing/job_frame.h"
#include "framing/job_record.h"
#include "monitor/lower_port.h"
#include "monitor/monitor_entry.h"
#include "monitor/serial_hold.h"
#include "monitor/write_strategy.h"
#include "platform/clock.h"
#include "platform/last_error.h"
#include "platform/sync.h"
#include "portkind/port_kind.h"

#include <cstring>
#include <string_view>

namespace langmon {

namespace {

constexpr std::string_view Uel = "\x1b%-12345X";
constexpr std::string_view PostScriptStart = "%!PS-Adobe";
// A first block shorter than this is not looked into.
constexpr DWORD SniffMinimum = 20;

// A USB printer that doesn't answer holds the spooler back this long per call.
constexpr DWORD UsbSilentBeforePoll = 4000;
constexpr DWORD UsbSilentAfterPoll = 10000;
constexpr DWORD UsbDocumentRetry = 4000;
constexpr DWORD PrinterBackPause = 2000;
constexpr DWORD ProbePause = 100;
// A write that took one byte means a printer that takes its time: the gate
// doesn't poll it again for this long.
constexpr DWORD StallRespite = 20000;
constexpr int GateTries = 3;
constexpr DWORD NoTick = 0xFFFFFFFFu;

/* The lines of a job's first block that say whose PJL job it is. */
struct SniffKeyword {
    std::string_view text;
    void (*action)(PortContext* port);
};

constexpr SniffKeyword SniffKeywords[] = {
    {"@PJL JOB",
     [](PortContext* port) {
         port->sniffResult = 2;
         std::memcpy(port->trailerIdentifier, port->jobIdentifier, sizeof port->jobIdentifier);
     }},
    {"@PJL ENTER", [](PortContext* port) { port->sniffStop = 1; }},
};

bool StartsWith(const uint8_t* data, DWORD length, std::string_view text) {
    return length >= text.size() && std::memcmp(data, text.data(), text.size()) == 0;
}

// What the header gate decided for this call.
enum class Gate {
    Pass,         // on to the job's data
    TakeNothing,  // the spooler calls again
    PrinterBack,  // as TakeNothing, after a pause that lets the printer settle
};

/* SendHeader: the header goes out ahead of the job's first data; a header that
   went out in part goes first next time, from the queue. */
Gate SendHeader(PortContext* port) {
    char header[JobFrameBufferSize];
    DWORD length = 0;
    if (!HasPortFlag(port, PF_HEADER_SENT)) {
        JobFrameRequest request{};
        request.wantStatus = 1;
        request.wantJob = 1;
        request.wantName = 1;
        std::memcpy(request.name, port->jobIdentifier, sizeof port->jobIdentifier);
        request.quantity = NoCount;
        request.copies = NoCount;
        length = BuildJobHeader(header, &request, port);
    }
    DWORD sent = 0;
    const int ok = SendPjl(port, length != 0 ? header : nullptr, length, &sent, 0, 0);
    const DWORD stall = sent == 1 && sent != length ? GetTickCount() : NoTick;
    if (ok == 0) {
        if (length != 0) {
            port->stallTick = stall;
        }
        return Gate::TakeNothing;
    }
    if ((port->portMode & PM_ECP) != 0 && HasPortFlag(port, PF_JOB_ACTIVE)) {
        port->ecpBusy = 1;
    }
    ClearPortFlag(port, PF_JOB_GONE);
    SetPortFlag(port, PF_HEADER_SENT);
    if (length != 0) {
        port->stallTick = stall;
        if (sent != length) {
            return Gate::TakeNothing;
        }
    }
    ClearPortFlag(port, PF_HEADER_DUE);
    return Gate::Pass;
}

/* PassHeaderGate: a job that wants a header waits here until the printer
   answers, a few polls at a time; a printer that answers but isn't one of the
   known models gets no header. `probed` tells whether a probe byte went out. */
Gate PassHeaderGate(PortContext* port, bool* probed) {
    for (int tries = GateTries;;) {
        const bool wasOffline = HasPortFlag(port, PF_OFFLINE);
        if (!HasPortFlag(port, PF_HEADER_SENT) || port->stallTick == NoTick ||
            TickAge(GetTickCount(), port->stallTick) > StallRespite) {
            port->stallTick = NoTick;
            PollPrinterStatus(port);
        }
        if (wasOffline && !HasPortFlag(port, PF_OFFLINE)) {
            return Gate::PrinterBack;
        }
        if (HasPortFlag(port, PF_MODEL_KNOWN)) {
            return SendHeader(port);
        }
        const bool offline = HasPortFlag(port, PF_OFFLINE);
        if (!offline) {
            ClearPortFlag(port, PF_HEADER_DUE);
        }
        --tries;
        if (offline && tries != 0) {
            // A NUL byte is lost on the printer and tells whether the port
            // itself still takes data.
            static const uint8_t probe = 0;
            DWORD taken = 0;
            if (!LowerWrite(port, &probe, 1, &taken) || taken == 0) {
                return Gate::TakeNothing;
            }
            *probed = true;
            Sleep(ProbePause);
        }
        if (!offline || tries == 0) {
            return Gate::Pass;
        }
    }
}

/* ReturnToSpooler: the call ends, and the spooler passes again what
   *pcbWritten says was not taken, after a pause spent without the
   semaphore so that the status thread can poll meanwhile. */
BOOL ReturnToSpooler(SerialHold* serial, DWORD pause) {
    serial->Release();
    if (pause != 0) {
        Sleep(pause);
    }
    SetLastError(0);
    return TRUE;
}

/* WriteJobData: the block goes down by the port's strategy. */
void WriteJobData(PortContext* port, const uint8_t* data, DWORD length, DWORD* written) {
    if (IsUsbPort(port)) {
        WriteDirect(port, data, length, written);
    } else if ((port->portMode & PM_ECP) != 0) {
        WriteCapped(port, data, length, written);
    } else {
        WriteBehind(port, data, length, written);
    }
}

}  // namespace

void ResetSniffState(PortContext* port) {
    port->sniffResult = 0;
    port->trailerIdentifier[0] = '\0';
    port->sniffStop = 0;
    port->jobHasUel = 0;
    port->uelDropped = 0;
    port->jobIsPostScript = 0;
}

void SniffJobStart(PortContext* port, const uint8_t* data, DWORD length) {
    if (port->sniffResult == 1 || port->sniffResult == 2) {
        return;
    }
    if (length < SniffMinimum) {
        port->sniffResult = -1;
        return;
    }
    if (StartsWith(data, length, Uel)) {
        port->jobHasUel = 1;
        port->sniffStop = 0;
        DWORD at = static_cast<DWORD>(Uel.size());
        while (at < length && port->sniffStop == 0) {
            for (const SniffKeyword& keyword : SniffKeywords) {
                if (StartsWith(data + at, length - at, keyword.text)) {
                    keyword.action(port);
                    break;
                }
            }
            const void* lineEnd = std::memchr(data + at, '\n', length - at);
            at = lineEnd != nullptr ? static_cast<DWORD>(static_cast<const uint8_t*>(lineEnd) - data) + 1 : length;
        }
        if (port->sniffResult == 0) {
            port->sniffResult = -1;
        }
        return;
    }
    if (StartsWith(data, length, PostScriptStart)) {
        port->sniffResult = 1;
        port->jobIsPostScript = 1;
        std::memcpy(port->trailerIdentifier, port->jobIdentifier, sizeof port->jobIdentifier);
        return;
    }
    port->sniffResult = -1;
}

BOOL WritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten) {
    auto* port = static_cast<PortContext*>(hPort);
    if (port == nullptr || pcbWritten == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if ((port->portKind & PK_BIDI) == 0) {
        return LowerWrite(port, pBuffer, cbBuf, pcbWritten);
    }
    *pcbWritten = 0;
    SerialHold serial(port);
    if (!serial.Take()) {
        SetLastError(0);
        return TRUE;
    }
    port->dataSeen = 1;

    if (IsUsbPort(port) && HasPortFlag(port, PF_OFFLINE) && !HasPortFlag(port, PF_DISCARD)) {
        // The job stands still until the printer answers.
        Sleep(UsbSilentBeforePoll);
        PollPrinterStatus(port);
        return ReturnToSpooler(&serial, UsbSilentAfterPoll);
    }
    if (IsUsbPort(port) && !HasPortFlag(port, PF_DOC_OPEN)) {
        if (!LowerStartDoc(port, port->printerName, port->jobId, port->docInfoLevel, port->docInfo)) {
            return ReturnToSpooler(&serial, UsbDocumentRetry);
        }
        SetPortFlag(port, PF_DOC_OPEN);
    }
    if (port->sniffResult == 0) {
        SniffJobStart(port, pBuffer, cbBuf);
        LockPort(port);
        SetJobIdentifier(port->jobIdentifier, JobStartName, port);
        UnlockPort(port);
    }

    bool probed = false;
    bool discarded = false;
    if (HasPortFlag(port, PF_HEADER_DUE)) {
        switch (PassHeaderGate(port, &probed)) {
        case Gate::TakeNothing:
            return ReturnToSpooler(&serial, 0);
        case Gate::PrinterBack:
            return ReturnToSpooler(&serial, PrinterBackPause);
        case Gate::Pass:
            break;
        }
        if (port->jobHasUel != 0 && port->uelDropped == 0) {
            // The header's UEL stands for the job's own: the spooler passes
            // the block again from its tenth byte. Only once, at the job's
            // first bytes; later blocks are the job's data.
            port->uelDropped = 1;
            *pcbWritten = static_cast<DWORD>(Uel.size());
            return ReturnToSpooler(&serial, 0);
        }
    }
    if (HasPortFlag(port, PF_DISCARD)) {
        // The block is swallowed, and that is all the spooler hears of it:
        // the thread's last error at this moment was left by some earlier
        // call, and a failure would have the spooler fail a job that the
        // monitor has already wound up.
        *pcbWritten = cbBuf;
        discarded = true;
    } else {
        WriteJobData(port, pBuffer, cbBuf, pcbWritten);
    }
    if ((probed || discarded) && *pcbWritten == cbBuf) {
        ClearPortFlag(port, PF_HEADER_DUE);
    }
    port->jobOpen = 1;
    return ReturnToSpooler(&serial, 0);
}

}  // namespace langmon
