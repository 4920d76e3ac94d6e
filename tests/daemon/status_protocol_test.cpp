// The control socket's protocol as both of its sides read it: frames cut
// from a stream however it arrives, and every message checked field by field
// against the documented types and limits, just inside and just over each.

#include "daemon/job_stream.h"
#include "daemon/status_protocol.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace langmon::protocol {
namespace {

using nlohmann::json;

std::string Frame(const std::string& body) {
    const auto n = static_cast<uint32_t>(body.size());
    return std::string{char(n >> 24), char(n >> 16 & 0xFF), char(n >> 8 & 0xFF), char(n & 0xFF)} + body;
}

// What a fresh reader makes of `bytes` fed at once: the error, or None with
// the message.
FrameError ReadOne(const std::string& bytes, json* message = nullptr) {
    FrameReader reader;
    EXPECT_EQ(reader.Feed(bytes.data(), bytes.size()), bytes.size());
    json got;
    FrameError error = FrameError::None;
    const FrameStatus status = reader.Next(&got, &error);
    if (status == FrameStatus::Message && message != nullptr) *message = got;
    EXPECT_NE(status, FrameStatus::Incomplete) << bytes.substr(0, 40);
    EXPECT_LE(reader.Buffered(), FrameHeaderBytes + MaxMessageBytes);
    return status == FrameStatus::Message ? FrameError::None : error;
}

TEST(StatusProtocol, FramesAreCutFromAnyStreamAndBadOnesRefusedWithoutBuffering) {
    // Length, big-endian, then the compact JSON.
    const json ok = {{"type", "ok"}, {"id", 7}};
    EXPECT_EQ(EncodeFrame(ok), std::string("\0\0\0\x14", 4) + R"({"id":7,"type":"ok"})");

    // Two frames byte by byte: each byte is taken, each message comes whole.
    const json changed = ToJson(DaemonMessage{ChangedEvent{3, 9, "PrinterStatus"}});
    const std::string stream = EncodeFrame(ok) + EncodeFrame(changed);
    FrameReader reader;
    std::vector<json> messages;
    for (char byte : stream) {
        ASSERT_EQ(reader.Feed(&byte, 1), 1u);
        json message;
        FrameError error = FrameError::None;
        if (reader.Next(&message, &error) == FrameStatus::Message) messages.push_back(message);
    }
    EXPECT_EQ(messages, (std::vector<json>{ok, changed}));

    // At once: the reader takes one frame only, the caller feeds the rest.
    FrameReader whole;
    const std::size_t first = whole.Feed(stream.data(), stream.size());
    EXPECT_EQ(first, EncodeFrame(ok).size());
    json message;
    FrameError error = FrameError::None;
    ASSERT_EQ(whole.Next(&message, &error), FrameStatus::Message);
    EXPECT_EQ(message, ok);
    EXPECT_EQ(whole.Next(&message, &error), FrameStatus::Incomplete);
    EXPECT_EQ(whole.Feed(stream.data() + first, stream.size() - first), stream.size() - first);
    ASSERT_EQ(whole.Next(&message, &error), FrameStatus::Message);
    EXPECT_EQ(message, changed);

    // The limit, exactly, both ways: {"v":"…"} is the text and 8 bytes.
    const json largest = {{"v", std::string(MaxMessageBytes - 8, 'x')}};
    ASSERT_EQ(EncodeFrame(largest).size(), FrameHeaderBytes + MaxMessageBytes);
    EXPECT_EQ(ReadOne(EncodeFrame(largest), &message), FrameError::None);
    EXPECT_EQ(message, largest);
    EXPECT_EQ(EncodeFrame({{"v", std::string(MaxMessageBytes - 7, 'x')}}), "");

    // A length over the limit is refused on its four bytes, the body never kept.
    FrameReader big;
    const std::string tooBig = std::string("\0\x01\0\x01", 4) + std::string(100, '{');
    EXPECT_EQ(big.Feed(tooBig.data(), tooBig.size()), tooBig.size());
    EXPECT_EQ(big.Buffered(), 0u);
    EXPECT_EQ(big.Next(&message, &error), FrameStatus::Failed);
    EXPECT_EQ(error, FrameError::TooBig);
    // Failed stays failed, whatever comes next.
    const std::string good = EncodeFrame(ok);
    EXPECT_EQ(big.Feed(good.data(), good.size()), good.size());
    EXPECT_EQ(big.Next(&message, &error), FrameStatus::Failed);
    EXPECT_EQ(ReadOne(std::string("\xff\xff\xff\xff", 4)), FrameError::TooBig);

    EXPECT_EQ(ReadOne(std::string(4, '\0') + "{}"), FrameError::BadMessage);
    EXPECT_EQ(ReadOne(Frame("{\"type\":")), FrameError::BadMessage);
    EXPECT_EQ(ReadOne(Frame("[1,2]")), FrameError::BadMessage);
    EXPECT_EQ(ReadOne(Frame("{\"a\":1} {}")), FrameError::BadMessage);
    EXPECT_EQ(ReadOne(Frame("{\"a\":\"\xff\"}")), FrameError::BadMessage);
    // Nesting: 32 levels inside the message's object, and one more.
    EXPECT_EQ(ReadOne(Frame("{\"a\":" + std::string(32, '[') + std::string(32, ']') + "}")), FrameError::None);
    EXPECT_EQ(ReadOne(Frame("{\"a\":" + std::string(33, '[') + std::string(33, ']') + "}")), FrameError::BadMessage);
}

std::string Hex(std::size_t bytes) { return std::string(2 * bytes, 'a'); }
std::vector<std::string> NameList(std::size_t count) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i) names.push_back("V" + std::to_string(i));
    return names;
}
std::string Names(std::size_t count) { return json(NameList(count)).dump(); }

TEST(StatusProtocol, RequestsAreTypedOrRefusedWithTheirIdAndCode) {
    const std::string p255(255, 'P'), n64(64, 'N');
    struct Case {
        std::string text;
        std::optional<Request> request;  // else refused:
        ErrorCode code = ErrorCode::BadMessage;
        std::optional<uint32_t> id = 1;
    };
    const std::vector<Case> cases = {
        {R"({"type":"hello","id":1,"version":1,"client":"langmon status","extra":[1]})",
         HelloRequest{1, 1, "langmon status"}},
        {R"({"type":"hello","id":1,"version":1,"client":")" + std::string(255, 'c') + "\"}",
         HelloRequest{1, 1, std::string(255, 'c')}},
        {R"({"type":"hello","id":1,"version":1,"client":")" + std::string(256, 'c') + "\"}", {}},
        {R"({"type":"hello","id":1,"version":2,"client":""})", {}, ErrorCode::Version},
        {R"({"type":"hello","id":1,"version":"1","client":""})", {}},
        {R"({"type":"printers","id":4294967295})", PrintersRequest{4294967295u}},
        {R"({"type":"printers","id":1,"from":300})", PrintersRequest{1, 300}},
        {R"({"type":"printers","id":1,"from":-1})", {}, ErrorCode::BadMessage, 1u},
        {R"({"type":"printers","id":4294967296})", {}, ErrorCode::BadMessage, std::nullopt},
        {R"({"type":"printers","id":-1})", {}, ErrorCode::BadMessage, std::nullopt},
        {R"({"type":"printers","id":1.0})", {}, ErrorCode::BadMessage, std::nullopt},
        {R"({"type":"printers","id":"1"})", {}, ErrorCode::BadMessage, std::nullopt},
        {R"({"type":"printers"})", {}, ErrorCode::BadMessage, std::nullopt},
        {R"({"type":"reboot","id":1})", {}},
        {R"({"id":1})", {}},
        {R"({"type":"status","id":1,"printer":"Quor CL6200 \u00e9"})", StatusRequest{1, "Quor CL6200 \xc3\xa9"}},
        {R"({"type":"status","id":1,"printer":"a\u0085b"})", {}},
        {R"({"type":"status","id":1,"printer":""})", {}},
        {R"({"type":"status","id":1,"printer":7})", {}},
        {R"({"type":"open","id":1,"printer":")" + p255 + "\"}", OpenRequest{1, p255}},
        {R"({"type":"open","id":1,"printer":")" + p255 + "P\"}", {}},
        {R"({"type":"close","id":1,"handle":1})", CloseRequest{1, 1}},
        {R"({"type":"close","id":1,"handle":0})", {}},
        {R"({"type":"get","id":1,"handle":2,"name":")" + n64 + "\"}", GetRequest{1, 2, n64}},
        {R"({"type":"get","id":1,"handle":2,"name":")" + n64 + "N\"}", {}},
        {R"({"type":"get","id":1,"handle":2,"name":"Wake\tUp"})", {}},
        {R"({"type":"get","id":1,"handle":2})", {}},
        {R"({"type":"set","id":1,"handle":2,"name":"RefreshStatus","value":"00ff1a"})",
         SetRequest{1, 2, "RefreshStatus", {0x00, 0xff, 0x1a}}},
        {R"({"type":"set","id":1,"handle":2,"name":"V","value":")" + Hex(MaxValueBytes) + "\"}",
         SetRequest{1, 2, "V", std::vector<uint8_t>(MaxValueBytes, 0xaa)}},
        {R"({"type":"set","id":1,"handle":2,"name":"V","value":")" + Hex(MaxValueBytes + 1) + "\"}", {}},
        {R"({"type":"set","id":1,"handle":2,"name":"V","value":"00FF"})", {}},
        {R"({"type":"set","id":1,"handle":2,"name":"V","value":"abc"})", {}},
        {R"({"type":"set","id":1,"handle":2,"name":"V","value":[0]})", {}},
        {R"({"type":"watch","id":1,"handle":2,"names":)" + Names(64) + "}",
         WatchRequest{1, 2, NameList(MaxWatchNames)}},
        {R"({"type":"watch","id":1,"handle":2,"names":)" + Names(65) + "}", {}},
        {R"({"type":"watch","id":1,"handle":2,"names":[]})", {}},
        {R"({"type":"watch","id":1,"handle":2,"names":["A",1]})", {}},
        {R"({"type":"unwatch","id":1,"handle":2,"watch":3})", UnwatchRequest{1, 2, 3}},
        {R"({"type":"unwatch","id":1,"handle":2,"watch":0})", {}},
        {R"({"type":"job","id":1,"printer":"office","document":"report.ps","user":""})",
         JobRequest{1, "office", "report.ps", ""}},
        {R"({"type":"job","id":1,"printer":"office","document":"a\nb","user":"ann"})", {}},
        {R"({"type":"job","id":1,"printer":"office","user":"ann"})", {}},
        {R"({"type":"data","id":1,"job":4,"bytes":")" + Hex(MaxDataBytes) + "\"}",
         DataRequest{1, 4, std::vector<uint8_t>(MaxDataBytes, 0xaa)}},
        {R"({"type":"data","id":1,"job":4,"bytes":")" + Hex(MaxDataBytes + 1) + "\"}", {}},
        {R"({"type":"data","id":1,"job":0,"bytes":""})", {}},
        {R"({"type":"end-job","id":1,"job":4})", EndJobRequest{1, 4}},
        {R"({"type":"cancel-job","id":1,"job":4})", CancelJobRequest{1, 4}},
        {R"({"type":"cancel-job","id":1})", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 120));
        const json message = json::parse(c.text);
        Request request;
        ErrorReply error;
        const bool parsed = ParseRequest(message, &request, &error);
        if (c.request) {
            ASSERT_TRUE(parsed) << error.message;
            EXPECT_EQ(request, *c.request);
        } else {
            ASSERT_FALSE(parsed);
            EXPECT_EQ(error.code, c.code);
            EXPECT_EQ(error.id, c.id);
            EXPECT_FALSE(error.message.empty());
            continue;
        }
        // Written again, it reads back the same.
        Request again;
        ASSERT_TRUE(ParseRequest(json::parse(EncodeFrame(ToJson(request)).substr(4)), &again, &error));
        EXPECT_EQ(again, request);
    }
    EXPECT_TRUE(ErrorClosesConnection(ErrorCode::Version));
    EXPECT_TRUE(ErrorClosesConnection(ErrorCode::TooBig));
    EXPECT_FALSE(ErrorClosesConnection(ErrorCode::Denied));
    Request request;
    ErrorReply error;
    EXPECT_FALSE(ParseRequest(json::array({1}), &request, &error));
    EXPECT_EQ(ToJson(DaemonMessage{error}), json::parse(R"({"type":"error","code":"bad-message",
                                                           "message":"a message must be a JSON object"})"));
}

TEST(StatusProtocol, DaemonMessagesAreTypedAndAMisbehavingDaemonIsRefused) {
    const std::vector<std::pair<std::string, DaemonMessage>> good = {
        {R"({"type":"hello","id":1,"version":1,"daemon":"langmond 0.1","printers":2})",
         HelloReply{1, 1, "langmond 0.1", 2}},
        {R"({"type":"printers","id":2,"printers":[{"name":"Office","address":"langmon://10.0.0.5:9100",
            "port":"IP_10.0.0.5","state":"ready","status":"Ready"}]})",
         PrintersReply{2, {{"Office", "langmon://10.0.0.5:9100", "IP_10.0.0.5", "ready", "Ready"}}, std::nullopt}},
        {R"({"type":"printers","id":2,"printers":[],"next":80})", PrintersReply{2, {}, 80}},
        {R"({"type":"status","id":3,"printer":{"state":"jam","toner":{"black":40}}})",
         StatusReply{3, json::parse(R"({"state":"jam","toner":{"black":40}})")}},
        {R"({"type":"opened","id":4,"handle":4294967295})", OpenedReply{4, 4294967295u}},
        {R"({"type":"ok","id":5})", OkReply{5}},
        {R"({"type":"value","id":6,"value":""})", ValueReply{6, {}}},
        {R"({"type":"value","id":6,"value":"0a0b"})", ValueReply{6, {0x0a, 0x0b}}},
        {R"({"type":"watching","id":7,"watch":1})", WatchingReply{7, 1}},
        {R"({"type":"error","id":8,"code":"denied","message":"only root and group lp may set"})",
         ErrorReply{8, ErrorCode::Denied, "only root and group lp may set"}},
        {R"({"type":"error","code":"too-big","message":"a frame is at most 65536 bytes"})",
         ErrorReply{std::nullopt, ErrorCode::TooBig, "a frame is at most 65536 bytes"}},
        {R"({"type":"changed","handle":3,"watch":9,"name":"PrinterStatus"})", ChangedEvent{3, 9, "PrinterStatus"}},
        {R"({"type":"job-started","id":9,"job":1})", JobStartedReply{9, 1}},
        {R"({"type":"job-ended","id":10,"pages":3})", JobEndedReply{10, 3}},
        {R"({"type":"job-ended","id":10,"pages":null})", JobEndedReply{10, std::nullopt}},
        {R"({"type":"error","id":11,"code":"busy","message":"office prints another client's job"})",
         ErrorReply{11, ErrorCode::Busy, "office prints another client's job"}},
    };
    for (const auto& [text, expected] : good) {
        SCOPED_TRACE(text);
        DaemonMessage parsed;
        std::string why;
        ASSERT_TRUE(ParseDaemonMessage(json::parse(text), &parsed, &why)) << why;
        EXPECT_EQ(parsed, expected);
        DaemonMessage again;
        ASSERT_TRUE(ParseDaemonMessage(ToJson(parsed), &again, &why)) << why;
        EXPECT_EQ(again, expected);
    }
    const std::vector<std::string> bad = {
        R"({"type":"hello","id":1,"version":1,"printers":2})",
        R"({"type":"hello","id":1,"version":1,"daemon":")" + std::string(256, 'd') + R"(","printers":2})",
        R"({"type":"printers","id":2,"printers":{}})",
        R"({"type":"printers","id":2,"printers":[],"next":0})",
        R"({"type":"printers","id":2,"printers":[{"name":"Office","address":"a","port":"p","state":"s"}]})",
        R"({"type":"status","id":3,"printer":"Office"})",
        R"({"type":"opened","id":4,"handle":0})",
        R"({"type":"ok"})",
        R"({"type":"value","id":6,"value":"0a0"})",
        R"({"type":"value","id":6,"value":")" + Hex(MaxValueBytes + 1) + "\"}",
        R"({"type":"watching","id":7,"watch":-3})",
        R"({"type":"error","id":8,"code":"oops","message":"m"})",
        R"({"type":"error","id":"8","code":"failed","message":"m"})",
        R"({"type":"changed","handle":3,"watch":9,"name":"Printer\nStatus"})",
        R"({"type":"opend","id":4,"handle":1})",
        R"({"type":"job-started","id":9,"job":0})",
        R"({"type":"job-ended","id":10})",
        R"({"type":"job-ended","id":10,"pages":"3"})",
        R"([])",
    };
    for (const std::string& text : bad) {
        SCOPED_TRACE(text.substr(0, 120));
        DaemonMessage parsed = OkReply{99};
        std::string why;
        EXPECT_FALSE(ParseDaemonMessage(json::parse(text), &parsed, &why));
        EXPECT_FALSE(why.empty());
    }
    std::vector<uint8_t> bytes = {1};
    EXPECT_EQ(ToHex(std::vector<uint8_t>{0x00, 0x7f, 0xff}), "007fff");
    EXPECT_FALSE(FromHex("0g", &bytes));
    EXPECT_EQ(bytes, std::vector<uint8_t>{1});
}

// Whatever a spooler calls a job, and whoever it says sent it, the daemon
// takes: the texts are cut to what a "job" may hold, never refused.
TEST(StatusProtocol, AJobsTextsAreMadeWhatTheDaemonTakes) {
    const std::string e = "\xc3\xa9";  // é
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"report.ps", "report.ps"},
        {"Quarterly " + e + "t" + e, "Quarterly " + e + "t" + e},
        {"a\tb\x7f" "c\xc2\x85", "a?b?c?"},
        {"bad \xff\xc3 \xe0\x80\x80 \xed\xa0\x80 \xf4\x90\x80\x80", "bad ?? ??? ??? ????"},
        {std::string(300, 'x'), std::string(MaxClientTextBytes, 'x')},
        {std::string(254, 'x') + e, std::string(254, 'x')},  // a character is never cut in two
    };
    for (const auto& [given, taken] : cases) {
        SCOPED_TRACE(given.substr(0, 40));
        EXPECT_EQ(JobText(given), taken);
        Request request;
        ErrorReply error;
        const JobRequest job{1, "office", JobText(given), JobText(given)};
        EXPECT_TRUE(ParseRequest(json::parse(EncodeFrame(ToJson(Request{job})).substr(4)), &request, &error))
            << error.message;
    }
}

}  // namespace
}  // namespace langmon::protocol
