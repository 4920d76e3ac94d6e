#include "job_worker.h"

#include "langmon/error_words.h"
#include "langmon/job_progress_view.h"

#include "platform/spooler_jobs.h"

#include <algorithm>

namespace langmon::daemon {

namespace {

// A call that moved nothing is made again after this pause, as a spooler
// waits before it tries a port again; one that failed after a longer one:
// the printer is off or gone, and each try may take a connection's time-out.
// The worker is as patient as its client: the client decides when to give
// up, by cancelling or by going away.
constexpr auto FruitlessCallPause = std::chrono::milliseconds(100);
constexpr auto FailedCallPause = std::chrono::milliseconds(2000);
// How often the printer's report of the job's end is looked for.
constexpr auto ReportLookEvery = std::chrono::milliseconds(100);

}  // namespace

JobWorker::JobWorker(const MONITOR& monitor, HANDLE port, Ticket ticket, std::function<void()> wake)
    : monitor_(monitor),
      port_(port),
      ticket_(std::move(ticket)),
      wake_(std::move(wake)),
      thread_([this] { Run(); }) {}

JobWorker::~JobWorker() {
    Cancel();
    if (thread_.joinable()) thread_.join();
}

void JobWorker::Write(std::vector<uint8_t> bytes) {
    {
        std::lock_guard hold(mutex_);
        chunk_ = std::move(bytes);
    }
    changed_.notify_all();
}

void JobWorker::End() {
    {
        std::lock_guard hold(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
}

void JobWorker::Cancel() {
    {
        std::lock_guard hold(mutex_);
        cancelled_ = true;
    }
    changed_.notify_all();
}

std::vector<JobOutcome> JobWorker::TakeOutcomes() {
    std::lock_guard hold(mutex_);
    std::vector<JobOutcome> taken;
    taken.swap(outcomes_);
    return taken;
}

bool JobWorker::Finished() const {
    std::lock_guard hold(mutex_);
    return finished_;
}

void JobWorker::Tell(JobOutcome outcome, bool last) {
    {
        std::lock_guard hold(mutex_);
        outcome.taken = taken_;
        outcomes_.push_back(std::move(outcome));
        // With its last outcome the worker is finished at once, so that the
        // loop that reads the outcome also sees the printer free.
        if (last) finished_ = true;
    }
    wake_();
}

bool JobWorker::Pause(std::chrono::milliseconds pause) {
    std::unique_lock hold(mutex_);
    return !changed_.wait_for(hold, pause, [this] { return cancelled_; });
}

bool JobWorker::SendChunk(const std::vector<uint8_t>& bytes) {
    std::vector<uint8_t> rest = bytes;  // the monitor's entries take writable bytes
    std::size_t done = 0;
    while (done < rest.size()) {
        {
            std::lock_guard hold(mutex_);
            if (cancelled_) return false;
        }
        DWORD written = 0;
        const auto left = static_cast<DWORD>(rest.size() - done);
        if (!monitor_.WritePort(port_, rest.data() + done, left, &written)) {
            if (!Pause(FailedCallPause)) return false;
            continue;
        }
        // The spooler calls again with what was not taken.
        done += std::min(written, left);
        {
            std::lock_guard hold(mutex_);
            taken_ += std::min(written, left);
        }
        if (written == 0 && !Pause(FruitlessCallPause)) return false;
    }
    return true;
}

void JobWorker::Run() {
    // The client's view of the job is followed from before the job starts,
    // so that the printer's report of its end is not missed.
    tool::JobProgressWatch progress(ticket_.printer);
    // The monitor's entries take writable texts, as the spooler's do; the
    // job stands in the printer's queue while it is sent, so that the
    // monitor finds it there by its number.
    std::vector<char> printerText(ticket_.printer.begin(), ticket_.printer.end());
    printerText.push_back('\0');
    std::vector<char> name(ticket_.document.begin(), ticket_.document.end());
    name.push_back('\0');
    char datatype[] = "RAW";
    platform::SpoolerJob queued;
    queued.jobId = ticket_.id;
    queued.document = ticket_.document;
    queued.userName = ticket_.user;
    platform::SubmitJob(ticket_.printer, queued);
    DOC_INFO_1 docInfo{name.data(), nullptr, datatype};
    if (!monitor_.StartDocPort(port_, printerText.data(), ticket_.id, 1,
                               reinterpret_cast<LPBYTE>(&docInfo))) {
        const DWORD error = GetLastError();
        platform::RemoveJob(ticket_.printer, ticket_.id);
        Tell({JobOutcome::Step::Started, false, "StartDocPort failed: " + tool::ErrorWords(error), std::nullopt},
             true);
        return;
    }
    Tell({JobOutcome::Step::Started, true, "", std::nullopt});

    bool ending = false;
    while (true) {
        std::optional<std::vector<uint8_t>> chunk;
        {
            std::unique_lock hold(mutex_);
            changed_.wait(hold, [this] { return cancelled_ || ending_ || chunk_.has_value(); });
            if (cancelled_) break;
            chunk.swap(chunk_);
            ending = !chunk && ending_;
        }
        if (ending) break;
        const bool taken = SendChunk(*chunk);
        Tell({JobOutcome::Step::Taken, taken, taken ? "" : "the job was cancelled", std::nullopt});
        if (!taken) break;
    }
    // The job always ends at the printer, cut short or whole, so that the
    // port is never left inside a job.
    const BOOL endedAtPort = monitor_.EndDocPort(port_);
    const DWORD endError = endedAtPort ? 0 : GetLastError();
    platform::RemoveJob(ticket_.printer, ticket_.id);
    JobOutcome ended{JobOutcome::Step::Ended, endedAtPort != FALSE,
                     endedAtPort ? "" : "EndDocPort failed: " + tool::ErrorWords(endError),
                     std::nullopt};
    if (ending && endedAtPort) {
        const auto until = std::chrono::steady_clock::now() + JobEndLimit;
        while (!(ended.pages = tool::JobEndPages(progress.Records(), ticket_.id)) &&
               std::chrono::steady_clock::now() < until && Pause(ReportLookEvery)) {
        }
    }
    Tell(std::move(ended), true);
}

}  // namespace langmon::daemon
