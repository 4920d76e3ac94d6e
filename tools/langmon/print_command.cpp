#include "print_command.h"

#include "file_port_monitor.h"

#include <langmon/monitor.h>

#include <algorithm>
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

// How what reached the printer relates to the job that was handed over.
void DescribeReceived(std::ostream& out, const std::vector<char>& job,
                      const std::vector<char>& received) {
    out << "the printer received " << received.size() << " bytes: ";
    if (received == job) {
        out << "the job's " << job.size() << " bytes, unchanged\n";
        return;
    }
    auto at = std::search(received.begin(), received.end(), job.begin(), job.end());
    if (at == received.end()) {
        out << "not the job's bytes as handed over\n";
        return;
    }
    const auto before = at - received.begin();
    const auto after = received.end() - (at + static_cast<std::ptrdiff_t>(job.size()));
    out << before << " bytes ahead of the job's " << job.size() << ", " << after
        << " bytes behind it\n";
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
    if (options->printer.rfind("file:", 0) != 0 || options->printer.size() == 5) {
        *error = "--printer takes file:PATH";
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
    const std::string outputPath = options.printer.substr(5);
    MONITOR lower = FilePortMonitor(outputPath);
    MONITOR monitor{};
    InitializeMonitorEx(nullptr, &monitor);

    out << "langmon print " << options.jobFile << " on port " << options.portName
        << " of printer \"" << options.printerName << "\", to " << options.printer << '\n';

    std::string portName = options.portName;
    std::string printerName = options.printerName;
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
    }
    ok = monitor.ClosePort(port);
    Line(out, "ClosePort", Outcome(ok));
    exitCode = ok ? exitCode : 1;

    bool written = false;
    const std::vector<char> received = ReadWholeFile(outputPath, &written);
    if (written) {
        DescribeReceived(out, job, received);
    }
    return exitCode;
}

}  // namespace langmon::tool
