// A stream of bytes too long to keep whole (a job, what a printer received),
// kept as what a report about it needs: its length, its first and last
// bytes, and a hash of its prefixes. From those, where one stream stands in
// another is found and checked byte for byte at the ends and by the hash in
// between, without either stream in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace langmon::tool {

class StreamRecord {
public:
    // Bytes kept at each end of the stream.
    static constexpr std::size_t KeptBytes = 64u << 10;

    void Append(std::string_view bytes);

    std::uint64_t Size() const { return size_; }
    // The first bytes: the whole stream while it is no longer than KeptBytes.
    std::string_view Head() const { return head_; }
    // The last `count` bytes, at most KeptBytes of them.
    std::string_view Tail(std::uint64_t count) const;

    // Where `part` stands in this stream: the first place that it starts at
    // in the head and that holds all of it. Nothing when it stands nowhere,
    // or nowhere the kept bytes can show, which `undecided` then tells.
    std::optional<std::uint64_t> Find(const StreamRecord& part, bool* undecided) const;

private:
    std::string head_;
    std::string tail_;  // the stream's last bytes, between KeptBytes and twice that once it is long
    std::uint64_t size_ = 0;
    std::uint64_t hashBeforeTail_ = 0;  // of the prefix that ends where tail_ begins
    std::uint64_t hash_ = 0;            // of the whole stream
};

}  // namespace langmon::tool
