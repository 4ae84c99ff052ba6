// LZO1X decoders: one that checks every read, write and distance, and one that trusts distances.
//
// instructions.h has the format. Every match tells how many literals (0..3) follow it, so most text
// decodes as a chain of "match, up to three literals".
//
// Both decoders are one text. While there is a margin of source and of room, a fast loop takes an
// instruction from one 32-bit load, copies 16 bytes at a time past what is wanted, and copies the
// trailing literals as one word whether there are any or not. A match nearer than 16 bytes is first
// spread to a 16-byte pattern by one byte shuffle. What needs more than the margin, and everything
// near the ends, goes through a careful step that checks each byte; after it the fast loop resumes.
//
// The trusting decoder stops quietly where the checking one reports; it too keeps inside source and
// room, so the difference is the distance test alone.
//
// Format: LZO1X, as published with the LZO library (M. F. X. J. Oberhumer).
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "bytes/run_length.h"
#include "bytes/wide_copy.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "frame/variant.h"
#include "include/vekdc.h"
#include "lzo/instructions.h"

namespace vek::inline VEK_LEVEL::lzo {
namespace {

// Context of an instruction: literals copied just before it, 4 standing for "a run of 4 or more".
constexpr uint32_t afterRun = 4;

constexpr size_t step = 16;  // Of the fast loop's copies.

// The fast loop's margins, which remain where an instruction begins; where a long run or match
// ends, too. A run or match without an extension is copied whatever its length: the longest are 18
// literals in two steps, and a match of 33 in three, with a word of trailing literals behind it.
constexpr size_t longestRun = runBase + runBits;
constexpr size_t longestMatch = matchBase + middleBits;
constexpr size_t roomMargin = 48;
static_assert(longestRun <= 2 * step && 2 * step <= roomMargin);
static_assert(longestMatch <= 3 * step && 3 * step <= roomMargin);
static_assert(longestMatch + sizeof(uint32_t) <= roomMargin);
static_assert(wideCopyMargin<step> + sizeof(uint32_t) <= roomMargin);
// Source: a run's byte and its two steps; a match's 3 bytes and a word; after an extension the last
// step of a run, or a distance and a word.
constexpr size_t sourceMargin = 40;
static_assert(1 + 2 * step <= sourceMargin);
static_assert(3 + sizeof(uint32_t) <= sourceMargin);

constexpr size_t tooLong = SIZE_MAX;

/// Copies to `position` a match that begins `distance` back, in steps: up to wideCopyMargin bytes
/// behind it are overwritten.
inline void ownCopyDst(uint8_t* dst, size_t position, size_t distance, size_t length) {
    copyMatchWide<step>(dst + position, distance, length);
}

/// Reads an extension, 255 for each zero byte and then a non-zero byte, from [*pSrc, end). Returns
/// tooLong when the source ends inside it or its value passes any buffer.
size_t readExtension(const uint8_t** pSrc, const uint8_t* end) {
    const uint8_t* const src = *pSrc;
    const auto left = static_cast<size_t>(end - src);
    const size_t zeros = runLength(src, 0, left);
    // 255 bytes for each zero and the rest of the longest instruction stay below 2^32.
    constexpr size_t mostZeros = (UINT32_MAX - 512U) / 255U;
    if (zeros == left || zeros > mostZeros) return tooLong;
    *pSrc = src + zeros + 1;
    return 255 * zeros + src[zeros];
}

/// A match as its instruction says.
struct Match {
    size_t length;
    size_t distance;
    uint32_t trailing;  ///< Literals that follow.
};

/// One stream being decoded. The functions return false where the stream breaks or ends.
template <bool Checking>
struct Decoder {
    const uint8_t* src;
    const uint8_t* const srcEnd;
    uint8_t* dst;
    uint8_t* const dstStart;
    uint8_t* const dstEnd;
    uint32_t context = 0;
    bool ended = false;

    size_t sourceLeft() const { return static_cast<size_t>(srcEnd - src); }
    size_t room() const { return static_cast<size_t>(dstEnd - dst); }
    size_t produced() const { return static_cast<size_t>(dst - dstStart); }

    bool literals(size_t length) {
        const size_t possible = std::min({length, sourceLeft(), room()});
        if (possible == length || !Checking) {
            std::memcpy(dst, src, possible);
            dst += possible;
            src += possible;
        }
        context = static_cast<uint32_t>(std::min<size_t>(length, afterRun));
        return possible == length;
    }

    bool match(size_t distance, size_t length, uint32_t trailing) {
        if (Checking && (distance > produced() || length > room())) return false;
        const size_t possible = std::min(length, room());
        copyOverlap(dst, distance, possible);
        dst += possible;
        return possible == length && literals(trailing);
    }

    bool extended(size_t* pLength, size_t base) {
        if (*pLength != 0) return true;
        const size_t extension = readExtension(&src, srcEnd);
        *pLength = base + extension;
        return extension != tooLong;
    }

    /// One instruction, every byte checked.
    bool careful() {
        if (sourceLeft() == 0) {
            ended = context == afterRun;
            return false;
        }
        if (!Checking && room() == 0) return false;
        const uint32_t op = *src++;
        if (op < farMatch && context == 0) {
            size_t length = op;
            return extended(&length, runBits) && literals(length + runBase);
        }
        if (op < farMatch || op >= nearMatch) {
            if (sourceLeft() == 0) return false;
            const uint32_t word = op | uint32_t{*src++} << 8;
            const Match found = op >= nearMatch ? twoByteMatch(word) : smallMatch(word, context);
            return match(found.distance, found.length, found.trailing);
        }
        size_t length = op & lengthBits(op);
        if (!extended(&length, lengthBits(op)) || sourceLeft() < 2) return false;
        const uint32_t word = load<uint16_t>(src);
        src += 2;
        const size_t distance = distanceBase(op) + (word >> 2);
        if (op < middleMatch && distance == endDistance) {
            ended = true;
            return false;
        }
        return match(distance, length + matchBase, word & maxTrailing);
    }

    /// A match of the two-byte classes by its bytes, the first one lowest: a near one,
    static Match twoByteMatch(uint32_t word) {
        return {(word >> 5 & 7) + 1, 1 + ((word >> 2 & 7) | (word >> 5 & 0x7F8)),
                word & maxTrailing};
    }
    /// or one whose first byte is below 16.
    static Match smallMatch(uint32_t word, uint32_t before) {
        const size_t distance = 1 + (word >> 2 & 3) + (word >> 6 & 0x3FC);
        return before == afterRun ? Match{3, beyondDistance + distance, word & maxTrailing}
                                  : Match{2, distance, word & maxTrailing};
    }

    /// The margins' ends.
    struct Limits {
        const uint8_t* src;
        uint8_t* dst;
    };
    /// Where the fast loop stands.
    struct Position {
        const uint8_t* in;
        uint8_t* out;
    };

    /// A literal run with an extension, from its first byte on; false when it comes near an end.
    bool longRun(Position& at, const Limits& last) {
        const uint8_t* in = at.in + 1;
        const size_t extension = readExtension(&in, srcEnd);
        if (extension == tooLong || in > last.src) return false;
        const size_t run = extension + runBits + runBase;
        if (run > static_cast<size_t>(last.src - in) ||
            run > static_cast<size_t>(last.dst - at.out))
            return false;
        copyWide<step>(at.out, in, run);
        at = {in + run, at.out + run};
        return true;
    }

    /// A far or middle match with an extension, read from its first byte on; false when it comes
    /// near an end.
    bool longMatch(Position& at, const Limits& last, Match& found) {
        const uint32_t op = *at.in;
        const uint8_t* in = at.in + 1;
        const size_t extension = readExtension(&in, srcEnd);
        if (extension == tooLong || in > last.src) return false;
        const uint32_t word = load<uint16_t>(in);
        found = {matchBase + lengthBits(op) + extension, distanceBase(op) + (word >> 2),
                 word & maxTrailing};
        if (found.length > static_cast<size_t>(last.dst - at.out)) return false;
        at.in = in + 2;
        return true;
    }

    /// Whole instructions while both margins last and nothing needs care. Apart from the careful
    /// step, so that its loop has all registers.
    [[gnu::noinline]] void fast() {
        if (sourceLeft() < sourceMargin || room() < roomMargin) return;
        const Limits last{srcEnd - sourceMargin, dstEnd - roomMargin};
        Position at{src, dst};
        uint32_t before = context;
        while (at.in <= last.src && at.out <= last.dst) {
            const auto word = load<uint32_t>(at.in);
            const uint32_t op = word & 0xFF;
            Position next{at.in + 2, at.out};
            Match found;
            if (op >= nearMatch) {
                found = twoByteMatch(word);
            } else if (op >= farMatch) {
                found = {matchBase + (op & lengthBits(op)),
                         distanceBase(op) + (word >> 10 & 0x3FFF), word >> 8 & maxTrailing};
                ++next.in;
                if (found.length == matchBase) {
                    next.in = at.in;
                    if (!longMatch(next, last, found)) break;
                }
                if (op < middleMatch && found.distance == endDistance) break;
            } else if (before == 0) {
                if (op != 0) {
                    copy16(at.out, at.in + 1);
                    copy16(at.out + 16, at.in + 17);
                    at = {at.in + 1 + runBase + op, at.out + runBase + op};
                } else if (!longRun(at, last)) {
                    break;
                }
                before = afterRun;
                continue;
            } else {
                found = smallMatch(word, before);
            }
            const auto produced = static_cast<size_t>(at.out - dstStart);
            if (Checking && found.distance > produced) break;
            const auto trailing = load<uint32_t>(next.in);
            ownCopyDst(dstStart, produced, found.distance, found.length);
            store(at.out + found.length, trailing);
            at = {next.in + found.trailing, at.out + found.length + found.trailing};
            before = found.trailing;
        }
        src = at.in;
        dst = at.out;
        context = before;
    }

    VekStatus stream(uint32_t* pDstLen) {
        const bool empty = sourceLeft() >= sizeof(endInstruction) &&
                           std::memcmp(src, endInstruction, sizeof(endInstruction)) == 0;
        bool going = sourceLeft() != 0 && !empty;
        ended = empty;
        if (going && *src >= farMatch) {
            const size_t first = *src++;
            going = first > firstRunBase && literals(first - firstRunBase);
        }
        while (going) {
            fast();
            going = careful();
        }
        if (Checking && !ended) return vekStatusLzoBrokenStream;
        *pDstLen = static_cast<uint32_t>(produced());
        return vekStatusOk;
    }
};

}  // namespace

/// Decodes one plain stream, trusting its distances; its status is always 0.
VekStatus ownDecodeLZO1X(const uint8_t* src, size_t srcLen, uint8_t* dst, uint32_t* pDstLen) {
    Decoder<false> decoder{src, src + srcLen, dst, dst, dst + *pDstLen};
    return decoder.stream(pDstLen);
}

/// Decodes one plain stream, checking everything.
VekStatus ownDecodeLZO1XSafe(const uint8_t* src, size_t srcLen, uint8_t* dst, uint32_t* pDstLen) {
    Decoder<true> decoder{src, src + srcLen, dst, dst, dst + *pDstLen};
    return decoder.stream(pDstLen);
}

namespace {

/// ownDecodeLZO1X or ownDecodeLZO1XSafe.
using StreamDecoder = VekStatus(const uint8_t*, size_t, uint8_t*, uint32_t*);

/// Decodes all parts, whichever fail; the last failure is the status.
template <StreamDecoder decodeStream>
VekStatus decodeContainer(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen,
                          uint32_t parts) {
    const auto total = load<uint32_t>(src + totalOffset);
    const uint32_t slice = total / parts;
    const uint8_t* part = src + containerHeaderSize(parts);
    auto left = static_cast<uint32_t>(src + srcLen - part);
    VekStatus status = vekStatusOk;
    uint32_t sum = 0;
    for (uint32_t k = 0; k < parts; ++k) {
        const bool last = k + 1 == parts;
        const uint32_t length =
            last ? left : load<uint32_t>(src + partLengthsOffset + 4 * size_t{k});
        if (length > left) {
            status = vekStatusLzoBrokenStream;
            break;
        }
        uint32_t partLen = last ? slice + total % parts : slice;
        const VekStatus partStatus = decodeStream(part, length, dst + size_t{k} * slice, &partLen);
        if (partStatus == vekStatusOk) {
            sum += partLen;
        } else {
            status = partStatus;
        }
        part += length;
        left -= length;
    }
    *pDstLen = sum;
    return status;
}

template <StreamDecoder decodeStream>
VekStatus decode(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen) {
    if (anyNull(src, dst, pDstLen)) return vekStatusNullPointer;
    if (srcLen == 0) {
        *pDstLen = 0;
        return vekStatusOk;
    }
    const uint32_t parts = vekLZOContainerParts(src, srcLen);
    if (parts != 0) return decodeContainer<decodeStream>(src, srcLen, dst, pDstLen, parts);
    return decodeStream(src, srcLen, dst, pDstLen);
}

}  // namespace
}  // namespace vek::inline VEK_LEVEL::lzo

using namespace vek::lzo;

VekStatus veksDecodeLZO_8u(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen) {
    return decode<ownDecodeLZO1X>(src, srcLen, dst, pDstLen);
}

VekStatus veksDecodeLZOSafe_8u(const uint8_t* src, uint32_t srcLen, uint8_t* dst,
                               uint32_t* pDstLen) {
    return decode<ownDecodeLZO1XSafe>(src, srcLen, dst, pDstLen);
}
