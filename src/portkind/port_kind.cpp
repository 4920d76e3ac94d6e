// Port classification: which ports can carry an answer back from the printer.
// Decided once, when the port record is made, from the name, the registry and
// the spooler's port list. Nothing here fails a port: whatever can't be found
// out leaves the port monitored and nothing more, the plain pass-through.

#include "portkind/port_kind.h"
#include "portkind/port_list.h"

#include "monitor/monitor_entry.h"
#include "parser/pjl_text.h"
#include "platform/machine.h"
#include "platform/memory.h"
#include "platform/registry.h"
#include "platform/text.h"

#include <cstdio>
#include <cstring>

namespace langmon {

namespace {

constexpr REGSAM kRead = 0x20019;  // KEY_READ

// The two TCP/IP port monitors of the printer family. Their ports look local by
// name ("LPT1" may well be one of them) but never answer through a port monitor.
constexpr const char* kMzPortsKey =
    "SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\MZ TCP/IP XRU Port\\Ports";
constexpr const char* kKvPortsKey =
    "SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\KV TCP/IP XRU Port\\Ports";
constexpr const char* kMzDescription = "MZ TCP/IP XRU Port";
constexpr const char* kKvDescription = "KV TCP/IP XRU Port";
constexpr const char* kUsbDescription = "Virtual printer port for USB";

// Reads a value of at most `capacity` bytes into `buffer`, which has one byte
// more so that what was read always ends in a NUL, whatever the registry held.
bool ReadText(HKEY key, const char* valueName, char* buffer, DWORD capacity) {
    DWORD size = capacity;
    DWORD type = 0;
    std::memset(buffer, 0, capacity + 1);
    return RegQueryValueExA(key, valueName, nullptr, &type, reinterpret_cast<LPBYTE>(buffer),
                            &size) == ERROR_SUCCESS;
}

// "PortDriver" of the class key of `driver`: 1 when it is the IEEE 1284 driver
// that can read back, 0 when another, -1 when it can't be read.
int ClassDriverIsP1284(const char* driver) {
    static constexpr char kClassKey[] = "System\\CurrentControlSet\\Services\\Class";
    char path[sizeof kClassKey + 1 + 64];  // the key, a separator, a driver of up to 64 bytes
    std::snprintf(path, sizeof path, "%s\\%s", kClassKey, driver);
    HKEY classKey;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, kRead, &classKey) != ERROR_SUCCESS) return -1;
    char portDriver[64 + 1];
    const bool read = ReadText(classKey, "PortDriver", portDriver, 64);
    RegCloseKey(classKey);
    if (!read) return -1;
    return lstrcmpA(portDriver, "p1284.vxd") == 0 ? 1 : 0;
}

// The device node under "Enum" that `hardwareKey` names: its class driver's
// verdict if it is the ports-class node of `name`, -1 when it isn't or can't be
// read.
int DeviceNodeVerdict(const char* hardwareKey, const char* name) {
    char path[sizeof "Enum\\" + 256];
    std::snprintf(path, sizeof path, "%s\\%s", "Enum", hardwareKey);
    HKEY device;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, kRead, &device) != ERROR_SUCCESS) return -1;
    char text[64 + 1];
    char driver[64 + 1];
    // Only the first four bytes of "PortName" count, the length of "LPT1".
    const bool isPort = ReadText(device, "Class", text, 64) && lstrcmpA(text, "Ports") == 0 &&
                        ReadText(device, "PortName", text, 64) &&
                        CompareNameNoCase(text, name, 4) == 0 &&
                        ReadText(device, "Driver", driver, 64);
    RegCloseKey(device);
    return isPort ? ClassDriverIsP1284(driver) : -1;
}

int HasPrefix(const char* name, const char* prefix, std::size_t shortest) {
    return name && std::strlen(name) >= shortest && CompareNameNoCase(name, prefix, 3) == 0;
}

}  // namespace

int CompareNameNoCase(const char* a, const char* b, uint32_t count) {
    // A letter behind a lead byte is the second half of a double-byte
    // character, not a letter, and keeps its case.
    bool behindLead = false;
    for (uint32_t i = 0; i < count; ++i) {
        auto ca = static_cast<unsigned char>(a[i]);
        auto cb = static_cast<unsigned char>(b[i]);
        if (!behindLead) {
            if (ca >= 'a' && ca <= 'z') ca = static_cast<unsigned char>(ca - 'a' + 'A');
            if (cb >= 'a' && cb <= 'z') cb = static_cast<unsigned char>(cb - 'a' + 'A');
        }
        if (ca != cb) return static_cast<int8_t>(static_cast<uint8_t>(ca - cb));
        if (ca == 0) return 0;
        behindLead = IsDBCSLeadByte(static_cast<BYTE>(a[i])) || IsDBCSLeadByte(static_cast<BYTE>(b[i]));
    }
    return 0;
}

int IsParallelName(const char* name) {
    return HasPrefix(name, "LPT", 4) && name[3] >= '1' && name[3] <= '9';
}

int IsSerialName(const char* name) {
    return HasPrefix(name, "COM", 4) && name[3] >= '1' && name[3] <= '9';
}

int IsUsbName(const char* name) {
    if (!HasPrefix(name, "USB", 6)) return 0;
    const uint32_t number = ParseDecimal(name + 3);
    return number >= 1 && number <= 128;
}

int NetworkMonitorHasPort(const char* keyPath, const char* name) {
    HKEY key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, kRead, &key) != ERROR_SUCCESS) return 0;
    const std::size_t length = std::strlen(name);
    int found = 0;
    char subkey[1024];
    for (DWORD index = 0; !found; ++index) {
        DWORD size = sizeof subkey;
        if (RegEnumKeyExA(key, index, subkey, &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            break;
        }
        // Case counts here: the monitor's own key names are the port names.
        found = size == length && std::memcmp(subkey, name, length) == 0;
    }
    RegCloseKey(key);
    return found;
}

int PortDescriptionFits(PortContext* port, int usb) {
    DWORD count = 0;
    PORT_INFO_2* list = FetchPortList(&count);
    if (list == nullptr) return 0;
    int fits = 1;  // a port the spooler doesn't list has nothing against it
    if (const PORT_INFO_2* entry = FindListedPort(list, count, port->portName)) {
        const char* description = entry->pDescription;
        if (usb) {
            fits = lstrcmpA(description, kUsbDescription) == 0;
        } else {
            fits = lstrcmpA(description, kMzDescription) != 0 && lstrcmpA(description, kKvDescription) != 0;
        }
    }
    GlobalFree(list);
    return fits;
}

int KeyboardClassD00() { return (GetKeyboardType(1) & 0xD00) == 0xD00; }

int ParallelPortIsBidi(const char* name) {
    // The monitor's own key may switch the reading back off for one port.
    HKEY own;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, registryRoot, 0, kRead, &own) == ERROR_SUCCESS) {
        DWORD setting = 0;
        DWORD size = sizeof setting;
        const LONG read = RegQueryValueExA(own, name, nullptr, nullptr, reinterpret_cast<LPBYTE>(&setting), &size);
        RegCloseKey(own);
        if (read == ERROR_SUCCESS && (setting & 1) != 0) return 0;
    }
    // Only machines of the 0xD00 keyboard class have parallel ports that may
    // not read back; elsewhere every local port does.
    if (!KeyboardClassD00()) return 1;

    // Walk the devices the configuration manager knows, for the ports-class
    // node of this port, and ask its class driver.
    HKEY devices;
    if (RegOpenKeyExA(HKEY_DYN_DATA, "Config Manager\\Enum", 0, kRead, &devices) != ERROR_SUCCESS) {
        return 0;
    }
    int result = 0;
    char node[64];
    for (DWORD index = 0;; ++index) {
        DWORD size = sizeof node;
        if (RegEnumKeyExA(devices, index, node, &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            break;
        }
        HKEY entry;
        if (RegOpenKeyExA(devices, node, 0, kRead, &entry) != ERROR_SUCCESS) continue;
        char hardwareKey[256 + 1];
        const bool read = ReadText(entry, "HardWareKey", hardwareKey, 256);
        RegCloseKey(entry);
        if (!read) continue;
        const int verdict = DeviceNodeVerdict(hardwareKey, name);
        if (verdict >= 0) {
            result = verdict;
            break;
        }
    }
    RegCloseKey(devices);
    return result;
}

void ClassifyPort(PortContext* port) {
    const char* name = port->portName;
    port->portKind = PK_MONITORED;

    if (NetworkMonitorHasPort(kMzPortsKey, name) || NetworkMonitorHasPort(kKvPortsKey, name)) {
        port->portKind |= PK_NETWORK;
        return;
    }
    if (IsUsbName(name)) {
        if (PortDescriptionFits(port, 1)) port->portKind |= PK_LOCAL | PK_BIDI;
        return;
    }
    if (IsSerialName(name)) {
        port->portKind |= PK_SERIAL;
        return;
    }
    if (IsParallelName(name) && PortDescriptionFits(port, 0) == 0) return;

    // A name that the network layer redirects is a network printer whatever it
    // is called; only "not connected" (or a network that isn't there) makes it local.
    char remote[256];
    DWORD length = sizeof remote;
    if (WNetGetConnectionA(name, remote, &length) == ERROR_SUCCESS) return;
    const DWORD error = GetLastError();
    if (error != ERROR_NOT_CONNECTED && error != ERROR_CONNECTION_UNAVAIL) return;

    port->portKind |= PK_LOCAL;
    if (ParallelPortIsBidi(name) == 1) port->portKind |= PK_BIDI;
}

}  // namespace langmon
