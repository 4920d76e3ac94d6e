// What the printer sends back, through the port's response parser as the
// reader hands it over: in NUL-terminated blocks, each parsed until the
// parser says 2, after which the reader lets the rest go. The first byte of
// the input chooses the block length (see BlockLengthFor). A fresh port per
// input, with publication on, so every handler's changes reach the variables.

#include "fuzz_monitor.h"

#include "parser/response_parser.h"

#include <algorithm>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace langmon;
    if (size == 0) return 0;
    const std::size_t blockLength = fuzz::BlockLengthFor(data[0]);
    ++data;
    --size;

    fuzz::FuzzPort port("LPT1", "");
    char block[fuzz::ReaderBlockBytes + 1];
    bool parsing = true;
    for (std::size_t at = 0; at < size && parsing; at += blockLength) {
        const std::size_t length = std::min(blockLength, size - at);
        std::memcpy(block, data + at, length);
        block[length] = '\0';
        parsing = ParseResponseBuffer(port.Context(), block, 1) != 2;
    }
    return 0;
}
