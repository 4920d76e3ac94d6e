// What the daemon does as USB printers are plugged in and out. A printer of
// the family that comes is opened and served under a name made of its model
// and its device (the name the configuration gives it, when an address of
// the configuration is that device); one of another make is left alone. A
// printer unplugged is one that does not answer (its port's reads fail)
// until its device goes too; then it is let go, its job ended first.
#pragma once

#include "daemon_config.h"
#include "printer_host.h"

#include <functional>
#include <string>
#include <vector>

namespace langmon::daemon {

class UsbHotplug {
public:
    using Say = std::function<void(const std::string&)>;
    // `letGo` ends a printer's jobs and has the host let it go.
    UsbHotplug(PrinterHost& host, std::function<void(const std::string& name)> letGo, Say say);

    // The configuration's printers, whose names their devices take.
    void SetConfigured(std::vector<PrinterConfig> printers) { configured_ = std::move(printers); }

    // The USB printer class device `devnode` (/dev/usb/lp0) came or went.
    void Plugged(const std::string& devnode);
    void Unplugged(const std::string& devnode);

    // The name a printer of `model` on `devnode` is served under when the
    // configuration names none: "Laser_Printer_6200tx-lp0", as CUPS makes
    // queue names of models, so that it is a word for commands.
    static std::string NameFor(const std::string& model, const std::string& devnode);

private:
    PrinterHost& host_;
    std::function<void(const std::string&)> letGo_;
    Say say_;
    std::vector<PrinterConfig> configured_;
};

}  // namespace langmon::daemon
