// The allocator: zero-filled blocks, a live count, and failures on demand.

#include "platform/memory.h"
#include "support/platform_fixture.h"

#include <cstring>

namespace langmon {
namespace {

using testing::PlatformTest;

class MemoryTest : public PlatformTest {};

TEST_F(MemoryTest, BlocksAreZeroFilledAndCounted) {
    const std::size_t before = platform::LiveBlockCount();
    auto* block = static_cast<unsigned char*>(GlobalAlloc(GPTR, 4096));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(platform::LiveBlockCount(), before + 1);
    unsigned char zeros[4096] = {};
    EXPECT_EQ(std::memcmp(block, zeros, sizeof zeros), 0);
    EXPECT_EQ(GlobalFree(block), nullptr);
    EXPECT_EQ(GlobalFree(nullptr), nullptr);
    EXPECT_EQ(platform::LiveBlockCount(), before);
}

TEST_F(MemoryTest, FailsTheNthAllocationOnceOrFromThereOn) {
    platform::FailAllocation(2, false);
    void* first = GlobalAlloc(GPTR, 8);
    SetLastError(0xdeadbeef);
    void* second = GlobalAlloc(GPTR, 8);
    const DWORD error = GetLastError();
    void* third = GlobalAlloc(GPTR, 8);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(error, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_NE(third, nullptr);
    EXPECT_TRUE(platform::AllocationFailureHit());
    GlobalFree(first);
    GlobalFree(third);

    platform::FailAllocation(2, true);
    first = GlobalAlloc(GPTR, 8);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(GlobalAlloc(GPTR, 8), nullptr);
    EXPECT_EQ(GlobalAlloc(GPTR, 8), nullptr);
    EXPECT_EQ(platform::AllocationCount(), 3u);
    GlobalFree(first);

    platform::StopFailingAllocations();
    void* again = GlobalAlloc(GPTR, 8);
    EXPECT_NE(again, nullptr);
    EXPECT_FALSE(platform::AllocationFailureHit());
    GlobalFree(again);
}

}  // namespace
}  // namespace langmon
