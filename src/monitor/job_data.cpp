#include "monitor/job_data.h"

#include "monitor/lower_port.h"

namespace langmon {

void ResetSniffState(PortContext* port) {
    port->sniffResult = 0;
    port->trailerIdentifier[0] = '\0';
    port->sniffStop = 0;
    port->jobHasUel = 0;
    port->jobIsPostScript = 0;
}

BOOL WritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten) {
    auto* port = static_cast<PortContext*>(hPort);
    if (port == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // Jobs are not framed yet: every block goes straight down.
    port->dataSeen = 1;
    return LowerWrite(port, pBuffer, cbBuf, pcbWritten);
}

}  // namespace langmon
