// A line that shows how far a long wait has come (bytes sent, pages printed)
// on a terminal, rewritten in place; nothing at all where the output is a
// pipe or a file, which keep only the lines that stay.
#pragma once

#include <langmon/monitor.h>

#include <iosfwd>
#include <string>

namespace langmon::tool {

class ProgressLine {
public:
    // Shows on `out` only when `terminal`.
    ProgressLine(std::ostream& out, bool terminal) : out_(out), terminal_(terminal) {}
    ~ProgressLine() { Clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // Puts `text` in place of what the line showed, at most a few times a
    // second: a terminal need not be rewritten for every block.
    void Show(const std::string& text);
    // Takes the line away, so that a line that stays can be written.
    void Clear();

private:
    std::ostream& out_;
    bool terminal_;
    bool shown_ = false;
    DWORD lastShown_ = 0;
    std::string text_;
};

// "1.5 MB", "300 kB", "404 bytes".
std::string ByteCount(unsigned long long bytes);

}  // namespace langmon::tool
