// A client of langmond's control socket, for programs that ask and wait:
// connects, says hello, and sends each request with a bounded wait for its
// reply; events that come meanwhile are kept for whoever wants them. A
// reply that does not come in time, a stop, or anything the daemon should
// not have sent leaves the stream out of step: the connection is let go,
// and every later call fails at once.
#pragma once

#include "daemon/status_protocol.h"

#include <atomic>
#include <deque>
#include <string>
#include <vector>

namespace langmon::protocol {

class StatusClient {
public:
    StatusClient() = default;
    ~StatusClient();
    StatusClient(const StatusClient&) = delete;
    StatusClient& operator=(const StatusClient&) = delete;

    // Connects to the daemon at `path` and greets it as `client`. False,
    // with the reason, when no daemon answers there (or it speaks another
    // version).
    bool Connect(const std::string& path, const std::string& client, std::string* problem);
    bool Connected() const { return fd_ >= 0; }
    void Disconnect();

    // Sends `request` (its id is set here) and waits up to `timeoutMs` (0:
    // as long as it takes) for its reply, looking at `stop`, when given, a
    // few times a second. False, with the reason, when the daemon did not
    // answer in time, went away or `stop` was set; an error reply is a reply.
    bool Ask(Request request, DaemonMessage* reply, std::string* problem, int timeoutMs = 5000,
             const std::atomic<bool>* stop = nullptr);

    // Every printer the daemon serves, in as many asks as its replies say
    // there are more. False, with the reason, when one was not answered,
    // or refused ("the daemon refused: ...").
    bool AskPrinters(std::vector<PrinterSummary>* printers, std::string* problem, int timeoutMs = 5000);

    // The next event that came, waiting up to `timeoutMs`; false if none.
    bool NextEvent(ChangedEvent* event, int timeoutMs);
    int Descriptor() const { return fd_; }

private:
    enum class Received { Message, TimedOut, Failed };
    // Waits up to `timeoutMs` (-1: no limit) for the next message. Failed,
    // with the reason, lets the connection go.
    Received Receive(DaemonMessage* message, int timeoutMs, std::string* problem);

    int fd_ = -1;
    uint32_t nextId_ = 1;
    FrameReader reader_;
    std::string unfed_;  // read, not yet taken by the reader: at most one read's worth
    std::deque<ChangedEvent> events_;
};

}  // namespace langmon::protocol
