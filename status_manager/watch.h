// A watch: variables of one store that a client wants to hear about, with an
// event per variable or one callback for all of them.
#pragma once

#include "variable_store.h"

#include <langmon/status_manager.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace langmon::status_manager {

struct Watch {
    uint32_t id = 0;
    uint32_t managerHandle = 0;  // the handle it was made through
    const VariableStore* store = nullptr;
    std::vector<std::string> names;
    std::vector<HANDLE> events;  // one per name; empty for a callback watch
    StatusManagerCallback callback = nullptr;
    void* context = nullptr;
    // Cleared when the watch ends, so that a change already on its way to the
    // watch's events and callback stops there.
    std::atomic<bool> alive{true};

    bool IsCallback() const { return callback != nullptr; }
};

// Splits "A;B;C" into its names. Null unless there are exactly `count` names,
// none empty or longer than kMaxNameLength. The text is read up to its NUL or
// to the longest text that `count` names can make, whichever comes first.
std::optional<std::vector<std::string>> SplitNames(const char* text, uint32_t count);

// The length of a C text of at most `limit` bytes, or null if there is no text
// or it is longer.
std::optional<std::string_view> BoundedText(const char* text, std::size_t limit);

}  // namespace langmon::status_manager
