#include "side_channel.h"

#include <cerrno>
#include <cstring>
#include <sstream>
#include <vector>

#include <sys/stat.h>
#include <poll.h>

namespace langmon::backend {

namespace {

bool Stands(const std::set<std::string>& keywords, const char* keyword) { return keywords.count(keyword) != 0; }

bool EndsWith(const std::string& text, const char* end) {
    const std::size_t length = std::strlen(end);
    return text.size() >= length && text.compare(text.size() - length, length, end) == 0;
}

// A dotted OID ("1.3.6.1.2.1.1.1.0") as numbers; empty if it is not one.
std::vector<unsigned long> OidNumbers(const std::string& text) {
    std::vector<unsigned long> numbers;
    std::istringstream parts(text);
    std::string part;
    while (std::getline(parts, part, '.')) {
        if (part.empty() || part.find_first_not_of("0123456789") != std::string::npos || part.size() > 9) return {};
        numbers.push_back(std::stoul(part));
    }
    return numbers;
}

}  // namespace

void AnswerOverSnmp(const ports::SnmpPeer& peer, SideChannelSources* sources) {
    sources->snmpGet = [peer](const std::string& oid) -> std::optional<std::string> {
        const std::vector<unsigned long> numbers = OidNumbers(oid);
        std::string value;
        if (numbers.empty() || ports::ReadSnmpValue(peer, numbers, &value) != ports::SnmpOutcome::Answered) {
            return std::nullopt;
        }
        return value;
    };
    if (!sources->deviceId) {
        sources->deviceId = [peer] {
            std::string id;
            return ports::ReadDeviceIdOverSnmp(peer, &id) == ports::SnmpOutcome::Answered ? id : std::string();
        };
    }
}

unsigned SideChannelState(const std::set<std::string>& keywords, bool busy) {
    if (Stands(keywords, "offline-report")) return CUPS_SC_STATE_OFFLINE;
    unsigned state = CUPS_SC_STATE_ONLINE;
    if (busy) state |= CUPS_SC_STATE_BUSY;
    for (const std::string& keyword : keywords) {
        if (EndsWith(keyword, "-error")) state |= CUPS_SC_STATE_ERROR;
    }
    if (Stands(keywords, "media-empty-error") || Stands(keywords, "media-needed-error")) {
        state |= CUPS_SC_STATE_MEDIA_EMPTY;
    }
    if (Stands(keywords, "toner-empty-error")) state |= CUPS_SC_STATE_MARKER_EMPTY;
    if (Stands(keywords, "toner-low-warning") || Stands(keywords, "marker-supply-low-warning")) {
        state |= CUPS_SC_STATE_MARKER_LOW;
    }
    return state;
}

bool HasSideChannel() {
    // CUPS's side channel is one end of a socket pair; descriptor 4 may be
    // anything else (or nothing) when a person runs the backend.
    struct stat about {};
    return fstat(CUPS_SC_FD, &about) == 0 && S_ISSOCK(about.st_mode);
}

bool ServeSideChannel(const SideChannelSources& sources, int timeoutMs) {
    pollfd wait{CUPS_SC_FD, POLLIN, 0};
    const int ready = poll(&wait, 1, timeoutMs);
    if (ready < 0) return errno == EINTR;
    if (ready == 0) return true;
    if ((wait.revents & POLLIN) == 0) return false;  // closed: CUPS is done with us

    cups_sc_command_t command = CUPS_SC_CMD_NONE;
    cups_sc_status_t status = CUPS_SC_STATUS_NONE;
    char data[2048];
    int length = sizeof data;
    if (cupsSideChannelRead(&command, &status, data, &length, 1.0) != 0) return false;

    std::string answer;
    status = CUPS_SC_STATUS_OK;
    switch (command) {
        case CUPS_SC_CMD_GET_DEVICE_ID:
            if (sources.deviceId) {
                answer = sources.deviceId();
                if (answer.empty()) status = CUPS_SC_STATUS_NO_RESPONSE;
            } else {
                status = CUPS_SC_STATUS_NOT_IMPLEMENTED;
            }
            break;
        case CUPS_SC_CMD_GET_STATE: {
            const std::set<std::string> keywords = sources.keywords ? sources.keywords() : std::set<std::string>();
            answer.push_back(static_cast<char>(SideChannelState(keywords, sources.busy && sources.busy())));
            break;
        }
        case CUPS_SC_CMD_GET_BIDI:
            answer.push_back(static_cast<char>(sources.bidi ? CUPS_SC_BIDI_SUPPORTED : CUPS_SC_BIDI_NOT_SUPPORTED));
            break;
        case CUPS_SC_CMD_GET_CONNECTED: {
            const std::set<std::string> keywords = sources.keywords ? sources.keywords() : std::set<std::string>();
            answer.push_back(static_cast<char>(Stands(keywords, "offline-report") ? CUPS_SC_NOT_CONNECTED
                                                                                  : CUPS_SC_CONNECTED));
            break;
        }
        case CUPS_SC_CMD_DRAIN_OUTPUT:
            if (!sources.drain) status = CUPS_SC_STATUS_NOT_IMPLEMENTED;
            else if (!sources.drain()) status = CUPS_SC_STATUS_IO_ERROR;
            break;
        case CUPS_SC_CMD_SOFT_RESET:
            if (!sources.softReset) status = CUPS_SC_STATUS_NOT_IMPLEMENTED;
            else if (!sources.softReset()) status = CUPS_SC_STATUS_IO_ERROR;
            break;
        case CUPS_SC_CMD_SNMP_GET: {
            // The request is the OID; the answer the OID, its NUL and the value.
            const std::string oid(data, strnlen(data, static_cast<std::size_t>(length)));
            if (!sources.snmpGet) {
                status = CUPS_SC_STATUS_NOT_IMPLEMENTED;
            } else if (const std::optional<std::string> value = sources.snmpGet(oid)) {
                answer = oid + '\0' + *value;
            } else {
                status = CUPS_SC_STATUS_NO_RESPONSE;
            }
            break;
        }
        default: status = CUPS_SC_STATUS_NOT_IMPLEMENTED; break;
    }
    if (answer.size() > sizeof data) {
        answer.clear();
        status = CUPS_SC_STATUS_TOO_BIG;
    }
    return cupsSideChannelWrite(command, status, answer.data(), static_cast<int>(answer.size()), 1.0) == 0;
}

}  // namespace langmon::backend
