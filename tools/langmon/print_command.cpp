#include "print_command.h"

#include "client_view.h"
#include "error_words.h"
#include "job_progress_view.h"
#include "job_report.h"
#include "interruption.h"
#include "job_sender.h"
#include "monitoring_view.h"
#include "printer_target.h"
#include "status_report.h"

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

void Line(std::ostream& out, const std::string& call, const std::string& what) {
    // Each call as it ends: a person or a pipe follows the job as it goes.
    out << "  " << std::left << std::setw(16) << call << what << '\n' << std::flush;
}

// Waits until the printer has printed everything it holds, or has printed
// nothing for a while: a jam or an empty tray stops it for good here.
void WaitForPrinter(emulator::Printer& printer) {
    const emulator::PrinterState state = printer.State();
    const DWORD patience = 2 * state.pageTimeMs + state.warmUpMs + 1000;
    uint32_t pages = state.pageCount;
    DWORD lastProgress = GetTickCount();
    while (!printer.Idle() && TickAge(GetTickCount(), lastProgress) < patience) {
        Sleep(std::max<DWORD>(1, std::min<DWORD>(state.pageTimeMs, 100)));
        uint32_t now = printer.State().pageCount;
        if (now != pages) {
            pages = now;
            lastProgress = GetTickCount();
        }
    }
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
        if (word == "--document") {
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
        *error = problem;
        return false;
    }
    return true;
}

int RunPrint(const PrintOptions& options, std::ostream& out, std::ostream& err, const std::atomic<bool>& interrupted) {
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

    std::string portName = options.portName;
    std::string printerName = options.printerName.empty() ? PrinterOnPort(options.portName) : options.printerName;
    if (printerName.empty()) printerName = "langmon";
    out << "langmon print " << platform::Printable(options.jobFile) << " on port "
        << platform::Printable(options.portName) << " of printer \"" << platform::Printable(printerName) << "\", to "
        << platform::Printable(target.Description()) << '\n'
        << std::flush;

    // The client's view of the job is followed from before the job starts,
    // so that no record it is handed is missed.
    JobProgressWatch progress(printerName);
    HANDLE port = nullptr;
    BOOL ok = monitor.OpenPortEx(portName.data(), printerName.data(), &port, &lower);
    const DWORD openError = GetLastError();
    Line(out, "OpenPortEx", CallOutcome(ok, openError));
    if (!ok) {
        err << "langmon print: the port " << platform::Printable(portName)
            << " could not be opened: " << ErrorWords(openError) << '\n';
        return 1;
    }

    const std::string document = options.documentName.empty() ? options.jobFile : options.documentName;
    const DWORD jobId = 1;
    const SentJob sent = SendJob(monitor, port, printerName, jobId, document, job, options.blockSize, target, interrupted);
    Line(out, "StartDocPort", "job " + std::to_string(jobId) + ", " + CallOutcome(sent.started, sent.startError));
    int exitCode = sent.started ? 0 : 1;
    if (!sent.started) err << "langmon print: the job could not be started: " << ErrorWords(sent.startError) << '\n';
    if (sent.started) {
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
        FollowMonitoring(out, static_cast<PortContext*>(port), MonitoringLimitMs, interrupted);
    }
    // The variables go with the port: what the last poll made of the printer
    // is taken before it closes.
    std::ostringstream status;
    DescribePrinterStatus(status, static_cast<PortContext*>(port), false);
    // A client reads the printer's store while the port is open; closing it
    // tells every client that the printer is no longer watched.
    std::string clientProblem;
    const std::vector<ClientVariable> clientView = ReadClientView(printerName, &clientProblem);
    std::optional<AbandonNote> closing;
    if (JobsTracked(static_cast<PortContext*>(port))) {
        // Reported as it happens: the wait is long enough to look like a hang.
        out << "  ClosePort waits up to two minutes for the printer to report the job's end; Ctrl-C "
            << (interrupted.load() ? "again " : "") << "abandons the wait\n"
            << std::flush;
        closing.emplace("the port is left without the printer's report of the job's end");
    }
    ok = monitor.ClosePort(port);
    const DWORD closeError = GetLastError();
    closing.reset();
    Line(out, "ClosePort", CallOutcome(ok, closeError));
    if (!ok) err << "langmon print: the port could not be closed: " << ErrorWords(closeError) << '\n';
    out << "what the monitor's last poll made of the printer:\n" << status.str();
    out << "what a status client of \"" << printerName << "\" received:\n";
    if (clientView.empty()) {
        out << "  nothing: " << (clientProblem.empty() ? NoClientReason(printerName) : clientProblem) << '\n';
    }
    DescribeClientView(out, clientView);
    if (progress.Problem().empty()) {
        out << "the job as the client followed it:\n";
        DescribeJobProgress(out, progress.Records());
    }
    out << "the status words the spooler was given for \"" << printerName << "\":\n";
    DescribeSpoolerView(out, printerName);
    exitCode = ok ? exitCode : 1;
    if (interrupted.load()) exitCode = InterruptedExitCode();

    if (emulator::Printer* printer = target.Emulated()) {
        if (!interrupted.load()) WaitForPrinter(*printer);
        DescribeReceived(out, sent.job, target.Received());
        DescribePrinter(out, *printer);
        return exitCode;
    }
    DescribeReceived(out, sent.job, target.Received());
    return exitCode;
}

}  // namespace langmon::tool
