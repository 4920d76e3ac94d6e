#include "ports/device_file.h"

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace langmon::ports {

DWORD OpenError(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR: return ERROR_FILE_NOT_FOUND;
        case EACCES:
        case EPERM: return ERROR_ACCESS_DENIED;
        case EBUSY: return ERROR_BUSY;
        case ENXIO:
        case ENODEV:
        case ENOTCONN:
        case EIO: return ERROR_DEVICE_NOT_CONNECTED;
        case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
        default: return ERROR_NOT_SUPPORTED;
    }
}

bool DeviceGone(int error) { return error == EIO || error == ENXIO || error == ENODEV || error == ENOTCONN; }

int OpenDeviceFile(const std::string& path, DWORD* error) {
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) *error = OpenError(errno);
    return fd;
}

std::optional<Clock::time_point> WriteDeadline(PortTimeOuts& timeOuts, DWORD size) {
    const uint64_t limit = timeOuts.WriteLimitMs(size);
    if (limit == 0) return std::nullopt;
    return Clock::now() + std::chrono::milliseconds(limit);
}

BOOL WriteDeviceFile(int fd, const BYTE* buffer, DWORD size, const std::optional<Clock::time_point>& deadline,
                     DWORD* written) {
    DWORD done = 0;
    while (done < size) {
        const ssize_t n = ::write(fd, buffer + done, size - done);
        if (n > 0) {
            done += static_cast<DWORD>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN) {
            *written = done;
            return Fail(DeviceGone(errno) ? ERROR_DEVICE_NOT_CONNECTED : ErrorWriteFault);
        }
        // The device is full: wait for room as long as the call may.
        const int left = MsLeft(deadline);
        if (left == 0) break;
        pollfd wait{fd, POLLOUT, 0};
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
    return done != 0 ? TRUE : Fail(ERROR_TIMEOUT);
}

BOOL ReadDeviceFile(int fd, BYTE* buffer, DWORD size, const ReadPlan& plan, DWORD* read) {
    DWORD done = 0;
    while (done < size) {
        const ssize_t n = ::read(fd, buffer + done, size - done);
        if (n > 0) {
            done += static_cast<DWORD>(n);
            if (plan.firstBytesEnd) break;
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN) {
            *read = done;
            return Fail(DeviceGone(errno) ? ERROR_DEVICE_NOT_CONNECTED : ErrorReadFault);
        }
        // Nothing waits to be read: wait for more while the call may. (A
        // read of 0 bytes is a device with nothing to say, as usblp answers
        // when the printer sent an empty packet.)
        const int left = plan.WaitMs(done);
        if (left == 0) break;
        pollfd wait{fd, POLLIN, 0};
        const int ready = ::poll(&wait, 1, left);
        if (plan.QuietEnds(ready, done)) break;
        if (ready > 0 && (wait.revents & POLLIN) == 0 && (wait.revents & (POLLHUP | POLLERR)) != 0) {
            *read = done;
            return Fail(ERROR_DEVICE_NOT_CONNECTED);
        }
    }
    *read = done;
    return TRUE;
}

}  // namespace langmon::ports
