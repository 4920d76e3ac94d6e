#include "cups_link.h"

#include "langmon/client_view.h"
#include "langmon/printer_view.h"

#include "platform/user_input.h"

#include <chrono>
#include <memory>

#include <poll.h>

namespace langmon::backend {

namespace {

// How often the link looks at the side channel, and reads the printer's
// view for CUPS.
constexpr int SideChannelWaitMs = 250;
constexpr auto ViewEvery = std::chrono::milliseconds(1000);

}  // namespace

void CupsLines::Write(const std::string& line) {
    const std::lock_guard hold(mutex_);
    out_ << line << '\n' << std::flush;
}

void CupsLines::Debug(const std::string& what) {
    Write("DEBUG: langmon: " + platform::Printable(what));
}

PrinterViewSource StoreView(CupsLines& lines, const std::string& queue, bool foreign) {
    // The store is opened on the link's thread, at the first reading.
    auto store = std::make_shared<std::unique_ptr<tool::ClientStore>>();
    return [&lines, queue, foreign, store]() {
        if (!*store) {
            std::string problem;
            *store = std::make_unique<tool::ClientStore>(queue, &problem);
            if (!(*store)->IsOpen() && !foreign)
                lines.Debug("no status client of \"" + queue + "\": " + problem);
        }
        nlohmann::ordered_json printer = nlohmann::ordered_json::object();
        if ((*store)->IsOpen()) {
            const std::vector<tool::ClientVariable> values = (*store)->ReadAll();
            printer = tool::PrinterJson(tool::ValueFacts(values), tool::ViewScope::Client);
        } else if (foreign) {
            // No client follows a printer of another make; it is one all the same.
            printer["condition"] = "unknown-model";
        }
        return printer;
    };
}

CupsLink::CupsLink(CupsLines& lines, PrinterViewSource view,
                   std::optional<SideChannelSources> sources, const std::atomic<bool>& writeFailing)
    : lines_(lines),
      view_(std::move(view)),
      sideChannel_(sources.has_value()),
      sources_(std::move(sources).value_or(SideChannelSources{})),
      writeFailing_(writeFailing) {
    sources_.keywords = [this] { return announcer_.Standing(); };
    thread_ = std::thread([this] { Run(); });
}

void CupsLink::Stop() {
    if (!thread_.joinable()) return;
    done_ = true;
    thread_.join();
    for (const std::string& line : announcer_.WithdrawAll()) lines_.Write(line);
}

void CupsLink::Run() {
    auto nextView = std::chrono::steady_clock::now();
    bool answering = sideChannel_;
    while (!done_) {
        if (std::chrono::steady_clock::now() >= nextView) {
            nextView += ViewEvery;
            Announce();
        }
        if (answering) {
            answering = ServeSideChannel(sources_, SideChannelWaitMs);
        } else {
            poll(nullptr, 0, SideChannelWaitMs);
        }
    }
    Announce();
}

void CupsLink::Announce() {
    nlohmann::ordered_json printer = view_();
    // A printer that takes none of the job is not answering, whatever
    // its last reading said.
    if (writeFailing_.load()) printer["state_reasons"].push_back("offline-report");
    for (const std::string& line : announcer_.Update(printer)) lines_.Write(line);
}

}  // namespace langmon::backend
