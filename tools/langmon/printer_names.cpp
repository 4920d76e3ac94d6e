#include "printer_names.h"

#include "acquisition/device_id.h"
#include "acquisition/lm_values.h"

namespace langmon::tool {

namespace {

struct NamedCode {
    uint16_t code;
    const char* name;
};

// The sizes whose names the printer's own words give (the emulated
// printer's A3, A4, ..., USER, and the panel's size words); the table's
// other codes (41, 58, 73, 1236, 1237, 1238) have dimensions but no name.
constexpr NamedCode PaperSizes[] = {
    {1, "Letter"},     {4, "Ledger"},         {5, "Legal"},         {6, "Statement"},   {7, "Executive"},
    {8, "A3"},         {9, "A4"},             {11, "A5"},           {12, "B4"},         {13, "B5"},
    {20, "envelope #10"}, {27, "envelope DL"}, {28, "envelope C5"}, {31, "envelope C6"}, {37, "envelope Monarch"},
    {43, "postcard"},  {69, "double postcard"}, {91, "envelope 4"}, {256, "custom"},   {1234, "A3 wide"},
};

// PrinterBinConfig's media types whose meaning the printer's own words
// give: the status block's plain, ohp, label, heavy, card and envelope come
// out of the monitor's type table as these codes. The table's other codes
// (4, 5, 12, 13, 15, 19, 23, 24) stand for types that have no name there.
constexpr NamedCode MediaTypes[] = {
    {0, "plain"}, {1, "thick"}, {2, "transparency"}, {3, "card"}, {6, "labels"}, {7, "envelope"},
};

struct CoverBit {
    unsigned bit;
    const char* name;
};
// ErrCoverOpen is the status block's cover word against its all-closed
// value: a set bit is an open cover.
constexpr CoverBit Covers[] = {{0, "front"}, {1, "top"},   {2, "right"}, {3, "rear"},
                               {4, "duplex"}, {5, "fuser"}, {6, "toner"}, {9, "cassette"}};

template <std::size_t N>
const char* Find(const NamedCode (&table)[N], uint16_t code) {
    for (const NamedCode& row : table) {
        if (row.code == code) return row.name;
    }
    return nullptr;
}

}  // namespace

std::optional<std::string> PaperSizeName(uint16_t code) {
    if (const char* name = Find(PaperSizes, code)) return name;
    return std::nullopt;
}

std::optional<std::pair<uint32_t, uint32_t>> PaperSizeTenths(uint16_t code) {
    if (code == NoPaperSizeCode) return std::nullopt;
    LmTray tray{};
    LookupMediaDimensions(code, &tray);
    const uint32_t across = tray.MediaDimXFeedDirChosen;
    const uint32_t along = tray.MediaDimFeedDirChosen;
    if (across == 0 || along == 0 || across == 0xFFFFFFFFu || along == 0xFFFFFFFFu) return std::nullopt;
    return std::pair{across, along};
}

std::string PaperSizeText(uint16_t code) {
    if (code == NoPaperSizeCode) return "no paper size";
    return PaperSizeName(code).value_or("size " + std::to_string(code));
}

std::optional<std::string> MediaTypeName(uint8_t code) {
    if (const char* name = Find(MediaTypes, code)) return name;
    return std::nullopt;
}

std::string MediaTypeText(uint8_t code) { return MediaTypeName(code).value_or("type " + std::to_string(code)); }

std::string TrayName(uint16_t binId) {
    switch (binId) {
        case 2001: return "multi-purpose tray";
        case 1: return "cassette 1";
        case 2: return "cassette 2";
        default: return "tray " + std::to_string(binId);
    }
}

std::vector<std::string> OpenCoverNames(uint32_t errCoverOpen) {
    std::vector<std::string> names;
    if (errCoverOpen == NotReported) return names;
    for (unsigned bit = 0; bit < 32; ++bit) {
        if ((errCoverOpen & (1u << bit)) == 0) continue;
        std::string name = "unknown cover (bit " + std::to_string(bit) + ")";
        for (const CoverBit& cover : Covers) {
            if (cover.bit == bit) name = cover.name;
        }
        names.push_back(name);
    }
    return names;
}

std::vector<unsigned> JamPlaces(uint32_t errPaperJam) {
    std::vector<unsigned> places;
    if (errPaperJam == NotReported) return places;
    for (unsigned bit = 0; bit < 32; ++bit) {
        if ((errPaperJam & (1u << bit)) != 0) places.push_back(bit < 6 ? bit : bit + 1);
    }
    return places;
}

std::string OptionName(uint16_t id) {
    static constexpr const char* Toners[] = {"cyan toner", "magenta toner", "yellow toner", "black toner"};
    if (id == 1) return "duplex unit";
    // A fitted toner counts as an option of its own.
    if (id >= 8001 && id <= 8004) return Toners[id - 8001];
    return "option " + std::to_string(id);
}

std::string LanguageName(uint32_t code) {
    for (const EmulationRow& row : EmulationTable) {
        if (row.EmulationCode == code) return row.EmulationName;
    }
    return "language " + std::to_string(code);
}

}  // namespace langmon::tool
