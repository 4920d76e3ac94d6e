// What the monitor's data path costs a job: WritePort of 4096-byte blocks on
// two-way ports, one benchmark per write strategy, each against the port
// monitor below called directly in the same run. The port monitor below is a
// sink that takes every byte and does nothing else, so that what is measured
// is the monitor alone. The strategies promise not to allocate; each
// benchmark counts the platform allocator's blocks over its timed loop.

#include "monitor/port_context.h"
#include "monitor/port_mode.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/registry.h"
#include "portkind/port_kind.h"

#include "langmon/harness_monitor.h"
#include "run_summary.h"
#include "sink_port_monitor.h"

#include <benchmark/benchmark.h>
#include <langmon/monitor.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace langmon::bench {

namespace {

constexpr DWORD BlockSize = 4096;
// The most a block may cost on top of the direct call, as a ratio.
constexpr double TargetRatio = 1.05;

char printerName[] = "Bench Printer";
char documentName[] = "bench";
char dataType[] = "RAW";

// Plain text: neither a UEL nor a PostScript start, so the job's first block
// settles the sniff and no later block is looked into.
std::array<BYTE, BlockSize> MakeBlock() {
    static constexpr char line[] = "The quick brown fox jumps over the lazy dog.\r\n";
    std::array<BYTE, BlockSize> block{};
    for (DWORD i = 0; i < BlockSize; ++i) {
        block[i] = static_cast<BYTE>(line[i % (sizeof line - 1)]);
    }
    return block;
}
std::array<BYTE, BlockSize> block = MakeBlock();

// The language monitor's entry table, filled once in main.
MONITOR languageMonitor{};

using WriteEntry = BOOL (*)(HANDLE, LPBYTE, DWORD, LPDWORD);

/* SendBlock: one block the way the spooler passes it, again from where the
   port stopped until all of it is taken. False when a call fails or takes
   nothing, which on the sink means something is wrong. */
bool SendBlock(WriteEntry write, HANDLE handle) {
    DWORD offset = 0;
    while (offset < BlockSize) {
        DWORD written = 0;
        if (!write(handle, block.data() + offset, BlockSize - offset, &written) || written == 0) {
            return false;
        }
        offset += written;
    }
    return true;
}

/* TimeBlocks: the timed loop, shared by every benchmark, with the platform
   allocator's count over it. */
void TimeBlocks(benchmark::State& state, WriteEntry write, HANDLE handle) {
    // Through a pointer the compiler can't see into, as the monitor calls the
    // port monitor below, so that the direct call stays a call.
    benchmark::DoNotOptimize(write);
    const std::size_t allocationsBefore = platform::AllocationCount();
    for (auto _ : state) {
        if (!SendBlock(write, handle)) {
            state.SkipWithError("a WritePort call failed or took nothing");
            break;
        }
    }
    const std::size_t allocations = platform::AllocationCount() - allocationsBefore;
    state.counters["allocs/block"] =
        benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * BlockSize);
}

void DirectCall(benchmark::State& state) {
    MONITOR sink = SinkTable();
    HANDLE handle = nullptr;
    sink.OpenPort(nullptr, &handle);
    TimeBlocks(state, sink.WritePort, handle);
    sink.ClosePort(handle);
}

struct StrategyCase {
    const char* portName;
    DWORD fixedMode;  // MyPortMode for the job
};

/* CheckPort: the port got the kind and mode that lead to the strategy meant,
   and the job's header question is settled; null when so, else what's wrong. */
const char* CheckPort(const PortContext* port, const StrategyCase& meant) {
    if ((port->portKind & PK_BIDI) == 0) return "the port is not two-way";
    if (port->portMode != meant.fixedMode) return "the port has another mode";
    if ((IsUsbName(port->portName) != 0) != (IsUsbName(meant.portName) != 0)) {
        return "the port's name is of another kind";
    }
    if (HasPortFlag(port, PF_HEADER_DUE)) return "the job still waits for its header";
    return nullptr;
}

/* WindUp: the job's end and the port's close. A job record or a status
   thread left behind would make ClosePort wait for seconds; say so. */
const char* WindUp(HANDLE handle) {
    const auto* port = static_cast<const PortContext*>(handle);
    const char* problem = nullptr;
    languageMonitor.EndDocPort(handle);
    if (port->jobListHead != nullptr) {
        problem = "a job record is left: ClosePort waits for it";
    } else if (HasPortFlag(port, PF_STATUS_ALIVE)) {
        problem = "a status thread runs: ClosePort waits for it";
    }
    languageMonitor.ClosePort(handle);
    return problem;
}

void Strategy(benchmark::State& state, StrategyCase meant) {
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, PortModeKey, PortModeValue, meant.fixedMode);
    MONITOR sink = SinkTable();
    HANDLE handle = nullptr;
    if (!languageMonitor.OpenPortEx(const_cast<LPSTR>(meant.portName), printerName, &handle, &sink)) {
        state.SkipWithError("OpenPortEx failed");
        return;
    }
    DOC_INFO_1 document = {documentName, nullptr, dataType};
    if (!languageMonitor.StartDocPort(handle, printerName, 1, 1, reinterpret_cast<LPBYTE>(&document))) {
        state.SkipWithError("StartDocPort failed");
        languageMonitor.ClosePort(handle);
        return;
    }
    // The job's first block is looked into and settles the header question;
    // every later block takes the path measured here.
    const bool firstSent = SendBlock(languageMonitor.WritePort, handle);
    const char* problem =
        firstSent ? CheckPort(static_cast<PortContext*>(handle), meant) : "the first block did not go";
    if (problem != nullptr) {
        state.SkipWithError(problem);
        WindUp(handle);
        return;
    }
    TimeBlocks(state, languageMonitor.WritePort, handle);
    if (const char* closing = WindUp(handle); closing != nullptr && !state.error_occurred()) {
        state.SkipWithError(closing);
    }
}

class SummaryReporter : public CollectingReporter {
public:
    using CollectingReporter::CollectingReporter;

    void PrintSummary() const {
        const Measured* direct = Find("DirectCall");
        if (direct == nullptr || direct->failed) {
            std::printf("\nThe direct call was not measured: no ratio.\n");
            return;
        }
        const double base = direct->Time();
        std::printf("\nCPU time per %u-byte block against the port monitor's WritePort called directly"
                    " (%.1f ns):\n",
                    BlockSize, base);
        for (const char* name : {"WriteDirect", "WriteCapped", "WriteBehind"}) {
            const Measured* m = Find(name);
            if (m == nullptr) continue;
            if (m->failed) {
                std::printf("%s: not measured: %s\n", name, m->error.c_str());
                continue;
            }
            const double time = m->Time();
            const double ratio = time / base;
            std::printf("%s: %.2fx the direct call (+%.1f ns), %g allocations per block; "
                        "at most %.2fx: %s, no allocation: %s\n",
                        name, ratio, time - base, m->Counter("allocs/block"), TargetRatio,
                        ratio <= TargetRatio ? "met" : "not met", m->Counter("allocs/block") == 0 ? "met" : "not met");
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

    benchmark::RegisterBenchmark("DirectCall", DirectCall)->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("WriteDirect", Strategy, StrategyCase{"USB001", PM_COMPAT})
        ->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("WriteCapped", Strategy, StrategyCase{"LPT1", PM_ECP})
        ->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("WriteBehind", Strategy, StrategyCase{"LPT1", PM_COMPAT})
        ->Unit(benchmark::kNanosecond);

    return RunAndSummarise<SummaryReporter>(argc, argv);
}
