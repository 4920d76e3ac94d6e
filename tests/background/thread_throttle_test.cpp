// Thread starts spaced out by "CreateThreadInterval" and held apart across
// processes by "CTIFlag", as a machine's registry sets them.

#include "background/thread_throttle.h"

#include "platform/clock.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "support/platform_fixture.h"

namespace langmon {
namespace {

using testing::PlatformTest;
using testing::TestStartTick;

constexpr const char* ThrottleKey = "SOFTWARE\\Quor\\Status Monitor";

class ThreadThrottleTest : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, ThrottleKey);
    }
};

DWORD NoteStart(LPVOID argument) {
    *static_cast<DWORD*>(argument) = GetTickCount();
    return 0;
}

// Starts a thread through the throttle; returns when the caller got control
// back, and the thread's start tick through `startedAt`.
HANDLE StartNoted(DWORD* startedAt, DWORD creationFlags = 0) {
    return ThrottledCreateThread(nullptr, 0, NoteStart, startedAt, creationFlags, nullptr);
}

void Finish(HANDLE thread) {
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    CloseHandle(thread);
}

// The first start writes the defaults where the key is and holds the new
// thread for the interval; what the registry then says is read once per
// process, except a flag of all ones, which is read again at each start.
TEST_F(ThreadThrottleTest, SettingsComeFromTheRegistryOncePerProcessOrDefault) {
    DWORD startedAt = 0;
    HANDLE thread = StartNoted(&startedAt);
    EXPECT_EQ(Elapsed(), 50u) << "the caller is held up for the interval";
    Finish(thread);
    EXPECT_EQ(startedAt, TestStartTick + 50) << "created suspended, resumed after the sleep";
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, ThrottleKey, "CreateThreadInterval"), 50u);
    EXPECT_EQ(platform::RegistryGetDword(HKEY_LOCAL_MACHINE, ThrottleKey, "CTIFlag"), 3u);

    // Read once: a changed value waits for the next process.
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, ThrottleKey, "CreateThreadInterval", 200);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, ThrottleKey, "CTIFlag", 0);
    DWORD now = GetTickCount();
    Finish(StartNoted(&startedAt));
    EXPECT_EQ(GetTickCount(), now + 50) << "the value read first stands";
    ForgetThrottleSettings();
    now = GetTickCount();
    thread = StartNoted(&startedAt);
    EXPECT_EQ(startedAt, now) << "CTIFlag 0: the thread runs at once";
    EXPECT_EQ(GetTickCount(), now + 200) << "and the caller still sleeps the interval";
    Finish(thread);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, ThrottleKey, "CreateThreadInterval", 0);
    ForgetThrottleSettings();
    now = GetTickCount();
    Finish(StartNoted(&startedAt));
    EXPECT_EQ(GetTickCount(), now) << "interval 0: Sleep(0)";

    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, ThrottleKey, "CreateThreadInterval", 20);
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, ThrottleKey, "CTIFlag", 0xFFFFFFFFu);
    ForgetThrottleSettings();
    now = GetTickCount();
    Finish(StartNoted(&startedAt));
    EXPECT_EQ(startedAt, now + 20) << "all bits: started suspended";
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, ThrottleKey, "CTIFlag", 0);
    now = GetTickCount();
    Finish(StartNoted(&startedAt));
    EXPECT_EQ(startedAt, now) << "read again: now the thread runs at once";

    // Without the key: the same defaults, and the key is not created.
    platform::ClearRegistry();
    ForgetThrottleSettings();
    now = GetTickCount();
    Finish(StartNoted(&startedAt));
    EXPECT_EQ(startedAt, now + 50);
    EXPECT_EQ(GetTickCount(), now + 50);
    EXPECT_FALSE(platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, ThrottleKey));

    // A caller that asks for a suspended thread resumes it itself.
    now = GetTickCount();
    thread = StartNoted(&startedAt, CREATE_SUSPENDED);
    Sleep(1000);
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_TIMEOUT);
    EXPECT_EQ(ResumeThread(thread), 1u);
    Finish(thread);
    EXPECT_EQ(startedAt, now + 1050);
}

struct Starter {
    DWORD startedAt = 0;
};

DWORD StartOneThrottled(LPVOID argument) {
    auto* starter = static_cast<Starter*>(argument);
    HANDLE thread = StartNoted(&starter->startedAt);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    return 0;
}

// Two threads that start a thread each at the same moment; returns the start
// ticks of the two new threads, earlier first.
std::pair<DWORD, DWORD> TwoSimultaneousStarts() {
    Starter a, b;
    HANDLE starters[2] = {CreateThread(nullptr, 0, StartOneThrottled, &a, 0, nullptr),
                          CreateThread(nullptr, 0, StartOneThrottled, &b, 0, nullptr)};
    for (HANDLE starter : starters) {
        WaitForSingleObject(starter, INFINITE);
        CloseHandle(starter);
    }
    return {std::min(a.startedAt, b.startedAt), std::max(a.startedAt, b.startedAt)};
}

TEST_F(ThreadThrottleTest, SerialisingHoldsStartsOneIntervalApart) {
    const auto serialised = TwoSimultaneousStarts();
    EXPECT_EQ(serialised.first, TestStartTick + 50);
    EXPECT_EQ(serialised.second, TestStartTick + 100);

    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, ThrottleKey, "CTIFlag", CtiStartSuspended);
    ForgetThrottleSettings();
    const DWORD now = GetTickCount();
    const auto parallel = TwoSimultaneousStarts();
    EXPECT_EQ(parallel.first, now + 50);
    EXPECT_EQ(parallel.second, now + 50);
}

}  // namespace
}  // namespace langmon
