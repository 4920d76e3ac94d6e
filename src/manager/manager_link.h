// A printer queue's binding to the status manager library.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;
struct ManagerLink;

// Takes the link out of the port's list and frees it: 1 if it was in the list.
int RemoveLink(ManagerLink* link, PortContext* port);

}  // namespace langmon
