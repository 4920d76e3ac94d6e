// The port monitor below the benchmarks: the answering port monitor of
// `langmon decode`, whose printer is a known model that is ready. It takes
// every byte, reads nothing back and answers the device ID at once, so what
// a benchmark measures is the language monitor alone.
#pragma once

#include <langmon/monitor.h>

namespace langmon::bench {

// The device ID the sink answers, and its status block as found behind "STS:".
extern const char SinkDeviceId[];
extern const char SinkStsField[];

MONITOR SinkTable();

}  // namespace langmon::bench
