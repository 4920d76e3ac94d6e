// The virtual clock: long waits cost no real time, time stands still while any
// managed thread can run, and the 32-bit tick wraps where Windows' does.

#include "platform/clock.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "support/platform_fixture.h"

#include <atomic>
#include <chrono>

namespace langmon {
namespace {

using testing::PlatformTest;
using testing::TestStartTick;

class ClockTest : public PlatformTest {};

double RealSecondsOf(auto&& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(ClockTest, LongWaitsCostVirtualTimeOnly) {
    HANDLE semaphore = CreateSemaphoreA(nullptr, 0, 1, nullptr);
    DWORD waitResult = 0;
    const double seconds = RealSecondsOf([&] {
        Sleep(120000);
        waitResult = WaitForSingleObject(semaphore, 30000);
    });
    EXPECT_EQ(waitResult, WAIT_TIMEOUT);
    EXPECT_EQ(Elapsed(), 150000u);
    EXPECT_LT(seconds, 1.0);
    CloseHandle(semaphore);
}

TEST_F(ClockTest, SleepZeroAndZeroTimeoutDoNotMoveTime) {
    HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    Sleep(0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_EQ(GetTickCount(), TestStartTick);
    CloseHandle(event);
}

struct SpinState {
    std::atomic<int> readings{0};
    std::atomic<bool> tickMoved{false};
};

DWORD SpinReadingTicks(LPVOID argument) {
    auto* state = static_cast<SpinState*>(argument);
    const DWORD first = GetTickCount();
    for (int i = 0; i < 20000; ++i) {
        if (GetTickCount() != first) {
            state->tickMoved = true;
        }
        ++state->readings;
    }
    return 0;
}

TEST_F(ClockTest, TimeStandsStillWhileAnyManagedThreadRuns) {
    SpinState state;
    HANDLE spinner = CreateThread(nullptr, 0, SpinReadingTicks, &state, 0, nullptr);
    ASSERT_NE(spinner, nullptr);
    // This sleep ends only once the spinner is done: until then it can run.
    Sleep(1000);
    EXPECT_EQ(state.readings.load(), 20000);
    EXPECT_FALSE(state.tickMoved.load());
    EXPECT_EQ(Elapsed(), 1000u);
    EXPECT_EQ(WaitForSingleObject(spinner, INFINITE), WAIT_OBJECT_0);
    CloseHandle(spinner);
}

struct Sleeper {
    DWORD milliseconds;
    DWORD wokeAt;
};

DWORD SleepAndNote(LPVOID argument) {
    auto* sleeper = static_cast<Sleeper*>(argument);
    Sleep(sleeper->milliseconds);
    sleeper->wokeAt = GetTickCount();
    return 0;
}

TEST_F(ClockTest, SleepersWakeInDeadlineOrderAtTheirOwnDeadlines) {
    Sleeper late{30000, 0};
    Sleeper early{4000, 0};
    HANDLE threads[2] = {CreateThread(nullptr, 0, SleepAndNote, &late, 0, nullptr),
                         CreateThread(nullptr, 0, SleepAndNote, &early, 0, nullptr)};
    EXPECT_EQ(WaitForSingleObject(threads[0], INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(threads[1], INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(early.wokeAt, TestStartTick + 4000);
    EXPECT_EQ(late.wokeAt, TestStartTick + 30000);
    CloseHandle(threads[0]);
    CloseHandle(threads[1]);
}

TEST_F(ClockTest, WaitsEndOnTimeAcrossTheWrapOfTheTick) {
    platform::UseVirtualClock(0xFFFFFF00u);
    HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    const DWORD before = GetTickCount();
    EXPECT_EQ(WaitForSingleObject(event, 1000), WAIT_TIMEOUT);
    const DWORD after = GetTickCount();
    EXPECT_EQ(after, 0x000002E8u);  // 0xFFFFFF00 + 1000, modulo 2^32
    EXPECT_EQ(TickAge(after, before), 1000u);
    Sleep(500);
    EXPECT_EQ(TickAge(GetTickCount(), before), 1500u);
    CloseHandle(event);
    platform::UseVirtualClock(TestStartTick);
}

TEST_F(ClockTest, RealClockWaitsEndAndWake) {
    platform::UseRealClock();
    HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const DWORD before = GetTickCount();
    EXPECT_EQ(WaitForSingleObject(event, 20), WAIT_TIMEOUT);
    EXPECT_GE(TickAge(GetTickCount(), before), 20u);
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
    CloseHandle(event);
    platform::UseVirtualClock(TestStartTick);
}

TEST(ClockDeathTest, EveryThreadWaitingWithNoDeadlineIsReportedAsDeadlock) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            platform::UseVirtualClock(0);
            HANDLE event = CreateEventA(nullptr, FALSE, FALSE, "NeverSet");
            WaitForSingleObject(event, INFINITE);
        },
        "deadlock on the virtual clock(.|\n)*waits on event \"NeverSet\"");
}

}  // namespace
}  // namespace langmon
