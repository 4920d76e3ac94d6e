// The machine description: a `.reg` file's text, as LANGMON_REGISTRY names
// one when the library starts. A text that is refused must say on which
// line, and leave the machine empty. A text that loads is walked through the
// Reg calls the monitor reads the machine with: every key opened, its
// subkeys enumerated into a name buffer of exactly their size, every value
// asked for its size, read into a buffer of exactly that size and refused
// into one a byte smaller, so that a read or write past a value shows. Then
// what was loaded is written out again as REGEDIT4 and loaded once more: the
// same keys and values must come back, in the same order.

#include "platform/machine_description.h"
#include "platform/registry.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace langmon;

struct LoadedValue {
    std::string name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
    bool operator==(const LoadedValue&) const = default;
};

struct LoadedKey {
    std::string name;
    std::vector<LoadedValue> values;
    std::vector<LoadedKey> subkeys;
    bool operator==(const LoadedKey&) const = default;
};

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "machine file: %s\n", what.c_str());
    std::abort();
}

std::string Shown(std::string_view path, std::string_view name) {
    return "\"" + std::string(path) + "\" \"" + std::string(name) + "\"";
}

// One value through RegQueryValueExA, checked against what the host side says.
LoadedValue ReadValue(HKEY key, const std::string& path, const std::string& name) {
    LoadedValue value;
    value.name = name;
    DWORD size = 0;
    if (RegQueryValueExA(key, name.c_str(), nullptr, &value.type, nullptr, &size) !=
        ERROR_SUCCESS) {
        Fail("a listed value can't be asked for its size: " + Shown(path, name));
    }
    // Exactly the size asked for: one byte more written or read is the
    // address sanitizer's to see.
    auto exact = std::make_unique<BYTE[]>(size);
    DWORD got = size;
    if (RegQueryValueExA(key, name.c_str(), nullptr, nullptr, exact.get(), &got) != ERROR_SUCCESS ||
        got != size) {
        Fail("a value doesn't fit the size it gave: " + Shown(path, name));
    }
    value.data.assign(exact.get(), exact.get() + size);
    if (size > 0) {
        // Never null, not even for a value of one byte: a null buffer asks
        // for the size.
        auto small = std::make_unique<BYTE[]>(size - 1);
        std::fill_n(small.get(), size - 1, 0xA5);
        DWORD room = size - 1;
        if (RegQueryValueExA(key, name.c_str(), nullptr, nullptr, small.get(), &room) !=
                ERROR_MORE_DATA ||
            room != size ||
            std::any_of(small.get(), small.get() + size - 1, [](BYTE b) { return b != 0xA5; })) {
            Fail("a buffer a byte too small is not refused untouched: " + Shown(path, name));
        }
    }
    const auto host = platform::RegistryGetValue(key, "", name);
    if (!host || host->type != value.type || host->data != value.data) {
        Fail("the Reg calls and the host see another value: " + Shown(path, name));
    }
    return value;
}

// The next subkey's name, in a buffer doubled until it fits.
bool EnumerateSubkey(HKEY key, DWORD index, std::string* name) {
    for (DWORD room = 1;; room *= 2) {
        auto buffer = std::make_unique<char[]>(room);
        DWORD size = room;
        const LONG result =
            RegEnumKeyExA(key, index, buffer.get(), &size, nullptr, nullptr, nullptr, nullptr);
        if (result == ERROR_NO_MORE_ITEMS) return false;
        if (result == ERROR_MORE_DATA) continue;
        if (result != ERROR_SUCCESS) Fail("RegEnumKeyExA failed with " + std::to_string(result));
        if (size + 1 > room || buffer[size] != '\0')
            Fail("a subkey's name doesn't end where its size says");
        name->assign(buffer.get(), size);
        return true;
    }
}

// The host's side is asked through the open key, not by the path, so that a
// deep key costs no more than a shallow one.
LoadedKey WalkKey(HKEY key, const std::string& path, std::string name) {
    LoadedKey loaded;
    loaded.name = std::move(name);
    for (const std::string& valueName : platform::RegistryValueNames(key, "")) {
        loaded.values.push_back(ReadValue(key, path, valueName));
    }
    std::string subkeyName;
    for (DWORD index = 0; EnumerateSubkey(key, index, &subkeyName); ++index) {
        HKEY subkey = nullptr;
        if (RegOpenKeyExA(key, subkeyName.c_str(), 0, KEY_READ, &subkey) != ERROR_SUCCESS) {
            Fail("a listed subkey doesn't open: " + Shown(path, subkeyName));
        }
        const std::string subpath = path.empty() ? subkeyName : path + "\\" + subkeyName;
        loaded.subkeys.push_back(WalkKey(subkey, subpath, subkeyName));
        RegCloseKey(subkey);
    }
    return loaded;
}

struct Root {
    HKEY key;
    const char* name;
};
const Root Roots[] = {{HKEY_LOCAL_MACHINE, "HKEY_LOCAL_MACHINE"}, {HKEY_DYN_DATA, "HKEY_DYN_DATA"}};

std::vector<LoadedKey> WalkMachine() {
    std::vector<LoadedKey> roots;
    for (const Root& root : Roots) roots.push_back(WalkKey(root.key, "", root.name));
    return roots;
}

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

// A key and everything below it in REGEDIT4, every value as hex(N): so that
// no value's bytes are read again as a text; long lists go on over lines. A
// key with values or none below has a line of its own; the others are made
// on the way to their subkeys, in the same order, and a deep key costs one
// line, not one a level.
void Write(const LoadedKey& key, const std::string& path, std::string* text) {
    if (!key.values.empty() || key.subkeys.empty()) *text += "[" + path + "]\r\n";
    for (const LoadedValue& value : key.values) {
        char head[32];
        std::snprintf(head, sizeof head, "=hex(%x):", static_cast<unsigned>(value.type));
        *text += (value.name.empty() ? std::string("@") : Quoted(value.name)) + head;
        for (std::size_t i = 0; i < value.data.size(); ++i) {
            char byte[8];
            std::snprintf(byte, sizeof byte, "%02x", value.data[i]);
            *text += byte;
            if (i + 1 < value.data.size()) *text += (i % 16 == 15) ? ",\\\r\n  " : ",";
        }
        *text += "\r\n";
    }
    for (const LoadedKey& subkey : key.subkeys) Write(subkey, path + "\\" + subkey.name, text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string error;
    if (!platform::LoadMachineDescription(text, "fuzz.reg", &error)) {
        if (!error.starts_with("fuzz.reg:")) Fail("a refusal that names no line: " + error);
        for (const Root& root : Roots) {
            if (!platform::RegistrySubkeys(root.key, "").empty() ||
                !platform::RegistryValueNames(root.key, "").empty()) {
                Fail("a refused file left keys behind");
            }
        }
        return 0;
    }
    const std::vector<LoadedKey> loaded = WalkMachine();
    std::string written = "REGEDIT4\r\n";
    for (std::size_t i = 0; i < loaded.size(); ++i) Write(loaded[i], Roots[i].name, &written);
    if (!platform::LoadMachineDescription(written, "written.reg", &error)) {
        Fail("what was loaded, written out, is refused: " + error + "\n" + written);
    }
    if (WalkMachine() != loaded)
        Fail("what was loaded, written out and loaded again, differs:\n" + written);
    if (platform::OpenRegistryKeyCount() != 0) Fail("keys left open");
    return 0;
}
