// Two things the status thread and a client's refresh share: making the
// port's clients agree with the printers that really stand on the port, and
// bringing a port back to idle when its monitoring ends.
#pragma once

namespace langmon {

struct PortContext;

// Every printer listed on the port gets a link (found or made); every link
// whose printer is not listed is removed, so an empty list, or one that came
// back empty because the spooler failed, removes them all. 1, or 0 without
// a port. Runs under the port's lock, the one guard of its links.
int ReconcileClients(PortContext* port);

// Clears the port's per-job and per-poll state: the job and printer flags
// (not the status thread's, the document's or the closing port's), the
// derived and job variables, the pending PJL, the parser, the job list and
// the chain of jobs at the printer; each printer's spooler status goes back
// to empty unless a refresh asked the printer for its service tag or panel.
// The caller holds serialSemaphore or has just released it.
void ResetPortState(PortContext* port);

}  // namespace langmon
