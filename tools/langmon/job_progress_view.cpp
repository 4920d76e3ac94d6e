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

void DescribeJobProgress(std::ostream& out, const std::vector<std::vector<uint8_t>>& records) {
    if (records.empty()) {
        out << "  nothing: the printer reported no job to the client\n";
        return;
    }
    for (const std::vector<uint8_t>& record : records) {
        const auto word = [&](uint32_t offset) { return ReadWord(record.data(), offset); };
        const uint32_t jobId = word(JobIdOffset);
        const uint32_t colour = word(ColorPagesOffset);
        const uint32_t blackAndWhite = word(BwPagesOffset);
        if (jobId == 0) {
            out << "  no job printing\n";
        } else if (colour != 0 || blackAndWhite != 0) {
            // Only the final record carries the job's statistics.
            out << "  job " << jobId << " ended: " << Pages(word(PagesOffset)) << ", " << colour
                << " in colour and " << blackAndWhite << " in black; coverage cyan "
                << word(CyanCoverageOffset) << "%, magenta " << word(MagentaCoverageOffset) << "%, yellow "
                << word(YellowCoverageOffset) << "%, black " << word(BlackCoverageOffset) << "%\n";
        } else if (word(PagesOffset) == 0) {
            out << "  job " << jobId << " started\n";
        } else {
            out << "  job " << jobId << ": " << Pages(word(PagesOffset)) << " printed\n";
        }
    }
}

}  // namespace langmon::tool
