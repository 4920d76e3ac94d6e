#include "job_sender.h"

#include "platform/spooler_jobs.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

namespace langmon::tool {

namespace {

// Consecutive calls that take nothing before the job is given up. The monitor
// holds the spooler back this way while a printer is silent, a few seconds a
// call; a spooler waits, a command line user less long.
constexpr int MaxFruitlessWrites = 100;

}  // namespace

bool ReadWholeFile(const std::string& path, std::string* bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

std::string CallOutcome(BOOL result, DWORD error) {
    return result ? "ok" : "failed, last error " + std::to_string(error);
}

SentJob SendJob(const MONITOR& monitor, HANDLE port, const std::string& printerName, DWORD jobId,
                const std::string& document, std::string_view bytes, unsigned blockSize) {
    SentJob sent;
    // The monitor's entries take writable texts, as the spooler's do.
    std::vector<char> printer(printerName.begin(), printerName.end());
    printer.push_back('\0');
    std::vector<char> name(document.begin(), document.end());
    name.push_back('\0');
    char datatype[] = "RAW";
    // The job stands in the printer's queue while it is sent, as a spooler
    // queues it, so that the monitor finds it there by its number.
    platform::SpoolerJob queued;
    queued.jobId = jobId;
    queued.document = document;
    const char* user = std::getenv("USER");
    queued.userName = user != nullptr ? user : "langmon";
    platform::SubmitJob(printerName, queued);
    DOC_INFO_1 docInfo{name.data(), nullptr, datatype};
    sent.started = monitor.StartDocPort(port, printer.data(), jobId, 1, reinterpret_cast<LPBYTE>(&docInfo));
    sent.startError = sent.started ? 0 : GetLastError();
    if (!sent.started) {
        platform::RemoveJob(printerName, jobId);
        return sent;
    }

    int fruitless = 0;
    while (sent.taken < bytes.size()) {
        const DWORD length = static_cast<DWORD>(std::min<std::size_t>(blockSize, bytes.size() - sent.taken));
        DWORD written = 0;
        ++sent.writeCalls;
        auto* data = reinterpret_cast<LPBYTE>(const_cast<char*>(bytes.data() + sent.taken));
        if (!monitor.WritePort(port, data, length, &written)) {
            sent.writeFailure = CallOutcome(FALSE, GetLastError());
            break;
        }
        // The spooler calls again with what was not taken.
        sent.taken += std::min<DWORD>(written, length);
        fruitless = written == 0 ? fruitless + 1 : 0;
        if (fruitless == MaxFruitlessWrites) {
            sent.writeFailure = "the port took nothing " + std::to_string(fruitless) + " times running";
            break;
        }
    }
    sent.ended = monitor.EndDocPort(port);
    sent.endError = sent.ended ? 0 : GetLastError();
    platform::RemoveJob(printerName, jobId);
    return sent;
}

}  // namespace langmon::tool
