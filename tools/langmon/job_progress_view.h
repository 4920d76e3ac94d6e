// A job as its status client follows it: every PrintingJobInfo2 value the
// client is handed, from the job's start at the printer through its pages to
// its final figures and the empty record.
#pragma once

#include "client_view.h"

#include <cstdint>
#include <iosfwd>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace langmon::tool {

class JobProgressWatch {
public:
    explicit JobProgressWatch(const std::string& printerName);
    // Each value as the client was handed it, oldest first.
    std::vector<std::vector<uint8_t>> Records();
    // Why nothing can be watched; empty while the watch stands.
    const std::string& Problem() const { return problem_; }

private:
    static void Changed(uint32_t managerHandle, const char* name, void* context);

    std::mutex mutex_;
    std::vector<std::vector<uint8_t>> records_;
    std::string problem_;
    // Last, so that it closes first: no change arrives once the rest is gone.
    ClientStore store_;
};

// A record of at least PrintingJobInfo2's size in words: "job 3 started",
// "job 3: 2 pages printed", "job 3 ended: ..." with its figures, or "no job
// printing".
std::string JobRecordText(const std::vector<uint8_t>& record);
// The pages job `jobId` printed, from the printer's own report of its end;
// none before it.
std::optional<uint32_t> JobEndPages(const std::vector<std::vector<uint8_t>>& records, uint32_t jobId);
// One line per record: started, pages printed, the final figures, no job.
void DescribeJobProgress(std::ostream& out, const std::vector<std::vector<uint8_t>>& records);

}  // namespace langmon::tool
