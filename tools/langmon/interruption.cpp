#include "interruption.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <cstring>
#include <sys/syscall.h>
#include <unistd.h>

namespace langmon::tool {

namespace {

std::atomic<bool> interrupted{false};
std::atomic<int> firstSignal{0};

// The handler may only write and end: the note is kept ready in a buffer
// of its own, and marked whole only once it is written.
constexpr std::size_t NoteCapacity = 512;
char note[NoteCapacity];
std::atomic<std::size_t> noteLength{0};

void Write(const char* text, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(STDERR_FILENO, text, length);
        if (written <= 0) return;
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

void OnSignal(int signal) {
    int none = 0;
    if (firstSignal.compare_exchange_strong(none, signal)) {
        interrupted.store(true);
        return;
    }
    constexpr char Again[] = "\nlangmon: interrupted again: ";
    Write(Again, sizeof Again - 1);
    const std::size_t length = noteLength.load();
    if (length != 0) {
        Write(note, length);
    } else {
        constexpr char Plain[] = "ending at once";
        Write(Plain, sizeof Plain - 1);
    }
    Write("\n", 1);
    // At once means no exit handler either: not the platform's wait for its
    // threads, nor a sanitizer's report of threads it was not waited for.
    ::syscall(SYS_exit_group, 128 + signal);
}

}  // namespace

void CatchInterruptions() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

const std::atomic<bool>& Interrupted() { return interrupted; }

int InterruptedExitCode() {
    const int signal = firstSignal.load();
    return 128 + (signal != 0 ? signal : SIGINT);
}

void LeaveAtOnce(int exitCode) {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    ::syscall(SYS_exit_group, exitCode);
    __builtin_unreachable();
}

AbandonNote::AbandonNote(const std::string& what) {
    noteLength.store(0);
    const std::size_t length = std::min(what.size(), NoteCapacity);
    std::memcpy(note, what.data(), length);
    noteLength.store(length);
}

AbandonNote::~AbandonNote() { noteLength.store(0); }

}  // namespace langmon::tool
