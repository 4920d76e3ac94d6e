#include "job_sender.h"

#include "error_words.h"

#include "platform/clock.h"
#include "platform/spooler_jobs.h"

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <vector>

namespace langmon::tool {

namespace {

// A call that moved nothing is made again after this pause, as a spooler
// waits before it tries a port again.
constexpr DWORD FruitlessCallPauseMs = 100;
// A call that failed is made again after this pause: the printer is off or
// gone, and each try may take a connection's time-out.
constexpr DWORD FailedCallPauseMs = 2000;
// How often a streaming sender that waits for the job looks for a stop.
constexpr int StreamWaitMs = 250;
// A printer that took nothing for this long has the wait said: a shorter
// pause is only a printer at work.
constexpr DWORD SayWaitAfterMs = 1000;

// A block as full as the job file fills it: a pipe may give less at a time.
// Streaming, it is what one read gives, once there is something: a filter's
// output goes on as it comes, and a stop is seen while none comes.
std::size_t ReadBlock(platform::InputFile& job, std::vector<char>& block, const SendWatch& watch) {
    if (watch.streaming) {
        while (!job.Ready(StreamWaitMs)) {
            if (watch.stop.load()) return 0;
        }
        return watch.stop.load() ? 0 : job.Read(block.data(), block.size());
    }
    std::size_t filled = 0;
    while (filled < block.size()) {
        const std::size_t got = job.Read(block.data() + filled, block.size() - filled);
        if (got == 0) break;
        filled += got;
    }
    return filled;
}

}  // namespace

std::string CommandUser() {
    const char* user = std::getenv("USER");
    return user != nullptr && *user != '\0' ? user : "langmon";
}

std::string CallOutcome(BOOL result, DWORD error) {
    return result ? "ok" : "failed: " + ErrorWords(error);
}

SentJob SendJob(const MONITOR& monitor, HANDLE port, const std::string& printerName, const JobTicket& ticket,
                platform::InputFile& job, unsigned blockSize, const PrinterTarget& printer, const SendWatch& watch) {
    const DWORD jobId = ticket.id;
    SentJob sent;
    // The monitor's entries take writable texts, as the spooler's do.
    std::vector<char> printerText(printerName.begin(), printerName.end());
    printerText.push_back('\0');
    std::vector<char> name(ticket.document.begin(), ticket.document.end());
    name.push_back('\0');
    char datatype[] = "RAW";
    // The job stands in the printer's queue while it is sent, as a spooler
    // queues it, so that the monitor finds it there by its number.
    platform::SpoolerJob queued;
    queued.jobId = jobId;
    queued.document = ticket.document;
    queued.userName = ticket.user;
    platform::SubmitJob(printerName, queued);
    DOC_INFO_1 docInfo{name.data(), nullptr, datatype};
    sent.started = monitor.StartDocPort(port, printerText.data(), jobId, 1, reinterpret_cast<LPBYTE>(&docInfo));
    sent.startError = sent.started ? 0 : GetLastError();
    if (!sent.started) {
        platform::RemoveJob(printerName, jobId);
        return sent;
    }
    if (watch.started) watch.started();

    // Progress is what the printer takes, seen below the monitor: while the
    // monitor sends its header it reports none of the job's bytes taken.
    std::uint64_t received = printer.ReceivedCount();
    DWORD lastProgress = GetTickCount();
    DWORD said = 0;  // the wait last said, by its limit
    std::string waitingFor;  // the failure a patient sender waits out
    std::vector<char> block(blockSize);
    const auto stopped = [&] {
        if (!watch.stop.load()) return false;
        sent.writeFailure = "interrupted: the job ends after " + std::to_string(sent.taken) + " bytes";
        return true;
    };
    while (sent.writeFailure.empty() && !stopped()) {
        const std::size_t length = ReadBlock(job, block, watch);
        if (length == 0) {
            if (!job.Problem().empty()) sent.writeFailure = job.Problem();
            break;
        }
        sent.job.Append({block.data(), length});
        if (watch.holdingBlock != nullptr) watch.holdingBlock->store(true);
        for (std::size_t done = 0; done < length && !stopped();) {
            DWORD written = 0;
            ++sent.writeCalls;
            const auto rest = static_cast<DWORD>(length - done);
            if (!monitor.WritePort(port, reinterpret_cast<LPBYTE>(block.data() + done), rest, &written)) {
                const std::string failure = "WritePort " + CallOutcome(FALSE, GetLastError());
                if (!watch.patient) {
                    sent.writeFailure = failure;
                    break;
                }
                if (watch.waiting && waitingFor != failure) watch.waiting(waitingFor = failure);
                Sleep(FailedCallPauseMs);
                continue;
            }
            // The spooler calls again with what was not taken.
            written = std::min(written, rest);
            done += written;
            sent.taken += written;
            const std::uint64_t nowReceived = printer.ReceivedCount();
            if (written != 0 || nowReceived != received) {
                if (watch.waiting && !waitingFor.empty()) watch.waiting(waitingFor = "");
                received = nowReceived;
                lastProgress = GetTickCount();
                said = 0;
                if (watch.progress != nullptr) {
                    watch.progress->Show("  sending: " + ByteCount(sent.taken) + " of the job taken");
                }
                continue;
            }
            // A printer the monitor finds stopped gets less time than one that
            // may only be slow; either wait is said once, when it has begun.
            const std::string stoppedBy = watch.stoppedBy ? watch.stoppedBy() : "";
            const DWORD limit = stoppedBy.empty() ? StalledPrinterLimitMs : StoppedPrinterLimitMs;
            const DWORD waited = TickAge(GetTickCount(), lastProgress);
            if (waited >= SayWaitAfterMs && watch.out != nullptr && said != limit) {
                said = limit;
                if (watch.progress != nullptr) watch.progress->Clear();
                *watch.out << "  the printer " << (stoppedBy.empty() ? "takes nothing" : "has stopped (" + stoppedBy + ")")
                           << "; waiting up to " << limit / 1000 << " s for it to take the job\n"
                           << std::flush;
            }
            if (waited >= limit && !watch.patient) {
                sent.stoppedBy = stoppedBy;
                sent.writeFailure = stoppedBy.empty()
                                        ? "given up: the printer took nothing for " + std::to_string(limit / 1000) + " seconds"
                                        : "given up: the printer has stopped (" + stoppedBy + ") and took nothing for " +
                                              std::to_string(limit / 1000) + " seconds";
                break;
            }
            Sleep(FruitlessCallPauseMs);
        }
        if (watch.holdingBlock != nullptr) watch.holdingBlock->store(false);
    }
    if (watch.holdingBlock != nullptr) watch.holdingBlock->store(false);
    if (watch.progress != nullptr) watch.progress->Clear();
    if (watch.ending) watch.ending();
    sent.ended = monitor.EndDocPort(port);
    sent.endError = sent.ended ? 0 : GetLastError();
    platform::RemoveJob(printerName, jobId);
    return sent;
}

}  // namespace langmon::tool
