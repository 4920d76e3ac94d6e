#include "status_command.h"

#include "client_view.h"
#include "daemon_status.h"
#include "error_words.h"
#include "interruption.h"
#include "job_sender.h"
#include "json_document.h"
#include "own_stores.h"
#include "port_value_request.h"
#include "printer_target.h"
#include "printer_view.h"
#include "watched_view.h"

#include "emulator/printer_description.h"
#include "framing/job_record.h"
#include "monitor/port_context.h"
#include "platform/clock.h"
#include "platform/spooler_printers.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "platform/user_input.h"

#include <langmon/monitor.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <optional>
#include <ostream>
#include <sstream>

namespace langmon::tool {

namespace {

// What the view shows, asked for fresh at the start: a poll, and the panel
// and service tag in one PJL request.
constexpr const char* RefreshList =
    "PrinterStatus;PrinterDisplay;ServiceTag;PrinterManufacturer;PrinterModel;TonerRemain;CRURemain;"
    "PrinterBinConfig;ErrCoverOpen;PrinterOptConfig;PrinterMemory;EmulationInfo";
// What --watch follows: every variable the view is made from.
constexpr const char* WatchedNames =
    "PrinterStatus;PrinterDisplay;ServiceTag;PrinterManufacturer;PrinterModel;TonerRemain;CRURemain;"
    "ErrSupplies;PrinterBinConfig;ErrCoverOpen;ErrPaperJam;PrinterOptConfig;PrinterMemory;EmulationInfo;"
    "PageCount;JobStatus;SendingJobInfo;PrintingJobInfo2";
// What --watch asks for when the printer's state changes.
constexpr char PanelList[] = "PrinterDisplay";
// How often --watch looks whether it was interrupted.
constexpr DWORD InterruptCheckMs = 250;

std::string RefreshOutcome(int32_t result) {
    switch (result) {
        case 0: return "";
        case -37: return "the printer does not answer";
        case -38: return "the port is busy with a job";
        case -80: return "the printer is of another model than its driver";
        default: return "the monitor had nothing to refresh (" + std::to_string(result) + ")";
    }
}

// A status application's own port handle: it asks the monitor as the
// spooler passes a client's requests on.
class Requests {
public:
    Requests(const MONITOR& monitor, HANDLE port) : monitor_(monitor), port_(port) {}
    // The 4-byte answer to a value name; `fallback` when the call fails.
    int32_t Ask(const std::string& name, int32_t fallback = -1) const {
        return AskPortValue(monitor_, port_, name, fallback);
    }

private:
    const MONITOR& monitor_;
    HANDLE port_;
};

// The printer as its client sees it: the store's variables, and the trays'
// paper from the monitor's LM_ values, read when the trays change.
class ClientFacts final : public PrinterFacts {
public:
    ClientFacts(const ClientStore& store, const Requests& requests) : store_(store), requests_(requests) {}
    std::optional<std::vector<uint8_t>> Variable(const char* name) const override { return store_.Read(name); }
    std::optional<std::pair<uint32_t, uint32_t>> TrayPaper(int tray) const override { return paper_[tray]; }
    // Asks for the trays' paper again when the trays are not what they were.
    void FollowTrays() {
        std::optional<std::vector<uint8_t>> bins = store_.Read("PrinterBinConfig");
        if (bins == bins_) return;
        bins_ = std::move(bins);
        for (int tray = 0; tray < 3; ++tray) {
            const std::string prefix = "LM_InputTray_" + std::to_string(tray) + "_MediaDim";
            const int32_t across = requests_.Ask(prefix + "XFeedDirChosen");
            const int32_t along = requests_.Ask(prefix + "FeedDirChosen");
            paper_[tray].reset();
            if (across > 0 && along > 0) paper_[tray] = {static_cast<uint32_t>(across), static_cast<uint32_t>(along)};
        }
    }

private:
    const ClientStore& store_;
    const Requests& requests_;
    std::optional<std::vector<uint8_t>> bins_;
    std::optional<std::pair<uint32_t, uint32_t>> paper_[3];
};


// A job that --watch sends through the port while it goes on watching.
struct WatchedJob {
    explicit WatchedJob(const std::string& path) : file(path) {}
    const MONITOR* monitor = nullptr;
    HANDLE port = nullptr;
    const PrinterTarget* target = nullptr;
    std::string printerName;
    DWORD jobId = 0;
    std::string document;
    platform::InputFile file;
    HANDLE done = nullptr;  // set when the job has been handed over
    const std::atomic<bool>* stop = nullptr;  // the watch was interrupted: the job ends where it is
    SentJob sent;

    static DWORD Run(LPVOID context) {
        auto* job = static_cast<WatchedJob*>(context);
        const JobTicket ticket{job->jobId, job->document, CommandUser()};
        job->sent = SendJob(*job->monitor, job->port, job->printerName, ticket, job->file, 4096, *job->target,
                            SendWatch{*job->stop});
        SetEvent(job->done);
        return 0;
    }
};

std::string SentText(const WatchedJob& job) {
    const SentJob& sent = job.sent;
    std::string text = "job " + std::to_string(job.jobId) + " (" + platform::Printable(job.document) + ") ";
    if (!sent.started) return text + "refused: StartDocPort " + CallOutcome(FALSE, sent.startError);
    text += "handed over: " + std::to_string(sent.taken) + " of " + std::to_string(sent.job.Size()) + " bytes taken";
    if (!sent.writeFailure.empty()) text += "; " + platform::Printable(sent.writeFailure);
    if (!sent.ended) text += "; EndDocPort " + CallOutcome(FALSE, sent.endError);
    return text;
}

// One document of `status --json`: the printer as its client sees it, at
// `atMs` into the watch (none for the first), with the store's variables.
nlohmann::ordered_json StatusDocument(const std::string& printerName, const std::string& portName,
                                      const std::string& notFresh, std::optional<DWORD> atMs,
                                      const nlohmann::ordered_json& printer, const ClientStore& store) {
    nlohmann::ordered_json document = NewJsonDocument("status");
    document["printer_name"] = printerName;
    document["port"] = portName;
    document["at_seconds"] = atMs ? nlohmann::ordered_json(*atMs / 1000.0) : nlohmann::ordered_json(nullptr);
    document["not_fresh"] = notFresh.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(notFresh);
    document["printer"] = printer;
    document["variables"] = VariablesJson(store.ReadAll());
    return document;
}

class Watch {
public:
    Watch(const StatusOptions& options, std::ostream& out, const MONITOR& monitor, HANDLE port,
          const std::string& printerName, PrinterTarget& target, ClientStore& store, ClientFacts& facts,
          const Requests& requests)
        : options_(options), out_(out), monitor_(monitor), port_(port), printerName_(printerName),
          target_(target), store_(store), facts_(facts), requests_(requests) {}

    // False when the status manager would not tell of changes.
    bool Run(const std::atomic<bool>& interrupted, ChangeSignal& signal, std::vector<ViewLine> shown,
             nlohmann::ordered_json shownJson) {
        interrupted_ = &interrupted;
        jobDone_ = CreateEventA(nullptr, FALSE, FALSE, nullptr);
        if (signal.event == nullptr || jobDone_ == nullptr || !store_.Watch(WatchedNames, ChangeSignal::Changed, &signal)) {
            return false;
        }
        // The status thread polls while "Wake Up" holds it.
        requests_.Ask("Wake Up");
        if (!options_.json) TellFollowing(out_, options_.forMs);
        view_ = WatchedView(std::move(shown), std::move(shownJson));
        const DWORD start = GetTickCount();
        std::size_t next = 0;
        std::string lastStatus = StatusLine(view_.Lines());
        while (!interrupted.load()) {
            const DWORD now = TickAge(GetTickCount(), start);
            if (options_.forMs != 0 && now >= options_.forMs) break;
            DWORD wait = InterruptCheckMs;
            if (options_.forMs != 0) wait = std::min(wait, options_.forMs - now);
            if (next < options_.changes.size()) {
                wait = options_.changes[next].atMs > now ? std::min(wait, options_.changes[next].atMs - now) : 0;
            }
            HANDLE events[2] = {signal.event, jobDone_};
            const DWORD woken = WaitForMultipleObjects(2, events, FALSE, wait);
            const DWORD at = TickAge(GetTickCount(), start);
            if (woken == WAIT_OBJECT_0 + 1) {
                Note(at, SentText(*job_));
                FinishJob();
            }
            while (next < options_.changes.size() && options_.changes[next].atMs <= at) {
                Make(options_.changes[next++], at);
            }
            if (woken != WAIT_OBJECT_0) continue;
            facts_.FollowTrays();
            view_.Show(out_, options_.json, facts_, at, [&](const nlohmann::ordered_json& printer) {
                return StatusDocument(printerName_, options_.portName, "", at, printer, store_);
            });
            // The panel follows the printer's state, asked for as a client
            // would: the status thread polls but doesn't ask for the panel.
            // During a job the printer reports it of its own accord.
            if (StatusLine(view_.Lines()) != lastStatus && job_ == nullptr) {
                store_.Write("RefreshStatus", PanelList, sizeof PanelList);
                requests_.Ask("Refresh:" + printerName_);
            }
            lastStatus = StatusLine(view_.Lines());
        }
        if (job_ != nullptr) {
            const std::string job = "job " + std::to_string(job_->jobId) + " (" + job_->document + ")";
            Tell("waiting for " + job + " to be handed over to the port; Ctrl-C again abandons it");
            const AbandonNote note(job + " is abandoned before it was wholly handed over");
            WaitForSingleObject(jobDone_, INFINITE);
            Note(TickAge(GetTickCount(), start), SentText(*job_));
            FinishJob();
        }
        requests_.Ask("Stop Polling");
        return true;
    }

    ~Watch() { Close(jobDone_); }

private:
    static void Close(HANDLE& handle) {
        if (handle != nullptr) CloseHandle(handle);
        handle = nullptr;
    }
    static std::string StatusLine(const std::vector<ViewLine>& lines) {
        for (const ViewLine& line : lines) {
            if (line.key == "status") return line.text;
        }
        return "";
    }
    // A wait the user should know of; JSON keeps standard output for the view.
    void Tell(const std::string& what) { (options_.json ? std::cerr : out_) << what << '\n' << std::flush; }
    void Note(DWORD at, const std::string& what) {
        if (!options_.json) out_ << Seconds(at) << ": " << what << '\n' << std::flush;
        view_.ForgetMoment();
    }
    void Make(const TimedChange& change, DWORD at) {
        if (change.words.rfind(PrintWord, 0) == 0) {
            StartJob(change.words.substr(PrintWord.size()), at);
            return;
        }
        emulator::Printer* printer = target_.Emulated();
        if (printer == nullptr) return;
        MakePrinterChange(*printer, change.words);
        Note(at, "the printer: " + platform::Printable(change.words));
    }
    void StartJob(const std::string& path, DWORD at) {
        const std::string shownPath = platform::Printable(path);
        if (job_ != nullptr) {
            Note(at, "print=" + shownPath + " waits: a job is being handed over");
            WaitForSingleObject(jobDone_, INFINITE);
            Note(TickAge(GetTickCount(), at), SentText(*job_));
            FinishJob();
        }
        auto job = std::make_unique<WatchedJob>(path);
        if (!job->file.Problem().empty()) {
            Note(at, platform::Printable(job->file.Problem()));
            return;
        }
        job->monitor = &monitor_;
        job->port = port_;
        job->target = &target_;
        job->printerName = printerName_;
        job->jobId = ++jobs_;
        job->document = path;
        job->done = jobDone_;
        job->stop = interrupted_;
        Note(at, "job " + std::to_string(job->jobId) + " (" + shownPath + ") is sent");
        jobThread_ = CreateThread(nullptr, 0, WatchedJob::Run, job.get(), 0, nullptr);
        if (jobThread_ == nullptr) {
            Note(at, "no thread to send the job");
            return;
        }
        job_ = std::move(job);
    }
    void FinishJob() {
        WaitForSingleObject(jobThread_, INFINITE);
        Close(jobThread_);
        job_.reset();
    }

    const StatusOptions& options_;
    std::ostream& out_;
    const MONITOR& monitor_;
    HANDLE port_;
    const std::string& printerName_;
    PrinterTarget& target_;
    ClientStore& store_;
    ClientFacts& facts_;
    const Requests& requests_;
    HANDLE jobDone_ = nullptr;
    HANDLE jobThread_ = nullptr;
    const std::atomic<bool>* interrupted_ = nullptr;
    std::unique_ptr<WatchedJob> job_;
    DWORD jobs_ = 0;
    WatchedView view_{{}, nlohmann::ordered_json()};
};

}  // namespace

bool ParseStatusOptions(const std::vector<std::string>& words, StatusOptions* options, std::string* error) {
    CommandWords reader(words, error);
    std::string word;
    while (reader.Next(&word)) {
        const OptionTaken taken = TakePortOption(word, reader, options);
        if (taken == OptionTaken::Broken) return false;
        if (taken == OptionTaken::Yes) continue;
        std::string text;
        if (word == "--json") {
            options->json = true;
        } else if (word == "--variables") {
            options->variables = true;
        } else if (word == "--watch") {
            options->watch = true;
        } else if (word == "--socket") {
            if (!reader.Value(&options->socket)) return false;
        } else if (word.rfind('-', 0) != 0 && options->daemonPrinter.empty()) {
            options->daemonPrinter = word;
        } else if (word == "--for") {
            if (!reader.Value(&text)) return false;
            char* end = nullptr;
            const double seconds = std::strtod(text.c_str(), &end);
            if (text.empty() || *end != '\0' || !(seconds > 0) || seconds > 86400) {
                *error = "--for takes seconds, more than 0 and at most 86400";
                return false;
            }
            options->forMs = static_cast<uint32_t>(seconds * 1000);
        } else if (word == "--at") {
            if (!reader.Value(&text)) return false;
            TimedChange change;
            if (!ParseTimedChange(text, &change, error)) return false;
            options->changes.push_back(std::move(change));
        } else {
            *error = (word.rfind('-', 0) == 0 ? "unknown option " : "unexpected ") + word;
            return false;
        }
    }
    if (reader.Broken()) return false;
    if (!options->watch && (options->forMs != 0 || !options->changes.empty())) {
        *error = "--for and --at go with --watch";
        return false;
    }
    if (!options->daemonPrinter.empty()) {
        // The daemon's printer is its own: the command neither chooses its
        // port nor changes it.
        if (options->portGiven || !options->printerName.empty() || options->printer != "emulator" ||
            !options->changes.empty()) {
            *error = "a printer of langmond (NAME) goes without --printer, --port, --printer-name and --at";
            return false;
        }
        return true;
    }
    if (!options->socket.empty()) {
        *error = "--socket goes with a printer of langmond (NAME)";
        return false;
    }
    if (std::string problem = CheckPrinterTarget(options->printer); !problem.empty()) {
        *error = problem;
        return false;
    }
    if (!options->portGiven) options->portName = ChoosePortName(options->printer, "");
    for (const TimedChange& change : options->changes) {
        if (change.words.rfind(PrintWord, 0) == 0) {
            // Read when its moment comes; whether it can be read at all is
            // known now.
            const platform::InputFile file(change.words.substr(PrintWord.size()));
            if (!file.Problem().empty()) {
                *error = "--at " + change.words + ": " + file.Problem();
                return false;
            }
            continue;
        }
        if (!IsEmulator(options->printer)) {
            *error = "--at " + change.words + ": only the emulated printer can be changed";
            return false;
        }
        if (std::string problem = CheckPrinterChange(change.words); !problem.empty()) {
            *error = problem;
            return false;
        }
    }
    SortChanges(options->changes);
    return true;
}

int RunStatus(const StatusOptions& options, std::ostream& out, std::ostream& err, const std::atomic<bool>& interrupted) {
    if (!options.daemonPrinter.empty()) return RunDaemonStatus(options, out, err, interrupted);
    KeepStatusStoresOwn();
    PrinterTarget target(options.printer, options.portName);
    MONITOR monitor{};
    InitializeMonitorEx(nullptr, &monitor);
    target.DescribePort(options.portName);

    std::string printerName = options.printerName.empty() ? PrinterOnPort(options.portName) : options.printerName;
    std::string standIn;
    if (printerName.empty()) {
        const std::string model = target.ProbeModel();
        printerName = AddStandInQueue(options.portName, model);
        standIn = " (a queue of the command's own: the machine has none on the port)";
    }
    // Without a client there is nothing to show; a mistyped name is the
    // common cause, and the view would be empty with no word of why.
    if (const std::string problem = StatusClientProblem(printerName); !problem.empty()) {
        err << "langmon status: no status client: " << problem << '\n';
        if (!standIn.empty()) platform::RemovePrinterQueue(printerName);
        return 1;
    }
    if (!options.json) {
        out << "langmon status of printer \"" << platform::Printable(printerName) << "\"" << standIn << " on port "
            << platform::Printable(options.portName) << ", " << platform::Printable(target.Description()) << '\n';
    }
    std::string portName = options.portName;
    HANDLE port = nullptr;
    if (!monitor.OpenPortEx(portName.data(), printerName.data(), &port, target.Lower())) {
        err << "langmon status: the port " << platform::Printable(options.portName)
            << " could not be opened: " << ErrorWords(GetLastError()) << '\n';
        return 1;
    }
    int exitCode = 0;
    {
        // Made before the store, so that it goes after it: no change is told
        // once the store is closed.
        ChangeSignal signal;
        std::string problem;
        ClientStore store(printerName, &problem);
        if (!store.IsOpen()) {
            err << "langmon status: no status client: " << platform::Printable(problem) << '\n';
            exitCode = 1;
        } else {
            const Requests requests(monitor, port);
            store.Write("RefreshStatus", RefreshList, static_cast<DWORD>(std::strlen(RefreshList) + 1));
            const std::string refreshed = RefreshOutcome(requests.Ask("Refresh:" + printerName, -19));
            ClientFacts facts(store, requests);
            facts.FollowTrays();
            const std::vector<ViewLine> lines = DescribePrinter(facts, ViewScope::Client);
            nlohmann::ordered_json printer = PrinterJson(facts, ViewScope::Client);
            if (options.json) {
                WriteJsonDocument(out, StatusDocument(printerName, options.portName, refreshed, std::nullopt, printer, store));
            } else {
                if (!refreshed.empty()) out << "  (no fresh values: " << refreshed << ")\n";
                WriteView(out, lines);
                if (options.variables) WriteVariables(out, "the client's variables, in hex:", store.ReadAll());
            }
            out << std::flush;
            if (options.watch) {
                Watch watch(options, out, monitor, port, printerName, target, store, facts, requests);
                if (!watch.Run(interrupted, signal, lines, std::move(printer))) {
                    err << "langmon status: the status manager would not tell of changes\n";
                }
            }
        }
    }
    std::optional<AbandonNote> closing;
    if (JobsTracked(static_cast<PortContext*>(port))) {
        // The printer has not yet reported the end of a job it was sent, and
        // the port waits for that: say so, as the wait looks like a hang.
        (options.json ? std::cerr : out)
            << "closing the port: the monitor waits up to two minutes for the printer to report the end of the "
               "job it was sent; Ctrl-C again abandons the wait\n"
            << std::flush;
        closing.emplace("the port is left without the printer's report of the job's end");
    }
    if (!monitor.ClosePort(port)) {
        err << "langmon status: the port could not be closed: " << ErrorWords(GetLastError()) << '\n';
        exitCode = 1;
    }
    // The machine is left as the command found it.
    if (!standIn.empty()) platform::RemovePrinterQueue(printerName);
    return exitCode;
}

}  // namespace langmon::tool
