#include "platform/spooler_jobs.h"

#include "platform/folded_name.h"
#include "platform/memory.h"
#include "platform/packed_answer.h"
#include "platform/spooler.h"
#include "platform/spooler_printers.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <unordered_map>

namespace langmon {
namespace {

struct PrinterHandle {
    std::string name;
    bool open = false;
    // Where the printer stood in the book of printers last asked with this
    // handle, and that book's generation; OpenPrinterA places every handle.
    std::uint64_t generation = 0;
    std::size_t index = platform::NoPlace;
};

struct Queues {
    std::mutex mutex;
    // Every handle ever made, open or closed: a closed one waits in `spare`
    // for the next OpenPrinterA, since a host opens and closes each of its
    // printers on every reconcile of every port. A handle is looked up
    // here, never read through, so a made-up one is refused.
    std::unordered_set<PrinterHandle*> handles;
    std::vector<PrinterHandle*> spare;
    std::size_t openHandles = 0;
    // By printer name, as the spooler compares names.
    std::unordered_map<std::string, std::vector<platform::SpoolerJob>, platform::FoldedNameHash,
                       platform::FoldedNameEqual>
        jobs;
    std::vector<std::string> commands;
};

Queues& TheQueues() {
    static auto* queues = new Queues();  // never destroyed, see kernel.h
    return *queues;
}

// The handle's printer name, or null with ERROR_INVALID_HANDLE. Called with the lock held.
PrinterHandle* Known(Queues& q, HANDLE printer) {
    auto* handle = static_cast<PrinterHandle*>(printer);
    if (printer == nullptr || !q.handles.contains(handle) || !handle->open) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return handle;
}

// As Known, for the calls that have level 1 alone.
PrinterHandle* KnownAtLevel1(Queues& q, HANDLE printer, DWORD level) {
    PrinterHandle* handle = Known(q, printer);
    if (handle && level != 1) {
        SetLastError(ERROR_INVALID_LEVEL);
        return nullptr;
    }
    return handle;
}

std::vector<platform::SpoolerJob>& QueueOf(Queues& q, const std::string& printer) {
    return q.jobs[printer];
}

size_t JobInfoSize(const platform::SpoolerJob& job, const std::string& printer) {
    return sizeof(JOB_INFO_1) + printer.size() + 1 + 1 + job.userName.size() + 1 + job.document.size() + 1 +
           job.datatype.size() + 1 + 1;
}

void PutJobInfo(platform::PackedWriter& out, size_t index, const platform::SpoolerJob& job,
                const std::string& printer) {
    JOB_INFO_1 info{};
    info.JobId = job.jobId;
    info.pPrinterName = out.PutText(printer);
    info.pMachineName = out.PutText("");
    info.pUserName = out.PutText(job.userName);
    info.pDocument = out.PutText(job.document);
    info.pDatatype = out.PutText(job.datatype);
    info.pStatus = out.PutText("");
    info.Status = job.status;
    info.Position = job.position;
    info.PagesPrinted = job.pagesPrinted;
    out.PutRecord(index, info);
}

}  // namespace

BOOL OpenPrinterA(LPSTR printerName, HANDLE* printer, void* /*defaults*/) {
    std::uint64_t generation = 0;
    std::size_t index = platform::NoPlace;
    if (printer == nullptr || printerName == nullptr || printerName[0] == '\0' ||
        !platform::PrinterOnMachine(printerName, &generation, &index)) {
        SetLastError(ERROR_INVALID_PRINTER_NAME);
        return FALSE;
    }
    if (platform::CreationFails()) {
        return FALSE;
    }
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    PrinterHandle* handle = nullptr;
    if (!q.spare.empty()) {
        handle = q.spare.back();
        q.spare.pop_back();
    } else {
        handle = new PrinterHandle();
        q.handles.insert(handle);
        // Room for every handle to be spare, so that closing one never
        // allocates.
        q.spare.reserve(q.handles.size());
    }
    handle->name = printerName;
    handle->open = true;
    handle->generation = generation;
    handle->index = index;
    ++q.openHandles;
    *printer = handle;
    return TRUE;
}

BOOL ClosePrinter(HANDLE printer) {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    PrinterHandle* handle = Known(q, printer);
    if (!handle) return FALSE;
    handle->open = false;
    --q.openHandles;
    q.spare.push_back(handle);
    return TRUE;
}

BOOL GetJobA(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD size, LPDWORD needed) {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    PrinterHandle* handle = KnownAtLevel1(q, printer, level);
    if (!handle) return FALSE;
    auto& queue = QueueOf(q, handle->name);
    auto found = std::find_if(queue.begin(), queue.end(), [&](const auto& j) { return j.jobId == jobId; });
    if (found == queue.end()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    DWORD returned = 0;
    return platform::AnswerPacked(job, size, JobInfoSize(*found, handle->name), 1, needed, &returned, [&] {
        platform::PackedWriter out(job, sizeof(JOB_INFO_1));
        PutJobInfo(out, 0, *found, handle->name);
    });
}

BOOL EnumJobsA(HANDLE printer, DWORD firstJob, DWORD count, DWORD level, LPBYTE jobs, DWORD size,
               LPDWORD needed, LPDWORD returned) {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    PrinterHandle* handle = KnownAtLevel1(q, printer, level);
    if (!handle) return FALSE;
    auto& queue = QueueOf(q, handle->name);
    size_t first = std::min<size_t>(firstJob, queue.size());
    size_t n = std::min<size_t>(count, queue.size() - first);
    size_t total = 0;
    for (size_t i = 0; i < n; ++i) total += JobInfoSize(queue[first + i], handle->name);
    return platform::AnswerPacked(jobs, size, total, n, needed, returned, [&] {
        platform::PackedWriter out(jobs, n * sizeof(JOB_INFO_1));
        for (size_t i = 0; i < n; ++i) PutJobInfo(out, i, queue[first + i], handle->name);
    });
}

BOOL SetJobA(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD command) {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    PrinterHandle* handle = Known(q, printer);
    if (!handle) return FALSE;
    auto& queue = QueueOf(q, handle->name);
    auto found = std::find_if(queue.begin(), queue.end(), [&](const auto& j) { return j.jobId == jobId; });
    if (found == queue.end() || (level == 1 && job == nullptr) || level > 1) {
        SetLastError(level > 1 ? ERROR_INVALID_LEVEL : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    q.commands.push_back(std::to_string(jobId) + ":" + std::to_string(command));
    if (level == 1) {
        JOB_INFO_1 info;
        std::memcpy(&info, job, sizeof info);
        found->status = info.Status;
        found->position = info.Position;
        found->pagesPrinted = info.PagesPrinted;
    } else if (command == JOB_CONTROL_CANCEL) {
        queue.erase(found);
    }
    return TRUE;
}

namespace platform {

void SubmitJob(const std::string& printerName, const SpoolerJob& job) {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    QueueOf(q, printerName).push_back(job);
}

void RemoveJob(const std::string& printerName, DWORD jobId) {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    auto& queue = QueueOf(q, printerName);
    std::erase_if(queue, [&](const SpoolerJob& job) { return job.jobId == jobId; });
}

std::vector<SpoolerJob> QueuedJobs(const std::string& printerName) {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    return QueueOf(q, printerName);
}

std::size_t QueuedJobCount(const std::string& printerName) {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    const auto found = q.jobs.find(printerName);
    return found == q.jobs.end() ? 0 : found->second.size();
}

std::vector<std::string> JobCommands() {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    return q.commands;
}

void ForgetJobs() {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    q.jobs.clear();
    q.commands.clear();
}

size_t OpenPrinterHandleCount() {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    return q.openHandles;
}

bool PrinterPlaceOf(HANDLE printer, std::uint64_t generation, PlaceFinder find, const void* book,
                    std::size_t* index) {
    Queues& q = TheQueues();
    std::lock_guard lock(q.mutex);
    PrinterHandle* handle = Known(q, printer);
    if (!handle) return false;
    if (handle->generation != generation) {
        handle->index = find(book, handle->name);
        handle->generation = generation;
    }
    *index = handle->index;
    return true;
}

}  // namespace platform
}  // namespace langmon
