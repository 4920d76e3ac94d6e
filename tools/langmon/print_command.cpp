#include "print_command.h"

#include "client_view.h"
#include "job_progress_view.h"
#include "file_port_monitor.h"
#include "job_report.h"
#include "monitoring_view.h"
#include "status_report.h"

#include "emulator/port_monitor.h"
#include "emulator/printer_description.h"
#include "framing/job_record.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/clock.h"
#include "platform/spooler_jobs.h"
#include "platform/spooler_printers.h"
#include "platform/text.h"

#include <langmon/monitor.h>

#include <algorithm>
#include <memory>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <ostream>
#include <sstream>

namespace langmon::tool {

namespace {

// Consecutive calls that take nothing before the job is given up. The monitor
// holds the spooler back this way while a printer is silent, a few seconds a
// call; a spooler waits, a command line user less long.
constexpr int MaxFruitlessWrites = 100;
// How long the command follows the status thread after the job's end: the
// printer's last pages and the polls that see the job gone.
constexpr DWORD MonitoringLimitMs = 120000;

std::vector<char> ReadWholeFile(const std::string& path, bool* ok) {
    std::ifstream in(path, std::ios::binary);
    *ok = static_cast<bool>(in);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string Outcome(BOOL result) {
    if (result) {
        return "ok";
    }
    std::ostringstream text;
    text << "failed, last error " << GetLastError();
    return text.str();
}

void Line(std::ostream& out, const std::string& call, const std::string& what) {
    out << "  " << std::left << std::setw(16) << call << what << '\n';
}

bool IsEmulator(const std::string& printer) {
    return printer == "emulator" || printer.rfind("emulator:", 0) == 0;
}

// The emulated printer that `printer` describes, or a message.
std::string DescribeEmulator(const std::string& printer, emulator::PrinterState* state) {
    *state = emulator::PrinterState::Default();
    state->pageTimeMs = CommandPageTimeMs;
    std::string_view description = printer.size() > 9 ? std::string_view(printer).substr(9) : "";
    return emulator::ApplyPrinterDescription(description, *state);
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

// The port name as the spooler's printer settings give it: without the
// colon of "LPT1:".
std::string BarePortName(std::string name) {
    if (!name.empty() && name.back() == ':') name.pop_back();
    return name;
}

// The machine's printer on the port, so that the job is the one its
// spooler would send; "langmon" when there is none.
std::string PrinterOnPort(const std::string& portName) {
    DWORD needed = 0;
    DWORD count = 0;
    EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count);
    std::vector<BYTE> buffer(needed);
    if (needed != 0 &&
        EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, buffer.data(), needed, &needed, &count)) {
        const auto* printers = reinterpret_cast<const PRINTER_INFO_2*>(buffer.data());
        const std::string port = BarePortName(portName);
        for (DWORD i = 0; i < count; ++i) {
            if (printers[i].pPortName != nullptr &&
                lstrcmpiA(BarePortName(printers[i].pPortName).c_str(), port.c_str()) == 0) {
                return printers[i].pPrinterName;
            }
        }
    }
    return "langmon";
}

// Why a printer has no client: what the machine says of its queue.
std::string NoClientReason(const std::string& printerName) {
    HANDLE printer = nullptr;
    if (!OpenPrinterA(const_cast<LPSTR>(printerName.c_str()), &printer, nullptr)) {
        return "the machine has no printer of that name (see LANGMON_REGISTRY)";
    }
    ClosePrinter(printer);
    return "its driver is not one of the known models, or has no status key";
}

}  // namespace

bool ParsePrintOptions(const std::vector<std::string>& words, PrintOptions* options,
                       std::string* error) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        auto value = [&](std::string* into) {
            if (i + 1 >= words.size()) {
                *error = word + " needs a value";
                return false;
            }
            *into = words[++i];
            return true;
        };
        if (word == "--printer") {
            if (!value(&options->printer)) return false;
        } else if (word == "--port") {
            if (!value(&options->portName)) return false;
        } else if (word == "--printer-name") {
            if (!value(&options->printerName)) return false;
        } else if (word == "--document") {
            if (!value(&options->documentName)) return false;
        } else if (word == "--block-size") {
            std::string size;
            if (!value(&size)) return false;
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
    if (options->jobFile.empty()) {
        *error = "which file? langmon print FILE";
        return false;
    }
    if (IsEmulator(options->printer)) {
        emulator::PrinterState state;
        std::string problem = DescribeEmulator(options->printer, &state);
        if (!problem.empty()) {
            *error = "--printer " + options->printer + ": " + problem;
            return false;
        }
        return true;
    }
    if (options->printer.rfind("file:", 0) != 0 || options->printer.size() == 5) {
        *error = "--printer takes emulator, emulator:DESCRIPTION or file:PATH";
        return false;
    }
    return true;
}

int RunPrint(const PrintOptions& options, std::ostream& out) {
    bool readable = false;
    const std::vector<char> job = ReadWholeFile(options.jobFile, &readable);
    if (!readable) {
        out << "langmon print: cannot read " << options.jobFile << '\n';
        return 1;
    }
    // The printer at the end of the port: the emulated one, or a file.
    const bool emulated = IsEmulator(options.printer);
    emulator::PrinterState state;
    std::string outputPath;
    MONITOR lower{};
    std::unique_ptr<emulator::Printer> printer;
    emulator::PortMonitor emulatorPorts;
    std::string target;
    if (emulated) {
        DescribeEmulator(options.printer, &state);
        printer = std::make_unique<emulator::Printer>(state);
        emulatorPorts.Attach(options.portName, *printer);
        lower = *emulatorPorts.Table();
        target = "the emulated " + state.model;
    } else {
        outputPath = options.printer.substr(5);
        lower = FilePortMonitor(outputPath);
        target = options.printer;
    }
    CountPolls(&lower);
    MONITOR monitor{};
    InitializeMonitorEx(nullptr, &monitor);

    std::string portName = options.portName;
    std::string printerName =
        options.printerName.empty() ? PrinterOnPort(options.portName) : options.printerName;
    out << "langmon print " << options.jobFile << " on port " << options.portName
        << " of printer \"" << printerName << "\", to " << target << '\n';

    // The client's view of the job is followed from before the job starts,
    // so that no record it is handed is missed.
    JobProgressWatch progress(printerName);
    HANDLE port = nullptr;
    BOOL ok = monitor.OpenPortEx(portName.data(), printerName.data(), &port, &lower);
    Line(out, "OpenPortEx", Outcome(ok));
    if (!ok) {
        return 1;
    }

    std::string document = options.documentName.empty() ? options.jobFile : options.documentName;
    std::string datatype = "RAW";
    DOC_INFO_1 docInfo{document.data(), nullptr, datatype.data()};
    const DWORD jobId = 1;
    ok = monitor.StartDocPort(port, printerName.data(), jobId, 1, reinterpret_cast<LPBYTE>(&docInfo));
    Line(out, "StartDocPort", "job " + std::to_string(jobId) + ", " + Outcome(ok));
    int exitCode = ok ? 0 : 1;

    if (ok) {
        std::size_t sent = 0;
        unsigned calls = 0;
        int fruitless = 0;
        std::string failure;
        while (sent < job.size()) {
            const DWORD length =
                static_cast<DWORD>(std::min<std::size_t>(options.blockSize, job.size() - sent));
            DWORD written = 0;
            ++calls;
            auto* data = reinterpret_cast<LPBYTE>(const_cast<char*>(job.data() + sent));
            if (!monitor.WritePort(port, data, length, &written)) {
                failure = Outcome(FALSE);
                break;
            }
            // The spooler calls again with what was not taken.
            sent += std::min<DWORD>(written, length);
            fruitless = written == 0 ? fruitless + 1 : 0;
            if (fruitless == MaxFruitlessWrites) {
                failure = "the port took nothing " + std::to_string(fruitless) + " times running";
                break;
            }
        }
        std::ostringstream what;
        what << calls << (calls == 1 ? " call, " : " calls, ") << sent << " of " << job.size()
             << " bytes taken";
        if (!failure.empty()) {
            what << "; " << failure;
            exitCode = 1;
        }
        Line(out, "WritePort", what.str());
        ok = monitor.EndDocPort(port);
        Line(out, "EndDocPort", Outcome(ok));
        exitCode = ok ? exitCode : 1;
        FollowMonitoring(out, static_cast<PortContext*>(port), MonitoringLimitMs);
    }
    // The variables go with the port: what the last poll made of the printer
    // is taken before it closes.
    std::ostringstream status;
    DescribePrinterStatus(status, static_cast<PortContext*>(port), false);
    // A client reads the printer's store while the port is open; closing it
    // tells every client that the printer is no longer watched.
    std::string clientProblem;
    const std::vector<ClientVariable> clientView = ReadClientView(printerName, &clientProblem);
    if (JobsTracked(static_cast<PortContext*>(port))) {
        // Reported as it happens: the wait is long enough to look like a hang.
        out << "  ClosePort waits up to two minutes for the printer to report the job's end\n"
            << std::flush;
    }
    ok = monitor.ClosePort(port);
    Line(out, "ClosePort", Outcome(ok));
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

    const std::string_view jobBytes(job.data(), job.size());
    if (emulated) {
        WaitForPrinter(*printer);
        DescribeReceived(out, jobBytes, printer->Received());
        DescribePrinter(out, *printer);
        return exitCode;
    }
    bool written = false;
    const std::vector<char> received = ReadWholeFile(outputPath, &written);
    if (written) {
        DescribeReceived(out, jobBytes, std::string_view(received.data(), received.size()));
    }
    return exitCode;
}

}  // namespace langmon::tool
