// The port monitors below the language monitor, one of each kind, with each
// printer attached to its port by its address: an emulated printer, a file,
// a serial line, a USB device, a network printer. A command keeps one
// printer on them; the daemon keeps all of its printers on one set, as each
// kind's MONITOR table holds plain C function pointers and so serves every
// port of its kind in the process.
#pragma once

#include "printer_address.h"

#include "emulator/port_monitor.h"
#include "emulator/printer.h"
#include "ports/serial_port_monitor.h"
#include "ports/socket_port_monitor.h"
#include "ports/usb_port_monitor.h"

#include <langmon/monitor.h>

#include <map>
#include <memory>
#include <string>

namespace langmon::tool {

class PortMonitors {
public:
    PortMonitors();
    ~PortMonitors();
    PortMonitors(const PortMonitors&) = delete;
    PortMonitors& operator=(const PortMonitors&) = delete;

    // Attaches the printer at `address` to `portName` and gives the table
    // the language monitor is handed for that port; an emulated printer is
    // made as `emulated` describes it.
    MONITOR Attach(const PrinterAddress& address, const std::string& portName,
                   const emulator::PrinterState& emulated = emulator::PrinterState::Default());

    // The emulated printer on `portName`; null for any other port.
    emulator::Printer* Emulated(const std::string& portName) const;

    // The printer's whole IEEE 1284 device ID as a host that finds it reads
    // it: over SNMP, by usblp's ioctl, or the emulated printer's own; empty
    // when the printer does not say (a file and a serial line never do).
    std::string ProbeDeviceId(const PrinterAddress& address, const std::string& portName) const;

private:
    emulator::PortMonitor emulatorPorts_;
    std::map<std::string, std::unique_ptr<emulator::Printer>> emulated_;  // by port
    std::unique_ptr<ports::SerialPortMonitor> serialPorts_;
    std::unique_ptr<ports::UsbPortMonitor> usbPorts_;
    std::unique_ptr<ports::SocketPortMonitor> socketPorts_;
};

// The network printer an address names, for its port monitor and SNMP.
ports::NetworkPrinter NetworkPrinterOf(const PrinterAddress& address);

}  // namespace langmon::tool
