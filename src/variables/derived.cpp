#include "variables/derived.h"

#include "monitor/port_context.h"
#include "variables/status_variable.h"

namespace langmon {

// The derivations land with the status record; until then a port's derived
// variables keep the values they were given.

void InitPrinterStatus(PortContext*, int) {}

int DeriveErrorVariables(PortContext* port, int) {
    return FindVariable("PrinterStatus", port->variables, port) != nullptr ? 1 : 0;
}

int DerivePrinterVariables(PortContext* port, int) {
    return FindVariable("PrinterStatus", port->variables, port) != nullptr ? 1 : 0;
}

void ResetJobStatus(PortContext* port) {
    // Creating the row's block gives it the value 0: blocks are zero-filled.
    StatusVariable* row = GetVariable("JobStatus", port->variables, port, 1);
    if (row != nullptr) {
        *static_cast<uint32_t*>(row->Value) = 0;
    }
}

void UpdatePrinterExtStatus(PortContext*) {}

// The job variables follow with the clients that read them: until a printer
// can have a client there is no one to tell.

void SetPrinterJobBit(PortContext*, int) {}

int UpdateJobStatus(PortContext*, uint32_t, int) { return 0; }

int PublishSendingJobInfo(PortContext*, int) { return 0; }

int CancelJobTracking(PortContext*, int) { return 0; }

}  // namespace langmon
