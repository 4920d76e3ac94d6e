#include "watched_view.h"

#include "json_document.h"

#include <cstdio>
#include <ostream>

namespace langmon::tool {

std::string Seconds(DWORD ms) {
    char text[32];
    std::snprintf(text, sizeof text, "+%.1f s", ms / 1000.0);
    return text;
}

void TellFollowing(std::ostream& out, DWORD forMs) {
    out << "following the printer " << (forMs != 0 ? "for " + Seconds(forMs).substr(1) : std::string("until interrupted"))
        << ":\n"
        << std::flush;
}

void WatchedView::Show(std::ostream& out, bool json, const PrinterFacts& facts, DWORD at, const Document& document) {
    std::vector<ViewLine> lines = DescribePrinter(facts, ViewScope::Client);
    if (json) {
        nlohmann::ordered_json printer = PrinterJson(facts, ViewScope::Client);
        if (printer != json_) WriteJsonDocument(out, document(printer));
        json_ = std::move(printer);
    } else if (const std::vector<std::string> changed = ChangedViewLines(lines_, lines); !changed.empty()) {
        if (Seconds(at) != lastMoment_) out << Seconds(at) << '\n';
        lastMoment_ = Seconds(at);
        for (const std::string& line : changed) out << line << '\n';
        out << std::flush;
    }
    lines_ = std::move(lines);
}

}  // namespace langmon::tool
