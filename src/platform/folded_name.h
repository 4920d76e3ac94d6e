// Names as Windows compares the names of keys, printers and drivers: ASCII
// letters without regard to case, every other byte (the Shift-JIS ones
// included) as it is. A hash and an equality of that kind let a table keyed
// by a name be searched with any string_view, without a lower-cased copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace langmon::platform {

inline char FoldAscii(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

inline bool SameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
    }
    return true;
}

// FNV-1a over the folded bytes, so that names that are the same name hash alike.
struct FoldedNameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const {
        std::uint64_t hash = 0xcbf29ce484222325u;
        for (char c : name) {
            hash ^= static_cast<unsigned char>(FoldAscii(c));
            hash *= 0x100000001b3u;
        }
        return static_cast<std::size_t>(hash);
    }
};
struct FoldedNameEqual {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const { return SameName(a, b); }
};

}  // namespace langmon::platform
