// The port monitor in front of emulated printers: the 13-entry MONITOR table
// that a language monitor is handed for the port below it.
//
// Ports are attached by name. OpenPort finds the printer by its port's name
// (case does not matter, as with Windows port names); WritePort and ReadPort
// work only inside a document that StartDocPort opened, and documents nest; GetPrinterDataFromPort
// answers ControlID 17 and the USB code 0x16000C with the device ID text.
// A write that the printer takes nothing of waits out the write time-out that
// SetPortTimeOuts set, on the platform clock, and fails with ERROR_TIMEOUT,
// as a port whose printer doesn't answer does. Reads never wait. EnumPorts,
// AddPort, ConfigurePort and DeletePort answer ERROR_NOT_SUPPORTED: the host
// attaches the ports, and the spooler lists them from the machine description.
//
// The MONITOR table holds plain C function pointers without user data, so one
// PortMonitor at a time is the active one; a handle from OpenPort carries its
// port.
#pragma once

#include <langmon/monitor.h>

#include "emulator/printer.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace langmon::emulator {

class PortMonitor {
public:
    PortMonitor();
    ~PortMonitor();
    PortMonitor(const PortMonitor&) = delete;
    PortMonitor& operator=(const PortMonitor&) = delete;

    MONITOR* Table() { return &table_; }

    // `printer` must outlive the PortMonitor.
    void Attach(const std::string& portName, Printer& printer);

    struct Port;

private:
    friend struct PortEntries;

    Port* FindPort(const char* name);

    MONITOR table_{};
    std::mutex mutex_;
    std::vector<std::unique_ptr<Port>> ports_;
};

}  // namespace langmon::emulator
