#include "job_report.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <ostream>
#include <string>

namespace langmon::tool {
namespace {

constexpr std::string_view Uel = "\x1b%-12345X";

std::string ResultText(emulator::JobResult result) {
    switch (result) {
        case emulator::JobResult::Ok: return "printed";
        case emulator::JobResult::CancelledAtPanel: return "cancelled at the panel";
        case emulator::JobResult::CancelledByHost: return "cancelled by the host";
    }
    return "?";
}

std::string Plural(uint64_t n, const char* word) {
    return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

}  // namespace

std::string ShowBytes(std::string_view bytes, std::string_view indent) {
    std::string text(indent);
    for (size_t i = 0; i < bytes.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (bytes.substr(i, Uel.size()) == Uel) {
            text += "<UEL>";
            i += Uel.size() - 1;
        } else if (c == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n') {
            // the line end shows as the line break that follows
        } else if (c == '\n') {
            text += '\n';
            if (i + 1 < bytes.size()) text += indent;
        } else if (c == 0x1b) {
            text += "<ESC>";
        } else if (c == 0x04) {
            text += "<EOT>";
        } else if (c == '\f') {
            text += "<FF>";
        } else if (c < 0x20 || c == 0x7f) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            text += hex;
        } else {
            text += static_cast<char>(c);
        }
    }
    if (text.empty() || text.back() != '\n') text += '\n';
    return text;
}

void DescribeReceived(std::ostream& out, const StreamRecord& job, const StreamRecord& received) {
    out << "the printer received " << received.Size() << " bytes: ";
    bool undecided = false;
    const std::optional<uint64_t> at = received.Find(job, &undecided);
    if (!at) {
        out << "not the job's bytes as handed over";
        if (undecided) out << ", as far as the first and last " << StreamRecord::KeptBytes << " bytes tell";
        out << '\n';
        return;
    }
    const uint64_t after = received.Size() - *at - job.Size();
    if (*at == 0 && after == 0) {
        out << "the job's " << job.Size() << " bytes, unchanged\n";
        return;
    }
    out << *at << " bytes ahead of the job's " << job.Size() << ", " << after << " bytes behind it\n";
    // The job was found in the head, so all that is ahead of it is kept.
    if (*at != 0) out << "  ahead of the job:\n" << ShowBytes(received.Head().substr(0, *at), "    ");
    if (after != 0) {
        out << "  behind the job";
        if (after > StreamRecord::KeptBytes) out << ", its last " << StreamRecord::KeptBytes << " bytes";
        out << ":\n" << ShowBytes(received.Tail(after), "    ");
    }
}

void DescribePrinter(std::ostream& out, emulator::Printer& printer) {
    for (const emulator::JobRecordOfPrinter& job : printer.Jobs()) {
        out << (job.finished ? "finished " : "has not finished ");
        out << (job.framed ? "job \"" + job.name + "\"" : std::string("a job without a PJL JOB line"));
        out << ": " << Plural(job.pagesPrinted, "page") << " printed, " << job.colorPages << " in colour and "
            << job.bwPages << " in black";
        if (job.finished) out << "; " << ResultText(job.result);
        out << '\n';
    }

    // What it said back, by the first line of each response.
    std::string sent = printer.Sent();
    std::map<std::string, int> responses;
    std::vector<std::string> order;
    for (size_t at = 0; at < sent.size();) {
        size_t end = sent.find('\f', at);
        std::string_view response = std::string_view(sent).substr(at, end == std::string::npos ? std::string::npos : end - at);
        size_t pjl = response.find("@PJL");
        if (pjl != std::string_view::npos) {
            std::string first(response.substr(pjl, response.find_first_of("\r\n", pjl) - pjl));
            if (responses[first]++ == 0) order.push_back(first);
        }
        if (end == std::string::npos) break;
        at = end + 1;
    }
    if (!order.empty()) {
        out << "sent back " << sent.size() << " bytes:";
        for (const std::string& first : order) {
            out << "\n  " << first;
            if (responses[first] > 1) out << " (" << responses[first] << " times)";
        }
        out << '\n';
    }

    emulator::PrinterCondition condition = printer.Condition();
    out << "shows \"" << condition.panel[0] << "\"";
    if (!condition.panel[1].empty()) out << " / \"" << condition.panel[1] << "\"";
    out << '\n';
}

}  // namespace langmon::tool
