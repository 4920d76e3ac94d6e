// One printer's variable store: named values of any bytes, the printer's status
// as the monitor writes it and its clients read it. The store trusts nothing it
// is given: values and the number of variables are bounded, so that a client
// cannot make the process hold more than a few tens of megabytes per printer.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace langmon::status_manager {

// The largest value a variable holds. The monitor's largest values are a few
// hundred bytes; 64 KiB leaves room for any client's own.
constexpr std::size_t kMaxValueSize = 64 * 1024;
// Variables one store holds: the monitor keeps well under a hundred per printer.
constexpr std::size_t kMaxVariables = 1024;
// The longest variable name, not counting its NUL.
constexpr std::size_t kMaxNameLength = 255;
// The fixed fields a new store starts with. "PrinterName" is a field of this
// size with the name NUL-terminated in it, so a printer name is at most one
// byte shorter.
constexpr std::size_t kNameFieldSize = 260;
constexpr std::size_t kMaxPrinterNameLength = kNameFieldSize - 1;

using Value = std::vector<std::byte>;

class VariableStore {
public:
    // A new store: "Port" (260 zero bytes: no port count and two empty port
    // names, the manager has no port yet), "PrinterName" and "TerminateManager"
    // (a 32-bit 0).
    explicit VariableStore(std::string_view printerName);

    // The variable's value, or null if the store has no such variable.
    const Value* Find(std::string_view name) const;

    enum class SetResult { Unchanged, Changed, Full };
    // Stores a copy of the bytes. Changed if the value is new or differs in
    // size or bytes; Full, and nothing stored, for a new variable past
    // kMaxVariables. Sizes are the caller's to bound.
    SetResult Set(std::string_view name, std::span<const std::byte> value);
    // Whether anything was ever written to the store, beyond what it starts with.
    bool Written() const { return written_; }

private:
    std::map<std::string, Value, std::less<>> values_;
    bool written_ = false;
};

}  // namespace langmon::status_manager
