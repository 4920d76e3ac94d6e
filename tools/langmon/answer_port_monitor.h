// A port monitor whose printer says one thing: asked for its device ID it
// gives the same text every time. Every write is taken whole and nothing is
// ever read back. `langmon decode` polls through it, and the benchmarks
// measure the monitor against it, since it costs next to nothing itself.
#pragma once

#include <langmon/monitor.h>

#include <string>

namespace langmon::tool {

// The table of the port monitor; every port it opens answers `deviceId` (at
// most as much of it as the caller's buffer holds).
MONITOR AnswerPortMonitor(const std::string& deviceId);

}  // namespace langmon::tool
