#include "remote_connection.h"

#include "host_link.h"

#include <algorithm>
#include <chrono>
#include <cerrno>
#include <cstring>
#include <type_traits>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace langmon::status_manager {

namespace {

using Clock = std::chrono::steady_clock;

int MsLeft(Clock::time_point until) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// A connected socket to the daemon at `path`, or -1. The connect does not
// wait: a daemon whose queue of new clients is full is as good as none. A
// socket that this process listens on itself is none either: the daemon's
// own monitor and server keep their stores here.
int ConnectToDaemon(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return -1;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    ucred peer{};
    socklen_t peerSize = sizeof peer;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &peerSize) != 0 || peer.pid == getpid()) {
        close(fd);
        return -1;
    }
    // Blocking from here, but a send never waits longer than an answer may.
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    const timeval limit{kDaemonAnswerMs / 1000, (kDaemonAnswerMs % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    return fd;
}

// What an error reply means to a client of the C edge.
int32_t ResultOf(protocol::ErrorCode code) {
    switch (code) {
        case protocol::ErrorCode::NoVariable: return STATUS_MANAGER_NO_VARIABLE;
        case protocol::ErrorCode::Denied: return STATUS_MANAGER_ACCESS_DENIED;
        case protocol::ErrorCode::Limit:
        case protocol::ErrorCode::Failed: return STATUS_MANAGER_NO_MEMORY;
        case protocol::ErrorCode::BadMessage:
        case protocol::ErrorCode::TooBig: return STATUS_MANAGER_BAD_ARGUMENT;
        default: return STATUS_MANAGER_BAD_HANDLE;
    }
}

// The result of a request that wants `Reply`: OK, an error's result, or
// BAD_HANDLE when the daemon is gone or answered something else.
template <typename Reply>
int32_t Expect(bool answered, const protocol::DaemonMessage& reply) {
    if (!answered) return STATUS_MANAGER_BAD_HANDLE;
    if (std::holds_alternative<Reply>(reply)) return STATUS_MANAGER_OK;
    if (const auto* error = std::get_if<protocol::ErrorReply>(&reply)) return ResultOf(error->code);
    return STATUS_MANAGER_BAD_HANDLE;
}

}  // namespace

RemoteConnection::Opened RemoteConnection::Open(const std::string& socketPath, std::string_view printer,
                                                std::shared_ptr<RemoteConnection>* made, int32_t* result) {
    // A name the protocol can't carry is no name a daemon holds.
    if (!protocol::IsValidPrinterName(printer)) return Opened::NotHeld;
    const int fd = ConnectToDaemon(socketPath);
    if (fd < 0) return Opened::NoDaemon;
    std::shared_ptr<RemoteConnection> connection(new RemoteConnection(fd));
    connection->Start();
    protocol::DaemonMessage reply;
    if (!connection->Ask(protocol::HelloRequest{0, protocol::Version, "libkvtrm"}, &reply) ||
        !std::holds_alternative<protocol::HelloReply>(reply)) {
        connection->Close();
        return Opened::NoDaemon;
    }
    const bool answered = connection->Ask(protocol::OpenRequest{0, std::string(printer)}, &reply);
    if (const auto* opened = answered ? std::get_if<protocol::OpenedReply>(&reply) : nullptr) {
        connection->daemonHandle_ = opened->handle;
        *made = std::move(connection);
        return Opened::Yes;
    }
    connection->Close();
    const auto* error = answered ? std::get_if<protocol::ErrorReply>(&reply) : nullptr;
    if (error == nullptr) return Opened::NoDaemon;
    if (error->code == protocol::ErrorCode::UnknownPrinter) return Opened::NotHeld;
    *result = ResultOf(error->code);
    return Opened::Refused;
}

RemoteConnection::~RemoteConnection() {
    if (reader_.joinable()) reader_.detach();
    close(fd_);
}

void RemoteConnection::Start() {
    // The thread keeps the connection alive until it ends, also when the
    // handle is closed from one of its own callbacks.
    reader_ = std::thread([self = shared_from_this()] { self->ReaderLoop(); });
    readerId_ = reader_.get_id();
}

void RemoteConnection::ReaderLoop() {
    try {
        while (true) {
            if (!events_.empty()) {
                const protocol::ChangedEvent event = std::move(events_.front());
                events_.erase(events_.begin());
                Deliver(event);
                continue;
            }
            if (ReadSome(-1) != ReadOutcome::Read) break;
        }
    } catch (...) {
        // Out of memory on this thread: the handle is given up like a
        // daemon that went away.
    }
    GiveUp();
}

RemoteConnection::ReadOutcome RemoteConnection::ReadSome(int timeoutMs) {
    pollfd wait{fd_, POLLIN, 0};
    const int ready = poll(&wait, 1, timeoutMs);
    if (ready == 0) return ReadOutcome::TimedOut;
    if (ready < 0) return errno == EINTR ? ReadOutcome::Read : ReadOutcome::Gone;
    char buffer[16384];
    const ssize_t got = recv(fd_, buffer, sizeof buffer, 0);
    if (got <= 0) return got < 0 && errno == EINTR ? ReadOutcome::Read : ReadOutcome::Gone;
    unfed_.append(buffer, static_cast<std::size_t>(got));
    while (true) {
        // The frame reader holds one frame at most; the rest waits here.
        unfed_.erase(0, frames_.Feed(unfed_.data(), unfed_.size()));
        nlohmann::json json;
        protocol::FrameError error = protocol::FrameError::None;
        const protocol::FrameStatus status = frames_.Next(&json, &error);
        if (status == protocol::FrameStatus::Failed) return ReadOutcome::Gone;
        if (status == protocol::FrameStatus::Incomplete) {
            if (unfed_.empty()) return ReadOutcome::Read;
            continue;
        }
        protocol::DaemonMessage message;
        std::string why;
        if (!protocol::ParseDaemonMessage(json, &message, &why)) return ReadOutcome::Gone;
        Take(std::move(message));
    }
}

void RemoteConnection::Take(protocol::DaemonMessage message) {
    if (auto* event = std::get_if<protocol::ChangedEvent>(&message)) {
        events_.push_back(std::move(*event));
        return;
    }
    std::optional<uint32_t> id;
    std::visit(
        [&](const auto& reply) {
            if constexpr (!std::is_same_v<std::decay_t<decltype(reply)>, protocol::ChangedEvent>) id = reply.id;
        },
        message);
    std::lock_guard lock(mutex_);
    const auto asked = id ? asked_.find(*id) : asked_.end();
    if (asked != asked_.end()) {
        if (const auto* watching = std::get_if<protocol::WatchingReply>(&message)) {
            watches_[watching->watch] = std::move(asked->second);
        }
        asked_.erase(asked);
    }
    const auto waiting = id ? replies_.find(*id) : replies_.end();
    if (waiting != replies_.end()) waiting->second = std::move(message);
    changed_.notify_all();
}

void RemoteConnection::Deliver(const protocol::ChangedEvent& event) {
    Watch watch;
    {
        std::lock_guard lock(mutex_);
        const auto found = watches_.find(event.watch);
        if (found == watches_.end() || dead_) return;
        watch = found->second;
        delivering_ = event.watch;
    }
    if (watch.callback != nullptr) {
        watch.callback(clientHandle_, event.name.c_str(), watch.context);
    } else if (const SetEventFn setEvent = HostSetEvent(); setEvent != nullptr) {
        for (std::size_t i = 0; i < watch.names.size(); ++i) {
            if (watch.names[i] == event.name) setEvent(watch.events[i]);
        }
    }
    std::lock_guard lock(mutex_);
    delivering_ = 0;
    changed_.notify_all();
}

bool RemoteConnection::Ask(protocol::Request request, protocol::DaemonMessage* reply, const Watch* watch) {
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(kDaemonAnswerMs);
    uint32_t id = 0;
    {
        std::lock_guard lock(mutex_);
        if (dead_) return false;
        id = nextId_++;
        replies_[id];
        if (watch != nullptr) asked_[id] = *watch;
    }
    std::visit([id](auto& r) { r.id = id; }, request);
    const std::string frame = protocol::EncodeFrame(protocol::ToJson(request));
    bool sent = !frame.empty();
    {
        std::lock_guard hold(sendMutex_);
        for (std::size_t done = 0; sent && done < frame.size();) {
            const ssize_t n = send(fd_, frame.data() + done, frame.size() - done, MSG_NOSIGNAL);
            sent = n > 0;
            if (sent) done += static_cast<std::size_t>(n);
        }
    }
    std::unique_lock lock(mutex_);
    const auto answered = [&] { return replies_[id].has_value(); };
    if (sent && OnReader()) {
        // Asked from a callback: this thread is the one that reads, so it
        // reads here; changes that come meanwhile wait for the callback's end.
        while (!answered() && !dead_) {
            lock.unlock();
            const int left = MsLeft(until);
            const ReadOutcome outcome = left > 0 ? ReadSome(left) : ReadOutcome::TimedOut;
            lock.lock();
            if (outcome != ReadOutcome::Read) break;
        }
    } else if (sent) {
        changed_.wait_until(lock, until, [&] { return answered() || dead_; });
    }
    std::optional<protocol::DaemonMessage> got = std::move(replies_[id]);
    replies_.erase(id);
    asked_.erase(id);
    lock.unlock();
    if (!got) {
        // Silent or gone: nothing more is asked of it.
        GiveUp();
        return false;
    }
    *reply = std::move(*got);
    return true;
}

void RemoteConnection::GiveUp() {
    std::lock_guard lock(mutex_);
    if (!dead_) shutdown(fd_, SHUT_RDWR);  // wakes the reader, which then ends
    dead_ = true;
    changed_.notify_all();
}

int32_t RemoteConnection::Read(std::string_view name, void* buffer, DWORD size, DWORD* needed) {
    // The daemon can't be asked for a name the protocol can't carry, nor
    // hold one.
    if (!protocol::IsValidVariableName(name)) return STATUS_MANAGER_NO_VARIABLE;
    protocol::DaemonMessage reply;
    const bool answered = Ask(protocol::GetRequest{0, daemonHandle_, std::string(name)}, &reply);
    const int32_t result = Expect<protocol::ValueReply>(answered, reply);
    if (result != STATUS_MANAGER_OK) return result;
    const std::vector<uint8_t>& value = std::get<protocol::ValueReply>(reply).value;
    const auto valueSize = static_cast<DWORD>(value.size());
    if (needed != nullptr) *needed = valueSize;
    if (size < valueSize) return STATUS_MANAGER_BUFFER_TOO_SMALL;
    if (valueSize > 0) std::memcpy(buffer, value.data(), valueSize);
    return STATUS_MANAGER_OK;
}

int32_t RemoteConnection::Write(std::string_view name, std::span<const std::byte> value) {
    if (!protocol::IsValidVariableName(name) || value.size() > protocol::MaxValueBytes) return STATUS_MANAGER_BAD_ARGUMENT;
    const auto* bytes = reinterpret_cast<const uint8_t*>(value.data());
    protocol::DaemonMessage reply;
    const bool answered =
        Ask(protocol::SetRequest{0, daemonHandle_, std::string(name), {bytes, bytes + value.size()}}, &reply);
    return Expect<protocol::OkReply>(answered, reply);
}

int32_t RemoteConnection::AddWatch(std::vector<std::string> names, std::vector<HANDLE> events,
                                   StatusManagerCallback callback, void* context, uint32_t* notificationId) {
    if (names.size() > protocol::MaxWatchNames) return STATUS_MANAGER_BAD_ARGUMENT;
    for (const std::string& name : names) {
        if (!protocol::IsValidVariableName(name)) return STATUS_MANAGER_BAD_ARGUMENT;
    }
    const Watch watch{names, std::move(events), callback, context};
    protocol::DaemonMessage reply;
    const bool answered = Ask(protocol::WatchRequest{0, daemonHandle_, std::move(names)}, &reply, &watch);
    const int32_t result = Expect<protocol::WatchingReply>(answered, reply);
    if (result == STATUS_MANAGER_OK) *notificationId = std::get<protocol::WatchingReply>(reply).watch;
    return result;
}

int32_t RemoteConnection::EndWatch(uint32_t notificationId, bool callback) {
    {
        std::unique_lock lock(mutex_);
        if (dead_) return STATUS_MANAGER_BAD_HANDLE;
        const auto found = watches_.find(notificationId);
        if (found == watches_.end() || (found->second.callback != nullptr) != callback) {
            return STATUS_MANAGER_BAD_ARGUMENT;
        }
        watches_.erase(found);
        if (!OnReader()) changed_.wait(lock, [&] { return delivering_ != notificationId; });
    }
    protocol::DaemonMessage reply;
    const bool answered = Ask(protocol::UnwatchRequest{0, daemonHandle_, notificationId}, &reply);
    return Expect<protocol::OkReply>(answered, reply);
}

void RemoteConnection::Close() {
    bool alive = false;
    {
        std::lock_guard lock(mutex_);
        alive = !dead_ && daemonHandle_ != 0;
        watches_.clear();
    }
    if (alive) {
        protocol::DaemonMessage reply;
        Ask(protocol::CloseRequest{0, daemonHandle_}, &reply);
    }
    GiveUp();
    if (!reader_.joinable()) return;
    if (OnReader()) {
        reader_.detach();
    } else {
        reader_.join();
    }
}

}  // namespace langmon::status_manager
