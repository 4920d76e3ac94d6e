#include "timed_change.h"

#include "emulator/printer_description.h"

#include <algorithm>
#include <cstdlib>

namespace langmon::tool {

bool ParseTimedChange(const std::string& text, TimedChange* change, std::string* error) {
    const std::size_t colon = text.find(':');
    const std::string moment = text.substr(0, colon);
    char* end = nullptr;
    const double seconds = std::strtod(moment.c_str(), &end);
    if (colon == 0 || colon == std::string::npos || *end != '\0' || !(seconds >= 0) || seconds > 86400 ||
        colon + 1 == text.size()) {
        *error = "--at takes SECONDS:CHANGE, e.g. --at 5:cover-open or --at 20:print=job.ps";
        return false;
    }
    *change = {static_cast<uint32_t>(seconds * 1000), text.substr(colon + 1)};
    return true;
}

std::string CheckPrinterChange(const std::string& words) {
    if (words == "power-off" || words == "power-on") return "";
    emulator::PrinterState state;
    if (std::string problem = emulator::ApplyPrinterDescription(words, state); !problem.empty()) {
        return "--at " + words + ": " + problem;
    }
    return "";
}

void MakePrinterChange(emulator::Printer& printer, const std::string& words) {
    if (words == "power-off") {
        printer.PowerOff();
    } else if (words == "power-on") {
        printer.PowerOn();
    } else {
        printer.Change([&](emulator::PrinterState& state) { emulator::ApplyPrinterDescription(words, state); });
    }
}

void SortChanges(std::vector<TimedChange>& changes) {
    std::stable_sort(changes.begin(), changes.end(),
                     [](const TimedChange& a, const TimedChange& b) { return a.atMs < b.atMs; });
}

}  // namespace langmon::tool
