#include "parser/device_state.h"

#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "parser/job_progress.h"
#include "parser/pjl_text.h"
#include "platform/machine.h"
#include "platform/memory.h"
#include "variables/status_variable.h"

#include <algorithm>
#include <cstring>

namespace langmon {

namespace {

// The panel hides its second line behind these two marks; it is shown blank.
constexpr WCHAR HiddenLineStart = 0xE001;
constexpr WCHAR HiddenLineEnd = 0xE002;
// The panel's two lines of 16 characters, each up to three bytes of UTF-8,
// and more: panel text is decoded on the stack, since a status thread that
// sees it change with every page would otherwise allocate for each report.
constexpr std::size_t DisplayDecodeUnits = 128;

}  // namespace

// CODE and ONLINE are read from the STS field instead; their lines are
// stepped over whatever they say.
const KeyRow DeviceStateKeys[4] = {
    {"CODE", SkipLineKeyHandler},
    {"DISPLAY", DisplayKeyHandler},
    {"ONLINE", SkipLineKeyHandler},
    {nullptr, nullptr},
};

const KeyRow EojKeys[4] = {
    {"END", SkipLineKeyHandler},
    {"NAME", JobNameKeyHandler},
    {"PAGE", SkipLineKeyHandler},
    {nullptr, nullptr},
};

int DeviceStateHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port) {
    return StrictScan(text, cursor, DeviceStateKeys, state, port);
}

/* EojHandler: no START or END has prepared a record in this response, so its
   NAME line only uses up the job's start identifier. */
int EojHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port) {
    return StrictScan(text, cursor, EojKeys, state, port);
}

/* DisplayKeyHandler: the panel text between the double quotes, as the
   printer shows it. A value whose closing quote is missing runs to the end of
   its line, the line end left out: nothing behind the line is the panel's. */
int DisplayKeyHandler(const char* text, const char** cursor, PjlParserState*, PortContext* port) {
    if (SkipLine(text, cursor) == 0) return 0;
    if (text[0] != '=' || text[1] != '"') return 1;
    const char* start = text + 2;
    const char* lineEnd = *cursor - 1;  // the LF
    const char* end = static_cast<const char*>(std::memchr(start, '"', static_cast<std::size_t>(lineEnd - start)));
    if (end == nullptr) end = lineEnd > start && lineEnd[-1] == '\r' ? lineEnd - 1 : lineEnd;

    LockPort(port);
    StatusVariable* row = FindVariable("PrinterDisplay", port->variables, port);
    if (row == nullptr) {
        UnlockPort(port);
        return 0;
    }
    PrinterDisplayValue value{};
    WCHAR decoded[DisplayDecodeUnits];
    const auto length = static_cast<std::size_t>(end - start);
    if (WCHAR* wide = DisplayTextToWide(start, length, decoded, std::size(decoded))) {
        std::size_t units = 0;
        while (units < std::size(value.DisplayText) && wide[units] != 0) ++units;
        std::copy_n(wide, units, value.DisplayText);
        if (wide != decoded) GlobalFree(wide);
    }
    if (value.DisplayText[16] == HiddenLineStart && value.DisplayText[31] == HiddenLineEnd) {
        std::fill_n(value.DisplayText + 16, 16, u' ');
    }
    value.DisplayLineLength = 16;
    // The same text again is no change. A value that can't be had leaves
    // the old one; the line is used all the same.
    UpdateVariable(row, &value);
    UnlockPort(port);
    return 1;
}

WCHAR* DisplayTextToWide(const char* text, std::size_t length, WCHAR* buffer, std::size_t capacity) {
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    const bool ownDecoder = GetVersionExA(&version) != 0 &&
                            version.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS && version.dwMinorVersion == 0;
    const int count = static_cast<int>(std::min<std::size_t>(length, 0x7FFFFFFF));
    const bool fits = length < capacity;
    if (ownDecoder) {
        WCHAR* wide = buffer;
        if (!fits) {
            const uint32_t units = DecodeUtf8(nullptr, text, count, 1);
            wide = static_cast<WCHAR*>(GlobalAlloc(GPTR, (units + 1) * sizeof(WCHAR)));
        }
        if (wide != nullptr) DecodeUtf8(wide, text, count, 0);
        return wide;
    }
    // An empty text has no units to convert; the result is the zero unit alone.
    if (fits) {
        const int room = static_cast<int>(capacity - 1);
        const int units = count > 0 ? MultiByteToWideChar(CP_UTF8, 0, text, count, buffer, room) : 0;
        if (count > 0 && units == 0) return nullptr;
        buffer[units] = 0;
        return buffer;
    }
    const int units = count > 0 ? MultiByteToWideChar(CP_UTF8, 0, text, count, nullptr, 0) : 0;
    if (count > 0 && units == 0) return nullptr;
    auto* wide = static_cast<WCHAR*>(GlobalAlloc(GPTR, (static_cast<std::size_t>(units) + 1) * sizeof(WCHAR)));
    if (wide == nullptr) return nullptr;
    if (units > 0 && MultiByteToWideChar(CP_UTF8, 0, text, count, wide, units) == 0) {
        GlobalFree(wide);
        return nullptr;
    }
    return wide;
}

uint32_t DecodeUtf8(WCHAR* dest, const char* text, int byteCount, int countOnly) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    const std::size_t end = byteCount > 0 ? static_cast<std::size_t>(byteCount) : 0;
    // A byte past the end is taken as zero rather than read.
    const auto at = [&](std::size_t i) -> uint32_t { return i < end ? bytes[i] : 0; };
    uint32_t units = 0;
    for (std::size_t i = 0; i < end;) {
        const uint32_t lead = bytes[i];
        uint32_t unit = 0;
        if ((lead & 0x80) == 0) {
            unit = lead;
            i += 1;
        } else if ((lead & 0xE0) == 0xC0) {
            unit = ((lead & 0x1F) << 6) | (at(i + 1) & 0x3F);
            i += 2;
        } else {
            unit = ((lead & 0x0F) << 12) | ((at(i + 1) & 0x3F) << 6) | (at(i + 2) & 0x3F);
            i += 3;
        }
        if (countOnly == 0) dest[units] = static_cast<WCHAR>(unit);
        ++units;
    }
    if (countOnly == 0) dest[units] = 0;
    return units;
}

}  // namespace langmon
