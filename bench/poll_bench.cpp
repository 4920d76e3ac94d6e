// What a status poll costs when nothing changes: PollPrinterStatus on a
// two-way port whose printer, a known model, answers at once with the same
// device ID every time. The port monitor below is a sink that hands out that
// device ID and does nothing else, so that what is measured is the monitor
// alone; the same calls to it, made directly, show the part that is not ours.
// Beside it, the decoding of the device ID's 56-character status block alone.
// A steady poll promises not to allocate; the poll benchmark counts the
// platform allocator's blocks over its timed loop.

#include "acquisition/poll.h"
#include "acquisition/sts_block.h"
#include "monitor/port_context.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/sync.h"
#include "portkind/port_kind.h"

#include "langmon/harness_monitor.h"
#include "run_summary.h"
#include "sink_port_monitor.h"

#include <benchmark/benchmark.h>
#include <langmon/monitor.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace langmon::bench {

namespace {

// The most a steady poll may cost, in nanoseconds.
constexpr double TargetPollNs = 5000;

char printerName[] = "Bench Printer";
char portName[] = "USB001";

// The code under which a USB port monitor gives the device ID.
constexpr DWORD UsbDeviceIdCode = 0x16000C;

// The language monitor's entry table, filled once in main.
MONITOR languageMonitor{};

char pseudoDocName[] = "bench poll";

/* LowerDirect: what a steady poll of a USB port asks of the port monitor
   below, called directly through the table: a document, its time-outs, the
   device ID into a zeroed answer, the document's end. */
void LowerDirect(benchmark::State& state) {
    MONITOR sink = SinkTable();
    // Through a table the compiler can't see into, as the monitor calls it.
    benchmark::DoNotOptimize(sink);
    HANDLE handle = nullptr;
    sink.OpenPort(portName, &handle);
    DOC_INFO_2 docInfo = {pseudoDocName, nullptr, nullptr, 2, 0};
    COMMTIMEOUTS timeouts{};
    char answer[DeviceIdBytes + 1];
    for (auto _ : state) {
        sink.StartDocPort(handle, printerName, 0, 2, reinterpret_cast<LPBYTE>(&docInfo));
        sink.SetPortTimeOuts(handle, &timeouts, 0);
        std::memset(answer, 0, sizeof answer);
        DWORD returned = 0;
        sink.GetPrinterDataFromPort(handle, UsbDeviceIdCode, nullptr, nullptr, 0, answer,
                                    DeviceIdBytes, &returned);
        benchmark::DoNotOptimize(answer);
        sink.EndDocPort(handle);
    }
    sink.ClosePort(handle);
}

/* CheckSteady: the poll found the printer there and of a known model; null
   when so, else what's wrong. */
const char* CheckSteady(const PortContext* port, int result) {
    if ((port->portKind & PK_BIDI) == 0) return "the port is not two-way";
    if (result != 1) return "the poll did not find a known model";
    if (HasPortFlag(port, PF_OFFLINE)) return "the printer is taken to be offline";
    if (!HasPortFlag(port, PF_MODEL_KNOWN)) return "the model is not taken to be known";
    if (HasPortFlag(port, PF_DOC_OPEN)) return "the poll left a document open";
    return nullptr;
}

/* PollSteady: polls of a printer whose answer never changes, with
   serialSemaphore held over the loop as the status thread holds it over its
   pass. The first poll, before the loop, takes in the model and the status;
   every later one finds them as they were. */
void PollSteady(benchmark::State& state) {
    MONITOR sink = SinkTable();
    HANDLE handle = nullptr;
    if (!languageMonitor.OpenPortEx(portName, printerName, &handle, &sink)) {
        state.SkipWithError("OpenPortEx failed");
        return;
    }
    auto* port = static_cast<PortContext*>(handle);
    if (WaitForSingleObject(port->serialSemaphore, SerialWaitMs) != WAIT_OBJECT_0) {
        state.SkipWithError("serialSemaphore could not be had");
        languageMonitor.ClosePort(handle);
        return;
    }
    const char* problem = CheckSteady(port, PollPrinterStatus(port));
    if (problem == nullptr) {
        const std::size_t allocationsBefore = platform::AllocationCount();
        const std::size_t liveBefore = platform::LiveBlockCount();
        for (auto _ : state) {
            if (PollPrinterStatus(port) != 1) {
                problem = "a poll did not find a known model";
                break;
            }
        }
        const std::size_t allocations = platform::AllocationCount() - allocationsBefore;
        const std::size_t live = platform::LiveBlockCount();
        state.counters["allocs/poll"] =
            benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
        // Blocks left behind by the loop: a steady poll must leave none.
        state.counters["live+"] = static_cast<double>(live) - static_cast<double>(liveBefore);
        if (problem == nullptr) problem = CheckSteady(port, 1);
    }
    ReleaseSemaphore(port->serialSemaphore, 1, nullptr);
    if (problem != nullptr) state.SkipWithError(problem);
    languageMonitor.ClosePort(handle);
}

/* DecodeSts: the status block alone, from its 56 characters to a record. */
void DecodeSts(benchmark::State& state) {
    const char* text = SinkStsField;
    StatusRecord record{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        if (DecodeStsBlock(text, &record) != 1) {
            state.SkipWithError("the status block did not decode");
            break;
        }
        benchmark::DoNotOptimize(record);
    }
}

class SummaryReporter : public CollectingReporter {
public:
    using CollectingReporter::CollectingReporter;

    void PrintSummary() const {
        std::printf("\n");
        if (const Measured* poll = Measurement("PollSteady")) {
            const double time = poll->Time();
            const double allocations = poll->Counter("allocs/poll");
            std::printf("Steady poll: %.0f ns per poll, at most %.0f ns: %s\n", time, TargetPollNs,
                        time <= TargetPollNs ? "met" : "not met");
            if (const Measured* lower = Find("LowerDirect"); lower != nullptr && !lower->failed) {
                std::printf("  of which the port monitor below, called directly: %.0f ns\n", lower->Time());
            }
            std::printf("  %g allocations per poll, %g blocks left over the loop; no allocation: %s\n", allocations,
                        poll->Counter("live+"), allocations == 0 ? "met" : "not met");
            ReportGoal(Format("steady poll: at most %.0f ns of CPU", TargetPollNs), Format("%.0f ns", time),
                       time <= TargetPollNs);
            ReportGoal("steady poll: no allocation, no block left", Format("%g per poll, %g left", allocations,
                       poll->Counter("live+")), allocations == 0 && poll->Counter("live+") <= 0);
        }
        if (const Measured* decode = Measurement("DecodeSts")) {
            std::printf("Status block decode: %.1f ns per decode\n", decode->Time());
        }
    }

};

}  // namespace

}  // namespace langmon::bench

int main(int argc, char** argv) {
    using namespace langmon;
    using namespace langmon::bench;

    platform::UseRealClock();
    tool::InitializeHarnessMonitor(&languageMonitor);

    benchmark::RegisterBenchmark("LowerDirect", LowerDirect)->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("PollSteady", PollSteady)->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("DecodeSts", DecodeSts)->Unit(benchmark::kNanosecond);

    return RunAndSummarise<SummaryReporter>(argc, argv);
}
