#include "monitoring_view.h"

#include "printer_view.h"

#include "framing/job_record.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/clock.h"
#include "platform/sync.h"
#include "variables/status_variable.h"

#include <atomic>
#include <cstring>
#include <iomanip>
#include <optional>
#include <string_view>
#include <ostream>

namespace langmon::tool {

namespace {

constexpr DWORD DeviceIdControl = 17;
constexpr DWORD LookEveryMs = 100;

std::atomic<unsigned> polls{0};
std::atomic<DWORD> lastPollTick{0};
BOOL (*countedEntry)(HANDLE, DWORD, LPSTR, LPSTR, DWORD, LPSTR, DWORD, LPDWORD) = nullptr;

BOOL CountingEntry(HANDLE port, DWORD controlId, LPSTR valueName, LPSTR in, DWORD inSize, LPSTR out,
                   DWORD outSize, LPDWORD returned) {
    if (controlId == DeviceIdControl) {
        lastPollTick.store(GetTickCount());
        polls.fetch_add(1);
    }
    return countedEntry(port, controlId, valueName, in, inSize, out, outSize, returned);
}

struct PassView {
    std::string condition;
    bool stopped = false;
    unsigned jobs = 0;
};

PassView LookAtPort(PortContext* port) {
    PassView view;
    LockPort(port);
    const StatusVariable* row = FindVariable("PrinterStatus", port->variables, port);
    if (row != nullptr && row->Value != nullptr) {
        uint32_t words[3];
        std::memcpy(words, row->Value, sizeof words);
        view.condition = PrinterStatusText(words[1], words[2]);
        view.stopped = StopsPrinting(words[1], words[2]);
    }
    for (const JobRecord* job = port->jobListHead; job != nullptr; job = job->Next) ++view.jobs;
    UnlockPort(port);
    return view;
}

}  // namespace

void CountPolls(MONITOR* lower) {
    if (lower->GetPrinterDataFromPort == nullptr) return;
    countedEntry = lower->GetPrinterDataFromPort;
    lower->GetPrinterDataFromPort = CountingEntry;
}

std::string StoppingCondition(PortContext* port) {
    const PassView view = LookAtPort(port);
    if (!view.stopped) return "";
    // Said as "the printer has stopped (...)": the severity goes without
    // saying, and the printer is named already.
    std::string condition = view.condition;
    constexpr std::string_view Error = " (error)";
    if (condition.ends_with(Error)) condition.resize(condition.size() - Error.size());
    constexpr std::string_view ThePrinter = "the printer ";
    if (condition.starts_with(ThePrinter)) condition.replace(0, ThePrinter.size(), "it ");
    return condition;
}

FollowStart FollowFromNow() { return FollowStart{polls.load(), GetTickCount()}; }

FollowOutcome FollowMonitoring(std::ostream& out, PortContext* port, FollowStart from, DWORD limitMs, DWORD stoppedLimitMs,
                               const std::atomic<bool>& stop, ProgressLine& progress,
                               const std::function<std::string()>& jobNow) {
    FollowOutcome outcome;
    if (!HasPortFlag(port, PF_STATUS_ALIVE)) return outcome;
    const DWORD start = from.tick;
    unsigned seen = from.polls;
    unsigned passes = 0;
    // Since when the printer has stood stopped with the job at it, and with
    // what the client last heard of the job then: a page printed is going on.
    std::optional<DWORD> stoppedSince;
    std::optional<std::string> jobThen;
    std::string announced;  // what stops the printer, as last said
    out << "  the status thread follows the job:\n" << std::flush;
    // Whether the printer stands stopped with the job at it, judged from the
    // variables as they stand, between polls too: the job's start found it
    // so already.
    const auto judge = [&](const std::string& job) {
        const bool jobGoesOn = jobThen && job != *jobThen;
        jobThen = job;
        const std::string stoppedBy = StoppingCondition(port);
        if (stoppedBy.empty() || !JobsTracked(port) || jobGoesOn) {
            stoppedSince.reset();
            return;
        }
        if (stoppedSince) return;
        stoppedSince = GetTickCount();
        // Said once for each thing that stops it, not again after each page.
        if (announced == stoppedBy) return;
        announced = stoppedBy;
        progress.Clear();
        out << "  the printer has stopped (" << stoppedBy << "); waiting up to " << stoppedLimitMs / 1000
            << " s for it to go on with the job\n"
            << std::flush;
    };
    const auto reportPass = [&] {
        seen = polls.load();
        const PassView view = LookAtPort(port);
        const std::string job = jobNow ? jobNow() : "";
        const double at = TickAge(lastPollTick.load(), start) / 1000.0;
        progress.Clear();
        out << "    poll " << ++passes << " at +" << std::fixed << std::setprecision(1) << at
            << " s: " << view.condition << "; "
            << (view.jobs == 0 ? std::string("the job has left the printer")
                               : std::to_string(view.jobs) + (view.jobs == 1 ? " job" : " jobs") +
                                     " still at the printer")
            << (job.empty() ? "" : " (" + job + ")") << '\n'
            << std::flush;
    };
    const auto stoppedTooLong = [&] {
        return stoppedSince && TickAge(GetTickCount(), *stoppedSince) >= stoppedLimitMs;
    };
    while (HasPortFlag(port, PF_STATUS_ALIVE) && TickAge(GetTickCount(), start) < limitMs && !stop.load()) {
        const std::string job = jobNow ? jobNow() : "";
        judge(job);
        if (stoppedTooLong()) break;
        Sleep(LookEveryMs);
        if (!job.empty()) progress.Show("    " + job);
        if (polls.load() == seen) continue;
        // The pass is over once its holder gives the semaphore back.
        if (WaitForSingleObject(port->serialSemaphore, SerialWaitMs) == WAIT_OBJECT_0) {
            ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
        }
        reportPass();
    }
    // The thread's last pass, if it ended before it was looked at.
    if (polls.load() != seen && !stoppedTooLong()) reportPass();
    progress.Clear();
    if (stoppedTooLong()) {
        outcome.stoppedBy = announced;
        out << "  the printer has stood stopped for " << stoppedLimitMs / 1000 << " s; the job stays at it\n";
        return outcome;
    }
    out << (HasPortFlag(port, PF_STATUS_ALIVE) ? "  the status thread still runs; the port closes\n"
                                               : "  the status thread has ended\n");
    return outcome;
}

}  // namespace langmon::tool
