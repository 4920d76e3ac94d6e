// Every heap block of the logic comes from here: zero-filled, counted, and able
// to fail on demand so that each failure path can be walked in a test.
#pragma once

#include "platform/win32_types.h"

namespace langmon {

// A zero-filled block of `bytes`, or null with ERROR_NOT_ENOUGH_MEMORY. The
// flags are accepted and ignored: every block is fixed and zeroed.
void* GlobalAlloc(UINT flags, SIZE_T bytes);
// Frees a block; null is allowed. Returns null, as Win32 does on success.
void* GlobalFree(void* block);

namespace platform {

std::size_t LiveBlockCount();

// Allocation fault injection. FailAllocation(n, false) makes the nth allocation
// from now fail and no other; FailAllocation(n, true) makes the nth and every
// one after it fail. StopFailingAllocations() ends either. AllocationCount()
// counts the allocations tried since the last FailAllocation or reset.
// Allocations are heap blocks and everything else the platform makes that
// can run out: kernel objects (semaphores, events, mutexes, handles to named
// ones, duplicated handles), threads, printer handles and library loads.
void FailAllocation(std::size_t nth, bool andAllAfter);
void StopFailingAllocations();
std::size_t AllocationCount();
// True once an injected failure has happened since the last FailAllocation.
bool AllocationFailureHit();

// For the platform's makers of kernel objects, threads and handles: counts
// one allocation, and is true, with the last error ERROR_NOT_ENOUGH_MEMORY,
// when it is one that is to fail. So a failed creation is walked by the same
// loop as a failed block.
bool CreationFails();

}  // namespace platform
}  // namespace langmon
