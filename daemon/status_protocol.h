// The language of langmond's control socket, shared by the daemon and by the
// status manager library's client mode: frames (a 4-byte big-endian length,
// then one JSON object), the typed requests a client sends, and the typed
// replies and events the daemon sends back. Both sides read through the same
// checks, so that every field's type and every limit is enforced in one place
// and a misbehaving peer meets a refusal, never an exception or a crash.
// docs/protocol.md describes the same for clients in other languages.
//
// Nothing here throws: the library is linked into libkvtrm.so, which a
// client in C loads, and into the daemon, whose other clients must carry on
// whatever one of them sends.
#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace langmon::protocol {

// The protocol's version, sent in "hello" both ways. Any change to what a
// message holds or means raises it.
inline constexpr uint32_t Version = 1;

// Where the daemon listens unless LANGMON_SOCKET names another path.
inline constexpr char DefaultSocketPath[] = "/run/langmon/langmond.sock";
inline constexpr char SocketPathVariable[] = "LANGMON_SOCKET";
// Set to "local", the status manager library in a process asks no daemon:
// every store it opens is the process's own. langmond sets it for itself, as
// does a command that runs a monitor of its own, whose printer is its own.
inline constexpr char StatusManagerModeVariable[] = "LANGMON_STATUS_MANAGER";
inline constexpr char StatusManagerLocal[] = "local";

// Every size a peer can make the other hold is bounded.
inline constexpr std::size_t FrameHeaderBytes = 4;
inline constexpr std::size_t MaxMessageBytes = 65536;
// Arrays and objects inside one another; a status document needs a handful.
// The bound keeps every walk of a message (copy, compare, write) shallow.
inline constexpr int MaxNestingDepth = 32;
inline constexpr std::size_t MaxClientTextBytes = 255;
inline constexpr std::size_t MaxDaemonTextBytes = 255;
inline constexpr std::size_t MaxPrinterNameBytes = 255;
inline constexpr std::size_t MaxVariableNameBytes = 64;
inline constexpr std::size_t MaxValueBytes = 16384;
inline constexpr std::size_t MaxWatchNames = 64;
// A job's bytes travel in chunks of at most this many, each answered once
// the printer has taken it: the daemon holds one chunk per job at most.
inline constexpr std::size_t MaxDataBytes = MaxValueBytes;
// What the printers of one "printers" reply may take, in their JSON; a host
// of hundreds of printers lists them over several replies.
inline constexpr std::size_t MaxPrinterListBytes = 48 * 1024;
// Enforced by the daemon, per connection and in all.
inline constexpr std::size_t MaxHandlesPerClient = 32;
inline constexpr std::size_t MaxWatchesPerClient = 64;
inline constexpr std::size_t MaxClients = 128;
// Messages held unsent for one connection: a client that stops reading is
// disconnected rather than let the daemon's memory grow.
inline constexpr std::size_t MaxUnsentBytesPerClient = 1 << 20;

// The socket's path: LANGMON_SOCKET when set and not empty, else the default.
std::string SocketPath();

// ---------------------------------------------------------------- errors

// The codes of an "error" message; their words are in ErrorCodeWord.
enum class ErrorCode {
    BadMessage,      // "bad-message": not a frame, not JSON, not a valid message
    TooBig,          // "too-big": a frame longer than MaxMessageBytes
    Version,         // "version": a hello with another version
    UnknownPrinter,  // "unknown-printer"
    BadHandle,       // "bad-handle": a handle or watch this client does not hold
    NoVariable,      // "no-variable": the printer has no such variable
    Denied,          // "denied": the peer may not do this (a "set" or a job by a user outside lp)
    Limit,           // "limit": too many clients, handles or watches
    Failed,          // "failed": the daemon could not do it
    Busy,            // "busy": the printer has a job of another client at it
};

std::string_view ErrorCodeWord(ErrorCode code);
bool ParseErrorCode(std::string_view word, ErrorCode* code);
// After these the daemon closes the connection: the stream can no longer be
// trusted, or the two sides cannot speak.
bool ErrorClosesConnection(ErrorCode code);

// ---------------------------------------------------------------- frames

// The frame of one message: its length, big-endian, and its compact JSON.
// Text that is not UTF-8 goes out with U+FFFD in place of the bad bytes. An
// empty string when the message would be longer than MaxMessageBytes (or
// cannot be made): the caller sends an error instead.
std::string EncodeFrame(const nlohmann::json& message);

enum class FrameError {
    None,
    TooBig,      // a length over MaxMessageBytes
    BadMessage,  // a length of 0, bytes that are not JSON, JSON that is not an
                 // object or nests deeper than MaxNestingDepth
};

enum class FrameStatus { Incomplete, Message, Failed };

// Cuts a byte stream into messages, holding at most one frame: Feed takes
// bytes only up to the end of the frame it is reading, and returns how many
// it took; the caller takes the message with Next and feeds the rest. So a
// peer can never make the reader hold more than FrameHeaderBytes +
// MaxMessageBytes, and a length over the limit is refused as soon as its
// four bytes are in, before any of the body is kept. After an error the
// reader stays failed and takes (and drops) whatever it is fed.
class FrameReader {
public:
    std::size_t Feed(const char* data, std::size_t size);
    FrameStatus Next(nlohmann::json* message, FrameError* error);

    bool Failed() const { return error_ != FrameError::None; }
    std::size_t Buffered() const { return buffer_.size(); }

private:
    std::size_t FrameBytes() const;

    std::string buffer_;
    FrameError error_ = FrameError::None;
};

// ---------------------------------------------------------------- requests

struct HelloRequest {
    uint32_t id = 0;
    uint32_t version = Version;
    std::string client;
    bool operator==(const HelloRequest&) const = default;
};
// The printers from the `from`-th on (0: the first), as many as a reply
// holds; the reply's `next` says where the rest begins.
struct PrintersRequest {
    uint32_t id = 0;
    uint32_t from = 0;
    bool operator==(const PrintersRequest&) const = default;
};
struct StatusRequest {
    uint32_t id = 0;
    std::string printer;
    bool operator==(const StatusRequest&) const = default;
};
struct OpenRequest {
    uint32_t id = 0;
    std::string printer;
    bool operator==(const OpenRequest&) const = default;
};
struct CloseRequest {
    uint32_t id = 0;
    uint32_t handle = 0;
    bool operator==(const CloseRequest&) const = default;
};
struct GetRequest {
    uint32_t id = 0;
    uint32_t handle = 0;
    std::string name;
    bool operator==(const GetRequest&) const = default;
};
struct SetRequest {
    uint32_t id = 0;
    uint32_t handle = 0;
    std::string name;
    std::vector<uint8_t> value;
    bool operator==(const SetRequest&) const = default;
};
struct WatchRequest {
    uint32_t id = 0;
    uint32_t handle = 0;
    std::vector<std::string> names;
    bool operator==(const WatchRequest&) const = default;
};
struct UnwatchRequest {
    uint32_t id = 0;
    uint32_t handle = 0;
    uint32_t watch = 0;
    bool operator==(const UnwatchRequest&) const = default;
};

// A job for one of the daemon's printers: the document's name and the user
// as the spooler's job list shows them.
struct JobRequest {
    uint32_t id = 0;
    std::string printer;
    std::string document;
    std::string user;
    bool operator==(const JobRequest&) const = default;
};
// The job's next bytes, at most MaxDataBytes.
struct DataRequest {
    uint32_t id = 0;
    uint32_t job = 0;
    std::vector<uint8_t> bytes;
    bool operator==(const DataRequest&) const = default;
};
struct EndJobRequest {
    uint32_t id = 0;
    uint32_t job = 0;
    bool operator==(const EndJobRequest&) const = default;
};
struct CancelJobRequest {
    uint32_t id = 0;
    uint32_t job = 0;
    bool operator==(const CancelJobRequest&) const = default;
};

using Request = std::variant<HelloRequest, PrintersRequest, StatusRequest, OpenRequest, CloseRequest,
                             GetRequest, SetRequest, WatchRequest, UnwatchRequest, JobRequest, DataRequest,
                             EndJobRequest, CancelJobRequest>;

// ---------------------------------------------------------------- replies and events

// An "error" message; also what ParseRequest gives back for a request it
// refuses, ready to be sent. `id` is the request's when it had a valid one.
struct ErrorReply {
    std::optional<uint32_t> id;
    ErrorCode code = ErrorCode::Failed;
    std::string message;
    bool operator==(const ErrorReply&) const = default;
};

struct HelloReply {
    uint32_t id = 0;
    uint32_t version = Version;
    std::string daemon;
    uint32_t printers = 0;
    bool operator==(const HelloReply&) const = default;
};

// One printer of a "printers" reply, in the daemon's words.
struct PrinterSummary {
    std::string name;
    std::string address;
    std::string port;
    std::string state;
    std::string status;
    bool operator==(const PrinterSummary&) const = default;
};
struct PrintersReply {
    uint32_t id = 0;
    std::vector<PrinterSummary> printers;
    std::optional<uint32_t> next;  // the index to ask from for the rest; none when these were the last
    bool operator==(const PrintersReply&) const = default;
};

// The printer as `langmon status --json` shows it under "printer".
struct StatusReply {
    uint32_t id = 0;
    nlohmann::json printer = nlohmann::json::object();
    bool operator==(const StatusReply&) const = default;
};

struct OpenedReply {
    uint32_t id = 0;
    uint32_t handle = 0;
    bool operator==(const OpenedReply&) const = default;
};
struct OkReply {
    uint32_t id = 0;
    bool operator==(const OkReply&) const = default;
};
struct ValueReply {
    uint32_t id = 0;
    std::vector<uint8_t> value;
    bool operator==(const ValueReply&) const = default;
};
struct WatchingReply {
    uint32_t id = 0;
    uint32_t watch = 0;
    bool operator==(const WatchingReply&) const = default;
};

struct JobStartedReply {
    uint32_t id = 0;
    uint32_t job = 0;
    bool operator==(const JobStartedReply&) const = default;
};
// The printer's report of the job's end: the pages it printed; none when
// it did not report the end in time.
struct JobEndedReply {
    uint32_t id = 0;
    std::optional<uint32_t> pages;
    bool operator==(const JobEndedReply&) const = default;
};

// A watched variable changed; it comes whenever it happens, between replies.
struct ChangedEvent {
    uint32_t handle = 0;
    uint32_t watch = 0;
    std::string name;
    bool operator==(const ChangedEvent&) const = default;
};

// Everything the daemon sends.
using DaemonMessage = std::variant<HelloReply, PrintersReply, StatusReply, OpenedReply, OkReply, ValueReply,
                                   WatchingReply, ErrorReply, ChangedEvent, JobStartedReply, JobEndedReply>;

// ---------------------------------------------------------------- reading and writing

// The daemon's side: a message from a client, checked field by field. A
// hello of another version is refused with ErrorCode::Version. Fields that
// are not part of a message are ignored.
bool ParseRequest(const nlohmann::json& message, Request* request, ErrorReply* error);

// The client's side: a message from the daemon, checked as strictly. `why`
// says what was wrong, for the client's log.
bool ParseDaemonMessage(const nlohmann::json& message, DaemonMessage* parsed, std::string* why);

// The messages as JSON, ready for EncodeFrame. What ParseRequest or
// ParseDaemonMessage gives back, written again, reads back the same.
nlohmann::json ToJson(const Request& request);
nlohmann::json ToJson(const DaemonMessage& message);

// ---------------------------------------------------------------- values

// A value's bytes as lowercase hex, two digits a byte.
std::string ToHex(std::span<const uint8_t> bytes);
// Lowercase hex of even length only; false (and `bytes` untouched) otherwise.
bool FromHex(std::string_view hex, std::vector<uint8_t>* bytes);

// The name rules, for the daemon's configuration and the client's calls to
// check before they send: a printer name is 1..255 bytes without control
// characters; a variable name 1..64 bytes of printable ASCII.
bool IsValidPrinterName(std::string_view name);
bool IsValidVariableName(std::string_view name);

}  // namespace langmon::protocol
