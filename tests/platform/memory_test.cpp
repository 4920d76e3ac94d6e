// The allocator: zero-filled blocks, a live count, and failures on demand,
// which reach what else the platform makes on the same count.

#include "platform/library.h"
#include "platform/memory.h"
#include "platform/spooler_jobs.h"
#include "platform/thread.h"
#include "support/platform_fixture.h"

#include <cstring>
#include <functional>

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

DWORD Nothing(LPVOID) { return 0; }
void* NoFunction(const char*) { return nullptr; }

TEST_F(MemoryTest, KernelObjectsThreadsAndHandlesFailOnTheSameCount) {
    testing::DescribePrinter("Laser", testing::Driver6200, "LPT1");
    platform::RegisterLibrary("SOME.DLL", NoFunction);
    HANDLE event = CreateEventA(nullptr, TRUE, FALSE, "shared");
    struct Maker {
        const char* name;
        std::function<HANDLE()> make;
        std::function<void(HANDLE)> close = [](HANDLE h) { CloseHandle(h); };
    };
    const Maker makers[] = {
        {"semaphore", [] { return CreateSemaphoreA(nullptr, 1, 1, nullptr); }},
        {"event", [] { return CreateEventA(nullptr, TRUE, FALSE, nullptr); }},
        {"named mutex", [] { return CreateMutexA(nullptr, FALSE, "CTIMutex"); }},
        {"named event opened", [] { return OpenEventA(0, FALSE, "shared"); }},
        {"duplicate",
         [&] {
             HANDLE copy = nullptr;
             DuplicateHandle(GetCurrentProcess(), event, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS);
             return copy;
         }},
        {"thread", [] { return CreateThread(nullptr, 0, Nothing, nullptr, 0, nullptr); },
         [](HANDLE h) {
             WaitForSingleObject(h, INFINITE);
             CloseHandle(h);
         }},
        {"printer",
         [] {
             HANDLE printer = nullptr;
             char name[] = "Laser";
             OpenPrinterA(name, &printer, nullptr);
             return printer;
         },
         [](HANDLE h) { ClosePrinter(h); }},
        {"library", [] { return LoadLibraryA("SOME.DLL"); }, [](HANDLE h) { FreeLibrary(h); }},
    };
    // Each maker fails in its turn, with the reason, and the others go on.
    for (std::size_t nth = 1; nth <= std::size(makers); ++nth) {
        platform::FailAllocation(nth, false);
        for (std::size_t i = 0; i < std::size(makers); ++i) {
            SetLastError(0xdeadbeef);
            HANDLE made = makers[i].make();
            if (i + 1 == nth) {
                EXPECT_EQ(made, nullptr) << makers[i].name;
                EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY) << makers[i].name;
            } else {
                EXPECT_NE(made, nullptr) << makers[i].name << " with allocation " << nth << " failing";
            }
            if (made != nullptr) makers[i].close(made);
        }
        EXPECT_TRUE(platform::AllocationFailureHit());
    }
    platform::StopFailingAllocations();
    CloseHandle(event);
    platform::UnregisterLibrary("SOME.DLL");
    SettleThreads();
}

}  // namespace
}  // namespace langmon
