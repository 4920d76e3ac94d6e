// Answers packed the way the spooler packs them: the fixed records at the
// start of the caller's buffer, the texts they point at behind them, so that
// code which walks the records or frees the one buffer meets what it would
// meet on Windows. Shared by the spooler's calls.
#pragma once

#include "platform/last_error.h"
#include "platform/win32_types.h"

#include <cstddef>
#include <cstring>
#include <string>

namespace langmon::platform {

// Texts go behind the records in the order they are put. The size is worked
// out beforehand, so a writer never runs past the buffer.
class PackedWriter {
public:
    PackedWriter(LPBYTE buffer, std::size_t recordBytes) : buffer_(buffer), textAt_(recordBytes) {}

    char* PutText(const std::string& text) {
        char* at = reinterpret_cast<char*>(buffer_ + textAt_);
        std::memcpy(at, text.c_str(), text.size() + 1);
        textAt_ += text.size() + 1;
        return at;
    }

    // memcpy, since nothing promises that the caller's buffer is aligned.
    template <typename Record>
    void PutRecord(std::size_t index, const Record& record) {
        std::memcpy(buffer_ + index * sizeof(Record), &record, sizeof(Record));
    }

private:
    LPBYTE buffer_;
    std::size_t textAt_;
};

// The common end of every Enum call: the buffer too small (or none) fails with
// the size needed, else the records go in.
template <typename Fill>
BOOL AnswerPacked(LPBYTE buffer, DWORD bufferSize, std::size_t needed, std::size_t count,
                  LPDWORD neededOut, LPDWORD returned, Fill fill) {
    *neededOut = static_cast<DWORD>(needed);
    if (bufferSize < needed || (needed > 0 && !buffer)) {
        *returned = 0;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    if (needed > 0) fill();
    *returned = static_cast<DWORD>(count);
    return TRUE;
}

}  // namespace langmon::platform
