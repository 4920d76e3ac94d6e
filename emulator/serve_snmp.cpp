#include "emulator/serve_snmp.h"
#include "emulator/serve_tcp.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

namespace langmon::emulator {

namespace {

const oid SysDescr[] = {1, 3, 6, 1, 2, 1, 1, 1, 0};
const oid DeviceId[] = {1, 3, 6, 1, 4, 1, 2699, 1, 2, 1, 2, 1, 1, 3, 1};
constexpr std::size_t SysDescrLength = sizeof SysDescr / sizeof SysDescr[0];
constexpr std::size_t DeviceIdLength = sizeof DeviceId / sizeof DeviceId[0];
constexpr const char* Community = "public";

// The agent's OIDs in their order, as GETNEXT walks them.
struct Object {
    const oid* name;
    std::size_t length;
};
constexpr Object Objects[] = {{SysDescr, SysDescrLength}, {DeviceId, DeviceIdLength}};

void StartSnmpOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
        ::setenv("MIBS", "", 0);
        // The library's own notes (directories it made, files it missed)
        // are not the printer's output.
        snmp_disable_log();
        init_snmp("langmon");
    });
}

int Received(int operation, netsnmp_session*, int, netsnmp_pdu* request, void* magic) {
    if (operation != NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) return 1;
    auto* agent = static_cast<SnmpAgent*>(magic);
    agent->Respond(request);
    return 1;
}

}  // namespace

SnmpAgent::SnmpAgent(Printer& printer, const std::string& host, uint16_t port) : printer_(printer) {
    StartSnmpOnce();
    const bool v6 = host.find(':') != std::string::npos;
    const std::string where = (v6 ? "udp6:[" + host + "]" : "udp:" + host) + ":" + std::to_string(port);
    netsnmp_transport* transport = netsnmp_tdomain_transport(where.c_str(), 1, v6 ? "udp6" : "udp");
    if (transport == nullptr) {
        problem_ = "--snmp " + (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port) + ": cannot listen there";
        return;
    }
    netsnmp_session settings;
    snmp_sess_init(&settings);
    settings.version = SNMP_DEFAULT_VERSION;
    settings.isAuthoritative = SNMP_SESS_AUTHORITATIVE;
    settings.callback = Received;
    settings.callback_magic = this;
    socket_ = transport->sock;
    session_ = snmp_sess_add(&settings, transport, nullptr, nullptr);
    if (session_ == nullptr) {
        problem_ = "--snmp: net-snmp could not open a session";
        socket_ = -1;
        return;
    }
    port_ = BoundPort(socket_);
}

SnmpAgent::~SnmpAgent() {
    if (session_ != nullptr) snmp_sess_close(session_);
}

void SnmpAgent::AddWaits(std::vector<pollfd>& waits) const {
    if (socket_ >= 0) waits.push_back({socket_, POLLIN, 0});
}

void SnmpAgent::Serve() {
    if (socket_ < 0) return;
    pollfd ready{socket_, POLLIN, 0};
    if (::poll(&ready, 1, 0) <= 0) return;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(socket_, &readable);
    snmp_sess_read(session_, &readable);
}

void SnmpAgent::Respond(netsnmp_pdu* request) {
    // The reply carries the request's transport data: it goes back to the asker.
    if (netsnmp_pdu* reply = Answer(request); reply != nullptr && snmp_sess_send(session_, reply) == 0) {
        snmp_free_pdu(reply);
    }
}

netsnmp_pdu* SnmpAgent::Answer(netsnmp_pdu* request) {
    if (request->command != SNMP_MSG_GET && request->command != SNMP_MSG_GETNEXT) return nullptr;
    if (request->community_len != std::strlen(Community) ||
        std::memcmp(request->community, Community, request->community_len) != 0) {
        return nullptr;  // a wrong community is not answered, as agents do
    }
    // What the printer says now; a printer that is off or silent says nothing.
    const std::optional<std::string> id = printer_.DeviceId();
    if (!id) return nullptr;
    const PrinterState state = printer_.State();
    const std::string description = state.manufacturer + " " + state.model;

    netsnmp_pdu* reply = snmp_clone_pdu(request);
    if (reply == nullptr) return nullptr;
    reply->command = SNMP_MSG_RESPONSE;
    reply->errstat = SNMP_ERR_NOERROR;
    reply->errindex = 0;
    long index = 0;
    for (netsnmp_variable_list* value = reply->variables; value != nullptr; value = value->next_variable) {
        ++index;
        const Object* found = nullptr;
        for (const Object& object : Objects) {
            const int order = snmp_oid_compare(value->name, value->name_length, object.name, object.length);
            if (request->command == SNMP_MSG_GET ? order == 0 : order < 0) {
                found = &object;
                break;
            }
        }
        if (found == nullptr) {
            if (request->version == SNMP_VERSION_1) {
                reply->errstat = SNMP_ERR_NOSUCHNAME;
                reply->errindex = index;
                break;
            }
            snmp_set_var_typed_value(value, request->command == SNMP_MSG_GET ? SNMP_NOSUCHOBJECT : SNMP_ENDOFMIBVIEW,
                                     nullptr, 0);
            continue;
        }
        snmp_set_var_objid(value, found->name, found->length);
        const std::string& text = found->name == DeviceId ? *id : description;
        snmp_set_var_typed_value(value, ASN_OCTET_STR, reinterpret_cast<const u_char*>(text.data()), text.size());
    }
    return reply;
}

}  // namespace langmon::emulator
