#include "background/status_thread.h"

namespace langmon {

// The thread lands with background monitoring; until then none starts, and
// whatever waits for it (the unsent queue at a job's end) does the work itself.
int StartStatusThread(PortContext*) { return 0; }

}  // namespace langmon
