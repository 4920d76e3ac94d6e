#include "job_progress_view.h"

#include "variables/derived.h"

#include <ostream>

namespace langmon::tool {

namespace {

constexpr const char* JobInfoName = "PrintingJobInfo2";

std::string Pages(uint32_t count) { return std::to_string(count) + (count == 1 ? " page" : " pages"); }

}  // namespace

JobProgressWatch::JobProgressWatch(const std::string& printerName) : store_(printerName, &problem_) {
    if (problem_.empty() && !store_.Watch(JobInfoName, Changed, this)) {
        problem_ = "the status manager would not watch " + std::string(JobInfoName);
    }
}

std::vector<std::vector<uint8_t>> JobProgressWatch::Records() {
    const std::lock_guard lock(mutex_);
    return records_;
}

void JobProgressWatch::Changed(uint32_t, const char*, void* context) {
    auto* watch = static_cast<JobProgressWatch*>(context);
    auto bytes = watch->store_.Read(JobInfoName);
    if (!bytes || bytes->size() < BlackCoverageOffset + sizeof(uint32_t)) return;
    const std::lock_guard lock(watch->mutex_);
    watch->records_.push_back(std::move(*bytes));
}

std::string JobRecordText(const std::vector<uint8_t>& record) {
    const auto word = [&](uint32_t offset) { return ReadWord(record.data(), offset); };
    const uint32_t jobId = word(JobIdOffset);
    const uint32_t colour = word(ColorPagesOffset);
    const uint32_t blackAndWhite = word(BwPagesOffset);
    const std::string job = "job " + std::to_string(jobId);
    if (jobId == 0) return "no job printing";
    // Only the final record carries the job's statistics.
    if (colour != 0 || blackAndWhite != 0) {
        return job + " ended: " + Pages(word(PagesOffset)) + ", " + std::to_string(colour) + " in colour and " +
               std::to_string(blackAndWhite) + " in black; coverage cyan " + std::to_string(word(CyanCoverageOffset)) +
               "%, magenta " + std::to_string(word(MagentaCoverageOffset)) + "%, yellow " +
               std::to_string(word(YellowCoverageOffset)) + "%, black " + std::to_string(word(BlackCoverageOffset)) +
               "%";
    }
    if (word(PagesOffset) == 0) return job + " started";
    return job + ": " + Pages(word(PagesOffset)) + " printed";
}

std::optional<uint32_t> JobEndPages(const std::vector<std::vector<uint8_t>>& records, uint32_t jobId) {
    for (auto record = records.rbegin(); record != records.rend(); ++record) {
        const auto word = [&](uint32_t offset) { return ReadWord(record->data(), offset); };
        if (word(JobIdOffset) == jobId && (word(ColorPagesOffset) != 0 || word(BwPagesOffset) != 0)) {
            return word(PagesOffset);
        }
    }
    return std::nullopt;
}

void DescribeJobProgress(std::ostream& out, const std::vector<std::vector<uint8_t>>& records) {
    if (records.empty()) {
        out << "  nothing: the printer reported no job to the client\n";
        return;
    }
    for (const std::vector<uint8_t>& record : records) out << "  " << JobRecordText(record) << '\n';
}

}  // namespace langmon::tool
