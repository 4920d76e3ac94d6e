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
    if (markedPageOpen_) EndPage(pages);
    markedPageOpen_ = false;
    if (sawData_ && pagesSoFar + pages.size() == 0) EndPage(pages);
    pageHasContent_ = false;
    pageHasColor_ = false;
}

bool PageScanner::EndsWith(std::string_view word) const {
    return windowFill_ >= word.size() &&
           std::memcmp(window_ + windowFill_ - word.size(), word.data(), word.size()) == 0;
}

bool PageScanner::EndsLine(std::string_view word) const {
    if (!EndsWith(word)) return false;
    if (windowFill_ == word.size()) return position_ == word.size();
    const char before = window_[windowFill_ - word.size() - 1];
    return before == '\n' || before == '\r';
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

    PostScriptByte(byte, pages);
}

void PageScanner::PostScriptByte(char byte, std::vector<bool>& pages) {
    if (windowFill_ == sizeof window_) {
        std::memmove(window_, window_ + 1, sizeof window_ - 1);
        --windowFill_;
    }
    window_[windowFill_++] = byte;
    ++position_;
    if ((byte == 'g' && EndsLine("%%BeginProlog")) || (byte == 'p' && EndsLine("%%BeginSetup"))) {
        inProlog_ = true;
    } else if (byte == 'g' && EndsLine("%%EndProlog")) {
        inProlog_ = false;
    } else if (byte == 'p' && EndsLine("%%EndSetup")) {
        inProlog_ = false;
    } else if (byte == ':' && EndsLine("%%Page:")) {
        if (markedPageOpen_) EndPage(pages);
        marked_ = true;
        markedPageOpen_ = true;
        inProlog_ = false;
        pageHasColor_ = false;
    } else if (markedPageOpen_ && ((byte == 'r' && EndsLine("%%Trailer")) || (byte == 'F' && EndsLine("%%EOF")))) {
        EndPage(pages);
        markedPageOpen_ = false;
    } else if (byte == 'e' && EndsWith("showpage")) {
        if (!inProlog_ && !marked_) EndPage(pages);
    } else if (byte == 'r' &&
               (EndsWith("setrgbcolor") || EndsWith("setcmykcolor") || EndsWith("sethsbcolor"))) {
        pageHasColor_ = pageHasColor_ || !inProlog_;
    }
    if (byte == 'F' && EndsWith("%%EOF")) sawEndOfFile_ = true;
}

}  // namespace langmon::emulator
