#include "monitor/lower_port.h"

#include "monitor/device_requests.h"
#include "monitor/monitor_entry.h"
#include "platform/clock.h"
#include "platform/last_error.h"
#include "platform/memory.h"
#include "portkind/port_kind.h"
#include "variables/model_mask.h"

#include <cstring>

namespace langmon {

namespace {

// The port monitor may take the name as writable text, so it lives in an array
// of its own rather than in a literal.
char pseudoDocName[] = "TAKRIN Doc";

// The lower monitor's code for reading the device ID of a USB printer.
constexpr DWORD UsbDeviceIdCode = 0x16000C;

// Serial lines want a pause around each document.
constexpr DWORD SerialDocumentPause = 100;
// How long the queued text is offered to the port before it is let go.
constexpr DWORD FlushLimitMs = 60000;
constexpr DWORD FlushPauseMs = 100;

/* AppendPending: puts text at the end of the queue. A failed allocation loses
   the text and leaves the queue as it was. */
void AppendPending(PortContext* port, const uint8_t* text, DWORD length) {
    if (text == nullptr || length == 0) {
        return;
    }
    auto* block = static_cast<uint8_t*>(GlobalAlloc(GPTR, SIZE_T{port->pendingLength} + length));
    if (block == nullptr) {
        return;
    }
    if (port->pendingData != nullptr && port->pendingLength != 0) {
        std::memcpy(block, port->pendingData, port->pendingLength);
    }
    std::memcpy(block + port->pendingLength, text, length);
    GlobalFree(port->pendingData);
    port->pendingData = block;
    port->pendingLength += length;
}

/* RemovePendingFront: the port took the first `taken` bytes of the queue. */
void RemovePendingFront(PortContext* port, DWORD taken) {
    const DWORD rest = port->pendingLength - taken;
    auto* block = static_cast<uint8_t*>(GlobalAlloc(GPTR, rest));
    if (block == nullptr) {
        // Without a new block the rest moves to the front of the old one: the
        // bytes that went must not go a second time.
        std::memmove(port->pendingData, port->pendingData + taken, rest);
        port->pendingLength = rest;
        return;
    }
    std::memcpy(block, port->pendingData + taken, rest);
    GlobalFree(port->pendingData);
    port->pendingData = block;
    port->pendingLength = rest;
}

void FreePending(PortContext* port) {
    GlobalFree(port->pendingData);
    port->pendingData = nullptr;
    port->pendingLength = 0;
}

// The three texts that DOC_INFO_1 and DOC_INFO_2 share, in the same place.
char** DocTexts(void* docInfo) {
    return static_cast<char**>(docInfo);
}

}  // namespace

const DOC_INFO_2 PseudoDocInfo = {pseudoDocName, nullptr, nullptr, 2, 0};

const COMMTIMEOUTS UsbPortTimeouts = {
    0xFFFFFFFFu,  // ReadIntervalTimeout
    0xFFFFFFFFu,  // ReadTotalTimeoutMultiplier
    10,           // ReadTotalTimeoutConstant: a read returns within 10 ms
    0,            // WriteTotalTimeoutMultiplier
    10000,        // WriteTotalTimeoutConstant: a write gives up after 10 s
};

/* LowerStartDoc: opens a document below. A USB port gets its time-outs anew
   each time, and the caller still sees the last error of the start. */
BOOL LowerStartDoc(PortContext* port, LPSTR printerName, DWORD jobId, DWORD level, void* docInfo) {
    if ((port->portKind & PK_SERIAL) != 0) {
        Sleep(SerialDocumentPause);
    }
    const BOOL result = port->lower.StartDocPort(port->downstreamPort, printerName, jobId, level,
                                                 static_cast<LPBYTE>(docInfo));
    if (IsUsbPort(port)) {
        const LastErrorKeeper keeper;
        if (port->lower.SetPortTimeOuts != nullptr) {
            COMMTIMEOUTS timeouts = UsbPortTimeouts;
            port->lower.SetPortTimeOuts(port->downstreamPort, &timeouts, 0);
        }
        keeper.Restore();
    }
    return result;
}

/* OpenPseudoDocument: a document that stands for no job, so that the monitor
   can talk to the printer between jobs. */
BOOL OpenPseudoDocument(PortContext* port) {
    DOC_INFO_2 docInfo = PseudoDocInfo;
    if (LowerStartDoc(port, port->printerName, 0, 2, &docInfo) == 0) return FALSE;
    SetPortFlag(port, PF_DOC_OPEN);
    return TRUE;
}

bool OpenPseudoDocumentIfClosed(PortContext* port, bool* opened) {
    *opened = false;
    if (HasPortFlag(port, PF_DOC_OPEN)) return true;
    if (OpenPseudoDocument(port) == 0) return false;
    *opened = true;
    return true;
}

void ClosePseudoDocument(PortContext* port) {
    LowerEndDoc(port);
    ClearPortFlag(port, PF_DOC_OPEN);
}

/* LowerWrite: the lower WritePort, noting what a failure means for the port. */
BOOL LowerWrite(PortContext* port, const void* data, DWORD length, DWORD* written) {
    port->lastWriteError = 0;
    port->lastWriteFailed = 0;
    DWORD taken = 0;
    const BOOL result = port->lower.WritePort(
        port->downstreamPort, static_cast<LPBYTE>(const_cast<void*>(data)), length, &taken);
    const DWORD error = ::GetLastError();
    if (written != nullptr) {
        *written = taken;
    }
    if (result == 0 && IsUsbPort(port)) {
        port->lastWriteError = error;
        port->lastWriteFailed = 1;
    }
    // Once job data moves on an ECP port, the device ID can't be read until
    // the job is over.
    if ((port->portMode & PM_ECP) != 0 && HasPortFlag(port, PF_JOB_ACTIVE) &&
        (taken != 0 || error == ERROR_TIMEOUT)) {
        port->ecpBusy = 1;
    }
    ::SetLastError(error);
    return result;
}

BOOL LowerRead(PortContext* port, void* buffer, DWORD size, DWORD* read) {
    return port->lower.ReadPort(port->downstreamPort, static_cast<LPBYTE>(buffer), size, read);
}

BOOL LowerEndDoc(PortContext* port) {
    const BOOL result = port->lower.EndDocPort(port->downstreamPort);
    if ((port->portKind & PK_SERIAL) != 0) {
        Sleep(SerialDocumentPause);
    }
    return result;
}

BOOL LowerClose(PortContext* port) {
    LockPort(port);
    const BOOL result = port->lower.ClosePort(port->downstreamPort);
    UnlockPort(port);
    return result;
}

/* ForwardPortRequest: a request for the lower monitor's GetPrinterDataFromPort,
   with the few that this monitor answers or changes itself. */
BOOL ForwardPortRequest(PortContext* port, DWORD controlId, LPSTR valueName, LPSTR in,
                        DWORD inSize, LPSTR out, DWORD outSize, LPDWORD returned) {
    // An ECP port busy with a job can't give the device ID: the caller gets its
    // own (zeroed) buffer back as a one-byte answer.
    if ((port->portMode & PM_ECP) != 0 && port->ecpBusy != 0 && controlId == DeviceIdControl) {
        if (returned != nullptr) {
            *returned = 1;
        }
        return 1;
    }
    LockPort(port);
    if (port->lower.GetPrinterDataFromPort == nullptr) {
        UnlockPort(port);
        return 0;
    }
    // A printer of the family has its job reset by the monitor; the lower
    // monitor never sees the request.
    if (controlId == JobResetControl &&
        MasksIntersect(port->modelMask.low, port->modelMask.high, ModelMaskFamily.low,
                       ModelMaskFamily.high) != 0) {
        ResetRunningJob(port);
        UnlockPort(port);
        return 0;
    }
    DWORD code = controlId;
    if (controlId == DeviceIdControl && IsUsbPort(port)) {
        code = UsbDeviceIdCode;
    }
    const BOOL result = port->lower.GetPrinterDataFromPort(port->downstreamPort, code, valueName,
                                                           in, inSize, out, outSize, returned);
    UnlockPort(port);
    return result;
}

/* IsChannelDoc: a DOC_INFO_2 without a document name stands for a channel that
   needs nothing below. Level 1 never does. */
int IsChannelDoc(DWORD level, const void* docInfo) {
    if (level == 1 || docInfo == nullptr) {
        return 0;
    }
    return static_cast<const DOC_INFO_2*>(docInfo)->pDocName == nullptr ? 1 : 0;
}

/* CopyDocInfo: a deep copy of the spooler's DOC_INFO, or null. */
void* CopyDocInfo(DWORD level, const void* docInfo) {
    if (level > 2 || docInfo == nullptr) {
        return nullptr;
    }
    const SIZE_T size = level == 1 ? sizeof(DOC_INFO_1) : sizeof(DOC_INFO_2);
    void* copy = GlobalAlloc(GPTR, size);
    if (copy == nullptr) {
        return nullptr;
    }
    const auto* source = static_cast<const DOC_INFO_1*>(docInfo);
    const char* texts[3] = {source->pDocName, source->pOutputFile, source->pDatatype};
    char** target = DocTexts(copy);
    for (int i = 0; i < 3; ++i) {
        if (texts[i] == nullptr) {
            continue;
        }
        target[i] = DuplicateString(texts[i]);
        if (target[i] == nullptr) {
            for (int j = 0; j < i; ++j) {
                FreeString(target[j]);
            }
            GlobalFree(copy);
            return nullptr;
        }
    }
    if (level == 2) {
        const auto* source2 = static_cast<const DOC_INFO_2*>(docInfo);
        auto* copy2 = static_cast<DOC_INFO_2*>(copy);
        copy2->dwMode = source2->dwMode;
        copy2->JobId = source2->JobId;
    }
    return copy;
}

void FreeDocInfo(DWORD level, void* copy) {
    if (level > 2 || copy == nullptr) {
        return;
    }
    char** texts = DocTexts(copy);
    for (int i = 0; i < 3; ++i) {
        FreeString(texts[i]);
    }
    GlobalFree(copy);
}

/* SendPjl: sends PJL text, after whatever the port has not taken yet. Text the
   port refuses may wait in the queue for the next call. */
int SendPjl(PortContext* port, const void* data, DWORD length, DWORD* written, int queueOnFailure,
            int knownModelOnly) {
    int result = 1;
    DWORD error = 0;
    bool openedHere = false;
    const auto* text = static_cast<const uint8_t*>(data);
    if (written != nullptr) {
        *written = 0;
    }

    if (knownModelOnly != 0 &&
        ((port->portKind & PK_BIDI) == 0 || !HasPortFlag(port, PF_MODEL_KNOWN))) {
        return 0;
    }

    if (!OpenPseudoDocumentIfClosed(port, &openedHere)) {
        return 0;
    }

    bool sendNew = true;
    if (port->pendingData != nullptr && port->pendingLength != 0) {
        DWORD taken = 0;
        const BOOL ok = LowerWrite(port, port->pendingData, port->pendingLength, &taken);
        if (ok != 0 && taken >= port->pendingLength) {
            FreePending(port);
        } else if (ok != 0 && taken != 0) {
            RemovePendingFront(port, taken);
            result = 0;
            error = 0;
        } else {
            error = ::GetLastError();
            result = 0;
        }
        if (taken == 1) {
            port->stallTick = GetTickCount();
        }
        if (result == 0) {
            // The queue goes first: new text may only wait behind it.
            if (queueOnFailure != 0) {
                AppendPending(port, text, length);
            }
            sendNew = false;
        }
    }

    if (sendNew && text != nullptr && length != 0) {
        DWORD taken = 0;
        const BOOL ok = LowerWrite(port, text, length, &taken);
        if (ok != 0 && taken >= length) {
            result = 1;
        } else if (ok != 0 && taken != 0) {
            // A port that took part of the text will take the rest later.
            AppendPending(port, text + taken, length - taken);
            result = 1;
        } else {
            error = ::GetLastError();
            if (queueOnFailure != 0) {
                AppendPending(port, text, length);
            }
            result = 0;
        }
        if (written != nullptr) {
            *written = taken;
        }
        if (taken == 1) {
            port->stallTick = GetTickCount();
        }
    }

    if (openedHere) {
        LowerEndDoc(port);
        ClearPortFlag(port, PF_DOC_OPEN);
    }
    ::SetLastError(error);
    return result;
}

void FlushPending(PortContext* port) {
    const DWORD start = GetTickCount();
    while (port->pendingLength != 0) {
        if (TickAge(GetTickCount(), start) > FlushLimitMs) {
            DropPending(port);
            return;
        }
        SendPjl(port, nullptr, 0, nullptr, 0, 0);
        if (port->pendingLength != 0) Sleep(FlushPauseMs);
    }
}

/* DropPending: forgets the text the port has not taken. */
void DropPending(PortContext* port) {
    if (port->pendingData != nullptr && port->pendingLength != 0) {
        FreePending(port);
    }
}

}  // namespace langmon
