// Publication: changed variables go to the bound clients, chosen by each row's
// PublishType.
#pragma once

namespace langmon {

struct PortContext;

// One pass over the table. Returns the number of rows finished, -1 if the port
// has no table.
int PublishVariables(PortContext* port);

}  // namespace langmon
