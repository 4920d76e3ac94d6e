// Publication: the one place where a value leaves the monitor. Writers only
// mark rows Dirty; a pass hands each changed row to the clients its
// PublishType names, and a new client is given what it missed.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;
struct ManagerLink;
struct JobRecord;
struct StatusVariable;

// PublishType values: who receives a row.
enum PublishTypes : uint32_t {
    PublishNone = 0,
    PublishAll = 1,        // every client of the port
    PublishJob = 2,        // the client that owns the job named in the value
    PublishQueued = 5,     // each client with a job in the port's job list, once
    PublishJobClient = 6,  // the client of the running job
    PublishStatusWord = 8, // every client; a stand-in for clients of another model
    PublishModel = 9,      // clients whose model fits the port's
};

// What a client of another model is shown in place of PrinterStatus: it
// learns only that its driver doesn't fit the printer.
inline constexpr uint32_t OtherModelStatus[3] = {0, 0x200, 0};

// The wait before the empty record of a finished job and before the first
// record of the job that moves up, so a client sees the two as two events.
inline constexpr uint32_t JobEndSpacingMs = 150;

// One pass over the table. Returns the number of rows finished, -1 if the port
// has no table. Takes the port's lock for the whole pass; may be called with
// it held, from inside another pass too.
int PublishVariables(PortContext* port);
// Offers the stored values to one new client. The number accepted, -1 when
// the table or the link is absent. Changes no row.
int ReplayVariables(PortContext* port, ManagerLink* link);
// Ends every job ahead of `target` in the job list towards its client: the
// job's start and end in one step, then the empty record.
void FinishEarlierJobs(JobRecord* target, StatusVariable* row, PortContext* port);
// Zeroes the twelve page statistics of the port, for a job that starts.
void ClearPageStatistics(PortContext* port);

}  // namespace langmon
