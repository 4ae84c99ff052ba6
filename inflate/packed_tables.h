// The first levels of two-level tables once more, packed: one 32-bit word an entry that holds what
// the kernel would have to work out; literals/lengths with one bit more, distances with two less,
// so that all stays in the nearest cache.
//
// What decoding costs is a chain of lookups and the branches between literals and matches that
// cannot be foreseen. Where many literals have short codes, one lookup can do two of them, or one
// and the length behind it: fewer links of the chain, and fewer branches. Packing takes as long as
// decoding some 200 bytes, and pairing twice that more.
#pragma once

#include <cstdint>

#include "inflate/match.h"
#include "inflate/table_layout.h"

namespace vek::inline VEK_LEVEL::inflate {

constexpr unsigned packedBits = rootBits + 1;
constexpr unsigned packedDistBits = rootBits - 2;

struct PackedLevel {
    uint32_t lits[1U << packedBits];
    uint32_t dists[1U << packedDistBits];
};

/// `Width` bits of an entry, from bit `At` on.
template <unsigned At, unsigned Width>
struct Field {
    static constexpr unsigned at = At;
    static constexpr uint32_t mask = ((uint32_t{1} << Width) - 1) << At;

    static constexpr uint32_t get(uint32_t entry) { return (entry & mask) >> At; }
    static constexpr uint32_t put(uint32_t value) { return value << At; }
    static constexpr bool isSet(uint32_t entry) { return (entry & mask) != 0; }
    /// The field within the entry's byte that holds it.
    static constexpr unsigned inByte(unsigned value) { return value << At % 8; }
};

/// Whether no two of the fields share a bit.
template <class... Fields>
constexpr bool areApart() {
    uint32_t all = 0;
    bool apart = true;
    ((apart = apart && (all & Fields::mask) == 0, all |= Fields::mask), ...);
    return apart;
}

/// The fields of an entry. It is shifted by as it is, and its lower byte masks bits as it is: there
/// stand the bits to take in all, and nothing else but for an entry that is no symbol's. What a
/// 32-bit shift heeds of the byte above it is the length of the code.
namespace packed {
using Taken = Field<0, 6>;      ///< Bits of the code or codes and the extra bits.
using Neither = Field<7, 1>;    ///< Neither literals nor a length: a link, the end, no code.
using CodeLen = Field<8, 5>;    ///< Bits in front of the extra bits.
using Literals = Field<13, 2>;  ///< Number of literals.
using Other = Field<15, 1>;     ///< Not only literals; of distances: a longer code, or none.
using Value = Field<16, 16>;    ///< Base distance, or:
using First = Field<16, 8>;     ///< The first literal, or the base length - 3.
using Second = Field<24, 8>;    ///< The second literal, or the one in front of a length.

static_assert(areApart<Taken, Neither, Other, CodeLen, Literals, Value>());
static_assert(areApart<First, Second>() && (First::mask | Second::mask) == Value::mask);
static_assert(maxCodeLength + maxLengthExtra < 32 && packedDistBits + maxDistExtra < 32);
static_assert(maxCodeLength <= CodeLen::get(CodeLen::mask));
}  // namespace packed

/// The entry of a single literal, length or other symbol.
constexpr uint32_t packOne(uint32_t kind, uint32_t value) {
    const Entry entry{kind, value};
    const uint32_t flags = entry.isLength()       ? packed::Other::mask
                           : kind > maxCodeLength ? packed::Other::mask | packed::Neither::mask
                                                  : packed::Literals::put(1);
    const uint32_t extra = entry.isLength() ? entry.lengthExtra() : 0;
    return packed::Taken::put(entry.codeLen() + extra) | packed::CodeLen::put(entry.codeLen()) |
           packed::Value::put(value) | flags;
}

}  // namespace vek::inline VEK_LEVEL::inflate
