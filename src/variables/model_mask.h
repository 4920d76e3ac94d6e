// A set of printer models: 64 bits held as two 32-bit words, low and high.
#pragma once

#include <cstdint>

namespace langmon {

struct ModelMask {
    uint32_t low;
    uint32_t high;
};

// A row without restriction; tested by equality, never by intersection.
constexpr ModelMask ModelMaskAny{0xFFFFFFFFu, 0xFFFFFFFFu};
// The first and the second model of the model table.
constexpr ModelMask ModelMask6200{0, 0x00000008u};
constexpr ModelMask ModelMask6300{0, 0x00000002u};
// The models of the family.
constexpr ModelMask ModelMaskFamily{0, 0x0000000Eu};
// Every bit but the four low bits of the high word: rows that exist on none of
// the known models.
constexpr ModelMask ModelMaskExtended{0xFFFFFFFFu, 0xFFFFFFF0u};

// 1 if the low words or the high words share a bit.
constexpr int MasksIntersect(uint32_t aLow, uint32_t aHigh, uint32_t bLow, uint32_t bHigh) {
    return ((aLow & bLow) != 0 || (aHigh & bHigh) != 0) ? 1 : 0;
}
// 1 if either word differs.
constexpr int MasksDiffer(uint32_t aLow, uint32_t aHigh, uint32_t bLow, uint32_t bHigh) {
    return (aLow != bLow || aHigh != bHigh) ? 1 : 0;
}
inline void SetMask(ModelMask* target, uint32_t low, uint32_t high) {
    target->low = low;
    target->high = high;
}

}  // namespace langmon
