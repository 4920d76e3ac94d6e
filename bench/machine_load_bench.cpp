// What loading a machine description costs as the machine grows: a file that
// lists N printer queues, each a key with its port, under one key, as a
// machine with many printers has them. A load that walked a key's siblings
// for each name would take four times as long for twice the printers; the
// complexity line Google Benchmark prints behind the table should read N.

#include "platform/machine_description.h"
#include "platform/registry.h"

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

}  // namespace

}  // namespace langmon::bench

BENCHMARK_MAIN();
