// Text primitives of the PJL reader.
#pragma once

#include <cstdint>

namespace langmon {

// Digits '0' to '9' from the start of `text`, up to the first other byte, as an
// unsigned 32-bit number that wraps on overflow. No sign, no leading blanks: text
// without a leading digit gives 0.
uint32_t ParseDecimal(const char* text);

}  // namespace langmon
