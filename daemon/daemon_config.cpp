#include "daemon/daemon_config.h"

#include "langmon/printer_target.h"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace langmon::daemon {

namespace {

// A configuration file is a few lines per printer; a megabyte is thousands of
// printers, and a bound keeps a wrong path (a log, a device) from being read
// whole into memory.
constexpr std::size_t MaxConfigBytes = 1024 * 1024;
constexpr std::size_t MaxNameBytes = 255;
// The most a Unix socket address holds, its terminating NUL aside.
constexpr std::size_t MaxSocketPathBytes = 107;
// The monitor pauses this long after every thread it starts, one printer
// after another: more than a minute would hold a reload up for hours.
constexpr int64_t MaxThreadStartIntervalMs = 60000;

// The keys each table may hold: anything else is a typo that must not pass.
constexpr std::array TopKeys{"printer", "daemon", "monitor"};
constexpr std::array PrinterKeys{"name", "address", "port"};
constexpr std::array DaemonKeys{"socket", "usb"};
constexpr std::array MonitorKeys{"thread_start_interval_ms", "serialize_thread_starts",
                                 "start_threads_suspended", "port_mode", "printing_priority"};

struct PortModeWord {
    const char* word;
    PortMode mode;
};
constexpr std::array PortModeWords{PortModeWord{"auto", PortMode::Auto},
                                   PortModeWord{"compatibility", PortMode::Compatibility},
                                   PortModeWord{"ecp", PortMode::Ecp}};

char FoldAscii(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

// Printer and port names become registry key names, which compare without
// regard to the case of ASCII letters: two names that differ only so are one.
bool SameName(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return FoldAscii(x) == FoldAscii(y); });
}

template <std::size_t N>
std::string KeyList(const std::array<const char*, N>& keys) {
    std::string list;
    for (const char* key : keys) list += (list.empty() ? "" : ", ") + std::string(key);
    return list;
}

// Empty when `text` may name a printer or a port; otherwise what is wrong.
std::string NameProblem(const char* what, const std::string& text) {
    if (text.empty()) return std::string(what) + " is empty";
    if (text.size() > MaxNameBytes) return std::string(what) + " is longer than 255 bytes";
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return std::string(what) + " has a control character";
        // The machine keeps printers and ports as registry keys, whose paths
        // a backslash divides.
        if (c == '\\') return std::string(what) + " has a backslash";
    }
    return "";
}

std::string AddressProblem(const std::string& address) {
    std::string problem = langmon::tool::CheckPrinterTarget(address);
    // The check words its answer for the command's option; here the address
    // is the subject already.
    const std::string optionPrefix = "--printer " + address + ": ";
    if (problem.starts_with(optionPrefix)) problem.erase(0, optionPrefix.size());
    return problem.empty() ? "" : "address \"" + address + "\": " + problem;
}

const PrinterConfig* FindPort(const std::vector<PrinterConfig>& printers, const std::string& port) {
    for (const PrinterConfig& printer : printers) {
        if (SameName(printer.port, port)) return &printer;
    }
    return nullptr;
}

class Reader {
public:
    Reader(const std::string& sourceName, std::string* error) : source_(sourceName), error_(error) {}

    bool Read(const toml::table& top, DaemonConfig* config) {
        if (!KnownKeys(top, TopKeys, "the file")) return false;
        if (const toml::node* printers = top.get("printer")) {
            if (!ReadPrinters(*printers, config)) return false;
        }
        if (const toml::node* daemon = top.get("daemon")) {
            if (!ReadDaemon(*daemon, config)) return false;
        }
        if (const toml::node* monitor = top.get("monitor")) {
            if (!ReadMonitor(*monitor, &config->monitor)) return false;
        }
        return true;
    }

    bool Fail(const toml::source_region& at, const std::string& what) {
        *error_ = source_ + ":" + std::to_string(at.begin.line) + ":" + std::to_string(at.begin.column) + ": " + what;
        return false;
    }

private:
    template <std::size_t N>
    bool KnownKeys(const toml::table& table, const std::array<const char*, N>& keys, const char* where) {
        for (const auto& [key, value] : table) {
            if (std::find(keys.begin(), keys.end(), key.str()) == keys.end()) {
                return Fail(key.source(), "unknown key \"" + std::string(key.str()) + "\" in " + where +
                                              " (known: " + KeyList(keys) + ")");
            }
        }
        return true;
    }

    const toml::table* Table(const toml::node& node, const char* header) {
        const toml::table* table = node.as_table();
        if (table == nullptr) Fail(node.source(), std::string(header) + " must be a table");
        return table;
    }

    bool Text(const toml::node& node, const char* key, std::string* out) {
        const auto* text = node.as_string();
        if (text == nullptr) return Fail(node.source(), std::string(key) + " must be a text in quotes");
        *out = text->get();
        return true;
    }

    bool Flag(const toml::node& node, const char* key, bool* out) {
        const auto* flag = node.as_boolean();
        if (flag == nullptr) return Fail(node.source(), std::string(key) + " must be true or false");
        *out = flag->get();
        return true;
    }

    bool Whole(const toml::node& node, const char* key, int64_t low, int64_t high, int64_t* out) {
        const auto* number = node.as_integer();
        if (number == nullptr || number->get() < low || number->get() > high) {
            return Fail(node.source(), std::string(key) + " must be a whole number from " + std::to_string(low) +
                                           " to " + std::to_string(high));
        }
        *out = number->get();
        return true;
    }

    bool ReadPrinters(const toml::node& node, DaemonConfig* config) {
        const toml::array* list = node.as_array();
        if (list == nullptr || !list->is_array_of_tables()) {
            return Fail(node.source(), "printers are [[printer]] tables, one per printer");
        }
        std::vector<PrinterConfig> printers;
        for (const toml::node& element : *list) {
            const toml::table& table = *element.as_table();
            if (!KnownKeys(table, PrinterKeys, "[[printer]]")) return false;
            PrinterConfig printer;
            printer.origin = source_ + ":" + std::to_string(table.source().begin.line);
            const toml::node* name = table.get("name");
            const toml::node* address = table.get("address");
            const toml::node* port = table.get("port");
            if (name == nullptr) return Fail(table.source(), "[[printer]] has no name");
            if (address == nullptr) return Fail(table.source(), "[[printer]] has no address");
            if (!Text(*name, "name", &printer.name) || !Text(*address, "address", &printer.address)) return false;
            if (const std::string problem = NameProblem("name", printer.name); !problem.empty()) {
                return Fail(name->source(), problem);
            }
            for (const PrinterConfig& earlier : printers) {
                if (SameName(earlier.name, printer.name)) {
                    return Fail(name->source(), "printer name \"" + printer.name + "\" is taken by the printer at " +
                                                    earlier.origin);
                }
            }
            if (const std::string problem = AddressProblem(printer.address); !problem.empty()) {
                return Fail(address->source(), problem);
            }
            if (port != nullptr) {
                if (!Text(*port, "port", &printer.port)) return false;
                if (const std::string problem = NameProblem("port", printer.port); !problem.empty()) {
                    return Fail(port->source(), problem);
                }
                if (const PrinterConfig* other = FindPort(printers, printer.port)) {
                    return Fail(port->source(), "port \"" + printer.port + "\" is taken by the printer at " +
                                                    other->origin);
                }
            }
            printers.push_back(printer);
        }
        config->printers = std::move(printers);
        return true;
    }

    bool ReadDaemon(const toml::node& node, DaemonConfig* config) {
        const toml::table* table = Table(node, "[daemon]");
        if (table == nullptr || !KnownKeys(*table, DaemonKeys, "[daemon]")) return false;
        if (const toml::node* socket = table->get("socket")) {
            if (!Text(*socket, "socket", &config->socket)) return false;
            if (!config->socket.starts_with('/')) return Fail(socket->source(), "socket must be an absolute path");
            if (config->socket.size() > MaxSocketPathBytes) {
                return Fail(socket->source(), "socket path is longer than 107 bytes, the most a socket address holds");
            }
        }
        if (const toml::node* usb = table->get("usb")) {
            if (!Flag(*usb, "usb", &config->usb)) return false;
        }
        return true;
    }

    bool ReadMonitor(const toml::node& node, MonitorSettings* settings) {
        const toml::table* table = Table(node, "[monitor]");
        if (table == nullptr || !KnownKeys(*table, MonitorKeys, "[monitor]")) return false;
        int64_t number = 0;
        if (const toml::node* interval = table->get("thread_start_interval_ms")) {
            if (!Whole(*interval, "thread_start_interval_ms", 0, MaxThreadStartIntervalMs, &number)) return false;
            settings->threadStartIntervalMs = static_cast<DWORD>(number);
        }
        if (const toml::node* serialize = table->get("serialize_thread_starts")) {
            if (!Flag(*serialize, "serialize_thread_starts", &settings->serializeThreadStarts)) return false;
        }
        if (const toml::node* suspended = table->get("start_threads_suspended")) {
            if (!Flag(*suspended, "start_threads_suspended", &settings->startThreadsSuspended)) return false;
        }
        if (const toml::node* mode = table->get("port_mode")) {
            std::string word;
            if (!Text(*mode, "port_mode", &word)) return false;
            const auto row = std::find_if(PortModeWords.begin(), PortModeWords.end(),
                                          [&](const PortModeWord& r) { return word == r.word; });
            if (row == PortModeWords.end()) {
                return Fail(mode->source(), "port_mode must be \"auto\", \"compatibility\" or \"ecp\"");
            }
            settings->portMode = row->mode;
        }
        if (const toml::node* priority = table->get("printing_priority")) {
            if (!Whole(*priority, "printing_priority", -2, 2, &number)) return false;
            settings->printingPriority = static_cast<int>(number);
        }
        return true;
    }

    std::string source_;
    std::string* error_;
};

}  // namespace

bool ParseDaemonConfig(std::string_view text, const std::string& sourceName, DaemonConfig* config,
                       std::string* error) {
    DaemonConfig read;
    Reader reader(sourceName, error);
    try {
        const toml::table top = toml::parse(text, sourceName);
        if (!reader.Read(top, &read)) return false;
    } catch (const toml::parse_error& bad) {
        return reader.Fail(bad.source(), std::string(bad.description()));
    }
    *config = std::move(read);
    return true;
}

bool ReadDaemonConfig(const std::string& path, DaemonConfig* config, std::string* error) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        *error = path + ": cannot be read: " + std::strerror(errno);
        return false;
    }
    std::string text(MaxConfigBytes + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file.bad()) {
        *error = path + ": cannot be read: " + std::strerror(errno);
        return false;
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > MaxConfigBytes) {
        *error = path + ": longer than 1048576 bytes";
        return false;
    }
    return ParseDaemonConfig(text, path, config, error);
}

bool AddPrinterOption(const std::string& nameEqualsAddress, DaemonConfig* config, std::string* error) {
    const std::string option = "--printer " + nameEqualsAddress + ": ";
    const std::size_t equals = nameEqualsAddress.find('=');
    if (equals == std::string::npos) {
        *error = option + "give NAME=ADDRESS";
        return false;
    }
    PrinterConfig printer;
    printer.name = nameEqualsAddress.substr(0, equals);
    printer.address = nameEqualsAddress.substr(equals + 1);
    printer.origin = "--printer";
    std::string problem = NameProblem("name", printer.name);
    for (const PrinterConfig& other : config->printers) {
        if (problem.empty() && SameName(other.name, printer.name)) {
            problem = "printer name \"" + printer.name + "\" is taken by the printer at " + other.origin;
        }
    }
    if (problem.empty()) problem = AddressProblem(printer.address);
    if (!problem.empty()) {
        *error = option + problem;
        return false;
    }
    config->printers.push_back(std::move(printer));
    return true;
}

}  // namespace langmon::daemon
