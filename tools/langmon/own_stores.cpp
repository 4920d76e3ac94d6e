#include "own_stores.h"

#include "daemon/status_protocol.h"

#include <cstdlib>

namespace langmon::tool {

void KeepStatusStoresOwn() { setenv(protocol::StatusManagerModeVariable, protocol::StatusManagerLocal, 1); }

}  // namespace langmon::tool
