#include "supplies.h"

#include "printer_names.h"

namespace langmon::tool {

namespace {

// A level the printer can't measure, and one of a supply that is empty or
// has failed, whatever level it reported.
constexpr uint8_t UnknownLevel = 254;
constexpr uint8_t GoneLevel = 255;
// The drum unit's own fault, beside the per-supply fault bits.
constexpr uint32_t DrumFaultFlag = 0x80;

SupplyState StateOf(unsigned index, std::optional<uint32_t> err) {
    if (!err || *err == NotReported) return SupplyState::Unknown;
    const uint32_t bit = 1u << index;
    const uint32_t faults = *err >> 24;
    if ((faults & bit) != 0 || (index == 4 && (faults & DrumFaultFlag) != 0)) return SupplyState::Failed;
    if ((*err & bit) != 0) return SupplyState::Empty;
    if (((*err >> 8) & bit) != 0) return SupplyState::NearEmpty;
    if (((*err >> 16) & bit) != 0) return SupplyState::Low;
    return SupplyState::Ok;
}

std::optional<unsigned> LevelOf(uint8_t level, SupplyState state) {
    if (level == UnknownLevel) return std::nullopt;
    if (level == GoneLevel) {
        if (state == SupplyState::Empty) return 0u;
        return std::nullopt;
    }
    return level;
}

}  // namespace

std::vector<Supply> ReadSupplies(const std::optional<std::vector<uint8_t>>& toner,
                                 const std::optional<std::vector<uint8_t>>& drum,
                                 std::optional<uint32_t> errSupplies) {
    static constexpr const char* Toners[] = {"cyan", "magenta", "yellow", "black"};
    std::vector<Supply> supplies;
    for (unsigned i = 0; i < 4; ++i) {
        const SupplyState state = StateOf(i, errSupplies);
        const std::optional<unsigned> level =
            toner && toner->size() >= 4 ? LevelOf((*toner)[i], state) : std::nullopt;
        supplies.push_back({Toners[i], SupplyKind::Toner, level, state});
    }
    const SupplyState drumState = StateOf(4, errSupplies);
    supplies.push_back(
        {"drum", SupplyKind::Drum, drum && !drum->empty() ? LevelOf((*drum)[0], drumState) : std::nullopt, drumState});
    // The waste toner box reports a state alone.
    supplies.push_back({"waste", SupplyKind::Waste, std::nullopt, StateOf(5, errSupplies)});
    return supplies;
}

std::string SupplyStateText(SupplyState state) {
    switch (state) {
        case SupplyState::Ok: return "ok";
        case SupplyState::Low: return "low";
        case SupplyState::NearEmpty: return "nearly empty";
        case SupplyState::Empty: return "empty";
        case SupplyState::Failed: return "failed";
        case SupplyState::Unknown: return "state not reported";
    }
    return "";
}

std::string SupplyStateKeyword(SupplyState state) {
    switch (state) {
        case SupplyState::Ok: return "ok";
        case SupplyState::Low: return "low";
        case SupplyState::NearEmpty: return "near-empty";
        case SupplyState::Empty: return "empty";
        case SupplyState::Failed: return "failed";
        case SupplyState::Unknown: return "unknown";
    }
    return "";
}

}  // namespace langmon::tool
