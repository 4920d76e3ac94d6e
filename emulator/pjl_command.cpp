#include "emulator/pjl_command.h"

#include <cctype>

namespace langmon::emulator {
namespace {

std::string Upper(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// A quoted text runs to its closing quote (or the line's end); a bare one to
// the next blank or '='.
std::string_view TakeToken(std::string_view line, size_t* at) {
    size_t start = *at;
    if (start < line.size() && line[start] == '"') {
        size_t close = line.find('"', start + 1);
        size_t end = close == std::string_view::npos ? line.size() : close;
        *at = close == std::string_view::npos ? line.size() : close + 1;
        return line.substr(start + 1, end - start - 1);
    }
    size_t end = start;
    while (end < line.size() && !IsBlank(line[end]) && line[end] != '=') ++end;
    *at = end;
    return line.substr(start, end - start);
}

void SkipBlanks(std::string_view line, size_t* at) {
    while (*at < line.size() && IsBlank(line[*at])) ++*at;
}

}  // namespace

bool EqualsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::toupper(static_cast<unsigned char>(a[i])) != std::toupper(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

bool PjlCommand::Is(std::string_view first, std::string_view second) const {
    if (words.empty() || words[0] != first) return false;
    return second.empty() || (words.size() > 1 && words[1] == second);
}

const std::string* PjlCommand::Option(std::string_view name) const {
    for (const auto& [key, value] : options) {
        if (key == name) return &value;
    }
    return nullptr;
}

PjlCommand ParsePjlCommand(std::string_view line) {
    PjlCommand command;
    size_t at = 0;
    for (;;) {
        SkipBlanks(line, &at);
        if (at >= line.size()) break;
        if (line[at] == '=') {  // a stray '=' names nothing
            ++at;
            continue;
        }
        std::string_view token = TakeToken(line, &at);
        size_t after = at;
        SkipBlanks(line, &after);
        if (after < line.size() && line[after] == '=') {
            at = after + 1;
            SkipBlanks(line, &at);
            std::string_view value = at < line.size() ? TakeToken(line, &at) : std::string_view{};
            command.options.emplace_back(Upper(token), std::string(value));
        } else if (command.options.empty()) {
            command.words.push_back(Upper(token));
        }
    }
    return command;
}

}  // namespace langmon::emulator
