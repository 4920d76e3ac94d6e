#include "monitor/port_mode.h"

#include "platform/memory.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "portkind/port_kind.h"
#include "portkind/port_list.h"

#include <cstring>

namespace langmon {

namespace {

// "ECP", a blank, and "printer port" in Japanese, as a Shift-JIS system
// describes its ECP ports: in half-width katakana, one byte a character...
constexpr char EcpPortHalfWidth[] = "ECP \xCC\xDF\xD8\xDD\xC0 \xCE\xDF\xB0\xC4";
// ...and in full-width katakana, two bytes a character.
constexpr char EcpPortFullWidth[] =
    "ECP \x83\x76\x83\x8A\x83\x93\x83\x5E \x83\x7C\x81\x5B\x83\x67";

// The value of "MyPortMode", or 0 when the key or the value isn't there.
DWORD FixedPortMode() {
    HKEY key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, PortModeKey, 0, KEY_READ, &key) != ERROR_SUCCESS) return 0;
    DWORD mode = 0;
    DWORD size = sizeof mode;
    if (RegQueryValueExA(key, PortModeValue, nullptr, nullptr, reinterpret_cast<LPBYTE>(&mode), &size) !=
        ERROR_SUCCESS) {
        mode = 0;
    }
    RegCloseKey(key);
    return mode;
}

}  // namespace

int IsEcpDescription(const char* description) {
    if (description == nullptr) return 0;
    return lstrcmpA(description, EcpPortHalfWidth) == 0 || lstrcmpA(description, EcpPortFullWidth) == 0 ||
           std::strstr(description, "ECP") != nullptr;
}

void CheckPortMode(PortContext* port) {
    if (const DWORD fixed = FixedPortMode(); fixed != 0) {
        port->portMode = fixed;
        return;
    }
    if (port->portMode != 0) return;
    if (KeyboardClassD00()) {
        port->portMode |= PM_COMPAT;
        return;
    }
    // ECP unless the spooler's description of the port says otherwise.
    port->portMode |= PM_ECP;
    DWORD count = 0;
    PORT_INFO_2* list = FetchPortList(&count);
    if (list == nullptr) return;
    if (const PORT_INFO_2* entry = FindListedPort(list, count, port->portName)) {
        if (IsEcpDescription(entry->pDescription)) {
            port->portMode = (port->portMode & ~PM_COMPAT) | PM_ECP;
        } else {
            port->portMode = (port->portMode & ~PM_ECP) | PM_COMPAT;
        }
    }
    GlobalFree(list);
}

}  // namespace langmon
