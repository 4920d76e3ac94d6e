// The STS block as it comes off the wire: which texts decode, into which
// fields, and the Condition each printer status code stands for.
#include "acquisition/sts_block.h"

#include "acquisition/acquisition_fixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace langmon {
namespace {

const std::string Ready = "AAAPAQAAAAAABAJ/WiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA";

// A record that shows whether a refused decode touched it.
StatusRecord Untouched() {
    StatusRecord r;
    std::memset(&r, 0xAB, sizeof r);
    return r;
}

// The record's bytes, so that a mismatch shows where.
std::string Hex(const StatusRecord& r) {
    std::string out;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&r);
    for (std::size_t i = 0; i < sizeof r; ++i) {
        out += "0123456789ABCDEF"[bytes[i] >> 4];
        out += "0123456789ABCDEF"[bytes[i] & 0xF];
        out += i % 2 == 1 ? " " : "";
    }
    return out;
}

TEST(StsBlock, TheReadyPrinterDecodesFieldByField) {
    StatusRecord r = Untouched();
    ASSERT_EQ(DecodeStsBlock((Ready + ";CLS:PRINTER;").c_str(), &r), 1);
    EXPECT_EQ(Hex(r), Hex(testing::ReadyRecord()));
}

TEST(StsBlock, WideFieldsAreBigEndianOnTheWire) {
    // Bytes 0..5: 12 34 56 78 9A BC; bytes 34..37: DE AD BE EF.
    const std::string text = "EjRWeJq8" + std::string(36, 'A') + "AN6tvu8AAAAA";
    StatusRecord r{};
    ASSERT_EQ(DecodeStsBlock(text.c_str(), &r), 1);
    // The record is packed: its fields are compared as copies.
    EXPECT_EQ(uint32_t{r.StatusCode}, 0x12345678u);
    EXPECT_EQ(uint16_t{r.HwErrorHigh}, 0x9ABCu);
    EXPECT_EQ(uint32_t{r.JamWord}, 0xDEADBEEFu);
}

TEST(StsBlock, OnlyFiftySixCharactersBeforeTheSemicolonOrTheEnd) {
    const struct {
        std::string text;
        int result;
    } cases[] = {
        {Ready.substr(0, 55) + ";", 0},
        {Ready.substr(0, 55), 0},
        {Ready + "A;", 0},
        {Ready + "A", 0},
        {"", 0},
        {";" + Ready, 0},
        {Ready, 1},
        {Ready + ";", 1},
        {Ready + ";MDL:Laser Printer 6200tx;", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        StatusRecord r = Untouched();
        EXPECT_EQ(DecodeStsBlock(c.text.c_str(), &r), c.result);
        if (c.result == 0) {
            EXPECT_EQ(Hex(r), Hex(Untouched()));
        }
    }
}

TEST(StsBlock, EqualsSignCountsAsZeroWhereverItStands) {
    StatusRecord r = Untouched();
    for (const char zero : {'A', '='}) {
        ASSERT_EQ(DecodeStsBlock(std::string(56, zero).c_str(), &r), 1);
        EXPECT_EQ(Hex(r), Hex(StatusRecord{}));  // a cover counts as open, no trays
    }
    // The 'P' of the status code gone: the rest of the block still decodes.
    std::string text = Ready;
    text[3] = '=';
    StatusRecord expected = testing::ReadyRecord();
    expected.StatusCode = 0x0001;
    ASSERT_EQ(DecodeStsBlock(text.c_str(), &r), 1);
    EXPECT_EQ(Hex(r), Hex(expected));
}

TEST(StsBlock, OneCharacterOutsideTheAlphabetRefusesTheBlock) {
    for (const char bad : {'-', '\x80', '_', ' ', '\xFF'}) {
        for (std::size_t at = 0; at < 56; ++at) {
            SCOPED_TRACE(::testing::Message()
                         << "byte " << int(static_cast<unsigned char>(bad)) << " at " << at);
            std::string text = Ready;
            text[at] = bad;
            StatusRecord r = Untouched();
            EXPECT_EQ(DecodeStsBlock(text.c_str(), &r), 0);
            EXPECT_EQ(Hex(r), Hex(Untouched()));
        }
    }
}

// The printer's status code table, written out once more as the printer's
// documentation gives it: class, then low byte.
uint32_t ExpectedCondition(uint32_t cls, uint32_t low) {
    switch (cls) {
        case 0:
        case 1:
        case 2:
        case 3:
            return 7;
        case 4:
            return low == 0 ? 4 : low == 1 ? 5 : 0;
        case 7:
            return 16;
        case 8:
            if (low <= 4) return 11;
            if (low <= 9) return 13;
            if (low <= 15) return 17;
            if (low <= 20) return 13;
            if (low <= 29) return 12;
            return 0;
        case 9:
            return 10;
        case 10:
            return low == 0 ? 26 : low == 1 ? 19 : low == 2 ? 18 : low == 3 ? 23 : 0;
        case 12:
            return low == 1 ? 28 : (low == 2 || low == 3) ? 40 : (low == 4 || low == 5) ? 31 : 0;
        case 13:
            return low <= 3 ? 33 : 0;
        case 14:
            if (low <= 3) return 11;
            if (low <= 7) return 17;
            if (low <= 13) return 38;
            return low == 15 ? 39 : 0;
        case 15:
            return low == 0 ? 31 : low == 1 ? 41 : 0;
        default:
            return 0;
    }
}

TEST(StatusCode, EveryClassAndLowByteGivesItsCondition) {
    for (uint32_t cls = 0; cls <= 16; ++cls) {
        for (uint32_t low = 0; low <= 255; ++low) {
            const uint32_t code = cls << 8 | low;
            ASSERT_EQ(ConditionOfStatusCode(code), ExpectedCondition(cls, low))
                << std::hex << "code 0x" << code;
        }
    }
}

TEST(StatusCode, NamedCodesInPlace) {
    const struct {
        uint32_t code;
        uint32_t condition;
    } cases[] = {{0x0F01, 41}, {0x081E, 0}, {0x00010F01, 0}, {0xFFFFFFFF, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << "code 0x" << c.code);
        StatusRecord r{};
        r.StatusCode = c.code;
        r.CoverWord = 0x027F;
        MapStatusCode(&r);
        EXPECT_EQ(uint32_t{r.StatusCode}, c.condition);
        EXPECT_EQ(uint16_t{r.CoverWord}, 0x027Fu);
    }
}

}  // namespace
}  // namespace langmon
