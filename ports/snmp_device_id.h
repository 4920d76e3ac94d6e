// The IEEE 1284 device ID of a network printer, read over SNMP from its
// ppmPrinterIEEE1284DeviceId (1.3.6.1.4.1.2699.1.2.1.2.1.1.3.1), as a
// printer's status is read when its raw port only carries the job and the
// PJL replies. net-snmp does the asking; nothing here knows BER.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace langmon::ports {

// The OID as numbers, for whoever answers it too.
inline constexpr unsigned long DeviceIdOid[] = {1, 3, 6, 1, 4, 1, 2699, 1, 2, 1, 2, 1, 1, 3, 1};
inline constexpr unsigned long SysDescrOid[] = {1, 3, 6, 1, 2, 1, 1, 1, 0};

struct SnmpPeer {
    std::string host;  // a name or an address (an IPv6 one without brackets)
    uint16_t port = 161;
    std::string community = "public";
    unsigned timeOutMs = 500;  // each try; one more try follows a silent one
};

enum class SnmpOutcome { Answered, NoAnswer, NoSuchValue, Failed };

// Asks `peer` for the value of `name` (numbers, e.g. {1,3,6,1,2,1,1,1,0}):
// Answered puts a text value as it came, a number in decimal, in `value`;
// a value of another type is NoSuchValue.
SnmpOutcome ReadSnmpValue(const SnmpPeer& peer, std::span<const unsigned long> name, std::string* value);

// Asks `peer` for the device ID. Answered puts its text in `deviceId`.
SnmpOutcome ReadDeviceIdOverSnmp(const SnmpPeer& peer, std::string* deviceId);

}  // namespace langmon::ports
