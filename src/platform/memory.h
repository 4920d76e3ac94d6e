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
void FailAllocation(std::size_t nth, bool andAllAfter);
void StopFailingAllocations();
std::size_t AllocationCount();
// True once an injected failure has happened since the last FailAllocation.
bool AllocationFailureHit();

}  // namespace platform
}  // namespace langmon
