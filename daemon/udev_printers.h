// USB printers as udev tells of them: the devices of subsystem "usbmisc"
// that the daemon's udev rule tags "langmon" (/dev/usb/lpN), those present
// when it starts and those that come and go later, through libsystemd's
// sd-device. The events arrive once udev has given the device its group, so
// the daemon (user lp) can open what it is told of.
#pragma once

#include <functional>
#include <string>

typedef struct sd_event sd_event;
typedef struct sd_device_monitor sd_device_monitor;
typedef struct sd_device sd_device;

namespace langmon::daemon {

class UdevPrinters {
public:
    using Told = std::function<void(const std::string& devnode)>;
    UdevPrinters(Told plugged, Told unplugged);
    ~UdevPrinters();
    UdevPrinters(const UdevPrinters&) = delete;
    UdevPrinters& operator=(const UdevPrinters&) = delete;

    // Listens for the events, then tells of every device present. False,
    // with the reason, when udev's events cannot be had (no netlink in a
    // sandbox, no udev in a container): printers are then only those of
    // the configuration.
    bool Start(std::string* problem);
    // What to poll for the events; negative before a successful Start.
    int Fd() const;
    // Tells of the events that came, without waiting.
    void Dispatch();

private:
    static int OnEvent(sd_device_monitor* monitor, sd_device* device, void* self);

    Told plugged_;
    Told unplugged_;
    sd_event* event_ = nullptr;
    sd_device_monitor* monitor_ = nullptr;
};

}  // namespace langmon::daemon
