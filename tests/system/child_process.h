// What the real-clock tests of `langmon emulate` share: running a command
// to its end, reading a child's output until a line appears, and a USB
// printer served through FUSE.
#pragma once

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace langmon::testing {

inline std::string ReadWhole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline std::vector<char*> Argv(std::vector<std::string>& words) {
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    return argv;
}

// Runs the command to its end; its exit code, with its output in `out`.
inline int RunToEnd(std::vector<std::string> words, std::string* out) {
    char path[] = "/tmp/langmon-run-XXXXXX";
    const int file = mkstemp(path);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, file, 1);
    posix_spawn_file_actions_adddup2(&files, file, 2);
    std::vector<char*> argv = Argv(words);
    pid_t pid = -1;
    int status = -1;
    if (posix_spawn(&pid, argv[0], &files, nullptr, argv.data(), environ) == 0) waitpid(pid, &status, 0);
    posix_spawn_file_actions_destroy(&files);
    close(file);
    *out = ReadWhole(path);
    unlink(path);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A child whose standard output (and error, with `withErrors`) the test
// reads as it comes, from `output`. One the test did not finish, as when a
// check failed half-way, is killed, so that it holds no port or pipe.
struct Child {
    pid_t pid = -1;
    int output = -1;
    Child() = default;
    Child(const Child&) = delete;
    Child(Child&& other) noexcept : pid(std::exchange(other.pid, -1)), output(std::exchange(other.output, -1)) {}
    Child& operator=(Child&& other) noexcept {
        if (this != &other) {
            End();
            pid = std::exchange(other.pid, -1);
            output = std::exchange(other.output, -1);
        }
        return *this;
    }
    ~Child() { End(); }

private:
    void End() {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        if (output >= 0) close(output);
        pid = -1;
        output = -1;
    }
};

inline Child Start(std::vector<std::string> words, bool withErrors = false) {
    Child child;
    int ends[2];
    if (pipe(ends) != 0) return child;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, ends[1], 1);
    if (withErrors) posix_spawn_file_actions_adddup2(&files, ends[1], 2);
    posix_spawn_file_actions_addclose(&files, ends[0]);
    std::vector<char*> argv = Argv(words);
    if (posix_spawn(&child.pid, argv[0], &files, nullptr, argv.data(), environ) != 0) child.pid = -1;
    posix_spawn_file_actions_destroy(&files);
    close(ends[1]);
    child.output = ends[0];
    return child;
}

// The exit status of a child that ends by itself, or of one `signal` is
// sent to first (0: none); -1 when a signal ended it.
inline int Finish(Child& child, int signal = 0) {
    if (child.pid <= 0) return -1;
    if (signal != 0) kill(child.pid, signal);
    int status = -1;
    waitpid(std::exchange(child.pid, -1), &status, 0);
    close(std::exchange(child.output, -1));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A child's output, read as it comes, up to `limitMs` for
// `until` to appear.
inline bool ReadUntil(int pipe, std::string* text, const std::string& until, int limitMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (text->find(until) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd wait{pipe, POLLIN, 0};
        if (poll(&wait, 1, static_cast<int>(left.count())) <= 0) continue;
        char buffer[512];
        const ssize_t n = read(pipe, buffer, sizeof buffer);
        if (n <= 0) return false;
        text->append(buffer, static_cast<std::size_t>(n));
    }
    return true;
}

// `langmon emulate --usb-device` in a folder of its own, until Stop.
class UsbEmulator {
public:
    // Starts it with `options`; Address() is empty and Why() says why when
    // FUSE could not mount the device.
    explicit UsbEmulator(std::vector<std::string> options) {
        char folder[] = "/tmp/langmon-usb-XXXXXX";
        if (mkdtemp(folder) == nullptr) return;
        folder_ = folder;
        if (access("/dev/fuse", R_OK | W_OK) != 0) {
            why_ = "/dev/fuse cannot be opened here, so no USB device can be served through FUSE";
            return;
        }
        std::vector<std::string> words = {LANGMON_COMMAND, "emulate", "--usb-device", folder_ + "/printer"};
        words.insert(words.end(), options.begin(), options.end());
        emulator_ = Start(words, true);
        if (emulator_.pid < 0 || !ReadUntil(emulator_.output, &shown_, "\n", 3000)) return;
        if (shown_.find("could not be mounted") != std::string::npos || shown_.find("/dev/fuse:") != std::string::npos) {
            why_ = "FUSE could not mount here: " + shown_;
            return;
        }
        address_ = shown_.substr(0, shown_.find('\n'));
    }
    ~UsbEmulator() {
        Stop();
        rmdir((folder_ + "/printer").c_str());
        rmdir(folder_.c_str());
    }
    const std::string& Address() const { return address_; }
    const std::string& Why() const { return why_; }
    const std::string& Folder() const { return folder_; }
    // Reads its output until `until` comes; all it said so far.
    bool Said(const std::string& until) { return ReadUntil(emulator_.output, &shown_, until, 3000); }
    const std::string& Shown() const { return shown_; }
    // SIGTERM, and its exit status; -1 if it was not running.
    int Stop() {
        if (emulator_.pid <= 0) return -1;
        kill(emulator_.pid, SIGTERM);
        Said("the printer received");
        return Finish(emulator_);
    }

private:
    std::string folder_;
    std::string why_;
    std::string address_;
    std::string shown_;
    Child emulator_;
};

}  // namespace langmon::testing
