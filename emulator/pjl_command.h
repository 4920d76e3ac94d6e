// One PJL command line as the printer understands it: the command words and
// the options behind them. "@PJL JOB NAME=\"A B\"" is the words {"JOB"} and
// the option NAME with the value A B. Words and option names are upper-cased,
// since PJL doesn't care about their case; values are kept as sent, without
// their quotes.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace langmon::emulator {

struct PjlCommand {
    std::vector<std::string> words;
    std::vector<std::pair<std::string, std::string>> options;

    bool Is(std::string_view first, std::string_view second = {}) const;
    // The value of an option, or nullptr.
    const std::string* Option(std::string_view name) const;
};

// `line` is what follows "@PJL", without the line end.
PjlCommand ParsePjlCommand(std::string_view line);

bool EqualsNoCase(std::string_view a, std::string_view b);

}  // namespace langmon::emulator
