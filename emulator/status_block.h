// The printer's side of the "STS:" field of its device ID: its state packed
// into 42 big-endian bytes and written as 56 Base64 characters.
#pragma once

#include "emulator/printer_condition.h"
#include "emulator/printer_state.h"

#include <array>
#include <cstdint>
#include <string>

namespace langmon::emulator {

using StatusBlock = std::array<uint8_t, 42>;

StatusBlock EncodeStatusBlock(const PrinterState& state, const PrinterCondition& condition);

// Standard Base64 (RFC 4648) of the 42 bytes: exactly 56 characters, no padding.
std::string StatusBlockText(const StatusBlock& block);

// The 2-bit paper level a tray reports: 2 empty, 1 low (a tenth or less of its
// capacity), 3 full, 0 anything between; 3 for anything between in a tray
// of a kind other than Normal, whose level the host reads by bit 12 alone.
uint16_t TrayLevelBits(const Tray& tray);

// The device ID: "MFG:", "CMD:", "MDL:", "CLS:", "DES:" and, for a model of
// the family, "STS:", each field closed by ';'.
std::string BuildDeviceId(const PrinterState& state, const PrinterCondition& condition);

}  // namespace langmon::emulator
