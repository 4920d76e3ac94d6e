// Helpers of the emulator's tests, written from the host's side of the wire:
// how the host decodes the "STS:" field and reads its tray words, the job
// framing texts as the host sends them, and the layout rules by which the
// host's parser takes a response or gives it up.
#pragma once

#include "emulator/printer.h"
#include "platform/clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace langmon::emulator::emutest {

inline constexpr DWORD StartTick = 0x00100000u;

// A printer reads the tick whenever it is called, so tests of a printer run
// on the virtual clock and move time on with Sleep.
class VirtualClockTest : public ::testing::Test {
protected:
    void SetUp() override { platform::UseVirtualClock(StartTick); }
    void TearDown() override { platform::UseRealClock(); }
};

// --- The status block as the host reads it.

// Four characters of the RFC 4648 alphabet give three bytes; any other
// character spoils the whole text.
inline std::vector<uint8_t> DecodeBase64(std::string_view text) {
    constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 4 <= text.size(); i += 4) {
        uint32_t group = 0;
        for (size_t j = 0; j < 4; ++j) {
            size_t value = Alphabet.find(text[i + j]);
            if (value == std::string_view::npos) return {};
            group = group << 6 | static_cast<uint32_t>(value);
        }
        for (int shift = 16; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(group >> shift));
    }
    return bytes;
}

struct Block {
    std::vector<uint8_t> bytes;
    uint8_t u8(size_t at) const { return bytes.at(at); }
    uint16_t u16(size_t at) const { return static_cast<uint16_t>(bytes.at(at) << 8 | bytes.at(at + 1)); }
    uint32_t u32(size_t at) const { return uint32_t{u16(at)} << 16 | u16(at + 2); }
    uint32_t code() const { return u32(0); }
};

// The block of the "STS:" field; empty, with a failure, when there is no
// field of exactly 56 good characters.
inline Block StsOf(std::string_view deviceId) {
    size_t at = deviceId.find("STS:");
    if (at == std::string_view::npos) {
        ADD_FAILURE() << "no STS field in " << deviceId;
        return {};
    }
    std::string_view field = deviceId.substr(at + 4, deviceId.find(';', at) - at - 4);
    Block block{DecodeBase64(field)};
    if (field.size() != 56 || block.bytes.size() != 42) {
        ADD_FAILURE() << "STS field of " << field.size() << " characters: " << field;
        return {};
    }
    return block;
}

// The paper level the host gives a tray word: 0 is an empty tray. For the
// kinds other than 2 the host counts bit 13 as set.
inline int HostBinLevel(uint16_t trayWord) {
    constexpr int Levels[] = {253, 253, 0, 254};
    unsigned level = (trayWord >> 12) & 3;
    if ((trayWord >> 14) != 2) level |= 2;
    return Levels[level];
}

// --- Job framing as the host sends it.

inline const std::string Uel = "\x1b%-12345X";
// Identifiers of the host's form: "03", a name in hex, a hash, a tick.
inline constexpr std::string_view IdA = "03514F524D31A3C100100000";
inline constexpr std::string_view IdB = "03514F524D31A3C100112233";

inline std::string JobHeader(std::string_view id) {
    return Uel +
           "@PJL USTATUS DEVICE=ON\r\n"
           "@PJL USTATUS JOB=ON\r\n"
           "@PJL USTATUS PAGE=ON\r\n"
           "@PJL INFO STATUS\r\n"
           "@PJL JOB NAME=\"" + std::string(id) + "\"\r\n";
}

// `eof`: the form that ends a PostScript program first, with 0x04 and a UEL.
inline std::string JobTrailer(std::string_view id, bool eof = false) {
    return (eof ? "\x04" + Uel : std::string()) + "@PJL EOJ NAME=\"" + std::string(id) + "\"\r\n" + Uel;
}

// --- Responses as the host's parser takes them.

// The responses of a stream, each up to and including its form feed.
inline std::vector<std::string> Responses(std::string_view stream) {
    std::vector<std::string> out;
    for (size_t at = 0, ff; (ff = stream.find('\f', at)) != std::string_view::npos; at = ff + 1) {
        out.emplace_back(stream.substr(at, ff + 1 - at));
    }
    return out;
}

inline std::vector<std::string> Lines(std::string_view response) {
    std::vector<std::string> lines;
    for (size_t at = 0, end; (end = response.find("\r\n", at)) != std::string_view::npos; at = end + 2) {
        lines.emplace_back(response.substr(at, end - at));
    }
    return lines;
}

// The entry of a lenient list that begins with `key`: its line and the TAB
// lines below it, each with its CR LF.
inline std::string Entry(std::string_view response, std::string_view key) {
    size_t at = response.find("\r\n" + std::string(key));
    if (at == std::string_view::npos) return {};
    size_t end = at + 2;
    do end = response.find("\r\n", end) + 2;
    while (end < response.size() && response[end] == '\t');
    return std::string(response.substr(at + 2, end - at - 2));
}

// What would keep the host from taking `response` whole; empty when nothing.
// The host picks a handler by the first line's prefix and ends the response
// at the form feed; its strict readers stop at a line they have no key for.
inline std::string LayoutProblem(std::string_view response) {
    if (!response.ends_with("\r\n\f")) return "no form feed behind the last CR LF";
    for (size_t i = 0; i < response.size(); ++i) {
        if ((response[i] == '\n') != (i > 0 && response[i - 1] == '\r')) return "a line end other than CR LF";
    }
    const std::vector<std::string> lines = Lines(response);
    auto is = [&](std::string_view head) { return lines[0].starts_with(head); };
    auto find = [&](std::string_view key, bool last = false) {
        ptrdiff_t found = -1;
        for (size_t i = 1; i < lines.size(); ++i) {
            if (lines[i].starts_with(key) && (found < 0 || last)) found = static_cast<ptrdiff_t>(i);
        }
        return found;
    };
    auto keyed = [&](std::initializer_list<std::string_view> keys) -> std::string {
        for (size_t i = 1; i < lines.size(); ++i) {
            if (std::ranges::none_of(keys, [&](std::string_view key) { return lines[i].starts_with(key); })) {
                return "no key for line \"" + lines[i] + "\"";
            }
        }
        return "";
    };
    if (is("@PJL INFO STATUS") || is("@PJL USTATUS DEVICE")) return keyed({"CODE", "DISPLAY", "ONLINE"});
    if (is("@PJL USTATUS JOB")) {
        std::string problem =
            keyed({"START", "END", "NAME", "PAGE", "COLORPAGE", "BWPAGE", "COVERAGE", "CANCELED", "RESULT"});
        const ptrdiff_t head = std::max(find("START"), find("END")), name = find("NAME");
        const ptrdiff_t bw = find("BWPAGE", true);
        if (problem.empty() && name >= 0 && head > name) problem = "START or END behind NAME";
        if (problem.empty() && std::max(find("COLORPAGE", true), find("COVERAGE", true)) > bw) {
            problem = "COLORPAGE or COVERAGE behind the last BWPAGE";
        }
        // Behind an END's NAME the host passes over the figures up to a BWPAGE.
        if (problem.empty() && find("END") >= 0 && bw < name) problem = "no BWPAGE behind the END's NAME";
        return problem;
    }
    if (is("@PJL USTATUS PAGE") || is("@PJL INFO PAGECOUNT") || is("@PJL INFO SERVICETAG") ||
        is("@PJL INQUIRE")) {
        return lines.size() == 2 ? "" : "not one value line";
    }
    if (is("@PJL INFO VARIABLES") || is("@PJL INFO CONFIG")) return "";
    return "unknown first line \"" + lines[0] + "\"";
}

}  // namespace langmon::emulator::emutest
