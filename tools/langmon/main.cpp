// The langmon command.

#include "command_line.h"

#include <atomic>
#include <csignal>
#include <iostream>
#include <string>
#include <vector>

namespace {

std::atomic<bool> interrupted{false};

void Interrupt(int) { interrupted.store(true); }

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    // Ctrl-C ends a watch the way it should end: polling stopped, the port
    // closed.
    if (!words.empty() && words[0] == "status") {
        std::signal(SIGINT, Interrupt);
        std::signal(SIGTERM, Interrupt);
    }
    return langmon::tool::RunCommandLine(words, std::cout, std::cerr, interrupted);
}
