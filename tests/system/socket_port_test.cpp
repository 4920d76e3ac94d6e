// The network port monitor against a printer the test plays itself: a TCP
// listener on 127.0.0.1 that accepts when the test says, reads only what
// the test reads and closes when the test closes. On the real clock with
// short time-outs: a printer that takes nothing makes a write time out
// rather than block, one that takes part has that part counted; a printer
// that closes mid-job gets nothing more of that job, not even in a new
// connection; the next job reaches it afresh, whole, once and in order.

#include "ports/socket_port_monitor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace langmon::ports {
namespace {

using Clock = std::chrono::steady_clock;

long MsSince(Clock::time_point start) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

// The byte at `offset` of job `job`: a wrong, lost or doubled byte shows.
BYTE JobByte(int job, std::size_t offset) { return static_cast<BYTE>((offset + offset / 251 + job * 101) % 253); }

std::vector<BYTE> JobBytes(int job, std::size_t from, std::size_t size) {
    std::vector<BYTE> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = JobByte(job, from + i);
    return bytes;
}

// The printer's end: a listener whose connections have a small receive
// buffer, so that a printer that stops reading fills up soon.
int Listen(uint16_t* port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int small = 16384;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(fd, 4) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        close(fd);
        return -1;
    }
    *port = ntohs(address.sin_port);
    return fd;
}

bool Readable(int fd, int limitMs) {
    pollfd wait{fd, POLLIN, 0};
    return poll(&wait, 1, limitMs) == 1;
}

int Accept(int listener, int limitMs) { return Readable(listener, limitMs) ? accept(listener, nullptr, nullptr) : -1; }

// Reads until `count` bytes came, the peer closed, or nothing came for
// `quietMs`.
std::vector<BYTE> ReadUpTo(int fd, std::size_t count, int quietMs) {
    std::vector<BYTE> got;
    BYTE buffer[65536];
    while (got.size() < count && Readable(fd, quietMs)) {
        const ssize_t n = read(fd, buffer, std::min(sizeof buffer, count - got.size()));
        if (n <= 0) break;
        got.insert(got.end(), buffer, buffer + n);
    }
    return got;
}

// One write call of `size` bytes of `job` from `offset`, timed.
struct Write {
    BOOL ok;
    DWORD error;
    DWORD taken;
    long ms;
};
Write WriteJob(MONITOR& table, HANDLE port, int job, std::size_t offset, std::size_t size) {
    std::vector<BYTE> bytes = JobBytes(job, offset, size);
    Write result{};
    result.taken = 0xdead;
    SetLastError(0xdeadbeef);
    const auto start = Clock::now();
    result.ok = table.WritePort(port, bytes.data(), static_cast<DWORD>(size), &result.taken);
    result.ms = MsSince(start);
    result.error = GetLastError();
    return result;
}

TEST(SocketPort, WritesTimeOutAndAJobBrokenOffNeverGoesOnInANewConnection) {
    uint16_t tcpPort = 0;
    const int listener = Listen(&tcpPort);
    ASSERT_GE(listener, 0);
    SocketPortMonitor monitor;
    monitor.Attach("LPT1:", {"127.0.0.1", tcpPort, 161, "public"});
    MONITOR& table = *monitor.Table();
    HANDLE port = nullptr;
    char name[] = "LPT1:";
    ASSERT_TRUE(table.OpenPort(name, &port));
    COMMTIMEOUTS timeOuts{};
    timeOuts.WriteTotalTimeoutConstant = 150;
    ASSERT_TRUE(table.SetPortTimeOuts(port, &timeOuts, 0));
    char printer[] = "printer";
    ASSERT_TRUE(table.StartDocPort(port, printer, 7, 1, nullptr));

    // The printer takes the connection into its backlog and reads nothing:
    // the windows fill, and a write then waits out its time-out, takes
    // nothing and says so, rather than holding the thread.
    std::size_t taken = 0;
    Write last{};
    for (int i = 0; i < 2000; ++i) {
        last = WriteJob(table, port, 1, taken, 65536);
        if (!last.ok) break;
        ASSERT_LE(last.taken, 65536u);
        taken += last.taken;
    }
    ASSERT_FALSE(last.ok);
    EXPECT_EQ(last.error, static_cast<DWORD>(ERROR_TIMEOUT));
    EXPECT_EQ(last.taken, 0u);
    EXPECT_GE(last.ms, 140);
    EXPECT_LT(last.ms, 2000);

    // It reads a little and stops again: a long write takes what there was
    // room for, and says how much.
    const int first = Accept(listener, 2000);
    ASSERT_GE(first, 0);
    std::vector<BYTE> received = ReadUpTo(first, 262144, 2000);
    ASSERT_EQ(received.size(), 262144u);
    last = WriteJob(table, port, 1, taken, 16 << 20);
    EXPECT_TRUE(last.ok);
    EXPECT_GT(last.taken, 0u);
    EXPECT_LT(last.taken, 16u << 20);
    taken += last.taken;

    // What the port said it took is what the printer gets: all of it, in
    // order, and nothing else.
    const std::vector<BYTE> rest = ReadUpTo(first, taken - received.size() + 1, 2000);
    received.insert(received.end(), rest.begin(), rest.end());
    ASSERT_EQ(received.size(), taken);
    EXPECT_TRUE(received == JobBytes(1, 0, taken));

    // The printer closes the connection in the middle of the job. The job's
    // next bytes may still vanish into the connection that is going; after
    // them, nothing is taken.
    close(first);
    for (int i = 0; i < 50 && last.ok; ++i) last = WriteJob(table, port, 1, taken, 4096);
    ASSERT_FALSE(last.ok);
    EXPECT_EQ(last.error, static_cast<DWORD>(ERROR_TIMEOUT));
    EXPECT_EQ(last.taken, 0u);
    // A language monitor whose device ID read found no printer ends the
    // document and opens one of its own (of no job) for whoever writes
    // next, here the rest of the job. The printer, back by now, must not
    // get that rest in a new connection: it would print it as a job.
    EXPECT_TRUE(table.EndDocPort(port));
    DOC_INFO_2 own{};
    ASSERT_TRUE(table.StartDocPort(port, printer, 0, 2, reinterpret_cast<BYTE*>(&own)));
    last = WriteJob(table, port, 1, taken, 4096);
    EXPECT_FALSE(last.ok);
    EXPECT_EQ(last.error, static_cast<DWORD>(ERROR_TIMEOUT));
    EXPECT_EQ(last.taken, 0u);
    BYTE reply[64];
    DWORD count = 99;
    EXPECT_TRUE(table.ReadPort(port, reply, sizeof reply, &count));
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(table.EndDocPort(port));
    EXPECT_FALSE(Readable(listener, 200)) << "the broken job went on in a new connection";

    // The next job connects afresh and arrives whole, once, in order.
    std::vector<BYTE> second;
    std::thread printerSide([&] {
        const int fd = Accept(listener, 3000);
        if (fd < 0) return;
        second = ReadUpTo(fd, std::size_t{1} << 30, 1000);
        close(fd);
    });
    ASSERT_TRUE(table.StartDocPort(port, printer, 8, 1, nullptr));
    constexpr std::size_t SecondSize = 150000;
    std::size_t sent = 0;
    for (int i = 0; i < 60 && sent < SecondSize; ++i) {
        const Write w = WriteJob(table, port, 2, sent, std::min<std::size_t>(20000, SecondSize - sent));
        if (w.ok) sent += w.taken;
    }
    EXPECT_EQ(sent, SecondSize);
    EXPECT_TRUE(table.EndDocPort(port));
    EXPECT_TRUE(table.ClosePort(port));
    printerSide.join();
    EXPECT_EQ(second.size(), SecondSize);
    EXPECT_TRUE(second == JobBytes(2, 0, SecondSize));
    EXPECT_FALSE(Readable(listener, 0)) << "a connection more than the job needed";

    // Nothing listens any more: the refused connection is a write that
    // times out, in the write's own time.
    close(listener);
    ASSERT_TRUE(table.OpenPort(name, &port));
    ASSERT_TRUE(table.SetPortTimeOuts(port, &timeOuts, 0));
    ASSERT_TRUE(table.StartDocPort(port, printer, 9, 1, nullptr));
    last = WriteJob(table, port, 3, 0, 4096);
    EXPECT_FALSE(last.ok);
    EXPECT_EQ(last.error, static_cast<DWORD>(ERROR_TIMEOUT));
    EXPECT_EQ(last.taken, 0u);
    EXPECT_LT(last.ms, 2000);
    EXPECT_TRUE(table.EndDocPort(port));
    EXPECT_TRUE(table.ClosePort(port));
}

}  // namespace
}  // namespace langmon::ports
