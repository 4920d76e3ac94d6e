// The langmon command.

#include "command_line.h"
#include "interruption.h"

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    // Ctrl-C ends a watch or a job the way it should end: the job ended,
    // polling stopped, the port closed; and an emulated printer's service.
    if (!words.empty() && (words[0] == "status" || words[0] == "print" || words[0] == "emulate")) {
        langmon::tool::CatchInterruptions();
    }
    return langmon::tool::RunCommandLine(words, std::cout, std::cerr, langmon::tool::Interrupted());
}
