#include "daemon/daemon_config.h"

#include <algorithm>

namespace langmon::daemon {

namespace {

const PrinterConfig* Named(const std::vector<PrinterConfig>& printers, const std::string& name) {
    const auto found = std::find_if(printers.begin(), printers.end(),
                                    [&](const PrinterConfig& printer) { return printer.name == name; });
    return found == printers.end() ? nullptr : &*found;
}

}  // namespace

/* CompareConfigs: printers are matched by their names exactly, as a store is
   named; where a printer was defined (its origin) is not a change. */
ConfigChange CompareConfigs(const DaemonConfig& before, const DaemonConfig& after) {
    ConfigChange change;
    for (const PrinterConfig& printer : after.printers) {
        const PrinterConfig* old = Named(before.printers, printer.name);
        if (old == nullptr) {
            change.added.push_back(printer);
        } else if (!(*old == printer)) {
            change.changed.push_back(printer);
        }
    }
    for (const PrinterConfig& printer : before.printers) {
        if (Named(after.printers, printer.name) == nullptr) change.removed.push_back(printer);
    }
    return change;
}

}  // namespace langmon::daemon
