// The string operations of the host that the logic names.
#pragma once

#include "platform/win32_types.h"

namespace langmon {

// Byte for byte; a null text sorts before any other.
int lstrcmpA(LPCSTR a, LPCSTR b);
// As lstrcmpA, with ASCII letters compared without regard to case.
int lstrcmpiA(LPCSTR a, LPCSTR b);

using WCHAR = char16_t;
constexpr UINT CP_UTF8 = 65001;
constexpr DWORD MB_ERR_INVALID_CHARS = 0x8;
constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;

// UTF-8 to UTF-16, as the Win32 call does it for code page CP_UTF8, the one
// code page the monitor converts from. `count` -1: the text runs to its NUL,
// which is converted too. `wideCount` 0: the units needed, `wide` unused.
// Returns the units written; 0 on failure with the last error set:
// ERROR_INSUFFICIENT_BUFFER when they don't fit, ERROR_INVALID_PARAMETER for
// another code page or bad arguments, ERROR_NO_UNICODE_TRANSLATION for an
// ill-formed sequence under MB_ERR_INVALID_CHARS. Without that flag each
// ill-formed sequence becomes U+FFFD.
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int count, WCHAR* wide,
                        int wideCount);

}  // namespace langmon
