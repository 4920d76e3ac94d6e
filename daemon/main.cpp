// langmond: the host that owns printers between jobs. It keeps each
// printer's port open with its status thread awake, so that every printer's
// status is fresh at any time, and serves it to any process on its control
// socket. Started by systemd (socket activation, Type=notify) or by hand.

#include "control_server.h"
#include "control_socket.h"
#include "daemon_config.h"
#include "printer_host.h"
#include "udev_printers.h"
#include "usb_hotplug.h"

#include "daemon/status_protocol.h"
#include "langmon/own_stores.h"

#include <systemd/sd-daemon.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using namespace langmon::daemon;

constexpr const char* Usage =
    "usage: langmond [--config FILE] [--socket PATH] [--printer NAME=ADDRESS]... [--foreground]\n"
    "\n"
    "Keeps the ports of its printers open with their status fresh, and serves\n"
    "that status to any local process on its control socket.\n"
    "\n"
    "  --config FILE          the configuration (default /etc/langmon/langmond.conf;\n"
    "                         a missing default file is an empty one)\n"
    "  --socket PATH          the control socket (default /run/langmon/langmond.sock,\n"
    "                         or what the configuration says)\n"
    "  --printer NAME=ADDRESS a printer more, as the configuration would add it\n"
    "  --foreground           accepted for habit: langmond always stays in the\n"
    "                         foreground, as systemd wants it\n"
    "\n"
    "SIGHUP re-reads the configuration; SIGTERM or SIGINT closes every port and\n"
    "ends. Exit status: 0 after SIGTERM, 1 when it cannot start, 2 for a wrong\n"
    "command line.\n";

std::atomic<bool> stopping{false};
std::atomic<bool> reloading{false};
ControlServer* wakeable = nullptr;

void OnSignal(int signal) {
    (signal == SIGHUP ? reloading : stopping) = true;
    if (wakeable != nullptr) wakeable->Wake();
}

struct Options {
    std::string configPath = DefaultConfigPath;
    bool configGiven = false;
    std::string socketPath;
    std::vector<std::string> printers;
};

// The configuration the options and the file make; false with the reason.
bool LoadConfig(const Options& options, DaemonConfig* config, std::string* error) {
    *config = DaemonConfig{};
    if (options.configGiven || access(options.configPath.c_str(), F_OK) == 0) {
        if (!ReadDaemonConfig(options.configPath, config, error)) return false;
    }
    for (const std::string& printer : options.printers) {
        if (!AddPrinterOption(printer, config, error)) return false;
    }
    if (!options.socketPath.empty()) config->socket = options.socketPath;
    return true;
}

// "1 printer", "2 printers".
std::string Count(std::size_t count, const std::string& thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

void Say(const std::string& line) { std::cerr << "langmond: " << line << '\n' << std::flush; }

void AddPrinters(PrinterHost& host, const std::vector<PrinterConfig>& printers) {
    for (const PrinterConfig& printer : printers) {
        std::string problem;
        if (host.Add(printer.name, printer.address, printer.port, &problem)) {
            Say("printer \"" + printer.name + "\" at " + printer.address);
        } else {
            Say("printer \"" + printer.name + "\" (" + printer.origin + ") is not served: " + problem);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    // The daemon's monitor and its server's handles use the daemon's own
    // stores: its status manager library must never ask a daemon (itself
    // least of all, on a thread its server would have to answer).
    langmon::tool::KeepStatusStoresOwn();
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const bool hasValue = i + 1 < argc;
        if (word == "--help" || word == "-h") {
            std::cout << Usage;
            return 0;
        } else if (word == "--version") {
            std::cout << "langmond " << LANGMON_VERSION << '\n';
            return 0;
        } else if (word == "--foreground") {
        } else if (word == "--config" && hasValue) {
            options.configPath = argv[++i];
            options.configGiven = true;
        } else if (word == "--socket" && hasValue) {
            options.socketPath = argv[++i];
        } else if (word == "--printer" && hasValue) {
            options.printers.push_back(argv[++i]);
        } else {
            std::cerr << "langmond: " << (word.rfind("--", 0) == 0 && !hasValue ? word + " takes a value" : "unknown option " + word)
                      << "; see 'langmond --help'\n";
            return 2;
        }
    }
    DaemonConfig config;
    std::string error;
    if (!LoadConfig(options, &config, &error)) {
        std::cerr << "langmond: " << error << '\n';
        return 1;
    }
    std::signal(SIGPIPE, SIG_IGN);
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaction(signal, &action, nullptr);

    // The monitor reads the machine as it starts; the configuration's
    // settings go into it then, and again at each reload.
    PrinterHost host(MonitorRegistryRoot);
    ApplyMonitorSettings(config);
    const int listener = OpenControlSocket(config.socket, &error);
    if (listener < 0) {
        std::cerr << "langmond: the control socket: " << error << '\n';
        return 1;
    }
    ControlServer server(host, listener, std::string("langmond ") + LANGMON_VERSION);
    wakeable = &server;
    server.SetLog(Say);
    AddPrinters(host, config.printers);
    const auto letGo = [&](const std::string& name) {
        server.EndJobs(name);
        host.Remove(name);
    };
    UsbHotplug hotplug(host, letGo, Say);
    hotplug.SetConfigured(config.printers);
    UdevPrinters udev([&](const std::string& devnode) { hotplug.Plugged(devnode); },
                      [&](const std::string& devnode) { hotplug.Unplugged(devnode); });
    // Read at the start only: a reload does not start or stop following.
    if (config.usb && !udev.Start(&error)) Say("USB printers plugged in are not seen: udev's events: " + error);
    Say("serving " + Count(host.Printers().size(), "printer") + " on " + config.socket);
    // What `systemctl status langmond` shows; told again as printers come and go.
    const auto notifyServing = [&] {
        sd_notify(0, ("READY=1\nSTATUS=serving " + Count(host.Printers().size(), "printer")).c_str());
    };
    notifyServing();

    while (!stopping.load()) {
        if (server.Serve(1000, udev.Fd())) {
            udev.Dispatch();
            notifyServing();
        }
        if (reloading.exchange(false)) {
            DaemonConfig fresh;
            if (!LoadConfig(options, &fresh, &error)) {
                Say("the configuration was not re-read: " + error);
                continue;
            }
            sd_notify(0, "RELOADING=1");
            ApplyMonitorSettings(fresh);
            const ConfigChange change = CompareConfigs(config, fresh);
            for (const auto* list : {&change.removed, &change.changed}) {
                for (const PrinterConfig& printer : *list) {
                    letGo(printer.name);
                    Say("printer \"" + printer.name + "\" let go");
                }
            }
            AddPrinters(host, change.changed);
            AddPrinters(host, change.added);
            config = fresh;
            hotplug.SetConfigured(config.printers);
            notifyServing();
        }
    }
    sd_notify(0, "STOPPING=1");
    wakeable = nullptr;
    Say("closing " + Count(host.Printers().size(), "port"));
    server.EndJobs();
    host.CloseAll();
    if (!options.socketPath.empty() || sd_listen_fds(0) <= 0) unlink(config.socket.c_str());
    Say("stopped");
    return 0;
}
