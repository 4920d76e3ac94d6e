// Variables that follow from others: the Err family from PrinterStatus, the
// printer's overall values, the job variables.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;

// First value of PrinterStatus; with `publish` the spooler is told too.
void InitPrinterStatus(PortContext* port, int publish);
// 0 if PrinterStatus has no row, else 1.
int DeriveErrorVariables(PortContext* port, int publish);
int DerivePrinterVariables(PortContext* port, int publish);
// JobStatus becomes 0, created if need be; nothing is marked dirty.
void ResetJobStatus(PortContext* port);
void UpdatePrinterExtStatus(PortContext* port);

// The job variables as a job goes by.
// Sets (on 1) or clears the job bit 0x8 of PrinterStatus's StatusWord2.
void SetPrinterJobBit(PortContext* port, int on);
// Sets or clears bits of JobStatus; 1 if it published a change.
int UpdateJobStatus(PortContext* port, uint32_t mask, int set);
// SendingJobInfo opens (starting 1) or closes for the running job.
int PublishSendingJobInfo(PortContext* port, int starting);
// Winds up the tracking of the port's jobs; with `cancel` the running job's
// data is swallowed from now on. 1 only if `cancel` was honoured.
int CancelJobTracking(PortContext* port, int cancel);

}  // namespace langmon
