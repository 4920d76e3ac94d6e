// What the monitor's codes mean in words: paper sizes, media types, trays,
// covers, jam places and options as the printer's status block and the
// status variables carry them. A code whose meaning is not known keeps its
// number ("size 41", "type 4") rather than a guessed name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace langmon::tool {

// A paper size code of PrinterBinConfig (the codes the spooler's paper
// sizes use): its name when known ("A4", "Letter", "envelope DL"), and its
// dimensions in tenths of a millimetre, across and along the feed, when the
// monitor's size table has them.
std::optional<std::string> PaperSizeName(uint16_t code);
std::optional<std::pair<uint32_t, uint32_t>> PaperSizeTenths(uint16_t code);
// "A4", or "size 41" for a code without a name.
std::string PaperSizeText(uint16_t code);
// The code that stands for no paper size at all.
constexpr uint16_t NoPaperSizeCode = 0xFFFF;

// A media type code of PrinterBinConfig: "plain", "thick", "transparency",
// "card", "labels", "envelope"; none for a code without a known meaning.
std::optional<std::string> MediaTypeName(uint8_t code);
// The name, or "type N".
std::string MediaTypeText(uint8_t code);

// A tray by the bin id of its PrinterBinConfig entry.
std::string TrayName(uint16_t binId);

// The covers that ErrCoverOpen says are open, by name ("front", "top", ...;
// "unknown cover (bit N)" for a bit no cover is known for).
std::vector<std::string> OpenCoverNames(uint32_t errCoverOpen);

// The places that ErrPaperJam says are jammed, in the printer's own
// numbering (the variable closes the gap of the sensor bit, 6). The printer's
// codes give the places numbers only.
std::vector<unsigned> JamPlaces(uint32_t errPaperJam);

// An option of PrinterOptConfig by its id: "duplex unit", "cyan toner", ...,
// or "option N" for an id without a known meaning.
std::string OptionName(uint16_t id);

// A printer language of EmulationInfo by its code.
std::string LanguageName(uint32_t code);

// The value all of whose bits are set, which an error variable holds until
// the printer has reported on it: nothing is known yet.
constexpr uint32_t NotReported = 0xFFFFFFFFu;

}  // namespace langmon::tool
