// The port monitor of network printers: the MONITOR table a language monitor
// is handed for a port whose printer is on the network, reached by raw TCP
// (AppSocket, port 9100 by custom) for the job and its PJL replies, and by
// SNMP for its device ID.
//
// Ports are attached by name ("LPT1:"), each to a printer: its host, raw
// port, SNMP port and community. A network printer is a two-way local port
// to the language monitor: it writes PJL and reads the replies as on a
// parallel one, so the port is given a name that the port classification
// takes for that, never one of the network monitors' ports (which would
// make the monitor pass the job through unread).
//
// One OpenPort is one TCP connection at most, made when the first byte is
// to be written and kept across documents, so that the printer's late
// replies (a job's end, pages printed) still come back on it. Everything
// is non-blocking and waits in poll(2) for the time-outs SetPortTimeOuts set:
// - a write may take WriteTotalTimeoutConstant + WriteTotalTimeoutMultiplier
//   times its size milliseconds; one the printer takes nothing of within
//   that returns 0 taken and ERROR_TIMEOUT, one it takes part of returns what
//   it took. Without a total time-out (none set, or both 0) a write waits
//   for room up to RoomWaitMs, not until all is taken as the time-outs' own
//   rule has it: no thread is held for a time no one chose.
// - a read waits as the serial port monitor's does, and returns what came.
//
// Network faults are the printer's faults, as a printer that does not
// answer: a refused connection, a reset, a printer that closes mid-job. The
// document in which it happened takes nothing more, nor do documents of no
// job (JobId 0) opened after it, in which a language monitor goes on with
// the job it was sending: a job must not go on in a new connection, which
// the printer would take for a new job. The next job's document connects
// afresh, so the printer is reached again once it is back, between jobs.
//
// GetPrinterDataFromPort with ControlID 17 reads the device ID over SNMP
// with a short time-out: the text and its NUL in the buffer, the count
// without the NUL. A printer that does not answer is ERROR_TIMEOUT.
//
// The MONITOR table holds plain C function pointers, so one
// SocketPortMonitor at a time is the active one.
#pragma once

#include <langmon/monitor.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace langmon::ports {

struct NetworkPrinter {
    std::string host;  // a name, an IPv4 address or an IPv6 one without brackets
    uint16_t port = 9100;
    uint16_t snmpPort = 161;
    std::string community = "public";
};

// How long connecting may take before the printer counts as not answering.
inline constexpr int ConnectTimeOutMs = 2000;
// How long a write without a total time-out waits for the printer to make
// room: its window fills whenever it is slower than the host.
inline constexpr int RoomWaitMs = 500;
// How long one SNMP try may take; one more follows a silent one.
inline constexpr unsigned SnmpTimeOutMs = 500;

class SocketPortMonitor {
public:
    SocketPortMonitor();
    ~SocketPortMonitor();
    SocketPortMonitor(const SocketPortMonitor&) = delete;
    SocketPortMonitor& operator=(const SocketPortMonitor&) = delete;

    MONITOR* Table() { return &table_; }

    // The port `portName` (case and a trailing colon do not matter) leads to
    // `printer`.
    void Attach(const std::string& portName, const NetworkPrinter& printer);

    struct Port;

private:
    friend struct SocketEntries;

    Port* FindPort(const char* name);

    MONITOR table_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Port>> ports_;
};

}  // namespace langmon::ports
