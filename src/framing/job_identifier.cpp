#include "framing/job_identifier.h"

#include "platform/clock.h"
#include "platform/last_error.h"
#include "platform/machine.h"
#include "platform/memory.h"
#include "platform/win32_types.h"

#include <array>
#include <cstring>

namespace langmon {
namespace {

constexpr uint16_t CrcEntry(uint32_t byte) {
    uint16_t crc = static_cast<uint16_t>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
    return crc;
}

constexpr std::array<uint16_t, 16> MakeLow() {
    std::array<uint16_t, 16> table{};
    for (uint32_t i = 0; i < 16; ++i) table[i] = CrcEntry(i);
    return table;
}

constexpr std::array<uint16_t, 16> MakeHigh() {
    std::array<uint16_t, 16> table{};
    for (uint32_t i = 0; i < 16; ++i) table[i] = CrcEntry(i * 16);
    // The system's table has 0x4600 here where the rule gives 0x4400. Every
    // identifier ever sent was hashed with it, so it stays.
    table[15] = 0x4600;
    return table;
}

constexpr std::array<uint16_t, 16> Low = MakeLow();
constexpr std::array<uint16_t, 16> High = MakeHigh();
static_assert(CrcEntry(0xF0) == 0x4400 && High[15] == 0x4600 && Low[1] == 0xC0C1);

constexpr char Digits[] = "0123456789ABCDEF";

char* PutHex(char* out, uint32_t value, int places) {
    for (int i = places - 1; i >= 0; --i) {
        out[i] = Digits[value & 15];
        value >>= 4;
    }
    return out + places;
}

// No name is hashed as eight asterisks.
constexpr const char* AbsentName = "********";

}  // namespace

uint16_t ComputerNameHash(const char* name) {
    if (name == nullptr || name[0] == '\0') name = AbsentName;
    uint16_t crc = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(name); *p != 0; ++p) {
        uint32_t x = *p ^ (crc & 0xFF);
        crc = static_cast<uint16_t>((crc >> 8) ^ High[x >> 4] ^ Low[x & 15]);
    }
    return crc;
}

void BuildJobIdentifier(char* out, const char* computerName, uint32_t tag) {
    char* p = PutHex(out, tag & 0xFF, 2);
    size_t length = computerName != nullptr ? std::strlen(computerName) : 0;
    // Every byte gives two digits, also one below 0x10, so the identifier
    // keeps its 24 characters, on which the trailer's length depends.
    for (size_t i = 0; i < 5; ++i) {
        p = PutHex(p, i < length ? static_cast<unsigned char>(computerName[i]) : 0, 2);
    }
    p = PutHex(p, ComputerNameHash(computerName), 4);
    p = PutHex(p, GetTickCount(), 8);
    *p = '\0';
}

void NewJobIdentifier(char* out) {
    DWORD size = 255;
    char* name = static_cast<char*>(GlobalAlloc(GPTR, size));
    if (name != nullptr && !GetComputerNameA(name, &size)) {
        const DWORD error = GetLastError();
        GlobalFree(name);
        name = nullptr;
        if (error == ERROR_INSUFFICIENT_BUFFER) {
            name = static_cast<char*>(GlobalAlloc(GPTR, size));
            if (name != nullptr && !GetComputerNameA(name, &size)) {
                GlobalFree(name);
                name = nullptr;
            }
        }
    }
    char text[JobIdentifierLength + 1];
    BuildJobIdentifier(text, name, JobIdentifierTag);
    std::memcpy(out, text, sizeof text);
    GlobalFree(name);
}

}  // namespace langmon
