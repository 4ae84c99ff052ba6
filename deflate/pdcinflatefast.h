// The fast kernel of the inflate decoder, for either layout of the tables.
//
// It computes what the careful steps compute, for whole symbols, as long as enough input and room
// is left that neither needs to be looked at between them. What needs care it leaves to the careful
// steps, at the symbol or in front of the copy where it met it: the end of the block, invalid
// codes, matches that do not fit.
//
// Bits come from a register of the machine's width (`Word`), refilled by one unaligned load: the
// bytes that fit are taken over, and the bits above them stand there too, uncounted, and are the
// same when they are loaded again. So after a refill all bits of the register are the stream's, of
// which wordBits - 8 at least are counted. Only the count modulo wordBits is ever used, and it may
// carry rubbish above: the entries of literals are subtracted as they are.
//
// Time goes into two chains: from the bits through a lookup to the shift that gives the next bits,
// and mispredicted branches between literal and match. So a pass of the loop takes as many literals
// as one refill permits, and a match's successor is looked up before its bytes are copied.
#pragma once

#include <tmmintrin.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "deflate/pdcinflatematch.h"
#include "vector/bytes.h"
#include "vector/copy.h"

namespace vek::inflate {

using Word = uintptr_t;
constexpr unsigned wordBits = sizeof(Word) * CHAR_BIT;
constexpr unsigned countedBits = wordBits - 8;
constexpr bool wideWord = wordBits == 64;

/// Of a match: a length code of the sub-tables with its extra bits, then a distance likewise. The
/// wide register holds both; the narrow one either, and in front of a long distance code's extra
/// bits it is refilled once more.
constexpr unsigned lengthBits = maxCodeLen + 5;
constexpr unsigned directDistanceBits = rootBits + 13;
constexpr unsigned longDistanceBits = maxCodeLen + 13;
static_assert(lengthBits <= countedBits && directDistanceBits <= countedBits);
static_assert(!wideWord || lengthBits + longDistanceBits <= countedBits);

/// Literals a pass takes; the wide register has the bits of the next lookup, too.
constexpr unsigned passLiterals = wideWord ? 3 : 2;
static_assert(passLiterals * maxLitBits <= countedBits);
static_assert(!wideWord || (passLiterals + 1) * maxLitBits <= wordBits);

/// Input that must be left: a pass refills up to two or four times, and moves on by a byte less
/// than a word each time.
constexpr ptrdiff_t fastSource = wideWord ? 7 + 8 : 3 * 3 + 4;
/// Room that must be left: that of the literals.
constexpr ptrdiff_t fastRoom = passLiterals;
/// Bytes that a wide copy may write behind the match.
constexpr ptrdiff_t copySlack = 32;

inline bool fastPossible(const Run& run) {
    return run.srcEnd - run.src >= fastSource && run.dstEnd - run.dst >= fastRoom && run.nBits < 32;
}

/// Takes `extra` bits.
inline uint32_t takeExtra(uint32_t extra, Word& bits, uint32_t& count) {
    const uint32_t value = static_cast<uint32_t>(bits) & ((1U << extra) - 1);
    bits >>= extra;
    count -= extra;
    return value;
}

/// Takes a length's or a distance's code and `extra` bits, and adds these to its base.
inline uint32_t takeEntry(uint32_t codeLen, uint32_t extra, uint32_t base, Word& bits,
                          uint32_t& count) {
    bits >>= codeLen;
    count -= codeLen;
    return base + takeExtra(extra, bits, count);
}

/// The first 16 bytes of strings that repeat after 1 to 15 bytes, and the longest whole period
/// there.
struct Repeats {
    alignas(16) uint8_t order[16][16];
    uint8_t period[16];
};
constexpr Repeats repeats = [] {
    Repeats table{};
    for (unsigned distance = 1; distance < 16; ++distance) {
        for (unsigned i = 0; i < 16; ++i)
            table.order[distance][i] = static_cast<uint8_t>(i % distance);
        table.period[distance] = static_cast<uint8_t>(16 - 16 % distance);
    }
    return table;
}();

/// Copies a match and up to copySlack bytes behind it.
inline void copyWide(uint8_t* dst, uint32_t distance, uint32_t length) {
    const uint8_t* src = dst - distance;
    uint8_t* const end = dst + length;
    if (distance >= 16) [[likely]] {
        copy16(dst, src);
        copy16(dst + 16, src + 16);
        while (end - dst > 32) [[unlikely]] {
                src += 32;
                dst += 32;
                copy16(dst, src);
                copy16(dst + 16, src + 16);
            }
        return;
    }
    const __m128i order = _mm_load_si128(reinterpret_cast<const __m128i*>(repeats.order[distance]));
    const __m128i string =
        _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src)), order);
    const unsigned period = repeats.period[distance];
    do {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), string);
        dst += period;
    } while (dst < end);
}

/// What stood behind the output before wide copies ran over it.
///
/// Callers may keep something of their own behind the last byte they get, so it is put back at the
/// end. The bytes are saved 32 at a time, before a copy first reaches them: one save for every 32
/// bytes of output.
class SavedRoom {
 public:
    /// How far beyond its match a copy's end may be when it is saved: the copy's slack and a save.
    static constexpr ptrdiff_t reach = 2 * copySlack;

    explicit SavedRoom(uint8_t* output) : start_(output), end_(output) {}

    /// Makes a wide copy that ends its match at `matchEnd` safe; reach bytes of room follow there.
    void prepare(uint8_t* matchEnd) {
        if (end_ - matchEnd < copySlack) [[unlikely]]
            save(matchEnd);
    }

    /// Puts back what was behind `output`, the end of what was decoded.
    void restore(uint8_t* output) const {
        if (output < end_)
            std::memcpy(output, bytes_ + (output - start_), static_cast<size_t>(end_ - output));
    }

 private:
    void save(uint8_t* matchEnd) {
        // What is saved of the bytes behind the match stays, moved to the front; below 32 of them.
        uint8_t* const from = std::max(end_, matchEnd);
        if (from != matchEnd) copy32(bytes_, bytes_ + (matchEnd - start_));
        copy32(bytes_ + (from - matchEnd), from);
        start_ = matchEnd;
        end_ = from + copySlack;
    }

    static void copy32(uint8_t* dst, const uint8_t* src) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 16));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), low);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 16), high);
    }

    uint8_t* start_;
    uint8_t* end_;
    uint8_t bytes_[3 * copySlack];
};

/// Decodes whole symbols; fastPossible() holds. Ends at a symbol, or at a match's copy.
template <class Tables>
[[gnu::noinline]] void runFast(Run& run, const Tables tables) {
    const uint8_t* src = run.src;
    uint8_t* dst = run.dst;
    Word bits = run.bits;
    uint32_t count = run.nBits;
    const uint8_t* const srcSafe = run.srcEnd - fastSource;
    uint8_t* const dstSafe = run.dstEnd - fastRoom;
    const uint8_t* const dstStart = run.dstStart;
    uint8_t* const dstWide =
        run.dstEnd - dst >= SavedRoom::reach ? run.dstEnd - SavedRoom::reach : dst;
    SavedRoom room(dst);

    const auto refill = [&] {
        bits |= vek::load<Word>(src) << (count % wordBits);
        src += (~count % wordBits) / 8;
        count |= countedBits;
    };
    const auto putLiteral = [&](auto entry) {
        *dst++ = static_cast<uint8_t>(tables.value(entry));
        bits >>= tables.kind(entry) % wordBits;
        count -= tables.kind(entry);
    };

    refill();
    auto entry = tables.look(bits);
    while (src <= srcSafe && dst <= dstSafe) {
        if (tables.isShortLiteral(entry)) {
            putLiteral(entry);
            entry = tables.look(bits);
            if (tables.isShortLiteral(entry)) {
                putLiteral(entry);
                if constexpr (wideWord) {
                    entry = tables.look(bits);
                    if (tables.isShortLiteral(entry)) {
                        putLiteral(entry);
                        entry = tables.look(bits);
                    }
                    refill();
                } else {
                    refill();
                    entry = tables.look(bits);
                }
                continue;
            }
            refill();
        }
        if (!tables.isLength(entry)) {
            if (!tables.isLink(entry)) break;
            entry = tables.follow(entry, bits);
            if (tables.isLiteral(entry)) {
                putLiteral(entry);
                refill();
                entry = tables.look(bits);
                continue;
            }
            if (!tables.isLength(entry)) break;
        }

        const uint32_t length = tables.takeLength(entry, bits, count);
        if constexpr (!wideWord) refill();
        auto far = tables.lookDistance(bits);
        uint32_t distance;
        if (!tables.isLongDistance(far)) [[likely]] {
            distance = tables.takeDistance(far, bits, count);
        } else {
            const Entry longFar = tables.dist(static_cast<uint32_t>(bits));
            bits >>= longFar.codeLen();
            count -= longFar.codeLen();
            if constexpr (!wideWord) refill();
            distance = longFar.value + takeExtra(longFar.distanceExtra(), bits, count);
        }
        if constexpr (wideWord) {
            entry = tables.look(bits);
            refill();
        } else {
            refill();
            entry = tables.look(bits);
        }

        uint8_t* const end = dst + length;
        if (distance - 1 < static_cast<size_t>(dst - dstStart) && end <= dstWide) [[likely]] {
            room.prepare(end);
            copyWide(dst, distance, length);
            dst = end;
        } else {
            if (static_cast<size_t>(run.dstEnd - dst) < length || !reachable(run, dst, distance)) {
                run.step = stepCopy;
                run.value = length;
                run.distance = distance;
                break;
            }
            copyMatch(run, dst, distance, length);
            dst = end;
        }
    }

    room.restore(dst);
    // Back to whole bytes in the source, as far as they are this call's.
    count %= wordBits;
    const auto unread = std::min<ptrdiff_t>(count / 8, src - run.src);
    run.src = src - unread;
    run.nBits = count - 8 * static_cast<uint32_t>(unread);
    run.bits = static_cast<uint32_t>(bits & ((uint64_t{1} << run.nBits) - 1));
    run.dst = dst;
}

}  // namespace vek::inflate
