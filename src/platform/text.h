// The string operations of the host that the logic names.
#pragma once

#include "platform/win32_types.h"

namespace langmon {

// Byte for byte; a null text sorts before any other.
int lstrcmpA(LPCSTR a, LPCSTR b);
// As lstrcmpA, with ASCII letters compared without regard to case.
int lstrcmpiA(LPCSTR a, LPCSTR b);

}  // namespace langmon
