#include "emulator/status_block.h"

namespace langmon::emulator {
namespace {

void Put16(StatusBlock& block, size_t at, uint16_t value) {
    block[at] = static_cast<uint8_t>(value >> 8);
    block[at + 1] = static_cast<uint8_t>(value);
}

void Put32(StatusBlock& block, size_t at, uint32_t value) {
    Put16(block, at, static_cast<uint16_t>(value >> 16));
    Put16(block, at + 2, static_cast<uint16_t>(value));
}

// A level the printer cannot measure goes out as this whole word.
constexpr uint16_t UnknownLevelWord = 0x7F03;

// A measured level of 127 with nothing else to say would be that same word,
// and the host would read "unknown". Bit 7, which the host doesn't read,
// keeps it a measurement.
uint16_t MeasuredWord(uint16_t word) { return word == UnknownLevelWord ? word | 0x0080 : word; }

uint16_t TonerWord(const Toner& toner) {
    if (toner.level == UnknownLevel) return UnknownLevelWord;
    const auto state = static_cast<uint16_t>(SupplyStateForLevel(toner.level));
    const auto word = static_cast<uint16_t>((toner.level & 0x7F) << 8 | (toner.fault ? 0x40 : 0) |
                                            (toner.fitted ? 0x20 : 0) | state);
    return MeasuredWord(word);
}

uint16_t UnitWord(const Unit& unit) {
    if (unit.level == UnknownLevel) return UnknownLevelWord;
    // The unit reports its own faults in bits 5-3; it has no "fitted" bit.
    const auto word = static_cast<uint16_t>((unit.level & 0x7F) << 8 | (unit.fault ? 0x08 : 0) |
                                            static_cast<uint16_t>(SupplyStateForLevel(unit.level)));
    return MeasuredWord(word);
}

uint16_t TrayWord(const Tray& tray) {
    if (tray.kind == TrayKind::None) return 0;
    return static_cast<uint16_t>(static_cast<uint16_t>(tray.kind) << 14 | TrayLevelBits(tray) << 12 |
                                 (tray.mediaType & 0x1F) << 7 | (tray.variant ? 0x40 : 0) |
                                 (tray.mediaSize & 0x1F));
}

uint16_t FeedWord(const PrinterState& state) {
    int slot = state.feedSlot >= 0 && state.feedSlot < TraySlots ? state.feedSlot : 0;
    const Tray& tray = state.trays[slot];
    return static_cast<uint16_t>(slot << 14 | (tray.mediaType & 0x0F) << 8 | tray.mediaSize);
}

uint16_t OptionWord(const PrinterState& state) {
    return static_cast<uint16_t>((state.duplex ? 0x01 : 0) | (state.option7001 ? 0x02 : 0) |
                                 (state.option3001 ? 0x04 : 0) | (state.ramDisk ? 0x80 : 0));
}

}  // namespace

uint16_t TrayLevelBits(const Tray& tray) {
    if (tray.sheets <= 0) return 2;
    if (tray.sheets * 10 <= tray.capacity) return 1;
    if (tray.sheets >= tray.capacity) return 3;
    // Only a normal cassette says "some paper" with 0. The host reads the
    // other kinds as if bit 13 were set, so that 0 would be an empty tray.
    return tray.kind == TrayKind::Normal ? 0 : 3;
}

StatusBlock EncodeStatusBlock(const PrinterState& state, const PrinterCondition& condition) {
    StatusBlock block{};
    Put32(block, 0, condition.statusCode);
    Put32(block, 4, state.hardwareError);  // high half at 4, low half at 6
    block[8] = condition.engineState;
    block[9] = static_cast<uint8_t>(state.memoryMB / 32);
    Put16(block, 10, static_cast<uint16_t>(AllCovers & ~state.openCovers));
    for (size_t i = 0; i < 4; ++i) Put16(block, 12 + 2 * i, TonerWord(state.toners[i]));
    Put16(block, 20, UnitWord(state.unit));
    block[23] = static_cast<uint8_t>(static_cast<uint8_t>(state.wasteState) |
                                     (state.periodicChange ? 0x10 : 0));
    for (size_t i = 0; i < TraySlots; ++i) Put16(block, 24 + 2 * i, TrayWord(state.trays[i]));
    Put16(block, 30, FeedWord(state));
    Put16(block, 32, OptionWord(state));
    Put32(block, 34, state.jamPlaces);
    return block;
}

std::string StatusBlockText(const StatusBlock& block) {
    static constexpr char Alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve(56);
    for (size_t i = 0; i < block.size(); i += 3) {
        uint32_t group = uint32_t{block[i]} << 16 | uint32_t{block[i + 1]} << 8 | block[i + 2];
        for (int shift = 18; shift >= 0; shift -= 6) text += Alphabet[(group >> shift) & 0x3F];
    }
    return text;
}

std::string BuildDeviceId(const PrinterState& state, const PrinterCondition& condition) {
    std::string text = "MFG:" + state.manufacturer + ";CMD:" + state.commandSet + ";MDL:" +
                       state.model + ";CLS:PRINTER;DES:" + state.manufacturer + " " + state.model + ";";
    if (IsFamilyModel(state.model)) {
        text += "STS:" + StatusBlockText(EncodeStatusBlock(state, condition)) + ";";
    }
    return text;
}

}  // namespace langmon::emulator
