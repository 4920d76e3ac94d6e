#include "udev_printers.h"

#include <systemd/sd-device.h>
#include <systemd/sd-event.h>

#include <cstring>

namespace langmon::daemon {

namespace {

constexpr char Subsystem[] = "usbmisc";
constexpr char Tag[] = "langmon";  // given by 70-langmon.rules

}  // namespace

UdevPrinters::UdevPrinters(Told plugged, Told unplugged)
    : plugged_(std::move(plugged)), unplugged_(std::move(unplugged)) {}

UdevPrinters::~UdevPrinters() {
    sd_device_monitor_unref(monitor_);
    sd_event_unref(event_);
}

bool UdevPrinters::Start(std::string* problem) {
    int failed = sd_event_new(&event_);
    if (failed >= 0) failed = sd_device_monitor_new(&monitor_);
    if (failed >= 0) failed = sd_device_monitor_filter_add_match_subsystem_devtype(monitor_, Subsystem, nullptr);
    if (failed >= 0) failed = sd_device_monitor_filter_add_match_tag(monitor_, Tag);
    if (failed >= 0) failed = sd_device_monitor_attach_event(monitor_, event_);
    if (failed >= 0) failed = sd_device_monitor_start(monitor_, OnEvent, this);
    if (failed < 0) {
        *problem = std::strerror(-failed);
        monitor_ = sd_device_monitor_unref(monitor_);
        event_ = sd_event_unref(event_);
        return false;
    }
    // Those present now; one that comes meanwhile is told twice, which
    // the daemon takes as once.
    sd_device_enumerator* present = nullptr;
    if (sd_device_enumerator_new(&present) >= 0 &&
        sd_device_enumerator_add_match_subsystem(present, Subsystem, 1) >= 0 &&
        sd_device_enumerator_add_match_tag(present, Tag) >= 0) {
        for (sd_device* device = sd_device_enumerator_get_device_first(present); device != nullptr;
             device = sd_device_enumerator_get_device_next(present)) {
            const char* devnode = nullptr;
            if (sd_device_get_devname(device, &devnode) >= 0) plugged_(devnode);
        }
    }
    sd_device_enumerator_unref(present);
    return true;
}

int UdevPrinters::Fd() const { return event_ != nullptr ? sd_event_get_fd(event_) : -1; }

void UdevPrinters::Dispatch() {
    if (event_ == nullptr) return;
    while (sd_event_run(event_, 0) > 0) {
    }
}

int UdevPrinters::OnEvent(sd_device_monitor*, sd_device* device, void* self) {
    auto& printers = *static_cast<UdevPrinters*>(self);
    sd_device_action_t action = _SD_DEVICE_ACTION_INVALID;
    const char* devnode = nullptr;
    if (sd_device_get_action(device, &action) < 0 || sd_device_get_devname(device, &devnode) < 0) return 0;
    if (action == SD_DEVICE_ADD) printers.plugged_(devnode);
    if (action == SD_DEVICE_REMOVE) printers.unplugged_(devnode);
    return 0;
}

}  // namespace langmon::daemon
