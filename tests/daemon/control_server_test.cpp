// The control socket as clients meet it, with the daemon's loop turned by
// the test and its printers on the virtual clock: a hello, the printers and
// their status, a store's value read, written and watched; and clients that
// send too much or nonsense let go while the others carry on.

#include "control_server.h"

#include "daemon/status_protocol.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace langmon::daemon {
namespace {

using json = nlohmann::json;

class ControlServerTest : public testing::MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        char folder[] = "/tmp/langmon-control-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        folder_ = folder;
        std::string problem;
        ASSERT_TRUE(host_.Add("office", "langmon:/emulator?jam=3", "", &problem)) << problem;
        Sleep(10000);  // the status thread's first passes
        const int listener = OpenControlSocket(folder_ + "/s", &problem);
        ASSERT_GE(listener, 0) << problem;
        server_ = std::make_unique<ControlServer>(host_, listener, "langmond test");
    }
    void TearDown() override {
        server_.reset();
        host_.CloseAll();
        SettleThreads();
        unlink((folder_ + "/s").c_str());
        rmdir(folder_.c_str());
        MonitorTest::TearDown();
    }
    int Connect() {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = folder_ + "/s";
        path.copy(address.sun_path, path.size());
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        server_->Serve(0);
        return fd;
    }
    void SendBytes(int fd, const std::string& bytes) {
        ASSERT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    // The next message from the daemon, the loop turned until it comes; a
    // null json once the daemon has let the client go.
    json Receive(int fd) {
        for (int round = 0; round < 50; ++round) {
            nlohmann::json message;
            protocol::FrameError error;
            if (readers_[fd].Next(&message, &error) == protocol::FrameStatus::Message) return message;
            server_->Serve(0);
            pollfd wait{fd, POLLIN, 0};
            if (poll(&wait, 1, 10) <= 0) continue;
            char buffer[65536];
            const ssize_t got = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
            if (got <= 0) return nullptr;
            for (std::size_t used = 0; used < static_cast<std::size_t>(got);) {
                used += readers_[fd].Feed(buffer + used, static_cast<std::size_t>(got) - used);
                if (readers_[fd].Next(&message, &error) == protocol::FrameStatus::Message) {
                    pending_[fd].push_back(message);
                }
            }
            if (!pending_[fd].empty()) {
                json first = pending_[fd].front();
                pending_[fd].erase(pending_[fd].begin());
                return first;
            }
        }
        return json("nothing came");
    }
    json Ask(int fd, const json& request) {
        SendBytes(fd, protocol::EncodeFrame(request));
        if (!pending_[fd].empty()) {
            json first = pending_[fd].front();
            pending_[fd].erase(pending_[fd].begin());
            return first;
        }
        return Receive(fd);
    }

    std::string folder_;
    PrinterHost host_;
    std::unique_ptr<ControlServer> server_;
    std::map<int, protocol::FrameReader> readers_;
    std::map<int, std::vector<json>> pending_;
};

TEST_F(ControlServerTest, AnswersClientsAndLetsGoOfThoseThatMisbehave) {
    const int a = Connect();
    EXPECT_EQ(Ask(a, {{"type", "hello"}, {"id", 1}, {"version", 1}, {"client", "test"}}),
              (json{{"type", "hello"}, {"id", 1}, {"version", 1}, {"daemon", "langmond test"}, {"printers", 1}}));
    const json printers = Ask(a, {{"type", "printers"}, {"id", 2}});
    ASSERT_EQ(printers["printers"].size(), 1u) << printers.dump();
    EXPECT_EQ(printers["printers"][0],
              (json{{"name", "office"}, {"address", "langmon:/emulator?jam=3"}, {"port", "LPT1:"},
                    {"state", "stopped"}, {"status", "paper jam"}}));
    // A list asked for from a later printer starts there.
    std::string problem;
    ASSERT_TRUE(host_.Add("hall", "langmon:/emulator", "", &problem)) << problem;
    const json later = Ask(a, {{"type", "printers"}, {"id", 2}, {"from", 1}});
    ASSERT_EQ(later["printers"].size(), 1u) << later.dump();
    EXPECT_EQ(later["printers"][0]["name"], "hall");
    EXPECT_FALSE(later.contains("next")) << later.dump();
    EXPECT_TRUE(Ask(a, {{"type", "printers"}, {"id", 2}, {"from", 7}})["printers"].empty());
    EXPECT_EQ(Ask(a, {{"type", "status"}, {"id", 3}, {"printer", "office"}})["printer"]["condition"], "paper-jam");
    EXPECT_EQ(Ask(a, {{"type", "open"}, {"id", 4}, {"printer", "attic"}})["code"], "unknown-printer");

    const json opened = Ask(a, {{"type", "open"}, {"id", 5}, {"printer", "office"}});
    ASSERT_EQ(opened["type"], "opened") << opened.dump();
    const uint32_t handle = opened["handle"];
    const json model = Ask(a, {{"type", "get"}, {"id", 6}, {"handle", handle}, {"name", "PrinterModel"}});
    ASSERT_EQ(model["type"], "value") << model.dump();
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(protocol::FromHex(model["value"].get<std::string>(), &bytes));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()).substr(0, 20), "Laser Printer 6200tx");

    // A value written through one handle is told to the watch of another.
    const json watching = Ask(a, {{"type", "watch"}, {"id", 7}, {"handle", handle}, {"names", {"ClientNote"}}});
    ASSERT_EQ(watching["type"], "watching") << watching.dump();
    EXPECT_EQ(Ask(a, {{"type", "set"}, {"id", 8}, {"handle", handle}, {"name", "ClientNote"}, {"value", "0102"}}),
              (json{{"type", "ok"}, {"id", 8}}));
    EXPECT_EQ(Receive(a), (json{{"type", "changed"}, {"handle", handle}, {"watch", watching["watch"]}, {"name", "ClientNote"}}));

    // A frame that says 100 MB, and one that is not JSON: an error each,
    // and the client is let go.
    const int big = Connect();
    SendBytes(big, std::string("\x06\x40\x00\x00", 4) + std::string(1000, 'x'));
    EXPECT_EQ(Receive(big)["code"], "too-big");
    EXPECT_TRUE(Receive(big).is_null());
    const int garbage = Connect();
    SendBytes(garbage, std::string("\x00\x00\x00\x05", 4) + "nope!");
    EXPECT_EQ(Receive(garbage)["code"], "bad-message");
    EXPECT_TRUE(Receive(garbage).is_null());
    const int rude = Connect();
    EXPECT_EQ(Ask(rude, {{"type", "printers"}, {"id", 1}})["code"], "bad-message");

    // The first client carries on.
    EXPECT_EQ(Ask(a, {{"type", "get"}, {"id", 9}, {"handle", handle}, {"name", "ClientNote"}})["value"], "0102");
    for (const int fd : {a, big, garbage, rude}) close(fd);
    server_->Serve(0);
    EXPECT_EQ(server_->ClientCount(), 0u);
}

}  // namespace
}  // namespace langmon::daemon
