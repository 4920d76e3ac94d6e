#include "variables/spooler_status.h"

#include "monitor/port_context.h"
#include "variables/status_variable.h"

namespace langmon {

// Until printers bind to the port there is no one whose status word the
// spooler shows; the answer says only whether there is a status to give.
int NotifySpoolerStatus(PortContext* port) {
    if (port->variables == nullptr) return 0;
    StatusVariable* row = FindVariable("PrinterStatus", port->variables, port);
    return row != nullptr && row->Value != nullptr ? 1 : 0;
}

}  // namespace langmon
