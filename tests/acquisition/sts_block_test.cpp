// The STS block as it comes off the wire: which texts decode, into which
// fields, and the Condition each printer status code stands for.
#include "acquisition/sts_block.h"

#include "acquisition/acquisition_fixture.h"
#include "support/device_ids.h"
#include "support/status_codes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

namespace langmon {
namespace {

const std::string& Ready = testing::ReadyStatusBlock;

// A record that shows whether a refused decode touched it.
StatusRecord Untouched() {
    StatusRecord r;
    std::memset(&r, 0xAB, sizeof r);
    return r;
}

// The record's bytes in hex, so that a mismatch shows where.
std::string Hex(const StatusRecord& r) {
    return testing::HexBytes(&r, sizeof r);
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
}

// Every class and low byte, codes the emulator never sends included.
TEST(StatusCode, EveryClassAndLowByteGivesItsCondition) {
    for (uint32_t code = 0; code <= 0x10FF; ++code) {
        ASSERT_EQ(ConditionOfStatusCode(code), testing::ConditionOfCode(code)) << std::hex << "code 0x" << code;
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
