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
// as one refill permits, a match's successor is looked up before its bytes are copied, and what is
// rare or calls a function is done outside of the inner loop, which keeps its variables in
// registers even where there are only seven.
//
// `Tables` gives, beside what the careful steps need,
//   Look look(Word bits)                 the entry that the bits begin with
//   bool isShortLiteral(Look)            it holds nothing but literals (one or two) without a link
//   bool isLength(Look), isLink(Look)    of the others: a length; the end or no code unless a link
//   Look follow(Look, Word bits)         behind a link; bool isLiteral(Look) then tells literals
//   uint32_t taken(Look)                 of literals: in the low bits, the bits to take
//   uint32_t putLiterals(dst, Look)      writes up to two literals; returns their number
//   uint32_t putLeading(dst, Look)       writes the literal in front of a length, if there is one
//   uint32_t takeLength(Look, bits, count)
//   lookDistance, isOtherDistance, takeDistance   the same for distances; others are longer codes
//                                                 and distances that do not exist
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "bytes/copy.h"
#include "bytes/repeat.h"
#include "bytes/words.h"
#include "inflate/match.h"

namespace vek::inline VEK_LEVEL::inflate {

using Word = uintptr_t;
constexpr unsigned wordBits = sizeof(Word) * CHAR_BIT;
constexpr unsigned countedBits = wordBits - 8;
constexpr bool wideWord = wordBits == 64;

/// Bits that a lookup looks at, and the most that each step takes: a literal of the first level, a
/// length of the sub-tables, a distance of the first level or of the sub-tables.
constexpr unsigned lookupBits = maxLitBits;
constexpr unsigned literalBits = maxLitBits;
constexpr unsigned lengthBits = maxCodeLength + maxLengthExtra;
constexpr unsigned directDistanceBits = rootBits + maxDistExtra;
constexpr unsigned longDistanceBits = maxCodeLength + maxDistExtra;

/// Literals a pass takes.
constexpr unsigned passLiterals = wideWord ? 3 : 2;

// The table of runFast(): between two refills no more is spent than was counted, and after what is
// spent since a refill enough bits of the register are left for the next lookup.
static_assert(passLiterals * literalBits <= countedBits);
static_assert(literalBits + lookupBits <= wordBits);
static_assert(lengthBits <= countedBits && lengthBits + rootBits <= wordBits);
static_assert(wideWord ? lengthBits + longDistanceBits <= countedBits &&
                             passLiterals * literalBits + lookupBits <= wordBits &&
                             lengthBits + longDistanceBits + lookupBits <= wordBits
                       : directDistanceBits <= countedBits && maxCodeLength <= countedBits &&
                             maxDistExtra <= countedBits);

/// Input that must be left: a pass refills up to two or four times, and moves on by a byte less
/// than a word each time.
constexpr ptrdiff_t fastSource = wideWord ? 7 + 8 : 3 * 3 + 4;
/// Room that must be left: that of the literals, up to two a lookup.
constexpr ptrdiff_t fastRoom = 2 * passLiterals;
/// Bytes that a wide copy takes at a time, of which all but one may lie behind the match, and the
/// distance from which it may.
constexpr ptrdiff_t copySlack = 32;
constexpr uint32_t wideDistance = 16;
/// The distance from which passes copy, and the bytes that they copy at once if it is the least.
constexpr uint32_t passDistance = 8;
constexpr uint32_t firstCopied = 16 + passDistance;
/// Room in which every symbol's output can be copied wide.
constexpr ptrdiff_t wideRoom = fastRoom + maxMatch + copySlack;

inline bool fastPossible(const Run& run) {
    return run.srcEnd - run.src >= fastSource && run.dstEnd - run.dst >= fastRoom && run.nBits < 32;
}

/// The lowest bits of `bits`, as many as the lower byte of `count` says: less than wordBits.
inline Word lowest(Word bits, uint32_t count) {
#if defined(__BMI2__) && defined(__x86_64__)
    return _bzhi_u64(bits, count);
#elif defined(__BMI2__)
    return _bzhi_u32(bits, count);
#else
    return bits & ((Word{1} << count % wordBits) - 1);
#endif
}

/// Takes `extra` bits.
inline uint32_t takeExtra(uint32_t extra, Word& bits, uint32_t& count) {
    const auto value = static_cast<uint32_t>(lowest(bits, extra));
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

/// Copies the first bytes of a match at passDistance at least: copySlack from wideDistance on,
/// otherwise firstCopied. In what was copied before, a copy may find what it is to repeat.
inline void copyFirst(uint8_t* dst, uint32_t distance) {
    const uint8_t* const src = dst - distance;
    copy8(dst, src);
    copy8(dst + 8, src + 8);
    copy16(dst + 16, src + 16);
}

/// Copies what follows the first copySlack bytes of a match at wideDistance at least, and up to
/// copySlack more.
inline void copyRest(uint8_t* dst, uint32_t distance, uint32_t length) {
    uint8_t* const end = dst + length;
    for (dst += copySlack; dst < end; dst += copySlack) {
        copy16(dst, dst - distance);
        copy16(dst + 16, dst + 16 - distance);
    }
}

/// Copies a match that the passes left; false when it does not fit, or starts before the history.
[[gnu::noinline]] inline bool copyAny(const Run& run, uint8_t* dst, uint32_t distance,
                                      uint32_t length) {
    if (static_cast<size_t>(run.dstEnd - dst) < length || !reachable(run, dst, distance))
        return false;
    if (run.overEnd - dst < static_cast<ptrdiff_t>(length) + copySlack ||
        distance > static_cast<size_t>(dst - run.dstStart)) {
        copyMatch(run, dst, distance, length);
    } else if (distance < wideDistance) {
        copyRepeated<wideDistance>(dst, distance, length);
    } else {
        copyFirst(dst, distance);
        copyRest(dst, distance, length);
    }
    return true;
}

/// What the inner loop of the kernel leaves to the outer one.
enum class Event {
    margin,    ///< Input or room for a further pass is not certain.
    symbol,    ///< The entry is a link, the end of the block or no code.
    distance,  ///< The distance's code is beyond the lookup, or there is no such distance.
    copy,      ///< The match overlaps closely, begins far back, or is near the room's end.
};

/// Writes the kernel's position back, in whole bytes of the source as far as they are this call's.
inline void writeBack(Run& run, const uint8_t* src, uint8_t* dst, Word bits, uint32_t count) {
    count %= wordBits;
    const auto unread = std::min<ptrdiff_t>(count / 8, src - run.src);
    run.src = src - unread;
    run.nBits = count - 8 * static_cast<uint32_t>(unread);
    run.bits = static_cast<uint32_t>(bits & ((uint64_t{1} << run.nBits) - 1));
    run.dst = dst;
}

/// Decodes whole symbols with the Tables made of `args`; fastPossible() holds. Ends at a symbol, at
/// a distance that does not exist, or at a match's copy.
///
/// What a pass spends of the counted bits, and where it refills them. A lookup looks at bits
/// without spending them; uncounted bits serve it as well as counted ones.
///
///     wide register (64)     spent  left     narrow register (32)   spent  left
///     refilled                        56     refilled                        24
///     three literals         3 x 11   23     two literals           2 x 11    2
///       lookup, refill                56       refill, lookup                24
///     or one literal and a   11              or one literal and a   11
///       lookup, refill                56       lookup, refill                24
///     length, extra bits     20       36     length, extra bits     20        4
///     lookup of the distance                 lookup of the distance, refill  24
///     distance, extra bits   28        8     distance, extra bits   23        1
///       lookup, refill                56       refill, lookup                24
///
/// A distance beyond the narrow register's lookup takes its code first, and its extra bits after
/// another refill.
///
/// All is one long function since the loop's variables have to be registers, of which there may be
/// seven: with the same steps as members of an object, inlined, single-level tables took 2 to 6 %
/// longer.
template <class Tables, class... Args>
[[gnu::noinline]] void runFast(Run& run, const Args&... args) {
    const Tables tables(args...);
    const uint8_t* src = run.src;
    uint8_t* dst = run.dst;
    Word bits = run.bits;
    uint32_t count = run.nBits;
    const uint8_t* const srcSafe = run.srcEnd - fastSource;
    const uint8_t* const dstSafe = run.dstEnd - fastRoom;
    const uint8_t* const dstWide = run.overEnd - wideRoom;
    // How far passes go, and the distances from which they copy, passDistance and wideSpan - 1
    // more. Near the room's end, and where nothing may be run over, there are none. As output
    // grows, more of it is in reach than was at first: it is enough to look again when that was too
    // little.
    const uint8_t* dstPass = dstWide;
    size_t wideSpan = 0;
    const auto reachFurther = [&] {
        const bool wide = dst <= dstWide;
        dstPass = wide ? dstWide : dstSafe;
        const ptrdiff_t reach = wide ? dst - run.dstStart : 0;
        constexpr ptrdiff_t least = passDistance - 1;
        wideSpan = static_cast<size_t>(std::max<ptrdiff_t>(reach - least, 0));
    };
    reachFurther();

    // Loads what fits: countedBits at least are counted then.
    const auto refill = [&] {
        bits |= vek::load<Word>(src) << (count % wordBits);
        src += (~count % wordBits) / 8;
        count |= countedBits;
    };
    refill();
    auto entry = tables.look(bits);
    uint32_t length = 0;
    uint32_t distance = 0;

    const auto takeLiteral = [&] {
        dst += tables.putLiterals(dst, entry);
        bits >>= tables.taken(entry) % wordBits;
        count -= tables.taken(entry);
    };
    // Where there are bits enough, the lookup need not wait for the refill.
    const auto lookAndRefill = [&] {
        if constexpr (wideWord) entry = tables.look(bits);
        refill();
        if constexpr (!wideWord) entry = tables.look(bits);
    };

    for (;;) {
        Event event;
        // Passes of literals, or of a match, until something needs care. The exits are marked as
        // unlikely to keep what follows them out of the passes' straight code.
        for (;;) {
            if (src > srcSafe || dst > dstPass) [[unlikely]] {
                event = Event::margin;
                break;
            }
            if (tables.isShortLiteral(entry)) {
                takeLiteral();
                entry = tables.look(bits);
                if (tables.isShortLiteral(entry)) {
                    takeLiteral();
                    if constexpr (wideWord) {
                        entry = tables.look(bits);
                        if (tables.isShortLiteral(entry)) takeLiteral();
                    }
                    lookAndRefill();
                    continue;
                }
                refill();
            }
            if (!tables.isLength(entry)) [[unlikely]] {
                event = Event::symbol;
                break;
            }

            dst += tables.putLeading(dst, entry);
            length = tables.takeLength(entry, bits, count);
            const auto far = tables.lookDistance(bits);
            if constexpr (!wideWord) refill();
            if (tables.isOtherDistance(far)) [[unlikely]] {
                event = Event::distance;
                break;
            }
            distance = tables.takeDistance(far, bits, count);
            lookAndRefill();
            if (size_t{distance} - passDistance >= wideSpan) [[unlikely]] {
                event = Event::copy;
                break;
            }
            copyFirst(dst, distance);
            // Few matches are longer: the loop is kept out of the way of the others.
            if (length > firstCopied) [[unlikely]] {
                if (distance < wideDistance) {
                    event = Event::copy;
                    break;
                }
                copyRest(dst, distance, length);
            }
            dst += length;
        }

        if (event == Event::margin) {
            if (src > srcSafe || dst > dstSafe) break;
            reachFurther();
            continue;
        }
        if (event == Event::symbol) {
            if (!tables.isLink(entry)) break;
            entry = tables.follow(entry, bits);
            if (tables.isLiteral(entry)) {
                takeLiteral();
                refill();
                entry = tables.look(bits);
            } else if (!tables.isLength(entry)) {
                break;
            }
            continue;
        }
        if (event == Event::distance) {
            const Entry far = tables.dist(static_cast<uint32_t>(bits));
            if (!far.isDistance()) {
                run.step = stepDistance;
                run.value = length;
                break;
            }
            bits >>= far.codeLen();
            count -= far.codeLen();
            if constexpr (!wideWord) refill();
            distance = far.value + takeExtra(far.distanceExtra(), bits, count);
            refill();
            entry = tables.look(bits);
        }
        if (distance - 1 < wideDistance - 1 &&
            static_cast<size_t>(dst - run.dstStart) >= distance && dst <= dstWide) {
            copyRepeated<wideDistance>(dst, distance, length);
            dst += length;
            continue;
        }
        if (!copyAny(run, dst, distance, length)) {
            run.step = stepCopy;
            run.value = length;
            run.distance = distance;
            break;
        }
        dst += length;
        reachFurther();
    }
    writeBack(run, src, dst, bits, count);
}

}  // namespace vek::inline VEK_LEVEL::inflate
