// A job streamed to langmond for one of its printers, as `langmon print`
// and the CUPS backend send it when the daemon owns the printer: "job",
// then the bytes a chunk at a time, each sent once the daemon said the
// printer took the one before, then "end-job" and the printer's report of
// the job's end. Every wait looks at a stop flag; a sender stopped while a
// chunk is at the printer lets the connection go, which the daemon takes as
// a cancel and ends the job at the printer.
#pragma once

#include "daemon/status_client.h"
#include "daemon/status_protocol.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace langmon::protocol {

// A job's document name or user as the daemon takes them: whatever a
// spooler was given (a title of any length, bytes that are not UTF-8,
// control characters) becomes a text of at most MaxClientTextBytes of
// whole UTF-8 characters, with '?' for what could not go.
std::string JobText(std::string_view text);

class JobStream {
public:
    JobStream() = default;
    JobStream(const JobStream&) = delete;
    JobStream& operator=(const JobStream&) = delete;

    // Connects to the daemon at `path` and greets it as `client`. False,
    // with the reason, when no daemon answers there.
    bool Connect(const std::string& path, const std::string& client, std::string* problem);

    enum class Start { Started, Busy, Refused };
    // Starts a job at `printer`. `document` and `user` may be anything a
    // spooler was given: they are cut to the protocol's texts. Busy: another
    // job is at the printer (ask again later); Refused: `problem` says why.
    Start Begin(const std::string& printer, const std::string& document, const std::string& user,
                std::string* problem);

    // Sends `bytes` in chunks of at most MaxDataBytes. False, with the
    // reason, when the daemon refused, went away, `stop` was set, or a
    // chunk waited longer than `chunkLimitMs` (0: as long as it takes);
    // after that the connection is let go and the job is over.
    bool Write(std::span<const uint8_t> bytes, const std::atomic<bool>& stop, int chunkLimitMs,
               std::string* problem);

    // Ends the job and waits for the printer's report of its end: `pages`
    // as it reported them, none when it did not in the daemon's time.
    bool End(std::optional<uint32_t>* pages, const std::atomic<bool>& stop, std::string* problem);

    // Cancels the job: the daemon ends it at the printer at once.
    bool Cancel(std::string* problem);

    uint32_t Job() const { return job_; }
    bool Connected() const { return connection_.Connected(); }
    void Disconnect() { connection_.Disconnect(); }

private:
    StatusClient connection_;
    uint32_t job_ = 0;
};

}  // namespace langmon::protocol
