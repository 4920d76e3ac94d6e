#include "variables/publication.h"

#include "monitor/port_context.h"

namespace langmon {

// Until clients can bind, there is no one to publish to: rows stay dirty.
int PublishVariables(PortContext* port) {
    return port->variables == nullptr ? -1 : 0;
}

int ReplayVariables(PortContext* port, ManagerLink* link) {
    return port->variables == nullptr || link == nullptr ? -1 : 0;
}

}  // namespace langmon
