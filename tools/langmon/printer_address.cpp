#include "printer_address.h"

#include "ports/serial_port_monitor.h"

#include <charconv>
#include <string_view>

namespace langmon::tool {

namespace {

constexpr std::string_view EmulatorPrefix = "emulator:";
constexpr std::string_view FilePrefix = "file:";
constexpr std::string_view NetworkPrefix = "langmon://";
constexpr std::string_view LocalPrefix = "langmon:";
constexpr std::string_view EmulatorPath = "/emulator";
constexpr std::string_view UsbName = "lp";

const char* const Forms =
    "emulator[:DESCRIPTION], file:PATH, langmon:/dev/TTY[?baud=N], langmon:/emulator[?DESCRIPTION], "
    "langmon:/dev/usb/lpN or langmon://HOST[:PORT][?snmp=PORT][&community=NAME]";

bool StartsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

// A whole decimal number from `least` to `most`.
bool ReadNumber(std::string_view text, unsigned least, unsigned most, unsigned* value) {
    unsigned parsed = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return false;
    if (parsed < least || parsed > most) return false;
    *value = parsed;
    return true;
}

bool ReadPortNumber(std::string_view text, uint16_t* port) {
    unsigned value = 0;
    if (!ReadNumber(text, 1, 65535, &value)) return false;
    *port = static_cast<uint16_t>(value);
    return true;
}

// Calls `take(name, value)` for each NAME=VALUE of a query ("a=1&b=2"); the
// first problem it returns ends the reading.
template <typename Take>
std::string ReadQuery(std::string_view query, Take take) {
    while (!query.empty()) {
        const std::size_t amp = query.find('&');
        const std::string_view pair = query.substr(0, amp);
        query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
        const std::size_t equals = pair.find('=');
        if (equals == std::string_view::npos || equals == 0) {
            return "\"" + std::string(pair) + "\" is not NAME=VALUE";
        }
        if (std::string problem = take(pair.substr(0, equals), pair.substr(equals + 1)); !problem.empty()) {
            return problem;
        }
    }
    return "";
}

std::string ParseNetwork(std::string_view rest, PrinterAddress* address) {
    address->kind = AddressKind::Network;
    const std::size_t question = rest.find('?');
    std::string_view authority = rest.substr(0, question);
    const std::string_view query = question == std::string_view::npos ? std::string_view() : rest.substr(question + 1);
    if (!authority.empty() && authority.back() == '/') authority.remove_suffix(1);
    std::string_view portText;
    if (StartsWith(authority, "[")) {
        // An IPv6 address, bracketed so that its colons are not the port's.
        const std::size_t close = authority.find(']');
        if (close == std::string_view::npos || close == 1) return "an IPv6 address goes in brackets: [::1]";
        address->host = std::string(authority.substr(1, close - 1));
        const std::string_view after = authority.substr(close + 1);
        if (!after.empty() && after[0] != ':') return "after ']' comes ':PORT' or nothing";
        if (!after.empty()) portText = after.substr(1);
        if (after == ":") return "the port after ':' is missing";
    } else {
        const std::size_t colon = authority.find(':');
        address->host = std::string(authority.substr(0, colon));
        if (colon != std::string_view::npos) {
            portText = authority.substr(colon + 1);
            if (portText.empty()) return "the port after ':' is missing";
        }
    }
    if (address->host.empty()) return "no host: langmon://HOST[:PORT]";
    if (address->host.find_first_of("/@ ") != std::string::npos) return "\"" + address->host + "\" is not a host";
    if (!portText.empty() && !ReadPortNumber(portText, &address->port)) {
        return "the port " + std::string(portText) + " is not a number from 1 to 65535";
    }
    return ReadQuery(query, [address](std::string_view name, std::string_view value) -> std::string {
        if (name == "snmp") {
            if (!ReadPortNumber(value, &address->snmpPort)) return "snmp takes a port from 1 to 65535";
            return "";
        }
        if (name == "community") {
            if (value.empty()) return "community takes a name";
            address->community = std::string(value);
            return "";
        }
        return "a network printer takes snmp=PORT and community=NAME, not " + std::string(name);
    });
}

std::string ParseLocal(std::string_view rest, PrinterAddress* address) {
    const std::size_t question = rest.find('?');
    const std::string_view path = rest.substr(0, question);
    const std::string_view query = question == std::string_view::npos ? std::string_view() : rest.substr(question + 1);
    if (path == EmulatorPath) {
        address->kind = AddressKind::Emulator;
        address->description = std::string(query);
        return "";
    }
    // usblp names its devices lpN; the same name anywhere else (the device
    // that `langmon emulate --usb-device` serves) is one too.
    const std::size_t slash = path.rfind('/');
    const std::string_view file = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (StartsWith(path, "/") && StartsWith(file, UsbName) && file.size() > UsbName.size()) {
        address->kind = AddressKind::Usb;
        address->path = std::string(path);
        unsigned number = 0;
        if (!ReadNumber(file.substr(UsbName.size()), 0, 255, &number)) return "a USB printer is /dev/usb/lpN";
        if (!query.empty()) return "a USB printer takes no settings";
        return "";
    }
    if (!StartsWith(path, "/dev/") || path.size() == 5) {
        return "a local printer is a device: langmon:/dev/TTY, langmon:/dev/usb/lpN or langmon:/emulator";
    }
    address->path = std::string(path);
    address->kind = AddressKind::Serial;
    return ReadQuery(query, [address](std::string_view name, std::string_view value) -> std::string {
        if (name != "baud") return "a serial printer takes baud=N, not " + std::string(name);
        if (!ReadNumber(value, 1, 4000000, &address->baud) || !ports::IsSerialBaudRate(address->baud)) {
            return "baud " + std::string(value) + " is not a rate a serial line runs at (e.g. 9600, 19200, 115200)";
        }
        return "";
    });
}

}  // namespace

std::string ParsePrinterAddress(const std::string& text, PrinterAddress* address) {
    *address = PrinterAddress{};
    const std::string_view view(text);
    if (text == "emulator") return "";
    if (StartsWith(view, EmulatorPrefix)) {
        address->description = text.substr(EmulatorPrefix.size());
        return "";
    }
    if (StartsWith(view, FilePrefix)) {
        address->kind = AddressKind::File;
        address->path = text.substr(FilePrefix.size());
        return address->path.empty() ? "file: needs a PATH" : "";
    }
    if (StartsWith(view, NetworkPrefix)) return ParseNetwork(view.substr(NetworkPrefix.size()), address);
    if (StartsWith(view, LocalPrefix)) return ParseLocal(view.substr(LocalPrefix.size()), address);
    return std::string("not a printer address (") + Forms + ")";
}

std::string DefaultPortName(const PrinterAddress& address) {
    switch (address.kind) {
        case AddressKind::Serial: return "COM1:";
        // As the spooler names a USB port: no colon.
        case AddressKind::Usb: return "USB001";
        default: return "LPT1:";
    }
}

}  // namespace langmon::tool
