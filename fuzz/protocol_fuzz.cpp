// The control socket's byte stream, as either side of it reads one: cut into
// frames by a FrameReader fed in pieces of the size the first byte chooses
// (a socket hands over whatever it has), every message read as a request and
// as a daemon message. The reader must never hold more than one frame; what
// a side accepts, written again, must frame and read back the same; and the
// error the daemon answers a refused request with must be one a client reads.

#include "daemon/status_protocol.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using namespace langmon::protocol;
using nlohmann::json;

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "protocol: %s\n", what);
    std::abort();
}

// A message written again, through a frame and a fresh reader.
json Reframed(const json& message, bool mayBeTooBig) {
    const std::string frame = EncodeFrame(message);
    if (frame.empty()) {
        if (!mayBeTooBig) Fail("an accepted message does not frame again");
        return json(json::value_t::discarded);
    }
    FrameReader reader;
    if (reader.Feed(frame.data(), frame.size()) != frame.size()) Fail("a frame is not taken whole");
    json again;
    FrameError error = FrameError::None;
    if (reader.Next(&again, &error) != FrameStatus::Message) Fail("a frame of ours is refused");
    return again;
}

void CheckRequest(const json& message) {
    Request request;
    ErrorReply error;
    if (ParseRequest(message, &request, &error)) {
        Request again;
        if (!ParseRequest(Reframed(ToJson(request), false), &again, &error) || !(again == request)) {
            Fail("a request written again reads back otherwise");
        }
        return;
    }
    DaemonMessage reply;
    std::string why;
    if (!ParseDaemonMessage(Reframed(ToJson(DaemonMessage{error}), false), &reply, &why) ||
        !(reply == DaemonMessage{error})) {
        Fail("the error for a refused request is not one a client reads");
    }
}

void CheckDaemonMessage(const json& message) {
    DaemonMessage parsed;
    std::string why;
    if (!ParseDaemonMessage(message, &parsed, &why)) {
        if (why.empty()) Fail("a refusal without words");
        return;
    }
    // A status document's numbers may come back longer (1e2 is 100.0), so
    // only it may grow past the limit.
    const json again = Reframed(ToJson(parsed), std::holds_alternative<StatusReply>(parsed));
    if (again.is_discarded()) return;
    DaemonMessage reread;
    if (!ParseDaemonMessage(again, &reread, &why) || !(reread == parsed)) {
        Fail("a daemon message written again reads back otherwise");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    // 0 feeds everything at once; otherwise pieces of 1 to 255 bytes.
    const std::size_t piece = data[0] == 0 ? size : data[0];
    const char* bytes = reinterpret_cast<const char*>(data + 1);
    std::size_t left = size - 1;

    FrameReader reader;
    bool failed = false;
    while (left > 0 && !failed) {
        const std::size_t offered = std::min(piece, left);
        const std::size_t taken = reader.Feed(bytes, offered);
        if (taken > offered) Fail("Feed took more than it was given");
        if (reader.Buffered() > FrameHeaderBytes + MaxMessageBytes) Fail("the reader holds more than a frame");
        bytes += taken;
        left -= taken;
        for (;;) {
            json message;
            FrameError error = FrameError::None;
            const FrameStatus status = reader.Next(&message, &error);
            if (status == FrameStatus::Incomplete) break;
            if (status == FrameStatus::Failed) {
                if (error == FrameError::None) Fail("a failure without its error");
                failed = true;
                break;
            }
            if (!message.is_object()) Fail("a message that is not an object");
            CheckRequest(message);
            CheckDaemonMessage(message);
        }
        if (taken == 0 && !failed && reader.Buffered() < FrameHeaderBytes) Fail("Feed took nothing from an empty reader");
    }
    if (failed) {
        // Failed stays failed, and takes whatever comes.
        const std::string more = EncodeFrame(json{{"type", "ok"}, {"id", 1}});
        json message;
        FrameError error = FrameError::None;
        if (reader.Feed(more.data(), more.size()) != more.size() ||
            reader.Next(&message, &error) != FrameStatus::Failed) {
            Fail("a failed reader reads again");
        }
    }
    return 0;
}
