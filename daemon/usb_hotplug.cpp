#include "usb_hotplug.h"

#include "langmon/printer_address.h"
#include "langmon/printer_target.h"

#include "ports/usb_port_monitor.h"

#include <algorithm>
#include <optional>

namespace langmon::daemon {

namespace {

// Whether `address` leads to the device `devnode`.
bool AddressOf(const std::string& address, const std::string& devnode) {
    tool::PrinterAddress parsed;
    return tool::ParsePrinterAddress(address, &parsed).empty() && parsed.kind == tool::AddressKind::Usb &&
           parsed.path == devnode;
}

}  // namespace

UsbHotplug::UsbHotplug(PrinterHost& host, std::function<void(const std::string&)> letGo, Say say)
    : host_(host), letGo_(std::move(letGo)), say_(std::move(say)) {}

std::string UsbHotplug::NameFor(const std::string& model, const std::string& devnode) {
    std::string name = model.empty() ? "usb" : model;
    for (char& c : name) {
        const bool word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                          c == '-' || c == '_';
        if (!word) c = '_';
    }
    return name + "-" + devnode.substr(devnode.rfind('/') + 1);
}

void UsbHotplug::Plugged(const std::string& devnode) {
    const std::vector<HostedPrinter> held = host_.Printers();
    if (std::any_of(held.begin(), held.end(), [&](const HostedPrinter& p) { return AddressOf(p.address, devnode); })) {
        return;  // served already: a configured printer, or an event told twice
    }
    PrinterConfig printer;
    const auto configured = std::find_if(configured_.begin(), configured_.end(),
                                         [&](const PrinterConfig& p) { return AddressOf(p.address, devnode); });
    if (configured != configured_.end()) {
        printer = *configured;
    } else {
        const std::optional<std::string> id = ports::ReadUsbDeviceIdAt(devnode);
        if (!id) {
            say_("the USB printer " + devnode + " plugged in would not say what it is; left alone");
            return;
        }
        const std::string model = tool::DeviceIdModel(*id);
        if (!tool::FamilyModel(model)) {
            say_("the USB printer " + devnode + " plugged in (" + (model.empty() ? "no model" : model) +
                 ") is not of the family; left alone");
            return;
        }
        printer = {NameFor(model, devnode), "langmon:" + devnode, "", "plugged in"};
    }
    std::string problem;
    if (host_.Add(printer.name, printer.address, printer.port, &problem)) {
        say_("printer \"" + printer.name + "\" at " + printer.address + " plugged in");
    } else {
        say_("printer \"" + printer.name + "\" at " + printer.address + " plugged in is not served: " + problem);
    }
}

void UsbHotplug::Unplugged(const std::string& devnode) {
    for (const HostedPrinter& printer : host_.Printers()) {
        if (!AddressOf(printer.address, devnode)) continue;
        letGo_(printer.name);
        say_("printer \"" + printer.name + "\" unplugged");
    }
}

}  // namespace langmon::daemon
