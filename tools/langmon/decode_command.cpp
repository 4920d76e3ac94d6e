#include "decode_command.h"

#include "answer_port_monitor.h"
#include "json_document.h"
#include "own_stores.h"
#include "command_words.h"
#include "error_words.h"
#include "status_report.h"

#include "acquisition/poll.h"
#include "acquisition/sts_block.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "platform/user_input.h"
#include "portkind/port_kind.h"

#include <langmon/monitor.h>

#include <algorithm>
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

// Why the STS: field of `text` does not decode, or empty when it does or
// there is none. The fields are found as the monitor finds them: a key right
// at the text's start or behind a ';'.
std::string StsProblem(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(';', at), text.size());
        if (text.compare(at, 4, "STS:") == 0) {
            const std::string value = text.substr(at + 4, end - at - 4);
            StatusRecord record{};
            if (DecodeStsBlock(value.c_str(), &record) != 0) return {};
            if (value.size() != StsTextLength) {
                return "it is " + std::to_string(value.size()) + " characters long, and the printer's status takes " +
                       std::to_string(StsTextLength);
            }
            const std::size_t bad = value.find_first_not_of(
                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=");
            return "character " + std::to_string(bad + 1) + " ('" + platform::Printable(value.substr(bad, 1)) +
                   "') is not Base64";
        }
        at = end + 1;
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
        } else if (word == "--variables") {
            options->variables = true;
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
    KeepStatusStoresOwn();
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
    // Of a known model the monitor reads the status block, and passes over
    // one that does not decode: what it would show then is no reading.
    if (const std::string why = StsProblem(options.deviceId); !why.empty() && HasPortFlag(port, PF_MODEL_KNOWN)) {
        err << "langmon decode: the STS field does not decode: " << why << '\n';
        monitor.ClosePort(handle);
        return 1;
    }
    if (options.json) {
        nlohmann::ordered_json document = NewJsonDocument("decode");
        document["printer"] = PortPrinterJson(port);
        document["variables"] = VariablesJson(PortVariables(port));
        WriteJsonDocument(out, document);
    } else {
        out << "what the monitor makes of the device ID\n";
        DescribePrinterStatus(out, port);
        if (options.variables) WriteVariables(out, "the port's variables, in hex:", PortVariables(port));
    }
    monitor.ClosePort(handle);
    return 0;
}

}  // namespace langmon::tool
