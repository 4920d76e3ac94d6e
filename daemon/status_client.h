// A client of langmond's control socket, for programs that ask and wait:
// connects, says hello, and sends each request with a bounded wait for its
// reply; events that come meanwhile are kept for whoever wants them.
#pragma once

#include "daemon/status_protocol.h"

#include <deque>
#include <string>

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

    // Sends `request` (its id is set here) and waits up to `timeoutMs` for
    // its reply. False, with the reason, when the daemon did not answer in
    // time or went away; an error reply is a reply.
    bool Ask(Request request, DaemonMessage* reply, std::string* problem, int timeoutMs = 5000);

    // The next event that came, waiting up to `timeoutMs`; false if none.
    bool NextEvent(ChangedEvent* event, int timeoutMs);
    int Descriptor() const { return fd_; }

private:
    bool Receive(DaemonMessage* message, int timeoutMs, std::string* problem);
    void Disconnect();

    int fd_ = -1;
    uint32_t nextId_ = 1;
    FrameReader reader_;
    std::string unfed_;  // read, not yet taken by the reader: at most one read's worth
    std::deque<ChangedEvent> events_;
};

}  // namespace langmon::protocol
