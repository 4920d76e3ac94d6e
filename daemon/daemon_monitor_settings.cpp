#include "daemon/daemon_config.h"

#include "background/thread_throttle.h"
#include "monitor/port_mode.h"
#include "platform/registry.h"

namespace langmon::daemon {

namespace {

// Where the monitor reads its thread-start settings and its printing
// priority (the first in background/thread_throttle.cpp, the second in
// monitor/job_start.cpp, each private to its reader).
constexpr const char* ThreadStartKey = "SOFTWARE\\Quor\\Status Monitor";
constexpr const char* PrintingPriorityValue = "PrintingPriority";

}  // namespace

/* ApplyMonitorSettings: every value is written, defaults included, so that
   the registry says what the file says after a reload that drops a key. A
   priority of 0 is the one the daemon's threads run at anyway. */
void ApplyMonitorSettings(const DaemonConfig& config) {
    using platform::RegistrySetDword;
    const MonitorSettings& settings = config.monitor;
    RegistrySetDword(HKEY_LOCAL_MACHINE, ThreadStartKey, "CreateThreadInterval", settings.threadStartIntervalMs);
    const DWORD ctiFlag = (settings.serializeThreadStarts ? DWORD{CtiSerialize} : 0) |
                          (settings.startThreadsSuspended ? DWORD{CtiStartSuspended} : 0);
    RegistrySetDword(HKEY_LOCAL_MACHINE, ThreadStartKey, "CTIFlag", ctiFlag);
    RegistrySetDword(HKEY_LOCAL_MACHINE, PortModeKey, PortModeValue, static_cast<DWORD>(settings.portMode));
    // The monitor reads the priority as a DWORD and casts it back to an int.
    RegistrySetDword(HKEY_LOCAL_MACHINE, MonitorRegistryRoot, PrintingPriorityValue,
                     static_cast<DWORD>(settings.printingPriority));
}

}  // namespace langmon::daemon
