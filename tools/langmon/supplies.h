// The printer's supplies as a person means them: the four toners, the drum
// unit and the waste toner box, each with its level in percent (when the
// printer measures it) and its state, from TonerRemain, CRURemain and
// ErrSupplies.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace langmon::tool {

enum class SupplyKind { Toner, Drum, Waste };
enum class SupplyState { Ok, Low, NearEmpty, Empty, Failed, Unknown };

struct Supply {
    std::string name;  // "cyan", "magenta", "yellow", "black", "drum", "waste"
    SupplyKind kind;
    // Percent as the printer reports it (0 to 127); none when it can't tell,
    // or the supply has failed and its level means nothing.
    std::optional<unsigned> level;
    SupplyState state;
};

// `toner` is TonerRemain (4 bytes), `drum` CRURemain (its first byte),
// `errSupplies` ErrSupplies: by byte the empty, near-empty and low masks and
// the faults, a bit for each supply in the order above. A missing value
// leaves what it tells unknown.
std::vector<Supply> ReadSupplies(const std::optional<std::vector<uint8_t>>& toner,
                                 const std::optional<std::vector<uint8_t>>& drum,
                                 std::optional<uint32_t> errSupplies);

// "low", "nearly empty", ...; "ok" for a supply with nothing to report.
std::string SupplyStateText(SupplyState state);
// The same as a stable keyword: "ok", "low", "near-empty", "empty",
// "failed", "unknown".
std::string SupplyStateKeyword(SupplyState state);

}  // namespace langmon::tool
