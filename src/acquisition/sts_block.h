// The "STS:" field of the device ID: the printer's whole state in 42
// big-endian bytes, written as 56 Base64 characters. This is the wire format
// and the tables that turn its fields into the monitor's own codes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace langmon {

// The decoded block, at the offsets of the wire, every field wider than a
// byte in host order. `StatusCode` becomes the `Condition` in place.
#pragma pack(push, 1)
struct StatusRecord {
    uint32_t StatusCode;  // after MapStatusCode: the Condition
    uint16_t HwErrorHigh;
    uint16_t HwErrorLow;
    uint8_t EngineState;  // 1 printing, 2 busy
    uint8_t MemoryUnits;  // 32 MB each
    uint16_t CoverWord;   // 0x027F: every cover closed
    uint16_t SupplyWord[4];
    uint16_t CruWord;
    uint8_t Unread22;
    uint8_t AuxByte;
    uint16_t TrayWord[3];
    uint16_t FeedWord;
    uint16_t OptionWord;
    uint32_t JamWord;
    uint8_t Unread38[4];
};
#pragma pack(pop)

static_assert(sizeof(StatusRecord) == 42);
static_assert(offsetof(StatusRecord, HwErrorLow) == 6);
static_assert(offsetof(StatusRecord, CoverWord) == 10);
static_assert(offsetof(StatusRecord, CruWord) == 20);
static_assert(offsetof(StatusRecord, AuxByte) == 23);
static_assert(offsetof(StatusRecord, TrayWord) == 24);
static_assert(offsetof(StatusRecord, FeedWord) == 30);
static_assert(offsetof(StatusRecord, JamWord) == 34);

// The field is exactly this many characters behind "STS:".
constexpr std::size_t StsTextLength = 56;

// The whole word that marks a supply whose level the printer can't tell.
constexpr uint16_t SupplyMarkerWord = 0x7F03;
constexpr uint16_t CoversClosed = 0x027F;

// Bit fields of the supply words (the four toners and the unit).
constexpr uint32_t SupplyRemain(uint16_t word) { return (word >> 8) & 0x7F; }
constexpr bool SupplyFault(uint16_t word) { return (word & 0x40) != 0; }
constexpr bool SupplyFitted(uint16_t word) { return (word & 0x20) != 0; }
constexpr bool CruFault(uint16_t word) { return (word & 0x38) != 0; }
constexpr uint32_t SupplyState(uint16_t word) { return word & 0x3; }

// Bit fields of a tray word.
constexpr uint32_t TrayKind(uint16_t word) { return word >> 14; }
constexpr uint32_t TrayLevel(uint16_t word) { return (word >> 12) & 0x3; }
constexpr uint32_t TrayMediaType(uint16_t word) { return (word >> 7) & 0x1F; }
constexpr bool TrayVariant(uint16_t word) { return (word & 0x40) != 0; }
constexpr uint32_t TrayMediaSize(uint16_t word) { return word & 0x1F; }

// Bit fields of the feed word.
constexpr uint32_t FeedSlot(uint16_t word) { return word >> 14; }
constexpr uint32_t FeedMediaType(uint16_t word) { return (word >> 8) & 0xF; }
constexpr uint32_t FeedMediaSize(uint16_t word) { return word & 0xFF; }

// The tables of the block's indexes.
constexpr uint16_t NoPaperSize = 0xFFFF;
extern const uint16_t BinIdTable[3];
extern const uint16_t BinInputTypeTable[5];
extern const uint8_t BinLevelTable[4];
constexpr uint32_t MediaSizeCount = 27;
extern const uint16_t MediaSizeTable[MediaSizeCount];
extern const uint8_t BinMediaTypeTable[32];
extern const uint8_t LmMediaTypeTable[32];

// 1 with `record` filled from the 56 characters at `text` (behind "STS:"),
// closed by ';' or the text's end; 0 for any other length or a byte outside
// the Base64 alphabet and "=", and then `record` is left as it was.
int DecodeStsBlock(const char* text, StatusRecord* record);

// The Condition that a status code stands for; 0 for a code the printer's
// table doesn't name.
uint32_t ConditionOfStatusCode(uint32_t statusCode);
// Replaces the record's StatusCode with its Condition.
void MapStatusCode(StatusRecord* record);

}  // namespace langmon
