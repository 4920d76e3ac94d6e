// The emulated printer on the network's raw port (AppSocket): a TCP
// listener that takes one connection at a time, as a printer does. What the
// host sends goes into the printer; what the printer says goes back on the
// same connection. Another host is accepted once the one before has closed.
//
// A connection knows no documents either: the printer sees one begin with
// the first byte after a quiet spell and end once the connection has been
// quiet for LineQuietMs, or closed.
#pragma once

#include "emulator/host_stream.h"
#include "emulator/printer.h"
#include "emulator/printer_transport.h"

#include <cstdint>
#include <string>

namespace langmon::emulator {

class TcpListener final : public PrinterTransport {
public:
    // Listens on `host` (a name or an address) at `port`; 0 lets the system
    // choose.
    TcpListener(Printer& printer, const std::string& host, uint16_t port);
    ~TcpListener() override;
    TcpListener(const TcpListener&) = delete;
    TcpListener& operator=(const TcpListener&) = delete;

    // Empty once listening; otherwise why it could not.
    const std::string& Problem() const { return problem_; }
    uint16_t Port() const { return port_; }
    // The SNMP port the printer answers on, told in the address; 0 for none.
    void SetSnmpPort(uint16_t port) { snmpPort_ = port; }

    // "langmon://127.0.0.1:9100", with "?snmp=PORT" when an agent answers.
    std::string Address() const override;
    void AddWaits(std::vector<pollfd>& waits) const override;
    void Serve() override;

private:
    void Hangup();

    std::string problem_;
    std::string host_;  // as the address shows it
    uint16_t port_ = 0;
    uint16_t snmpPort_ = 0;
    int listener_ = -1;
    int client_ = -1;
    HostStream stream_;
};

// The port a bound socket took, which the system picks for port 0.
uint16_t BoundPort(int fd);

// Reads "HOST:PORT" ("127.0.0.1:0", "[::1]:9100", "localhost:9100") into its
// parts; false when it is not that.
bool ParseHostPort(const std::string& text, std::string* host, uint16_t* port);

}  // namespace langmon::emulator
