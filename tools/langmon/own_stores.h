// A process that runs a monitor of its own keeps its printers' status stores
// to itself: the status manager library in it then never asks langmond, even
// for a name that the daemon serves too. "langmon" or a queue's name means
// the printer this process drives, not the daemon's printer of that name.
#pragma once

namespace langmon::tool {

// Called before the monitor starts, while the process has no other thread
// that reads the environment.
void KeepStatusStoresOwn();

}  // namespace langmon::tool
