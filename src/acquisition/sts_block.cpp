#include "acquisition/sts_block.h"

#include <array>
#include <cstring>

namespace langmon {

const uint16_t BinIdTable[3] = {2001, 1, 2};
const uint16_t BinInputTypeTable[5] = {0, 2001, 1, 3, 9};
const uint8_t BinLevelTable[4] = {253, 253, 0, 254};
const uint16_t MediaSizeTable[MediaSizeCount] = {
    NoPaperSize, 8, 9, 11, 12, 13, 1, 4, 41, 5, 1234, 58, 1236, 7,
    6, 43, 69, 20, 37, 28, 27, 31, 1237, 91, 73, 256, 1238,
};
const uint8_t BinMediaTypeTable[32] = {
    15, 0, 2, 6, 1, 15, 4, 5, 23, 15, 13, 12, 24, 19, 3, 7,
    15, 0, 19, 19, 1, 15, 4, 5, 23, 15, 13, 12, 24, 15, 3, 15,
};
// Each index names itself, but for the types the LM_ interface has no code for.
const uint8_t LmMediaTypeTable[32] = {
    0, 1, 2, 3, 4, 0, 6, 7, 8, 0, 10, 11, 12, 0, 14, 15,
    0, 17, 0, 0, 20, 0, 22, 23, 24, 0, 26, 27, 28, 0, 30, 0,
};

namespace {

constexpr uint8_t NotBase64 = 0xFF;

// The value of each byte in the alphabet; "=" counts as 0 wherever it stands.
constexpr std::array<uint8_t, 256> MakeBase64Values() {
    std::array<uint8_t, 256> values{};
    for (auto& v : values) v = NotBase64;
    const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (uint8_t i = 0; i < 64; ++i) values[static_cast<uint8_t>(alphabet[i])] = i;
    values['='] = 0;
    return values;
}
constexpr std::array<uint8_t, 256> Base64Values = MakeBase64Values();

uint16_t BigEndian16(const uint8_t* at) { return static_cast<uint16_t>(at[0] << 8 | at[1]); }
uint32_t BigEndian32(const uint8_t* at) {
    return uint32_t{at[0]} << 24 | uint32_t{at[1]} << 16 | uint32_t{at[2]} << 8 | at[3];
}

// One row of the status code table: a class, a range of low bytes, a Condition.
struct StatusCodeRow {
    uint32_t Class;
    uint8_t LowFirst;
    uint8_t LowLast;
    uint8_t Condition;
};

constexpr StatusCodeRow StatusCodeRows[] = {
    {0, 0, 255, 7},   {1, 0, 255, 7},   {2, 0, 255, 7},   {3, 0, 255, 7},
    {4, 0, 0, 4},     {4, 1, 1, 5},     {7, 0, 255, 16},  {8, 0, 4, 11},
    {8, 5, 9, 13},    {8, 10, 15, 17},  {8, 16, 20, 13},  {8, 21, 29, 12},
    {9, 0, 255, 10},  {10, 0, 0, 26},   {10, 1, 1, 19},   {10, 2, 2, 18},
    {10, 3, 3, 23},   {12, 1, 1, 28},   {12, 2, 3, 40},   {12, 4, 5, 31},
    {13, 0, 3, 33},   {14, 0, 3, 11},   {14, 4, 7, 17},   {14, 8, 13, 38},
    {14, 15, 15, 39}, {15, 0, 0, 31},   {15, 1, 1, 41},
};

}  // namespace

/* DecodeStsBlock: the 56 characters into the 42 bytes of a record. */
int DecodeStsBlock(const char* text, StatusRecord* record) {
    std::size_t length = 0;
    while (text[length] != '\0' && text[length] != ';') {
        if (++length > StsTextLength) return 0;
    }
    if (length != StsTextLength) return 0;

    uint8_t wire[sizeof(StatusRecord)];
    for (std::size_t group = 0; group < StsTextLength / 4; ++group) {
        uint8_t v[4];
        for (std::size_t i = 0; i < 4; ++i) {
            v[i] = Base64Values[static_cast<uint8_t>(text[group * 4 + i])];
            if (v[i] == NotBase64) return 0;
        }
        wire[group * 3] = static_cast<uint8_t>(v[0] << 2 | v[1] >> 4);
        wire[group * 3 + 1] = static_cast<uint8_t>(v[1] << 4 | v[2] >> 2);
        wire[group * 3 + 2] = static_cast<uint8_t>(v[2] << 6 | v[3]);
    }

    StatusRecord r;
    r.StatusCode = BigEndian32(wire + 0);
    r.HwErrorHigh = BigEndian16(wire + 4);
    r.HwErrorLow = BigEndian16(wire + 6);
    r.EngineState = wire[8];
    r.MemoryUnits = wire[9];
    r.CoverWord = BigEndian16(wire + 10);
    for (int i = 0; i < 4; ++i) r.SupplyWord[i] = BigEndian16(wire + 12 + 2 * i);
    r.CruWord = BigEndian16(wire + 20);
    r.Unread22 = wire[22];
    r.AuxByte = wire[23];
    for (int i = 0; i < 3; ++i) r.TrayWord[i] = BigEndian16(wire + 24 + 2 * i);
    r.FeedWord = BigEndian16(wire + 30);
    r.OptionWord = BigEndian16(wire + 32);
    r.JamWord = BigEndian32(wire + 34);
    std::memcpy(r.Unread38, wire + 38, sizeof r.Unread38);
    *record = r;
    return 1;
}

uint32_t ConditionOfStatusCode(uint32_t statusCode) {
    const uint32_t cls = statusCode >> 8;
    const uint32_t low = statusCode & 0xFF;
    for (const StatusCodeRow& row : StatusCodeRows) {
        if (row.Class == cls && low >= row.LowFirst && low <= row.LowLast) return row.Condition;
    }
    return 0;
}

/* MapStatusCode: the printer's status code becomes the monitor's Condition. */
void MapStatusCode(StatusRecord* record) {
    record->StatusCode = ConditionOfStatusCode(record->StatusCode);
}

}  // namespace langmon
