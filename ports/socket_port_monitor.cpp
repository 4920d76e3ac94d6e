#include "ports/socket_port_monitor.h"

#include "ports/port_parts.h"
#include "ports/snmp_device_id.h"
#include "platform/last_error.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace langmon::ports {

namespace {

constexpr DWORD DeviceIdCode = 17;

// Waits out what is left of a call's time, as a printer that takes or
// says nothing makes the call wait.
void WaitUntil(const std::optional<Clock::time_point>& deadline) {
    int left = MsLeft(deadline);
    while (left > 0) {
        ::poll(nullptr, 0, left);
        left = MsLeft(deadline);
    }
}

// A non-blocking TCP connection to `printer`, within `limitMs`; -1 when the
// printer does not take it (refused, unreachable, no answer, no such host).
int Connect(const NetworkPrinter& printer, int limitMs) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(printer.host.c_str(), std::to_string(printer.port).c_str(), &hints, &found) != 0) return -1;
    int fd = -1;
    const auto deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    for (addrinfo* at = found; at != nullptr && fd < 0; at = at->ai_next) {
        fd = ::socket(at->ai_family, at->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, at->ai_protocol);
        if (fd < 0) continue;
        if (::connect(fd, at->ai_addr, at->ai_addrlen) != 0) {
            int error = errno;
            if (error == EINPROGRESS) {
                pollfd wait{fd, POLLOUT, 0};
                int ready = 0;
                do {
                    ready = ::poll(&wait, 1, MsLeft(deadline));
                } while (ready < 0 && errno == EINTR);
                socklen_t size = sizeof error;
                if (ready <= 0 || ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = ETIMEDOUT;
            }
            if (error != 0 && error != EINPROGRESS) {
                ::close(fd);
                fd = -1;
            }
        }
    }
    ::freeaddrinfo(found);
    return fd;
}

}  // namespace

struct SocketPortMonitor::Port {
    std::string name;  // without the trailing colon
    NetworkPrinter printer;
    PortTimeOuts timeOuts;
};

namespace {

SocketPortMonitor* active = nullptr;

// One OpenPort: its connection to the printer, if it has one. A language
// monitor writes a job from the spooler's thread while it reads on its own;
// the connection changes under the lock, and a call works on the
// descriptor it found.
struct OpenSocket {
    SocketPortMonitor::Port* port = nullptr;
    std::atomic<int> documents{0};
    std::mutex lock;
    int fd = -1;
    // The connection failed in the open document: it takes nothing more.
    bool broken = false;

    // The connection, made now if the document may have one; -1 if not.
    int Connection(int limitMs) {
        std::lock_guard hold(lock);
        if (fd < 0 && !broken) {
            fd = Connect(port->printer, std::min(limitMs, ConnectTimeOutMs));
            broken = fd < 0;
        }
        return fd;
    }
    // The connection that is there, without making one.
    int Current() {
        std::lock_guard hold(lock);
        return fd;
    }
    // The printer went away from `gone`: the document gets nothing more.
    void Lost(int gone) {
        std::lock_guard hold(lock);
        if (fd == gone && fd >= 0) {
            ::close(fd);
            fd = -1;
        }
        broken = true;
    }
    void Close() {
        std::lock_guard hold(lock);
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
};

}  // namespace

// The C entries, friends of SocketPortMonitor so that they reach its ports.
struct SocketEntries {
    static OpenSocket* FromHandle(HANDLE handle) { return static_cast<OpenSocket*>(handle); }

    static BOOL EnumPorts(char*, DWORD, BYTE*, DWORD, DWORD* needed, DWORD* returned) {
        if (needed) *needed = 0;
        if (returned) *returned = 0;
        return Fail(ERROR_NOT_SUPPORTED);
    }

    static BOOL OpenPort(char* name, HANDLE* handle) {
        if (!name || !handle || !active) return Fail(ERROR_INVALID_PARAMETER);
        SocketPortMonitor::Port* port = nullptr;
        {
            std::lock_guard lock(active->mutex_);
            port = active->FindPort(name);
        }
        if (!port) return Fail(ERROR_FILE_NOT_FOUND);
        // Nothing is connected yet: a printer that is off is found out by
        // the first write, as a printer that takes nothing.
        auto* open = new (std::nothrow) OpenSocket;
        if (!open) return Fail(ERROR_NOT_ENOUGH_MEMORY);
        open->port = port;
        *handle = open;
        return TRUE;
    }

    static BOOL StartDocPort(HANDLE handle, char*, DWORD jobId, DWORD, BYTE*) {
        OpenSocket* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        // A job's document may reach the printer again. A document of no
        // job may not: a language monitor opens one of its own when a read
        // of the device ID found no printer, in the middle of a job too,
        // and the rest of the job goes on in it; in a new connection the
        // printer would print that rest as a job of its own.
        if (open->documents++ == 0 && jobId != 0) {
            std::lock_guard hold(open->lock);
            open->broken = false;
        }
        return TRUE;
    }

    static OpenSocket* ForTransfer(HANDLE handle, BYTE* buffer, DWORD size, DWORD* count, BOOL* result) {
        return CheckTransfer(FromHandle(handle), buffer, size, count, result);
    }

    static BOOL WritePort(HANDLE handle, BYTE* buffer, DWORD size, DWORD* written) {
        BOOL result;
        OpenSocket* open = ForTransfer(handle, buffer, size, written, &result);
        if (!open) return result;
        const uint64_t limit = open->port->timeOuts.WriteLimitMs(size);
        const Clock::time_point now = Clock::now();
        const std::optional<Clock::time_point> deadline = now + std::chrono::milliseconds(limit);
        // A full window is a printer at work. Without a total time-out the
        // write still waits a little for room, or a printer slower than the
        // host would have every other call take nothing and the spooler
        // pause before the next.
        const std::optional<Clock::time_point> roomDeadline =
            limit != 0 ? deadline : now + std::chrono::milliseconds(RoomWaitMs);
        const int fd = open->Connection(MsLeft(deadline) == 0 ? ConnectTimeOutMs : MsLeft(deadline));
        DWORD done = 0;
        while (fd >= 0 && done < size) {
            const ssize_t n = ::send(fd, buffer + done, size - done, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n > 0) {
                done += static_cast<DWORD>(n);
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
                open->Lost(fd);  // refused, reset, closed by the printer
                break;
            }
            // The printer's window is full: wait for room as long as the call may.
            const int left = MsLeft(roomDeadline);
            if (left == 0) break;
            pollfd wait{fd, POLLOUT, 0};
            if (::poll(&wait, 1, left) > 0 && (wait.revents & POLLOUT) == 0) {
                open->Lost(fd);
                break;
            }
        }
        *written = done;
        if (done != 0) return TRUE;
        // A printer that took nothing has timed out, whether it is busy or
        // gone; the call takes the time a busy one would have had.
        WaitUntil(deadline);
        return Fail(ERROR_TIMEOUT);
    }

    static BOOL ReadPort(HANDLE handle, BYTE* buffer, DWORD size, DWORD* read) {
        BOOL result;
        OpenSocket* open = ForTransfer(handle, buffer, size, read, &result);
        if (!open) return result;
        const ReadPlan plan(open->port->timeOuts, size);
        // Replies come on the connection the job went on; with none there is
        // nothing to read, and the read waits its time as for a quiet printer.
        const int fd = open->Current();
        if (fd < 0) {
            if (plan.deadline) WaitUntil(plan.deadline);
            *read = 0;
            return TRUE;
        }
        DWORD done = 0;
        while (done < size) {
            const ssize_t n = ::recv(fd, buffer + done, size - done, MSG_DONTWAIT);
            if (n > 0) {
                done += static_cast<DWORD>(n);
                if (plan.firstBytesEnd) break;
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
                open->Lost(fd);  // the printer closed or reset the connection
                break;
            }
            const int left = plan.WaitMs(done);
            if (left == 0) break;
            pollfd wait{fd, POLLIN, 0};
            if (plan.QuietEnds(::poll(&wait, 1, left), done)) break;
        }
        *read = done;
        return TRUE;
    }

    static BOOL EndDocPort(HANDLE handle) {
        OpenSocket* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        return EndOneDocument(open->documents) ? TRUE : Fail(ERROR_INVALID_HANDLE);
    }

    static BOOL ClosePort(HANDLE handle) {
        OpenSocket* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        open->Close();
        delete open;
        return TRUE;
    }

    static BOOL AddPort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }
    static BOOL ConfigurePort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }
    static BOOL DeletePort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }

    static BOOL GetPrinterDataFromPort(HANDLE handle, DWORD controlId, char*, char*, DWORD, char* out,
                                       DWORD outSize, DWORD* returned) {
        if (returned) *returned = 0;
        OpenSocket* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        if (controlId != DeviceIdCode) return Fail(ERROR_NOT_SUPPORTED);
        const NetworkPrinter& printer = open->port->printer;
        std::string id;
        switch (ReadDeviceIdOverSnmp({printer.host, printer.snmpPort, printer.community, SnmpTimeOutMs}, &id)) {
            case SnmpOutcome::Answered: break;
            case SnmpOutcome::NoSuchValue: return Fail(ERROR_NOT_SUPPORTED);
            default: return Fail(ERROR_TIMEOUT);
        }
        return HandOverDeviceId(id, out, outSize, returned);
    }

    static BOOL SetPortTimeOuts(HANDLE handle, COMMTIMEOUTS* timeOuts, DWORD) {
        OpenSocket* open = FromHandle(handle);
        if (!open || !timeOuts) return Fail(ERROR_INVALID_PARAMETER);
        open->port->timeOuts.Set(*timeOuts);
        return TRUE;
    }
};

SocketPortMonitor::SocketPortMonitor() : table_(EntryTable<SocketEntries>()) { active = this; }

SocketPortMonitor::~SocketPortMonitor() {
    if (active == this) active = nullptr;
}

void SocketPortMonitor::Attach(const std::string& portName, const NetworkPrinter& printer) {
    std::lock_guard lock(mutex_);
    NamedPort(ports_, portName).printer = printer;
}

SocketPortMonitor::Port* SocketPortMonitor::FindPort(const char* name) { return FindNamedPort(ports_, name); }

}  // namespace langmon::ports
