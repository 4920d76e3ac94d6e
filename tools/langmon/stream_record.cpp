#include "stream_record.h"

#include <algorithm>
#include <vector>

namespace langmon::tool {

namespace {

// Polynomial hashes modulo the prime 2^61 - 1: two different stretches of n
// bytes hash alike with a chance of about n in 2^61.
constexpr std::uint64_t Modulus = (std::uint64_t{1} << 61) - 1;
constexpr std::uint64_t Base = 0x5DEECE66Du;

std::uint64_t MulMod(std::uint64_t a, std::uint64_t b) {
    const unsigned __int128 product = static_cast<unsigned __int128>(a) * b;
    std::uint64_t r = static_cast<std::uint64_t>(product & Modulus) + static_cast<std::uint64_t>(product >> 61);
    r = (r & Modulus) + (r >> 61);
    return r >= Modulus ? r - Modulus : r;
}

std::uint64_t SubMod(std::uint64_t a, std::uint64_t b) { return a >= b ? a - b : a + Modulus - b; }

// The hash of a prefix that hashed to `hash`, with `c` behind it. A byte
// counts as its value plus one, so that runs of NUL bytes count too.
std::uint64_t Step(std::uint64_t hash, char c) {
    hash = MulMod(hash, Base) + static_cast<unsigned char>(c) + 1;
    return hash >= Modulus ? hash - Modulus : hash;
}

std::uint64_t Extend(std::uint64_t hash, std::string_view bytes) {
    for (const char c : bytes) hash = Step(hash, c);
    return hash;
}

// Entry i: the hash after the first i bytes of `bytes`, behind a prefix that
// hashed to `start`.
std::vector<std::uint64_t> PrefixHashes(std::uint64_t start, std::string_view bytes) {
    std::vector<std::uint64_t> hashes(bytes.size() + 1);
    hashes[0] = start;
    for (std::size_t i = 0; i < bytes.size(); ++i) hashes[i + 1] = Step(hashes[i], bytes[i]);
    return hashes;
}

std::uint64_t Power(std::uint64_t exponent) {
    std::uint64_t result = 1;
    for (std::uint64_t base = Base; exponent != 0; exponent >>= 1, base = MulMod(base, base)) {
        if (exponent & 1) result = MulMod(result, base);
    }
    return result;
}

}  // namespace

void StreamRecord::Append(std::string_view bytes) {
    if (head_.size() < KeptBytes) head_.append(bytes.substr(0, KeptBytes - head_.size()));
    size_ += bytes.size();
    // The tail keeps between KeptBytes and twice that, so that bytes leave it
    // in runs: what leaves is hashed on its way out.
    const std::size_t total = tail_.size() + bytes.size();
    if (total > 2 * KeptBytes) {
        const std::size_t leaving = total - KeptBytes;
        const std::size_t ofTail = std::min(leaving, tail_.size());
        hashBeforeTail_ = Extend(hashBeforeTail_, std::string_view(tail_).substr(0, ofTail));
        tail_.erase(0, ofTail);
        hashBeforeTail_ = Extend(hashBeforeTail_, bytes.substr(0, leaving - ofTail));
        bytes.remove_prefix(leaving - ofTail);
    }
    tail_.append(bytes);
}

std::string_view StreamRecord::Tail(std::uint64_t count) const {
    const std::size_t kept = std::min(KeptBytes, tail_.size());
    return std::string_view(tail_).substr(tail_.size() - static_cast<std::size_t>(std::min<std::uint64_t>(count, kept)));
}

std::optional<std::uint64_t> StreamRecord::Find(const StreamRecord& part, bool* undecided) const {
    *undecided = false;
    const std::uint64_t n = part.size_;
    if (n == 0 || n > size_) return std::nullopt;
    // Places past the head are not looked at.
    if (size_ - n > head_.size()) *undecided = true;

    const std::vector<std::uint64_t> head = PrefixHashes(0, head_);
    const std::uint64_t tailStart = size_ - tail_.size();
    const std::vector<std::uint64_t> tail = PrefixHashes(hashBeforeTail_, tail_);
    const std::vector<std::uint64_t> partHead = PrefixHashes(0, part.head_);
    const std::uint64_t partHash = Extend(part.hashBeforeTail_, part.tail_);
    std::vector<std::uint64_t> powers(head_.size() + 1, 1);
    for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = MulMod(powers[i - 1], Base);
    const std::uint64_t powerOfPart = Power(n);

    const std::uint64_t last = std::min<std::uint64_t>(size_ - n, head_.size());
    for (std::uint64_t at = 0; at <= last; ++at) {
        // The part's head against this head where they overlap, by hash first.
        const std::size_t overlap = std::min<std::size_t>(part.head_.size(), head_.size() - at);
        if (SubMod(head[at + overlap], MulMod(head[at], powers[overlap])) != partHead[overlap]) continue;
        const std::uint64_t end = at + n;
        std::uint64_t endHash = 0;
        if (end <= head_.size()) {
            endHash = head[end];
        } else if (end >= tailStart) {
            endHash = tail[end - tailStart];
        } else {
            *undecided = true;  // the part would end where nothing is kept
            continue;
        }
        if (SubMod(endHash, MulMod(head[at], powerOfPart)) != partHash) continue;
        // The bytes kept at both ends are compared as they are; the hash
        // speaks for those in between.
        if (head_.compare(at, overlap, part.head_, 0, overlap) != 0) continue;
        if (end >= tailStart) {
            const std::size_t shared = std::min<std::uint64_t>(end - std::max(at, tailStart), part.tail_.size());
            const std::string_view mine = std::string_view(tail_).substr(end - tailStart - shared, shared);
            if (mine != std::string_view(part.tail_).substr(part.tail_.size() - shared)) continue;
        }
        *undecided = false;
        return at;
    }
    return std::nullopt;
}

}  // namespace langmon::tool
