#include "fuzz_monitor.h"

#include "langmon/answer_port_monitor.h"
#include "langmon/harness_monitor.h"
#include "platform/clock.h"

#include <cstdlib>
#include <string>

namespace langmon::fuzz {

namespace {

char printerName[] = "Fuzz Printer";

// The device ID target polls through the two-way USB port of the harness's
// machine.
MONITOR InitializedMonitor() {
    platform::UseVirtualClock();
    MONITOR table{};
    if (!tool::InitializeHarnessMonitor(&table)) std::abort();
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
