#include "printer_target.h"

#include "acquisition/device_id.h"

#include "emulator/printer_description.h"
#include "manager/manager_link.h"
#include "manager/status_driver.h"
#include "platform/spooler_jobs.h"
#include "platform/spooler_printers.h"
#include "platform/text.h"
#include "platform/registry.h"
#include "platform/user_input.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>


namespace langmon::tool {

namespace {

constexpr const char* MonitorsKey = "System\\CurrentControlSet\\control\\Print\\Monitors";
// How the spooler's USB port monitor describes its ports, which the port
// classification looks for before it takes a USBnnn port for two-way.
constexpr const char* UsbPortDescription = "Virtual printer port for USB";

// The target whose port monitor the monitor writes to.
PrinterTarget* watched = nullptr;

// The emulated printer that `address` describes, or a message.
std::string DescribeEmulator(const PrinterAddress& address, emulator::PrinterState* state) {
    *state = emulator::PrinterState::Default();
    state->pageTimeMs = CommandPageTimeMs;
    return emulator::ApplyPrinterDescription(address.description, *state);
}

// The port name as the spooler's printer settings give it: without the
// colon of "LPT1:".
std::string BarePortName(std::string name) {
    if (!name.empty() && name.back() == ':') name.pop_back();
    return name;
}

}  // namespace

bool IsEmulator(const std::string& printer) {
    PrinterAddress address;
    return ParsePrinterAddress(printer, &address).empty() && address.kind == AddressKind::Emulator;
}

std::string CheckPrinterTarget(const std::string& printer) {
    PrinterAddress address;
    std::string problem = ParsePrinterAddress(printer, &address);
    if (problem.empty() && address.kind == AddressKind::Emulator) {
        emulator::PrinterState state;
        problem = DescribeEmulator(address, &state);
    }
    return problem.empty() ? "" : "--printer " + printer + ": " + problem;
}

std::string ChoosePortName(const std::string& printer, const std::string& portName) {
    if (!portName.empty()) return portName;
    PrinterAddress address;
    ParsePrinterAddress(printer, &address);
    return DefaultPortName(address);
}

PrinterTarget::PrinterTarget(const std::string& printer, const std::string& portName) : portName_(portName) {
    ParsePrinterAddress(printer, &address_);
    const PrinterAddress& address = address_;
    emulator::PrinterState state;
    if (address.kind == AddressKind::Emulator) DescribeEmulator(address, &state);
    below_ = monitors_.Attach(address, portName, state);
    printer_ = monitors_.Emulated(portName);
    if (address.kind == AddressKind::Emulator) {
        description_ = "the emulated " + state.model;
    } else if (address.kind == AddressKind::Serial) {
        description_ = "the serial printer on " + address.path + " at " + std::to_string(address.baud) + " baud";
        silence_ = "a serial line is one-way";
    } else if (address.kind == AddressKind::Usb) {
        description_ = "the USB printer on " + address.path;
        silence_ = "the printer is on the USB device; what it said is what the client saw, below";
    } else if (address.kind == AddressKind::Network) {
        network_ = NetworkPrinterOf(address);
        const bool v6 = address.host.find(':') != std::string::npos;
        description_ = "the network printer at " + (v6 ? "[" + address.host + "]" : address.host) + ":" +
                       std::to_string(address.port);
        silence_ = "the printer is across the network; what it said is what the client saw, below";
    } else {
        description_ = printer;
        silence_ = "a file does not answer";
    }
    lower_ = below_;
    lower_.WritePort = WriteWatched;
    watched = this;
}

PrinterTarget::~PrinterTarget() {
    if (watched == this) watched = nullptr;
}

BOOL PrinterTarget::WriteWatched(HANDLE port, LPBYTE data, DWORD size, LPDWORD written) {
    PrinterTarget& target = *watched;
    const BOOL ok = target.below_.WritePort(port, data, size, written);
    const DWORD taken = written != nullptr ? std::min(*written, size) : 0;
    if (taken != 0) {
        std::lock_guard lock(target.receivedMutex_);
        target.received_.Append({reinterpret_cast<const char*>(data), taken});
        target.receivedCount_ += taken;
    }
    return ok;
}

std::string PrinterTarget::ProbeDeviceId() { return monitors_.ProbeDeviceId(address_, portName_); }

std::string PrinterTarget::ProbeModel() {
    if (printer_) return printer_->State().model;
    return DeviceIdModel(ProbeDeviceId());
}

std::string DeviceIdField(const std::string& id, std::initializer_list<std::string_view> keys) {
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

std::string DeviceIdModel(const std::string& id) { return DeviceIdField(id, {"MDL", "MODEL"}); }

void PrinterTarget::DescribePort(const std::string& portName) const {
    if (address_.kind == AddressKind::Usb) DescribeUsbPort(portName);
}

void DescribeUsbPort(const std::string& portName) {
    const std::string name = BarePortName(portName);
    // A port the machine file lists is as it says.
    for (const std::string& monitor : platform::RegistrySubkeys(HKEY_LOCAL_MACHINE, MonitorsKey)) {
        if (platform::RegistryKeyExists(HKEY_LOCAL_MACHINE, std::string(MonitorsKey) + "\\" + monitor + "\\Ports\\" + name)) {
            return;
        }
    }
    const std::string key = std::string(MonitorsKey) + "\\USB Monitor\\Ports\\" + name;
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, key);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, key, "Description", UsbPortDescription);
}

StreamRecord PrinterTarget::Received() const {
    std::lock_guard lock(receivedMutex_);
    return received_;
}

std::string PrinterOnPort(const std::string& portName) {
    DWORD needed = 0;
    DWORD count = 0;
    EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count);
    std::vector<BYTE> buffer(needed);
    if (needed != 0 &&
        EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, buffer.data(), needed, &needed, &count)) {
        const auto* printers = reinterpret_cast<const PRINTER_INFO_2*>(buffer.data());
        const std::string port = BarePortName(portName);
        for (DWORD i = 0; i < count; ++i) {
            if (printers[i].pPortName != nullptr &&
                lstrcmpiA(BarePortName(printers[i].pPortName).c_str(), port.c_str()) == 0) {
                return printers[i].pPrinterName;
            }
        }
    }
    return "";
}

bool FamilyModel(const std::string& model) {
    for (const ModelRow* row = ModelTable; row->ModelName != nullptr; ++row) {
        if (model == row->ModelName) return true;
    }
    return false;
}

std::string AddStandInQueue(const std::string& portName, const std::string& model, const std::string& queueName,
                            QueueLanguage language) {
    // The family's driver of the model in the job's language; the 6200tx's
    // for a printer of another make, whose device ID then tells the monitor
    // what it is.
    const std::string named = FamilyModel(model) ? model : emulator::Model6200;
    const std::string suffix = language == QueueLanguage::PostScript ? " PS" : " PCL6";
    std::string driver;
    for (const ModelRow* row = ModelTable; row->ModelName != nullptr && driver.empty(); ++row) {
        const std::string rowDriver = row->DriverName;
        if (named == row->ModelName && rowDriver.size() >= suffix.size() &&
            rowDriver.compare(rowDriver.size() - suffix.size(), suffix.size(), suffix) == 0) {
            driver = rowDriver;
        }
    }
    platform::AddPrinterQueue(queueName, driver, portName, true);
    return queueName;
}

std::string StatusClientProblem(const std::string& printerName) {
    HANDLE printer = nullptr;
    if (!OpenPrinterA(const_cast<LPSTR>(printerName.c_str()), &printer, nullptr)) {
        return "the machine has no printer named \"" + platform::Printable(printerName) + "\" (see LANGMON_REGISTRY)";
    }
    ClosePrinter(printer);
    // The monitor binds a client only for a driver of a known model that has
    // a status key: ask what it asks.
    ManagerLink link{};
    if (ReadLinkModel(printerName.c_str(), &link) == 0) {
        return "the driver of printer \"" + platform::Printable(printerName) + "\" is not one of the known models";
    }
    if (DriverHasStatusKey(printerName.c_str()) == 0) {
        return "the driver of printer \"" + platform::Printable(printerName) + "\" has no status key";
    }
    return "";
}

std::string NoClientReason(const std::string& printerName) {
    const std::string problem = StatusClientProblem(printerName);
    return problem.empty() ? "the status manager holds nothing for it" : problem;
}

}  // namespace langmon::tool
