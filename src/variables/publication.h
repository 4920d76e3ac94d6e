// Publication: changed variables go to the bound clients, chosen by each row's
// PublishType.
#pragma once

namespace langmon {

struct PortContext;
struct ManagerLink;

// One pass over the table. Returns the number of rows finished, -1 if the port
// has no table.
int PublishVariables(PortContext* port);
// Offers the stored values to one new client. The number accepted, -1 when
// the table or the link is absent.
int ReplayVariables(PortContext* port, ManagerLink* link);

}  // namespace langmon
