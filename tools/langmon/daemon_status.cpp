#include "daemon_status.h"

#include "client_view.h"
#include "json_document.h"
#include "printer_view.h"
#include "watched_view.h"

#include "daemon/status_client.h"
#include "platform/clock.h"
#include "platform/sync.h"
#include "platform/user_input.h"

#include <cstdlib>
#include <ostream>

namespace langmon::tool {

namespace {

// What --watch follows: every variable the view is made from.
constexpr const char* WatchedNames =
    "PrinterStatus;PrinterDisplay;ServiceTag;PrinterManufacturer;PrinterModel;TonerRemain;CRURemain;"
    "ErrSupplies;PrinterBinConfig;ErrCoverOpen;ErrPaperJam;PrinterOptConfig;PrinterMemory;EmulationInfo;"
    "PageCount;JobStatus;SendingJobInfo;PrintingJobInfo2";
// How often --watch looks whether it was interrupted, or the daemon went.
constexpr DWORD CheckMs = 250;

class StoreFacts final : public PrinterFacts {
public:
    explicit StoreFacts(const ClientStore& store) : store_(store) {}
    std::optional<std::vector<uint8_t>> Variable(const char* name) const override { return store_.Read(name); }

private:
    const ClientStore& store_;
};

nlohmann::ordered_json Document(const std::string& name, const std::string& port, std::optional<DWORD> atMs,
                                const nlohmann::ordered_json& printer, const ClientStore& store) {
    nlohmann::ordered_json document = NewJsonDocument("status");
    document["printer_name"] = name;
    document["port"] = port;
    document["at_seconds"] = atMs ? nlohmann::ordered_json(*atMs / 1000.0) : nlohmann::ordered_json(nullptr);
    // The daemon keeps the printer polled: what the store holds is fresh.
    document["not_fresh"] = nullptr;
    document["printer"] = printer;
    document["variables"] = VariablesJson(store.ReadAll());
    return document;
}


// Whether the daemon at `path` serves `name`: empty when it does, with the
// port its monitor holds the printer on, else what the user is told.
std::string DaemonProblem(const std::string& path, const std::string& name, std::string* port) {
    protocol::StatusClient client;
    std::string problem;
    std::vector<protocol::PrinterSummary> printers;
    if (!client.Connect(path, "langmon status", &problem) || !client.AskPrinters(&printers, &problem)) {
        return problem;
    }
    for (const protocol::PrinterSummary& printer : printers) {
        if (printer.name != name) continue;
        *port = printer.port;
        return "";
    }
    return "langmond on " + path + " serves no printer \"" + name + "\" ('langmon printers' lists those it does)";
}

}  // namespace

int RunDaemonStatus(const StatusOptions& options, std::ostream& out, std::ostream& err,
                    const std::atomic<bool>& interrupted) {
    // The status manager library finds the daemon where the environment
    // says; and this process runs no monitor, so no store of its own may
    // stand in for the daemon's.
    if (!options.socket.empty()) setenv(protocol::SocketPathVariable, options.socket.c_str(), 1);
    unsetenv(protocol::StatusManagerModeVariable);
    const std::string path = protocol::SocketPath();
    const std::string& name = options.daemonPrinter;
    std::string port;
    if (const std::string problem = DaemonProblem(path, name, &port); !problem.empty()) {
        err << "langmon status: " << platform::Printable(problem) << '\n';
        return 1;
    }
    ChangeSignal signal;  // made before the store, so that it goes after it
    std::string problem;
    ClientStore store(name, &problem);
    if (!store.IsOpen()) {
        err << "langmon status: " << platform::Printable(problem) << '\n';
        return 1;
    }
    StoreFacts facts(store);
    std::vector<ViewLine> shown = DescribePrinter(facts, ViewScope::Client);
    nlohmann::ordered_json shownJson = PrinterJson(facts, ViewScope::Client);
    if (options.json) {
        WriteJsonDocument(out, Document(name, port, std::nullopt, shownJson, store));
    } else {
        out << "langmon status of printer \"" << platform::Printable(name) << "\" of langmond on " << path
            << (port.empty() ? "" : ", port " + platform::Printable(port)) << '\n';
        WriteView(out, shown);
        if (options.variables) WriteVariables(out, "the client's variables, in hex:", store.ReadAll());
    }
    out << std::flush;
    if (!options.watch) return 0;
    if (signal.event == nullptr || !store.Watch(WatchedNames, ChangeSignal::Changed, &signal)) {
        err << "langmon status: the status manager would not tell of changes\n";
        return 1;
    }
    if (!options.json) TellFollowing(out, options.forMs);
    WatchedView view(std::move(shown), std::move(shownJson));
    const DWORD start = GetTickCount();
    while (!interrupted.load()) {
        const DWORD now = TickAge(GetTickCount(), start);
        if (options.forMs != 0 && now >= options.forMs) break;
        const DWORD wait = options.forMs != 0 ? std::min(CheckMs, options.forMs - now) : CheckMs;
        if (WaitForSingleObject(signal.event, wait) != WAIT_OBJECT_0) {
            // A daemon that went away tells no more changes: ask.
            if (!store.Read("PrinterName")) {
                err << "langmon status: langmond went away\n";
                return 1;
            }
            continue;
        }
        const DWORD at = TickAge(GetTickCount(), start);
        view.Show(out, options.json, facts, at, [&](const nlohmann::ordered_json& printer) {
            return Document(name, port, at, printer, store);
        });
    }
    return 0;
}

}  // namespace langmon::tool
