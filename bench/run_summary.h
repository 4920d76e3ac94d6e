// What each benchmark of a program measured, collected as Google Benchmark
// reports it, for the summary a program prints behind the console table.
// The time is CPU time, which a busy machine disturbs less than the wall
// clock; with repetitions the medians count. Counters are the worst run's,
// taken from the mean when only aggregates are reported, or their median
// over the repetitions where one run's figure is noise.
#pragma once

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace langmon::bench {

// The middle value, the upper one of an even count; 0 of none.
inline double Median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct Measured {
    std::vector<double> runs;  // CPU ns per iteration, one per repetition
    double median = 0;         // CPU ns per iteration, when repetitions were aggregated
    bool haveMedian = false;
    std::map<std::string, double> counters;  // the worst run's value of each counter
    std::map<std::string, std::vector<double>> counterRuns;  // each run's value of each counter
    std::map<std::string, double> counterMedians;  // when repetitions were aggregated
    bool failed = false;
    std::string error;

    double Time() const {
        if (haveMedian) return median;
        double sum = 0;
        for (double t : runs) sum += t;
        return sum / static_cast<double>(runs.size());
    }
    double Counter(const std::string& name) const {
        const auto it = counters.find(name);
        return it == counters.end() ? 0 : it->second;
    }
    // The counter's median over the repetitions; 0 when it has none.
    double MedianCounter(const std::string& name) const {
        if (const auto it = counterMedians.find(name); it != counterMedians.end()) return it->second;
        const auto it = counterRuns.find(name);
        return it == counterRuns.end() ? 0 : Median(it->second);
    }
};

class CollectingReporter : public benchmark::ConsoleReporter {
public:
    using ConsoleReporter::ConsoleReporter;

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            Measured& m = measured_[run.run_name.function_name];
            if (run.error_occurred) {
                m.failed = true;
                m.error = run.error_message;
                continue;
            }
            const bool aggregate = run.run_type == Run::RT_Aggregate;
            if (aggregate && run.aggregate_name == "median") {
                m.median = run.GetAdjustedCPUTime();
                m.haveMedian = true;
            } else if (!aggregate) {
                m.runs.push_back(run.GetAdjustedCPUTime());
            }
            if (!aggregate || run.aggregate_name == "mean") {
                for (const auto& [name, counter] : run.counters) {
                    double& worst = m.counters[name];
                    worst = std::max(worst, counter.value);
                }
            }
            for (const auto& [name, counter] : run.counters) {
                if (!aggregate) {
                    m.counterRuns[name].push_back(counter.value);
                } else if (run.aggregate_name == "median") {
                    m.counterMedians[name] = counter.value;
                }
            }
        }
    }

    // The benchmark of that name if it ran, failed or not; null otherwise.
    const Measured* Find(const std::string& name) const {
        const auto it = measured_.find(name);
        if (it == measured_.end()) return nullptr;
        if (!it->second.failed && !it->second.haveMedian && it->second.runs.empty()) return nullptr;
        return &it->second;
    }

    // The benchmark of that name if it was measured; otherwise null, and a
    // line says why it has no figures.
    const Measured* Measurement(const std::string& name) const {
        const Measured* m = Find(name);
        if (m == nullptr) {
            std::printf("%s: not run\n", name.c_str());
        } else if (m->failed) {
            std::printf("%s: not measured: %s\n", name.c_str(), m->error.c_str());
            return nullptr;
        }
        return m;
    }

private:
    std::map<std::string, Measured> measured_;
};

// One goal and what was measured against it, as a line that scripts/bench
// gathers from every program into one table: "goal", then the goal, the
// figure and "met" or "not met", separated by tabs. Printed beside the
// program's own words, which say more.
inline void ReportGoal(const std::string& goal, const std::string& measured, bool met) {
    std::printf("goal\t%s\t%s\t%s\n", goal.c_str(), measured.c_str(), met ? "met" : "not met");
    std::fflush(stdout);
}

// printf's formatting into a string, for a goal's figure.
__attribute__((format(printf, 1, 2))) inline std::string Format(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

// Runs the registered benchmarks with the program's reporter, then its
// summary. A benchmark is not a test: the figures speak, the exit status
// doesn't, but for a command line it doesn't understand.
template <typename Reporter>
int RunAndSummarise(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Reporter reporter(isatty(STDOUT_FILENO) != 0 ? Reporter::OO_ColorTabular : Reporter::OO_Tabular);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintSummary();
    benchmark::Shutdown();
    return 0;
}

}  // namespace langmon::bench
