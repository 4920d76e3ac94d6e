#include "control_server.h"

#include "daemon/status_protocol.h"

#include "langmon/client_view.h"

#include <algorithm>
#include <cerrno>
#include <map>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace langmon::daemon {

namespace {

using protocol::ErrorCode;
using protocol::ErrorReply;

// What one read of a client takes at most.
constexpr std::size_t ReadChunkBytes = 16384;

nlohmann::json Error(std::optional<uint32_t> id, ErrorCode code, const std::string& message) {
    return protocol::ToJson(protocol::DaemonMessage{ErrorReply{id, code, message}});
}

}  // namespace

// A watch's context for the status manager's callback: which client and
// handle it belongs to. It lives as long as the store that calls it.
struct ControlServer::Watch {
    ControlServer* server = nullptr;
    uint64_t client = 0;
    uint32_t handle = 0;
    uint32_t id = 0;
    std::unique_ptr<tool::ClientStore> store;  // last: closed first
};

struct ControlServer::Client {
    uint64_t id = 0;
    int fd = -1;
    Peer peer;
    bool greeted = false;
    bool closing = false;  // let go once what is queued has gone
    bool awaiting = false;  // a reply waits on a job's worker: nothing more is read
    protocol::FrameReader reader;
    std::string unread;  // read, not yet fed to the reader: at most one read's worth
    std::string outbox;
    struct Handle {
        std::string printer;
        std::unique_ptr<tool::ClientStore> store;
    };
    std::map<uint32_t, Handle> handles;
    std::map<uint32_t, std::unique_ptr<Watch>> watches;
    uint32_t nextHandle = 1;
    uint32_t nextWatch = 1;
    ~Client() {
        watches.clear();  // no callback after this
        if (fd >= 0) close(fd);
    }
};

// One job at a printer, and the request of its client that waits on it.
struct ControlServer::Job {
    uint32_t id = 0;
    uint64_t client = 0;  // 0 once its client has gone
    std::optional<uint32_t> awaiting;  // the request whose reply the worker's next outcome gives
    bool ending = false;  // end-job or cancel-job came: no more data
    bool cancelling = false;  // cancel-job came: its reply is an "ok"
    std::string printer, document, user;
    std::string why;  // why it ends short, for the log
    std::unique_ptr<JobWorker> worker;
};

ControlServer::ControlServer(PrinterHost& host, int listener, std::string daemonName)
    : host_(host), listener_(listener), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      daemonName_(std::move(daemonName)) {}

ControlServer::~ControlServer() {
    EndJobs();
    clients_.clear();
    if (listener_ >= 0) close(listener_);
    if (wake_ >= 0) close(wake_);
}

std::size_t ControlServer::ClientCount() const { return clients_.size(); }

void ControlServer::Wake() {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(wake_, &one, sizeof one);
}

void ControlServer::Changed(uint32_t, const char* name, void* context) {
    auto* watch = static_cast<Watch*>(context);
    ControlServer& server = *watch->server;
    {
        std::lock_guard hold(server.changesMutex_);
        server.changes_.push_back({watch->client, watch->handle, watch->id, name != nullptr ? name : ""});
    }
    server.Wake();
}

bool ControlServer::Serve(int timeoutMs, int alsoFd) {
    std::vector<pollfd> waits;
    waits.push_back({listener_, POLLIN, 0});
    waits.push_back({wake_, POLLIN, 0});
    waits.push_back({alsoFd, POLLIN, 0});  // a negative one is not waited on
    for (const auto& client : clients_) {
        // A client whose reply waits on a printer is not read: its next
        // chunk comes after the reply. Its hang-up is seen all the same.
        const short in = client->awaiting ? 0 : POLLIN;
        waits.push_back({client->fd, static_cast<short>(in | (client->outbox.empty() ? 0 : POLLOUT)), 0});
    }
    if (poll(waits.data(), waits.size(), timeoutMs) < 0 && errno != EINTR) return false;
    if ((waits[1].revents & POLLIN) != 0) {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t got = read(wake_, &count, sizeof count);
    }
    DeliverChanges();
    DeliverJobOutcomes();
    // Clients in the order they were waited on; new ones wait for the next round.
    constexpr std::size_t firstClient = 3;
    const std::size_t known = waits.size() - firstClient;
    for (std::size_t i = 0; i < known && i < clients_.size(); ++i) {
        Client& client = *clients_[i];
        const short events = waits[i + firstClient].revents;
        if (client.awaiting && client.fd >= 0 && (events & (POLLHUP | POLLERR)) != 0) {
            close(client.fd);  // gone in the middle of a job: the job is ended below
            client.fd = -1;
        } else if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && client.fd >= 0 && !client.awaiting) {
            Read(client);
        }
        if (client.fd >= 0 && ((events & POLLOUT) != 0 || !client.outbox.empty())) Flush(client);
    }
    // A client gone with a job at a printer: the job is ended at the printer,
    // so that the port is never left inside a job; its worker is let go once done.
    for (const auto& client : clients_) {
        if (client->fd >= 0) continue;
        for (const auto& job : jobs_) {
            if (job->client != client->id) continue;
            job->client = 0;
            job->awaiting.reset();
            job->why = "its client went away";
            job->worker->Cancel();
        }
    }
    clients_.erase(std::remove_if(clients_.begin(), clients_.end(),
                                  [](const auto& client) { return client->fd < 0; }),
                   clients_.end());
    if ((waits[0].revents & POLLIN) != 0) Accept();
    return (waits[2].revents & (POLLIN | POLLHUP | POLLERR)) != 0;
}

void ControlServer::Accept() {
    while (true) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) return;
        auto client = std::make_unique<Client>();
        client->id = nextClient_++;
        client->fd = fd;
        client->peer = PeerOf(fd);
        if (clients_.size() >= protocol::MaxClients) {
            client->closing = true;
            Send(*client, Error(std::nullopt, ErrorCode::Limit,
                                "the daemon serves " + std::to_string(protocol::MaxClients) + " clients at most"));
            Flush(*client);
            continue;  // let go at once
        }
        clients_.push_back(std::move(client));
    }
}

void ControlServer::Read(Client& client) {
    if (client.unread.empty()) {
        char buffer[ReadChunkBytes];
        const ssize_t got = recv(client.fd, buffer, sizeof buffer, 0);
        if (got <= 0) {
            if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
            close(client.fd);  // gone: its handles, watches and jobs go with it
            client.fd = -1;
            return;
        }
        client.unread.assign(buffer, static_cast<std::size_t>(got));
    }
    Digest(client);
    Flush(client);
}

// Answers the messages read so far, until one of them waits on a printer:
// the rest stays unread until its reply has gone.
void ControlServer::Digest(Client& client) {
    while (client.fd >= 0 && !client.closing && !client.awaiting) {
        nlohmann::json message;
        protocol::FrameError error = protocol::FrameError::None;
        const protocol::FrameStatus status = client.reader.Next(&message, &error);
        if (status == protocol::FrameStatus::Message) {
            Answer(client, message);
            continue;
        }
        if (status == protocol::FrameStatus::Failed) {
            const bool tooBig = error == protocol::FrameError::TooBig;
            client.closing = true;
            client.unread.clear();
            Send(client, Error(std::nullopt, tooBig ? ErrorCode::TooBig : ErrorCode::BadMessage,
                               tooBig ? "a message is at most " + std::to_string(protocol::MaxMessageBytes) + " bytes"
                                      : "not a message: a 4-byte length and one JSON object"));
            return;
        }
        if (client.unread.empty()) return;
        client.unread.erase(0, client.reader.Feed(client.unread.data(), client.unread.size()));
    }
    if (client.closing) client.unread.clear();
}

void ControlServer::Send(Client& client, const nlohmann::json& message) {
    std::string frame = protocol::EncodeFrame(message);
    if (frame.empty()) frame = protocol::EncodeFrame(Error(std::nullopt, ErrorCode::Failed, "the answer is too big"));
    if (client.outbox.size() + frame.size() > MaxPendingBytesPerClient) {
        // It reads nothing of what it asked for: let it go.
        close(client.fd);
        client.fd = -1;
        return;
    }
    client.outbox += frame;
}

void ControlServer::Flush(Client& client) {
    while (client.fd >= 0 && !client.outbox.empty()) {
        const ssize_t sent = send(client.fd, client.outbox.data(), client.outbox.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            client.outbox.erase(0, static_cast<std::size_t>(sent));
            continue;
        }
        if (sent < 0 && (errno == EAGAIN || errno == EINTR)) return;
        close(client.fd);
        client.fd = -1;
        return;
    }
    if (client.fd >= 0 && client.closing && client.outbox.empty()) {
        close(client.fd);
        client.fd = -1;
    }
}

void ControlServer::DeliverChanges() {
    std::vector<Change> changes;
    {
        std::lock_guard hold(changesMutex_);
        changes.swap(changes_);
    }
    for (const Change& change : changes) {
        for (const auto& client : clients_) {
            if (client->id != change.client || client->fd < 0 || client->watches.count(change.watch) == 0) continue;
            Send(*client, protocol::ToJson(protocol::DaemonMessage{
                              protocol::ChangedEvent{change.handle, change.watch, change.name}}));
        }
    }
}

void ControlServer::Answer(Client& client, const nlohmann::json& message) {
    protocol::Request request;
    ErrorReply refused;
    if (!protocol::ParseRequest(message, &request, &refused)) {
        client.closing = client.closing || protocol::ErrorClosesConnection(refused.code);
        Send(client, protocol::ToJson(protocol::DaemonMessage{refused}));
        return;
    }
    const auto reply = [&](protocol::DaemonMessage answer) { Send(client, protocol::ToJson(answer)); };
    const auto fail = [&](uint32_t id, ErrorCode code, const std::string& words) { Send(client, Error(id, code, words)); };
    if (const auto* hello = std::get_if<protocol::HelloRequest>(&request)) {
        client.greeted = true;
        reply(protocol::HelloReply{hello->id, protocol::Version, daemonName_,
                                   static_cast<uint32_t>(host_.Printers().size())});
        return;
    }
    const uint32_t id = std::visit([](const auto& r) { return r.id; }, request);
    if (!client.greeted) {
        client.closing = true;
        fail(id, ErrorCode::BadMessage, "the first message is a hello");
        return;
    }
    if (AnswerJob(client, request)) return;
    const auto handleOf = [&](uint32_t handle) -> Client::Handle* {
        const auto found = client.handles.find(handle);
        return found == client.handles.end() ? nullptr : &found->second;
    };
    if (const auto* list = std::get_if<protocol::PrintersRequest>(&request)) {
        // As many as one reply holds, from where the client asked; the
        // rest in the replies to its next asks.
        protocol::PrintersReply printers{id, {}, std::nullopt};
        const std::vector<HostedPrinter> held = host_.Printers();
        std::size_t bytes = 0;
        for (std::size_t i = list->from; i < held.size(); ++i) {
            const HostedPrinter& printer = held[i];
            const nlohmann::ordered_json view = host_.View(printer.name);
            const auto text = [&](const char* key) {
                return view.is_object() && view.contains(key) && view[key].is_string() ? view[key].get<std::string>() : "";
            };
            protocol::PrinterSummary summary{printer.name, printer.address, printer.portName, text("state"), text("status")};
            bytes += nlohmann::json{{"name", summary.name}, {"address", summary.address}, {"port", summary.port},
                                    {"state", summary.state}, {"status", summary.status}}
                         .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
                         .size() + 1;
            if (bytes > protocol::MaxPrinterListBytes && !printers.printers.empty()) {
                printers.next = static_cast<uint32_t>(i);
                break;
            }
            printers.printers.push_back(std::move(summary));
        }
        reply(printers);
    } else if (const auto* status = std::get_if<protocol::StatusRequest>(&request)) {
        if (!host_.Holds(status->printer)) return fail(id, ErrorCode::UnknownPrinter, "no printer \"" + status->printer + "\"");
        reply(protocol::StatusReply{id, nlohmann::json::parse(host_.View(status->printer).dump())});
    } else if (const auto* open = std::get_if<protocol::OpenRequest>(&request)) {
        if (!host_.Holds(open->printer)) return fail(id, ErrorCode::UnknownPrinter, "no printer \"" + open->printer + "\"");
        if (client.handles.size() >= protocol::MaxHandlesPerClient) {
            return fail(id, ErrorCode::Limit, "a client holds " + std::to_string(protocol::MaxHandlesPerClient) + " handles at most");
        }
        std::string problem;
        auto store = std::make_unique<tool::ClientStore>(open->printer, &problem);
        if (!store->IsOpen()) return fail(id, ErrorCode::Failed, problem);
        const uint32_t handle = client.nextHandle++;
        client.handles[handle] = {open->printer, std::move(store)};
        reply(protocol::OpenedReply{id, handle});
    } else if (const auto* closing = std::get_if<protocol::CloseRequest>(&request)) {
        if (handleOf(closing->handle) == nullptr) return fail(id, ErrorCode::BadHandle, "no such handle");
        for (auto watch = client.watches.begin(); watch != client.watches.end();) {
            watch = watch->second->handle == closing->handle ? client.watches.erase(watch) : std::next(watch);
        }
        client.handles.erase(closing->handle);
        reply(protocol::OkReply{id});
    } else if (const auto* get = std::get_if<protocol::GetRequest>(&request)) {
        Client::Handle* handle = handleOf(get->handle);
        if (handle == nullptr) return fail(id, ErrorCode::BadHandle, "no such handle");
        const auto value = handle->store->Read(get->name.c_str());
        if (!value) return fail(id, ErrorCode::NoVariable, "no value of \"" + get->name + "\"");
        reply(protocol::ValueReply{id, *value});
    } else if (const auto* set = std::get_if<protocol::SetRequest>(&request)) {
        Client::Handle* handle = handleOf(set->handle);
        if (handle == nullptr) return fail(id, ErrorCode::BadHandle, "no such handle");
        if (!client.peer.mayWrite) return fail(id, ErrorCode::Denied, "only root and members of the group lp may write");
        if (!handle->store->Write(set->name.c_str(), set->value.data(), static_cast<DWORD>(set->value.size()))) {
            return fail(id, ErrorCode::Failed, "the value was not stored");
        }
        reply(protocol::OkReply{id});
    } else if (const auto* watch = std::get_if<protocol::WatchRequest>(&request)) {
        Client::Handle* handle = handleOf(watch->handle);
        if (handle == nullptr) return fail(id, ErrorCode::BadHandle, "no such handle");
        if (client.watches.size() >= protocol::MaxWatchesPerClient) {
            return fail(id, ErrorCode::Limit, "a client holds " + std::to_string(protocol::MaxWatchesPerClient) + " watches at most");
        }
        auto made = std::make_unique<Watch>();
        made->server = this;
        made->client = client.id;
        made->handle = watch->handle;
        made->id = client.nextWatch++;
        std::string problem;
        made->store = std::make_unique<tool::ClientStore>(handle->printer, &problem);
        std::string names;
        for (const std::string& name : watch->names) names += (names.empty() ? "" : ";") + name;
        if (!made->store->IsOpen() || !made->store->Watch(names, Changed, made.get())) {
            return fail(id, ErrorCode::Failed, problem.empty() ? "the status manager would not watch" : problem);
        }
        const uint32_t watchId = made->id;
        client.watches[watchId] = std::move(made);
        reply(protocol::WatchingReply{id, watchId});
    } else if (const auto* unwatch = std::get_if<protocol::UnwatchRequest>(&request)) {
        const auto found = client.watches.find(unwatch->watch);
        if (found == client.watches.end() || found->second->handle != unwatch->handle) {
            return fail(id, ErrorCode::BadHandle, "no such watch");
        }
        client.watches.erase(found);
        reply(protocol::OkReply{id});
    }
}

// The job requests: "job" starts a worker, "data", "end-job" and
// "cancel-job" hand it what to do; each reply waits for the worker's
// outcome (DeliverJobOutcomes). False for a request that is not of a job.
bool ControlServer::AnswerJob(Client& client, const protocol::Request& request) {
    const uint32_t id = std::visit([](const auto& r) { return r.id; }, request);
    const auto fail = [&](ErrorCode code, const std::string& words) {
        Send(client, Error(id, code, words));
        return true;
    };
    const auto jobOf = [&](uint32_t job) -> Job* {
        for (const auto& held : jobs_) {
            if (held->id == job && held->client == client.id && !held->ending) return held.get();
        }
        return nullptr;
    };
    if (const auto* start = std::get_if<protocol::JobRequest>(&request)) {
        if (!client.peer.mayWrite) return fail(ErrorCode::Denied, "only root and members of the group lp may send jobs");
        const MONITOR* monitor = nullptr;
        HANDLE port = nullptr;
        if (!host_.JobPort(start->printer, &monitor, &port)) {
            return fail(ErrorCode::UnknownPrinter, "no printer \"" + start->printer + "\"");
        }
        // One job at a time at a printer, as a port takes one: a second is
        // refused at once rather than queued, so that the daemon holds
        // nothing for it; its client asks again when it will.
        for (const auto& held : jobs_) {
            if (held->worker->Printer() == start->printer) {
                return fail(ErrorCode::Busy, "the printer \"" + start->printer + "\" has another job at it");
            }
        }
        auto job = std::make_unique<Job>();
        job->id = nextJob_++;
        if (nextJob_ == 0) nextJob_ = 1;
        job->client = client.id;
        job->awaiting = id;
        job->printer = start->printer;
        job->document = start->document;
        job->user = start->user;
        job->worker = std::make_unique<JobWorker>(
            *monitor, port, JobWorker::Ticket{job->id, start->printer, start->document, start->user}, [this] { Wake(); });
        jobs_.push_back(std::move(job));
        client.awaiting = true;
        return true;
    }
    Job* job = nullptr;
    if (const auto* data = std::get_if<protocol::DataRequest>(&request)) {
        if ((job = jobOf(data->job)) == nullptr) return fail(ErrorCode::BadHandle, "no such job");
        job->worker->Write(data->bytes);
    } else if (const auto* end = std::get_if<protocol::EndJobRequest>(&request)) {
        if ((job = jobOf(end->job)) == nullptr) return fail(ErrorCode::BadHandle, "no such job");
        job->ending = true;
        job->worker->End();
    } else if (const auto* cancel = std::get_if<protocol::CancelJobRequest>(&request)) {
        if ((job = jobOf(cancel->job)) == nullptr) return fail(ErrorCode::BadHandle, "no such job");
        job->ending = true;
        job->cancelling = true;
        job->why = "cancelled by its client";
        job->worker->Cancel();
    } else {
        return false;
    }
    job->awaiting = id;
    client.awaiting = true;
    return true;
}

void ControlServer::Reply(uint64_t clientId, const protocol::DaemonMessage& message) {
    for (const auto& client : clients_) {
        if (client->id != clientId || client->fd < 0) continue;
        client->awaiting = false;
        Send(*client, protocol::ToJson(message));
        // What the client sent meanwhile is answered now, in order.
        Digest(*client);
        Flush(*client);
    }
}

// A job's start and end in the daemon's log.
std::string ControlServer::JobLine(const Job& job, const JobOutcome& outcome) {
    std::string line = "job " + std::to_string(job.id) + " at \"" + job.printer + "\"";
    if (outcome.step == JobOutcome::Step::Started) {
        return line + (outcome.ok ? " started, \"" + job.document + "\" for " + job.user : ": " + outcome.words);
    }
    if (outcome.step != JobOutcome::Step::Ended) return "";
    line += " ended at the printer after " + std::to_string(outcome.taken) + " bytes";
    if (!outcome.ok) return line + "; " + outcome.words;
    if (!job.why.empty()) return line + ": " + job.why;
    return line + (outcome.pages ? "; the printer reported " + std::to_string(*outcome.pages) + " pages"
                                 : "; the printer did not report its end in time");
}

void ControlServer::DeliverJobOutcomes() {
    for (std::size_t i = 0; i < jobs_.size(); ++i) {
        Job& job = *jobs_[i];
        // Finished first: once it is, every outcome has been told.
        const bool finished = job.worker->Finished();
        for (const JobOutcome& outcome : job.worker->TakeOutcomes()) {
            const std::string line = JobLine(job, outcome);
            if (log_ && !line.empty()) log_(line);
            if (!job.awaiting || job.client == 0) continue;
            const uint32_t request = *job.awaiting;
            job.awaiting.reset();
            protocol::DaemonMessage reply = protocol::OkReply{request};
            if (!outcome.ok) {
                reply = ErrorReply{request, ErrorCode::Failed, outcome.words};
            } else if (outcome.step == JobOutcome::Step::Started) {
                reply = protocol::JobStartedReply{request, job.id};
            } else if (outcome.step == JobOutcome::Step::Ended && job.ending && !job.cancelling) {
                reply = protocol::JobEndedReply{request, outcome.pages};
            }
            Reply(job.client, reply);
        }
        if (finished) {
            jobs_.erase(jobs_.begin() + static_cast<std::ptrdiff_t>(i));  // joins a thread that is done
            --i;
        }
    }
}

void ControlServer::EndJobs(const std::string& printer) {
    for (std::size_t i = 0; i < jobs_.size(); ++i) {
        Job& job = *jobs_[i];
        if (!printer.empty() && job.worker->Printer() != printer) continue;
        job.worker->Cancel();
        if (log_) log_("job " + std::to_string(job.id) + " at \"" + job.printer + "\" is ended: the daemon lets the printer go");
        if (job.awaiting && job.client != 0) {
            Reply(job.client, ErrorReply{*job.awaiting, ErrorCode::Failed, "the daemon let the printer go"});
        }
        jobs_.erase(jobs_.begin() + static_cast<std::ptrdiff_t>(i));  // ends the job at the printer and joins
        --i;
    }
}

}  // namespace langmon::daemon
