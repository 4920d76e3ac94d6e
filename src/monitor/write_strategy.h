// How a job's data goes down once its header is out: one strategy per kind of
// port, chosen by the port alone and fixed for the job. Each keeps the job's
// last bytes in dataTail, for reasons of its own. None reports failure: a port
// that refuses shows as *written 0, and the spooler calls again. None
// allocates.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

// The length of the delay line and of the tail the other strategies keep.
constexpr DWORD DataTailLength = 80;
// The most that goes down in one call on an ECP port.
constexpr DWORD CappedWriteLimit = 4096;

// USB ports: the whole block goes down, and its last bytes are kept so that a
// write that failed can be repeated.
int WriteDirect(PortContext* port, const uint8_t* data, DWORD length, DWORD* written);
// ECP ports: as WriteDirect, at most 4096 bytes a call.
int WriteCapped(PortContext* port, const uint8_t* data, DWORD length, DWORD* written);
// All other two-way ports: the last 80 bytes of the job are held back and go
// out with the trailer in one write, so that the printer never sees the end of
// a job's data apart from the line that ends it.
int WriteBehind(PortContext* port, const uint8_t* data, DWORD length, DWORD* written);

// The bytes of this job that the delay line holds, oldest first.
inline const uint8_t* HeldJobBytes(const PortContext* port) {
    return reinterpret_cast<const uint8_t*>(port->dataTail) + DataTailLength - port->tailLength;
}

}  // namespace langmon
