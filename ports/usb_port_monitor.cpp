#include "ports/usb_port_monitor.h"

#include "ports/device_file.h"
#include "ports/port_parts.h"
#include "platform/last_error.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace langmon::ports {

namespace {

constexpr DWORD DeviceIdCode = 17;
// What the language monitor asks a USB port for in place of 17.
constexpr DWORD UsbDeviceIdCode = 0x16000C;
constexpr unsigned GetDeviceIdNumber = 1;  // usblp's IOCNR_GET_DEVICE_ID

}  // namespace

unsigned long UsbDeviceIdRequest(unsigned length) { return _IOC(_IOC_READ, 'P', GetDeviceIdNumber, length); }

std::string UsbDeviceIdText(const unsigned char* answer, std::size_t size) {
    if (size < 2) return "";
    // The length counts its own two bytes; usblp keeps what fits, less one
    // byte for its NUL.
    std::size_t length = static_cast<std::size_t>(answer[0]) << 8 | answer[1];
    length = std::min({length, size, std::size_t{UsbDeviceIdBytes - 1}});
    if (length <= 2) return "";
    const char* text = reinterpret_cast<const char*>(answer + 2);
    return std::string(text, strnlen(text, length - 2));
}

std::optional<std::string> ReadUsbDeviceId(int fd, int* error) {
    unsigned char answer[UsbDeviceIdBytes] = {};
    if (::ioctl(fd, UsbDeviceIdRequest(sizeof answer), answer) < 0) {
        *error = errno;
        return std::nullopt;
    }
    return UsbDeviceIdText(answer, sizeof answer);
}

std::optional<std::string> ReadUsbDeviceIdAt(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    int error = 0;
    std::optional<std::string> id = ReadUsbDeviceId(fd, &error);
    ::close(fd);
    return id;
}

struct UsbPortMonitor::Port {
    std::string name;  // without the trailing colon
    std::string path;
    PortTimeOuts timeOuts;
};

namespace {

UsbPortMonitor* active = nullptr;

}  // namespace

// The C entries, friends of UsbPortMonitor so that they reach its ports.
struct UsbEntries : DeviceFileEntries<UsbPortMonitor::Port> {
    static BOOL OpenPort(char* name, HANDLE* handle) {
        if (!name || !handle || !active) return Fail(ERROR_INVALID_PARAMETER);
        UsbPortMonitor::Port* port = nullptr;
        {
            std::lock_guard lock(active->mutex_);
            port = active->FindPort(name);
        }
        if (!port) return Fail(ERROR_FILE_NOT_FOUND);
        DWORD error = 0;
        const int fd = OpenDeviceFile(port->path, &error);
        if (fd < 0) return Fail(error);
        return Opened(port, fd, handle);
    }

    static BOOL GetPrinterDataFromPort(HANDLE handle, DWORD controlId, char*, char*, DWORD, char* out,
                                       DWORD outSize, DWORD* returned) {
        if (returned) *returned = 0;
        Open* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        if (controlId != DeviceIdCode && controlId != UsbDeviceIdCode) return Fail(ERROR_NOT_SUPPORTED);
        int error = 0;
        const std::optional<std::string> id = ReadUsbDeviceId(open->fd, &error);
        if (!id) {
            // Only an unplugged device is gone; usblp answers EIO (or a
            // time-out) for a printer that did not answer the request, and
            // ENOTTY or EINVAL for a device that is no USB printer.
            if (error == ENODEV || error == ENOTCONN) return Fail(ERROR_DEVICE_NOT_CONNECTED);
            if (error == ENOTTY || error == EINVAL) return Fail(ERROR_NOT_SUPPORTED);
            return Fail(ERROR_TIMEOUT);
        }
        if (id->empty()) return Fail(ERROR_TIMEOUT);
        return HandOverDeviceId(*id, out, outSize, returned);
    }
};

UsbPortMonitor::UsbPortMonitor() : table_(EntryTable<UsbEntries>()) { active = this; }

UsbPortMonitor::~UsbPortMonitor() {
    if (active == this) active = nullptr;
}

void UsbPortMonitor::Attach(const std::string& portName, const std::string& path) {
    std::lock_guard lock(mutex_);
    NamedPort(ports_, portName).path = path;
}

UsbPortMonitor::Port* UsbPortMonitor::FindPort(const char* name) { return FindNamedPort(ports_, name); }

}  // namespace langmon::ports
