// How the printer finds the pages of a job's data, and which of them are in
// colour.
//
// Data that begins with "%!" is PostScript (as is any data after ENTER
// LANGUAGE=POSTSCRIPT): each "showpage" ends a page, and a page is colour when
// "setrgbcolor", "setcmykcolor" or "sethsbcolor" stands in it. The
// document structuring comments are read as a printer's interpreter would
// find what runs: a showpage in the prolog or setup ("%%BeginProlog" to
// "%%EndProlog", "%%BeginSetup" to "%%EndSetup") only defines a procedure,
// and once the document marks its pages with "%%Page:" lines, each mark
// begins a page that the next one, "%%Trailer" or "%%EOF" ends, whatever
// calls showpage inside it (Ghostscript's PostScript calls it from its
// prolog's procedures). Any other data
// is taken as lines of text or PCL: each form feed ends a page, and text
// behind the last form feed that isn't blank is one more page. Other data
// pages are black. A job with data that ends with no page at all prints one.
// The printer's colour setting can make every page colour or black instead.
#pragma once

#include "emulator/printer_state.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace langmon::emulator {

class PageScanner {
public:
    enum class Language : uint8_t { Unknown, PostScript, Other };

    explicit PageScanner(ColorRule rule = ColorRule::Auto) : rule_(rule) {}

    // ENTER LANGUAGE: the data that follows is of this language.
    void SetLanguage(Language language, std::vector<bool>& pages);
    Language language() const { return language_; }

    // Appends a colour flag for every page that `data` completes.
    void Feed(std::string_view data, std::vector<bool>& pages);
    // The data has ended: the page in progress, if it counts, and the
    // at-least-one-page rule. `pagesSoFar` is how many pages the job has.
    void Finish(size_t pagesSoFar, std::vector<bool>& pages);

    // The PostScript program has reached its "%%EOF" comment.
    bool sawEndOfFile() const { return sawEndOfFile_; }

private:
    void Byte(char byte, std::vector<bool>& pages);
    void EndPage(std::vector<bool>& pages);
    bool EndsWith(std::string_view word) const;
    // `word` ends the window and begins a line.
    bool EndsLine(std::string_view word) const;
    void PostScriptByte(char byte, std::vector<bool>& pages);

    ColorRule rule_;
    Language language_ = Language::Unknown;
    bool sawData_ = false;
    bool sawEndOfFile_ = false;
    bool pageHasContent_ = false;
    bool pageHasColor_ = false;
    bool firstPending_ = false;  // `first_` waits for the language to be known
    char first_ = 0;
    // The last bytes seen, for the PostScript words and comments; the
    // longest, "%%BeginProlog" behind its line's end, is 14 bytes.
    char window_[16] = {};
    size_t windowFill_ = 0;
    size_t position_ = 0;        // bytes of PostScript seen
    bool inProlog_ = false;      // in the prolog or the setup
    bool marked_ = false;        // a "%%Page:" mark was seen
    bool markedPageOpen_ = false;
};

}  // namespace langmon::emulator
