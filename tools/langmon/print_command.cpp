#include "print_command.h"

#include "client_view.h"
#include "daemon_print.h"
#include "daemon_printer.h"
#include "error_words.h"
#include "job_progress_view.h"
#include "job_report.h"
#include "interruption.h"
#include "job_sender.h"
#include "monitoring_view.h"
#include "own_stores.h"
#include "print_json.h"
#include "printer_target.h"
#include "printer_view.h"
#include "progress_line.h"
#include "status_report.h"

#include "daemon/status_protocol.h"
#include "framing/job_record.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/clock.h"
#include "platform/spooler_jobs.h"
#include "platform/user_input.h"

#include <langmon/monitor.h>

#include <algorithm>
#include <iomanip>
#include <optional>
#include <ostream>
#include <sstream>

namespace langmon::tool {

namespace {

// How long the command follows the status thread after the job's end: the
// printer's last pages and the polls that see the job gone.
constexpr DWORD MonitoringLimitMs = 120000;

// `text`'s lines, each behind `indent`.
std::string Indented(const std::string& text, const std::string& indent) {
    std::string indented;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        indented += indent + text.substr(at, end - at) + '\n';
        at = end + 1;
    }
    return indented;
}

void Line(std::ostream& out, const std::string& call, const std::string& what) {
    // Each call as it ends: a person or a pipe follows the job as it goes.
    out << "  " << std::left << std::setw(16) << call << what << '\n' << std::flush;
}

// Waits until the printer has printed everything it holds, or has printed
// nothing for a while: a jam or an empty tray stops it for good here.
void WaitForPrinter(emulator::Printer& printer, ProgressLine& progress) {
    const emulator::PrinterState state = printer.State();
    const DWORD patience = 2 * state.pageTimeMs + state.warmUpMs + 1000;
    uint32_t pages = state.pageCount;
    const uint32_t first = pages;
    DWORD lastProgress = GetTickCount();
    while (!printer.Idle() && TickAge(GetTickCount(), lastProgress) < patience) {
        Sleep(std::max<DWORD>(1, std::min<DWORD>(state.pageTimeMs, 100)));
        uint32_t now = printer.State().pageCount;
        if (now != pages) {
            pages = now;
            lastProgress = GetTickCount();
            progress.Show("  printing: " + std::to_string(pages - first) + " more pages printed");
        }
    }
    progress.Clear();
}

}  // namespace

bool ParsePrintOptions(const std::vector<std::string>& words, PrintOptions* options,
                       std::string* error) {
    CommandWords reader(words, error);
    std::string word;
    while (reader.Next(&word)) {
        const OptionTaken taken = TakePortOption(word, reader, options);
        if (taken == OptionTaken::Broken) return false;
        if (taken == OptionTaken::Yes) continue;
        if (word == "--json") {
            options->json = true;
        } else if (word == "--variables") {
            options->variables = true;
        } else if (word == "--document") {
            if (!reader.Value(&options->documentName)) return false;
        } else if (word == "--block-size") {
            std::string size;
            if (!reader.Value(&size)) return false;
            char* end = nullptr;
            const unsigned long parsed = std::strtoul(size.c_str(), &end, 10);
            if (size.empty() || *end != '\0' || parsed == 0 || parsed > (1u << 24)) {
                *error = "--block-size takes a number of bytes from 1 to 16777216";
                return false;
            }
            options->blockSize = static_cast<unsigned>(parsed);
        } else if (!word.empty() && word[0] == '-') {
            *error = "unknown option " + word;
            return false;
        } else if (options->jobFile.empty()) {
            options->jobFile = word;
        } else {
            *error = "one job file at a time";
            return false;
        }
    }
    if (reader.Broken()) return false;
    if (options->jobFile.empty()) {
        *error = "no FILE given";
        return false;
    }
    if (std::string problem = CheckPrinterTarget(options->printer); !problem.empty()) {
        // A printer of langmond is named by its name: whether the daemon
        // serves one is asked when the job runs. A text with a colon is
        // meant as an address, and what is wrong with it is said at once.
        if (!protocol::IsValidPrinterName(options->printer) || options->printer.find(':') != std::string::npos) {
            *error = problem;
            return false;
        }
        options->addressProblem = problem;
        return true;
    }
    if (!options->portGiven) options->portName = ChoosePortName(options->printer, "");
    return true;
}

int RunPrint(const PrintOptions& options, std::ostream& shown, std::ostream& err, const std::atomic<bool>& interrupted) {
    // A printer the daemon owns is reached through it: its port is the
    // daemon's. The emulated printer is each process's own.
    PrinterAddress address;
    if (!options.addressProblem.empty() || (ParsePrinterAddress(options.printer, &address).empty() &&
                                            address.kind != AddressKind::Emulator)) {
        const std::string socketPath = protocol::SocketPath();
        if (const std::string held = DaemonPrinterFor(options.printer, socketPath); !held.empty()) {
            return RunDaemonPrint(options, held, socketPath, shown, err, interrupted);
        }
        if (!options.addressProblem.empty()) {
            err << "langmon print: " << platform::Printable(options.addressProblem)
                << ", nor a printer of langmond; see 'langmon print --help'\n";
            return 2;
        }
    }
    KeepStatusStoresOwn();
    // With --json the report goes nowhere, and one document says it all at the end.
    std::ostream nowhere(nullptr);
    std::ostream& out = options.json ? nowhere : shown;
    PrintOutcome outcome;
    // The job is read as it is sent, a block at a time; a file that can't be
    // read at all is told before anything starts.
    platform::InputFile job(options.jobFile);
    if (!job.Problem().empty()) {
        err << "langmon print: " << platform::Printable(job.Problem()) << '\n';
        return 1;
    }
    // The printer at the end of the port: the emulated one, or a file.
    PrinterTarget target(options.printer, options.portName);
    MONITOR& lower = *target.Lower();
    CountPolls(&lower);
    MONITOR monitor{};
    InitializeMonitorEx(nullptr, &monitor);
    target.DescribePort(options.portName);

    // Without a machine that describes a printer on the port, a printer that
    // answers (the emulated one, a USB or a network one) gets a queue of its model, as a host that finds a printer
    // makes one: a client, a framed job and the printer's reports. A file
    // answers nothing, so its queue stays one without a client.
    std::string portName = options.portName;
    std::string printerName = options.printerName.empty() ? PrinterOnPort(options.portName) : options.printerName;
    std::string queueNote;
    if (printerName.empty() && target.Answers()) {
        printerName = AddStandInQueue(options.portName, target.ProbeModel());
        queueNote = " (a queue of the command's own: the machine has none on the port)";
    } else if (printerName.empty()) {
        printerName = "langmon";
        queueNote = " (not a queue of the machine: no status client, so no PJL header)";
    }
    out << "langmon print " << platform::Printable(options.jobFile) << " to " << platform::Printable(target.Description())
        << ",\n  on port " << platform::Printable(options.portName) << " of printer \"" << platform::Printable(printerName)
        << "\"" << queueNote << "\n\nwhat the spooler did:\n"
        << std::flush;

    // The client's view of the job is followed from before the job starts,
    // so that no record it is handed is missed.
    JobProgressWatch progress(printerName);
    ProgressLine progressLine(out, options.terminal && !options.json);
    HANDLE port = nullptr;
    BOOL ok = monitor.OpenPortEx(portName.data(), printerName.data(), &port, &lower);
    const DWORD openError = GetLastError();
    Line(out, "OpenPortEx", CallOutcome(ok, openError));
    outcome.jobFile = options.jobFile;
    outcome.portName = options.portName;
    outcome.printerName = printerName;
    outcome.target = target.Description();
    outcome.opened = ok != FALSE;
    outcome.openError = openError;
    if (!ok) {
        err << "langmon print: the port " << platform::Printable(portName)
            << " could not be opened: " << ErrorWords(openError) << '\n';
        if (options.json) WritePrintJson(shown, outcome);
        return 1;
    }
    auto* const context = static_cast<PortContext*>(port);

    const std::string document = options.documentName.empty() ? options.jobFile : options.documentName;
    const DWORD jobId = 1;
    SendWatch watch{interrupted};
    watch.stoppedBy = [context] { return StoppingCondition(context); };
    watch.started = [&] { Line(out, "StartDocPort", "job " + std::to_string(jobId) + ", ok"); };
    FollowStart followFrom;
    watch.ending = [&followFrom] { followFrom = FollowFromNow(); };
    watch.out = &out;
    watch.progress = &progressLine;
    const JobTicket ticket{jobId, document, CommandUser()};
    const SentJob sent = SendJob(monitor, port, printerName, ticket, job, options.blockSize, target, watch);
    int exitCode = sent.started ? 0 : 1;
    std::string stoppedBy = sent.stoppedBy;
    if (!sent.started) {
        Line(out, "StartDocPort", "job " + std::to_string(jobId) + ", " + CallOutcome(FALSE, sent.startError));
        err << "langmon print: the job could not be started: " << ErrorWords(sent.startError) << '\n';
    } else {
        std::ostringstream what;
        what << sent.writeCalls << (sent.writeCalls == 1 ? " call, " : " calls, ") << sent.taken << " of "
             << sent.job.Size() << " bytes taken";
        if (!sent.writeFailure.empty()) {
            what << "; " << platform::Printable(sent.writeFailure);
            err << "langmon print: the job did not go through: " << platform::Printable(sent.writeFailure) << '\n';
            exitCode = 1;
        }
        Line(out, "WritePort", what.str());
        Line(out, "EndDocPort", CallOutcome(sent.ended, sent.endError));
        if (!sent.ended) {
            err << "langmon print: the job could not be ended: " << ErrorWords(sent.endError) << '\n';
            exitCode = 1;
        }
        const auto jobNow = [&progress] {
            const std::vector<std::vector<uint8_t>> records = progress.Records();
            // Once no job prints, there is nothing to say of it.
            const std::string text = records.empty() ? std::string() : JobRecordText(records.back());
            return text == "no job printing" ? std::string() : text;
        };
        const FollowOutcome followed = FollowMonitoring(out, context, followFrom, MonitoringLimitMs, StoppedPrinterLimitMs,
                                                        interrupted, progressLine, jobNow);
        if (stoppedBy.empty()) stoppedBy = followed.stoppedBy;
    }
    if (!stoppedBy.empty()) {
        if (sent.stoppedBy.empty()) {
            err << "langmon print: the printer has stopped (" << stoppedBy << "); the job stays at it\n";
        }
        exitCode = StoppedJobExitCode;
        outcome.stoppedBy = stoppedBy;
    }
    // The variables go with the port: what the last poll made of the printer
    // is taken before it closes.
    std::ostringstream status;
    if (options.variables) DescribePrinterStatus(status, context);
    if (options.json) outcome.printer = PortPrinterJson(context);
    // A client reads the printer's store while the port is open; closing it
    // tells every client that the printer is no longer watched.
    std::string clientProblem;
    const std::vector<ClientVariable> clientView = ReadClientView(printerName, &clientProblem);

    // What happened, in the order it happened: the bytes sent, what the
    // printer made of them, what a client saw, what the spooler was told.
    const auto report = [&] {
        out << "\nwhat was sent:\n";
        std::ostringstream received;
        DescribeReceived(received, sent.job, target.Received());
        out << Indented(received.str(), "  ");
        out << "\nwhat the printer said:\n";
        if (emulator::Printer* printer = target.Emulated()) {
            if (!interrupted.load() && stoppedBy.empty()) WaitForPrinter(*printer, progressLine);
            std::ostringstream said;
            DescribePrinter(said, *printer);
            out << Indented(said.str(), "  ");
        } else {
            out << "  " << (target.Answers() ? "" : "nothing: ") << target.Silence() << '\n';
        }
        // What a client sees says the same and more; support may want both.
        if (options.variables) {
            out << "  its device ID, as the monitor's last poll read it:\n" << Indented(status.str(), "  ");
        }
        out << "\nwhat a status client of \"" << platform::Printable(printerName) << "\" saw:\n";
        if (clientView.empty()) {
            out << "  nothing: " << (clientProblem.empty() ? NoClientReason(printerName) : clientProblem) << '\n';
        } else {
            WriteView(out, DescribePrinter(ValueFacts(clientView), ViewScope::Client));
            if (options.variables) {
                std::ostringstream variables;
                WriteVariables(variables, "the client's variables, in hex:", clientView);
                out << Indented(variables.str(), "  ");
            }
        }
        if (progress.Problem().empty()) {
            out << "  the job, as the client followed it:\n";
            std::ostringstream followed;
            DescribeJobProgress(followed, progress.Records());
            out << Indented(followed.str(), "  ");
        }
        out << "\nwhat the spooler was told of \"" << platform::Printable(printerName) << "\":\n";
        DescribeSpoolerView(out, printerName);
        out << std::flush;
        if (options.json) {
            outcome.sent = &sent;
            outcome.received = target.Received();
            outcome.client = clientView;
            outcome.clientProblem =
                clientView.empty() ? (clientProblem.empty() ? NoClientReason(printerName) : clientProblem) : "";
            if (progress.Problem().empty()) outcome.followed = progress.Records();
            outcome.spoolerWords = SpoolerStatusWords(printerName);
        }
    };

    if (!stoppedBy.empty() && JobsTracked(context) && options.leaveStoppedPort) {
        report();
        out << "\nthe port is left as it stands: closing it would wait up to two minutes for the printer's report of "
               "the job's end\n";
        if (options.json) WritePrintJson(shown, outcome);
        options.leaveStoppedPort(exitCode);
    }
    std::optional<AbandonNote> closing;
    if (JobsTracked(context)) {
        // Reported as it happens: the wait is long enough to look like a
        // hang. JSON keeps standard output for the document.
        (options.json ? err : out) << "  ClosePort waits up to two minutes for the printer to report the job's end; Ctrl-C "
            << (interrupted.load() ? "again " : "") << "abandons the wait\n"
            << std::flush;
        closing.emplace("the port is left without the printer's report of the job's end");
    }
    ok = monitor.ClosePort(port);
    const DWORD closeError = GetLastError();
    closing.reset();
    Line(out, "ClosePort", CallOutcome(ok, closeError));
    if (!ok) err << "langmon print: the port could not be closed: " << ErrorWords(closeError) << '\n';
    report();
    if (options.json) {
        outcome.closed = ok != FALSE;
        outcome.closeError = closeError;
        WritePrintJson(shown, outcome);
    }
    exitCode = ok ? exitCode : 1;
    if (interrupted.load()) exitCode = InterruptedExitCode();
    return exitCode;
}

}  // namespace langmon::tool
