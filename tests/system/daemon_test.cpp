// langmond as an administrator runs it, on the real clock: printers from its
// configuration and its command line, a network printer served by `langmon
// emulate` whose jam a watching client sees come and go, `langmon printers`
// from another process, clients that send nonsense or too much let go while
// the watcher carries on, a reload that adds a printer, and a SIGTERM that
// winds every port up. And jobs through the daemon, from `langmon print`
// and from the CUPS backend, with one whose client is killed in the middle.

#include "child_process.h"

#include "daemon/status_client.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

namespace fs = std::filesystem;
using langmon::testing::Child;
using langmon::testing::Finish;
using langmon::testing::ReadWhole;
using langmon::testing::ReadUntil;
using langmon::testing::RunToEnd;
using langmon::testing::Start;
using langmon::testing::UsbEmulator;
namespace protocol = langmon::protocol;

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// A raw connection that sends `bytes` and reads until the daemon closes it.
std::string SendAndHearOut(const std::string& socketPath, const std::string& bytes) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath.copy(address.sun_path, socketPath.size());
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return "no connection";
    send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    std::string heard;
    char buffer[4096];
    for (ssize_t n; (n = recv(fd, buffer, sizeof buffer, 0)) > 0;) heard.append(buffer, static_cast<std::size_t>(n));
    close(fd);
    return heard;
}

// The printer's PrinterStatus words through a handle.
std::string StatusWords(protocol::StatusClient& client, uint32_t handle) {
    protocol::DaemonMessage reply;
    std::string problem;
    if (!client.Ask(protocol::GetRequest{0, handle, "PrinterStatus"}, &reply, &problem)) return problem;
    const auto* value = std::get_if<protocol::ValueReply>(&reply);
    return value != nullptr ? protocol::ToHex(value->value) : "no value";
}

TEST(Langmond, ServesItsPrintersToClientsInOtherProcessesAndWindsUpOnSigterm) {
    char folder[] = "/tmp/langmon-daemon-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const fs::path root = folder;
    const std::string socketPath = (root / "langmond.sock").string();

    Child printer = Start({LANGMON_COMMAND, "emulate", "--printer", "emulator:page-time=100", "--listen",
                           "127.0.0.1:0", "--snmp", "127.0.0.1:0", "--at", "3:jam", "--at", "6:jam=none"});
    std::string said;
    ASSERT_TRUE(ReadUntil(printer.output, &said, "\n", 3000)) << said;
    const std::string address = said.substr(0, said.find('\n'));
    const fs::path config = root / "langmond.conf";
    std::ofstream(config) << "[[printer]]\nname = \"office\"\naddress = \"" << address << "\"\n";

    Child daemon = Start({LANGMON_DAEMON, "--config", config.string(), "--socket", socketPath, "--printer",
                          "lab=langmon:/emulator?jam=3"},
                         true);
    std::string log;
    ASSERT_TRUE(ReadUntil(daemon.output, &log, "serving 2 printers on " + socketPath, 5000)) << log;

    protocol::StatusClient watcher;
    std::string problem;
    ASSERT_TRUE(watcher.Connect(socketPath, "daemon test", &problem)) << problem;
    protocol::DaemonMessage reply;
    ASSERT_TRUE(watcher.Ask(protocol::OpenRequest{0, "office"}, &reply, &problem)) << problem;
    ASSERT_TRUE(std::holds_alternative<protocol::OpenedReply>(reply));
    const uint32_t handle = std::get<protocol::OpenedReply>(reply).handle;
    ASSERT_TRUE(watcher.Ask(protocol::WatchRequest{0, handle, {"PrinterStatus"}}, &reply, &problem)) << problem;
    ASSERT_TRUE(std::holds_alternative<protocol::WatchingReply>(reply));

    // Another process lists both printers, each with its state once the
    // printer's first poll has read it.
    std::string listed;
    for (int tries = 0; tries < 20 && !Has(listed, "paper jam"); ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "printers", "--socket", socketPath}, &listed), 0) << listed;
    }
    EXPECT_TRUE(Has(listed, "office  LPT1:    ready")) << listed;
    EXPECT_TRUE(Has(listed, "lab     LPT2:    paper jam")) << listed;
    // Its words as the first poll read them, before the jam.
    const std::string ready = StatusWords(watcher, handle);
    std::string metrics;
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "printers", "--socket", socketPath, "--prometheus"}, &metrics), 0) << metrics;
    for (const char* sample : {"# TYPE langmon_printer_up gauge\nlangmon_printer_up{printer=\"office\"} 1\n",
                               "langmon_printer_condition{printer=\"lab\",condition=\"paper-jam\"} 1\n",
                               "langmon_supply_level_percent{printer=\"office\",supply=\"cyan\",kind=\"toner\"} 100\n",
                               "langmon_supply_state{printer=\"lab\",supply=\"waste\",kind=\"waste\",state=\"ok\"} 1\n",
                               "langmon_paper_jams{printer=\"lab\"} 1\n"}) {
        EXPECT_TRUE(Has(metrics, sample)) << sample << " is not in\n" << metrics;
    }

    // Clients that send a frame of 100 MB and one of nonsense are let go.
    EXPECT_TRUE(Has(SendAndHearOut(socketPath, std::string("\x06\x40\x00\x00", 4)), "\"too-big\""));
    EXPECT_TRUE(Has(SendAndHearOut(socketPath, std::string("\x00\x00\x00\x03", 4) + "{{{"), "\"bad-message\""));

    // The jam three seconds into the printer's run, and its end three
    // seconds later, reach the watcher as changes of PrinterStatus.
    std::vector<std::string> seen = {ready};
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(12);
    while (std::chrono::steady_clock::now() < until && (seen.size() < 3 || seen.back() != ready)) {
        protocol::ChangedEvent event;
        if (!watcher.NextEvent(&event, 500)) continue;
        EXPECT_EQ(event.name, "PrinterStatus");
        const std::string now = StatusWords(watcher, handle);
        if (now != seen.back()) seen.push_back(now);
    }
    ASSERT_GE(seen.size(), 3u) << "the status words went " << testing::PrintToString(seen);
    EXPECT_EQ(seen.back(), ready);

    // A reload adds a printer, and a USB one where FUSE serves it, and
    // keeps the others on their ports.
    UsbEmulator usb({});
    std::ofstream(config, std::ios::app) << "[[printer]]\nname = \"hall\"\naddress = \"langmon:/emulator\"\n";
    if (!usb.Address().empty()) {
        std::ofstream(config, std::ios::app) << "[[printer]]\nname = \"desk\"\naddress = \"" << usb.Address() << "\"\n";
    }
    kill(daemon.pid, SIGHUP);
    ASSERT_TRUE(ReadUntil(daemon.output, &log, "printer \"hall\" at langmon:/emulator", 5000)) << log;
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "printers", "--socket", socketPath}, &listed), 0) << listed;
    EXPECT_TRUE(Has(listed, "office  LPT1:")) << listed;
    EXPECT_TRUE(Has(listed, "hall    LPT3:")) << listed;
    if (!usb.Address().empty()) {
        EXPECT_TRUE(Has(listed, "desk    USB001")) << listed;
    }
    EXPECT_EQ(StatusWords(watcher, handle), ready) << "the watcher's handle outlives the reload";

    const auto stopping = std::chrono::steady_clock::now();
    EXPECT_EQ(Finish(daemon, SIGTERM), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - stopping, std::chrono::seconds(10));
    EXPECT_FALSE(fs::exists(socketPath));
    EXPECT_EQ(Finish(printer, SIGTERM), 0);
    fs::remove_all(root);
}

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

TEST(Langmond, SendsJobsOfThePrintCommandAndTheBackendThroughItsPortAndEndsOneWhoseClientIsKilled) {
    char folder[] = "/tmp/langmon-daemon-jobs-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const fs::path root = folder;
    const std::string socketPath = (root / "langmond.sock").string();
    const std::string received = (root / "received").string();
    const std::string inSocket = "LANGMON_SOCKET=" + socketPath;
    const std::string brochure = std::string(LANGMON_EXAMPLES) + "/brochure.ps";

    Child printer = Start({LANGMON_COMMAND, "emulate", "--printer", "emulator:page-time=100", "--listen",
                           "127.0.0.1:0", "--snmp", "127.0.0.1:0", "--received", received});
    std::string address;
    ASSERT_TRUE(ReadUntil(printer.output, &address, "\n", 3000)) << address;
    address = address.substr(0, address.find('\n'));
    Child daemon = Start({LANGMON_DAEMON, "--socket", socketPath, "--printer", "office=" + address}, true);
    std::string log;
    ASSERT_TRUE(ReadUntil(daemon.output, &log, "serving 1 printer on", 5000)) << log;

    // By the daemon's name of the printer: the job goes through its port,
    // and the printer's report of the job's end comes back.
    std::string told;
    EXPECT_EQ(RunToEnd({"/usr/bin/env", inSocket, LANGMON_COMMAND, "print", brochure, "--printer", "office"}, &told), 0)
        << told;
    for (const char* line : {"to printer \"office\" of langmond", "job             job 1, started",
                             "data            1 chunk, 404 bytes taken by the printer",
                             "end-job         the printer reported the job's end: 3 pages printed"}) {
        EXPECT_TRUE(Has(told, line)) << line << " is not in\n" << told;
    }
    EXPECT_TRUE(ReadUntil(daemon.output, &log,
                          "job 1 at \"office\" ended at the printer after 404 bytes; the printer reported 3 pages",
                          3000))
        << log;

    // The CUPS backend, for a queue whose device URI is the printer's
    // address: through the daemon, its pages from the daemon's view.
    EXPECT_EQ(RunToEnd({"/usr/bin/env", inSocket, "DEVICE_URI=" + address, "PRINTER=office-queue", LANGMON_BACKEND,
                        "41", "ann", "brochure", "1", "", brochure},
                       &told),
              0)
        << told;
    EXPECT_TRUE(Has(told, "the printer is langmond's \"office\"")) << told;
    EXPECT_TRUE(Has(told, "PAGE: total 3\n")) << told;
    EXPECT_TRUE(Has(told, "ATTR: marker-colors=")) << told;
    EXPECT_TRUE(ReadUntil(daemon.output, &log, "job 2 at \"office\" started, \"brochure\" for ann", 3000)) << log;

    // A client killed once its first chunk is at the printer, while it
    // waits for more of its job: the daemon ends the job at the printer.
    const std::string fifo = (root / "job").string();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Child cut = Start({"/usr/bin/env", inSocket, LANGMON_COMMAND, "print", fifo, "--printer", "office"});
    const int feed = open(fifo.c_str(), O_WRONLY);
    ASSERT_GE(feed, 0);
    const std::string part(protocol::MaxDataBytes + 1, 'Q');
    ASSERT_EQ(write(feed, part.data(), part.size()), static_cast<ssize_t>(part.size()));
    std::string cutSaid;
    EXPECT_TRUE(ReadUntil(cut.output, &cutSaid, "job 3, started", 5000)) << cutSaid;
    // The last byte is read once the first chunk's "ok" came.
    int unread = 1;
    for (int tries = 0; tries < 100 && ioctl(feed, FIONREAD, &unread) == 0 && unread != 0; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(unread, 0);
    // Meanwhile the printer is another client's: a job of its own is
    // refused at once, and the job it does not hold is not its to feed.
    protocol::StatusClient other;
    std::string problem;
    ASSERT_TRUE(other.Connect(socketPath, "daemon test", &problem)) << problem;
    protocol::DaemonMessage reply;
    ASSERT_TRUE(other.Ask(protocol::JobRequest{0, "office", "other", "bob"}, &reply, &problem)) << problem;
    const auto* busy = std::get_if<protocol::ErrorReply>(&reply);
    ASSERT_NE(busy, nullptr);
    EXPECT_EQ(busy->code, protocol::ErrorCode::Busy) << busy->message;
    ASSERT_TRUE(other.Ask(protocol::DataRequest{0, 3, {'X'}}, &reply, &problem)) << problem;
    ASSERT_TRUE(std::holds_alternative<protocol::ErrorReply>(reply));
    EXPECT_EQ(std::get<protocol::ErrorReply>(reply).code, protocol::ErrorCode::BadHandle);
    EXPECT_EQ(Finish(cut, SIGKILL), -1);
    close(feed);
    EXPECT_TRUE(ReadUntil(daemon.output, &log,
                          "job 3 at \"office\" ended at the printer after 16384 bytes: its client went away", 5000))
        << log;

    // The daemon carries on, and the printer is free for the next job: one
    // that starts and is cancelled before a byte.
    ASSERT_TRUE(other.Ask(protocol::JobRequest{0, "office", "other", "bob"}, &reply, &problem)) << problem;
    ASSERT_TRUE(std::holds_alternative<protocol::JobStartedReply>(reply)) << protocol::ToJson(reply).dump();
    EXPECT_EQ(std::get<protocol::JobStartedReply>(reply).job, 4u);
    ASSERT_TRUE(other.Ask(protocol::CancelJobRequest{0, 4}, &reply, &problem)) << problem;
    EXPECT_TRUE(std::holds_alternative<protocol::OkReply>(reply));
    EXPECT_TRUE(ReadUntil(daemon.output, &log,
                          "job 4 at \"office\" ended at the printer after 0 bytes: cancelled by its client", 3000))
        << log;

    EXPECT_EQ(Finish(daemon, SIGTERM), 0);
    EXPECT_EQ(Finish(printer, SIGTERM), 0);
    // The printer got every job whole, the cut one up to its cut, and the
    // end of each: the port was never left inside a job.
    const std::string bytes = ReadWhole(received);
    const std::string job = ReadWhole(brochure);
    EXPECT_EQ(Count(bytes, job), 2u);
    EXPECT_EQ(Count(bytes, std::string(protocol::MaxDataBytes, 'Q')), 1u);
    EXPECT_EQ(Count(bytes, std::string(protocol::MaxDataBytes + 1, 'Q')), 0u);
    // The job cancelled before a byte sent nothing, not even its start.
    EXPECT_EQ(Count(bytes, "@PJL JOB NAME="), 3u);
    EXPECT_EQ(Count(bytes, "@PJL EOJ NAME="), 3u);
    const std::size_t cutAt = bytes.find(std::string(protocol::MaxDataBytes, 'Q'));
    EXPECT_NE(bytes.find("@PJL EOJ NAME=", cutAt), std::string::npos) << "the cut job ends at the printer";
    fs::remove_all(root);
}

}  // namespace
