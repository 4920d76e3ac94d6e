// The STS block as it comes off the wire: which texts decode, into which
// fields, and the Condition each printer status code stands for.
#include "acquisition/sts_block.h"

#include "acquisition/acquisition_fixture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

namespace langmon {
namespace {

const std::string Ready = "AAAPAQAAAAAABAJ/WiNLIzwjLSNkAwADUIKAggAAQQIAAQAAAAAAAAAA";

// A record that shows whether a refused decode touched it.
StatusRecord Untouched() {
    StatusRecord r;
    std::memset(&r, 0xAB, sizeof r);
    return r;
}

// The record's bytes in hex, so that a mismatch shows where.
std::string Hex(const StatusRecord& r) {
    std::string out;
    char pair[4];
    for (std::size_t i = 0; i < sizeof r; ++i) {
        std::snprintf(pair, sizeof pair, "%02X ", reinterpret_cast<const uint8_t*>(&r)[i]);
        out += pair;
    }
    return out;
}

TEST(StsBlock, FieldsDecodeBigEndianInPlace) {
    StatusRecord r = Untouched();
    ASSERT_EQ(DecodeStsBlock((Ready + ";CLS:PRINTER;").c_str(), &r), 1);
    EXPECT_EQ(Hex(r), Hex(testing::ReadyRecord()));

    // Bytes 0..5: 12 34 56 78 9A BC; bytes 34..37: DE AD BE EF.
    const std::string wide = "EjRWeJq8" + std::string(36, 'A') + "AN6tvu8AAAAA";
    ASSERT_EQ(DecodeStsBlock(wide.c_str(), &r), 1);
    EXPECT_EQ(uint32_t{r.StatusCode}, 0x12345678u);  // packed: compared as copies
    EXPECT_EQ(uint16_t{r.HwErrorHigh}, 0x9ABCu);
    EXPECT_EQ(uint32_t{r.JamWord}, 0xDEADBEEFu);
}

TEST(StsBlock, OnlyFiftySixGoodCharactersBeforeTheSemicolonOrTheEnd) {
    std::string equals = Ready;
    equals[3] = '=';  // the 'P' of the status code gone: "=" is a zero
    StatusRecord lowCode = testing::ReadyRecord();
    lowCode.StatusCode = 0x0001;
    const struct {
        std::string text;
        int result;
        StatusRecord record;
    } cases[] = {
        {Ready.substr(0, 55) + ";", 0, Untouched()},
        {Ready.substr(0, 55), 0, Untouched()},
        {Ready + "A;", 0, Untouched()},
        {Ready + "A", 0, Untouched()},
        {"", 0, Untouched()},
        {";" + Ready, 0, Untouched()},
        {Ready, 1, testing::ReadyRecord()},
        {Ready + ";MDL:Laser Printer 6200tx;", 1, testing::ReadyRecord()},
        {std::string(56, 'A'), 1, StatusRecord{}},
        {std::string(56, '='), 1, StatusRecord{}},
        {equals, 1, lowCode},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        StatusRecord r = Untouched();
        EXPECT_EQ(DecodeStsBlock(c.text.c_str(), &r), c.result);
        EXPECT_EQ(Hex(r), Hex(c.record));
    }
    for (const char bad : {'-', '\x80', '_', ' ', '\xFF'}) {
        for (std::size_t at = 0; at < 56; ++at) {
            SCOPED_TRACE(::testing::Message() << int(uint8_t(bad)) << " at " << at);
            std::string text = Ready;
            text[at] = bad;
            StatusRecord r = Untouched();
            EXPECT_EQ(DecodeStsBlock(text.c_str(), &r), 0);
            EXPECT_EQ(Hex(r), Hex(Untouched()));
        }
    }
}

// The printer's status code table as its documentation gives it: a class, a
// range of low bytes and the Condition; any other code gives 0.
TEST(StatusCode, EveryClassAndLowByteGivesItsCondition) {
    const struct {
        uint32_t cls, first, last, condition;
    } rows[] = {
        {0, 0, 255, 7},   {1, 0, 255, 7},  {2, 0, 255, 7},  {3, 0, 255, 7},   {4, 0, 0, 4},
        {4, 1, 1, 5},     {7, 0, 255, 16}, {8, 0, 4, 11},   {8, 5, 9, 13},    {8, 10, 15, 17},
        {8, 16, 20, 13},  {8, 21, 29, 12}, {9, 0, 255, 10}, {10, 0, 0, 26},   {10, 1, 1, 19},
        {10, 2, 2, 18},   {10, 3, 3, 23},  {12, 1, 1, 28},  {12, 2, 3, 40},   {12, 4, 5, 31},
        {13, 0, 3, 33},   {14, 0, 3, 11},  {14, 4, 7, 17},  {14, 8, 13, 38},  {14, 15, 15, 39},
        {15, 0, 0, 31},   {15, 1, 1, 41},
    };
    for (uint32_t code = 0; code <= 0x10FF; ++code) {
        uint32_t expected = 0;
        for (const auto& row : rows) {
            const uint32_t low = code & 0xFF;
            if (code >> 8 == row.cls && low >= row.first && low <= row.last) expected = row.condition;
        }
        ASSERT_EQ(ConditionOfStatusCode(code), expected) << std::hex << "code 0x" << code;
    }
    for (const auto& [code, condition] : {std::pair{0x0F01u, 41u}, {0x00010F01u, 0u}, {~0u, 0u}}) {
        StatusRecord r = testing::ReadyRecord();
        r.StatusCode = code;
        MapStatusCode(&r);
        EXPECT_EQ(uint32_t{r.StatusCode}, condition) << std::hex << code;
        EXPECT_EQ(uint16_t{r.CoverWord}, 0x027Fu);
    }
}

}  // namespace
}  // namespace langmon
