#include "daemon/status_client.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace langmon::protocol {

namespace {

using Clock = std::chrono::steady_clock;

// How often a wait with a stop flag looks at it.
constexpr long long StopLookMs = 250;

}  // namespace

StatusClient::~StatusClient() { Disconnect(); }

void StatusClient::Disconnect() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

bool StatusClient::Connect(const std::string& path, const std::string& client, std::string* problem) {
    Disconnect();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        *problem = "the socket path is empty or too long";
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0 || connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        *problem = "no daemon answers on " + path + " (" + std::strerror(errno) + ")";
        Disconnect();
        return false;
    }
    reader_ = FrameReader();
    unfed_.clear();
    events_.clear();
    DaemonMessage reply;
    if (!Ask(HelloRequest{0, Version, client}, &reply, problem)) return false;
    if (!std::holds_alternative<HelloReply>(reply)) {
        const auto* error = std::get_if<ErrorReply>(&reply);
        *problem = error != nullptr ? "the daemon refused: " + error->message : "the daemon did not greet";
        Disconnect();
        return false;
    }
    return true;
}

StatusClient::Received StatusClient::Receive(DaemonMessage* message, int timeoutMs, std::string* problem) {
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
    while (fd_ >= 0) {
        // The reader takes bytes up to the end of one frame at a time; the
        // rest of a read waits in `unfed_` for the frames after it.
        unfed_.erase(0, reader_.Feed(unfed_.data(), unfed_.size()));
        nlohmann::json json;
        FrameError error = FrameError::None;
        const FrameStatus status = reader_.Next(&json, &error);
        if (status == FrameStatus::Message) {
            std::string why;
            if (ParseDaemonMessage(json, message, &why)) return Received::Message;
            *problem = "the daemon sent what it should not: " + why;
            break;
        }
        if (status == FrameStatus::Failed) {
            *problem = "the daemon's messages can't be read";
            break;
        }
        if (!unfed_.empty()) continue;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        pollfd wait{fd_, POLLIN, 0};
        const int ready = poll(&wait, 1, timeoutMs < 0 ? -1 : static_cast<int>(std::max<long long>(left, 0)));
        if (ready == 0) return Received::TimedOut;
        if (ready < 0 && errno == EINTR) continue;
        char buffer[16384];
        const ssize_t got = ready > 0 ? recv(fd_, buffer, sizeof buffer, 0) : -1;
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            *problem = "the daemon went away";
            break;
        }
        unfed_.append(buffer, static_cast<std::size_t>(got));
    }
    if (fd_ < 0 && problem->empty()) *problem = "not connected to the daemon";
    Disconnect();
    return Received::Failed;
}

bool StatusClient::Ask(Request request, DaemonMessage* reply, std::string* problem, int timeoutMs,
                       const std::atomic<bool>* stop) {
    if (fd_ < 0) {
        *problem = "not connected to the daemon";
        return false;
    }
    const uint32_t id = nextId_++;
    std::visit([id](auto& r) { r.id = id; }, request);
    const std::string frame = EncodeFrame(ToJson(request));
    for (std::size_t sent = 0; sent < frame.size();) {
        const ssize_t n = send(fd_, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *problem = "the daemon went away";
            Disconnect();
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (true) {
        // A reply that never comes, or a stop, leaves the stream out of
        // step: the connection is let go.
        if (stop != nullptr && stop->load()) {
            *problem = "interrupted";
            break;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        if (timeoutMs > 0 && left <= 0) {
            *problem = "the daemon did not answer in " + std::to_string((timeoutMs + 999) / 1000) + " seconds";
            break;
        }
        long long slice = timeoutMs > 0 ? left : -1;
        if (stop != nullptr) slice = slice < 0 ? StopLookMs : std::min(slice, StopLookMs);
        DaemonMessage message;
        switch (Receive(&message, static_cast<int>(slice), problem)) {
            case Received::Failed: return false;
            case Received::TimedOut: continue;
            case Received::Message: break;
        }
        if (const auto* event = std::get_if<ChangedEvent>(&message)) {
            events_.push_back(*event);
            continue;
        }
        *reply = std::move(message);
        return true;
    }
    Disconnect();
    return false;
}

bool StatusClient::AskPrinters(std::vector<PrinterSummary>* printers, std::string* problem, int timeoutMs) {
    printers->clear();
    uint32_t from = 0;
    while (true) {
        DaemonMessage reply;
        if (!Ask(PrintersRequest{0, from}, &reply, problem, timeoutMs)) return false;
        const auto* some = std::get_if<PrintersReply>(&reply);
        if (some == nullptr) {
            const auto* error = std::get_if<ErrorReply>(&reply);
            *problem = "the daemon refused: " + (error != nullptr ? error->message : std::string("it did not list its printers"));
            return false;
        }
        printers->insert(printers->end(), some->printers.begin(), some->printers.end());
        // Each ask must get further, or the list would never end.
        if (!some->next || *some->next <= from) return true;
        from = *some->next;
    }
}

bool StatusClient::NextEvent(ChangedEvent* event, int timeoutMs) {
    if (events_.empty()) {
        DaemonMessage message;
        std::string problem;
        if (Receive(&message, timeoutMs, &problem) != Received::Message) return false;
        if (const auto* changed = std::get_if<ChangedEvent>(&message)) events_.push_back(*changed);
    }
    if (events_.empty()) return false;
    *event = events_.front();
    events_.pop_front();
    return true;
}

}  // namespace langmon::protocol
