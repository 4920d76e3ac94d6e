// Machine facts, answered from the registry. Each call reads the registry
// afresh, so that a test or a reloaded description changes the machine at once.
// A fact that the description leaves out has the value of the machines the
// printers were sold with: a Japanese Windows 98 with an ordinary keyboard.

#include "platform/machine.h"

#include "platform/registry.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace langmon {

namespace {

constexpr const char* kComputerNameKey = "System\\CurrentControlSet\\control\\ComputerName\\ComputerName";
constexpr const char* kMachineKey = "Software\\langmon";
constexpr const char* kConnectionsKey = "Software\\langmon\\Network Connections";

constexpr std::size_t kMaxComputerName = 15;  // MAX_COMPUTERNAME_LENGTH
constexpr DWORD kShiftJisCodePage = 932;

DWORD MachineDword(const char* name, DWORD fallback) {
    return platform::RegistryGetDword(HKEY_LOCAL_MACHINE, kMachineKey, name).value_or(fallback);
}

std::string HostComputerName() {
    char host[256] = {};
    if (gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') return "LOCALHOST";
    std::string name(host, std::min(std::strlen(host), kMaxComputerName));
    for (char& c : name) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return name;
}

}  // namespace

BOOL GetComputerNameA(LPSTR buffer, LPDWORD size) {
    if (!size) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string name =
        platform::RegistryGetString(HKEY_LOCAL_MACHINE, kComputerNameKey, "ComputerName")
            .value_or(HostComputerName());
    const auto withNul = static_cast<DWORD>(name.size() + 1);
    if (!buffer || *size < withNul) {
        *size = withNul;
        SetLastError(ERROR_BUFFER_OVERFLOW);
        return FALSE;
    }
    std::memcpy(buffer, name.c_str(), withNul);
    *size = withNul - 1;
    return TRUE;
}

int GetKeyboardType(int typeFlag) {
    switch (typeFlag) {
    case 0: return static_cast<int>(MachineDword("KeyboardType", 0));
    case 1: return static_cast<int>(MachineDword("KeyboardSubtype", 0));
    case 2: return static_cast<int>(MachineDword("KeyboardFunctionKeys", 0));
    default: return 0;
    }
}

BOOL IsDBCSLeadByte(BYTE testChar) {
    // No code page we know has a lead byte below 0x81; those bytes need no lookup.
    if (testChar < 0x81) return FALSE;
    if (MachineDword("CodePage", kShiftJisCodePage) != kShiftJisCodePage) return FALSE;
    return (testChar <= 0x9F || (testChar >= 0xE0 && testChar <= 0xFC)) ? TRUE : FALSE;
}

DWORD WNetGetConnectionA(LPCSTR localName, LPSTR remoteName, LPDWORD length) {
    // The result is also the thread's last error, success included.
    auto answer = [](DWORD code) {
        SetLastError(code);
        return code;
    };
    if (!localName || !length) return answer(ERROR_INVALID_PARAMETER);
    const auto value = platform::RegistryGetValue(HKEY_LOCAL_MACHINE, kConnectionsKey, localName);
    if (!value) return answer(ERROR_NOT_CONNECTED);
    // A REG_DWORD stands for a network layer that fails on this name.
    if (value->type == REG_DWORD && value->data.size() == 4) {
        DWORD code;
        std::memcpy(&code, value->data.data(), 4);
        return answer(code);
    }
    if (value->type != REG_SZ) return answer(ERROR_NOT_CONNECTED);
    const auto end = std::find(value->data.begin(), value->data.end(), BYTE{0});
    const std::string remote(value->data.begin(), end);
    const auto withNul = static_cast<DWORD>(remote.size() + 1);
    if (!remoteName || *length < withNul) {
        *length = withNul;
        return answer(ERROR_MORE_DATA);
    }
    std::memcpy(remoteName, remote.c_str(), withNul);
    return answer(ERROR_SUCCESS);
}

BOOL GetVersionExA(OSVERSIONINFOA* info) {
    if (!info || info->dwOSVersionInfoSize != sizeof(OSVERSIONINFOA)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    info->dwMajorVersion = MachineDword("VersionMajor", 4);
    info->dwMinorVersion = MachineDword("VersionMinor", 10);
    // Windows 98 reports its build with the version in the high word.
    info->dwBuildNumber = MachineDword("VersionBuild", 0x040A07CEu);
    info->dwPlatformId = MachineDword("VersionPlatform", VER_PLATFORM_WIN32_WINDOWS);
    const std::string csd =
        platform::RegistryGetString(HKEY_LOCAL_MACHINE, kMachineKey, "VersionCSD").value_or("");
    const std::size_t kept = std::min(csd.size(), sizeof info->szCSDVersion - 1);
    std::memset(info->szCSDVersion, 0, sizeof info->szCSDVersion);
    std::memcpy(info->szCSDVersion, csd.data(), kept);
    return TRUE;
}

}  // namespace langmon
