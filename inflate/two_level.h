// The inflate decoder for two-level tables: lookups through sub-tables, and the packed first level
// that the kernel works on when a call has enough to do (packed_tables.h).
// The packed tables are made anew by each call, since the caller's record has no room for them.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "bytes/words.h"
#include "inflate/fast_loop.h"
#include "inflate/pack.h"
#include "inflate/packed_tables.h"
#include "inflate/resumable.h"
#include "inflate/table_layout.h"

namespace vek::inline VEK_LEVEL::inflate {

/// Reversals of 5 bits, and masks of n bits.
inline constexpr std::array<uint8_t, 32> tablofinv = [] {
    std::array<uint8_t, 32> table{};
    for (unsigned i = 0; i < table.size(); ++i) {
        table[i] = static_cast<uint8_t>(vek::reverseBits(i, 5));
    }
    return table;
}();

class TwoLevel {
 public:
    explicit TwoLevel(const uint8_t* tables) : tables_(tables) {}

    Entry lit(uint32_t bits) const {
        uint32_t index = bits & (rootSize - 1);
        if (isLink(tables_[litKindAt + index])) {
            index = rootSize + 2U * tables_[litValueAt + index] +
                    subIndex(bits, tables_[litKindAt + index]);
        }
        return {tables_[litKindAt + index], tables_[litValueAt + index]};
    }
    Entry dist(uint32_t bits) const {
        uint32_t index = bits & (rootSize - 1);
        if (isLink(tables_[distKindAt + index])) {
            index = rootSize + base(index) + subIndex(bits, tables_[distKindAt + index]);
        }
        return {tables_[distKindAt + index], base(index)};
    }
    static bool isEnd(uint32_t kind) { return (kind & 0xF0) == twoLevelEndKind; }

    // For the fast kernel: the first level's entry, whose value is loaded only when it is needed.
    struct Look {
        uint32_t kind;
        size_t index;
    };
    Look look(Word bits) const {
        const size_t index = bits & (rootSize - 1);
        return {tables_[litKindAt + index], index};
    }
    static uint32_t taken(Look entry) { return entry.kind; }
    uint32_t putLiterals(uint8_t* dst, Look entry) const {
        *dst = static_cast<uint8_t>(value(entry));
        return 1;
    }
    static uint32_t putLeading(uint8_t*, Look) { return 0; }
    static bool isShortLiteral(Look entry) { return entry.kind <= rootBits; }
    static bool isLiteral(Look entry) { return entry.kind <= maxCodeLength; }
    static bool isLength(Look entry) { return entry.kind >= 0x80; }
    static bool isLink(Look entry) { return isLink(entry.kind) && isLiteral(entry); }
    Look follow(Look entry, Word bits) const {
        const size_t index =
            rootSize + 2 * value(entry) + subIndex(static_cast<uint32_t>(bits), entry.kind);
        return {tables_[litKindAt + index], index};
    }
    uint32_t takeLength(Look entry, Word& bits, uint32_t& count) const {
        return takeEntry(entry.kind & 15, (entry.kind >> 4) & 7, value(entry) + minMatch, bits,
                         count);
    }
    Entry lookDistance(Word bits) const {
        const size_t index = bits & (rootSize - 1);
        return {tables_[distKindAt + index], base(index)};
    }
    static bool isOtherDistance(Entry entry) {
        return entry.codeLen() > rootBits || !entry.isDistance();
    }
    static uint32_t takeDistance(Entry entry, Word& bits, uint32_t& count) {
        return takeEntry(entry.codeLen(), entry.distanceExtra(), entry.value, bits, count);
    }

 private:
    static bool isLink(uint32_t kind) { return (kind & 15) > rootBits; }
    static uint32_t subIndex(uint32_t bits, uint32_t link) {
        return static_cast<uint32_t>(tablofinv[(bits >> rootBits) & 31]) >>
               (maxCodeLength - (link & 15));
    }
    uint32_t value(Look entry) const { return tables_[litValueAt + entry.index]; }
    uint32_t base(size_t index) const {
        return vek::load<uint16_t>(tables_ + distBaseAt + 2 * index);
    }

    const uint8_t* tables_;
};

/// Packing takes as long as decoding some 200 bytes, so it is for calls with more than that to do.
/// Pairs take twice that more, and gain up to a fifth where much of the text is in short codes.
constexpr ptrdiff_t packedSource = 600;
constexpr ptrdiff_t packedRoom = 1500;
constexpr ptrdiff_t pairSource = 3000;
constexpr ptrdiff_t pairRoom = 12000;
constexpr unsigned enoughPairs = 140;  ///< Of 2048 entries.

// The kernel's table of bits holds for the packed level, too.
static_assert(packedBits <= lookupBits && packedBits <= literalBits && packedDistBits <= rootBits);

/// The tables as the kernel sees them through a packed level, which stands in its frame.
template <bool pairs>
class Packed {
 public:
    Packed(const TwoLevel& plain, const uint8_t* tables) : tables_(plain) {
        pack(level_, tables);
        if constexpr (pairs) pair(level_, tables);
    }

    uint32_t look(Word bits) const { return level_.lits[bits % (1U << packedBits)]; }
    static uint32_t taken(uint32_t entry) { return entry; }
    static uint32_t putLiterals(uint8_t* dst, uint32_t entry) {
        if constexpr (pairs) {
            vek::store<uint16_t>(dst, static_cast<uint16_t>(packed::Value::get(entry)));
            return packed::Literals::get(entry);
        } else {
            *dst = static_cast<uint8_t>(packed::First::get(entry));
            return 1;
        }
    }
    static uint32_t putLeading(uint8_t* dst, uint32_t entry) {
        if constexpr (!pairs) return 0;
        *dst = static_cast<uint8_t>(packed::Second::get(entry));
        return packed::Literals::get(entry);
    }
    static bool isShortLiteral(uint32_t entry) { return !packed::Other::isSet(entry); }
    static bool isLiteral(uint32_t entry) { return isShortLiteral(entry); }
    static bool isLength(uint32_t entry) { return !packed::Neither::isSet(entry); }
    static bool isLink(uint32_t) { return true; }
    [[gnu::noinline]] uint32_t follow(uint32_t, Word bits) const {
        const Entry entry = tables_.lit(static_cast<uint32_t>(bits));
        return packOne(entry.kind, entry.value);
    }
    static uint32_t takeLength(uint32_t entry, Word& bits, uint32_t& count) {
        return packed::First::get(entry) + minMatch + takeBits(entry, bits, count);
    }
    uint32_t lookDistance(Word bits) const { return level_.dists[bits % (1U << packedDistBits)]; }
    static bool isOtherDistance(uint32_t entry) { return packed::Other::isSet(entry); }
    static uint32_t takeDistance(uint32_t entry, Word& bits, uint32_t& count) {
        return packed::Value::get(entry) + takeBits(entry, bits, count);
    }
    Entry dist(uint32_t bits) const { return tables_.dist(bits); }

 private:
    /// Takes an entry's code and extra bits, which are returned.
    static uint32_t takeBits(uint32_t entry, Word& bits, uint32_t& count) {
        const auto taken = static_cast<uint32_t>(lowest(bits, entry));
        bits >>= entry % wordBits;
        count -= entry;
        return taken >> (entry >> packed::CodeLen::at) % 32;
    }

    PackedLevel level_;
    const TwoLevel& tables_;
};

/// Decodes with the two-level tables at `tables`.
inline Stop decodeLong(Run& run, const uint8_t* tables) {
    const TwoLevel plain(tables);
    return runSteps(run, plain, [&] {
        const ptrdiff_t source = run.srcEnd - run.src;
        const ptrdiff_t room = run.dstEnd - run.dst;
        // Pairs are written as two bytes, also where the second is none.
        if (mayRunOver(run) && source >= pairSource && room >= pairRoom &&
            countPairs(tables) >= enoughPairs) {
            runFast<Packed<true>>(run, plain, tables);
        } else if (source >= packedSource && room >= packedRoom) {
            runFast<Packed<false>>(run, plain, tables);
        } else {
            runFast<TwoLevel>(run, plain);
        }
    });
}

}  // namespace vek::inline VEK_LEVEL::inflate
