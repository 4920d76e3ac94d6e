#include "framing/job_record.h"

#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/memory.h"

#include <cstring>

namespace langmon {
namespace {

// Copies like the system's fixed fields do: at most 80 bytes and a NUL.
void StoreName(char (&field)[81], const char* identifier) {
    std::strncpy(field, identifier, sizeof field - 1);
    field[sizeof field - 1] = '\0';
}

}  // namespace

void AddJobRecord(uint32_t jobId, PortContext* port) {
    auto* record = static_cast<JobRecord*>(GlobalAlloc(GPTR, sizeof(JobRecord)));
    if (record == nullptr) return;
    record->JobId = jobId;
    record->Link = port->jobManager;
    if (port->jobListHead == nullptr) port->jobListHead = record;
    if (port->jobListTail != nullptr) port->jobListTail->Next = record;
    port->jobListTail = record;
}

int SetJobIdentifier(const char* identifier, uint32_t which, PortContext* port) {
    if (identifier == nullptr || port == nullptr) return 0;
    JobRecord* record = port->jobListTail;
    if (record == nullptr) {
        for (record = port->jobListHead; record != nullptr && record->Next != nullptr; record = record->Next) {
        }
    }
    if (record == nullptr) return 0;
    if (which & JobStartName) StoreName(record->StartIdentifier, identifier);
    if (which & JobEndName) StoreName(record->EndIdentifier, identifier);
    return 1;
}

JobRecord* FindJobRecord(const char* identifier, uint32_t which, PortContext* port) {
    if (identifier == nullptr || port == nullptr) return nullptr;
    for (JobRecord* record = port->jobListHead; record != nullptr; record = record->Next) {
        if ((which & JobStartName) && std::strcmp(record->StartIdentifier, identifier) == 0) return record;
        if ((which & JobEndName) && std::strcmp(record->EndIdentifier, identifier) == 0) return record;
    }
    return nullptr;
}

int DropOldestJobRecord(PortContext* port) {
    JobRecord* oldest = port->jobListHead;
    if (oldest == nullptr) return 0;
    port->jobListHead = oldest->Next;
    if (port->jobListTail == oldest) port->jobListTail = nullptr;
    GlobalFree(oldest);
    return 1;
}

bool JobsTracked(PortContext* port) {
    LockPort(port);
    const bool tracked = port->jobListHead != nullptr;
    UnlockPort(port);
    return tracked;
}

void FreeJobRecords(PortContext* port) {
    while (DropOldestJobRecord(port)) {
    }
}

}  // namespace langmon
