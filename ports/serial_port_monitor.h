// The port monitor of serial printers: the MONITOR table a language monitor
// is handed for a port whose printer is on a tty (a serial line, or the pty
// of `langmon emulate --pty`).
//
// Ports are attached by name ("COM1:"), each to a line: the tty's path and
// its baud rate. OpenPort opens the tty, in raw mode at that rate, 8 bits,
// no parity, no flow control; each OpenPort has its own descriptor.
// WritePort and ReadPort work inside a document that StartDocPort opened,
// and honour the time-outs that SetPortTimeOuts set as a serial port does:
//
// - a write may take WriteTotalTimeoutConstant + WriteTotalTimeoutMultiplier
//   times its size milliseconds (no limit when both are 0); one that the
//   line takes nothing of within that returns 0 taken and ERROR_TIMEOUT, one
//   that it takes part of returns what it took;
// - a read with ReadIntervalTimeout MAXDWORD and no totals returns at once
//   with what the line holds; otherwise it waits up to the total time-out
//   for its buffer to fill, and returns early once the line has been quiet
//   for ReadIntervalTimeout after a byte. Before SetPortTimeOuts a read
//   returns at once: nothing here blocks a thread for a time no one chose.
//
// A serial line carries no device ID: GetPrinterDataFromPort fails with
// ERROR_NOT_SUPPORTED, as a port monitor without one answers, and the
// language monitor takes the printer as one that does not report.
//
// Errors are the Win32 codes the rest of the system reads: a missing tty is
// ERROR_FILE_NOT_FOUND, a path that is not a tty ERROR_NOT_SUPPORTED, a line
// that hung up (the pty's other end closed) ERROR_DEVICE_NOT_CONNECTED.
//
// The MONITOR table holds plain C function pointers, so one
// SerialPortMonitor at a time is the active one.
#pragma once

#include <langmon/monitor.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace langmon::ports {

// Whether the kernel's termios can set a line to `baud` bits per second.
bool IsSerialBaudRate(unsigned baud);

struct SerialLine {
    std::string path;  // the tty, e.g. "/dev/ttyS0" or "/dev/pts/7"
    unsigned baud = 9600;
};

class SerialPortMonitor {
public:
    SerialPortMonitor();
    ~SerialPortMonitor();
    SerialPortMonitor(const SerialPortMonitor&) = delete;
    SerialPortMonitor& operator=(const SerialPortMonitor&) = delete;

    MONITOR* Table() { return &table_; }

    // The port `portName` (case and a trailing colon do not matter) leads to
    // `line`.
    void Attach(const std::string& portName, const SerialLine& line);

    struct Port;

private:
    friend struct SerialEntries;

    Port* FindPort(const char* name);

    MONITOR table_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Port>> ports_;
};

}  // namespace langmon::ports
