// Facts about the machine, with the contracts of their Win32 namesakes. They are
// answered from the registry: the computer name where Windows keeps it, the
// rest under the key "Software\langmon" of our own (see the README).
#pragma once

#include "platform/win32_types.h"

namespace langmon {

// The computer name. On success *size is its length without the NUL. A buffer
// too small is left untouched, *size becomes the length with the NUL and the
// last error ERROR_BUFFER_OVERFLOW.
BOOL GetComputerNameA(LPSTR buffer, LPDWORD size);

// typeFlag 0: keyboard type; 1: subtype; 2: number of function keys.
int GetKeyboardType(int typeFlag);

// True for a lead byte of the machine's double-byte code page (Shift-JIS on the
// Japanese systems that the printers were sold with).
BOOL IsDBCSLeadByte(BYTE testChar);

// NO_ERROR (0) with the remote name of a redirected local device, else an error
// code (ERROR_NOT_CONNECTED when the name is not redirected) that is also the
// last error. ERROR_MORE_DATA with *length the size needed when it doesn't fit.
DWORD WNetGetConnectionA(LPCSTR localName, LPSTR remoteName, LPDWORD length);

struct OSVERSIONINFOA {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    char szCSDVersion[128];
};
constexpr DWORD VER_PLATFORM_WIN32_WINDOWS = 1;
constexpr DWORD VER_PLATFORM_WIN32_NT = 2;
// dwOSVersionInfoSize must be set by the caller; ERROR_INVALID_PARAMETER otherwise.
BOOL GetVersionExA(OSVERSIONINFOA* info);

}  // namespace langmon
