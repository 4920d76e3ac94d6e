// What loading a machine description costs as the machine grows: a file that
// lists N printer queues, each a key with its port, under one key, as a
// machine with many printers has them. A load that walked a key's siblings
// for each name would take four times as long for twice the printers; the
// complexity line Google Benchmark prints behind the table should read N
// (N lg N passes too: a sorted index is no fault); the goal line says which
// it read.

#include "platform/machine_description.h"
#include "platform/registry.h"

#include "run_summary.h"

#include <benchmark/benchmark.h>

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
        if (growth_ == benchmark::oNone) {
            std::printf("\nLoadPrinters: no growth fitted\n");
            return;
        }
        const bool linear = growth_ == benchmark::o1 || growth_ == benchmark::oN || growth_ == benchmark::oNLogN;
        std::printf("\n");
        ReportGoal("machine load: grows as N (or N lg N) with the printers", GrowthName(growth_), linear);
    }

private:
    benchmark::BigO growth_ = benchmark::oNone;
};

}  // namespace

}  // namespace langmon::bench

int main(int argc, char** argv) {
    return langmon::bench::RunAndSummarise<langmon::bench::SummaryReporter>(argc, argv);
}
