// What the backend finds when CUPS asks (run with no arguments): one
// "direct" line per USB printer of the family, and one "network" line so
// that a network printer can be added by its address.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace langmon::backend {

struct FoundPrinter {
    std::string path;      // "/dev/usb/lp0"
    std::string deviceId;  // as the printer gives it
};

// The lines of backend(7) for `found`: `direct langmon:PATH "MAKE MODEL"
// "INFO" "DEVICE-ID"` for each printer of the family, then the network line.
void WriteDeviceLines(std::ostream& out, const std::vector<FoundPrinter>& found);

// Looks at every USB printer class device in `folder` (lp0, lp1, ...) and
// writes the lines.
void ListPrinters(std::ostream& out, const std::string& folder = "/dev/usb");

}  // namespace langmon::backend
