#include "monitor/job_end.h"

#include "monitor/lower_port.h"

namespace langmon {

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
    // Jobs are not framed yet: every job ends as a pass-through job does.
    ClearPortFlag(port, PF_DOC_OPEN);
    LowerEndDoc(port);
    ClearPortFlag(port, PF_JOB_ACTIVE);
    port->jobOpen = 0;
    return TRUE;
}

}  // namespace langmon
