// A handle on a printer's store in langmond: one connection to the daemon's
// control socket per handle, with a reader thread that takes the daemon's
// replies and its "changed" events, and delivers each change to the client's
// events or callback in this process. Every question waits a short while at
// most: a daemon that goes silent or away leaves the handle dead, and every
// later call on it fails at once.
#pragma once

#include "daemon/status_protocol.h"

#include <langmon/status_manager.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace langmon::status_manager {

// How long a call waits for the daemon's answer before the handle is given up.
constexpr int kDaemonAnswerMs = 2000;

class RemoteConnection : public std::enable_shared_from_this<RemoteConnection> {
public:
    enum class Opened {
        Yes,
        NotHeld,   // a daemon answers, but holds no printer of that name
        NoDaemon,  // none answers on the socket, or it is this very process
        Refused,   // the daemon answered the open with an error: see `result`
    };
    // Connects to the daemon at `socketPath` and opens `printer`'s store in it.
    static Opened Open(const std::string& socketPath, std::string_view printer,
                       std::shared_ptr<RemoteConnection>* made, int32_t* result);

    ~RemoteConnection();
    RemoteConnection(const RemoteConnection&) = delete;
    RemoteConnection& operator=(const RemoteConnection&) = delete;

    // The handle the client knows this store by, given to its callbacks.
    void SetClientHandle(uint32_t handle) { clientHandle_ = handle; }

    // The calls of the C edge, their arguments checked already, with the
    // edge's results.
    int32_t Read(std::string_view name, void* buffer, DWORD size, DWORD* needed);
    int32_t Write(std::string_view name, std::span<const std::byte> value);
    int32_t AddWatch(std::vector<std::string> names, std::vector<HANDLE> events, StatusManagerCallback callback,
                     void* context, uint32_t* notificationId);
    // Returns once no change is delivered to the watch on another thread.
    int32_t EndWatch(uint32_t notificationId, bool callback);
    // Closes the daemon's handle, ends every watch and the reader thread.
    // Called on the reader thread (from a callback), the thread ends when the
    // callback returns.
    void Close();

private:
    struct Watch {
        std::vector<std::string> names;
        std::vector<HANDLE> events;  // one per name; empty for a callback watch
        StatusManagerCallback callback = nullptr;
        void* context = nullptr;
    };
    enum class ReadOutcome { Read, TimedOut, Gone };

    explicit RemoteConnection(int fd) : fd_(fd) {}
    void Start();
    void ReaderLoop();
    // Waits up to `timeoutMs` (-1: no limit) for bytes, and takes every
    // message they complete. Only the reader thread reads.
    ReadOutcome ReadSome(int timeoutMs);
    void Take(protocol::DaemonMessage message);
    void Deliver(const protocol::ChangedEvent& event);
    // Sends the request and waits for its reply. False when the daemon did
    // not answer in time or went away: the connection is then dead.
    bool Ask(protocol::Request request, protocol::DaemonMessage* reply, const Watch* watch = nullptr);
    void GiveUp();
    bool OnReader() const { return std::this_thread::get_id() == readerId_; }

    const int fd_;
    uint32_t clientHandle_ = 0;
    uint32_t daemonHandle_ = 0;
    std::thread reader_;
    std::thread::id readerId_;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool dead_ = false;
    uint32_t nextId_ = 1;
    // Replies awaited, by request id; filled by the reader.
    std::map<uint32_t, std::optional<protocol::DaemonMessage>> replies_;
    // Watches asked for, by request id: the reader makes them live when the
    // daemon's "watching" comes, before it reads any change for them.
    std::map<uint32_t, Watch> asked_;
    std::map<uint32_t, Watch> watches_;
    uint32_t delivering_ = 0;  // the watch the reader is delivering to, or 0

    std::mutex sendMutex_;
    // The reader's own.
    protocol::FrameReader frames_;
    std::string unfed_;
    std::vector<protocol::ChangedEvent> events_;
};

}  // namespace langmon::status_manager
