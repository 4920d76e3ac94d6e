// Which way a port moves data, settled at every job start: it chooses the
// write strategy of the job's data and the shape of its trailer.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

// Where an administrator can fix the mode of every port by hand.
constexpr const char* PortModeKey = "SOFTWARE\\Quor\\Status Monitor\\Printers";
constexpr const char* PortModeValue = "MyPortMode";

// Settles portMode: the fixed value if one is set, else the mode an earlier
// job settled, else PM_COMPAT on machines of the 0xD00 keyboard class, else
// what the spooler's description of the port says.
void CheckPortMode(PortContext* port);

// 1 when a port description means an ECP port: "ECP" anywhere in it, or one
// of the two Japanese descriptions of an ECP printer port.
int IsEcpDescription(const char* description);

}  // namespace langmon
