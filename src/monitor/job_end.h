// EndDocPort: the end of the spooler's side of a job.
#pragma once

#include "monitor/port_context.h"

namespace langmon {

BOOL EndDocPort(HANDLE hPort);

}  // namespace langmon
