#include "decode_command.h"

#include "answer_port_monitor.h"
#include "command_words.h"
#include "error_words.h"
#include "status_report.h"

#include "acquisition/poll.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/user_input.h"
#include "portkind/port_kind.h"

#include <langmon/monitor.h>

#include <ostream>

namespace langmon::tool {

namespace {

// Why the monitor would not read the text, or empty.
std::string Unreadable(const std::string& text) {
    if (text.empty()) return "the text is empty";
    if (text.size() > DeviceIdBytes) {
        return "the text is " + std::to_string(text.size()) + " bytes long; a printer's answer holds at most " +
               std::to_string(DeviceIdBytes);
    }
    if (text.find('\0') != std::string::npos) return "the text holds a NUL byte";
    if (DeviceIdUsable(text.c_str()) == 0) {
        return text.find(std::string(258, ' ')) != std::string::npos
                   ? "the text holds a run of 258 or more blanks"
                   : "the text does not end in ';' (trailing blanks aside), as a device ID's fields of KEY:value; do";
    }
    return {};
}

}  // namespace

bool ParseDecodeOptions(const std::vector<std::string>& words, DecodeOptions* options,
                        std::string* error) {
    bool haveText = false;
    CommandWords reader(words, error);
    std::string word;
    while (reader.Next(&word)) {
        if (word == "--json") {
            options->json = true;
        } else if (word.size() > 1 && word[0] == '-' && word.find(':') == std::string::npos) {
            *error = "unknown option " + word;
            return false;
        } else if (haveText) {
            *error = "one device ID at a time (quote it: it holds blanks and ';')";
            return false;
        } else {
            options->deviceId = word;
            haveText = true;
        }
    }
    if (reader.Broken()) return false;
    if (!haveText) {
        *error = "no DEVICE_ID given";
        return false;
    }
    if (options->deviceId == "-") {
        // A device ID read from a file ends in the line break the shell or
        // the kernel put there; no more than that is read past the longest
        // answer a printer gives.
        platform::InputFile input = platform::InputFile::StandardInput();
        if (std::string problem = platform::ReadUpTo(input, DeviceIdBytes + 2, "a device ID with its line break",
                                                     &options->deviceId);
            !problem.empty()) {
            *error = problem;
            return false;
        }
        while (!options->deviceId.empty() &&
               (options->deviceId.back() == '\n' || options->deviceId.back() == '\r')) {
            options->deviceId.pop_back();
        }
    }
    return true;
}

int RunDecode(const DecodeOptions& options, std::ostream& out, std::ostream& err) {
    if (const std::string why = Unreadable(options.deviceId); !why.empty()) {
        err << "langmon decode: not a device ID: " << why << '\n';
        return 2;
    }
    MONITOR lower = AnswerPortMonitor(options.deviceId);
    MONITOR monitor{};
    InitializeMonitorEx(nullptr, &monitor);
    char portName[] = "LPT1:";
    char printerName[] = "langmon decode";
    HANDLE handle = nullptr;
    if (!monitor.OpenPortEx(portName, printerName, &handle, &lower)) {
        err << "langmon decode: the port could not be opened: " << ErrorWords(GetLastError()) << '\n';
        return 1;
    }
    auto* port = static_cast<PortContext*>(handle);
    if ((port->portKind & PK_BIDI) == 0) {
        err << "langmon decode: the machine description makes " << portName
            << " a one-way port, which is never polled\n";
        monitor.ClosePort(handle);
        return 1;
    }
    PollPrinterStatusHoldingSemaphore(port);
    if (options.json) {
        WritePrinterStatusJson(out, port);
    } else {
        out << "what the monitor makes of the device ID\n";
        DescribePrinterStatus(out, port, true);
    }
    monitor.ClosePort(handle);
    return 0;
}

}  // namespace langmon::tool
