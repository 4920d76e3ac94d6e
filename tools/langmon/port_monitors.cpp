#include "port_monitors.h"

#include "file_port_monitor.h"

#include "ports/snmp_device_id.h"

namespace langmon::tool {

PortMonitors::PortMonitors() = default;
PortMonitors::~PortMonitors() = default;

ports::NetworkPrinter NetworkPrinterOf(const PrinterAddress& address) {
    return {address.host, address.port, address.snmpPort, address.community};
}

MONITOR PortMonitors::Attach(const PrinterAddress& address, const std::string& portName,
                             const emulator::PrinterState& emulated) {
    switch (address.kind) {
        case AddressKind::Emulator: {
            auto& printer = emulated_[portName];
            printer = std::make_unique<emulator::Printer>(emulated);
            emulatorPorts_.Attach(portName, *printer);
            return *emulatorPorts_.Table();
        }
        case AddressKind::Serial:
            if (!serialPorts_) serialPorts_ = std::make_unique<ports::SerialPortMonitor>();
            serialPorts_->Attach(portName, {address.path, address.baud});
            return *serialPorts_->Table();
        case AddressKind::Usb:
            if (!usbPorts_) usbPorts_ = std::make_unique<ports::UsbPortMonitor>();
            usbPorts_->Attach(portName, address.path);
            return *usbPorts_->Table();
        case AddressKind::Network:
            if (!socketPorts_) socketPorts_ = std::make_unique<ports::SocketPortMonitor>();
            socketPorts_->Attach(portName, NetworkPrinterOf(address));
            return *socketPorts_->Table();
        case AddressKind::File: break;
    }
    return FilePortMonitor(address.path);
}

emulator::Printer* PortMonitors::Emulated(const std::string& portName) const {
    const auto found = emulated_.find(portName);
    return found == emulated_.end() ? nullptr : found->second.get();
}

std::string PortMonitors::ProbeDeviceId(const PrinterAddress& address, const std::string& portName) const {
    std::string id;
    if (address.kind == AddressKind::Emulator) {
        if (emulator::Printer* printer = Emulated(portName)) id = printer->DeviceId().value_or("");
    } else if (address.kind == AddressKind::Network) {
        if (ports::ReadDeviceIdOverSnmp({address.host, address.snmpPort, address.community, ports::SnmpTimeOutMs},
                                        &id) != ports::SnmpOutcome::Answered) {
            id.clear();
        }
    } else if (address.kind == AddressKind::Usb) {
        id = ports::ReadUsbDeviceIdAt(address.path).value_or("");
    }
    return id;
}

}  // namespace langmon::tool
