#include "fuzz_monitor.h"

#include "langmon/answer_port_monitor.h"
#include "platform/clock.h"
#include "platform/registry.h"

#include <cstdlib>
#include <string>

namespace langmon::fuzz {

namespace {

char registryRoot[] = "System\\CurrentControlSet\\control\\Print\\Monitors\\Quor Language Monitor";
char printerName[] = "Fuzz Printer";

// A USB port is two-way when its port monitor describes it so; the device ID
// target polls through one.
constexpr const char* UsbPortKey =
    "System\\CurrentControlSet\\control\\Print\\Monitors\\USB Monitor\\Ports\\USB001";

MONITOR InitializedMonitor() {
    platform::UseVirtualClock();
    MONITOR table{};
    if (!InitializeMonitorEx(registryRoot, &table)) std::abort();
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, UsbPortKey);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, UsbPortKey, "Description", "Virtual printer port for USB");
    return table;
}

}  // namespace

const MONITOR& LanguageMonitor() {
    static const MONITOR table = InitializedMonitor();
    return table;
}

FuzzPort::FuzzPort(const char* portName, std::string_view deviceId)
    : lower_(tool::AnswerPortMonitor(std::string(deviceId))) {
    std::string name(portName);
    // A port that can't be opened is a fault of the harness, not a finding.
    if (!LanguageMonitor().OpenPortEx(name.data(), printerName, &handle_, &lower_)) std::abort();
    context_ = static_cast<PortContext*>(handle_);
}

FuzzPort::~FuzzPort() { LanguageMonitor().ClosePort(handle_); }

// The answer belongs to the port monitor, not to one table of it: the table
// the port holds answers the new text too.
void FuzzPort::Answer(std::string_view deviceId) { lower_ = tool::AnswerPortMonitor(std::string(deviceId)); }

}  // namespace langmon::fuzz
