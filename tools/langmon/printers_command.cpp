#include "printers_command.h"

#include "command_words.h"
#include "json_document.h"
#include "prometheus_text.h"

#include "daemon/status_client.h"
#include "platform/user_input.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace langmon::tool {

bool ParsePrintersOptions(const std::vector<std::string>& words, PrintersOptions* options, std::string* error) {
    CommandWords reader(words, error);
    std::string word;
    while (reader.Next(&word)) {
        if (word == "--json") {
            options->json = true;
        } else if (word == "--prometheus") {
            options->prometheus = true;
        } else if (word == "--socket") {
            if (!reader.Value(&options->socket)) return false;
        } else {
            *error = (word.rfind('-', 0) == 0 ? "unknown option " : "unexpected ") + word;
            return false;
        }
    }
    if (options->json && options->prometheus) {
        *error = "--json and --prometheus are two ways to say the same: one at a time";
        return false;
    }
    return !reader.Broken();
}

int RunPrinters(const PrintersOptions& options, std::ostream& out, std::ostream& err) {
    const std::string path = options.socket.empty() ? protocol::SocketPath() : options.socket;
    protocol::StatusClient client;
    std::string problem;
    std::vector<protocol::PrinterSummary> printers;
    if (!client.Connect(path, "langmon printers", &problem) || !client.AskPrinters(&printers, &problem)) {
        err << "langmon printers: " << platform::Printable(problem) << '\n';
        return 1;
    }
    if (options.prometheus) {
        std::vector<std::pair<std::string, nlohmann::json>> views;
        for (const protocol::PrinterSummary& printer : printers) {
            protocol::DaemonMessage status;
            nlohmann::json view;
            if (client.Ask(protocol::StatusRequest{0, printer.name}, &status, &problem)) {
                if (const auto* got = std::get_if<protocol::StatusReply>(&status)) view = got->printer;
            }
            views.emplace_back(printer.name, view);
        }
        out << PrometheusMetrics(views);
        return 0;
    }
    if (options.json) {
        nlohmann::ordered_json document = NewJsonDocument("printers");
        document["socket"] = path;
        document["printers"] = nlohmann::ordered_json::array();
        for (const protocol::PrinterSummary& printer : printers) {
            document["printers"].push_back({{"name", printer.name},
                                            {"address", printer.address},
                                            {"port", printer.port},
                                            {"state", printer.state},
                                            {"status", printer.status}});
        }
        out << document.dump(2) << '\n';
        return 0;
    }
    if (printers.empty()) {
        out << "langmond on " << path << " serves no printers\n";
        return 0;
    }
    std::size_t nameWidth = 4, statusWidth = 6;
    for (const protocol::PrinterSummary& printer : printers) {
        nameWidth = std::max(nameWidth, platform::Printable(printer.name).size());
        statusWidth = std::max(statusWidth, platform::Printable(printer.status).size());
    }
    out << std::left << std::setw(static_cast<int>(nameWidth)) << "NAME" << "  " << std::setw(7) << "PORT" << "  "
        << std::setw(static_cast<int>(statusWidth)) << "STATUS" << "  ADDRESS\n";
    for (const protocol::PrinterSummary& printer : printers) {
        out << std::setw(static_cast<int>(nameWidth)) << platform::Printable(printer.name) << "  " << std::setw(7)
            << platform::Printable(printer.port) << "  " << std::setw(static_cast<int>(statusWidth))
            << platform::Printable(printer.status.empty() ? "not read yet" : printer.status) << "  "
            << platform::Printable(printer.address) << '\n';
    }
    return 0;
}

}  // namespace langmon::tool
