// The port monitor below the benchmarks: every call succeeds, every byte is
// taken, nothing is ever read back, and a device ID request is answered at
// once with the same text, a known model that is ready. So what a benchmark
// measures is the language monitor alone.
#pragma once

#include <langmon/monitor.h>

namespace langmon::bench {

// The device ID the sink answers, and its status block as found behind "STS:".
extern const char SinkDeviceId[];
extern const char SinkStsField[];

MONITOR SinkTable();

}  // namespace langmon::bench
