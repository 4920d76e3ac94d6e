#include "platform/kernel.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace langmon::platform {

namespace {

// In the static TLS block, as the last error is: every wait reads it.
[[gnu::tls_model("initial-exec")]] thread_local ThreadRecord* currentRecord = nullptr;

// The object this thread last found live under the lock, and the count of
// destroyed objects then.
struct CheckedObject {
    const KernelObject* object = nullptr;
    uint64_t destroyed = 0;
};
[[gnu::tls_model("initial-exec")]] thread_local CheckedObject lastChecked;

// A thread that the platform did not make becomes managed at its first call and
// stops being managed when it ends, through this holder's destructor.
struct ForeignThreadHolder {
    ThreadRecord* record = nullptr;
    ~ForeignThreadHolder() {
        if (record != nullptr) {
            Kernel& kernel = Kernel::Get();
            std::lock_guard lock(kernel.mutex);
            kernel.ThreadEnded(record, 0);
            currentRecord = nullptr;
        }
    }
};
thread_local ForeignThreadHolder foreignHolder;

uint64_t SteadyMilliseconds() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

const char* KindName(ObjectKind kind) {
    switch (kind) {
        case ObjectKind::Semaphore: return "semaphore";
        case ObjectKind::Event: return "event";
        case ObjectKind::Mutex: return "mutex";
        case ObjectKind::Thread: return "thread";
    }
    return "object";
}

DWORD IndexOf(const Waiter& waiter, const KernelObject* object) {
    for (DWORD i = 0; i < waiter.count; ++i) {
        if (waiter.objects[i] == object) {
            return i;
        }
    }
    return 0;
}

}  // namespace

Kernel::Kernel() = default;

Kernel& Kernel::Get() {
    // Never destroyed: threads may still end while the process exits.
    static Kernel* kernel = new Kernel();
    return *kernel;
}

ThreadRecord* Kernel::CurrentThread() {
    if (currentRecord == nullptr) {
        currentRecord = AddThread();
        ThreadStarted();
        foreignHolder.record = currentRecord;
    }
    return currentRecord;
}

void Kernel::AdoptThread(ThreadRecord* record) { currentRecord = record; }

ThreadRecord* Kernel::AddThread() {
    auto* record = new ThreadRecord();
    record->id = NextThreadId();
    threads_.push_back(record);
    return record;
}

void Kernel::ThreadEnded(ThreadRecord* thread, DWORD exitCode) {
    if (KernelObject* object = thread->object; object != nullptr) {
        object->exitCode = exitCode;
        object->signalled = true;
        object->thread = nullptr;
        WakeWaiters(object);
        CloseObject(object);  // the thread's own reference
    }
    threads_.erase(std::find(threads_.begin(), threads_.end(), thread));
    --running_;
    if (thread->worker.joinable()) {
        endedWorkers_.push_back(std::move(thread->worker));
    }
    delete thread;
    threadEnded_.notify_all();
    AdvanceIfIdle();
}

void Kernel::ResumeLocked(ThreadRecord* thread) {
    thread->suspended = false;
    ++running_;
    thread->resumed.notify_one();
}

uint64_t Kernel::Now() const {
    return virtual_.load() ? virtualNow_.load() : SteadyMilliseconds();
}

uint64_t Kernel::DeadlineAfter(DWORD milliseconds) const {
    return milliseconds == INFINITE ? NoDeadline : Now() + milliseconds;
}

void Kernel::Block(std::unique_lock<std::mutex>& lock, Waiter& waiter) {
    ThreadRecord* self = waiter.thread;
    self->waiting = &waiter;
    --running_;
    if (windingDown_ && waiter.deadline != NoDeadline) {
        Complete(waiter, WAIT_TIMEOUT);
    }
    AdvanceIfIdle();
    while (!waiter.done) {
        if (virtual_.load() || waiter.deadline == NoDeadline) {
            waiter.wake.wait(lock);
            continue;
        }
        const auto until = std::chrono::steady_clock::time_point(
            std::chrono::milliseconds(static_cast<int64_t>(waiter.deadline)));
        if (waiter.wake.wait_until(lock, until) == std::cv_status::timeout && !waiter.done &&
            Now() >= waiter.deadline) {
            Complete(waiter, WAIT_TIMEOUT);
        }
    }
    self->waiting = nullptr;
}

void Kernel::Complete(Waiter& waiter, DWORD result) {
    waiter.done = true;
    waiter.result = result;
    for (DWORD i = 0; i < waiter.count; ++i) {
        auto& list = waiter.objects[i]->waiters;
        list.erase(std::remove(list.begin(), list.end(), &waiter), list.end());
        waiter.objects[i]->waiting.fetch_sub(1);
    }
    // A woken thread counts as running from this moment, before it runs: the
    // clock must not move on while it has work to do.
    ++running_;
    waiter.wake.notify_one();
}

void Kernel::AdvanceIfIdle() {
    if (!virtual_.load() || running_ > 0 || threads_.empty()) {
        return;
    }
    uint64_t earliest = NoDeadline;
    for (const ThreadRecord* thread : threads_) {
        if (thread->waiting != nullptr && !thread->waiting->done) {
            earliest = std::min(earliest, thread->waiting->deadline);
        }
    }
    if (earliest == NoDeadline) {
        ReportDeadlock();
    }
    if (earliest > virtualNow_.load()) {
        virtualNow_ = earliest;
    }
    const uint64_t now = virtualNow_.load();
    for (ThreadRecord* thread : threads_) {
        Waiter* waiter = thread->waiting;
        if (waiter != nullptr && !waiter->done && waiter->deadline <= now) {
            Complete(*waiter, WAIT_TIMEOUT);
        }
    }
}

std::string Kernel::Describe(const ThreadRecord* thread) {
    std::string text = "thread " + std::to_string(thread->id) + ": ";
    if (thread->suspended) {
        return text + "suspended, never resumed";
    }
    const Waiter* waiter = thread->waiting;
    if (waiter == nullptr) {
        return text + "runs";
    }
    if (waiter->count == 0) {
        return text + (waiter->deadline == NoDeadline ? "sleeps for ever" : "sleeps");
    }
    text += "waits on";
    for (DWORD i = 0; i < waiter->count; ++i) {
        const KernelObject* object = waiter->objects[i];
        text += std::string(" ") + KindName(object->kind);
        if (!object->name.empty()) {
            text += " \"" + object->name + "\"";
        }
    }
    return text;
}

void Kernel::ReportDeadlock() {
    std::fprintf(stderr,
                 "langmon platform: deadlock on the virtual clock at tick %llu: every managed "
                 "thread waits with no deadline\n",
                 static_cast<unsigned long long>(virtualNow_.load()));
    for (const ThreadRecord* thread : threads_) {
        std::fprintf(stderr, "  %s\n", Describe(thread).c_str());
    }
    std::fflush(stderr);
    std::abort();
}

std::size_t Kernel::MadeThreadsRunning() const {
    return static_cast<std::size_t>(std::count_if(threads_.begin(), threads_.end(), [](const ThreadRecord* thread) {
        return thread->made && thread != currentRecord;
    }));
}

std::vector<std::string> Kernel::EndMadeThreads(std::unique_lock<std::mutex>& lock, DWORD boundMs) {
    windingDown_ = true;
    for (ThreadRecord* thread : threads_) {
        Waiter* waiter = thread->waiting;
        if (waiter != nullptr && !waiter->done && waiter->deadline != NoDeadline) {
            Complete(*waiter, WAIT_TIMEOUT);
        }
    }
    threadEnded_.wait_for(lock, std::chrono::milliseconds(boundMs), [this] { return MadeThreadsRunning() == 0; });
    std::vector<std::string> abandoned;
    for (ThreadRecord* thread : threads_) {
        if (thread->made && thread != currentRecord) {
            abandoned.push_back(Describe(thread));
            // It may still end on its own; nobody will wait for it.
            thread->made = false;
            if (thread->worker.joinable()) {
                thread->worker.detach();
            }
        }
    }
    windingDown_ = false;
    return abandoned;
}

bool Kernel::TryTakeSemaphore(KernelObject* object) {
    LONG count = object->count.load();
    while (count > 0) {
        if (object->count.compare_exchange_weak(count, count - 1)) return true;
    }
    return false;
}

bool Kernel::TryAcquire(KernelObject* object, ThreadRecord* thread) {
    switch (object->kind) {
        case ObjectKind::Semaphore: return TryTakeSemaphore(object);
        case ObjectKind::Event:
            if (!object->signalled) return false;
            if (!object->manualReset) {
                object->signalled = false;
            }
            return true;
        case ObjectKind::Mutex:
            if (object->owner != nullptr && object->owner != thread) return false;
            object->owner = thread;
            ++object->recursion;
            return true;
        case ObjectKind::Thread: return object->signalled;
    }
    return false;
}

void Kernel::WakeWaiters(KernelObject* object) {
    if (object->waiters.empty()) {
        return;
    }
    // Complete() takes each woken call off the list, so walk a copy.
    const std::vector<Waiter*> queue = object->waiters;
    for (Waiter* waiter : queue) {
        if (waiter->done) {
            continue;
        }
        if (!TryAcquire(object, waiter->thread)) {
            break;
        }
        Complete(*waiter, WAIT_OBJECT_0 + IndexOf(*waiter, object));
    }
}

bool Kernel::IsLive(const KernelObject* object) { return Get().live.count(object) != 0; }

bool Kernel::CheckedBefore(const KernelObject* object) {
    return object != nullptr && object == lastChecked.object && lastChecked.destroyed == Get().destroyed_.load() &&
           currentRecord != nullptr;
}

void Kernel::NoteChecked(const KernelObject* object) { lastChecked = {object, Get().destroyed_.load()}; }

void Kernel::Destroy(KernelObject* object) {
    live.erase(object);
    destroyed_.fetch_add(1);
    delete object;
}

KernelObject* Kernel::ObjectOf(HANDLE handle, ObjectKind kind) {
    auto* object = static_cast<KernelObject*>(handle);
    if (!IsLive(object) || object->kind != kind) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    NoteChecked(object);
    return object;
}

KernelObject* Kernel::NewObject(ObjectKind kind) {
    auto* object = new KernelObject(kind);
    live.insert(object);
    return object;
}

void Kernel::Unpin(KernelObject* object) {
    --object->pins;
    if (object->handles == 0 && object->pins == 0) {
        Destroy(object);
    }
}

void Kernel::CloseObject(KernelObject* object) {
    --object->handles;
    if (object->handles > 0) {
        return;
    }
    if (!object->name.empty()) {
        auto named = names.find(object->name);
        if (named != names.end() && named->second == object) {
            names.erase(named);
        }
    }
    if (object->pins == 0) {
        Destroy(object);
    }
}

void Kernel::UseVirtualClock(uint64_t start) {
    virtualNow_ = start;
    virtual_ = true;
}

void Kernel::UseRealClock() { virtual_ = false; }

}  // namespace langmon::platform
