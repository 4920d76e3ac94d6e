// What a machine's size costs. Loading its description: a file that lists N
// printer queues, each a key with its port, under one key, as a machine with
// many printers has them. A load that walked a key's siblings for each name
// would take four times as long for twice the printers; the complexity line
// Google Benchmark prints behind the table should read N (N lg N passes too:
// a sorted index is no fault); the goal line says which it read.
//
// And a port's printer lookup, which a status thread runs on every third
// pass: the monitor asks the spooler about every printer on the machine
// (open it, its record and its driver's, each twice for the size, close
// it), whichever port it stands on. Those calls are the monitor's own; what
// the platform owes is an answer to each that costs the same whatever the
// machine's size, and little. The machine has N queues, each on a port of
// its own; the lookup runs on the first port and lists its one printer.

#include "background/printer_lookup.h"
#include "langmon/printer_target.h"
#include "platform/machine_description.h"
#include "platform/registry.h"

#include "run_summary.h"
#include "sink_port_monitor.h"

#include <benchmark/benchmark.h>
#include <langmon/monitor.h>

#include <string>

namespace langmon::bench {

namespace {

std::string MachineWithPrinters(int count) {
    std::string text = "REGEDIT4\n";
    for (int i = 0; i < count; ++i) {
        text += "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\control\\Print\\Printers\\Printer " +
                std::to_string(i) + "]\n\"Port\"=\"LPT1:\"\n";
    }
    return text;
}

void LoadPrinters(benchmark::State& state) {
    const std::string text = MachineWithPrinters(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::string error;
        if (!platform::LoadMachineDescription(text, "bench.reg", &error)) state.SkipWithError(error.c_str());
    }
    platform::ClearRegistry();
    state.SetComplexityN(state.range(0));
}
BENCHMARK(LoadPrinters)->Arg(10000)->Arg(20000)->Arg(200000)->Unit(benchmark::kMillisecond)->Complexity();

constexpr int LookupSizes[] = {10, 100, 1000, 5000};
// Goals: the cost per printer on the machine at the largest size at most
// this many times that at the smallest, and at most this many nanoseconds.
// A host of 1000 ports on a machine of 1000 printers looks up each port
// every 12 s: 1000 printers at 1 us each is 0.008% of a core per port.
constexpr double FlatRatio = 1.5;
constexpr double MostNsPerPrinter = 1000;

void LookUpPrinters(benchmark::State& state, int printers) {
    platform::ClearRegistry();
    for (int i = 1; i <= printers; ++i) {
        tool::AddStandInQueue("LPT" + std::to_string(i) + ":", "Laser Printer 6200tx", "Printer " + std::to_string(i));
    }
    MONITOR monitor{};
    MONITOR below = SinkTable();
    HANDLE port = nullptr;
    char portName[] = "LPT1:";
    char printerName[] = "Printer 1";
    if (!InitializeMonitorEx(nullptr, &monitor) || !monitor.OpenPortEx(portName, printerName, &port, &below)) {
        state.SkipWithError("the port would not open");
        return;
    }
    int listed = 0;
    for (auto _ : state) {
        PrinterList* list = nullptr;
        ListPrintersOnPort(static_cast<PortContext*>(port), &list);
        listed = 0;
        for (const PrinterList* node = list; node != nullptr; node = node->next) ++listed;
        FreePrinterList(list);
    }
    monitor.ClosePort(port);
    platform::ClearRegistry();
    if (listed != 1) state.SkipWithError("the lookup did not list the port's one printer");
}

std::string LookupName(int printers) { return "LookUpPrinters/" + std::to_string(printers); }

// The growth Google Benchmark fitted to the loads, as it prints it.
const char* GrowthName(benchmark::BigO growth) {
    switch (growth) {
        case benchmark::o1: return "1";
        case benchmark::oN: return "N";
        case benchmark::oNSquared: return "N^2";
        case benchmark::oNCubed: return "N^3";
        case benchmark::oLogN: return "lgN";
        case benchmark::oNLogN: return "NlgN";
        default: return "not fitted";
    }
}

class SummaryReporter : public CollectingReporter {
public:
    using CollectingReporter::CollectingReporter;

    void ReportRuns(const std::vector<Run>& runs) override {
        CollectingReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.report_big_o && run.run_name.function_name == "LoadPrinters") growth_ = run.complexity;
        }
    }

    void PrintSummary() const {
        std::printf("\n");
        if (growth_ == benchmark::oNone) {
            std::printf("LoadPrinters: no growth fitted\n");
        } else {
            const bool linear = growth_ == benchmark::o1 || growth_ == benchmark::oN || growth_ == benchmark::oNLogN;
            ReportGoal("machine load: grows as N (or N lg N) with the printers", GrowthName(growth_), linear);
        }
        const auto perPrinter = [this](int printers) {
            const Measured* m = Find(LookupName(printers));
            return m == nullptr || m->failed ? 0.0 : m->Time() / printers;
        };
        const double smallest = perPrinter(LookupSizes[0]);
        const double largest = perPrinter(std::end(LookupSizes)[-1]);
        if (smallest <= 0 || largest <= 0) {
            std::printf("LookUpPrinters: not measured\n");
            return;
        }
        std::printf("A port's printer lookup, per printer on the machine:");
        for (int printers : LookupSizes) std::printf(" %d printers %.0f ns;", printers, perPrinter(printers));
        std::printf("\n");
        ReportGoal(Format("printer lookup: per printer on the machine, %d printers at most %.1fx %d",
                          std::end(LookupSizes)[-1], FlatRatio, LookupSizes[0]),
                   Format("%.2fx", largest / smallest), largest <= FlatRatio * smallest);
        ReportGoal(Format("printer lookup: at most %.0f ns per printer on the machine", MostNsPerPrinter),
                   Format("%.0f ns", largest), largest <= MostNsPerPrinter);
    }

private:
    benchmark::BigO growth_ = benchmark::oNone;
};

}  // namespace

}  // namespace langmon::bench

int main(int argc, char** argv) {
    using namespace langmon::bench;
    for (int printers : LookupSizes) {
        benchmark::RegisterBenchmark(LookupName(printers).c_str(), LookUpPrinters, printers)
            ->Unit(benchmark::kNanosecond);
    }
    return RunAndSummarise<SummaryReporter>(argc, argv);
}
