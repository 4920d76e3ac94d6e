// What a user hands the programs: files (or standard input) that are read
// block by block or whole up to a bound, and text that is echoed back in a
// message with its unprintable bytes escaped.
//
// A file a user names can be anything: a directory, /dev/zero, a pipe that
// never ends. Nothing here throws or grows without a bound: a file that
// can't be read, or holds more than its reader takes, is a problem told in
// words, with the file's name.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace langmon::platform {

class InputFile {
public:
    // Opens `path` for reading. A directory is refused here, as reading it
    // would be.
    explicit InputFile(const std::string& path);
    // The process's standard input, left open at the end.
    static InputFile StandardInput();
    ~InputFile();
    InputFile(InputFile&& other) noexcept;
    InputFile& operator=(InputFile&&) = delete;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // "NAME: cannot be read (REASON)", or empty while all is well.
    const std::string& Problem() const { return problem_; }
    // The path, or "standard input".
    const std::string& Name() const { return name_; }
    // Up to `size` bytes into `buffer`; 0 at the end of the file or after a
    // problem. A read cut short by a signal is made again.
    std::size_t Read(char* buffer, std::size_t size);
    // Whether a Read would not wait (bytes, the end, or a problem are
    // there), waiting up to `timeoutMs` for it; a signal ends the wait early.
    bool Ready(int timeoutMs) const;

private:
    InputFile(int descriptor, std::string name, bool owned);
    void Fail(int error);

    int descriptor_ = -1;
    bool owned_ = true;
    std::string name_;
    std::string problem_;
};

// The whole of `file`, at most `limit` bytes of it. Returns an empty text, or
// the problem: the file's own, or "NAME: more than LIMIT bytes, the most
// WHAT may hold" when it holds more, of which no more than one byte past the
// limit has been read.
std::string ReadUpTo(InputFile& file, std::size_t limit, std::string_view what, std::string* bytes);
std::string ReadFileUpTo(const std::string& path, std::size_t limit, std::string_view what, std::string* bytes);

// `text` as it may go to a terminal: control bytes, DEL, the C1 controls and
// bytes that are not UTF-8 become \xNN; printable ASCII and well-formed UTF-8
// stay as they are.
std::string Printable(std::string_view text);

}  // namespace langmon::platform
