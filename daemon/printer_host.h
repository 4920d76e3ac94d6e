// The printers the daemon owns, on the monitor through its C edge as any
// spooler would drive it: each printer's port kept open, with its status
// thread held awake ("Wake Up"), so that every printer's status is fresh at
// any time, jobs or none. Its status store, named after the printer, is
// what clients read.
#pragma once

#include "langmon/port_monitors.h"

#include <langmon/monitor.h>

#include <nlohmann/json.hpp>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace langmon::daemon {

struct HostedPrinter {
    std::string name;
    std::string address;
    std::string portName;
    std::string model;  // as its device ID named it when the port was opened; empty if it did not say
};

class PrinterHost {
public:
    // The monitor started with `registryRoot` as its own key (see
    // InitializeMonitorEx), where its settings are read.
    explicit PrinterHost(const char* registryRoot = nullptr);
    // Every port is wound up (see CloseAll).
    ~PrinterHost();
    PrinterHost(const PrinterHost&) = delete;
    PrinterHost& operator=(const PrinterHost&) = delete;

    // Opens the port of a printer named `name` at `address` (on `portName`,
    // or one of the address's kind that no other printer has) and wakes its
    // status thread. False, with the reason, for a name already held, an
    // address that is not one, or a port that would not open.
    bool Add(const std::string& name, const std::string& address, const std::string& portName, std::string* problem);
    // Lets the printer go: its status thread is told to stop polling and
    // its port is closed. False for a name not held.
    bool Remove(const std::string& name);
    // Lets every printer go, in the order they came.
    void CloseAll();

    std::vector<HostedPrinter> Printers() const;
    bool Holds(const std::string& name) const;
    // The printer as its status client sees it: the "printer" object of
    // `langmon status --json`; null for a name not held.
    nlohmann::ordered_json View(const std::string& name) const;
    // The monitor and the open port of printer `name`, for a job sent on
    // it; false for a name not held. The port stays open until the printer
    // is let go (Remove, CloseAll): its jobs must end before.
    bool JobPort(const std::string& name, const MONITOR** monitor, HANDLE* port) const;

private:
    struct Port;
    std::string FreePortName(const std::string& address) const;
    void Close(Port& port);

    MONITOR monitor_{};
    tool::PortMonitors monitors_;
    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<Port>> ports_;
};

}  // namespace langmon::daemon
