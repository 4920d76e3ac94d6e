// lstrcmpA and lstrcmpiA: byte order, case, and null texts.

#include "platform/text.h"

#include <gtest/gtest.h>

namespace langmon {
namespace {

TEST(TextCompare, OrdersByUnsignedBytesAndPutsNullFirst) {
    EXPECT_EQ(lstrcmpA("LPT1", "LPT1"), 0);
    EXPECT_LT(lstrcmpA("LPT1", "LPT2"), 0);
    EXPECT_LT(lstrcmpA("LPT", "LPT1"), 0);
    EXPECT_GT(lstrcmpA("\x83v", "z"), 0);  // a Shift-JIS byte sorts above ASCII
    EXPECT_NE(lstrcmpA("lpt1", "LPT1"), 0);
    EXPECT_EQ(lstrcmpA(nullptr, nullptr), 0);
    EXPECT_LT(lstrcmpA(nullptr, ""), 0);
    EXPECT_GT(lstrcmpA("", nullptr), 0);

    EXPECT_EQ(lstrcmpiA("lpt1", "LPT1"), 0);
    EXPECT_EQ(lstrcmpiA("\x83v", "\x83V"), 0);  // only the ASCII letter folds
    EXPECT_NE(lstrcmpiA("\x83", "\xA3"), 0);
    EXPECT_LT(lstrcmpiA(nullptr, "a"), 0);
}

}  // namespace
}  // namespace langmon
