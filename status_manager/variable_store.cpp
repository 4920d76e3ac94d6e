#include "variable_store.h"

#include <algorithm>

namespace langmon::status_manager {

VariableStore::VariableStore(std::string_view printerName) {
    values_.emplace("Port", Value(kNameFieldSize));
    Value name(kNameFieldSize);
    const std::size_t length = std::min(printerName.size(), kMaxPrinterNameLength);
    std::transform(printerName.begin(), printerName.begin() + static_cast<std::ptrdiff_t>(length), name.begin(),
                   [](char c) { return static_cast<std::byte>(c); });
    values_.emplace("PrinterName", std::move(name));
    values_.emplace("TerminateManager", Value(4));
}

const Value* VariableStore::Find(std::string_view name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? nullptr : &found->second;
}

VariableStore::SetResult VariableStore::Set(std::string_view name, std::span<const std::byte> value) {
    written_ = true;
    const auto found = values_.find(name);
    if (found == values_.end()) {
        if (values_.size() >= kMaxVariables) return SetResult::Full;
        values_.emplace(std::string(name), Value(value.begin(), value.end()));
        return SetResult::Changed;
    }
    if (std::ranges::equal(found->second, value)) return SetResult::Unchanged;
    found->second.assign(value.begin(), value.end());
    return SetResult::Changed;
}

}  // namespace langmon::status_manager
