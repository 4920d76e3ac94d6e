#include "progress_line.h"

#include "platform/clock.h"

#include <cstdio>
#include <ostream>

namespace langmon::tool {

namespace {

constexpr DWORD RewriteEveryMs = 200;
// Back to the line's start, the text, and the rest of the line erased.
constexpr const char* EraseToEnd = "\x1b[K";

}  // namespace

void ProgressLine::Show(const std::string& text) {
    if (!terminal_ || text == text_) return;
    const DWORD now = GetTickCount();
    if (shown_ && TickAge(now, lastShown_) < RewriteEveryMs) return;
    text_ = text;
    lastShown_ = now;
    shown_ = true;
    out_ << '\r' << text << EraseToEnd << std::flush;
}

void ProgressLine::Clear() {
    if (!shown_) return;
    shown_ = false;
    text_.clear();
    out_ << '\r' << EraseToEnd << std::flush;
}

std::string ByteCount(unsigned long long bytes) {
    char text[32];
    if (bytes >= 1000000) {
        std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
    } else if (bytes >= 10000) {
        std::snprintf(text, sizeof text, "%llu kB", bytes / 1000);
    } else {
        std::snprintf(text, sizeof text, "%llu bytes", bytes);
    }
    return text;
}

}  // namespace langmon::tool
