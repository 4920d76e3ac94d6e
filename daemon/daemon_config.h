// langmond's configuration: the printers it serves, where it listens, and the
// monitor's own settings, read from /etc/langmon/langmond.conf (TOML) and from
// `--printer NAME=ADDRESS` options. docs/langmond.md describes every key.
#pragma once

#include "daemon/status_protocol.h"
#include "platform/win32_types.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace langmon::daemon {

inline constexpr const char* DefaultConfigPath = "/etc/langmon/langmond.conf";

// The monitor's own key, as the daemon names it to InitializeMonitorEx; the
// printing priority lives there.
inline constexpr const char* MonitorRegistryRoot =
    "System\\CurrentControlSet\\control\\Print\\Monitors\\Quor Language Monitor";

// A printer the daemon serves. Its name is also the name of its status store
// and of its queue on the machine the daemon describes.
struct PrinterConfig {
    std::string name;
    std::string address;  // as CheckPrinterTarget accepts it
    std::string port;     // as given; empty: the daemon chooses a free one of the address's kind
    std::string origin;   // "FILE:LINE" or "--printer", for messages

    bool operator==(const PrinterConfig& other) const {
        return name == other.name && address == other.address && port == other.port;
    }
};

// The registry values the monitor reads, as the [monitor] table sets them.
// Every field holds the monitor's own default, so that a setting taken out of
// the file goes back to it on the next reading.
enum class PortMode : DWORD { Auto = 0, Compatibility = 1, Ecp = 2 };

struct MonitorSettings {
    DWORD threadStartIntervalMs = 50;   // CreateThreadInterval
    bool serializeThreadStarts = true;  // CTIFlag bit 0x1
    bool startThreadsSuspended = true;  // CTIFlag bit 0x2
    PortMode portMode = PortMode::Auto; // MyPortMode
    int printingPriority = 0;           // PrintingPriority, -2..2

    bool operator==(const MonitorSettings&) const = default;
};

struct DaemonConfig {
    std::vector<PrinterConfig> printers;  // in the order they were given
    std::string socket = protocol::DefaultSocketPath;
    bool usb = true;  // follow the family's USB printers as they are plugged
    MonitorSettings monitor;
};

// Reads the file at `path` into `config`, which starts from the defaults.
// False with one line in `error` ("FILE:LINE:COLUMN: what is wrong") when the
// file cannot be read or anything in it is wrong; `config` is then untouched.
bool ReadDaemonConfig(const std::string& path, DaemonConfig* config, std::string* error);

// The same for a text already read; `sourceName` names it in messages.
bool ParseDaemonConfig(std::string_view text, const std::string& sourceName, DaemonConfig* config,
                       std::string* error);

// Adds the printer of a `--printer NAME=ADDRESS` option (split at the first
// '=': an address may hold one, a name may not), checked as a [[printer]]
// table is. False with the reason in `error`; `config` is then untouched.
bool AddPrinterOption(const std::string& nameEqualsAddress, DaemonConfig* config, std::string* error);

// Writes the [monitor] settings into the registry, where the monitor reads
// them. Call it after InitializeMonitorEx, which replaces the registry with
// the machine file when LANGMON_REGISTRY names one, and again after each
// reload. The thread-start settings are read once per process: a change to
// them takes effect when the daemon restarts; the others at the next job.
void ApplyMonitorSettings(const DaemonConfig& config);

// What a reload changes among the printers, matched by name: a changed
// printer has another address or port and must be reopened.
struct ConfigChange {
    std::vector<PrinterConfig> added;
    std::vector<PrinterConfig> removed;
    std::vector<PrinterConfig> changed;  // as `after` has them
};
ConfigChange CompareConfigs(const DaemonConfig& before, const DaemonConfig& after);

}  // namespace langmon::daemon
