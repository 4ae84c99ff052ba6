#include "codec/deflate_short.h"

#include <algorithm>

#include "bytes/match_length.h"
#include "bytes/words.h"
#include "codec/deflate_blocks.h"

namespace vekdc::codec {
namespace {

using vek::load;
using vek::matchLength;

constexpr uint32_t kByteWeight = 4;
/// With less than that a match is dearer than its bytes.
constexpr uint32_t kLeastWeight = 6;
static_assert(kByteWeight * minMatch >= distanceExtraBits(distanceSymbol(kMostShort)));
/// A match of this length ends a search.
constexpr uint32_t kNice = 32;

struct ShortMatch {
    uint32_t weight = kLeastWeight - 1;
    uint32_t length = 0;
    uint32_t distance = 0;
};

/// The bytes at p but for the fourth.
uint32_t threeBytes(const uint8_t* p) {
    return load<uint32_t>(p) << 8;
}

/// Positions by the three bytes that begin there. 0 stands for none, 1 for the first.
class ShortMatches {
 public:
    ShortMatches(Bytes bytes, uint32_t depth)
        : bytes_(bytes.data()),
          size_(static_cast<uint32_t>(bytes.size())),
          depth_(depth),
          shift_(31 - static_cast<uint32_t>(std::bit_width(size_))) {
        std::memset(latest_.data(), 0, sizeof(latest_[0]) << (32 - shift_));
    }

    /// Enters a position, and returns the one before it with the same hash.
    uint32_t enter(uint32_t at) {
        if (at + minMatch > size_) return 0;
        uint16_t& latest = latest_[threeBytes(bytes_ + at) * 0x9E3779B1U >> shift_];
        const uint32_t before = latest;
        before_[at] = latest;
        latest = static_cast<uint16_t>(at + 1);
        return before;
    }

    /// Enters a position, and returns the match there of the greatest weight.
    ShortMatch find(uint32_t at) {
        ShortMatch best;
        const uint32_t limit = std::min(size_ - std::min(at, size_), maxMatch);
        const uint32_t bytes = threeBytes(bytes_ + at);
        uint32_t candidate = enter(at);
        for (uint32_t left = depth_; candidate != 0 && left != 0; --left) {
            const uint8_t* const from = bytes_ + candidate - 1;
            if (threeBytes(from) == bytes) {
                const uint32_t length = matchLength(bytes_ + at, from, minMatch, limit);
                const uint32_t distance = at + 1 - candidate;
                const uint32_t weight =
                    kByteWeight * length - distanceExtraBits(distanceSymbol(distance));
                if (weight > best.weight) best = {weight, length, distance};
                if (length >= kNice) break;
            }
            candidate = before_[candidate - 1];
        }
        return best;
    }

 private:
    const uint8_t* const bytes_;
    const uint32_t size_;
    const uint32_t depth_;
    const uint32_t shift_;
    std::array<uint16_t, 4 * kMostShort> latest_;
    std::array<uint16_t, kMostShort> before_;
};

}  // namespace

uint32_t parseShort(Bytes bytes, uint32_t depth, uint8_t* lits, uint16_t* dists,
                    DeflateTables& counts) {
    const auto size = static_cast<uint32_t>(bytes.size());
    ShortMatches matches(bytes, depth);
    uint32_t pairs = 0;
    const auto put = [&](uint32_t lit, uint32_t distance) {
        lits[pairs] = static_cast<uint8_t>(lit);
        dists[pairs++] = static_cast<uint16_t>(distance);
    };
    const auto putLiteral = [&](uint8_t byte) {
        countSymbol(counts.lit[byte]);
        put(byte, 0);
    };
    for (uint32_t at = 0; at < size;) {
        ShortMatch match = matches.find(at);
        if (match.length == 0) {
            putLiteral(bytes[at++]);
            continue;
        }
        uint32_t entered = at + 1;
        while (match.length < kNice) {
            const ShortMatch next = matches.find(entered++);
            if (next.weight <= match.weight) break;
            putLiteral(bytes[at++]);
            match = next;
        }
        countSymbol(counts.lit[lengthSymbol(match.length)]);
        countSymbol(counts.dist[distanceSymbol(match.distance)]);
        put(match.length - minMatch, match.distance);
        at += match.length;
        while (entered < at) matches.enter(entered++);
    }
    return pairs;
}

}  // namespace vekdc::codec
