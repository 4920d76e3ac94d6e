// The calling thread's last error. GetLastError and SetLastError themselves are
// declared in the public header, with C linkage, so that a spooler or a port
// monitor in any language shares them with the library.
#pragma once

#include "platform/win32_types.h"

namespace langmon {

// Keeps the last error across calls that may change it, and puts it back when
// asked: "keep the last error, call, restore it" is a pattern of the lower calls.
class LastErrorKeeper {
public:
    LastErrorKeeper() : kept_(::GetLastError()) {}
    DWORD kept() const { return kept_; }
    void Restore() const { ::SetLastError(kept_); }

private:
    DWORD kept_;
};

}  // namespace langmon
