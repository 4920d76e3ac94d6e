// The machine description reader: REGEDIT4 text into the registry.
//
// The accepted form is the one regedit writes, minus what a description has no
// use for:
//
//   REGEDIT4                              first non-blank line
//   ; a comment                           whole lines only
//   [HKEY_LOCAL_MACHINE\path\to\key]      or [HKEY_DYN_DATA\...]; makes the key
//   "name"="text"                         REG_SZ; \\ and \" are the escapes
//   "name"=dword:0000001f                 REG_DWORD, 1 to 8 hex digits
//   "name"=hex:01,02,ff                   REG_BINARY; a '\' at the end of the
//   "name"=hex(7):41,00,00                line continues the list; hex(N) gives
//   @="text"                              type N; @ is the key's default value
//
// Deletions ("[-key]", "name"=-) and anything else are refused: a description
// that half-loads would describe a machine nobody wrote down. So the whole text
// is read twice: once to check it, and once more, when all of it is good, to
// change the registry. Nothing is kept between the two but the text itself.

#include "platform/machine_description.h"

#include "platform/registry.h"
#include "platform/user_input.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

namespace langmon::platform {

namespace {

// One value as a line gives it.
struct Value {
    std::string name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

std::string_view Trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
        s.remove_suffix(1);
    }
    return s;
}

bool StartsWithNoCase(std::string_view s, std::string_view prefix) {
    if (s.size() < prefix.size()) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        char c = s[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != prefix[i]) return false;  // prefixes are given in lower case
    }
    return true;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// 1 to `maxDigits` hex digits and nothing else.
bool ParseHex(std::string_view digits, std::size_t maxDigits, DWORD* out) {
    if (digits.empty() || digits.size() > maxDigits) return false;
    DWORD value = 0;
    for (char c : digits) {
        const int d = HexDigit(c);
        if (d < 0) return false;
        value = (value << 4) | static_cast<DWORD>(d);
    }
    *out = value;
    return true;
}

class Reader {
public:
    Reader(std::string_view text, std::string_view source) : rest_(text), source_(source) {
        // A byte order mark from a UTF-8 editor is not part of the header.
        if (rest_.substr(0, 3) == "\xEF\xBB\xBF") rest_.remove_prefix(3);
        more_ = !rest_.empty();
    }

    // Reads the whole text; with `apply`, makes each key and sets each value
    // in the registry, in the order of the text.
    bool Read(bool apply) {
        if (!ReadHeader()) return false;
        bool inKey = false;
        HKEY root = nullptr;
        std::string path;
        Value value;
        for (std::string_view line; NextLine(&line);) {
            line = Trim(line);
            if (line.empty() || line.front() == ';') continue;
            if (line.front() == '[') {
                if (!ReadKey(line, &root, &path)) return false;
                if (apply) RegistryCreateKey(root, path);
                inKey = true;
            } else if (line.front() == '"' || line.front() == '@') {
                if (!inKey) return Fail("a value before any [key] line");
                value = Value{};
                if (!ReadValue(line, &value)) return false;
                if (apply) RegistrySetValue(root, path, value.name, value.type, value.data);
            } else {
                return Fail("not a key, a value or a comment");
            }
        }
        return true;
    }

    const std::string& error() const { return error_; }

private:
    // The next line without its LF; false at the end of the text.
    bool NextLine(std::string_view* line) {
        if (!more_) return false;
        const auto cut = rest_.find('\n');
        *line = rest_.substr(0, cut);
        rest_.remove_prefix(cut == std::string_view::npos ? rest_.size() : cut + 1);
        // The LF that ends the last line starts no line of its own.
        more_ = !rest_.empty();
        ++lineNumber_;
        return true;
    }

    bool Fail(const std::string& what) {
        error_ = std::string(source_) + ":" + std::to_string(lineNumber_) + ": " + what;
        return false;
    }

    bool ReadHeader() {
        for (std::string_view line; NextLine(&line);) {
            line = Trim(line);
            if (line.empty()) continue;
            if (line != "REGEDIT4") return Fail("the first line must be REGEDIT4");
            return true;
        }
        lineNumber_ = 1;
        return Fail("empty; the first line must be REGEDIT4");
    }

    bool ReadKey(std::string_view line, HKEY* root, std::string* path) {
        if (line.back() != ']') return Fail("a key line must end with ']'");
        std::string_view inside = line.substr(1, line.size() - 2);
        if (!inside.empty() && inside.front() == '-') {
            return Fail("deleting a key is not supported");
        }
        // The Reg calls take names as C texts: a name with a NUL byte could be
        // listed but never opened.
        if (inside.find('\0') != std::string_view::npos) return Fail("a NUL byte in a key name");
        const auto cut = inside.find('\\');
        const std::string_view rootName = inside.substr(0, cut);
        if (rootName == "HKEY_LOCAL_MACHINE") {
            *root = HKEY_LOCAL_MACHINE;
        } else if (rootName == "HKEY_DYN_DATA") {
            *root = HKEY_DYN_DATA;
        } else {
            return Fail("unknown root key \"" + std::string(rootName) +
                        "\" (HKEY_LOCAL_MACHINE or HKEY_DYN_DATA)");
        }
        path->clear();
        if (cut == std::string_view::npos) return true;
        const std::string_view rest = inside.substr(cut + 1);
        // Every name on the path must be there: "a\\b" or a trailing '\' is a typo.
        std::size_t start = 0;
        for (std::size_t depth = 1;; ++depth) {
            if (depth > MachineKeyDepthLimit) {
                return Fail("a key nested deeper than " + std::to_string(MachineKeyDepthLimit) + " levels");
            }
            const auto end = rest.find('\\', start);
            if (rest.substr(start, end - start).empty()) return Fail("an empty key name in the path");
            if (end == std::string_view::npos) break;
            start = end + 1;
        }
        *path = std::string(rest);
        return true;
    }

    // A quoted text at the start of `s`; on success `s` is left behind its
    // closing quote.
    bool ReadQuoted(std::string_view* s, std::string* out) {
        std::size_t i = 1;  // past the opening quote
        while (i < s->size()) {
            const char c = (*s)[i];
            if (c == '"') {
                s->remove_prefix(i + 1);
                return true;
            }
            if (c == '\\') {
                if (i + 1 >= s->size()) break;
                const char escaped = (*s)[i + 1];
                if (escaped != '\\' && escaped != '"') {
                    return Fail(std::string("unknown escape \\") + escaped + " in a string");
                }
                out->push_back(escaped);
                i += 2;
                continue;
            }
            out->push_back(c);
            ++i;
        }
        return Fail("a string without its closing quote");
    }

    bool ReadValue(std::string_view line, Value* entry) {
        if (line.front() == '@') {
            line.remove_prefix(1);
        } else if (!ReadQuoted(&line, &entry->name)) {
            return false;
        } else if (entry->name.find('\0') != std::string::npos) {
            return Fail("a NUL byte in a value name");
        }
        line = Trim(line);
        if (line.empty() || line.front() != '=') return Fail("'=' expected after the value name");
        line = Trim(line.substr(1));

        if (!line.empty() && line.front() == '"') {
            std::string text;
            if (!ReadQuoted(&line, &text)) return false;
            if (!Trim(line).empty()) return Fail("text after the end of the string");
            entry->type = REG_SZ;
            entry->data.assign(text.begin(), text.end());
            entry->data.push_back(0);
            return true;
        }
        if (StartsWithNoCase(line, "dword:")) {
            DWORD word;
            if (!ParseHex(line.substr(6), 8, &word)) {
                return Fail("a dword needs 1 to 8 hex digits and nothing else");
            }
            entry->type = REG_DWORD;
            entry->data.resize(4);
            std::memcpy(entry->data.data(), &word, 4);
            return true;
        }
        if (StartsWithNoCase(line, "hex:")) {
            entry->type = REG_BINARY;
            return ReadHexList(line.substr(4), &entry->data);
        }
        if (StartsWithNoCase(line, "hex(")) {
            const auto close = line.find("):");
            if (close == std::string_view::npos || !ParseHex(line.substr(4, close - 4), 8, &entry->type)) {
                return Fail("hex(N): needs N in hex digits");
            }
            return ReadHexList(line.substr(close + 2), &entry->data);
        }
        if (line == "-") return Fail("deleting a value is not supported");
        return Fail("unknown kind of value (a string, dword: or hex: expected)");
    }

    // Bytes "01,02,ff", the list going on to the next line while a line ends
    // with '\'. A comma may end a line only when the list goes on.
    bool ReadHexList(std::string_view rest, std::vector<BYTE>* data) {
        while (true) {
            rest = Trim(rest);
            const bool goesOn = !rest.empty() && rest.back() == '\\';
            if (goesOn) rest = Trim(rest.substr(0, rest.size() - 1));
            while (!rest.empty()) {
                const auto comma = rest.find(',');
                const std::string_view item = Trim(rest.substr(0, comma));
                DWORD byte;
                if (!ParseHex(item, 2, &byte)) {
                    return Fail("\"" + std::string(item) + "\" is not a hex byte");
                }
                data->push_back(static_cast<BYTE>(byte));
                if (comma == std::string_view::npos) {
                    rest = {};
                } else {
                    rest.remove_prefix(comma + 1);
                    if (Trim(rest).empty() && !goesOn) return Fail("a hex list ends with ','");
                }
            }
            if (!goesOn) return true;
            if (!more_) return Fail("the hex list goes on past the end of the text");
            NextLine(&rest);
        }
    }

    std::string_view rest_;  // the text behind the line last read
    bool more_ = false;      // a line is left
    std::size_t lineNumber_ = 0;
    std::string_view source_;
    std::string error_;
};

std::mutex problemMutex;
std::string& Problem() {
    static auto* problem = new std::string();  // never destroyed, see kernel.h
    return *problem;
}

void SetProblem(const std::string& text) {
    std::lock_guard lock(problemMutex);
    Problem() = text;
}

}  // namespace

bool LoadMachineDescription(std::string_view text, std::string_view source, std::string* error) {
    Reader checked(text, source);
    const bool good = checked.Read(false);
    ClearRegistry();
    SetProblem(good ? std::string() : checked.error());
    if (!good) {
        if (error) *error = checked.error();
        return false;
    }
    Reader(text, source).Read(true);
    if (error) error->clear();
    return true;
}

bool LoadMachineDescriptionFile(const std::string& path, std::string* error) {
    std::string text;
    const std::string problem = ReadFileUpTo(path, MachineDescriptionByteLimit, "a machine description", &text);
    if (!problem.empty()) {
        ClearRegistry();
        SetProblem(problem);
        if (error) *error = problem;
        return false;
    }
    return LoadMachineDescription(text, path, error);
}

namespace {

void DescribeOrdinaryMachine() {
    // The ports of the local port monitor that every machine lists. A
    // spooler that lists none is one that has not started yet, which the
    // monitor waits out at every port it opens.
    static constexpr const char* LocalPorts = "System\\CurrentControlSet\\control\\Print\\Monitors\\Local Port\\Ports";
    for (const char* port : {"LPT1:", "LPT2:", "LPT3:", "COM1:", "COM2:", "FILE:"}) {
        const std::string key = std::string(LocalPorts) + "\\" + port;
        RegistryCreateKey(HKEY_LOCAL_MACHINE, key);
        RegistrySetString(HKEY_LOCAL_MACHINE, key, "Description", "Local Port");
    }
}

}  // namespace

void LoadMachineFromEnvironmentOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        const char* path = std::getenv("LANGMON_REGISTRY");
        if (!path || !*path) {
            DescribeOrdinaryMachine();
            return;
        }
        std::string error;
        if (!LoadMachineDescriptionFile(path, &error)) {
            std::fprintf(stderr, "langmon: %s\n", Printable(error).c_str());
        }
    });
}

const std::string& MachineDescriptionProblem() {
    std::lock_guard lock(problemMutex);
    return Problem();
}

}  // namespace langmon::platform
