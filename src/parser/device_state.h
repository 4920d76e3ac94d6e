// How the printer stands, as its INFO STATUS, USTATUS DEVICE and USTATUS EOJ
// responses tell it. Only the operator panel's text is taken from them: the
// printer's state and errors come from the STS field of its device ID.
#pragma once

#include "parser/response_parser.h"
#include "platform/text.h"

#include <cstddef>
#include <cstdint>

namespace langmon {

// PrinterDisplay's value: the panel's two lines of 16 characters.
struct PrinterDisplayValue {
    uint32_t DisplayLineLength;  // 16 in every value built here
    WCHAR DisplayText[32];       // units 0-15 the first line, 16-31 the second
    uint8_t Reserved[64];
};
static_assert(sizeof(PrinterDisplayValue) == 132);

extern const KeyRow DeviceStateKeys[4];
extern const KeyRow EojKeys[4];

int DeviceStateHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int EojHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
// `text` stands behind "DISPLAY": an '=' and the panel text in double quotes.
int DisplayKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);

// The `length` bytes of UTF-8 at `text` as UTF-16 that ends in a zero unit:
// in `buffer`, of `capacity` units, when the text is shorter than that (a
// unit takes at least one byte), else in a new block for the caller to free.
// Null when the text can't be decoded or no block could be had. Windows 95
// has no UTF-8 code page, so there the monitor decodes on its own.
WCHAR* DisplayTextToWide(const char* text, std::size_t length, WCHAR* buffer, std::size_t capacity);
// The monitor's own decoder: the lead byte alone says how long a sequence
// is, and nothing is checked. Writes into `dest` unless `countOnly`, then a
// zero unit; returns the number of units. Bytes a sequence would need past
// `byteCount` are taken as zero, never read.
uint32_t DecodeUtf8(WCHAR* dest, const char* text, int byteCount, int countOnly);

}  // namespace langmon
