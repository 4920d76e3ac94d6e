// The port monitor of USB printers: the MONITOR table a language monitor is
// handed for a port whose printer is a Linux USB printer class device
// (/dev/usb/lpN of the kernel's usblp driver, or the device that `langmon
// emulate --usb-device` serves).
//
// Ports are attached by name ("USB001"), each to a device file. OpenPort
// opens it non-blocking, its own descriptor per OpenPort; usblp takes one
// open at a time, so a device another program holds is ERROR_BUSY.
// WritePort and ReadPort work inside a document that StartDocPort opened,
// and honour the time-outs that SetPortTimeOuts set as the serial port
// monitor's do: a write the printer takes nothing of within its time-out
// returns 0 taken and ERROR_TIMEOUT, one it takes part of returns what it
// took; a read returns what the printer sent within its time-out. A device
// that is gone (unplugged: ENODEV, EIO) is ERROR_DEVICE_NOT_CONNECTED.
//
// GetPrinterDataFromPort answers ControlID 17, and the code the language
// monitor asks a USB port for the same (0x16000C), with the IEEE 1284
// device ID that usblp's LPIOC_GET_DEVICE_ID gives: the text and its NUL in
// the buffer, the count without the NUL. A printer that does not answer
// the request is ERROR_TIMEOUT.
//
// The MONITOR table holds plain C function pointers, so one UsbPortMonitor
// at a time is the active one.
#pragma once

#include <langmon/monitor.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace langmon::ports {

// usblp's ioctl for the device ID (linux/usb/usblp, IOCNR_GET_DEVICE_ID):
// _IOC(_IOC_READ, 'P', 1, len). Its answer is what the printer gave: a
// two-byte big-endian length that counts itself, then the text; at most
// UsbDeviceIdBytes in all, cut to `len`.
inline constexpr unsigned UsbDeviceIdBytes = 1024;
unsigned long UsbDeviceIdRequest(unsigned length);

// The text of a device ID answer of `size` bytes in the layout above; empty
// when it holds none.
std::string UsbDeviceIdText(const unsigned char* answer, std::size_t size);

// Asks the device open on `fd` for its device ID. The text, or nothing with
// the errno in `error`.
std::optional<std::string> ReadUsbDeviceId(int fd, int* error);

// The device ID of the USB printer at `path`, opened and closed again:
// usblp lets one program have the printer at a time. Nothing when it cannot
// be opened (busy with a job, gone, not ours to open) or does not answer.
std::optional<std::string> ReadUsbDeviceIdAt(const std::string& path);

class UsbPortMonitor {
public:
    UsbPortMonitor();
    ~UsbPortMonitor();
    UsbPortMonitor(const UsbPortMonitor&) = delete;
    UsbPortMonitor& operator=(const UsbPortMonitor&) = delete;

    MONITOR* Table() { return &table_; }

    // The port `portName` (case and a trailing colon do not matter) leads to
    // the device file `path`.
    void Attach(const std::string& portName, const std::string& path);

    struct Port;

private:
    friend struct UsbEntries;

    Port* FindPort(const char* name);

    MONITOR table_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Port>> ports_;
};

}  // namespace langmon::ports
