#include "manager/manager_link.h"

#include "monitor/port_context.h"
#include "platform/text.h"

namespace langmon {

ManagerLink* FindLink(const char* printerName, PortContext* port) {
    if (printerName == nullptr) return nullptr;
    for (ManagerLink* link = port->managers; link != nullptr; link = link->next) {
        if (lstrcmpA(link->printerName, printerName) == 0) return link;
    }
    return nullptr;
}

// The manager binding lands later: until then no printer gets a client, and
// the only links in a port's list are ones its owner put there and takes out.
ManagerLink* CreateManagerLink(const char*, PortContext*) { return nullptr; }

int RemoveLink(ManagerLink*, PortContext*) { return 0; }

}  // namespace langmon
