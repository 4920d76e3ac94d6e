// What a host with many printers pays for each: N ports opened through the
// monitor's C edge on a machine of N printer queues, as langmond opens them
// (a queue of the family's driver with its status key on each port, so that
// every port has a bound status client), each with a printer below that
// answers its polls at once, and "Wake Up" asked on each. Then, with nothing
// printing, the process's CPU time, the polls each port gets, its resident
// memory and its threads, per port; and the time to wake all and to close
// all. Each N runs in a process of its own, so that one's threads and heap
// do not count toward the next.
//
// This runs on the real clock for about a minute per size: what is measured
// is the cost of time passing.
//
//   scale_bench [--ports 10,100,500,1000] [--idle-seconds 16]

#include "langmon/own_stores.h"
#include "langmon/port_value_request.h"
#include "langmon/printer_target.h"

#include "run_summary.h"
#include "sink_port_monitor.h"

#include <langmon/monitor.h>

#include "platform/registry.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace langmon::bench {

namespace {

using Clock = std::chrono::steady_clock;

// The spacing of status threads' starts the bench machine configures: the
// monitor starts one thread at a time, this far apart.
constexpr DWORD ThreadStartSpacingMs = 10;
// A status thread polls about every 4 s when idle.
constexpr double IdlePollsPerSecond = 0.25;

// Goals.
constexpr double MostIdleCpuPercentPerPort = 0.01;
constexpr double MostKilobytesPerPort = 100;
// Within noise: the most the idle CPU per port at the largest size may be
// against the smallest, and a floor under which differences are noise.
constexpr double FlatRatio = 1.5;
constexpr double NoiseCpuPercentPerPort = 0.002;

// ---------------------------------------------------------------- the printers

// One printer below a port: it answers every device ID request at once with
// the same ready printer, and counts them.
struct AnsweringPrinter {
    std::atomic<uint64_t> polls{0};
};

std::vector<std::unique_ptr<AnsweringPrinter>>* printers = nullptr;

// The answering port monitor of the other benchmarks, with a handle of its
// own for each printer, whose polls are counted before they are answered.
MONITOR answering{};

BOOL OpenPrinterPort(LPSTR name, PHANDLE handle) {
    // "LPTn:": the n-th printer.
    const unsigned long number = std::strtoul(name + 3, nullptr, 10);
    if (number == 0 || number > printers->size()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    *handle = (*printers)[number - 1].get();
    return TRUE;
}
BOOL AnswerPoll(HANDLE handle, DWORD controlId, LPSTR valueName, LPSTR out, DWORD inSize, LPSTR answer,
                DWORD outSize, LPDWORD returned) {
    static_cast<AnsweringPrinter*>(handle)->polls.fetch_add(1, std::memory_order_relaxed);
    return answering.GetPrinterDataFromPort(handle, controlId, valueName, out, inSize, answer, outSize, returned);
}

MONITOR PrinterTable() {
    answering = SinkTable();
    MONITOR table = answering;
    table.OpenPort = OpenPrinterPort;
    table.GetPrinterDataFromPort = AnswerPoll;
    return table;
}

// ---------------------------------------------------------------- the process

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double ResidentKilobytes() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024.0;
}

int Threads() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("Threads:", 0) == 0) return std::atoi(line.c_str() + 8);
    }
    return 0;
}

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

uint64_t TotalPolls() {
    uint64_t total = 0;
    for (const auto& printer : *printers) total += printer->polls.load(std::memory_order_relaxed);
    return total;
}

std::size_t PrintersPolled() {
    std::size_t polled = 0;
    for (const auto& printer : *printers) polled += printer->polls.load(std::memory_order_relaxed) != 0;
    return polled;
}

// What one size measured.
struct Result {
    int ports = 0;
    double wakeSeconds = 0;    // opening and waking all, until every printer was polled
    double wakeCpuSeconds = 0;
    double idleCpuPercentPerPort = 0;  // of one core
    double pollsPerPortPerSecond = 0;
    double kilobytesPerPort = 0;
    double threadsPerPort = 0;
    double closeSeconds = 0;
    double closeCpuSeconds = 0;
    bool complete = false;
};

// Runs one size in this process.
Result Measure(int ports, double idleSeconds) {
    Result result;
    result.ports = ports;
    std::vector<std::unique_ptr<AnsweringPrinter>> made;
    for (int i = 0; i < ports; ++i) made.push_back(std::make_unique<AnsweringPrinter>());
    printers = &made;

    // The monitor reads the machine as it starts; the spacing is set after.
    MONITOR monitor{};
    if (!InitializeMonitorEx(nullptr, &monitor)) return result;
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quor\\Status Monitor", "CreateThreadInterval",
                               ThreadStartSpacingMs);
    MONITOR lower = PrinterTable();
    std::vector<std::string> portNames;
    for (int i = 1; i <= ports; ++i) {
        portNames.push_back("LPT" + std::to_string(i) + ":");
        tool::AddStandInQueue(portNames.back(), "Laser Printer 6200tx", "Printer " + std::to_string(i),
                              tool::QueueLanguage::PostScript);
    }
    const int threadsBefore = Threads();
    double kilobytesBefore = 0;

    const Clock::time_point wakeStart = Clock::now();
    const double wakeCpuStart = CpuSeconds();
    std::vector<HANDLE> handles(ports, nullptr);
    for (int i = 0; i < ports; ++i) {
        std::string printer = "Printer " + std::to_string(i + 1);
        if (!monitor.OpenPortEx(portNames[i].data(), printer.data(), &handles[i], &lower)) {
            std::fprintf(stderr, "scale_bench: %s would not open (error %u)\n", portNames[i].c_str(), GetLastError());
            return result;
        }
        tool::AskPortValue(monitor, handles[i], "Wake Up");
        if (i == 0) {
            // The first port loads the status manager library, once for
            // all: the memory per port is that of the others.
            while ((*printers)[0]->polls.load() == 0 && SecondsSince(wakeStart) < 10) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            kilobytesBefore = ResidentKilobytes();
        }
    }
    const double wakeLimit = 30 + ports * ThreadStartSpacingMs / 100.0;
    while (PrintersPolled() < static_cast<std::size_t>(ports) && SecondsSince(wakeStart) < wakeLimit) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    result.wakeSeconds = SecondsSince(wakeStart);
    result.wakeCpuSeconds = CpuSeconds() - wakeCpuStart;
    result.complete = PrintersPolled() == static_cast<std::size_t>(ports);

    // Idle: every thread has started and polled; a few passes of each.
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const uint64_t pollsStart = TotalPolls();
    const double idleCpuStart = CpuSeconds();
    const Clock::time_point idleStart = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(idleSeconds));
    const double idleWall = SecondsSince(idleStart);
    result.idleCpuPercentPerPort = (CpuSeconds() - idleCpuStart) / idleWall * 100.0 / ports;
    result.pollsPerPortPerSecond = static_cast<double>(TotalPolls() - pollsStart) / idleWall / ports;
    result.kilobytesPerPort = (ResidentKilobytes() - kilobytesBefore) / std::max(ports - 1, 1);
    result.threadsPerPort = static_cast<double>(Threads() - threadsBefore) / ports;

    // Closed as the daemon lets a printer go: its thread told to stop
    // polling, then the port closed.
    const Clock::time_point closeStart = Clock::now();
    const double closeCpuStart = CpuSeconds();
    for (HANDLE handle : handles) tool::AskPortValue(monitor, handle, "Stop Polling");
    for (HANDLE handle : handles) monitor.ClosePort(handle);
    result.closeSeconds = SecondsSince(closeStart);
    result.closeCpuSeconds = CpuSeconds() - closeCpuStart;
    return result;
}

// Runs one size in a child process; its result, or one not complete.
Result MeasureApart(int ports, double idleSeconds) {
    int pipeEnds[2];
    Result result;
    result.ports = ports;
    if (pipe(pipeEnds) != 0) return result;
    const pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        const Result measured = Measure(ports, idleSeconds);
        [[maybe_unused]] const ssize_t written = write(pipeEnds[1], &measured, sizeof measured);
        // The monitor's threads are ended; leave without running destructors
        // that other threads of the library might still reach.
        _exit(0);
    }
    close(pipeEnds[1]);
    if (read(pipeEnds[0], &result, sizeof result) != static_cast<ssize_t>(sizeof result)) result.complete = false;
    close(pipeEnds[0]);
    waitpid(child, nullptr, 0);
    return result;
}

std::vector<int> ParseSizes(const std::string& text) {
    std::vector<int> sizes;
    std::istringstream parts(text);
    std::string part;
    while (std::getline(parts, part, ',')) {
        const int size = std::atoi(part.c_str());
        if (size > 0 && size <= 9999) sizes.push_back(size);
    }
    return sizes;
}

std::string Figure(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

}  // namespace langmon::bench

int main(int argc, char** argv) {
    using namespace langmon;
    using namespace langmon::bench;
    std::vector<int> sizes = {10, 100, 500, 1000};
    double idleSeconds = 16;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--ports" && i + 1 < argc) {
            sizes = ParseSizes(argv[++i]);
        } else if (word == "--idle-seconds" && i + 1 < argc) {
            idleSeconds = std::atof(argv[++i]);
        } else if (word.rfind("--benchmark", 0) == 0) {
            // scripts/bench hands every program the same arguments.
        } else {
            std::fprintf(stderr, "usage: scale_bench [--ports 10,100,500,1000] [--idle-seconds 16]\n");
            return 2;
        }
    }
    if (sizes.empty() || idleSeconds < 1) {
        std::fprintf(stderr, "scale_bench: no sizes to run, or an idle time under a second\n");
        return 2;
    }
    // The monitor of this process keeps its stores its own, and finds
    // libkvtrm.so beside the build's programs.
    tool::KeepStatusStoresOwn();
    setenv("LANGMON_LIBRARY_PATH", LANGMON_BUILD_DIR, 0);

    std::printf("%6s %9s %9s %12s %10s %9s %8s %9s %9s\n", "ports", "wake s", "wake cpu", "idle %/port",
                "polls/s", "KB/port", "threads", "close s", "close cpu");
    std::vector<Result> results;
    for (const int ports : sizes) {
        const Result r = MeasureApart(ports, idleSeconds);
        results.push_back(r);
        std::printf("%6d %9.2f %9.2f %12.4f %10.3f %9.1f %8.2f %9.2f %9.2f%s\n", r.ports, r.wakeSeconds,
                    r.wakeCpuSeconds, r.idleCpuPercentPerPort, r.pollsPerPortPerSecond, r.kilobytesPerPort,
                    r.threadsPerPort, r.closeSeconds, r.closeCpuSeconds, r.complete ? "" : "  (not every port polled)");
        std::fflush(stdout);
    }

    for (const Result& r : results) {
        const std::string at = " at " + std::to_string(r.ports) + " ports";
        ReportGoal("idle CPU per port at most " + Figure("%.2f", MostIdleCpuPercentPerPort) + "% of a core" + at,
                   Figure("%.4f%%", r.idleCpuPercentPerPort), r.complete && r.idleCpuPercentPerPort <= MostIdleCpuPercentPerPort);
        ReportGoal("a poll about every 4 s idle (0.225 to 0.275 a second)" + at, Figure("%.3f/s", r.pollsPerPortPerSecond),
                   r.complete && r.pollsPerPortPerSecond >= IdlePollsPerSecond * 0.9 &&
                       r.pollsPerPortPerSecond <= IdlePollsPerSecond * 1.1);
        ReportGoal("memory at most " + Figure("%.0f", MostKilobytesPerPort) + " KB per port" + at,
                   Figure("%.1f KB", r.kilobytesPerPort), r.complete && r.kilobytesPerPort <= MostKilobytesPerPort);
        // Each port starts its status thread and its client's request
        // thread, each start spaced from the last.
        const double starts = static_cast<double>(r.ports) * std::round(r.threadsPerPort);
        const double startSpacing = starts * ThreadStartSpacingMs / 1000.0;
        ReportGoal("waking all within the spacing of its " + Figure("%.0f", starts) + " thread starts (" +
                       Figure("%.2f s", startSpacing) + ") and a second" + at,
                   Figure("%.2f s", r.wakeSeconds), r.complete && r.wakeSeconds <= startSpacing + 1);
        const double spacing = r.ports * ThreadStartSpacingMs / 1000.0;
        // A port's close waits for its status thread to end, which a thread
        // in its idle wait does at its next look, within a pass.
        ReportGoal("closing all within the thread-start spacing (" + Figure("%.2f s", spacing) +
                       ") and an idle pass (4 s)" + at,
                   Figure("%.2f s", r.closeSeconds), r.complete && r.closeSeconds <= spacing + 4);
    }
    if (results.size() >= 2) {
        const Result& least = results.front();
        const Result& most = results.back();
        const bool flat = most.idleCpuPercentPerPort <=
                          std::max(least.idleCpuPercentPerPort * FlatRatio, least.idleCpuPercentPerPort + NoiseCpuPercentPerPort);
        ReportGoal("idle CPU per port flat from " + std::to_string(least.ports) + " to " + std::to_string(most.ports) +
                       " ports (at most 1.5 times, or " + Figure("%.3f", NoiseCpuPercentPerPort) + " points more)",
                   Figure("%.4f", least.idleCpuPercentPerPort) + "% to " + Figure("%.4f%%", most.idleCpuPercentPerPort),
                   least.complete && most.complete && flat);
        const double leastCpu = least.wakeCpuSeconds / least.ports, mostCpu = most.wakeCpuSeconds / most.ports;
        ReportGoal("waking's CPU linear in the ports (per port at most 1.5 times from the fewest to the most)",
                   Figure("%.2f ms", leastCpu * 1000) + " to " + Figure("%.2f ms", mostCpu * 1000),
                   mostCpu <= std::max(leastCpu * FlatRatio, leastCpu + 0.001));
    }
    return 0;
}
