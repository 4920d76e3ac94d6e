#include "platform/user_input.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace langmon::platform {

InputFile::InputFile(const std::string& path) : name_(path) {
    do {
        descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    } while (descriptor_ < 0 && errno == EINTR);
    if (descriptor_ < 0) {
        Fail(errno);
        return;
    }
    struct stat status {};
    if (::fstat(descriptor_, &status) == 0 && S_ISDIR(status.st_mode)) Fail(EISDIR);
}

InputFile::InputFile(int descriptor, std::string name, bool owned)
    : descriptor_(descriptor), owned_(owned), name_(std::move(name)) {}

InputFile InputFile::StandardInput() { return InputFile(STDIN_FILENO, "standard input", false); }

InputFile::~InputFile() {
    if (owned_ && descriptor_ >= 0) ::close(descriptor_);
}

InputFile::InputFile(InputFile&& other) noexcept
    : descriptor_(other.descriptor_), owned_(other.owned_), name_(std::move(other.name_)),
      problem_(std::move(other.problem_)) {
    other.descriptor_ = -1;
}

void InputFile::Fail(int error) {
    problem_ = name_ + ": cannot be read (" + std::strerror(error) + ")";
}

std::size_t InputFile::Read(char* buffer, std::size_t size) {
    if (!problem_.empty() || descriptor_ < 0 || size == 0) return 0;
    ssize_t got;
    do {
        got = ::read(descriptor_, buffer, size);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        Fail(errno);
        return 0;
    }
    return static_cast<std::size_t>(got);
}

bool InputFile::Ready(int timeoutMs) const {
    if (!problem_.empty() || descriptor_ < 0) return true;
    pollfd wait{descriptor_, POLLIN, 0};
    return ::poll(&wait, 1, timeoutMs) != 0;
}

std::string ReadUpTo(InputFile& file, std::size_t limit, std::string_view what, std::string* bytes) {
    bytes->clear();
    if (!file.Problem().empty()) return file.Problem();
    constexpr std::size_t Step = 64u << 10;
    // One byte past the limit tells a file that is too long from one that
    // just fills it.
    while (bytes->size() <= limit) {
        const std::size_t had = bytes->size();
        const std::size_t want = std::min(Step, limit + 1 - had);
        bytes->resize(had + want);
        const std::size_t got = file.Read(bytes->data() + had, want);
        bytes->resize(had + got);
        if (got == 0) break;
    }
    if (!file.Problem().empty()) return file.Problem();
    if (bytes->size() > limit) {
        bytes->clear();
        return file.Name() + ": more than " + std::to_string(limit) + " bytes, the most " + std::string(what) +
               " may hold";
    }
    return "";
}

std::string ReadFileUpTo(const std::string& path, std::size_t limit, std::string_view what, std::string* bytes) {
    InputFile file(path);
    return ReadUpTo(file, limit, what, bytes);
}

namespace {

// The length of the well-formed UTF-8 sequence of a printable character at
// `at`, or 0: a stray byte, a sequence cut short, an overlong or surrogate
// form, or a C1 control (U+0080 to U+009F, which some terminals obey).
std::size_t PrintableSequence(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        if (lead == 0xC2) low = 0xA0;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (at + length > text.size() || byte(at + 1) < low || byte(at + 1) > high) return 0;
    for (std::size_t i = 2; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
    }
    return length;
}

}  // namespace

std::string Printable(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c < 0x7F) {
            shown += static_cast<char>(c);
            ++i;
            continue;
        }
        if (const std::size_t length = c >= 0x80 ? PrintableSequence(text, i) : 0; length != 0) {
            shown.append(text.substr(i, length));
            i += length;
            continue;
        }
        char escaped[5];
        std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
        shown += escaped;
        ++i;
    }
    return shown;
}

}  // namespace langmon::platform
