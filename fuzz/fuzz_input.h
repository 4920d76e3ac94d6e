// A fuzzer's input read from its front, the way the targets that make calls
// read it: a byte that chooses (a call, a size, a setting), then a text up to
// the next NUL. Past the end every byte is 0 and every text empty, so that a
// cut input still means something and libFuzzer's shrinking keeps working.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace langmon::fuzz {

class InputReader {
public:
    InputReader(const uint8_t* data, std::size_t size)
        : rest_(reinterpret_cast<const char*>(data), size) {}

    bool AtEnd() const { return rest_.empty(); }

    uint8_t Byte() {
        if (rest_.empty()) return 0;
        const auto byte = static_cast<uint8_t>(rest_.front());
        rest_.remove_prefix(1);
        return byte;
    }

    // The bytes up to the next NUL, or to the end; the NUL is passed over.
    std::string_view Text() {
        const std::size_t end = rest_.find('\0');
        const std::string_view text = rest_.substr(0, end);
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        return text;
    }

    // Whatever is left, all of it.
    std::string_view Rest() {
        const std::string_view rest = rest_;
        rest_ = {};
        return rest;
    }

private:
    std::string_view rest_;
};

}  // namespace langmon::fuzz
