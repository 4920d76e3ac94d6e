// What reading the printer's reports costs: ParseResponseBuffer over a stream
// of the USTATUS reports a printer sends while it prints, handed over in
// blocks of 1024 bytes as the port's reader hands them over, with publication
// on. Each job of the stream starts, prints its pages with their statistics,
// shows its panel text and ends, under a spooler job name, so that every
// report reaches its handler's full work. Throughput is in bytes of the
// printer's text per second of CPU time, and in microseconds per response;
// the platform allocator counts the blocks per response once the port is in
// its steady state (one pass over the stream before the timed ones). The
// pauses a job's end makes for its client run on the virtual clock: they are
// waits, not work.
//
// The goal is no allocation for a response, but for the copies the design
// calls for: a job's records, which the monitor keeps and hands to the job's
// client. At a job's START the record PrintingJobInfo2 holds; at its NAME,
// the chain's node for the job, the node's snapshot and the snapshot's own
// copy of the record; at its END the closing record, which replaces the
// row's. Five blocks a job, whatever its pages.

#include "monitor/port_context.h"
#include "parser/response_parser.h"
#include "platform/clock.h"
#include "platform/memory.h"

#include "langmon/harness_monitor.h"
#include "run_summary.h"
#include "sink_port_monitor.h"

#include <benchmark/benchmark.h>
#include <langmon/monitor.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace langmon::bench {

namespace {

constexpr std::size_t BlockBytes = 1024;  // the reader's block, without its NUL
constexpr int JobsInStream = 64;
constexpr int PagesPerJob = 5;
// The blocks a job's records call for (see above).
constexpr double JobRecordAllocations = 5;

char printerName[] = "Bench Printer";
char portName[] = "LPT1";

MONITOR languageMonitor{};

struct ReportStream {
    std::string text;
    int responses = 0;
};

// One response: its first line, its lines, its form feed.
void AddResponse(ReportStream* stream, const std::string& first, const std::vector<std::string>& lines) {
    stream->text += first + "\r\n";
    for (const std::string& line : lines) stream->text += line + "\r\n";
    stream->text += '\f';
    ++stream->responses;
}

ReportStream PrintingStream() {
    ReportStream stream;
    for (int job = 1; job <= JobsInStream; ++job) {
        const std::string name = "NAME=\"MSJOB " + std::to_string(job) + "\"";
        AddResponse(&stream, "@PJL USTATUS DEVICE", {"CODE=10023", "DISPLAY=\"Printing\"", "ONLINE=TRUE"});
        AddResponse(&stream, "@PJL USTATUS JOB", {"START", name});
        for (int page = 1; page <= PagesPerJob; ++page) {
            AddResponse(&stream, "@PJL USTATUS PAGE", {std::to_string(page)});
            const bool colour = page % 2 == 1;
            AddResponse(&stream, "@PJL USTATUS JOB",
                        {colour ? "COLORPAGE=1" : "COLORPAGE=0", "COVERAGE C=6", "COVERAGE M=5", "COVERAGE Y=4",
                         "COVERAGE K=5", colour ? "BWPAGE=0" : "BWPAGE=1"});
        }
        AddResponse(&stream, "@PJL USTATUS JOB",
                    {"END", name, "PAGES=" + std::to_string(PagesPerJob), "COLORPAGE=3", "COVERAGE C=6",
                     "COVERAGE M=5", "COVERAGE Y=4", "COVERAGE K=5", "BWPAGE=2", "RESULT=OK"});
        AddResponse(&stream, "@PJL USTATUS DEVICE", {"CODE=10001", "DISPLAY=\"Ready\"", "ONLINE=TRUE"});
    }
    return stream;
}

/* PassOverStream: the stream, block by block, through the port's parser.
   Null when every response ended, else what is wrong. */
const char* PassOverStream(PortContext* port, const ReportStream& stream) {
    char block[BlockBytes + 1];
    for (std::size_t at = 0; at < stream.text.size(); at += BlockBytes) {
        const std::size_t length = std::min(BlockBytes, stream.text.size() - at);
        std::memcpy(block, stream.text.data() + at, length);
        block[length] = '\0';
        ParseResponseBuffer(port, block, 1);
    }
    // Every response ended: nothing waits for the next block.
    if (port->responseTail != nullptr || port->parser->LastResult != 5) {
        return "the stream did not end between responses";
    }
    return nullptr;
}

void ParseStream(benchmark::State& state) {
    const ReportStream stream = PrintingStream();
    MONITOR sink = SinkTable();
    HANDLE handle = nullptr;
    if (!languageMonitor.OpenPortEx(portName, printerName, &handle, &sink)) {
        state.SkipWithError("OpenPortEx failed");
        return;
    }
    auto* port = static_cast<PortContext*>(handle);
    // The first pass finds the port fresh: its variables, its job chain and
    // the parser's buffers take their steady size there.
    const char* problem = PassOverStream(port, stream);
    std::size_t allocations = 0;
    if (problem == nullptr) {
        for (auto _ : state) {
            const std::size_t before = platform::AllocationCount();
            problem = PassOverStream(port, stream);
            allocations += platform::AllocationCount() - before;
            if (problem != nullptr) break;
        }
    }
    const double passes = static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stream.text.size()));
    state.counters["allocs/response"] = passes > 0 ? static_cast<double>(allocations) / (passes * stream.responses) : 0;
    state.counters["allocs/job"] = passes > 0 ? static_cast<double>(allocations) / (passes * JobsInStream) : 0;
    state.counters["responses"] = stream.responses;
    if (problem != nullptr) state.SkipWithError(problem);
    languageMonitor.ClosePort(handle);
}

class SummaryReporter : public CollectingReporter {
public:
    using CollectingReporter::CollectingReporter;

    void PrintSummary() const {
        std::printf("\n");
        const Measured* parse = Measurement("ParseStream");
        if (parse == nullptr) return;
        const ReportStream stream = PrintingStream();
        // Time() is CPU microseconds per pass over the stream.
        const double perSecond = static_cast<double>(stream.text.size()) / (parse->Time() * 1e-6);
        const double perResponse = parse->Counter("allocs/response");
        const double perJob = parse->Counter("allocs/job");
        const double beyondRecords =
            std::max(0.0, perJob - JobRecordAllocations) * JobsInStream / stream.responses;
        std::printf("Report parsing: %.1f MB/s of printer text in %zu-byte blocks, %.2f us per response; "
                    "%.3f allocations per response, %.2f per job, of which %g are the job's records\n",
                    perSecond / 1e6, BlockBytes, parse->Time() / stream.responses, perResponse, perJob,
                    JobRecordAllocations);
        ReportGoal("parser: no allocation per response but a job's 5 records, steady",
                   Format("%.3f per response beyond them (%.3f in all)", beyondRecords, perResponse),
                   perJob <= JobRecordAllocations);
    }
};

}  // namespace

}  // namespace langmon::bench

int main(int argc, char** argv) {
    using namespace langmon;
    using namespace langmon::bench;

    platform::UseVirtualClock();
    tool::InitializeHarnessMonitor(&languageMonitor);
    benchmark::RegisterBenchmark("ParseStream", ParseStream)->Unit(benchmark::kMicrosecond);

    return RunAndSummarise<SummaryReporter>(argc, argv);
}
