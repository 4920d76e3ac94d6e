#include "daemon/job_stream.h"

#include <algorithm>

namespace langmon::protocol {

namespace {

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

bool JobStream::Connect(const std::string& path, const std::string& client, std::string* problem) {
    return connection_.Connect(path, client, problem);
}

JobStream::Start JobStream::Begin(const std::string& printer, const std::string& document,
                                  const std::string& user, std::string* problem) {
    DaemonMessage reply;
    if (!connection_.Ask(JobRequest{0, printer, JobText(document), JobText(user)}, &reply, problem,
                         PromptReplyMs * 3)) {
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
        const DataRequest chunk{0, job_, {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)}};
        if (!connection_.Ask(chunk, &reply, problem, chunkLimitMs, &stop)) {
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
    if (!connection_.Ask(EndJobRequest{0, job_}, &reply, problem, JobEndedLimitMs, &stop)) return false;
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
    if (!connection_.Ask(CancelJobRequest{0, job_}, &reply, problem, PromptReplyMs)) return false;
    if (std::holds_alternative<OkReply>(reply)) return true;
    const auto* error = std::get_if<ErrorReply>(&reply);
    *problem = error != nullptr ? ErrorWords(*error) : "the daemon did not cancel the job";
    return false;
}

}  // namespace langmon::protocol
