// The spooler's list of ports with their descriptions, as both the port
// classification and the job start's choice of port mode read it.
#pragma once

#include "platform/win32_types.h"

#include <langmon/monitor.h>

namespace langmon {

// The spooler's PORT_INFO_2 list in a heap block that the caller frees with
// GlobalFree, and its entry count in *count; null when the list can't be had.
// The spooler isn't always ready when the first port opens, so the size query
// and the list are each asked twice, 300 ms apart, before giving up.
PORT_INFO_2* FetchPortList(DWORD* count);

// The entry whose pPortName equals `name` byte for byte, or null.
const PORT_INFO_2* FindListedPort(const PORT_INFO_2* list, DWORD count, const char* name);

}  // namespace langmon
