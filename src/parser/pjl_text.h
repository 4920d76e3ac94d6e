// Text primitives of the PJL reader. The reader works on NUL-terminated
// blocks: a line runs up to and including its LF, an entry is a line with the
// TAB lines behind it, a form feed ends a response.
#pragma once

#include <cstdint>

namespace langmon {

struct PjlParserState;

constexpr char FormFeed = '\x0C';

// Digits '0' to '9' from the start of `text`, up to the first other byte, as an
// unsigned 32-bit number that wraps on overflow. No sign, no leading blanks: text
// without a leading digit gives 0.
uint32_t ParseDecimal(const char* text);
// 1 and `cursor` (if given) behind the first LF; 0 without one, `cursor` left
// at `text`.
int SkipLine(const char* text, const char** cursor);
// 1 and `cursor` behind the entry that starts at `text`; 0, `cursor` at
// `text`, while it isn't known to be complete: the byte behind its last LF
// must be in hand, since a TAB there would continue it.
int SkipEntry(const char* text, const char** cursor);
// Moves `cursor` to the first form feed (1, skipping ends) or to the NUL
// (0, skipping goes on into the next block).
int SkipToFormFeed(const char* text, const char** cursor, PjlParserState* state);
// Whether `text` begins with `keyword`; the rest of the line is not looked at.
bool StartsWith(const char* text, const char* keyword);

}  // namespace langmon
