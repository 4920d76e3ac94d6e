#include "printer_host.h"

#include "langmon/client_view.h"
#include "langmon/port_value_request.h"
#include "langmon/printer_target.h"
#include "langmon/printer_view.h"

#include "emulator/printer_description.h"
#include "ports/port_parts.h"

#include <algorithm>
#include <cstdio>

namespace langmon::daemon {

namespace {

// Port names by kind, "LPT" then a number: the monitor reads the kind from
// the name's first four bytes, so "LPT12:" is a two-way local port as
// "LPT1:" is. USB ports are "USB001" to "USB128", serial ones "COMn:".
std::string PortNameOf(tool::AddressKind kind, unsigned number) {
    char name[16];
    if (kind == tool::AddressKind::Usb) {
        std::snprintf(name, sizeof name, "USB%03u", number);
    } else {
        std::snprintf(name, sizeof name, "%s%u:", kind == tool::AddressKind::Serial ? "COM" : "LPT", number);
    }
    return name;
}

}  // namespace

struct PrinterHost::Port {
    HostedPrinter printer;
    MONITOR lower{};  // the table the monitor was given for the port
    HANDLE handle = nullptr;
};

PrinterHost::PrinterHost(const char* registryRoot) {
    InitializeMonitorEx(const_cast<char*>(registryRoot), &monitor_);
}

PrinterHost::~PrinterHost() { CloseAll(); }

std::string PrinterHost::FreePortName(const std::string& address) const {
    tool::PrinterAddress parsed;
    tool::ParsePrinterAddress(address, &parsed);
    const unsigned last = parsed.kind == tool::AddressKind::Usb ? 128 : 9999;
    for (unsigned number = 1; number <= last; ++number) {
        const std::string name = PortNameOf(parsed.kind, number);
        const bool taken = std::any_of(ports_.begin(), ports_.end(), [&](const auto& port) {
            return ports::SamePortName(port->printer.portName, name);
        });
        if (!taken) return name;
    }
    return "";
}

bool PrinterHost::Add(const std::string& name, const std::string& address, const std::string& portName,
                      std::string* problem) {
    if (const std::string wrong = tool::CheckPrinterTarget(address); !wrong.empty()) {
        *problem = wrong;
        return false;
    }
    std::lock_guard hold(mutex_);
    for (const auto& port : ports_) {
        if (port->printer.name == name) {
            *problem = "a printer named \"" + name + "\" is held already";
            return false;
        }
    }
    auto port = std::make_unique<Port>();
    port->printer = {name, address, portName.empty() ? FreePortName(address) : portName, ""};
    if (port->printer.portName.empty()) {
        *problem = "no port of its kind is free";
        return false;
    }
    tool::PrinterAddress parsed;
    tool::ParsePrinterAddress(address, &parsed);
    emulator::PrinterState state = emulator::PrinterState::Default();
    if (parsed.kind == tool::AddressKind::Emulator) emulator::ApplyPrinterDescription(parsed.description, state);
    port->lower = monitors_.Attach(parsed, port->printer.portName, state);
    if (parsed.kind == tool::AddressKind::Usb) tool::DescribeUsbPort(port->printer.portName);
    // The machine: a queue of the printer's name on its port, with the
    // family's driver of the model its device ID names.
    port->printer.model = tool::DeviceIdModel(monitors_.ProbeDeviceId(parsed, port->printer.portName));
    tool::AddStandInQueue(port->printer.portName, port->printer.model, name, tool::QueueLanguage::PostScript);
    if (!monitor_.OpenPortEx(port->printer.portName.data(), const_cast<char*>(name.c_str()), &port->handle,
                             &port->lower)) {
        *problem = "the port " + port->printer.portName + " would not open (error " + std::to_string(GetLastError()) + ")";
        return false;
    }
    tool::AskPortValue(monitor_, port->handle, "Wake Up");
    ports_.push_back(std::move(port));
    return true;
}

void PrinterHost::Close(Port& port) {
    tool::AskPortValue(monitor_, port.handle, "Stop Polling");
    monitor_.ClosePort(port.handle);
    port.handle = nullptr;
}

bool PrinterHost::Remove(const std::string& name) {
    std::unique_ptr<Port> gone;
    {
        std::lock_guard hold(mutex_);
        const auto found = std::find_if(ports_.begin(), ports_.end(), [&](const auto& port) { return port->printer.name == name; });
        if (found == ports_.end()) return false;
        gone = std::move(*found);
        ports_.erase(found);
    }
    Close(*gone);
    return true;
}

void PrinterHost::CloseAll() {
    std::vector<std::unique_ptr<Port>> all;
    {
        std::lock_guard hold(mutex_);
        all.swap(ports_);
    }
    for (const auto& port : all) Close(*port);
}

std::vector<HostedPrinter> PrinterHost::Printers() const {
    std::lock_guard hold(mutex_);
    std::vector<HostedPrinter> printers;
    for (const auto& port : ports_) printers.push_back(port->printer);
    return printers;
}

bool PrinterHost::Holds(const std::string& name) const {
    std::lock_guard hold(mutex_);
    return std::any_of(ports_.begin(), ports_.end(), [&](const auto& port) { return port->printer.name == name; });
}

bool PrinterHost::JobPort(const std::string& name, const MONITOR** monitor, HANDLE* port) const {
    std::lock_guard hold(mutex_);
    const auto found = std::find_if(ports_.begin(), ports_.end(), [&](const auto& p) { return p->printer.name == name; });
    if (found == ports_.end()) return false;
    *monitor = &monitor_;
    *port = (*found)->handle;
    return true;
}

nlohmann::ordered_json PrinterHost::View(const std::string& name) const {
    if (!Holds(name)) return nullptr;
    std::string problem;
    const std::vector<tool::ClientVariable> values = tool::ReadClientView(name, &problem);
    return tool::PrinterJson(tool::ValueFacts(values), tool::ViewScope::Client);
}

}  // namespace langmon::daemon
