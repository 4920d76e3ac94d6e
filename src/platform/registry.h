// The registry as the logic sees it: one in-memory tree under HKEY_LOCAL_MACHINE
// and HKEY_DYN_DATA, filled from the machine description. The Reg calls have
// their Win32 contracts: they return the error code (they do not set the last
// error), keys are opened and never created, and key and value names compare
// without regard to case.
#pragma once

#include "platform/win32_types.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace langmon {

struct RegistryKey;  // what an HKEY points at
using HKEY = RegistryKey*;

inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(std::uintptr_t{0x80000002u});
inline const HKEY HKEY_DYN_DATA = reinterpret_cast<HKEY>(std::uintptr_t{0x80000006u});

constexpr REGSAM KEY_QUERY_VALUE = 0x0001u;
constexpr REGSAM KEY_SET_VALUE = 0x0002u;
constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x0008u;
constexpr REGSAM KEY_NOTIFY = 0x0010u;
constexpr REGSAM KEY_READ = 0x00020019u;

constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_EXPAND_SZ = 2;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
constexpr DWORD REG_MULTI_SZ = 7;

// ERROR_FILE_NOT_FOUND when a key on the path is missing; the key is not made.
LONG RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD options, REGSAM access, HKEY* result);
// Subkey names by index, in the order the keys were made. ERROR_NO_MORE_ITEMS
// past the end; ERROR_MORE_DATA when the name with its NUL does not fit.
LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, LPDWORD nameSize, LPDWORD reserved,
                   LPSTR className, LPDWORD classSize, void* lastWriteTime);
// A null data buffer asks for the size. A buffer too small is left untouched,
// *dataSize becomes the size needed and the result is ERROR_MORE_DATA.
LONG RegQueryValueExA(HKEY key, LPCSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                      LPDWORD dataSize);
// Needs KEY_SET_VALUE on the key; ERROR_ACCESS_DENIED otherwise.
LONG RegSetValueExA(HKEY key, LPCSTR valueName, DWORD reserved, DWORD type, const BYTE* data,
                    DWORD dataSize);
LONG RegCloseKey(HKEY key);

namespace platform {

// The host's side of the registry: the machine description and tests build the
// tree through these, and the platform's models of the spooler and the machine
// read it. Paths are below a root key, with '\' between the names.
void ClearRegistry();
void RegistryCreateKey(HKEY root, std::string_view path);
void RegistrySetValue(HKEY root, std::string_view path, std::string_view name, DWORD type,
                      std::span<const BYTE> data);
void RegistrySetString(HKEY root, std::string_view path, std::string_view name,
                       std::string_view value);
void RegistrySetDword(HKEY root, std::string_view path, std::string_view name, DWORD value);
// Takes the key out with everything below it, as a printer queue leaves the
// machine. A handle still open on it keeps what it had. False when missing.
bool RegistryDeleteKey(HKEY root, std::string_view path);

struct RegistryValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};
std::optional<RegistryValue> RegistryGetValue(HKEY root, std::string_view path,
                                              std::string_view name);
// A REG_SZ without its NUL, or nothing when absent or of another type.
std::optional<std::string> RegistryGetString(HKEY root, std::string_view path,
                                             std::string_view name);
// A REG_DWORD, or any value of 4 bytes; nothing otherwise.
std::optional<DWORD> RegistryGetDword(HKEY root, std::string_view path, std::string_view name);
// Names of the subkeys of a key, in order; empty when the key is missing.
std::vector<std::string> RegistrySubkeys(HKEY root, std::string_view path);
// Names of the values of a key, in order.
std::vector<std::string> RegistryValueNames(HKEY root, std::string_view path);
bool RegistryKeyExists(HKEY root, std::string_view path);

// A number that every change of the registry raises: what was read from it
// at one number holds while the number stays.
std::uint64_t RegistryGeneration();
// Lookups made in the registry so far, by the Reg calls and the host's.
std::uint64_t RegistryReadCount();

// Keys opened by RegOpenKeyExA and not yet closed, for leak checks.
std::size_t OpenRegistryKeyCount();

}  // namespace platform
}  // namespace langmon
