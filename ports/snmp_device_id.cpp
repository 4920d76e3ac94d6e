#include "ports/snmp_device_id.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

namespace langmon::ports {

namespace {

// net-snmp reads its configuration files and MIBs once per process; a
// monitor asks by number and wants neither (nor their warnings).
void StartSnmpOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
        netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MIB_WARNINGS, 0);
        ::setenv("MIBS", "", 0);
        // The library's own notes (directories it made, files it missed)
        // are not the monitor's output.
        snmp_disable_log();
        init_snmp("langmon");
    });
}

std::string PeerName(const SnmpPeer& peer) {
    const bool v6 = peer.host.find(':') != std::string::npos;
    return (v6 ? "udp6:[" + peer.host + "]" : "udp:" + peer.host) + ":" + std::to_string(peer.port);
}

}  // namespace

SnmpOutcome ReadSnmpValue(const SnmpPeer& peer, std::span<const unsigned long> name, std::string* value) {
    if (name.empty() || name.size() > MAX_OID_LEN) return SnmpOutcome::Failed;
    StartSnmpOnce();
    netsnmp_session settings;
    snmp_sess_init(&settings);
    std::string peerName = PeerName(peer);
    std::string community = peer.community;
    settings.peername = peerName.data();
    settings.version = SNMP_VERSION_1;
    settings.community = reinterpret_cast<u_char*>(community.data());
    settings.community_len = community.size();
    settings.timeout = static_cast<long>(peer.timeOutMs) * 1000;
    settings.retries = 1;
    // The single-session API: each call has its own session, so that the
    // status thread and a status application may ask at once.
    void* session = snmp_sess_open(&settings);
    if (session == nullptr) return SnmpOutcome::Failed;
    netsnmp_pdu* request = snmp_pdu_create(SNMP_MSG_GET);
    oid asked[MAX_OID_LEN];
    std::copy(name.begin(), name.end(), asked);
    snmp_add_null_var(request, asked, name.size());
    netsnmp_pdu* response = nullptr;
    const int status = snmp_sess_synch_response(session, request, &response);
    SnmpOutcome outcome = SnmpOutcome::Failed;
    if (status == STAT_TIMEOUT) {
        outcome = SnmpOutcome::NoAnswer;
    } else if (status == STAT_SUCCESS && response != nullptr) {
        const netsnmp_variable_list* answer = response->variables;
        outcome = SnmpOutcome::NoSuchValue;
        if (response->errstat == SNMP_ERR_NOERROR && answer != nullptr) {
            if (answer->type == ASN_OCTET_STR) {
                value->assign(reinterpret_cast<const char*>(answer->val.string), answer->val_len);
                outcome = SnmpOutcome::Answered;
            } else if (answer->type == ASN_INTEGER || answer->type == ASN_COUNTER || answer->type == ASN_GAUGE ||
                       answer->type == ASN_TIMETICKS) {
                *value = std::to_string(*answer->val.integer);
                outcome = SnmpOutcome::Answered;
            }
        }
    }
    if (response != nullptr) snmp_free_pdu(response);
    snmp_sess_close(session);
    return outcome;
}

SnmpOutcome ReadDeviceIdOverSnmp(const SnmpPeer& peer, std::string* deviceId) {
    return ReadSnmpValue(peer, DeviceIdOid, deviceId);
}

}  // namespace langmon::ports
