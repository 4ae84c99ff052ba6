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

/// Of a match: a length code of the sub-tables with its extra bits, then a distance likewise. The
/// wide register holds both; the narrow one either, and in front of a long distance code's extra
/// bits it is refilled once more.
constexpr unsigned lengthBits = maxCodeLength + maxLengthExtra;
constexpr unsigned directDistanceBits = rootBits + maxDistExtra;
constexpr unsigned longDistanceBits = maxCodeLength + maxDistExtra;
static_assert(lengthBits <= countedBits && directDistanceBits <= countedBits);
static_assert(!wideWord || lengthBits + longDistanceBits <= countedBits);

/// Literals a pass takes; the wide register has the bits of the next lookup, too.
constexpr unsigned passLiterals = wideWord ? 3 : 2;
static_assert(passLiterals * maxLitBits <= countedBits);
static_assert(!wideWord || (passLiterals + 1) * maxLitBits <= wordBits);

/// Input that must be left: a pass refills up to two or four times, and moves on by a byte less
/// than a word each time.
constexpr ptrdiff_t fastSource = wideWord ? 7 + 8 : 3 * 3 + 4;
/// Room that must be left: that of the literals, up to two a lookup.
constexpr ptrdiff_t fastRoom = 2 * passLiterals;
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

/// Copies a match at a distance of 16 at least, and up to copySlack bytes behind it.
inline void copyWide(uint8_t* dst, uint32_t distance, uint32_t length) {
    const uint8_t* src = dst - distance;
    uint8_t* const end = dst + length;
    copy16(dst, src);
    copy16(dst + 16, src + 16);
    while (end - dst > 32) [[unlikely]] {
            src += 32;
            dst += 32;
            copy16(dst, src);
            copy16(dst + 16, src + 16);
        }
}

/// Copies any match; false when it does not fit, or starts before the history.
[[gnu::noinline]] inline bool copyAny(const Run& run, uint8_t* dst, uint32_t distance,
                                      uint32_t length) {
    const auto left = static_cast<size_t>(run.dstEnd - dst);
    if (left < length || !reachable(run, dst, distance)) return false;
    if (left < length + size_t{copySlack} || distance > static_cast<size_t>(dst - run.dstStart)) {
        copyMatch(run, dst, distance, length);
    } else if (distance < 16) {
        copyRepeated<16>(dst, distance, length);
    } else {
        copyWide(dst, distance, length);
    }
    return true;
}

/// What stood behind the output before wide copies ran over it.
///
/// Callers may keep something of their own behind the last byte they get, so it is put back at the
/// end. Where that will be is not known, so the bytes are saved a stretch of output at a time, out
/// of line: calls into the C library within the kernel would cost its loop registers.
class SavedRoom {
 public:
    /// Output that may be decoded between two saves.
    static constexpr ptrdiff_t stretch = 2048;

    explicit SavedRoom(uint8_t* output) : start_(output), end_(output) {}

    /// Saves what a stretch from `output` on and its last match may run over, up to `end`.
    [[gnu::noinline]] void save(uint8_t* output, const uint8_t* end) {
        // The last copy before may have run over the first bytes: they are saved already.
        const ptrdiff_t kept = std::min<ptrdiff_t>(copySlack, end_ - output);
        const ptrdiff_t size = std::min<ptrdiff_t>(end - output, sizeof bytes_);
        std::memmove(bytes_, bytes_ + (output - start_), static_cast<size_t>(kept));
        std::memcpy(bytes_ + kept, output + kept, static_cast<size_t>(size - kept));
        start_ = output;
        end_ = output + size;
    }

    /// Puts back what was behind `output`, the end of what was decoded.
    [[gnu::noinline]] void restore(uint8_t* output) const {
        std::memcpy(output, bytes_ + (output - start_),
                    static_cast<size_t>(std::min<ptrdiff_t>(copySlack, end_ - output)));
    }

 private:
    uint8_t* start_;
    uint8_t* end_;
    uint8_t bytes_[stretch + fastRoom + maxMatch + copySlack];
};

/// Decodes whole symbols with the Tables made of `args`; fastPossible() holds. Ends at a symbol, at
/// a distance that does not exist, or at a match's copy.
template <class Tables, class... Args>
[[gnu::noinline]] void runFast(Run& run, const Args&... args) {
    const Tables tables(args...);
    const uint8_t* src = run.src;
    uint8_t* dst = run.dst;
    Word bits = run.bits;
    uint32_t count = run.nBits;
    const uint8_t* const srcSafe = run.srcEnd - fastSource;
    const uint8_t* const dstStart = run.dstStart;
    SavedRoom room(dst);
    const uint8_t* const dstWide = run.dstEnd - dst >= copySlack ? run.dstEnd - copySlack : dst - 1;

    const auto refill = [&] {
        bits |= vek::load<Word>(src) << (count % wordBits);
        src += (~count % wordBits) / 8;
        count |= countedBits;
    };
    const auto putLiteral = [&](auto entry) {
        dst += tables.putLiterals(dst, entry);
        bits >>= tables.taken(entry) % wordBits;
        count -= tables.taken(entry);
    };

    // What the inner loop leaves to the outer one.
    enum class Event { margin, symbol, distance, copy };
    refill();
    auto entry = tables.look(bits);
    uint32_t length = 0;
    uint32_t distance = 0;
    const uint8_t* dstSafe = dst - 1;
    for (;;) {
        Event event;
        for (;;) {
            if (src > srcSafe || dst > dstSafe) [[unlikely]] {
                event = Event::margin;
                break;
            }
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
            if constexpr (wideWord) {
                entry = tables.look(bits);
                refill();
            } else {
                refill();
                entry = tables.look(bits);
            }
            if (distance < 16 || distance > static_cast<size_t>(dst - dstStart) ||
                dstWide - dst < static_cast<ptrdiff_t>(length)) [[unlikely]] {
                event = Event::copy;
                break;
            }
            copyWide(dst, distance, length);
            dst += length;
        }

        if (event == Event::margin) {
            if (src > srcSafe || run.dstEnd - dst < fastRoom) break;
            dstSafe = dst + std::min(run.dstEnd - fastRoom - dst, SavedRoom::stretch);
            room.save(dst, run.dstEnd);
            continue;
        }
        if (event == Event::symbol) {
            if (!tables.isLink(entry)) break;
            entry = tables.follow(entry, bits);
            if (tables.isLiteral(entry)) {
                putLiteral(entry);
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
        if (!copyAny(run, dst, distance, length)) {
            run.step = stepCopy;
            run.value = length;
            run.distance = distance;
            break;
        }
        dst += length;
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

}  // namespace vek::inline VEK_LEVEL::inflate
