#include "daemon/status_protocol.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <utility>

namespace langmon::protocol {

using nlohmann::json;

std::string SocketPath() {
    const char* path = std::getenv(SocketPathVariable);
    return path != nullptr && *path != '\0' ? std::string(path) : std::string(DefaultSocketPath);
}

// ---------------------------------------------------------------- errors

namespace {

struct ErrorCodeRow {
    ErrorCode code;
    std::string_view word;
    bool closes;
};

// In the order of ErrorCode, so that a code is its row's index.
constexpr std::array<ErrorCodeRow, 10> ErrorCodes = {{
    {ErrorCode::BadMessage, "bad-message", true},
    {ErrorCode::TooBig, "too-big", true},
    {ErrorCode::Version, "version", true},
    {ErrorCode::UnknownPrinter, "unknown-printer", false},
    {ErrorCode::BadHandle, "bad-handle", false},
    {ErrorCode::NoVariable, "no-variable", false},
    {ErrorCode::Denied, "denied", false},
    {ErrorCode::Limit, "limit", false},
    {ErrorCode::Failed, "failed", false},
    {ErrorCode::Busy, "busy", false},
}};

constexpr bool ErrorCodesInOrder() {
    for (std::size_t i = 0; i < ErrorCodes.size(); ++i) {
        if (static_cast<std::size_t>(ErrorCodes[i].code) != i) return false;
    }
    return true;
}
static_assert(ErrorCodesInOrder(), "ErrorCodes must list the codes in the order of ErrorCode");

}  // namespace

std::string_view ErrorCodeWord(ErrorCode code) { return ErrorCodes[static_cast<std::size_t>(code)].word; }

bool ParseErrorCode(std::string_view word, ErrorCode* code) {
    for (const ErrorCodeRow& row : ErrorCodes) {
        if (row.word == word) {
            *code = row.code;
            return true;
        }
    }
    return false;
}

bool ErrorClosesConnection(ErrorCode code) { return ErrorCodes[static_cast<std::size_t>(code)].closes; }

// ---------------------------------------------------------------- frames

std::string EncodeFrame(const json& message) {
    try {
        const std::string body = message.dump(-1, ' ', false, json::error_handler_t::replace);
        if (body.empty() || body.size() > MaxMessageBytes) return {};
        std::string frame;
        frame.reserve(FrameHeaderBytes + body.size());
        const auto length = static_cast<uint32_t>(body.size());
        frame += static_cast<char>((length >> 24) & 0xFF);
        frame += static_cast<char>((length >> 16) & 0xFF);
        frame += static_cast<char>((length >> 8) & 0xFF);
        frame += static_cast<char>(length & 0xFF);
        frame += body;
        return frame;
    } catch (...) {
        return {};
    }
}

namespace {

uint32_t FrameLength(std::string_view header) {
    return static_cast<uint32_t>(static_cast<uint8_t>(header[0])) << 24 |
           static_cast<uint32_t>(static_cast<uint8_t>(header[1])) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(header[2])) << 8 |
           static_cast<uint32_t>(static_cast<uint8_t>(header[3]));
}

// One message's JSON, refused (discarded) when it is not JSON or nests too
// deep; the depth is watched while parsing, before anything walks the result.
json ParseBody(std::string_view body) {
    bool tooDeep = false;
    const json::parser_callback_t watchDepth = [&tooDeep](int depth, json::parse_event_t, json&) {
        if (depth > MaxNestingDepth) tooDeep = true;
        return !tooDeep;
    };
    json parsed = json::parse(body.begin(), body.end(), watchDepth, false);
    if (tooDeep) return json(json::value_t::discarded);
    return parsed;
}

}  // namespace

std::size_t FrameReader::FrameBytes() const {
    if (buffer_.size() < FrameHeaderBytes) return FrameHeaderBytes;
    return FrameHeaderBytes + FrameLength(buffer_);
}

std::size_t FrameReader::Feed(const char* data, std::size_t size) {
    if (Failed()) return size;
    try {
        std::size_t taken = 0;
        while (taken < size) {
            const std::size_t wanted = FrameBytes();
            if (buffer_.size() >= wanted) break;  // a whole frame waits for Next
            const std::size_t part = std::min(wanted - buffer_.size(), size - taken);
            buffer_.append(data + taken, part);
            taken += part;
            if (buffer_.size() == FrameHeaderBytes) {
                // The length is judged before a byte of the body is kept.
                const uint32_t length = FrameLength(buffer_);
                if (length == 0 || length > MaxMessageBytes) {
                    error_ = length == 0 ? FrameError::BadMessage : FrameError::TooBig;
                    std::string().swap(buffer_);
                    return size;
                }
            }
        }
        return taken;
    } catch (...) {
        error_ = FrameError::BadMessage;
        std::string().swap(buffer_);
        return size;
    }
}

FrameStatus FrameReader::Next(json* message, FrameError* error) {
    if (!Failed()) {
        if (buffer_.size() < FrameHeaderBytes || buffer_.size() < FrameBytes()) return FrameStatus::Incomplete;
        try {
            json parsed = ParseBody(std::string_view(buffer_).substr(FrameHeaderBytes));
            buffer_.clear();
            if (!parsed.is_discarded() && parsed.is_object()) {
                *message = std::move(parsed);
                return FrameStatus::Message;
            }
        } catch (...) {
        }
        error_ = FrameError::BadMessage;
        std::string().swap(buffer_);
    }
    *error = error_;
    return FrameStatus::Failed;
}

// ---------------------------------------------------------------- names and values

namespace {

// No C0 control, DEL, or C1 control (U+0080..U+009F, C2 80..C2 9F in UTF-8):
// the names end up in logs and on terminals.
bool HasNoControlCharacters(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<uint8_t>(text[i]);
        if (byte < 0x20 || byte == 0x7F) return false;
        if (byte == 0xC2 && i + 1 < text.size()) {
            const auto next = static_cast<uint8_t>(text[i + 1]);
            if (next >= 0x80 && next <= 0x9F) return false;
        }
    }
    return true;
}

}  // namespace

bool IsValidPrinterName(std::string_view name) {
    return !name.empty() && name.size() <= MaxPrinterNameBytes && HasNoControlCharacters(name);
}

bool IsValidVariableName(std::string_view name) {
    return !name.empty() && name.size() <= MaxVariableNameBytes &&
           std::all_of(name.begin(), name.end(), [](char c) { return c >= 0x20 && c <= 0x7E; });
}

std::string ToHex(std::span<const uint8_t> bytes) {
    static constexpr char Digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        hex += Digits[byte >> 4];
        hex += Digits[byte & 0x0F];
    }
    return hex;
}

bool FromHex(std::string_view hex, std::vector<uint8_t>* bytes) {
    if (hex.size() % 2 != 0) return false;
    const auto digit = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        return -1;
    };
    std::vector<uint8_t> decoded;
    decoded.reserve(hex.size() / 2);
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const int high = digit(hex[i]);
        const int low = digit(hex[i + 1]);
        if (high < 0 || low < 0) return false;
        decoded.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    *bytes = std::move(decoded);
    return true;
}

// ---------------------------------------------------------------- fields

namespace {

// The fields of one message, read with their checks; the first refusal
// leaves its words in `why`.
class Fields {
public:
    Fields(const json& object, std::string* why) : object_(object), why_(why) {}

    bool Has(const char* key) const { return object_.contains(key); }

    // An integer from `least` to 4294967295.
    bool Number(const char* key, uint32_t least, uint32_t* out) {
        const json* value = Find(key);
        if (value == nullptr) return false;
        const uint64_t most = std::numeric_limits<uint32_t>::max();
        bool fits = false;
        uint64_t number = 0;
        if (value->is_number_unsigned()) {
            number = value->get<uint64_t>();
            fits = number >= least && number <= most;
        } else if (value->is_number_integer()) {
            const int64_t signedNumber = value->get<int64_t>();
            number = static_cast<uint64_t>(signedNumber);
            fits = signedNumber >= static_cast<int64_t>(least) && number <= most;
        }
        if (!fits) {
            return Refuse(Quoted(key) + " must be an integer from " + std::to_string(least) + " to 4294967295");
        }
        *out = static_cast<uint32_t>(number);
        return true;
    }

    // A text that `valid` accepts; `rule` says what it must be.
    bool Text(const char* key, bool (*valid)(std::string_view), const char* rule, std::string* out) {
        const json* value = Find(key);
        if (value == nullptr) return false;
        if (!value->is_string() || !valid(value->get_ref<const std::string&>())) {
            return Refuse(Quoted(key) + " must be " + rule);
        }
        *out = value->get_ref<const std::string&>();
        return true;
    }

    bool PrinterName(const char* key, std::string* out) {
        return Text(key, IsValidPrinterName, "a printer name of 1 to 255 bytes without control characters", out);
    }

    bool VariableName(const char* key, std::string* out) {
        return Text(key, IsValidVariableName, "a variable name of 1 to 64 bytes of printable ASCII", out);
    }

    // Lowercase hex of at most `most` bytes (MaxValueBytes and MaxDataBytes are both 16384).
    bool Value(const char* key, std::vector<uint8_t>* out, std::size_t most = MaxValueBytes) {
        const json* value = Find(key);
        if (value == nullptr) return false;
        if (!value->is_string() || value->get_ref<const std::string&>().size() > 2 * most ||
            !FromHex(value->get_ref<const std::string&>(), out)) {
            return Refuse(Quoted(key) + " must be lowercase hex of at most " + std::to_string(most) + " bytes");
        }
        return true;
    }

    const json* Find(const char* key) {
        const auto found = object_.find(key);
        if (found == object_.end()) {
            Refuse("no " + Quoted(key));
            return nullptr;
        }
        return &*found;
    }

    bool Refuse(std::string words) {
        *why_ = std::move(words);
        return false;
    }

private:
    static std::string Quoted(const char* key) { return std::string("\"") + key + "\""; }

    const json& object_;
    std::string* why_;
};

bool IsClientText(std::string_view text) {
    return text.size() <= MaxClientTextBytes && HasNoControlCharacters(text);
}

bool IsDaemonText(std::string_view text) { return text.size() <= MaxDaemonTextBytes; }

bool IsAnyText(std::string_view) { return true; }

// A peer's text quoted back in an error, cut short on a character's
// boundary so that the error stays UTF-8.
std::string Shortened(std::string_view text) {
    constexpr std::size_t Most = 64;
    if (text.size() <= Most) return std::string(text);
    std::size_t end = Most;
    while (end > 0 && (static_cast<uint8_t>(text[end]) & 0xC0) == 0x80) --end;
    return std::string(text.substr(0, end)) + "...";
}

// ---------------------------------------------------------------- requests

using RequestReader = bool (*)(Fields&, uint32_t id, Request*);

bool ReadHello(Fields& fields, uint32_t id, Request* request) {
    HelloRequest hello{id, 0, {}};
    if (!fields.Number("version", 0, &hello.version) ||
        !fields.Text("client", IsClientText, "a text of at most 255 bytes without control characters",
                     &hello.client)) {
        return false;
    }
    *request = std::move(hello);
    return true;
}

bool ReadPrinters(Fields& fields, uint32_t id, Request* request) {
    PrintersRequest printers{id, 0};
    if (fields.Has("from") && !fields.Number("from", 0, &printers.from)) return false;
    *request = printers;
    return true;
}

bool ReadStatus(Fields& fields, uint32_t id, Request* request) {
    StatusRequest status{id, {}};
    if (!fields.PrinterName("printer", &status.printer)) return false;
    *request = std::move(status);
    return true;
}

bool ReadOpen(Fields& fields, uint32_t id, Request* request) {
    OpenRequest open{id, {}};
    if (!fields.PrinterName("printer", &open.printer)) return false;
    *request = std::move(open);
    return true;
}

bool ReadClose(Fields& fields, uint32_t id, Request* request) {
    CloseRequest close{id, 0};
    if (!fields.Number("handle", 1, &close.handle)) return false;
    *request = close;
    return true;
}

bool ReadGet(Fields& fields, uint32_t id, Request* request) {
    GetRequest get{id, 0, {}};
    if (!fields.Number("handle", 1, &get.handle) || !fields.VariableName("name", &get.name)) return false;
    *request = std::move(get);
    return true;
}

bool ReadSet(Fields& fields, uint32_t id, Request* request) {
    SetRequest set{id, 0, {}, {}};
    if (!fields.Number("handle", 1, &set.handle) || !fields.VariableName("name", &set.name) ||
        !fields.Value("value", &set.value)) {
        return false;
    }
    *request = std::move(set);
    return true;
}

bool ReadWatch(Fields& fields, uint32_t id, Request* request) {
    WatchRequest watch{id, 0, {}};
    if (!fields.Number("handle", 1, &watch.handle)) return false;
    const json* names = fields.Find("names");
    if (names == nullptr) return false;
    if (!names->is_array() || names->empty() || names->size() > MaxWatchNames) {
        return fields.Refuse("\"names\" must be a list of 1 to 64 variable names");
    }
    for (const json& name : *names) {
        if (!name.is_string() || !IsValidVariableName(name.get_ref<const std::string&>())) {
            return fields.Refuse("\"names\" must hold variable names of 1 to 64 bytes of printable ASCII");
        }
        watch.names.push_back(name.get_ref<const std::string&>());
    }
    *request = std::move(watch);
    return true;
}

bool ReadUnwatch(Fields& fields, uint32_t id, Request* request) {
    UnwatchRequest unwatch{id, 0, 0};
    if (!fields.Number("handle", 1, &unwatch.handle) || !fields.Number("watch", 1, &unwatch.watch)) return false;
    *request = unwatch;
    return true;
}

bool ReadJob(Fields& fields, uint32_t id, Request* request) {
    JobRequest job{id, {}, {}, {}};
    const char* rule = "a text of at most 255 bytes without control characters";
    if (!fields.PrinterName("printer", &job.printer) || !fields.Text("document", IsClientText, rule, &job.document) ||
        !fields.Text("user", IsClientText, rule, &job.user)) {
        return false;
    }
    *request = std::move(job);
    return true;
}

bool ReadData(Fields& fields, uint32_t id, Request* request) {
    DataRequest data{id, 0, {}};
    if (!fields.Number("job", 1, &data.job) || !fields.Value("bytes", &data.bytes, MaxDataBytes)) return false;
    *request = std::move(data);
    return true;
}

bool ReadEndJob(Fields& fields, uint32_t id, Request* request) {
    EndJobRequest end{id, 0};
    if (!fields.Number("job", 1, &end.job)) return false;
    *request = end;
    return true;
}

bool ReadCancelJob(Fields& fields, uint32_t id, Request* request) {
    CancelJobRequest cancel{id, 0};
    if (!fields.Number("job", 1, &cancel.job)) return false;
    *request = cancel;
    return true;
}

struct RequestRow {
    std::string_view type;
    RequestReader read;
};

constexpr RequestRow RequestRows[] = {
    {"hello", ReadHello},    {"printers", ReadPrinters}, {"status", ReadStatus},
    {"open", ReadOpen},      {"close", ReadClose},       {"get", ReadGet},
    {"set", ReadSet},        {"watch", ReadWatch},       {"unwatch", ReadUnwatch},
    {"job", ReadJob},        {"data", ReadData},         {"end-job", ReadEndJob},
    {"cancel-job", ReadCancelJob},
};

bool ReadRequest(const json& message, Request* request, ErrorReply* error) {
    error->id.reset();
    error->code = ErrorCode::BadMessage;
    if (!message.is_object()) {
        error->message = "a message must be a JSON object";
        return false;
    }
    Fields fields(message, &error->message);
    // The id first, so that every later refusal can name the request.
    uint32_t id = 0;
    const bool hasId = fields.Has("id") && fields.Number("id", 0, &id);
    if (hasId) error->id = id;
    std::string type;
    if (!fields.Text("type", IsAnyText, "a text", &type)) return false;
    const auto row = std::find_if(std::begin(RequestRows), std::end(RequestRows),
                                  [&](const RequestRow& r) { return r.type == type; });
    if (row == std::end(RequestRows)) {
        error->message = "no request is called \"" + Shortened(type) + "\"";
        return false;
    }
    if (!hasId) {
        if (!fields.Has("id")) error->message = "a request must have an \"id\"";
        return false;
    }
    if (!row->read(fields, id, request)) return false;
    if (const auto* hello = std::get_if<HelloRequest>(request); hello != nullptr && hello->version != Version) {
        error->code = ErrorCode::Version;
        error->message = "this daemon speaks version " + std::to_string(Version) + " only";
        return false;
    }
    return true;
}

// ---------------------------------------------------------------- daemon messages

using DaemonReader = bool (*)(Fields&, const json& message, DaemonMessage*);

bool ReadId(Fields& fields, uint32_t* id) { return fields.Number("id", 0, id); }

bool ReadHelloReply(Fields& fields, const json&, DaemonMessage* parsed) {
    HelloReply hello{0, 0, {}, 0};
    if (!ReadId(fields, &hello.id) || !fields.Number("version", 0, &hello.version) ||
        !fields.Text("daemon", IsDaemonText, "a text of at most 255 bytes", &hello.daemon) ||
        !fields.Number("printers", 0, &hello.printers)) {
        return false;
    }
    *parsed = std::move(hello);
    return true;
}

bool ReadPrintersReply(Fields& fields, const json&, DaemonMessage* parsed) {
    PrintersReply reply;
    if (!ReadId(fields, &reply.id)) return false;
    const json* printers = fields.Find("printers");
    if (printers == nullptr) return false;
    if (!printers->is_array()) return fields.Refuse("\"printers\" must be a list");
    for (const json& printer : *printers) {
        if (!printer.is_object()) return fields.Refuse("\"printers\" must hold objects");
        std::string why;
        Fields entry(printer, &why);
        PrinterSummary summary;
        if (!entry.PrinterName("name", &summary.name) ||
            !entry.Text("address", IsAnyText, "a text", &summary.address) ||
            !entry.Text("port", IsAnyText, "a text", &summary.port) ||
            !entry.Text("state", IsAnyText, "a text", &summary.state) ||
            !entry.Text("status", IsAnyText, "a text", &summary.status)) {
            return fields.Refuse("a printer of \"printers\": " + why);
        }
        reply.printers.push_back(std::move(summary));
    }
    if (fields.Has("next")) {
        uint32_t next = 0;
        if (!fields.Number("next", 1, &next)) return false;
        reply.next = next;
    }
    *parsed = std::move(reply);
    return true;
}

bool ReadStatusReply(Fields& fields, const json&, DaemonMessage* parsed) {
    StatusReply reply;
    if (!ReadId(fields, &reply.id)) return false;
    const json* printer = fields.Find("printer");
    if (printer == nullptr) return false;
    if (!printer->is_object()) return fields.Refuse("\"printer\" must be an object");
    reply.printer = *printer;
    *parsed = std::move(reply);
    return true;
}

bool ReadOpenedReply(Fields& fields, const json&, DaemonMessage* parsed) {
    OpenedReply reply{0, 0};
    if (!ReadId(fields, &reply.id) || !fields.Number("handle", 1, &reply.handle)) return false;
    *parsed = reply;
    return true;
}

bool ReadOkReply(Fields& fields, const json&, DaemonMessage* parsed) {
    OkReply reply{0};
    if (!ReadId(fields, &reply.id)) return false;
    *parsed = reply;
    return true;
}

bool ReadValueReply(Fields& fields, const json&, DaemonMessage* parsed) {
    ValueReply reply;
    if (!ReadId(fields, &reply.id) || !fields.Value("value", &reply.value)) return false;
    *parsed = std::move(reply);
    return true;
}

bool ReadWatchingReply(Fields& fields, const json&, DaemonMessage* parsed) {
    WatchingReply reply{0, 0};
    if (!ReadId(fields, &reply.id) || !fields.Number("watch", 1, &reply.watch)) return false;
    *parsed = reply;
    return true;
}

bool ReadErrorReply(Fields& fields, const json&, DaemonMessage* parsed) {
    ErrorReply reply;
    if (fields.Has("id")) {
        uint32_t id = 0;
        if (!ReadId(fields, &id)) return false;
        reply.id = id;
    }
    std::string code;
    if (!fields.Text("code", IsAnyText, "a text", &code)) return false;
    if (!ParseErrorCode(code, &reply.code)) return fields.Refuse("no error is called \"" + Shortened(code) + "\"");
    if (!fields.Text("message", IsAnyText, "a text", &reply.message)) return false;
    *parsed = std::move(reply);
    return true;
}

bool ReadChangedEvent(Fields& fields, const json&, DaemonMessage* parsed) {
    ChangedEvent event;
    if (!fields.Number("handle", 1, &event.handle) || !fields.Number("watch", 1, &event.watch) ||
        !fields.VariableName("name", &event.name)) {
        return false;
    }
    *parsed = std::move(event);
    return true;
}

bool ReadJobStartedReply(Fields& fields, const json&, DaemonMessage* parsed) {
    JobStartedReply reply{0, 0};
    if (!ReadId(fields, &reply.id) || !fields.Number("job", 1, &reply.job)) return false;
    *parsed = reply;
    return true;
}

bool ReadJobEndedReply(Fields& fields, const json&, DaemonMessage* parsed) {
    JobEndedReply reply{0, std::nullopt};
    if (!ReadId(fields, &reply.id)) return false;
    // null when the printer did not report the job's end in time.
    const json* pages = fields.Find("pages");
    if (pages == nullptr) return false;
    if (!pages->is_null()) {
        uint32_t count = 0;
        if (!fields.Number("pages", 0, &count)) return false;
        reply.pages = count;
    }
    *parsed = reply;
    return true;
}

struct DaemonRow {
    std::string_view type;
    DaemonReader read;
};

constexpr DaemonRow DaemonRows[] = {
    {"hello", ReadHelloReply}, {"printers", ReadPrintersReply}, {"status", ReadStatusReply},
    {"opened", ReadOpenedReply}, {"ok", ReadOkReply},           {"value", ReadValueReply},
    {"watching", ReadWatchingReply}, {"error", ReadErrorReply}, {"changed", ReadChangedEvent},
    {"job-started", ReadJobStartedReply}, {"job-ended", ReadJobEndedReply},
};

bool ReadDaemonMessage(const json& message, DaemonMessage* parsed, std::string* why) {
    if (!message.is_object()) {
        *why = "a message must be a JSON object";
        return false;
    }
    Fields fields(message, why);
    std::string type;
    if (!fields.Text("type", IsAnyText, "a text", &type)) return false;
    for (const DaemonRow& row : DaemonRows) {
        if (row.type == type) return row.read(fields, message, parsed);
    }
    *why = "no message is called \"" + Shortened(type) + "\"";
    return false;
}

template <class... Visitors>
struct Overloaded : Visitors... {
    using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

}  // namespace

bool ParseRequest(const json& message, Request* request, ErrorReply* error) {
    try {
        return ReadRequest(message, request, error);
    } catch (...) {
        error->code = ErrorCode::BadMessage;
        error->message = "the request could not be read";
        return false;
    }
}

bool ParseDaemonMessage(const json& message, DaemonMessage* parsed, std::string* why) {
    try {
        return ReadDaemonMessage(message, parsed, why);
    } catch (...) {
        *why = "the message could not be read";
        return false;
    }
}

// ---------------------------------------------------------------- writing

json ToJson(const Request& request) {
    return std::visit(
        Overloaded{
            [](const HelloRequest& r) -> json {
                return {{"type", "hello"}, {"id", r.id}, {"version", r.version}, {"client", r.client}};
            },
            [](const PrintersRequest& r) -> json {
                json message = {{"type", "printers"}, {"id", r.id}};
                if (r.from != 0) message["from"] = r.from;
                return message;
            },
            [](const StatusRequest& r) -> json {
                return {{"type", "status"}, {"id", r.id}, {"printer", r.printer}};
            },
            [](const OpenRequest& r) -> json { return {{"type", "open"}, {"id", r.id}, {"printer", r.printer}}; },
            [](const CloseRequest& r) -> json { return {{"type", "close"}, {"id", r.id}, {"handle", r.handle}}; },
            [](const GetRequest& r) -> json {
                return {{"type", "get"}, {"id", r.id}, {"handle", r.handle}, {"name", r.name}};
            },
            [](const SetRequest& r) -> json {
                return {{"type", "set"}, {"id", r.id}, {"handle", r.handle}, {"name", r.name},
                        {"value", ToHex(r.value)}};
            },
            [](const WatchRequest& r) -> json {
                return {{"type", "watch"}, {"id", r.id}, {"handle", r.handle}, {"names", r.names}};
            },
            [](const UnwatchRequest& r) -> json {
                return {{"type", "unwatch"}, {"id", r.id}, {"handle", r.handle}, {"watch", r.watch}};
            },
            [](const JobRequest& r) -> json {
                return {{"type", "job"}, {"id", r.id}, {"printer", r.printer}, {"document", r.document},
                        {"user", r.user}};
            },
            [](const DataRequest& r) -> json {
                return {{"type", "data"}, {"id", r.id}, {"job", r.job}, {"bytes", ToHex(r.bytes)}};
            },
            [](const EndJobRequest& r) -> json { return {{"type", "end-job"}, {"id", r.id}, {"job", r.job}}; },
            [](const CancelJobRequest& r) -> json { return {{"type", "cancel-job"}, {"id", r.id}, {"job", r.job}}; },
        },
        request);
}

json ToJson(const DaemonMessage& message) {
    return std::visit(
        Overloaded{
            [](const HelloReply& r) -> json {
                return {{"type", "hello"}, {"id", r.id}, {"version", r.version}, {"daemon", r.daemon},
                        {"printers", r.printers}};
            },
            [](const PrintersReply& r) -> json {
                json printers = json::array();
                for (const PrinterSummary& p : r.printers) {
                    printers.push_back({{"name", p.name}, {"address", p.address}, {"port", p.port},
                                        {"state", p.state}, {"status", p.status}});
                }
                json message = {{"type", "printers"}, {"id", r.id}, {"printers", std::move(printers)}};
                if (r.next) message["next"] = *r.next;
                return message;
            },
            [](const StatusReply& r) -> json { return {{"type", "status"}, {"id", r.id}, {"printer", r.printer}}; },
            [](const OpenedReply& r) -> json { return {{"type", "opened"}, {"id", r.id}, {"handle", r.handle}}; },
            [](const OkReply& r) -> json { return {{"type", "ok"}, {"id", r.id}}; },
            [](const ValueReply& r) -> json { return {{"type", "value"}, {"id", r.id}, {"value", ToHex(r.value)}}; },
            [](const WatchingReply& r) -> json { return {{"type", "watching"}, {"id", r.id}, {"watch", r.watch}}; },
            [](const ErrorReply& r) -> json {
                json error = {{"type", "error"}, {"code", ErrorCodeWord(r.code)}, {"message", r.message}};
                if (r.id) error["id"] = *r.id;
                return error;
            },
            [](const ChangedEvent& r) -> json {
                return {{"type", "changed"}, {"handle", r.handle}, {"watch", r.watch}, {"name", r.name}};
            },
            [](const JobStartedReply& r) -> json { return {{"type", "job-started"}, {"id", r.id}, {"job", r.job}}; },
            [](const JobEndedReply& r) -> json {
                return {{"type", "job-ended"}, {"id", r.id}, {"pages", r.pages ? json(*r.pages) : json(nullptr)}};
            },
        },
        message);
}

}  // namespace langmon::protocol
