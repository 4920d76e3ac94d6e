#include "monitor/write_strategy.h"

#include "monitor/lower_port.h"
#include "platform/last_error.h"

#include <algorithm>
#include <cstring>

namespace langmon {

namespace {

/* KeepBlockTail: the tail a failed USB write is repeated from. A block of up
   to 80 bytes is kept whole; a longer one gives its last 80, and one beyond
   4096 bytes the 80 that end its first 4096, the most that went down. */
void KeepBlockTail(PortContext* port, const uint8_t* data, DWORD length) {
    std::memset(port->dataTail, 0, sizeof port->dataTail);
    const DWORD end = std::min(length, CappedWriteLimit);
    const DWORD start = end > DataTailLength ? end - DataTailLength : 0;
    std::memcpy(port->dataTail, data + start, end - start);
}

int WriteAndKeepTail(PortContext* port, const uint8_t* data, DWORD length, DWORD toWrite, DWORD* written) {
    DWORD taken = 0;
    LowerWrite(port, data, toWrite, &taken);
    if (GetLastError() == ERROR_TIMEOUT) {
        port->lastWriteError = ERROR_TIMEOUT;
    }
    KeepBlockTail(port, data, length);
    *written = taken;
    return 1;
}

/* ShiftLine: the line's `sent` oldest bytes went to the port; the first
   `added` bytes of the block join the line behind what it still holds. */
void ShiftLine(PortContext* port, DWORD sent, const uint8_t* block, DWORD added) {
    auto* line = reinterpret_cast<uint8_t*>(port->dataTail);
    const DWORD kept = port->tailLength - sent;
    const DWORD after = kept + added;
    std::memmove(line + DataTailLength - after, line + DataTailLength - port->tailLength + sent, kept);
    std::memcpy(line + DataTailLength - added, block, added);
    port->tailLength = after;
    port->tailValid = after != 0 ? 1 : 0;
}

}  // namespace

int WriteDirect(PortContext* port, const uint8_t* data, DWORD length, DWORD* written) {
    return WriteAndKeepTail(port, data, length, length, written);
}

int WriteCapped(PortContext* port, const uint8_t* data, DWORD length, DWORD* written) {
    return WriteAndKeepTail(port, data, length, std::min(length, CappedWriteLimit), written);
}

/* WriteBehind: the line and the block behind it form one queue, of which the
   last 80 bytes stay held. What lies before them goes down, oldest first, in
   one lower write when it fits lineWriteBuffer: a second lower write per
   block costs more than copying a few thousand bytes into it. Otherwise the line's bytes
   go first and the block's follow only once the whole line went. Either
   way, of the `sent` bytes the port took from the queue's front, the line
   then holds the 80 (or as many as are left) that follow them, and the
   block counts as taken as far as its bytes went down or joined the line. */
int WriteBehind(PortContext* port, const uint8_t* data, DWORD length, DWORD* written) {
    const DWORD held = port->tailLength;
    if (held + length <= DataTailLength) {
        ShiftLine(port, 0, data, length);
        *written = length;
        return 1;
    }
    const DWORD due = held + length - DataTailLength;

    DWORD sent = 0;
    if (due <= held) {
        // A short block: only the line's oldest bytes are due.
        LowerWrite(port, HeldJobBytes(port), due, &sent);
    } else if (due <= LineWriteBufferSize) {
        std::memcpy(port->lineWriteBuffer, HeldJobBytes(port), held);
        std::memcpy(port->lineWriteBuffer + held, data, due - held);
        LowerWrite(port, port->lineWriteBuffer, due, &sent);
    } else {
        if (held != 0) {
            LowerWrite(port, HeldJobBytes(port), held, &sent);
            sent = std::min(sent, held);
        }
        if (sent == held) {
            DWORD blockSent = 0;
            LowerWrite(port, data, due - held, &blockSent);
            sent += std::min(blockSent, due - held);
        }
    }
    sent = std::min(sent, due);

    if (sent < held) {
        // The line keeps its younger bytes and takes as much of the block
        // as fits behind them.
        const DWORD added = std::min(length, DataTailLength - (held - sent));
        ShiftLine(port, sent, data, added);
        *written = added;
        return 1;
    }
    const DWORD blockSent = sent - held;
    port->tailLength = 0;
    ShiftLine(port, 0, data + blockSent, DataTailLength);
    *written = blockSent + DataTailLength;
    return 1;
}

}  // namespace langmon
