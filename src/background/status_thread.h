// The status thread: one per port, the monitor's main loop while a job is
// watched or a client holds it awake. About every 3 seconds with a job and
// every 4 seconds idle it binds clients that have no manager yet, asks the
// spooler about the running job and polls the printer; every third pass it
// reconciles the port's clients with the printers on the port. It ends by
// itself once nothing needs it, and says goodbye to the printer if the last
// job left during its own poll.
#pragma once

#include "platform/win32_types.h"

namespace langmon {

struct PortContext;

// A pass's rest between polls: with a job on the port, and idle.
constexpr DWORD StatusPassJobMs = 3000;
constexpr DWORD StatusPassIdleMs = 4000;

// What tells the printer to stop its unsolicited reports.
inline constexpr char UstatusOffText[] = "\x1b%-12345X@PJL USTATUSOFF\r\n\x1b%-12345X";
constexpr DWORD UstatusOffLength = sizeof UstatusOffText - 1;  // 35

// Starts the port's status thread unless one runs: 1 if a thread runs now, 0
// on a port that can't have one (neither local nor serial) or when no thread
// could be made. A thread that is still finishing is joined first. The look
// at PF_STATUS_ALIVE and the start are one step under the port's lock, so two
// starters (a job's start, a client's "Wake Up") never make two threads.
int StartStatusThread(PortContext* port);
// 1 if the thread has no more reason to run; an absent port gives 1. A late
// "Suspend" (a job has begun since) is dropped here.
int StatusThreadShouldStop(PortContext* port);
// Tells clients through PrinterExtStatus that background monitoring is on
// (1) or off (0), after reconciling the port's clients.
void MarkMonitoring(int on, PortContext* port);
// The thread's last work: queued jobs cancelled on a suspend, the goodbye
// sent, clients told that monitoring is off, the request words cleared.
void FinishMonitoring(PortContext* port);
// Sends UstatusOffText, unless the printer is lost, unknown or busy with a
// fault. 1 if it was sent.
int SendUstatusOff(PortContext* port);
// Tells clients that the jobs queued on the port are gone.
void CancelQueuedJobs(PortContext* port);

// Wakes the thread from its wait, if there is a thread.
void WakeStatusThread(PortContext* port);
// Tells the thread to end, wakes it and waits until it has ended; then the
// port is the caller's alone. Nothing happens without a thread.
void StopStatusThread(PortContext* port);

}  // namespace langmon
