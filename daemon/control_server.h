// The daemon's side of the control socket: one loop that accepts clients,
// reads their requests (framed and checked by the protocol library), answers
// them from the printers the host holds and their status stores, and sends
// each watched variable's change as it happens. Jobs for its printers go to
// a worker each (see JobWorker), so that the loop never waits on a printer;
// a connection whose reply waits on a worker is not read meanwhile, which
// is the flow control of a job's chunks. A client that sends a bad or
// oversized message gets an error and is let go; the others carry on. Every
// size a client can make the daemon hold is bounded.
#pragma once

#include "control_socket.h"
#include "job_worker.h"
#include "printer_host.h"

#include "daemon/status_protocol.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace langmon::daemon {

// What the daemon keeps of one client's messages waiting to go out; a client
// that reads nothing while more piles up is let go.
inline constexpr std::size_t MaxPendingBytesPerClient = 1u << 20;

class ControlServer {
public:
    // Serves `host`'s printers on `listener` (see OpenControlSocket), which
    // it closes at the end.
    ControlServer(PrinterHost& host, int listener, std::string daemonName);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // Waits up to `timeoutMs` for clients and does what is due. Also wakes
    // when a watched variable changes, Wake() is called, or `alsoFd` (if
    // not negative) can be read: true then, for the caller to read it.
    bool Serve(int timeoutMs, int alsoFd = -1);
    // Ends a Serve that waits, from any thread or a signal handler.
    void Wake();
    std::size_t ClientCount() const;
    // Where the jobs' starts and ends are told, for the daemon's log.
    void SetLog(std::function<void(const std::string&)> log) { log_ = std::move(log); }
    // Ends the jobs at printer `printer` (every printer's when empty) at
    // once, at the printer too, before the host lets the printer go; their
    // clients are told the job failed. Waits for at most one write each.
    void EndJobs(const std::string& printer = "");

private:
    struct Client;
    struct Watch;
    struct Job;
    void Accept();
    void Read(Client& client);
    void Digest(Client& client);
    bool AnswerJob(Client& client, const protocol::Request& request);
    void DeliverJobOutcomes();
    static std::string JobLine(const Job& job, const JobOutcome& outcome);
    void Reply(uint64_t clientId, const protocol::DaemonMessage& message);
    void Answer(Client& client, const nlohmann::json& message);
    void Send(Client& client, const nlohmann::json& message);
    void Flush(Client& client);
    void DeliverChanges();
    static void Changed(uint32_t managerHandle, const char* name, void* context);

    PrinterHost& host_;
    int listener_;
    int wake_;  // an eventfd
    std::string daemonName_;
    uint64_t nextClient_ = 1;
    std::vector<std::unique_ptr<Client>> clients_;
    // Changes the status manager told of on its threads, for the loop.
    std::mutex changesMutex_;
    struct Change {
        uint64_t client;
        uint32_t handle;
        uint32_t watch;
        std::string name;
    };
    std::vector<Change> changes_;
    std::function<void(const std::string&)> log_;
    std::vector<std::unique_ptr<Job>> jobs_;
    uint32_t nextJob_ = 1;
};

}  // namespace langmon::daemon
