#include "platform/memory.h"

#include <atomic>
#include <cstdlib>

namespace langmon {

namespace {

// Each block carries its size in a header, so that leak reports and the live
// count need no table.
struct alignas(16) BlockHeader {
    std::size_t bytes;
};

std::atomic<std::size_t> liveBlocks{0};

// Fault injection: the allocation numbered failAt (1-based, counted from the
// last FailAllocation) fails, and with failAfter every later one too.
std::atomic<std::size_t> allocationsTried{0};
std::atomic<std::size_t> failAt{0};
std::atomic<bool> failAfter{false};
std::atomic<bool> failureHit{false};

bool ShouldFail() {
    const std::size_t nth = allocationsTried.fetch_add(1) + 1;
    const std::size_t at = failAt.load();
    if (at == 0) {
        return false;
    }
    const bool fail = nth == at || (failAfter.load() && nth > at);
    if (fail) {
        failureHit = true;
    }
    return fail;
}

}  // namespace

void* GlobalAlloc(UINT, SIZE_T bytes) {
    if (ShouldFail() || bytes > (SIZE_T{1} << 40)) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    void* raw = std::calloc(1, sizeof(BlockHeader) + bytes);
    if (raw == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    static_cast<BlockHeader*>(raw)->bytes = bytes;
    liveBlocks.fetch_add(1);
    return static_cast<BlockHeader*>(raw) + 1;
}

void* GlobalFree(void* block) {
    if (block != nullptr) {
        liveBlocks.fetch_sub(1);
        std::free(static_cast<BlockHeader*>(block) - 1);
    }
    return nullptr;
}

namespace platform {

std::size_t LiveBlockCount() { return liveBlocks.load(); }

void FailAllocation(std::size_t nth, bool andAllAfter) {
    allocationsTried = 0;
    failureHit = false;
    failAfter = andAllAfter;
    failAt = nth;
}

void StopFailingAllocations() {
    failAt = 0;
    failAfter = false;
    allocationsTried = 0;
    failureHit = false;
}

std::size_t AllocationCount() { return allocationsTried.load(); }

bool CreationFails() {
    if (!ShouldFail()) {
        return false;
    }
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return true;
}

bool AllocationFailureHit() { return failureHit.load(); }

}  // namespace platform
}  // namespace langmon
