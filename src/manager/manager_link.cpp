#include "manager/manager_link.h"

namespace langmon {

// No link can be made before the manager binding lands, so none is in a list.
int RemoveLink(ManagerLink*, PortContext*) { return 0; }

}  // namespace langmon
