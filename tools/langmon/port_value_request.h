// A status application's value request ("Wake Up", "Stop Polling",
// "RefreshStatus", "LM_..."), passed to the monitor on the application's own
// port handle as the spooler passes it on.
#pragma once

#include <langmon/monitor.h>

#include <cstdint>
#include <string>

namespace langmon::tool {

// The request's 4-byte answer; `fallback` when the call fails.
int32_t AskPortValue(const MONITOR& monitor, HANDLE port, const std::string& name, int32_t fallback = -1);

}  // namespace langmon::tool
