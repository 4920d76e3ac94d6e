// lstrcmpA and lstrcmpiA. The logic compares port names, descriptions and
// driver names with them; these texts are the spooler's own and are compared
// byte for byte (or with ASCII case folded), never by a locale's collation.

#include "platform/text.h"

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

}  // namespace langmon
