// What the monitor's data path costs a real job: a 100 MB job sent as the
// spooler sends it (OpenPortEx, StartDocPort, WritePort block after block,
// EndDocPort, ClosePort) to a port monitor below that writes each block to a
// file with write(2), against a plain write(2) loop of the same blocks to the
// same kind of file, in the same run. One benchmark per write strategy and
// block size. The file lies on tmpfs, so that the disk doesn't drown out what
// the monitor adds; it is emptied before each job, outside the timed part.
// Each of the monitor's jobs is also paired with a plain job run beside it,
// since on a shared machine the load drifts from one benchmark to the next.
//
// The goal is absolute: at most 100 ns of CPU per 4 KiB block on top of the
// plain loop's, and no allocation for a block once the job's header question
// is settled. A ratio to a port monitor below that does nothing would leave
// a fraction of a nanosecond for the monitor's lock and bookkeeping; against
// a real write(2) the figure is what a job pays. The job's start and end are
// in the figure, spread over its 25,600 blocks. This is the one benchmark of
// what WritePort adds to a block: a port monitor below that writes nothing
// measured the monitor's instructions alone, warm in the cache, which a
// real write(2) between two blocks never leaves them.
//
// The same job also goes by TCP to `langmon emulate`, through the network
// port monitor below the monitor, against a plain write(2) loop of the same
// blocks to the same emulator; there the wall clock counts, as throughput
// to a printer is what a user waits for, and each job ends once the printer
// has read all of it (see emulated_network_printer.h).

#include "monitor/port_context.h"
#include "monitor/port_mode.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/registry.h"

#include "emulated_network_printer.h"
#include "fd_port_monitor.h"
#include "ports/socket_port_monitor.h"
#include "langmon/harness_monitor.h"
#include "run_summary.h"

#include <benchmark/benchmark.h>
#include <langmon/monitor.h>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <map>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace langmon::bench {

namespace {

constexpr std::size_t JobSize = std::size_t{100} << 20;
constexpr DWORD BlockSizes[] = {4096, 65536};
// The most CPU the monitor may add to each 4 KiB block of the job, and the
// blocks of a job counted in 4 KiB, whatever the size it is sent in.
constexpr double TargetAddedNs = 100;
constexpr std::size_t QuantumBytes = 4096;
constexpr double QuantaPerJob = static_cast<double>(JobSize / QuantumBytes);
// The least of the plain loop's throughput the monitor's job must reach by
// TCP to the emulator.
constexpr double TcpTargetShare = 0.9;
// A call that took nothing is made again after this pause, as `langmon
// print` does: a printer whose window is full is busy, not gone.
constexpr DWORD SpoolerPauseMs = 100;

char printerName[] = "Bench Printer";
char documentName[] = "bench";
char dataType[] = "RAW";

MONITOR languageMonitor{};
EmulatedNetworkPrinter networkPrinter;
int jobFd = -1;
std::string jobPath;
bool onTmpfs = false;

// Plain text, so that the job's first block settles the sniff at once.
std::vector<BYTE> MakeBlock(DWORD size) {
    static constexpr char line[] = "The quick brown fox jumps over the lazy dog.\r\n";
    std::vector<BYTE> block(size);
    for (DWORD i = 0; i < size; ++i) {
        block[i] = static_cast<BYTE>(line[i % (sizeof line - 1)]);
    }
    return block;
}

bool IsTmpfs(const char* directory) {
    struct statfs info {};
    return statfs(directory, &info) == 0 && info.f_type == TMPFS_MAGIC;
}

/* OpenJobFile: an unlinked file on /dev/shm when it is tmpfs, else in
   TMPDIR (or /tmp), where the figures then include that file system. */
bool OpenJobFile() {
    std::string directory = "/dev/shm";
    if (!IsTmpfs(directory.c_str())) {
        const char* tmp = std::getenv("TMPDIR");
        directory = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
    }
    onTmpfs = IsTmpfs(directory.c_str());
    jobPath = directory + "/langmon-data-path-XXXXXX";
    jobFd = mkstemp(jobPath.data());
    if (jobFd < 0) return false;
    unlink(jobPath.c_str());
    return true;
}

// The file is emptied before each job, so that every job allocates the
// same pages afresh.
bool EmptyJobFile() { return ftruncate(jobFd, 0) == 0 && lseek(jobFd, 0, SEEK_SET) == 0; }

off_t JobFileSize() {
    struct stat info {};
    return fstat(jobFd, &info) == 0 ? info.st_size : -1;
}

bool WriteAll(const BYTE* data, DWORD length) {
    for (DWORD offset = 0; offset < length;) {
        const ssize_t taken = ::write(jobFd, data + offset, length - offset);
        if (taken <= 0 && errno != EINTR) return false;
        offset += taken > 0 ? static_cast<DWORD>(taken) : 0;
    }
    return true;
}

bool PlainJob(const std::vector<BYTE>& block) {
    const DWORD blockSize = static_cast<DWORD>(block.size());
    bool ok = true;
    for (std::size_t sent = 0; ok && sent < JobSize; sent += blockSize) {
        ok = WriteAll(block.data(), blockSize);
    }
    return ok;
}

/* ReplayJob: the writes a job through the monitor made, each with write(2)
   alone, of bytes from `bytes` (as long as the longest). The same lengths
   land at the same offsets, so that a write that straddles the file's
   pages (the delay line's, or any after a header) costs both jobs alike:
   that is the file system's cost, not the monitor's, and no printer's
   port has pages. */
bool ReplayJob(const std::vector<BYTE>& bytes, const std::vector<DWORD>& writes) {
    bool ok = true;
    for (std::size_t i = 0; ok && i < writes.size(); ++i) {
        ok = WriteAll(bytes.data(), writes[i]);
    }
    return ok;
}

double ThreadCpuNs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/* PlainLoop: the job's blocks with write(2) alone. */
void PlainLoop(benchmark::State& state, DWORD blockSize) {
    const std::vector<BYTE> block = MakeBlock(blockSize);
    for (auto _ : state) {
        state.PauseTiming();
        const bool emptied = EmptyJobFile();
        state.ResumeTiming();
        if (!emptied) {
            state.SkipWithError("the file could not be emptied");
            break;
        }
        if (!PlainJob(block)) {
            state.SkipWithError("write(2) failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * JobSize));
}

struct StrategyCase {
    const char* portName;
    DWORD fixedMode;  // MyPortMode for the job
    bool usb;
};

/* SendBlock: one block as the spooler passes it, again from where the port
   stopped until all of it is taken; false when a call fails, or takes
   nothing on a file, where that means something is wrong. A network
   printer that takes nothing is busy: the call is made again after the
   spooler's pause, counted in `idle`. */
bool SendBlock(HANDLE handle, const BYTE* data, DWORD length, std::size_t* idle) {
    DWORD offset = 0;
    while (offset < length) {
        DWORD written = 0;
        if (!languageMonitor.WritePort(handle, const_cast<BYTE*>(data) + offset, length - offset, &written)) {
            return false;
        }
        if (written == 0) {
            if (idle == nullptr) return false;
            ++*idle;
            Sleep(SpoolerPauseMs);
        }
        offset += written;
    }
    return true;
}

/* SendJob: the whole job through the C edge. Null when it went through,
   else what went wrong. `allocations` counts the platform allocator's
   blocks from the first block's return (the header question is settled by
   then) to the last block's. */
const char* SendJob(const StrategyCase& meant, const std::vector<BYTE>& block, MONITOR* below,
                    std::size_t* allocations, std::size_t* idle = nullptr) {
    HANDLE handle = nullptr;
    if (!languageMonitor.OpenPortEx(const_cast<LPSTR>(meant.portName), printerName, &handle, below)) {
        return "OpenPortEx failed";
    }
    DOC_INFO_1 document = {documentName, nullptr, dataType};
    if (!languageMonitor.StartDocPort(handle, printerName, 1, 1, reinterpret_cast<LPBYTE>(&document))) {
        languageMonitor.ClosePort(handle);
        return "StartDocPort failed";
    }
    const DWORD size = static_cast<DWORD>(block.size());
    const char* problem = nullptr;
    if (!SendBlock(handle, block.data(), size, idle)) {
        problem = "the first block did not go";
    } else {
        const auto* port = static_cast<const PortContext*>(handle);
        if (HasPortFlag(port, PF_HEADER_DUE)) {
            problem = "the job still waits for its header";
        } else if (port->portMode != meant.fixedMode || IsUsbPort(port) != meant.usb) {
            problem = "the port has another mode or kind than meant";
        }
    }
    const std::size_t before = platform::AllocationCount();
    for (std::size_t sent = size; problem == nullptr && sent < JobSize; sent += size) {
        if (!SendBlock(handle, block.data(), size, idle)) problem = "a WritePort call failed or took nothing";
    }
    *allocations = platform::AllocationCount() - before;
    languageMonitor.EndDocPort(handle);
    languageMonitor.ClosePort(handle);
    return problem;
}

/* TimedReplayJob: the monitor's last job's writes replayed into the
   emptied file, on the thread's CPU clock; false when the file could not
   be emptied or written. */
bool TimedReplayJob(const std::vector<BYTE>& bytes, const std::vector<DWORD>& writes, double* ns) {
    if (!EmptyJobFile()) return false;
    const double start = ThreadCpuNs();
    const bool ok = ReplayJob(bytes, writes);
    *ns = ThreadCpuNs() - start;
    return ok;
}

void MonitorJob(benchmark::State& state, StrategyCase meant, DWORD blockSize) {
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, PortModeKey, PortModeValue, meant.fixedMode);
    const std::vector<BYTE> block = MakeBlock(blockSize);
    // Room for every write of a job, made before the job so that logging a
    // write allocates nothing; and bytes for the longest write a job makes,
    // a block with what a strategy holds back or adds at the job's ends.
    std::vector<DWORD> writes;
    writes.reserve(JobSize / 1024 + 64);
    const std::vector<BYTE> replayBytes = MakeBlock(blockSize + 4096);
    MONITOR below = FdPortTable(jobFd, &writes);
    std::size_t allocations = 0;
    // Each job is paired with a plain job that makes the same writes with
    // write(2) alone, timed on the thread's CPU clock outside the
    // benchmark's timing: on a shared machine the load drifts between one
    // benchmark and the next, much less between two jobs in a row. The
    // plain job goes before the monitor's and after it in turn, so that
    // neither place in a pair favours one; the median pair counts, since a
    // job that meets another process's burst is noise. A first job, not
    // counted, tells the plain job which writes to make.
    if (!EmptyJobFile() || SendJob(meant, block, &below, &allocations) != nullptr) {
        state.SkipWithError("the first job did not go");
        return;
    }
    allocations = 0;
    double plainNs = 0;
    double monitorNs = 0;
    std::vector<double> addedNs;
    for (auto _ : state) {
        const bool plainFirst = addedNs.size() % 2 == 0;
        double plainJobNs = 0;
        state.PauseTiming();
        bool ok = (!plainFirst || TimedReplayJob(replayBytes, writes, &plainJobNs)) && EmptyJobFile();
        writes.clear();
        state.ResumeTiming();
        if (!ok) {
            state.SkipWithError("the file could not be emptied or written");
            break;
        }
        std::size_t jobAllocations = 0;
        const double monitorStart = ThreadCpuNs();
        const char* problem = SendJob(meant, block, &below, &jobAllocations);
        const double monitorJobNs = ThreadCpuNs() - monitorStart;
        if (problem != nullptr) {
            state.SkipWithError(problem);
            break;
        }
        allocations += jobAllocations;
        state.PauseTiming();
        // The trailer is a few dozen bytes; anything else means bytes lost
        // or doubled.
        const off_t size = JobFileSize();
        ok = plainFirst || TimedReplayJob(replayBytes, writes, &plainJobNs);
        state.ResumeTiming();
        if (size < static_cast<off_t>(JobSize) || size > static_cast<off_t>(JobSize + 4096)) {
            state.SkipWithError("the file does not hold the job and its trailer");
            break;
        }
        if (writes.size() == writes.capacity()) {
            state.SkipWithError("the job made more writes than its log holds");
            break;
        }
        if (!ok) {
            state.SkipWithError("the file could not be emptied or written");
            break;
        }
        plainNs += plainJobNs;
        monitorNs += monitorJobNs;
        addedNs.push_back((monitorJobNs - plainJobNs) / QuantaPerJob);
    }
    const double jobs = static_cast<double>(state.iterations());
    const double blocksCounted = jobs * static_cast<double>(JobSize / blockSize - 1);
    state.counters["paired"] = plainNs > 0 ? monitorNs / plainNs : 0;
    state.counters["added ns/4KiB"] = Median(addedNs);
    state.counters["allocs/block"] = blocksCounted > 0 ? static_cast<double>(allocations) / blocksCounted : 0;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * JobSize));
}

double WallNs(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
}

/* TcpPlainJob: the job's blocks with write(2) alone, in a connection of
   its own, until the printer has read them all. */
bool TcpPlainJob(const std::vector<BYTE>& block) {
    const int fd = networkPrinter.Connect();
    if (fd < 0) return false;
    bool ok = true;
    for (std::size_t sent = 0; ok && sent < JobSize; sent += block.size()) {
        for (std::size_t offset = 0; ok && offset < block.size();) {
            const ssize_t taken = ::write(fd, block.data() + offset, block.size() - offset);
            ok = taken > 0 || errno == EINTR;
            offset += taken > 0 ? static_cast<std::size_t>(taken) : 0;
        }
    }
    close(fd);
    return ok && networkPrinter.AwaitAllTaken();
}

void TcpPlainLoop(benchmark::State& state, DWORD blockSize) {
    const std::vector<BYTE> block = MakeBlock(blockSize);
    double wallNs = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        if (!TcpPlainJob(block)) {
            state.SkipWithError("the emulator did not take the job");
            break;
        }
        const double ns = WallNs(start);
        wallNs += ns;
        state.SetIterationTime(ns / 1e9);
    }
    state.counters["MB/s"] = wallNs > 0 ? static_cast<double>(state.iterations() * JobSize) / wallNs * 1e3 : 0;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * JobSize));
}

/* TcpMonitorJob: the job through the monitor and the network port monitor,
   paired with a plain job just before it; "paired" is the monitor's wall
   time over the plain job's. */
void TcpMonitorJob(benchmark::State& state, StrategyCase meant, DWORD blockSize) {
    platform::RegistrySetDword(HKEY_LOCAL_MACHINE, PortModeKey, PortModeValue, meant.fixedMode);
    const std::vector<BYTE> block = MakeBlock(blockSize);
    ports::SocketPortMonitor socketMonitor;
    socketMonitor.Attach(meant.portName, {"127.0.0.1", networkPrinter.TcpPort(), networkPrinter.SnmpPort(), "public"});
    double plainNs = 0;
    double monitorNs = 0;
    std::size_t idle = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        if (!TcpPlainJob(block)) {
            state.SkipWithError("the emulator did not take the plain job");
            break;
        }
        plainNs += WallNs(start);
        std::size_t allocations = 0;
        start = std::chrono::steady_clock::now();
        const char* problem = SendJob(meant, block, socketMonitor.Table(), &allocations, &idle);
        if (problem == nullptr && !networkPrinter.AwaitAllTaken()) problem = "the emulator did not take the job";
        const double ns = WallNs(start);
        if (problem != nullptr) {
            state.SkipWithError(problem);
            break;
        }
        monitorNs += ns;
        state.SetIterationTime(ns / 1e9);
    }
    state.counters["paired"] = plainNs > 0 ? monitorNs / plainNs : 0;
    state.counters["MB/s"] = monitorNs > 0 ? static_cast<double>(state.iterations() * JobSize) / monitorNs * 1e3 : 0;
    state.counters["idle/job"] = benchmark::Counter(static_cast<double>(idle), benchmark::Counter::kAvgIterations);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * JobSize));
}

const struct {
    const char* name;
    const char* what;
    StrategyCase meant;
} TcpStrategies[] = {
    {"TcpWriteCapped", "ECP, as a network printer's LPT1: is by default", {"LPT1", PM_ECP, false}},
    {"TcpWriteBehind", "compatibility", {"LPT1", PM_COMPAT, false}},
};

const struct {
    const char* name;
    const char* what;
    StrategyCase meant;
} Strategies[] = {
    {"WriteDirect", "USB, whole blocks", {"USB001", PM_COMPAT, true}},
    {"WriteCapped", "ECP, at most 4096 bytes a call", {"LPT1", PM_ECP, false}},
    {"WriteBehind", "compatibility, 80 bytes behind", {"LPT1", PM_COMPAT, false}},
};

std::string Name(const char* what, DWORD blockSize) { return std::string(what) + "/" + std::to_string(blockSize); }

class SummaryReporter : public CollectingReporter {
public:
    using CollectingReporter::CollectingReporter;

    void PrintSummary() const {
        std::printf("\nA %zu MB job on %s (%s): CPU time of the monitor's job against the plain write(2) loop\n",
                    JobSize >> 20, jobPath.c_str(), onTmpfs ? "tmpfs" : "NOT tmpfs: the file system is in the figures");
        // The worst allocations per block of each strategy, over the block sizes.
        std::map<std::string, double> allocations;
        for (DWORD blockSize : BlockSizes) {
            const Measured* plain = Measurement(Name("PlainWrite", blockSize));
            if (plain == nullptr) continue;
            const double base = plain->Time();
            std::printf("%u-byte blocks, plain loop %.2f ms a job:\n", blockSize, base);
            for (const auto& strategy : Strategies) {
                const Measured* m = Measurement(Name(strategy.name, blockSize));
                if (m == nullptr) continue;
                const double added = m->MedianCounter("added ns/4KiB");
                const double perBlock = m->Counter("allocs/block");
                double& worst = allocations[strategy.name];
                worst = std::max(worst, perBlock);
                std::printf("  %s (%s): %.2f ms, %.3fx the plain loop; %+.1f ns per 4 KiB over its paired plain job"
                            " (%.3fx it); %g allocations per block after the first\n",
                            strategy.name, strategy.what, m->Time(), m->Time() / base, added,
                            m->MedianCounter("paired"), perBlock);
                if (blockSize == QuantumBytes) {
                    ReportGoal(Format("data path %s: at most %.0f ns of CPU added per 4 KiB block", strategy.name,
                                      TargetAddedNs),
                               Format("%+.1f ns", added), added <= TargetAddedNs);
                }
            }
        }
        for (const auto& strategy : Strategies) {
            const auto it = allocations.find(strategy.name);
            if (it == allocations.end()) continue;
            ReportGoal(Format("data path %s: no allocation per block after the header", strategy.name),
                       Format("%g per block", it->second), it->second == 0);
        }
        std::printf("\nThe %zu MB job by TCP to langmon emulate, on the wall clock, each job read to its end: the"
                    " monitor's throughput as a share of the plain write(2) loop's, with the plain job just before"
                    " it\n",
                    JobSize >> 20);
        for (DWORD blockSize : BlockSizes) {
            const Measured* plain = Measurement(Name("TcpPlainWrite", blockSize));
            if (plain != nullptr) {
                std::printf("%u-byte blocks, plain loop %.0f MB/s:\n", blockSize, plain->Counter("MB/s"));
            }
            for (const auto& strategy : TcpStrategies) {
                const std::string name = Name(strategy.name, blockSize);
                const Measured* m = Measurement(name);
                if (m == nullptr) continue;
                const double ratio = m->MedianCounter("paired");
                const double share = ratio > 0 ? 1 / ratio : 0;
                std::printf("  %s (%s): %.0f MB/s, %.3f of the plain loop's, at least %.2f: %s;"
                            " %g calls a job took nothing\n",
                            strategy.name, strategy.what, m->Counter("MB/s"), share, TcpTargetShare,
                            share >= TcpTargetShare ? "met" : "not met", m->Counter("idle/job"));
                ReportGoal(Format("data path by TCP %s: at least %.2f of the plain loop's throughput", name.c_str(),
                                  TcpTargetShare),
                           Format("%.3f", share), share >= TcpTargetShare);
            }
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
    if (!OpenJobFile()) {
        std::perror("data_path_bench: no file to write the job to");
        return 1;
    }

    for (DWORD blockSize : BlockSizes) {
        benchmark::RegisterBenchmark(Name("PlainWrite", blockSize).c_str(), PlainLoop, blockSize)
            ->Unit(benchmark::kMillisecond);
        for (const auto& strategy : Strategies) {
            benchmark::RegisterBenchmark(Name(strategy.name, blockSize).c_str(), MonitorJob, strategy.meant, blockSize)
                ->Unit(benchmark::kMillisecond);
        }
    }

    // The network printer's figures need the command beside the benchmark;
    // without it they are left out, and the summary says so.
    if (networkPrinter.Start(LANGMON_COMMAND)) {
        for (DWORD blockSize : BlockSizes) {
            benchmark::RegisterBenchmark(Name("TcpPlainWrite", blockSize).c_str(), TcpPlainLoop, blockSize)
                ->Unit(benchmark::kMillisecond)
                ->UseManualTime();
            for (const auto& strategy : TcpStrategies) {
                benchmark::RegisterBenchmark(Name(strategy.name, blockSize).c_str(), TcpMonitorJob, strategy.meant,
                                             blockSize)
                    ->Unit(benchmark::kMillisecond)
                    ->UseManualTime();
            }
        }
    } else {
        std::fprintf(stderr, "data_path_bench: no network printer: %s\n", networkPrinter.Problem().c_str());
    }

    const int status = RunAndSummarise<SummaryReporter>(argc, argv);
    close(jobFd);
    return status;
}
