#include "discovery.h"

#include "langmon/printer_target.h"

#include "ports/usb_port_monitor.h"


#include <algorithm>
#include <filesystem>
#include <optional>
#include <ostream>

#include <fcntl.h>
#include <unistd.h>

namespace langmon::backend {

namespace {

// A field of a device ID by its short or long key; empty without it.
std::string Field(const std::string& id, std::initializer_list<std::string_view> keys) {
    for (const std::string_view key : keys) {
        std::size_t at = 0;
        while ((at = id.find(key, at)) != std::string::npos) {
            if ((at == 0 || id[at - 1] == ';') && id.compare(at + key.size(), 1, ":") == 0) {
                const std::size_t start = at + key.size() + 1;
                return id.substr(start, id.find(';', start) - start);
            }
            at += key.size();
        }
    }
    return "";
}

// A USB printer's device ID, read as the port monitor reads it; none when
// the device can't be opened (busy with a job, or not ours to open).
std::optional<std::string> UsbDeviceId(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    int error = 0;
    std::optional<std::string> id = ports::ReadUsbDeviceId(fd, &error);
    ::close(fd);
    return id;
}

// A text inside the double quotes of a device line: CUPS reads no escapes.
std::string Quotable(std::string text) {
    std::replace(text.begin(), text.end(), '"', '\'');
    std::replace_if(text.begin(), text.end(), [](unsigned char c) { return c < 0x20; }, ' ');
    return text;
}

}  // namespace

void WriteDeviceLines(std::ostream& out, const std::vector<FoundPrinter>& found) {
    for (const FoundPrinter& printer : found) {
        const std::string model = Field(printer.deviceId, {"MDL", "MODEL"});
        if (!tool::FamilyModel(model)) continue;
        const std::string make = Field(printer.deviceId, {"MFG", "MANUFACTURER"});
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
        if (const std::optional<std::string> id = UsbDeviceId(path)) found.push_back({path, *id});
    }
    WriteDeviceLines(out, found);
}

}  // namespace langmon::backend
