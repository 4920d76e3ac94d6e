// The emulated printer's SNMP agent: answers GET and GETNEXT of its IEEE
// 1284 device ID (ppmPrinterIEEE1284DeviceId, 1.3.6.1.4.1.2699.1.2.1.2.1.1.3.1)
// and of sysDescr (1.3.6.1.2.1.1.1.0) from the printer's state at the moment
// of the request, for the community "public", over UDP. A printer that is
// off or silent does not answer, so its host's request times out. net-snmp
// reads and writes the messages.
#pragma once

#include "emulator/printer.h"
#include "emulator/printer_transport.h"

#include <cstdint>
#include <string>

struct snmp_pdu;  // net-snmp's message

namespace langmon::emulator {

class SnmpAgent final : public PrinterTransport {
public:
    // Listens on `host` at `port`; 0 lets the system choose.
    SnmpAgent(Printer& printer, const std::string& host, uint16_t port);
    ~SnmpAgent() override;
    SnmpAgent(const SnmpAgent&) = delete;
    SnmpAgent& operator=(const SnmpAgent&) = delete;

    const std::string& Problem() const { return problem_; }
    uint16_t Port() const { return port_; }

    // The agent is reached through the network printer's address, which
    // the raw port's listener tells with this port in it: none of its own.
    std::string Address() const override { return ""; }
    void AddWaits(std::vector<pollfd>& waits) const override;
    void Serve() override;

    // Answers one request that net-snmp read, if it is to be answered.
    void Respond(::snmp_pdu* request);

private:
    // The reply to `request`, or null for none.
    ::snmp_pdu* Answer(::snmp_pdu* request);

    Printer& printer_;
    std::string problem_;
    uint16_t port_ = 0;
    void* session_ = nullptr;  // net-snmp's single session
    int socket_ = -1;
};

}  // namespace langmon::emulator
