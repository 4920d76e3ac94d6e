#include "harness_monitor.h"

#include "platform/registry.h"

namespace langmon::tool {

namespace {

char registryRoot[] = "System\\CurrentControlSet\\control\\Print\\Monitors\\Quor Language Monitor";

constexpr const char* UsbPortKey =
    "System\\CurrentControlSet\\control\\Print\\Monitors\\USB Monitor\\Ports\\USB001";

}  // namespace

/* InitializeHarnessMonitor: the monitor first, then the port's description:
   a machine file named by LANGMON_REGISTRY is read while the monitor
   initialises, and must not have the last word on the USB port. */
BOOL InitializeHarnessMonitor(MONITOR* table) {
    if (!InitializeMonitorEx(registryRoot, table)) return FALSE;
    platform::RegistryCreateKey(HKEY_LOCAL_MACHINE, UsbPortKey);
    platform::RegistrySetString(HKEY_LOCAL_MACHINE, UsbPortKey, "Description",
                                "Virtual printer port for USB");
    return TRUE;
}

}  // namespace langmon::tool
