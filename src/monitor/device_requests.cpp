#include "monitor/device_requests.h"

#include "monitor/lower_port.h"

namespace langmon {

BOOL ReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead) {
    auto* port = static_cast<PortContext*>(hPort);
    if (port == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // Reading needs a document below; the pseudo document stands for none.
    WaitForSingleObject(port->serialSemaphore, SerialWaitMs);
    if (!OpenPseudoDocument(port)) {
        ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
        SetLastError(ERROR_BUSY);
        return FALSE;
    }
    SetPortFlag(port, PF_DOC_OPEN);
    const BOOL result = LowerRead(port, pBuffer, cbBuffer, pcbRead);
    if (LowerEndDoc(port)) {
        ClearPortFlag(port, PF_DOC_OPEN);
    }
    ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
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
    if (ControlID == 0) {
        // Requests by value name come with the client requests.
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    WaitForSingleObject(port->serialSemaphore, SerialWaitMs);
    if (port->lower.GetPrinterDataFromPort == nullptr) {
        ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
        return FALSE;
    }
    if (!HasPortFlag(port, PF_DOC_OPEN)) {
        if (!OpenPseudoDocument(port)) {
            ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
            return FALSE;
        }
        SetPortFlag(port, PF_DOC_OPEN);
    }
    const BOOL result = ForwardPortRequest(port, ControlID, pValueName, lpInBuffer, cbInBuffer,
                                           lpOutBuffer, cbOutBuffer, lpcbReturned);
    ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
    return result;
}

// The job reset lands with the device data requests.
void ResetRunningJob(PortContext*) {}

}  // namespace langmon
