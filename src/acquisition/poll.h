// The poll of the printer: its device ID, what it says, and what the printer
// sent back unasked. A job's start and its header gate poll through here.
#pragma once

namespace langmon {

struct PortContext;

// One poll of the printer on the port; settles PF_OFFLINE and PF_MODEL_KNOWN.
void PollPrinterStatus(PortContext* port);
// Reads and forgets what the printer sent that nobody asked for.
void DrainPrinterInput(int parse, PortContext* port);
// The read time-outs of a port other than USB.
void SetReadTimeouts(PortContext* port);

}  // namespace langmon
