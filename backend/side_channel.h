// The side channel of CUPS (cupsSideChannelRead on descriptor 4): the
// questions a filter or CUPS asks the backend while a job runs, answered
// from what the backend knows of the printer.
#pragma once

#include "ports/snmp_device_id.h"

#include <cups/sidechannel.h>

#include <functional>
#include <optional>
#include <set>
#include <string>

namespace langmon::backend {

// What the answers are made of. A question whose source is missing is
// answered "not implemented".
struct SideChannelSources {
    // The printer's IEEE 1284 device ID; empty when it does not say.
    std::function<std::string()> deviceId;
    // The CUPS keywords that stand now (see StateAnnouncer).
    std::function<std::set<std::string>()> keywords;
    // Whether a job is at the printer now.
    std::function<bool()> busy;
    // Whether the port carries the printer's replies back.
    bool bidi = false;
    // Waits until what the backend wrote is with the printer; false if it
    // could not be.
    std::function<bool()> drain;
    // Ends the job at the printer where it is; false if it could not.
    std::function<bool()> softReset;
    // The value of an SNMP OID ("1.3.6.1.2.1.1.1.0") as text; none when the
    // printer gave none. Only a network printer has it.
    std::function<std::optional<std::string>(const std::string& oid)> snmpGet;
};

// A network printer's answers that need no port, for SNMP_GET and (unless
// `sources` has one already) the device ID: over SNMP, which the printer
// answers beside any job, whoever holds its port.
void AnswerOverSnmp(const ports::SnmpPeer& peer, SideChannelSources* sources);

// CUPS_SC_STATE_* bits for the keywords that stand.
unsigned SideChannelState(const std::set<std::string>& keywords, bool busy);

// Whether CUPS gave the backend a side channel: asked before the backend
// opens anything, which could be given descriptor 4 when CUPS did not.
bool HasSideChannel();

// Answers the question waiting on the side channel, if one comes within
// `timeoutMs`. False when the side channel is gone.
bool ServeSideChannel(const SideChannelSources& sources, int timeoutMs);

}  // namespace langmon::backend
