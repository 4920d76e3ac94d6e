#include "emulator/serve_tcp.h"

#include "platform/clock.h"

#include <cerrno>
#include <charconv>
#include <cstring>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace langmon::emulator {

uint16_t BoundPort(int fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
    return ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
}

bool ParseHostPort(const std::string& text, std::string* host, uint16_t* port) {
    std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) return false;
    std::string name = text.substr(0, colon);
    if (name.front() == '[') {
        if (name.size() < 3 || name.back() != ']') return false;
        name = name.substr(1, name.size() - 2);
    } else if (name.find(':') != std::string::npos) {
        return false;  // an IPv6 address goes in brackets
    }
    unsigned value = 0;
    const char* first = text.data() + colon + 1;
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(first, last, value);
    if (first == last || error != std::errc() || end != last || value > 65535) return false;
    *host = name;
    *port = static_cast<uint16_t>(value);
    return true;
}

TcpListener::TcpListener(Printer& printer, const std::string& host, uint16_t port)
    : stream_(printer) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    addrinfo* found = nullptr;
    if (const int error = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found); error != 0) {
        problem_ = "--listen " + host + ": " + ::gai_strerror(error);
        return;
    }
    int failure = 0;
    for (addrinfo* at = found; at != nullptr && listener_ < 0; at = at->ai_next) {
        listener_ = ::socket(at->ai_family, at->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, at->ai_protocol);
        if (listener_ < 0) continue;
        const int yes = 1;
        ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        // One printer, one connection: others wait in the backlog.
        if (::bind(listener_, at->ai_addr, at->ai_addrlen) != 0 || ::listen(listener_, 4) != 0) {
            failure = errno;
            ::close(listener_);
            listener_ = -1;
        }
    }
    ::freeaddrinfo(found);
    if (listener_ < 0) {
        problem_ = "--listen " + host + ":" + std::to_string(port) + ": " + std::strerror(failure);
        return;
    }
    port_ = BoundPort(listener_);
    host_ = host.find(':') != std::string::npos ? "[" + host + "]" : host;
}

TcpListener::~TcpListener() {
    if (client_ >= 0) ::close(client_);
    if (listener_ >= 0) ::close(listener_);
}

std::string TcpListener::Address() const {
    std::string address = "langmon://" + host_ + ":" + std::to_string(port_);
    if (snmpPort_ != 0) address += "?snmp=" + std::to_string(snmpPort_);
    return address;
}

void TcpListener::AddWaits(std::vector<pollfd>& waits) const {
    if (!problem_.empty()) return;
    if (client_ < 0) {
        waits.push_back({listener_, POLLIN, 0});
        return;
    }
    // While the printer holds bytes back, the connection is not read: the
    // window fills and the host's writes wait, as a busy printer makes them.
    const short events = static_cast<short>((stream_.WantsInput() ? POLLIN : 0) | (stream_.HasOutput() ? POLLOUT : 0));
    if (events != 0) waits.push_back({client_, events, 0});
}

void TcpListener::Hangup() {
    ::close(client_);
    client_ = -1;
    stream_.HungUp();
}

void TcpListener::Serve() {
    if (!problem_.empty()) return;
    const uint32_t now = GetTickCount();
    stream_.TakePending();
    if (client_ < 0) {
        client_ = ::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (client_ < 0) return;
    }
    if (stream_.WantsInput()) {
        char buffer[HostChunkBytes];
        const ssize_t n = ::recv(client_, buffer, sizeof buffer, 0);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
            Hangup();
            return;
        }
        if (n > 0) stream_.Received({buffer, static_cast<std::size_t>(n)}, now);
    }
    stream_.EndIfQuiet(now);
    const std::string& outgoing = stream_.Outgoing();
    if (!outgoing.empty()) {
        const ssize_t n = ::send(client_, outgoing.data(), outgoing.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) stream_.Sent(static_cast<std::size_t>(n));
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) Hangup();
    }
}

}  // namespace langmon::emulator
