// What tests expect of the printer's status: its status code table, and the
// bytes of the records and blocks a client reads, in a form that shows where
// two of them differ.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace langmon::testing {

// The printer's status code as a Condition, as its documentation gives it: a
// class above the low byte and a range of the low byte; a code no row names
// gives 0. A lower Condition is the more urgent one.
struct CodeRange {
    uint32_t kind, first, last, condition;
};
inline constexpr CodeRange CodeRanges[] = {
    {0, 0, 255, 7},  {1, 0, 255, 7},  {2, 0, 255, 7},  {3, 0, 255, 7},  {4, 0, 0, 4},
    {4, 1, 1, 5},    {7, 0, 255, 16}, {8, 0, 4, 11},   {8, 5, 9, 13},   {8, 10, 15, 17},
    {8, 16, 20, 13}, {8, 21, 29, 12}, {9, 0, 255, 10}, {10, 0, 0, 26},  {10, 1, 1, 19},
    {10, 2, 2, 18},  {10, 3, 3, 23},  {12, 1, 1, 28},  {12, 2, 3, 40},  {12, 4, 5, 31},
    {13, 0, 3, 33},  {14, 0, 3, 11},  {14, 4, 7, 17},  {14, 8, 13, 38}, {14, 15, 15, 39},
    {15, 0, 0, 31},  {15, 1, 1, 41},
};
inline uint32_t ConditionOfCode(uint32_t code) {
    for (const CodeRange& r : CodeRanges) {
        if (code >> 8 == r.kind && (code & 0xFF) >= r.first && (code & 0xFF) <= r.last) {
            return r.condition;
        }
    }
    return 0;
}

// Bytes as hex pairs, so that a mismatch shows where.
inline std::string HexBytes(const void* data, std::size_t size) {
    std::string out;
    char pair[4];
    for (std::size_t i = 0; i < size; ++i) {
        std::snprintf(pair, sizeof pair, "%02X ", static_cast<const uint8_t*>(data)[i]);
        out += pair;
    }
    return out;
}

// A name in its 64-byte block: at most 63 bytes, then zeros.
inline std::string TextBlock(const std::string& text) {
    return (text.substr(0, 63) + std::string(64, '\0')).substr(0, 64);
}

}  // namespace langmon::testing
