#include "ports/serial_port_monitor.h"

#include "ports/port_parts.h"
#include "platform/last_error.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace langmon::ports {

namespace {

constexpr DWORD ErrorWriteFault = 29;
constexpr DWORD ErrorReadFault = 30;
constexpr DWORD Forever = 0xFFFFFFFFu;  // MAXDWORD, as COMMTIMEOUTS spells "no wait"

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

// What an errno of opening a tty means to the spooler.
DWORD OpenError(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR: return ERROR_FILE_NOT_FOUND;
        case EACCES:
        case EPERM: return ERROR_ACCESS_DENIED;
        case EBUSY: return ERROR_BUSY;
        case ENXIO:
        case ENODEV:
        case EIO: return ERROR_DEVICE_NOT_CONNECTED;
        case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
        default: return ERROR_NOT_SUPPORTED;
    }
}

// A line whose other end is gone (a pty's master closed, a USB adapter
// pulled) answers EIO or ENXIO, or hangs up.
bool HungUp(int error) { return error == EIO || error == ENXIO || error == ENODEV; }

}  // namespace

bool IsSerialBaudRate(unsigned baud) { return SpeedOf(baud).has_value(); }

struct SerialPortMonitor::Port {
    std::string name;  // without the trailing colon
    SerialLine line;
    PortTimeOuts timeOuts;
};

namespace {

SerialPortMonitor* active = nullptr;

// One OpenPort: its own descriptor on the port's line. A language monitor
// writes a job from the spooler's thread while it reads on its own, so the
// document count is atomic; the descriptor does not change while open.
struct OpenLine {
    SerialPortMonitor::Port* port = nullptr;
    int fd = -1;
    std::atomic<int> documents{0};
};

// Opens `line` raw at its rate, non-blocking: every wait is a poll(2) with
// the time-out of the call that waits.
int OpenTty(const SerialLine& line, DWORD* error) {
    const std::optional<speed_t> speed = SpeedOf(line.baud);
    if (!speed) {
        *error = ERROR_INVALID_PARAMETER;
        return -1;
    }
    const int fd = ::open(line.path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        *error = OpenError(errno);
        return -1;
    }
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
struct SerialEntries {
    static OpenLine* FromHandle(HANDLE handle) { return static_cast<OpenLine*>(handle); }

    static BOOL EnumPorts(char*, DWORD, BYTE*, DWORD, DWORD* needed, DWORD* returned) {
        if (needed) *needed = 0;
        if (returned) *returned = 0;
        return Fail(ERROR_NOT_SUPPORTED);
    }

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
        auto* open = new (std::nothrow) OpenLine;
        if (!open) {
            ::close(fd);
            return Fail(ERROR_NOT_ENOUGH_MEMORY);
        }
        open->port = port;
        open->fd = fd;
        *handle = open;
        return TRUE;
    }

    static BOOL StartDocPort(HANDLE handle, char*, DWORD, DWORD, BYTE*) {
        OpenLine* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        ++open->documents;
        return TRUE;
    }

    static OpenLine* ForTransfer(HANDLE handle, BYTE* buffer, DWORD size, DWORD* count, BOOL* result) {
        return CheckTransfer(FromHandle(handle), buffer, size, count, result);
    }

    static BOOL WritePort(HANDLE handle, BYTE* buffer, DWORD size, DWORD* written) {
        BOOL result;
        OpenLine* open = ForTransfer(handle, buffer, size, written, &result);
        if (!open) return result;
        const uint64_t limit = open->port->timeOuts.WriteLimitMs(size);
        std::optional<Clock::time_point> deadline;
        if (limit != 0) deadline = Clock::now() + std::chrono::milliseconds(limit);
        DWORD done = 0;
        while (done < size) {
            const ssize_t n = ::write(open->fd, buffer + done, size - done);
            if (n > 0) {
                done += static_cast<DWORD>(n);
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && errno != EAGAIN) {
                *written = done;
                return Fail(HungUp(errno) ? ERROR_DEVICE_NOT_CONNECTED : ErrorWriteFault);
            }
            // The line is full: wait for room as long as the call may take.
            pollfd wait{open->fd, POLLOUT, 0};
            const int left = MsLeft(deadline);
            if (left == 0) break;
            const int ready = ::poll(&wait, 1, left);
            if (ready < 0 && errno != EINTR) {
                *written = done;
                return Fail(ErrorWriteFault);
            }
            if (ready > 0 && (wait.revents & (POLLHUP | POLLERR)) != 0 && (wait.revents & POLLOUT) == 0) {
                *written = done;
                return Fail(ERROR_DEVICE_NOT_CONNECTED);
            }
        }
        *written = done;
        // A serial port that took part of a write within its time-out says
        // so by the count; one that took nothing has timed out.
        return done != 0 ? TRUE : Fail(ERROR_TIMEOUT);
    }

    static BOOL ReadPort(HANDLE handle, BYTE* buffer, DWORD size, DWORD* read) {
        BOOL result;
        OpenLine* open = ForTransfer(handle, buffer, size, read, &result);
        if (!open) return result;
        bool have = false;
        const COMMTIMEOUTS t = open->port->timeOuts.Get(&have);
        // What the time-outs ask for: a total wait, a quiet interval that
        // ends the read once a byte has come, or no wait at all.
        const bool atOnce = !have || (t.ReadIntervalTimeout == Forever && t.ReadTotalTimeoutMultiplier == 0 &&
                                      t.ReadTotalTimeoutConstant == 0);
        const bool firstByteEnds = have && t.ReadIntervalTimeout == Forever && t.ReadTotalTimeoutMultiplier == Forever;
        std::optional<Clock::time_point> deadline;
        if (atOnce) {
            deadline = Clock::now();
        } else {
            const uint64_t multiplier = firstByteEnds ? 0 : t.ReadTotalTimeoutMultiplier;
            const uint64_t total = t.ReadTotalTimeoutConstant + multiplier * size;
            if (total != 0) deadline = Clock::now() + std::chrono::milliseconds(total);
        }
        const DWORD interval = !atOnce && !firstByteEnds && t.ReadIntervalTimeout != Forever ? t.ReadIntervalTimeout : 0;
        DWORD done = 0;
        while (done < size) {
            const ssize_t n = ::read(open->fd, buffer + done, size - done);
            if (n > 0) {
                done += static_cast<DWORD>(n);
                if (firstByteEnds) break;
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && errno != EAGAIN) {
                *read = done;
                return Fail(HungUp(errno) ? ERROR_DEVICE_NOT_CONNECTED : ErrorReadFault);
            }
            // Nothing waits on the line: wait for more while the call may.
            int left = MsLeft(deadline);
            if (done != 0 && interval != 0) left = left < 0 ? static_cast<int>(interval) : std::min<int>(left, interval);
            if (left == 0) break;
            pollfd wait{open->fd, POLLIN, 0};
            const int ready = ::poll(&wait, 1, left);
            if (ready == 0 && done != 0 && interval != 0) break;  // quiet for the interval
            if (ready > 0 && (wait.revents & POLLIN) == 0 && (wait.revents & (POLLHUP | POLLERR)) != 0) {
                *read = done;
                return Fail(ERROR_DEVICE_NOT_CONNECTED);
            }
        }
        *read = done;
        return TRUE;
    }

    static BOOL EndDocPort(HANDLE handle) {
        OpenLine* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        int documents = open->documents.load();
        do {
            if (documents == 0) return Fail(ERROR_INVALID_HANDLE);
        } while (!open->documents.compare_exchange_weak(documents, documents - 1));
        return TRUE;
    }

    static BOOL ClosePort(HANDLE handle) {
        OpenLine* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        ::close(open->fd);
        delete open;
        return TRUE;
    }

    static BOOL AddPort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }
    static BOOL ConfigurePort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }
    static BOOL DeletePort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }

    static BOOL GetPrinterDataFromPort(HANDLE handle, DWORD, char*, char*, DWORD, char*, DWORD, DWORD* returned) {
        if (returned) *returned = 0;
        if (!FromHandle(handle)) return Fail(ERROR_INVALID_HANDLE);
        return Fail(ERROR_NOT_SUPPORTED);
    }

    static BOOL SetPortTimeOuts(HANDLE handle, COMMTIMEOUTS* timeOuts, DWORD) {
        OpenLine* open = FromHandle(handle);
        if (!open || !timeOuts) return Fail(ERROR_INVALID_PARAMETER);
        open->port->timeOuts.Set(*timeOuts);
        return TRUE;
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
