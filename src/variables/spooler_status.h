// The status word the spooler shows for each printer on the port, from
// PrinterStatus.
#pragma once

namespace langmon {

struct PortContext;

// Tells the spooler the port's PrinterStatus, for each bound printer. 1 when
// every printer was told (or there is none), 0 without a PrinterStatus value.
int NotifySpoolerStatus(PortContext* port);

}  // namespace langmon
