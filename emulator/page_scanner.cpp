#include "emulator/page_scanner.h"

#include <cstring>

namespace langmon::emulator {

void PageScanner::Feed(std::string_view data, std::vector<bool>& pages) {
    for (char byte : data) Byte(byte, pages);
}

// A first byte held back until the language was known is looked at now.
void PageScanner::SetLanguage(Language language, std::vector<bool>& pages) {
    language_ = language;
    if (firstPending_) {
        firstPending_ = false;
        Byte(first_, pages);
    }
}

void PageScanner::Finish(size_t pagesSoFar, std::vector<bool>& pages) {
    if (language_ == Language::Unknown && firstPending_) SetLanguage(Language::Other, pages);
    if (language_ == Language::Other && pageHasContent_) EndPage(pages);
    if (sawData_ && pagesSoFar + pages.size() == 0) EndPage(pages);
    pageHasContent_ = false;
    pageHasColor_ = false;
}

bool PageScanner::EndsWith(std::string_view word) const {
    return windowFill_ >= word.size() &&
           std::memcmp(window_ + windowFill_ - word.size(), word.data(), word.size()) == 0;
}

void PageScanner::EndPage(std::vector<bool>& pages) {
    bool color = rule_ == ColorRule::Color || (rule_ == ColorRule::Auto && pageHasColor_);
    pages.push_back(color);
    pageHasContent_ = false;
    pageHasColor_ = false;
}

void PageScanner::Byte(char byte, std::vector<bool>& pages) {
    sawData_ = true;
    if (language_ == Language::Unknown) {
        if (!firstPending_) {
            first_ = byte;
            firstPending_ = true;
            return;
        }
        SetLanguage(first_ == '%' && byte == '!' ? Language::PostScript : Language::Other, pages);
    }

    if (language_ == Language::Other) {
        if (byte == '\f') {
            EndPage(pages);
        } else if (byte != ' ' && byte != '\t' && byte != '\r' && byte != '\n' && byte != '\x04') {
            pageHasContent_ = true;
        }
        return;
    }

    if (windowFill_ == sizeof window_) {
        std::memmove(window_, window_ + 1, sizeof window_ - 1);
        --windowFill_;
    }
    window_[windowFill_++] = byte;
    if (byte == 'e' && EndsWith("showpage")) {
        EndPage(pages);
    } else if (byte == 'r' &&
               (EndsWith("setrgbcolor") || EndsWith("setcmykcolor") || EndsWith("sethsbcolor"))) {
        pageHasColor_ = true;
    } else if (byte == 'F' && EndsWith("%%EOF")) {
        sawEndOfFile_ = true;
    }
}

}  // namespace langmon::emulator
