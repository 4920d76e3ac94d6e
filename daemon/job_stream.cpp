#include "daemon/job_stream.h"

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

// How often a wait looks at its stop flag.
constexpr int StopLookMs = 250;
// The daemon answers at once whatever does not wait on a printer.
constexpr int PromptReplyMs = 10000;
// The daemon follows the printer's report of a job's end for two minutes;
// its answer comes within that and a little more.
constexpr int JobEndedLimitMs = 130000;

}  // namespace

std::string JobText(std::string_view text) {
    const auto byte = [&](std::size_t at) {
        return at < text.size() ? static_cast<uint8_t>(text[at]) : 0;
    };
    std::string fitted;
    for (std::size_t at = 0; at < text.size();) {
        const uint8_t lead = byte(at);
        // The bytes of one character, checked as a strict UTF-8 reader
        // checks them (no overlong forms, no surrogates, nothing past U+10FFFF).
        std::size_t length = 1;
        uint8_t least = 0x80, most = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0) least = 0xA0;
            if (lead == 0xED) most = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0) least = 0x90;
            if (lead == 0xF4) most = 0x8F;
        }
        bool whole = lead < 0x80 || length > 1;
        for (std::size_t i = 1; whole && i < length; ++i) {
            const uint8_t next = byte(at + i);
            whole = i == 1 ? next >= least && next <= most : next >= 0x80 && next <= 0xBF;
        }
        const bool control = lead < 0x20 || lead == 0x7F || (lead == 0xC2 && byte(at + 1) <= 0x9F);
        const std::string character =
            whole && !control ? std::string(text.substr(at, length)) : "?";
        if (fitted.size() + character.size() > MaxClientTextBytes) break;
        fitted += character;
        at += whole ? length : 1;
    }
    return fitted;
}

namespace {

std::string ErrorWords(const ErrorReply& error) {
    return std::string(ErrorCodeWord(error.code)) + ": " + error.message;
}

}  // namespace

JobStream::~JobStream() {
    Disconnect();
}

void JobStream::Disconnect() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

bool JobStream::Connect(const std::string& path, const std::string& client, std::string* problem) {
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
    DaemonMessage reply;
    if (!Ask(HelloRequest{0, Version, client}, &reply, nullptr, PromptReplyMs, problem))
        return false;
    if (!std::holds_alternative<HelloReply>(reply)) {
        const auto* error = std::get_if<ErrorReply>(&reply);
        *problem =
            error != nullptr ? "the daemon refused: " + error->message : "the daemon did not greet";
        Disconnect();
        return false;
    }
    return true;
}

bool JobStream::Ask(Request request, DaemonMessage* reply, const std::atomic<bool>* stop,
                    int limitMs, std::string* problem) {
    if (fd_ < 0) {
        *problem = "not connected to the daemon";
        return false;
    }
    const uint32_t id = nextId_++;
    std::visit([id](auto& r) { r.id = id; }, request);
    const std::string frame = EncodeFrame(ToJson(request));
    for (std::size_t sent = 0; sent < frame.size();) {
        const ssize_t n = send(fd_, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            if (n < 0 && errno == EINTR) continue;
            *problem = "the daemon went away";
            Disconnect();
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(limitMs);
    while (fd_ >= 0) {
        // The reader takes one frame at a time; the rest waits in `unfed_`.
        unfed_.erase(0, reader_.Feed(unfed_.data(), unfed_.size()));
        nlohmann::json json;
        FrameError error = FrameError::None;
        const FrameStatus status = reader_.Next(&json, &error);
        if (status == FrameStatus::Message) {
            std::string why;
            if (!ParseDaemonMessage(json, reply, &why)) {
                *problem = "the daemon sent what it should not: " + why;
                break;
            }
            if (std::holds_alternative<ChangedEvent>(*reply)) continue;
            return true;
        }
        if (status == FrameStatus::Failed) {
            *problem = "the daemon's messages can't be read";
            break;
        }
        if (!unfed_.empty()) continue;
        // A reply that never comes, or a stop, leaves the stream out of
        // step: the connection is let go, and with it the job.
        if (stop != nullptr && stop->load()) {
            *problem = "interrupted";
            break;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        if (limitMs > 0 && left <= 0) {
            *problem =
                "the daemon did not answer in " + std::to_string(limitMs / 1000) + " seconds";
            break;
        }
        pollfd wait{fd_, POLLIN, 0};
        const int slice =
            limitMs > 0 ? static_cast<int>(std::min<long long>(left, StopLookMs)) : StopLookMs;
        const int ready = poll(&wait, 1, slice);
        if (ready <= 0) continue;
        char buffer[16384];
        const ssize_t got = recv(fd_, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            *problem = "the daemon went away";
            break;
        }
        unfed_.append(buffer, static_cast<std::size_t>(got));
    }
    Disconnect();
    return false;
}

JobStream::Start JobStream::Begin(const std::string& printer, const std::string& document,
                                  const std::string& user, std::string* problem) {
    DaemonMessage reply;
    if (!Ask(JobRequest{0, printer, JobText(document), JobText(user)}, &reply, nullptr,
             PromptReplyMs * 3, problem)) {
        return Start::Refused;
    }
    if (const auto* started = std::get_if<JobStartedReply>(&reply)) {
        job_ = started->job;
        return Start::Started;
    }
    const auto* error = std::get_if<ErrorReply>(&reply);
    *problem = error != nullptr ? ErrorWords(*error) : "the daemon did not start the job";
    return error != nullptr && error->code == ErrorCode::Busy ? Start::Busy : Start::Refused;
}

bool JobStream::Write(std::span<const uint8_t> bytes, const std::atomic<bool>& stop,
                      int chunkLimitMs, std::string* problem) {
    while (!bytes.empty()) {
        const std::size_t size = std::min(bytes.size(), MaxDataBytes);
        DaemonMessage reply;
        if (!Ask(
                DataRequest{
                    0, job_, {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)}},
                &reply, &stop, chunkLimitMs, problem)) {
            return false;
        }
        if (!std::holds_alternative<OkReply>(reply)) {
            const auto* error = std::get_if<ErrorReply>(&reply);
            *problem = error != nullptr ? ErrorWords(*error) : "the daemon did not take the bytes";
            Disconnect();
            return false;
        }
        bytes = bytes.subspan(size);
    }
    return true;
}

bool JobStream::End(std::optional<uint32_t>* pages, const std::atomic<bool>& stop,
                    std::string* problem) {
    DaemonMessage reply;
    if (!Ask(EndJobRequest{0, job_}, &reply, &stop, JobEndedLimitMs, problem)) return false;
    if (const auto* ended = std::get_if<JobEndedReply>(&reply)) {
        *pages = ended->pages;
        return true;
    }
    const auto* error = std::get_if<ErrorReply>(&reply);
    *problem = error != nullptr ? ErrorWords(*error) : "the daemon did not end the job";
    return false;
}

bool JobStream::Cancel(std::string* problem) {
    DaemonMessage reply;
    if (!Ask(CancelJobRequest{0, job_}, &reply, nullptr, PromptReplyMs, problem)) return false;
    if (std::holds_alternative<OkReply>(reply)) return true;
    const auto* error = std::get_if<ErrorReply>(&reply);
    *problem = error != nullptr ? ErrorWords(*error) : "the daemon did not cancel the job";
    return false;
}

}  // namespace langmon::protocol
