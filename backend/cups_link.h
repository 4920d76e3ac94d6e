// What CUPS is told and asked while a job runs: its lines written whole from
// any thread, and one loop that answers the side channel and turns the
// printer's view into STATE:, ATTR: and INFO: lines as it changes.
#pragma once

#include "cups_messages.h"
#include "side_channel.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

namespace langmon::backend {

// Lines for CUPS from two threads, whole and in order.
class CupsLines {
public:
    explicit CupsLines(std::ostream& out) : out_(out) {}
    void Write(const std::string& line);
    void Debug(const std::string& what);

private:
    std::mutex mutex_;
    std::ostream& out_;
};

// The printer as `langmon status --json` shows it under "printer"; an empty
// object when it can't be read.
using PrinterViewSource = std::function<nlohmann::ordered_json()>;

// The printer's view read from queue `queue`'s status store in this
// process, as a status client; `foreign`: a printer of another make, which
// no client follows. Called on the link's thread only.
PrinterViewSource StoreView(CupsLines& lines, const std::string& queue, bool foreign);

// Answers the side channel's questions as they come, and every second reads
// the printer's view from `view` and announces what changed.
class CupsLink {
public:
    // `sources` answer the side channel, if there is one; `writeFailing`
    // set: the printer takes none of the job, whatever its view says.
    CupsLink(CupsLines& lines, PrinterViewSource view, std::optional<SideChannelSources> sources,
             const std::atomic<bool>& writeFailing);
    ~CupsLink() { Stop(); }

    // Ends the loop; every keyword announced is withdrawn, as the printer
    // is no longer followed.
    void Stop();

private:
    void Run();
    void Announce();

    CupsLines& lines_;
    PrinterViewSource view_;
    const bool sideChannel_;
    SideChannelSources sources_;
    const std::atomic<bool>& writeFailing_;
    StateAnnouncer announcer_;
    std::atomic<bool> done_{false};
    std::thread thread_;
};

}  // namespace langmon::backend
