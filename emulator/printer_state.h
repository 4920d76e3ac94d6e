// What the emulated printer is and how it stands: identity, supplies, trays,
// covers, jams, options, memory, panel, counters, panel settings, timing and the
// faults a test can switch on. Plain data; the printer (printer.h) owns one and
// derives everything it reports from it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace langmon::emulator {

// The two models of the family. Any other model name makes a foreign printer,
// which reports no "STS:" field and is not expected to answer USTATUS.
inline constexpr const char* Model6200 = "Laser Printer 6200tx";
inline constexpr const char* Model6300 = "Laser Printer 6300tx";
bool IsFamilyModel(const std::string& model);

// A supply's state as the status block carries it. The printer derives it
// from the level (SupplyStateForLevel); Ok means "nothing to report".
enum class SupplyState : uint8_t { Empty = 0, NearEmpty = 1, Low = 2, Ok = 3 };

// Level 0 is Empty, 1 to 2 NearEmpty, 3 to 10 Low, above that Ok. A supply of
// unknown level is Ok: the printer has nothing to say about it.
SupplyState SupplyStateForLevel(int level);

// A level that the printer cannot measure; it reports the marker word instead.
inline constexpr int UnknownLevel = -1;

struct Toner {
    int level = 100;  // percent, 0 to 127, or UnknownLevel
    bool fitted = true;
    bool fault = false;
};

// The customer replaceable unit (drum and developer).
struct Unit {
    int level = 100;
    bool fault = false;
};

// Tray kinds as the status block names them. A Manual tray is the
// multi-purpose slot; Normal and Large are cassettes; `variant` marks the
// universal cassette.
enum class TrayKind : uint8_t { None = 0, Manual = 1, Normal = 2, Large = 3 };

struct Tray {
    TrayKind kind = TrayKind::None;
    bool variant = false;
    int sheets = 0;
    int capacity = 0;
    uint8_t mediaSize = 2;  // index of the status block's size table; 2 is A4
    uint8_t mediaType = 1;  // index of its media type table; 1 is plain paper
};

// Tray slots: 0 is the multi-purpose tray, 1 and 2 the cassettes. PJL names
// the cassettes INTRAY1 and INTRAY2.
inline constexpr int TraySlots = 3;

// The covers the cover word has a bit for; a set bit in `openCovers` is an
// open cover.
inline constexpr uint16_t CoverFront = 0x0001;
inline constexpr uint16_t CoverTop = 0x0002;
inline constexpr uint16_t CoverRight = 0x0004;
inline constexpr uint16_t CoverRear = 0x0008;
inline constexpr uint16_t CoverDuplex = 0x0010;
inline constexpr uint16_t CoverFuser = 0x0020;
inline constexpr uint16_t CoverToner = 0x0040;
inline constexpr uint16_t CoverCassette = 0x0200;
inline constexpr uint16_t AllCovers = 0x027F;

// How pages are judged colour or black and white.
enum class ColorRule : uint8_t {
    Auto,   // PostScript pages that use a colour operator are colour, all else black
    Color,  // every page is colour
    Mono,   // every page is black and white
};

// Faults of the link itself, each independent of the printer's state.
struct LinkFaults {
    bool silent = false;           // no device ID, writes take nothing, reads give nothing
    uint32_t writeLimit = 0;       // a write takes at most this many bytes; 0: no limit
    uint32_t readPiece = 0;        // a read gives at most this many bytes; 0: no limit
    bool garbage = false;          // stray bytes stand in front of every response
    bool crlfAfterFormFeed = false;  // a CR LF follows every form feed
    bool loseJobReports = false;     // USTATUS JOB reports never reach the host
};

struct PrinterState {
    std::string model = Model6200;
    std::string manufacturer = "Quor";
    std::string commandSet = "PJL,NPDL,NMPS-C";

    // Toners in the order of the status block: cyan, magenta, yellow, black.
    std::array<Toner, 4> toners{};
    Unit unit{};
    SupplyState wasteState = SupplyState::Ok;  // the waste toner box: a state, no level
    bool periodicChange = false;               // periodic maintenance is due

    std::array<Tray, TraySlots> trays{};
    int feedSlot = 1;  // the tray that feeds

    uint16_t openCovers = 0;
    uint32_t jamPlaces = 0;  // bits 0-5 and 7-20 are places, bit 6 a sensor fault
    bool duplex = false;
    bool option7001 = false;
    bool option3001 = false;
    bool ramDisk = false;
    bool outTray2 = false;
    uint32_t memoryMB = 128;  // reported in units of 32 MB

    uint32_t hardwareError = 0;  // not 0: the printer has failed with this number
    bool operatorAttention = false;
    bool outOfMemory = false;
    bool poweredOn = true;

    // The panel shows what the state calls for unless a test or the user set
    // its two lines. UTF-8, 16 characters a line.
    std::optional<std::array<std::string, 2>> panelOverride;
    std::string serviceTag = "7QX2K9M";
    uint32_t pageCount = 1024;

    // Panel settings by their PJL names, as INFO VARIABLES and INQUIRE report them.
    std::map<std::string, std::string> settings;

    uint32_t pageTimeMs = 3000;
    uint32_t warmUpMs = 0;  // after power on
    ColorRule colorRule = ColorRule::Auto;
    std::array<uint32_t, 4> colorCoverage{6, 5, 4, 7};  // percent C, M, Y, K of a colour page
    uint32_t monoCoverage = 5;                           // percent K of a black page

    LinkFaults faults{};

    // A 6200tx with a full multi-purpose tray of 100 sheets and a half-full
    // cassette of 500, A4 plain paper in both, new supplies, 128 MB, all
    // panel settings at their defaults.
    static PrinterState Default();
};

}  // namespace langmon::emulator
