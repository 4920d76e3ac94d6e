#include "watch.h"

#include <cstring>

namespace langmon::status_manager {

std::optional<std::string_view> BoundedText(const char* text, std::size_t limit) {
    if (text == nullptr) return std::nullopt;
    const std::size_t length = strnlen(text, limit + 1);
    if (length > limit) return std::nullopt;
    return std::string_view(text, length);
}

std::optional<std::vector<std::string>> SplitNames(const char* text, uint32_t count) {
    if (count == 0 || count > kMaxVariables) return std::nullopt;
    // Each name with its separator, the last one without.
    const std::size_t longest = static_cast<std::size_t>(count) * (kMaxNameLength + 1) - 1;
    const auto all = BoundedText(text, longest);
    if (!all) return std::nullopt;
    std::vector<std::string> names;
    std::string_view rest = *all;
    while (true) {
        const std::size_t separator = rest.find(';');
        const std::string_view name = rest.substr(0, separator);
        if (name.empty() || name.size() > kMaxNameLength || names.size() == count) return std::nullopt;
        names.emplace_back(name);
        if (separator == std::string_view::npos) break;
        rest.remove_prefix(separator + 1);
    }
    if (names.size() != count) return std::nullopt;
    return names;
}

}  // namespace langmon::status_manager
