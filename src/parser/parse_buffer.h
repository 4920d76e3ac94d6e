// A block the parser keeps from one response to the next: the text a block
// left unfinished, and the rest an attempt is compared with. A printer's
// responses straddle the reader's blocks all the time; a block made and
// freed for each would cost the status thread an allocation per block for
// text that is a few hundred bytes at most. So the block is grown when it is
// too small and otherwise used again, until the port goes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace langmon {

struct ParseBuffer {
    char* Text;  // owned; null until first needed
    uint32_t Capacity;
};

// At least `bytes` in `buffer`, of which the first `keep` are what they
// were. False, with the buffer as it was, when it had to grow and memory
// could not be had.
bool ReserveParseBuffer(ParseBuffer* buffer, std::size_t bytes, std::size_t keep);

// Gives back a buffer that an exceptionally long response made large; one
// of the usual size stays for the next block.
void TrimParseBuffer(ParseBuffer* buffer);

// Frees the buffer; it is empty afterwards, and usable again.
void FreeParseBuffer(ParseBuffer* buffer);

}  // namespace langmon
