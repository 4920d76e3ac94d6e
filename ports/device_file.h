// A printer's device file (a tty, a USB printer class device) as a port
// monitor uses it: opened non-blocking, so that every wait is a poll(2)
// bounded by the time a call has left, and its errno told to the spooler as
// the Win32 code the rest of the system reads.
#pragma once

#include "ports/port_parts.h"

#include <langmon/monitor.h>

#include <atomic>
#include <new>
#include <optional>
#include <string>

#include <unistd.h>

namespace langmon::ports {

inline constexpr DWORD ErrorWriteFault = 29;
inline constexpr DWORD ErrorReadFault = 30;

// What an errno of opening a device means to the spooler: a missing file
// is ERROR_FILE_NOT_FOUND, a device that is there but gone (unplugged, a
// pty whose other end closed) ERROR_DEVICE_NOT_CONNECTED.
DWORD OpenError(int error);

// A device whose other end is gone (a pty's master closed, a USB printer or
// adapter pulled) answers EIO, ENXIO or ENODEV; a device served by FUSE
// whose server went away answers ENOTCONN.
bool DeviceGone(int error);

// Opens `path` for reading and writing, non-blocking, as no controlling
// terminal; -1 with the Win32 code in `error` when it cannot be.
int OpenDeviceFile(const std::string& path, DWORD* error);

// Writes `size` bytes of `buffer` to `fd`, waiting for room until
// `deadline` (none: as long as it takes). A device that takes part of it
// within that says so by the count; one that takes nothing has timed out
// (FALSE, ERROR_TIMEOUT); one that is gone is ERROR_DEVICE_NOT_CONNECTED.
BOOL WriteDeviceFile(int fd, const BYTE* buffer, DWORD size, const std::optional<Clock::time_point>& deadline,
                     DWORD* written);

// Reads up to `size` bytes from `fd` as `plan` says, and returns what came;
// FALSE with ERROR_DEVICE_NOT_CONNECTED for a device that is gone.
BOOL ReadDeviceFile(int fd, BYTE* buffer, DWORD size, const ReadPlan& plan, DWORD* read);

// The deadline of a write of `size` bytes by the port's time-outs: none
// when none were set, as a serial port waits without a total time-out.
std::optional<Clock::time_point> WriteDeadline(PortTimeOuts& timeOuts, DWORD size);

// One OpenPort of a device file: its own descriptor. A language monitor
// writes a job from the spooler's thread while it reads on its own, so the
// document count is atomic; the descriptor does not change while open.
template <typename Port>
struct OpenDevice {
    Port* port = nullptr;
    int fd = -1;
    std::atomic<int> documents{0};
};

// The entries that port monitors of device files have alike: documents
// counted, writes and reads within the port's time-outs, the descriptor
// closed with the port. Each monitor adds its OpenPort, which opens the
// device its way and hands the descriptor to Opened, and its
// GetPrinterDataFromPort. `Port` has the port's `timeOuts`.
template <typename Port>
struct DeviceFileEntries {
    using Open = OpenDevice<Port>;

    static Open* FromHandle(HANDLE handle) { return static_cast<Open*>(handle); }

    // The handle of an OpenPort that opened `fd` on `port`.
    static BOOL Opened(Port* port, int fd, HANDLE* handle) {
        auto* open = new (std::nothrow) Open;
        if (!open) {
            ::close(fd);
            return Fail(ERROR_NOT_ENOUGH_MEMORY);
        }
        open->port = port;
        open->fd = fd;
        *handle = open;
        return TRUE;
    }

    static BOOL EnumPorts(char*, DWORD, BYTE*, DWORD, DWORD* needed, DWORD* returned) {
        if (needed) *needed = 0;
        if (returned) *returned = 0;
        return Fail(ERROR_NOT_SUPPORTED);
    }

    static BOOL StartDocPort(HANDLE handle, char*, DWORD, DWORD, BYTE*) {
        Open* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        ++open->documents;
        return TRUE;
    }

    static BOOL WritePort(HANDLE handle, BYTE* buffer, DWORD size, DWORD* written) {
        BOOL result;
        Open* open = CheckTransfer(FromHandle(handle), buffer, size, written, &result);
        if (!open) return result;
        return WriteDeviceFile(open->fd, buffer, size, WriteDeadline(open->port->timeOuts, size), written);
    }

    static BOOL ReadPort(HANDLE handle, BYTE* buffer, DWORD size, DWORD* read) {
        BOOL result;
        Open* open = CheckTransfer(FromHandle(handle), buffer, size, read, &result);
        if (!open) return result;
        return ReadDeviceFile(open->fd, buffer, size, ReadPlan(open->port->timeOuts, size), read);
    }

    static BOOL EndDocPort(HANDLE handle) {
        Open* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        return EndOneDocument(open->documents) ? TRUE : Fail(ERROR_INVALID_HANDLE);
    }

    static BOOL ClosePort(HANDLE handle) {
        Open* open = FromHandle(handle);
        if (!open) return Fail(ERROR_INVALID_HANDLE);
        ::close(open->fd);
        delete open;
        return TRUE;
    }

    static BOOL AddPort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }
    static BOOL ConfigurePort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }
    static BOOL DeletePort(char*, HWND, char*) { return Fail(ERROR_NOT_SUPPORTED); }

    static BOOL SetPortTimeOuts(HANDLE handle, COMMTIMEOUTS* timeOuts, DWORD) {
        Open* open = FromHandle(handle);
        if (!open || !timeOuts) return Fail(ERROR_INVALID_PARAMETER);
        open->port->timeOuts.Set(*timeOuts);
        return TRUE;
    }
};

}  // namespace langmon::ports
