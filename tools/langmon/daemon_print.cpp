#include "daemon_print.h"

#include "interruption.h"
#include "job_sender.h"

#include "daemon/job_stream.h"
#include "platform/user_input.h"

#include <chrono>
#include <iomanip>
#include <optional>
#include <ostream>
#include <sstream>
#include <thread>
#include <vector>

namespace langmon::tool {

namespace {

// A printer that takes none of a chunk for this long has its job given up,
// as one the command sends itself.
constexpr int ChunkLimitMs = static_cast<int>(StalledPrinterLimitMs);
// How long the command waits for another job at the printer to end, and
// how often it asks again.
constexpr auto BusyLimit = std::chrono::milliseconds(StalledPrinterLimitMs);
constexpr auto BusyAskEvery = std::chrono::milliseconds(500);

void Line(std::ostream& out, const std::string& request, const std::string& what) {
    out << "  " << std::left << std::setw(16) << request << what << '\n' << std::flush;
}

}  // namespace

int RunDaemonPrint(const PrintOptions& options, const std::string& printer,
                   const std::string& socketPath, std::ostream& out, std::ostream& err,
                   const std::atomic<bool>& interrupted) {
    if (options.json || options.variables || options.portGiven) {
        err << "langmon print: --json, --variables and --port are for a printer the command "
               "reaches itself; \""
            << platform::Printable(printer) << "\" is langmond's\n";
        return 2;
    }
    platform::InputFile job(options.jobFile);
    if (!job.Problem().empty()) {
        err << "langmon print: " << platform::Printable(job.Problem()) << '\n';
        return 1;
    }
    out << "langmon print " << platform::Printable(options.jobFile) << " to printer \""
        << platform::Printable(printer) << "\" of langmond,\n  on "
        << platform::Printable(socketPath) << "\n\nwhat langmond did:\n"
        << std::flush;
    protocol::JobStream stream;
    std::string problem;
    if (!stream.Connect(socketPath, "langmon print", &problem)) {
        err << "langmon print: " << platform::Printable(problem) << '\n';
        return 1;
    }
    const std::string document =
        options.documentName.empty() ? options.jobFile : options.documentName;
    const auto busyUntil = std::chrono::steady_clock::now() + BusyLimit;
    protocol::JobStream::Start start;
    bool said = false;
    while ((start = stream.Begin(printer, document, CommandUser(), &problem)) ==
               protocol::JobStream::Start::Busy &&
           !interrupted.load() && std::chrono::steady_clock::now() < busyUntil) {
        if (!said)
            out << "  the printer has another job at it; waiting up to "
                << StalledPrinterLimitMs / 1000 << " s for it to end\n"
                << std::flush;
        said = true;
        std::this_thread::sleep_for(BusyAskEvery);
    }
    if (start != protocol::JobStream::Start::Started) {
        Line(out, "job", "refused: " + platform::Printable(problem));
        err << "langmon print: the job could not be started: " << platform::Printable(problem)
            << '\n';
        return interrupted.load() ? InterruptedExitCode() : 1;
    }
    Line(out, "job", "job " + std::to_string(stream.Job()) + ", started");

    // The job is read as it is sent, a chunk at a time.
    uint64_t taken = 0;
    std::vector<char> block(protocol::MaxDataBytes);
    uint64_t chunks = 0;
    std::string failure;
    while (failure.empty()) {
        std::size_t filled = 0;
        while (filled < block.size()) {
            const std::size_t got = job.Read(block.data() + filled, block.size() - filled);
            if (got == 0) break;
            filled += got;
        }
        if (filled == 0) {
            failure = job.Problem();
            break;
        }
        const auto* bytes = reinterpret_cast<const uint8_t*>(block.data());
        if (!stream.Write({bytes, filled}, interrupted, ChunkLimitMs, &problem)) {
            failure = interrupted.load()
                          ? "interrupted: the job ends after " + std::to_string(taken) + " bytes"
                          : problem;
            break;
        }
        taken += filled;
        ++chunks;
    }
    std::ostringstream what;
    what << chunks << (chunks == 1 ? " chunk, " : " chunks, ") << taken
         << " bytes taken by the printer";
    if (!failure.empty()) what << "; " << platform::Printable(failure);
    Line(out, "data", what.str());
    int exitCode = 0;
    if (!failure.empty()) {
        // Cut short: the job ends at the printer, by a cancel, or by the
        // connection let go, which the daemon takes as one.
        if (stream.Connected()) stream.Cancel(&problem);
        Line(out, "cancel-job",
             "the job ended at the printer after " + std::to_string(taken) + " bytes");
        err << "langmon print: the job did not go through: " << platform::Printable(failure)
            << '\n';
        exitCode = interrupted.load() ? InterruptedExitCode() : 1;
    } else {
        std::optional<uint32_t> pages;
        if (!stream.End(&pages, interrupted, &problem)) {
            Line(out, "end-job", "failed: " + platform::Printable(problem));
            err << "langmon print: the job's end was not told: " << platform::Printable(problem)
                << '\n';
            exitCode = interrupted.load() ? InterruptedExitCode() : 1;
        } else if (pages) {
            Line(out, "end-job",
                 "the printer reported the job's end: " + std::to_string(*pages) +
                     (*pages == 1 ? " page printed" : " pages printed"));
        } else {
            Line(out, "end-job", "the job ended; the printer did not report its end in time");
        }
    }
    out << "\nwhat was sent:\n  " << taken << " bytes of " << platform::Printable(options.jobFile)
        << ", as job " << stream.Job() << " of \"" << platform::Printable(document) << "\" for "
        << platform::Printable(CommandUser()) << '\n'
        << std::flush;
    return exitCode;
}

}  // namespace langmon::tool
