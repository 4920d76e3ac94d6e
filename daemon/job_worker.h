// One job at one of the daemon's printers, sent on a thread of its own the
// way the spooler sends it (StartDocPort, WritePort until each chunk is
// taken, EndDocPort), so that the control loop never waits on a printer. The
// loop hands it one chunk at a time and learns, through a wake-up and
// TakeOutcome, when the printer has taken it; after the job's end the worker
// follows the printer's report of it as a status client, for its pages.
#pragma once

#include <langmon/monitor.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace langmon::daemon {

// How long the worker follows the printer's report of the job's end after
// EndDocPort, as ClosePort would wait for it: a printer still printing
// pages, or held by a jam a person clears, reports it late.
inline constexpr auto JobEndLimit = std::chrono::seconds(120);

// What the worker tells the loop, one step at a time.
struct JobOutcome {
    enum class Step {
        Started,  // StartDocPort returned: `ok`, or `words` say why not (the job is over)
        Taken,    // the chunk handed over was taken (`ok`), or the job was cut short
        Ended,    // the job ended at the printer; `pages` from its report, if it came
    };
    Step step = Step::Started;
    bool ok = true;
    std::string words;
    std::optional<uint32_t> pages;
    uint64_t taken = 0;  // the job's bytes the printer took so far
};

class JobWorker {
public:
    struct Ticket {
        DWORD id = 0;
        std::string printer;  // the monitor's printer: the daemon's name for it
        std::string document;
        std::string user;
    };
    // Starts the job on `port`, open on `monitor`; `wake` is called (on the
    // worker's thread) whenever an outcome is ready.
    JobWorker(const MONITOR& monitor, HANDLE port, Ticket ticket, std::function<void()> wake);
    // Cancels what is left and joins: the job is always ended at the printer.
    ~JobWorker();
    JobWorker(const JobWorker&) = delete;
    JobWorker& operator=(const JobWorker&) = delete;

    // The next chunk; one at a time: the next only after its Taken outcome.
    void Write(std::vector<uint8_t> bytes);
    // No more chunks: EndDocPort, then the printer's report of the end.
    void End();
    // Stops writing at once and ends the job at the printer; the worker
    // then waits for nothing more. A chunk being written is answered as
    // not taken.
    void Cancel();

    // The outcomes that are ready, oldest first.
    std::vector<JobOutcome> TakeOutcomes();
    // True once the thread has done everything it will do.
    bool Finished() const;
    DWORD Id() const { return ticket_.id; }
    const std::string& Printer() const { return ticket_.printer; }

private:
    void Run();
    bool SendChunk(const std::vector<uint8_t>& bytes);
    void Tell(JobOutcome outcome, bool last = false);
    // Waits up to `pause` unless cancelled; false once cancelled.
    bool Pause(std::chrono::milliseconds pause);

    const MONITOR& monitor_;
    HANDLE port_;
    const Ticket ticket_;
    std::function<void()> wake_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<std::vector<uint8_t>> chunk_;
    bool ending_ = false;
    bool cancelled_ = false;
    bool finished_ = false;
    uint64_t taken_ = 0;
    std::vector<JobOutcome> outcomes_;
    std::thread thread_;  // last: starts once the rest stands
};

}  // namespace langmon::daemon
