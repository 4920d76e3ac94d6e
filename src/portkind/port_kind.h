// Which kind of port a port name stands for, and so whether answers can come
// back from the printer at all.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

enum PortKindBits : uint32_t {
    PK_MONITORED = 0x01,  // every port from classification until it closes
    PK_LOCAL = 0x02,      // USB or parallel
    PK_BIDI = 0x04,       // PJL works both ways
    PK_SERIAL = 0x10,
    PK_NETWORK = 0x80,    // a port of one of the two network monitors
};

void ClassifyPort(PortContext* port);

int IsParallelName(const char* name);
int IsSerialName(const char* name);
int IsUsbName(const char* name);

int NetworkMonitorHasPort(const char* keyPath, const char* name);
int PortDescriptionFits(PortContext* port, int usb);
int ParallelPortIsBidi(const char* name);
int KeyboardClassD00();

// Up to `count` bytes, ASCII letters without regard to case except behind a
// DBCS lead byte; 0 if equal, else the difference of the first differing pair
// as a signed 8-bit number.
int CompareNameNoCase(const char* a, const char* b, uint32_t count);

}  // namespace langmon
