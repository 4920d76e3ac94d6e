// lstrcmpA and lstrcmpiA. The logic compares port names, descriptions and
// driver names with them; these texts are the spooler's own and are compared
// byte for byte (or with ASCII case folded), never by a locale's collation.

#include "platform/text.h"

#include "platform/last_error.h"

#include <cstring>

namespace langmon {

namespace {

unsigned char LowerAscii(unsigned char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

// The sign of the first difference; a null text sorts before any other.
template <typename Fold>
int CompareTexts(LPCSTR a, LPCSTR b, Fold fold) {
    if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
    for (;; ++a, ++b) {
        const unsigned char ca = fold(static_cast<unsigned char>(*a));
        const unsigned char cb = fold(static_cast<unsigned char>(*b));
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == 0) return 0;
    }
}

}  // namespace

int lstrcmpA(LPCSTR a, LPCSTR b) {
    return CompareTexts(a, b, [](unsigned char c) { return c; });
}

int lstrcmpiA(LPCSTR a, LPCSTR b) { return CompareTexts(a, b, LowerAscii); }

namespace {

constexpr char32_t ReplacementCharacter = 0xFFFD;

// One well-formed UTF-8 sequence from `at`, or none: then the caller takes
// one byte as ill-formed. Overlong forms, surrogates and code points past
// U+10FFFF are ill-formed.
bool DecodeSequence(const unsigned char* at, std::size_t left, char32_t* point, std::size_t* used) {
    const unsigned char lead = at[0];
    std::size_t length = 0;
    char32_t value = 0;
    char32_t least = 0;
    if (lead < 0x80) {
        *point = lead;
        *used = 1;
        return true;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2, value = lead & 0x1F, least = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, value = lead & 0x0F, least = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, value = lead & 0x07, least = 0x10000;
    } else {
        return false;
    }
    if (length > left) return false;
    for (std::size_t i = 1; i < length; ++i) {
        if ((at[i] & 0xC0) != 0x80) return false;
        value = (value << 6) | (at[i] & 0x3F);
    }
    if (value < least || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return false;
    *point = value;
    *used = length;
    return true;
}

}  // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int count, WCHAR* wide,
                        int wideCount) {
    if (codePage != CP_UTF8 || (flags & ~MB_ERR_INVALID_CHARS) != 0 || text == nullptr ||
        count == 0 || count < -1 || wideCount < 0 || (wideCount > 0 && wide == nullptr)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::size_t length = count == -1 ? std::strlen(text) + 1 : static_cast<std::size_t>(count);
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    std::size_t units = 0;
    for (std::size_t at = 0; at < length;) {
        char32_t point = 0;
        std::size_t used = 1;
        if (!DecodeSequence(bytes + at, length - at, &point, &used)) {
            if ((flags & MB_ERR_INVALID_CHARS) != 0) {
                SetLastError(ERROR_NO_UNICODE_TRANSLATION);
                return 0;
            }
            point = ReplacementCharacter;
            used = 1;
        }
        at += used;
        const std::size_t needed = point >= 0x10000 ? 2 : 1;
        if (wideCount > 0) {
            if (units + needed > static_cast<std::size_t>(wideCount)) {
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return 0;
            }
            if (needed == 2) {
                wide[units] = static_cast<WCHAR>(0xD800 + ((point - 0x10000) >> 10));
                wide[units + 1] = static_cast<WCHAR>(0xDC00 + ((point - 0x10000) & 0x3FF));
            } else {
                wide[units] = static_cast<WCHAR>(point);
            }
        }
        units += needed;
    }
    return static_cast<int>(units);
}

}  // namespace langmon
