// The jobs a port follows, oldest first, from StartDocPort until the printer
// reports them over, they are cancelled or the port is reset. A record holds
// the two identifiers by which the printer's reports name the job. Callers
// hold the port's lock around every change of the list.
#pragma once

#include <cstdint>

namespace langmon {

struct ManagerLink;
struct PortContext;

struct JobRecord {
    uint32_t JobId;
    char StartIdentifier[81];  // sent in the job header; zeroed when the printer reports the start
    char EndIdentifier[81];    // sent in the job trailer
    ManagerLink* Link;         // the port's jobManager when the record was made
    uint32_t Reported;
    JobRecord* Next;           // the next younger job
};

// Which identifier of a record an operation means.
constexpr uint32_t JobStartName = 1;
constexpr uint32_t JobEndName = 2;

// Appends a record; nothing happens when it can't be allocated.
void AddJobRecord(uint32_t jobId, PortContext* port);
// Stores `identifier` in the newest record. 0 without identifier, port or record.
int SetJobIdentifier(const char* identifier, uint32_t which, PortContext* port);
// The first record from the oldest whose chosen identifier equals `identifier`.
JobRecord* FindJobRecord(const char* identifier, uint32_t which, PortContext* port);
// Takes the oldest record out and frees it. 0 when there is none.
int DropOldestJobRecord(PortContext* port);
// Frees every record; for the port's end.
void FreeJobRecords(PortContext* port);
// Whether the port still follows a job, asked under the port's lock by
// threads that don't hold it.
bool JobsTracked(PortContext* port);

}  // namespace langmon
