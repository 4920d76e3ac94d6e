// The inside of the platform's kernel: threads, kernel objects, blocked calls
// and the clock that both waits and ticks read. One mutex guards all of it, so
// that the virtual clock sees every thread's state in one consistent picture,
// and the primitives are std::mutex and std::condition_variable underneath,
// which the thread sanitizer understands as they are.
#pragma once

#include "platform/win32_types.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace langmon::platform {

constexpr uint64_t NoDeadline = UINT64_MAX;

struct KernelObject;
struct ThreadRecord;

// One blocked call of one thread: a wait on objects, a sleep (no objects) or
// the entry into a critical section (one mutex object).
struct Waiter {
    ThreadRecord* thread = nullptr;
    KernelObject* const* objects = nullptr;
    DWORD count = 0;
    uint64_t deadline = NoDeadline;  // on the clock's millisecond scale
    DWORD result = 0;
    bool done = false;
    std::condition_variable wake;
};

// A thread the clock manages: made by CreateThread, or any other thread from its
// first platform call on.
struct ThreadRecord {
    DWORD id = 0;
    KernelObject* object = nullptr;  // its thread object, once one exists
    Waiter* waiting = nullptr;       // the call it is blocked in, if any
    bool suspended = false;          // made suspended and not yet resumed
    std::condition_variable resumed;
    // Made by CreateThread, not adopted; its system thread, once running, is
    // `worker`, joined once the thread has ended.
    bool made = false;
    std::thread worker;
};

enum class ObjectKind : uint8_t { Semaphore, Event, Mutex, Thread };

struct KernelObject {
    ObjectKind kind;
    int handles = 1;  // open handles; the running thread counts as one of its own
    int pins = 0;     // blocked calls that still look at the object
    std::string name;
    std::vector<Waiter*> waiters;  // first come, first served
    // Blocked calls on the object, and calls about to look whether they
    // must block: a semaphore's release that finds none wakes nobody and
    // takes no lock (see sync.cpp).
    std::atomic<int> waiting{0};
    // Semaphore. The count changes without the lock on the fast paths, so
    // it changes by compare-and-swap everywhere; the maximum is fixed.
    std::atomic<LONG> count{0};
    LONG maximum = 0;
    // Event; for a thread, "has ended".
    bool manualReset = false;
    bool signalled = false;
    // Mutex.
    ThreadRecord* owner = nullptr;
    uint32_t recursion = 0;
    // Thread.
    ThreadRecord* thread = nullptr;
    DWORD threadId = 0;
    DWORD exitCode = 0x103;  // STILL_ACTIVE
    DWORD suspendCount = 0;
    int priority = 0;

    explicit KernelObject(ObjectKind k) : kind(k) {}
};

// The platform's state (this kernel, the registry, the spooler's tables, the
// loaded libraries) is made on first use and never destroyed: a process's
// static destructors run while threads may still be running, and nothing of
// the machine may go from under them. EndThreads (thread.h) ends the threads
// themselves when the process ends.
class Kernel {
public:
    static Kernel& Get();

    std::mutex mutex;

    // The calling thread's record, made on its first call. Lock held.
    ThreadRecord* CurrentThread();
    // Milliseconds on the clock in use; ticks are its low 32 bits.
    uint64_t Now() const;
    // The one place a time-out becomes a deadline: INFINITE has none.
    uint64_t DeadlineAfter(DWORD milliseconds) const;

    // Blocks the calling thread in `waiter` until it is done. Lock held.
    void Block(std::unique_lock<std::mutex>& lock, Waiter& waiter);
    // Ends a blocked call with `result` and lets its thread run. Lock held.
    void Complete(Waiter& waiter, DWORD result);

    // Objects: taking one if it is signalled, waking the waiters a change
    // lets through. A semaphore is taken without the lock as well, so its
    // test and its take are one step.
    static bool TryAcquire(KernelObject* object, ThreadRecord* thread);
    static bool TryTakeSemaphore(KernelObject* object);
    void WakeWaiters(KernelObject* object);
    void Unpin(KernelObject* object);
    void CloseObject(KernelObject* object);
    // Whether `object` is one that NewObject made and that still lives. A
    // handle is looked up, never read through: a caller may pass anything.
    // Lock held.
    static bool IsLive(const KernelObject* object);
    // The object behind a handle of the given kind, or null with the last
    // error ERROR_INVALID_HANDLE: the one check of every call that takes one.
    static KernelObject* ObjectOf(HANDLE handle, ObjectKind kind);
    // A new object with one handle, counted as live. Lock held.
    KernelObject* NewObject(ObjectKind kind);

    // The fast check of a handle, without the lock: whether `object` is the
    // one this thread last found live (NoteChecked) and no object has been
    // destroyed since. A handle closed while another thread still uses it
    // is the caller's fault, as it is on Windows.
    static bool CheckedBefore(const KernelObject* object);
    // Notes `object`, just found live under the lock, for CheckedBefore.
    static void NoteChecked(const KernelObject* object);

    // Named objects, one table for the process.
    std::unordered_map<std::string, KernelObject*> names;
    // Every object not yet destroyed: a handle is looked up here, never read
    // through, so a stale or made-up handle is refused, not followed.
    std::unordered_set<const KernelObject*> live;

    // Threads.
    ThreadRecord* AddThread();
    // Makes `record` the calling thread's own: the start of a made thread.
    static void AdoptThread(ThreadRecord* record);
    void ThreadStarted() { ++running_; }
    void ThreadEnded(ThreadRecord* thread, DWORD exitCode);
    DWORD NextThreadId() { return nextThreadId_++; }
    void ResumeLocked(ThreadRecord* thread);
    std::size_t ThreadCount() const { return threads_.size(); }
    // The system threads of made threads that have ended, handed over to be
    // joined outside the lock. Lock held.
    std::vector<std::thread> TakeEndedWorkers() { return std::exchange(endedWorkers_, {}); }

    // Winding down: from now on every wait and sleep with a time-out ends at
    // once, the waits already blocked included, so that threads reach their
    // ends; then waits up to `boundMs` of real time for every made thread
    // but the caller to end. Returns those still running, each described.
    // Lock held.
    std::vector<std::string> EndMadeThreads(std::unique_lock<std::mutex>& lock, DWORD boundMs);

    void UseVirtualClock(uint64_t start);
    void UseRealClock();
    bool virtualClock() const { return virtual_.load(); }

private:
    Kernel();
    // With every managed thread blocked, moves virtual time to the earliest
    // deadline and ends the calls that were waiting for it.
    void AdvanceIfIdle();
    [[noreturn]] void ReportDeadlock();


    std::size_t MadeThreadsRunning() const;
    static std::string Describe(const ThreadRecord* thread);

    bool windingDown_ = false;
    std::condition_variable threadEnded_;
    std::vector<std::thread> endedWorkers_;
    std::atomic<bool> virtual_{false};
    std::atomic<uint64_t> virtualNow_{0};
    // Objects destroyed so far: a change tells CheckedBefore that a handle
    // found live before may be gone.
    std::atomic<uint64_t> destroyed_{0};
    void Destroy(KernelObject* object);
    std::vector<ThreadRecord*> threads_;
    int running_ = 0;  // managed threads that can run, woken ones included
    DWORD nextThreadId_ = 1000;
};

}  // namespace langmon::platform
