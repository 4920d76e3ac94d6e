#include "parser/parse_buffer.h"

#include "platform/memory.h"

#include <algorithm>
#include <cstring>

namespace langmon {

namespace {

// Room for the reader's 1024-byte block behind a response's unfinished
// part, with some to spare; a buffer grown past this is given back once
// the long response that needed it is over.
constexpr std::size_t KeptBytes = 8192;

}  // namespace

bool ReserveParseBuffer(ParseBuffer* buffer, std::size_t bytes, std::size_t keep) {
    if (bytes <= buffer->Capacity) return true;
    // Doubling: a tail that grows a little block after block costs a few
    // allocations in all, not one a block.
    const std::size_t capacity = std::max(bytes, std::size_t{2} * buffer->Capacity);
    if (capacity > UINT32_MAX) return false;
    auto* text = static_cast<char*>(GlobalAlloc(GPTR, capacity));
    if (text == nullptr) return false;
    if (keep != 0) std::memcpy(text, buffer->Text, std::min<std::size_t>(keep, buffer->Capacity));
    GlobalFree(buffer->Text);
    buffer->Text = text;
    buffer->Capacity = static_cast<uint32_t>(capacity);
    return true;
}

void TrimParseBuffer(ParseBuffer* buffer) {
    if (buffer->Capacity > KeptBytes) FreeParseBuffer(buffer);
}

void FreeParseBuffer(ParseBuffer* buffer) {
    GlobalFree(buffer->Text);
    buffer->Text = nullptr;
    buffer->Capacity = 0;
}

}  // namespace langmon
