#include "emulated_network_printer.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace langmon::bench {

namespace {

constexpr int AnswerLimitMs = 5000;

// Reads from `fd` until `until` ends what came or the time is up.
bool ReadUntil(int fd, std::string* text, std::string_view until) {
    while (text->find(until) == std::string::npos) {
        pollfd wait{fd, POLLIN, 0};
        if (poll(&wait, 1, AnswerLimitMs) != 1) return false;
        char buffer[512];
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n <= 0) return false;
        text->append(buffer, static_cast<std::size_t>(n));
    }
    return true;
}

}  // namespace

EmulatedNetworkPrinter::~EmulatedNetworkPrinter() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    if (output_ >= 0) close(output_);
}

bool EmulatedNetworkPrinter::Start(const std::string& command) {
    int ends[2];
    if (pipe(ends) != 0) return problem_ = "no pipe", false;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, ends[1], 1);
    posix_spawn_file_actions_addclose(&files, ends[0]);
    std::vector<std::string> words = {command, "emulate", "--listen", "127.0.0.1:0", "--snmp", "127.0.0.1:0"};
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const int spawned = posix_spawn(&pid_, argv[0], &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    close(ends[1]);
    output_ = ends[0];
    if (spawned != 0) {
        pid_ = -1;
        return problem_ = command + ": " + std::strerror(spawned), false;
    }
    std::string shown;
    unsigned tcp = 0;
    unsigned snmp = 0;
    if (!ReadUntil(output_, &shown, "\n") ||
        std::sscanf(shown.c_str(), "langmon://127.0.0.1:%u?snmp=%u", &tcp, &snmp) != 2) {
        return problem_ = "langmon emulate said no address: " + shown, false;
    }
    tcpPort_ = static_cast<uint16_t>(tcp);
    snmpPort_ = static_cast<uint16_t>(snmp);
    return true;
}

int EmulatedNetworkPrinter::Connect() const {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(tcpPort_);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
    if (fd >= 0) close(fd);
    return -1;
}

bool EmulatedNetworkPrinter::AwaitAllTaken() const {
    const int fd = Connect();
    if (fd < 0) return false;
    static constexpr std::string_view request = "\x1b%-12345X@PJL INFO STATUS\r\n";
    std::string answer;
    const bool answered = write(fd, request.data(), request.size()) == static_cast<ssize_t>(request.size()) &&
                          ReadUntil(fd, &answer, "\f");
    close(fd);
    return answered;
}

}  // namespace langmon::bench
