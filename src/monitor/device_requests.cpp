#include "monitor/device_requests.h"

#include "acquisition/poll.h"
#include "framing/job_frame.h"
#include "framing/job_record.h"
#include "monitor/lower_port.h"
#include "monitor/serial_hold.h"
#include "monitor/value_requests.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "portkind/port_kind.h"
#include "variables/derived.h"

#include <cstring>

namespace langmon {

namespace {

// A USB port whose write failed is tried again with the held bytes this far
// apart, and after this long the job's client hears that it is stuck.
constexpr DWORD StuckRetryMs = 4000;
constexpr DWORD StuckReportMs = 60000;
constexpr DWORD HeldTailBytes = 80;

// An ECP parallel port is flushed behind a reset with this many NUL bytes.
constexpr DWORD EcpFlushBytes = 64;
// A reset of a running job gives the printer this long to take it in.
constexpr DWORD ResetSettleMs = 1000;

/* RetryStuckUsbWrite: a USB port whose last write failed holds the job's last
   80 bytes; they are written again, a few seconds apart, until the port takes
   them, the write is cancelled or the printer goes. After a minute the job's
   client no longer sees it cancelling: it is stuck. The semaphore is given up
   during each pause, so the status thread can see the printer go. */
void RetryStuckUsbWrite(PortContext* port, SerialHold* hold) {
    const DWORD start = GetTickCount();
    bool reported = false;
    while (port->lastWriteFailed != 0) {
        if (port->lastWriteError == ERROR_CANCELLED || HasPortFlag(port, PF_OFFLINE)) return;
        if (!reported && TickAge(GetTickCount(), start) > StuckReportMs) {
            UpdateJobStatus(port, JobCancelling, 0);
            reported = true;
        }
        hold->Release();
        Sleep(StuckRetryMs);
        hold->Take();
        if (HasPortFlag(port, PF_OFFLINE)) return;
        DWORD written = 0;
        LowerWrite(port, port->dataTail, HeldTailBytes, &written);
    }
}

/* FlushEcpAfterReset: NUL bytes push what the ECP port still holds of the job
   out of its way; a short write is tried once more. */
void FlushEcpAfterReset(PortContext* port) {
    if ((port->portMode & PM_ECP) == 0 || IsParallelName(port->portName) != 1) return;
    static const char zeros[EcpFlushBytes] = {};
    DWORD written = 0;
    LowerWrite(port, zeros, EcpFlushBytes, &written);
    if (written != EcpFlushBytes) LowerWrite(port, zeros, EcpFlushBytes, &written);
}

/* ControlRequest: a request for the port monitor below, or the job reset. */
BOOL ControlRequest(PortContext* port, DWORD controlId, LPSTR valueName, LPSTR in, DWORD inSize,
                    LPSTR out, DWORD outSize, LPDWORD returned) {
    // The request goes on whether or not the semaphore comes.
    SerialHold hold(port);
    hold.Take();
    if (port->lower.GetPrinterDataFromPort == nullptr) return FALSE;
    const bool reset = controlId == JobResetControl;
    if (reset) {
        if (HasPortFlag(port, PF_JOB_ACTIVE) && !HasPortFlag(port, PF_JOB_DELETED)) {
            UpdateJobStatus(port, JobCancelling, 1);
        }
        SetPortFlag(port, PF_JOB_RESET);
    }
    // The document stays open behind the request: the job's end closes it.
    bool opened = false;
    if (!OpenPseudoDocumentIfClosed(port, &opened)) return FALSE;
    if (reset && IsUsbPort(port) && port->lastWriteFailed != 0) RetryStuckUsbWrite(port, &hold);
    const BOOL result = ForwardPortRequest(port, controlId, valueName, in, inSize, out, outSize, returned);
    if (reset) {
        FlushEcpAfterReset(port);
        if (HasPortFlag(port, PF_JOB_ACTIVE)) Sleep(ResetSettleMs);
    }
    return result;
}

}  // namespace

BOOL ReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead) {
    auto* port = static_cast<PortContext*>(hPort);
    if (port == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // Reading needs a document below; the pseudo document stands for none.
    SerialHold hold(port);
    hold.Take();
    if (!OpenPseudoDocument(port)) {
        SetLastError(ERROR_BUSY);
        return FALSE;
    }
    const BOOL result = LowerRead(port, pBuffer, cbBuffer, pcbRead);
    if (LowerEndDoc(port)) {
        ClearPortFlag(port, PF_DOC_OPEN);
    }
    return result;
}

BOOL GetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPSTR pValueName, LPSTR lpInBuffer,
                            DWORD cbInBuffer, LPSTR lpOutBuffer, DWORD cbOutBuffer,
                            LPDWORD lpcbReturned) {
    auto* port = static_cast<PortContext*>(hPort);
    if (port == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (ControlID == 0) return AnswerValueRequest(port, pValueName, lpOutBuffer, cbOutBuffer, lpcbReturned);
    return ControlRequest(port, ControlID, pValueName, lpInBuffer, cbInBuffer, lpOutBuffer, cbOutBuffer,
                          lpcbReturned);
}

/* ResetRunningJob: a PostScript job that the spooler resets is closed at the
   printer with a trailer of its own, under a name the printer's END report
   leads back to the job by; then the job's tracking ends and the rest of its
   data is swallowed. Called with portLock held. */
void ResetRunningJob(PortContext* port) {
    if (port->jobIsPostScript != 0) {
        auto* text = static_cast<char*>(GlobalAlloc(GPTR, JobFrameBufferSize));
        if (text != nullptr) {
            JobFrameRequest request{};
            request.wantJob = 1;
            request.wantUser = 1;
            request.quantity = NoCount;
            request.copies = NoCount;
            if ((port->portKind & PK_BIDI) != 0) {
                request.wantName = 1;
                std::strncpy(request.name, port->jobIdentifier, sizeof request.name - 1);
                SetJobIdentifier(port->jobIdentifier, JobEndName, port);
            }
            port->trailerEof = 1;
            const uint32_t length = BuildJobTrailer(text, &request, port);
            DWORD written = 0;
            if (length != 0) SendPjl(port, text, length, &written, 1, 0);
            port->trailerEof = 0;
            GlobalFree(text);
        }
    }
    CancelJobTracking(port, 1);
}

}  // namespace langmon
