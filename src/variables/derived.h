// Variables that follow from others: the Err family from PrinterStatus, the
// printer's overall values, the job variables.
#pragma once

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

}  // namespace langmon
