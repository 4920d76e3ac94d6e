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

void FollowMonitoring(std::ostream& out, PortContext* port, DWORD limitMs, const std::atomic<bool>& stop) {
    if (!HasPortFlag(port, PF_STATUS_ALIVE)) return;
    const DWORD start = GetTickCount();
    unsigned seen = polls.load();
    unsigned passes = 0;
    out << "  the status thread follows the job:\n" << std::flush;
    const auto reportPass = [&] {
        seen = polls.load();
        const PassView view = LookAtPort(port);
        const double at = TickAge(lastPollTick.load(), start) / 1000.0;
        out << "    poll " << ++passes << " at +" << std::fixed << std::setprecision(1) << at
            << " s: " << view.condition << "; "
            << (view.jobs == 0 ? std::string("the job has left the printer")
                               : std::to_string(view.jobs) + (view.jobs == 1 ? " job" : " jobs") +
                                     " still at the printer")
            << '\n'
            << std::flush;
    };
    while (HasPortFlag(port, PF_STATUS_ALIVE) && TickAge(GetTickCount(), start) < limitMs && !stop.load()) {
        Sleep(LookEveryMs);
        if (polls.load() == seen) continue;
        // The pass is over once its holder gives the semaphore back.
        if (WaitForSingleObject(port->serialSemaphore, SerialWaitMs) == WAIT_OBJECT_0) {
            ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
        }
        reportPass();
    }
    // The thread's last pass, if it ended before it was looked at.
    if (polls.load() != seen) reportPass();
    out << (HasPortFlag(port, PF_STATUS_ALIVE) ? "  the status thread still runs; the port closes\n"
                                               : "  the status thread has ended\n");
}

}  // namespace langmon::tool
