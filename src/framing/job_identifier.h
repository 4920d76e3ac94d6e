// The 24-character name every job carries in its JOB and EOJ lines, by which
// the printer's reports find their way back: a tag, the computer's name in
// hexadecimal, a hash of that name and the tick count. Jobs from many
// computers meet on a shared printer, so the name has to say whose it is.
#pragma once

#include <cstdint>

namespace langmon {

constexpr uint32_t JobIdentifierLength = 24;
constexpr uint32_t JobIdentifierTag = 3;

// Writes a new identifier with its NUL to `out`, which has room for 25 bytes.
void NewJobIdentifier(char* out);

// The identifier for `computerName` (null or empty: none) and `tag`, at the
// current tick. `out` has room for 25 bytes.
void BuildJobIdentifier(char* out, const char* computerName, uint32_t tag);

// The CRC-16 (reflected, polynomial 0xA001, start 0) the identifier carries,
// worked with the identifier's own two tables of 16 entries.
uint16_t ComputerNameHash(const char* name);

}  // namespace langmon
