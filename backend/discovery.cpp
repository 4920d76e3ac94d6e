#include "discovery.h"

#include "langmon/printer_target.h"

#include "ports/usb_port_monitor.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <ostream>

namespace langmon::backend {

namespace {

// A text inside the double quotes of a device line: CUPS reads no escapes.
std::string Quotable(std::string text) {
    std::replace(text.begin(), text.end(), '"', '\'');
    std::replace_if(text.begin(), text.end(), [](unsigned char c) { return c < 0x20; }, ' ');
    return text;
}

}  // namespace

void WriteDeviceLines(std::ostream& out, const std::vector<FoundPrinter>& found) {
    for (const FoundPrinter& printer : found) {
        const std::string model = tool::DeviceIdModel(printer.deviceId);
        if (!tool::FamilyModel(model)) continue;
        const std::string make = tool::DeviceIdField(printer.deviceId, {"MFG", "MANUFACTURER"});
        const std::string makeModel = make.empty() ? model : make + " " + model;
        out << "direct langmon:" << printer.path << " \"" << Quotable(makeModel) << "\" \""
            << Quotable(makeModel + " (USB, langmon)") << "\" \"" << Quotable(printer.deviceId) << "\"\n";
    }
    out << "network langmon \"Unknown\" \"" << "Printer of the Laser Printer family on the network (langmon)" << "\"\n"
        << std::flush;
}

void ListPrinters(std::ostream& out, const std::string& folder) {
    std::vector<FoundPrinter> found;
    std::error_code error;
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename();
        if (name.rfind("lp", 0) == 0) paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    for (const std::string& path : paths) {
        if (const std::optional<std::string> id = ports::ReadUsbDeviceIdAt(path)) found.push_back({path, *id});
    }
    WriteDeviceLines(out, found);
}

}  // namespace langmon::backend
