#include "ports/serial_port_monitor.h"

#include "ports/device_file.h"
#include "ports/port_parts.h"
#include "platform/last_error.h"

#include <cerrno>
#include <optional>

#include <termios.h>
#include <unistd.h>

namespace langmon::ports {

namespace {

struct BaudRate {
    unsigned baud;
    speed_t speed;
};
constexpr BaudRate BaudRates[] = {
    {50, B50},         {75, B75},         {110, B110},       {134, B134},       {150, B150},
    {200, B200},       {300, B300},       {600, B600},       {1200, B1200},     {1800, B1800},
    {2400, B2400},     {4800, B4800},     {9600, B9600},     {19200, B19200},   {38400, B38400},
    {57600, B57600},   {115200, B115200}, {230400, B230400}, {460800, B460800}, {500000, B500000},
    {576000, B576000}, {921600, B921600}, {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
    {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
};

std::optional<speed_t> SpeedOf(unsigned baud) {
    for (const BaudRate& rate : BaudRates) {
        if (rate.baud == baud) return rate.speed;
    }
    return std::nullopt;
}

}  // namespace

bool IsSerialBaudRate(unsigned baud) { return SpeedOf(baud).has_value(); }

struct SerialPortMonitor::Port {
    std::string name;  // without the trailing colon
    SerialLine line;
    PortTimeOuts timeOuts;
};

namespace {

SerialPortMonitor* active = nullptr;

// Opens `line` raw at its rate, non-blocking: every wait is a poll(2) with
// the time-out of the call that waits.
int OpenTty(const SerialLine& line, DWORD* error) {
    const std::optional<speed_t> speed = SpeedOf(line.baud);
    if (!speed) {
        *error = ERROR_INVALID_PARAMETER;
        return -1;
    }
    const int fd = OpenDeviceFile(line.path, error);
    if (fd < 0) return -1;
    termios settings{};
    if (::tcgetattr(fd, &settings) != 0) {
        *error = errno == ENOTTY ? ERROR_NOT_SUPPORTED : OpenError(errno);
        ::close(fd);
        return -1;
    }
    ::cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cflag &= ~(CSTOPB | CRTSCTS);
    settings.c_iflag &= ~(IXON | IXOFF | IXANY);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    ::cfsetispeed(&settings, *speed);
    ::cfsetospeed(&settings, *speed);
    if (::tcsetattr(fd, TCSANOW, &settings) != 0) {
        *error = OpenError(errno);
        ::close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

// The C entries, friends of SerialPortMonitor so that they reach its ports.
struct SerialEntries : DeviceFileEntries<SerialPortMonitor::Port> {
    static BOOL OpenPort(char* name, HANDLE* handle) {
        if (!name || !handle || !active) return Fail(ERROR_INVALID_PARAMETER);
        SerialPortMonitor::Port* port = nullptr;
        {
            std::lock_guard lock(active->mutex_);
            port = active->FindPort(name);
        }
        if (!port) return Fail(ERROR_FILE_NOT_FOUND);
        DWORD error = 0;
        const int fd = OpenTty(port->line, &error);
        if (fd < 0) return Fail(error);
        return Opened(port, fd, handle);
    }

    // A serial line carries no device ID.
    static BOOL GetPrinterDataFromPort(HANDLE handle, DWORD, char*, char*, DWORD, char*, DWORD, DWORD* returned) {
        if (returned) *returned = 0;
        if (!FromHandle(handle)) return Fail(ERROR_INVALID_HANDLE);
        return Fail(ERROR_NOT_SUPPORTED);
    }
};

SerialPortMonitor::SerialPortMonitor() : table_(EntryTable<SerialEntries>()) { active = this; }

SerialPortMonitor::~SerialPortMonitor() {
    if (active == this) active = nullptr;
}

void SerialPortMonitor::Attach(const std::string& portName, const SerialLine& line) {
    std::lock_guard lock(mutex_);
    NamedPort(ports_, portName).line = line;
}

SerialPortMonitor::Port* SerialPortMonitor::FindPort(const char* name) { return FindNamedPort(ports_, name); }

}  // namespace langmon::ports
