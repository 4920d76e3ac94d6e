// Kernel objects as the logic relies on them: semaphores with a maximum, the two
// kinds of event, named objects, re-entrant locks, threads, the last error.

#include "platform/clock.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "support/platform_fixture.h"

#include <atomic>
#include <cstdint>
#include <thread>

namespace langmon {
namespace {

using testing::PlatformTest;
using testing::TestStartTick;

class SyncTest : public PlatformTest {};

// A port's semaphore is taken and given back on every block without the
// kernel's lock while nobody waits. Threads that fight over it must still
// hold it one at a time, and one that blocks must be woken by the release
// that comes while it waits: a lost wake-up leaves every thread waiting with
// no deadline, which the virtual clock reports as a deadlock.
struct Contender {
    HANDLE semaphore;
    std::atomic<int>* inside;
    int overlaps = 0;
};

DWORD TakeAndGiveBack(LPVOID argument) {
    auto* contender = static_cast<Contender*>(argument);
    for (int i = 0; i < 5000; ++i) {
        if (WaitForSingleObject(contender->semaphore, INFINITE) != WAIT_OBJECT_0) return 1;
        if (contender->inside->fetch_add(1) != 0) ++contender->overlaps;
        std::this_thread::yield();  // so that the others come and wait
        contender->inside->fetch_sub(1);
        if (!ReleaseSemaphore(contender->semaphore, 1, nullptr)) return 2;
    }
    return 0;
}

TEST_F(SyncTest, ASemaphoreFoughtOverIsHeldByOneAtATimeAndEveryWaiterIsWoken) {
    HANDLE semaphore = CreateSemaphoreA(nullptr, 1, 1, nullptr);
    std::atomic<int> inside{0};
    Contender contenders[4] = {{semaphore, &inside}, {semaphore, &inside}, {semaphore, &inside}, {semaphore, &inside}};
    HANDLE threads[4];
    for (int i = 0; i < 4; ++i) threads[i] = CreateThread(nullptr, 0, TakeAndGiveBack, &contenders[i], 0, nullptr);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(WaitForSingleObject(threads[i], INFINITE), WAIT_OBJECT_0);
        DWORD exitCode = 9;
        GetExitCodeThread(threads[i], &exitCode);
        EXPECT_EQ(exitCode, 0u);
        EXPECT_EQ(contenders[i].overlaps, 0);
        CloseHandle(threads[i]);
    }
    // Given back by every thread: a release past the maximum fails and
    // changes nothing, so one wait gets it and the next times out.
    LONG previous = -1;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(ReleaseSemaphore(semaphore, 1, &previous));
    EXPECT_EQ(GetLastError(), ERROR_TOO_MANY_POSTS);
    EXPECT_EQ(previous, -1);
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(semaphore, 30000), WAIT_TIMEOUT);
    EXPECT_EQ(Elapsed(), 30000u);
    EXPECT_TRUE(ReleaseSemaphore(semaphore, 1, &previous));
    EXPECT_EQ(previous, 0);
    CloseHandle(semaphore);
}

TEST_F(SyncTest, BadArgumentsGiveWin32Errors) {
    SetLastError(0xdeadbeef);
    EXPECT_EQ(CreateSemaphoreA(nullptr, 2, 1, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(0xdeadbeef);
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(SetEvent(nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    SetLastError(0xdeadbeef);
    EXPECT_EQ(WaitForMultipleObjects(0, nullptr, FALSE, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    // Priorities the registry may name are recorded (see the job start's
    // tests); any other is refused.
    HANDLE self = GetCurrentThread();
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(SetThreadPriority(self, 7));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(GetThreadPriority(self), THREAD_PRIORITY_NORMAL);
    CloseHandle(self);
}

// Found by the status manager fuzz target: a client hands the library a
// handle that is no event, and the library hands it to the host's SetEvent
// when the watched variable changes. The host must refuse a handle that is
// no object, or no longer one, without reading through it.
TEST_F(SyncTest, AHandleThatIsNoObjectIsRefusedWithoutBeingRead) {
    const HANDLE none = reinterpret_cast<HANDLE>(std::uintptr_t{0x5EED});
    HANDLE closed = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    ASSERT_TRUE(CloseHandle(closed));
    for (HANDLE handle : {none, closed}) {
        SetLastError(0xdeadbeef);
        EXPECT_FALSE(SetEvent(handle));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        SetLastError(0xdeadbeef);
        EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        SetLastError(0xdeadbeef);
        EXPECT_FALSE(CloseHandle(handle));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    }
}

struct EventWaiter {
    HANDLE event;
    std::atomic<int>* woken;
};

DWORD WaitForEventOnce(LPVOID argument) {
    auto* waiter = static_cast<EventWaiter*>(argument);
    if (WaitForSingleObject(waiter->event, 10000) == WAIT_OBJECT_0) {
        ++*waiter->woken;
    }
    return 0;
}

// Starts `count` threads that wait up to 10 s for `event`, sets it once after
// 1 s, and returns how many got through.
int WokenBySetEvent(HANDLE event, int count) {
    std::atomic<int> woken{0};
    EventWaiter waiter{event, &woken};
    HANDLE threads[3];
    for (int i = 0; i < count; ++i) {
        threads[i] = CreateThread(nullptr, 0, WaitForEventOnce, &waiter, 0, nullptr);
    }
    Sleep(1000);
    SetEvent(event);
    for (int i = 0; i < count; ++i) {
        WaitForSingleObject(threads[i], INFINITE);
        CloseHandle(threads[i]);
    }
    return woken.load();
}

TEST_F(SyncTest, AutoResetEventLetsOneWaiterThroughManualResetAll) {
    HANDLE autoEvent = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(WokenBySetEvent(autoEvent, 3), 1);
    EXPECT_EQ(WaitForSingleObject(autoEvent, 0), WAIT_TIMEOUT) << "the set was used up";

    HANDLE manualEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    EXPECT_EQ(WokenBySetEvent(manualEvent, 3), 3);
    EXPECT_EQ(WaitForSingleObject(manualEvent, 0), WAIT_OBJECT_0) << "stays set";
    EXPECT_TRUE(ResetEvent(manualEvent));
    EXPECT_EQ(WaitForSingleObject(manualEvent, 0), WAIT_TIMEOUT);
    CloseHandle(autoEvent);
    CloseHandle(manualEvent);
}

struct Signaller {
    HANDLE event;
    DWORD after;
};

DWORD SetEventLater(LPVOID argument) {
    auto* signaller = static_cast<Signaller*>(argument);
    Sleep(signaller->after);
    SetEvent(signaller->event);
    return 0;
}

TEST_F(SyncTest, WaitForMultipleObjectsGivesTheLowestSignalledIndexOrTheOneSignalledWhileWaiting) {
    HANDLE events[3] = {CreateEventA(nullptr, TRUE, FALSE, nullptr),
                        CreateEventA(nullptr, TRUE, TRUE, nullptr),
                        CreateEventA(nullptr, TRUE, TRUE, nullptr)};
    EXPECT_EQ(WaitForMultipleObjects(3, events, FALSE, 0), WAIT_OBJECT_0 + 1);
    ResetEvent(events[1]);
    EXPECT_EQ(WaitForMultipleObjects(3, events, FALSE, 0), WAIT_OBJECT_0 + 2);
    ResetEvent(events[2]);
    EXPECT_EQ(WaitForMultipleObjects(3, events, FALSE, 4000), WAIT_TIMEOUT);
    EXPECT_EQ(Elapsed(), 4000u);
    EXPECT_EQ(WaitForMultipleObjects(3, events, TRUE, 0), WAIT_FAILED) << "wait-all is refused";

    // A wait ends with the object signalled while it waits, at that moment.
    Signaller signaller{events[1], 2500};
    HANDLE thread = CreateThread(nullptr, 0, SetEventLater, &signaller, 0, nullptr);
    EXPECT_EQ(WaitForMultipleObjects(3, events, FALSE, 30000), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(Elapsed(), 6500u);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    for (HANDLE event : events) {
        CloseHandle(event);
    }
}

TEST_F(SyncTest, NamedObjectsShareOneObjectPerName) {
    SetLastError(0xdeadbeef);
    HANDLE first = CreateEventA(nullptr, TRUE, FALSE, "KVWAT:DEL_PRN:Laser");
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    HANDLE second = CreateEventA(nullptr, TRUE, FALSE, "KVWAT:DEL_PRN:Laser");
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    HANDLE opened = OpenEventA(0, FALSE, "KVWAT:DEL_PRN:Laser");
    ASSERT_NE(opened, nullptr);
    SetEvent(second);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0) << "one object behind all names";
    EXPECT_EQ(CreateMutexA(nullptr, FALSE, "KVWAT:DEL_PRN:Laser"), nullptr) << "name of an event";
    CloseHandle(first);
    CloseHandle(second);
    CloseHandle(opened);
    SetLastError(0xdeadbeef);
    EXPECT_EQ(OpenEventA(0, FALSE, "KVWAT:DEL_PRN:Laser"), nullptr) << "gone with its last handle";
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(SyncTest, MutexIsReentrantAndOnlyItsOwnerReleasesIt) {
    HANDLE mutex = CreateMutexA(nullptr, TRUE, "CTIMutex");
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_TRUE(ReleaseMutex(mutex));
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
    CloseHandle(mutex);
}

struct SectionUser {
    CRITICAL_SECTION* section;
    DWORD enteredAt;
};

DWORD EnterAndNote(LPVOID argument) {
    auto* user = static_cast<SectionUser*>(argument);
    EnterCriticalSection(user->section);
    user->enteredAt = GetTickCount();
    LeaveCriticalSection(user->section);
    return 0;
}

TEST_F(SyncTest, CriticalSectionIsReentrantAndHoldsOthersOff) {
    CRITICAL_SECTION section{};
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    EnterCriticalSection(&section);
    SectionUser other{&section, 0};
    HANDLE thread = CreateThread(nullptr, 0, EnterAndNote, &other, 0, nullptr);
    Sleep(5000);
    LeaveCriticalSection(&section);
    Sleep(1000);
    EXPECT_EQ(other.enteredAt, 0u) << "still held once";
    LeaveCriticalSection(&section);
    WaitForSingleObject(thread, INFINITE);
    EXPECT_EQ(other.enteredAt, TestStartTick + 6000);
    CloseHandle(thread);
    DeleteCriticalSection(&section);
}

struct ThreadFacts {
    DWORD lastErrorSeen;
    DWORD startedAt;
};

DWORD NoteFacts(LPVOID argument) {
    auto* facts = static_cast<ThreadFacts*>(argument);
    facts->lastErrorSeen = GetLastError();
    facts->startedAt = GetTickCount();
    SetLastError(1234);
    return 42;
}

TEST_F(SyncTest, SuspendedThreadRunsOnlyOnceResumed) {
    ThreadFacts facts{0xFFFF, 0};
    SetLastError(777);
    DWORD id = 0;
    HANDLE thread = CreateThread(nullptr, 0, NoteFacts, &facts, CREATE_SUSPENDED, &id);
    ASSERT_NE(thread, nullptr);
    EXPECT_NE(id, 0u);
    Sleep(3000);
    EXPECT_EQ(facts.startedAt, 0u);
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_TIMEOUT);
    EXPECT_EQ(ResumeThread(thread), 1u);
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(facts.startedAt, TestStartTick + 3000);
    EXPECT_EQ(facts.lastErrorSeen, 0u) << "the last error is the thread's own";
    EXPECT_EQ(GetLastError(), 777u);
    DWORD exitCode = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &exitCode));
    EXPECT_EQ(exitCode, 42u);
    EXPECT_EQ(ResumeThread(thread), 0u);
    CloseHandle(thread);
}

DWORD RetryForSeventeenSeconds(LPVOID argument) {
    auto* tries = static_cast<std::atomic<int>*>(argument);
    for (int i = 0; i < 17; ++i) {
        Sleep(1000);
        ++*tries;
    }
    return 0;
}

DWORD WaitForEver(LPVOID event) { return WaitForSingleObject(static_cast<HANDLE>(event), INFINITE); }

// The process's end: a thread that retries reaches its end at once, without
// time moving; one that waits for ever is left and named, not waited for.
TEST_F(SyncTest, EndingThreadsCutsTheirTimedWaitsShortAndNamesThoseThatWaitForEver) {
    std::atomic<int> tries{0};
    HANDLE never = CreateEventA(nullptr, TRUE, FALSE, "NeverSignalled");
    HANDLE retrier = CreateThread(nullptr, 0, RetryForSeventeenSeconds, &tries, 0, nullptr);
    HANDLE waiter = CreateThread(nullptr, 0, WaitForEver, never, 0, nullptr);
    ASSERT_NE(retrier, nullptr);
    ASSERT_NE(waiter, nullptr);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(platform::EndThreads(200), 1u);
    const std::string said = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(tries.load(), 17);
    EXPECT_EQ(WaitForSingleObject(retrier, 0), WAIT_OBJECT_0);
    EXPECT_EQ(Elapsed(), 0u) << "the waits were cut short, not waited out";
    EXPECT_NE(said.find("1 thread did not end within 200 ms and is abandoned"), std::string::npos) << said;
    EXPECT_NE(said.find("waits on event \"NeverSignalled\""), std::string::npos) << said;

    // Waits are themselves again afterwards.
    Sleep(10);
    EXPECT_EQ(Elapsed(), 10u);
    SetEvent(never);
    EXPECT_EQ(WaitForSingleObject(waiter, INFINITE), WAIT_OBJECT_0);
    CloseHandle(retrier);
    CloseHandle(waiter);
    CloseHandle(never);
}

}  // namespace
}  // namespace langmon
