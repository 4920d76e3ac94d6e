// Variables that follow from others: the Err family from PrinterStatus, what
// an unreadable printer shows, and the job variables through a job's life.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;

// The JobStatus bits as clients see them.
enum JobStatusBits : uint32_t {
    JobRunning = 0x1,
    JobPaused = 0x2,
    JobCancelling = 0x4,
    JobOtherFlag = 0x100,
};

// What PrinterStatus's StatusWord1 says of a printer that isn't read.
constexpr uint32_t PrinterLostWord = 0x100;
constexpr uint32_t PrinterForeignWord = 0x200;
// StatusWord2's mark of a job on the port; it outlives every overwrite.
constexpr uint32_t JobOnPortBit = 0x8;

// A `publish` of 1: what changed is marked dirty and published before return.

// First value of PrinterStatus; with `publish` the spooler is told too.
void InitPrinterStatus(PortContext* port, int publish);
// 0 if PrinterStatus has no row, else 1.
int DeriveErrorVariables(PortContext* port, int publish);
int DerivePrinterVariables(PortContext* port, int publish);
// JobStatus becomes 0, created if need be; nothing is marked dirty.
void ResetJobStatus(PortContext* port);
void UpdatePrinterExtStatus(PortContext* port);
// The printer answers, isn't lost, and is the model whose status is read.
bool StatusReadable(PortContext* port);

// The job variables as a job goes by.
// Sets (on 1) or clears the job bit of PrinterStatus's StatusWord2.
void SetPrinterJobBit(PortContext* port, int on);
// Sets or clears bits of JobStatus, as the job's client holds it; 1 if it
// published a change.
int UpdateJobStatus(PortContext* port, uint32_t mask, int set);
// SendingJobInfo opens (starting 1) or closes for the running job.
int PublishSendingJobInfo(PortContext* port, int starting);
// JobPaused follows the spooler's view of the running job.
void CheckSpoolerJob(PortContext* port);
// Winds up the tracking of the port's jobs; with `cancel` the running job's
// data is swallowed from now on. 1 only if `cancel` was honoured.
int CancelJobTracking(PortContext* port, int cancel);
// Frees every node of jobInfoChain and its snapshot, not the snapshots'
// values: the first may be PrintingJobInfo2's own.
void ClearJobInfoChain(PortContext* port);

}  // namespace langmon
