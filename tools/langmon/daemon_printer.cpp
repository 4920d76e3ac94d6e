#include "daemon_printer.h"

#include "printer_address.h"

#include "daemon/status_client.h"

namespace langmon::tool {

namespace {

// A daemon that answers at all answers "printers" at once.
constexpr int PrintersReplyMs = 3000;

}  // namespace

bool SamePrinter(const std::string& a, const std::string& b) {
    PrinterAddress first;
    PrinterAddress second;
    if (!ParsePrinterAddress(a, &first).empty() || !ParsePrinterAddress(b, &second).empty())
        return false;
    if (first.kind != second.kind) return false;
    switch (first.kind) {
        case AddressKind::Emulator:
            return false;
        case AddressKind::Network:
            return first.host == second.host && first.port == second.port;
        default:
            return first.path == second.path;
    }
}

std::string DaemonPrinterFor(const std::string& printer, const std::string& socketPath) {
    protocol::StatusClient client;
    std::string problem;
    if (!client.Connect(socketPath, "langmon", &problem)) return "";
    std::vector<protocol::PrinterSummary> printers;
    if (!client.AskPrinters(&printers, &problem, PrintersReplyMs)) return "";
    for (const protocol::PrinterSummary& held : printers) {
        if (held.name == printer) return held.name;
    }
    for (const protocol::PrinterSummary& held : printers) {
        if (SamePrinter(held.address, printer)) return held.name;
    }
    return "";
}

}  // namespace langmon::tool
