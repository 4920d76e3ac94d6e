#include "acquisition/poll.h"

namespace langmon {

// The poll lands with status acquisition. Until then a port's flags stay as
// they stand: a printer is neither found nor lost, and no model is known.

void PollPrinterStatus(PortContext*) {}

void DrainPrinterInput(int, PortContext*) {}

void SetReadTimeouts(PortContext*) {}

}  // namespace langmon
