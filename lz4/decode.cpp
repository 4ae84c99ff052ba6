// LZ4 block decoder.
//
// One loop, instantiated for the two kinds of history: bytes in memory in front of the output
// (none, or a prefix), and a dictionary in a buffer of its own that stands for the first positions
// of the output buffer.
//
// Two gears. The fast one runs while a sequence begins far from the end of both buffers: it copies
// 16 literals at once, whatever their number, and matches in steps of 16 bytes, so that a typical
// sequence takes no loop and three predictable branches. A match that overlaps itself within 16
// bytes is one shuffle of its first bytes into a 32-byte pattern, stored as often as needed. As
// soon as a sequence could come near an end it is given back whole to the careful gear, which
// copies exactly, gives every status, and defines the result.
//
// An offset of 0 is not refused: it names the write position itself, so the match is whatever the
// buffer held there. The decoder knows nothing of frames and checksums, and keeps nothing between
// calls: where the room ends inside a sequence, the block must be decoded again.
#include <emmintrin.h>

#include <algorithm>
#include <climits>

#include "bytes/wide_copy.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "lz4/format.h"
#include "vekdc.h"

namespace vek::inline VEK_LEVEL::lz4 {
namespace {

// A literal run that ends in the last so many bytes, but not at the end, is a block cut short: a
// match, which takes 2 bytes, is followed by a token and 5 literals.
constexpr size_t tail = offsetSize + tokenSize + lastLiterals;

// The fast gear's margins. At least fastSource bytes of source and fastRoom bytes of room remain
// where a sequence begins, where a run of 15 literals and more ends, and (room) where a match with
// an extension ends. The steps that it copies in:
constexpr size_t firstLiterals = 16;  // Literals without an extension, whatever their number.
constexpr size_t step = 32;           // Longer runs, and matches that longMatch() copies.
constexpr size_t firstMatch = 18;     // A match without an extension.
constexpr size_t firstLong = 64;      // The first bytes of a match with one.
// Source: a token and one step. From the end of a run, its last step reads less; a sequence without
// extensions takes 18 bytes with the first byte of its match's extension; and no literals that the
// fast gear takes end in the tail, where the careful gear looks closer.
constexpr ptrdiff_t fastSource = tokenSize + step;
static_assert(fastSource >= tokenSize + firstLiterals);
static_assert(fastSource >= tokenSize + shortLiterals + offsetSize + 1);
static_assert(fastSource >= tokenSize + shortLiterals + tail);
static_assert(fastSource > wideCopyMargin<step>);
// Room: the first step of a long match, which begins where that much remains because it ends there;
// 14 literals and behind them a match that is looked at no more; the last step of a run or a match.
constexpr ptrdiff_t fastRoom = firstLong;
static_assert(fastRoom >= shortLiterals + std::max(firstMatch, step));
static_assert(fastRoom >= firstLiterals);
static_assert(fastRoom > wideCopyMargin<step>);

/// Copies a match without an extension, at a distance of 16 at least.
inline void copyFirstMatch(uint8_t* out, const uint8_t* from) {
    static_assert(firstMatch >= shortMatch && firstMatch == 16 + sizeof(uint16_t));
    copy16(out, from);
    store(out + 16, load<uint16_t>(from + 16));
}

/// Copies a match with an extension, at a distance of 16 at least: hardly ever more than one step.
inline void copyLongMatch(uint8_t* out, const uint8_t* from, size_t length) {
    for (size_t i = 0; i < firstLong; i += 16) copy16(out + i, from + i);
    if (length > firstLong) [[unlikely]]
        copyWide<step>(out + firstLong, from + firstLong, length - firstLong);
}

/// Copies literals: short runs in wide steps, long ones as the C library does best.
inline void copyLiterals(uint8_t* out, const uint8_t* from, size_t length) {
    constexpr size_t longRun = 512;
    if (length < longRun)
        copyWide<step>(out, from, length);
    else
        std::memcpy(out, from, length);
}

/// History in memory from `lowest` to the write position.
struct Prefix {
    const uint8_t* lowest;

    bool reaches(const uint8_t* out, size_t offset) const {
        return offset <= static_cast<size_t>(out - lowest);
    }
    /// True when a match begins outside the memory in front of the write position.
    static bool isOutside(const uint8_t* /*out*/, size_t /*offset*/) { return false; }
    /// Copies the part of a match that lies there; returns its length.
    static size_t copyOutside(uint8_t* /*out*/, size_t /*offset*/, size_t /*length*/) { return 0; }
};

/// A dictionary that stands for the first `size` bytes of the buffer at `buffer`.
struct Dictionary {
    const uint8_t* buffer;
    const uint8_t* bytes;
    size_t size;

    bool reaches(const uint8_t* out, size_t offset) const {
        return offset <= static_cast<size_t>(out - buffer);
    }
    bool isOutside(const uint8_t* out, size_t offset) const {
        return static_cast<size_t>(out - buffer) - offset < size;
    }
    size_t copyOutside(uint8_t* out, size_t offset, size_t length) const {
        const size_t from = static_cast<size_t>(out - buffer) - offset;
        if (from >= size) return 0;
        const size_t count = std::min(length, size - from);
        D_COPY_SLOW(bytes + from, out, static_cast<ptrdiff_t>(count));
        return count;
    }
};

/// Read and write position.
struct Cursor {
    const uint8_t* in;
    uint8_t* out;
};

/// Adds the bytes of a length extension to `length`. Gives 0, 32 when the source ends first, or -6
/// when the sum leaves the positive 32-bit range. Where there are many bytes, 16 a step.
inline VekStatus readExtension(const uint8_t*& in, const uint8_t* inEnd, uint32_t& length) {
    while (in != inEnd) {
        const uint8_t byte = *in++;
        length += byte;
        if (length > INT_MAX) return vekStatusBadSize;
        if (byte != 255) return vekStatusOk;
        while (inEnd - in >= 16 && length <= INT_MAX / 2) {
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
            if (_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(-1))) != 0xFFFF) break;
            length += 16 * 255;
            in += 16;
        }
    }
    return vekStatusSourceIncomplete;
}

/// What the fast gear leaves to the careful one: the start of a sequence, or a match whose literals
/// and offset are done.
enum class Left { Sequence, Match, Error };
struct Pending {
    Left left;
    uint32_t token;
    size_t offset;
};

/// The end of the source, and the last positions where the fast gear's margins are whole.
struct Limits {
    const uint8_t* inEnd;
    const uint8_t* inFast;
    uint8_t* outFast;
};

// Below this a length of 15 and more has a single byte of extension.
constexpr size_t oneByteExtended = nibbleFull + 255;

/// A literal run of 15 and more from its token on, up to the offset; false when it comes near an
/// end, with the cursor untouched.
[[gnu::noinline]] bool longLiterals(Cursor& cursor, const Limits& limits) {
    const uint8_t* in = cursor.in + tokenSize;
    uint32_t literals = nibbleFull;
    if (readExtension(in, limits.inEnd, literals) != vekStatusOk || in > limits.inFast ||
        literals > static_cast<size_t>(limits.inFast - in) ||
        literals > static_cast<size_t>(limits.outFast - cursor.out))
        return false;
    copyLiterals(cursor.out, in, literals);
    cursor = {in + literals, cursor.out + literals};
    return true;
}

/// A match that is long, near, or in a dictionary, from behind its offset on; false when it comes
/// near an end, with the cursor untouched.
template <class History>
[[gnu::noinline]] bool longMatch(Cursor& cursor, uint32_t token, size_t offset,
                                 const Limits& limits, const History& history) {
    const uint8_t* in = cursor.in;
    uint8_t* out = cursor.out;
    uint32_t match = (token & nibbleFull) + minMatch;
    if (match > shortMatch &&
        (readExtension(in, limits.inEnd, match) != vekStatusOk || out > limits.outFast ||
         match > static_cast<size_t>(limits.outFast - out)))
        return false;
    cursor = {in, out + match};
    const size_t outside = history.copyOutside(out, offset, match);
    // Then there may be no memory where the output's address minus the offset points.
    if (outside == match) return true;
    if (offset != 0) copyMatchWide<step>(out + outside, offset, match - outside);
    return true;
}

/// The fast gear: decodes sequences while they stay clear of both ends. On return the cursor stands
/// where the careful gear goes on. What is rare lies in functions of its own, so that the loop gets
/// by with the six registers that 32-bit mode has; its speed is that of the way from one token to
/// the next.
template <class History>
[[gnu::noinline]] Pending decodeFast(Cursor& cursor, const uint8_t* inEnd, uint8_t* outEnd,
                                     const History history) {
    if (inEnd - cursor.in < fastSource || outEnd - cursor.out < fastRoom)
        return {Left::Sequence, 0, 0};
    const uint8_t* in = cursor.in;
    // Where `in` will stand behind the next sequence's offset, but for its literals: the addition
    // is made early, off the way from token to token.
    const uint8_t* behind = in + tokenSize + offsetSize;
    uint8_t* out = cursor.out;
    const Limits limits{inEnd, inEnd - fastSource, outEnd - fastRoom};
    while (in <= limits.inFast && out <= limits.outFast) {
        const uint32_t token = *in;
        const uint32_t literals = token >> 4;
        copy16(out, in + tokenSize);
        if (literals != nibbleFull) [[likely]] {
            in = behind + literals;
            out += literals;
        } else {
            const size_t run = nibbleFull + in[tokenSize];
            const uint8_t* const from = in + tokenSize + 1;
            if (run < oneByteExtended && from + run <= limits.inFast && out + run <= limits.outFast)
                [[likely]] {
                copyWide<step>(out, from, run);
                in = from + run + offsetSize;
                out += run;
            } else {
                Cursor side{in, out};
                if (!longLiterals(side, limits)) break;
                in = side.in + offsetSize;
                out = side.out;
            }
        }
        const size_t offset = load<uint16_t>(in - offsetSize);
        if (!history.reaches(out, offset)) [[unlikely]]
            return {Left::Error, 0, 0};
        size_t match = (token & nibbleFull) + minMatch;
        if (offset >= wideDistance && !history.isOutside(out, offset)) [[likely]] {
            if (match <= shortMatch) [[likely]] {
                copyFirstMatch(out, out - offset);
                out += match;
                behind = in + tokenSize + offsetSize;
                continue;
            }
            match += *in;
            if (match < oneByteExtended && out + match <= limits.outFast) [[likely]] {
                copyLongMatch(out, out - offset, match);
                ++in;
                out += match;
                behind = in + tokenSize + offsetSize;
                continue;
            }
        } else if (offset - 1 < wideDistance - 1 && match <= shortMatch &&
                   !history.isOutside(out, offset)) {
            const __m128i string = _mm_loadu_si128(reinterpret_cast<const __m128i*>(out - offset));
            storeRepeated<step>(out, string, offset);
            out += match;
            behind = in + tokenSize + offsetSize;
            continue;
        }
        Cursor side{in, out};
        const bool done = longMatch(side, token, offset, limits, history);
        in = side.in;
        behind = in + tokenSize + offsetSize;
        out = side.out;
        if (!done) {
            cursor = side;
            return {Left::Match, token, offset};
        }
    }
    cursor = {in, out};
    return {Left::Sequence, 0, 0};
}

/// The careful gear's match: all of it, or what fits.
template <class History>
VekStatus decodeMatch(Cursor& cursor, const uint8_t* inEnd, uint8_t* outEnd, uint32_t token,
                      size_t offset, const History& history) {
    uint32_t match = token & nibbleFull;
    if (match == nibbleFull) {
        const VekStatus status = readExtension(cursor.in, inEnd, match);
        if (status != vekStatusOk) return status;
    }
    if (match > INT_MAX - minMatch) return vekStatusBadSize;
    match += minMatch;
    const size_t fits = std::min<size_t>(match, static_cast<size_t>(outEnd - cursor.out));
    const size_t outside = history.copyOutside(cursor.out, offset, fits);
    if (offset != 0 && outside < fits) copyOverlap(cursor.out + outside, offset, fits - outside);
    cursor.out += fits;
    return fits < match ? vekStatusDestinationFull : vekStatusOk;
}

/// The careful gear: decodes to the end of the block or of a buffer.
template <class History>
VekStatus decodeCareful(Cursor& cursor, const uint8_t* inEnd, uint8_t* outEnd,
                        const History& history) {
    const uint8_t*& in = cursor.in;
    uint8_t*& out = cursor.out;
    while (inEnd - in > 1) {
        const uint32_t token = *in++;
        uint32_t literals = token >> 4;
        if (literals == nibbleFull) {
            const VekStatus status = readExtension(in, inEnd, literals);
            if (status != vekStatusOk) return status;
            if (reinterpret_cast<uintptr_t>(in) + literals < literals ||
                reinterpret_cast<uintptr_t>(out) + literals < literals)
                return vekStatusBadSize;
        }
        const auto available = static_cast<size_t>(inEnd - in);
        const auto room = static_cast<size_t>(outEnd - out);
        const size_t count = std::min({static_cast<size_t>(literals), available, room});
        std::memcpy(out, in, count);
        in += count;
        out += count;
        if (literals > room) return vekStatusDestinationFull;
        if (literals > available || (in != inEnd && static_cast<size_t>(inEnd - in) < tail))
            return vekStatusSourceIncomplete;
        if (in == inEnd || out == outEnd) return vekStatusOk;

        const size_t offset = load<uint16_t>(in);
        in += offsetSize;
        if (!history.reaches(out, offset)) return vekStatusError;
        const VekStatus status = decodeMatch(cursor, inEnd, outEnd, token, offset, history);
        if (status != vekStatusOk) return status;
    }
    return vekStatusOk;
}

template <class History>
VekStatus decode(const uint8_t* pSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen,
                 const History& history) {
    if (*pSrcLen < 1 || *pDstLen < 1) return vekStatusBadSize;
    const uint8_t* const inEnd = pSrc + *pSrcLen;
    uint8_t* const outEnd = pDst + *pDstLen;
    Cursor cursor{pSrc, pDst};
    const Pending pending = decodeFast(cursor, inEnd, outEnd, history);
    if (pending.left == Left::Error) return vekStatusError;
    VekStatus status = vekStatusOk;
    if (pending.left == Left::Match)
        status = decodeMatch(cursor, inEnd, outEnd, pending.token, pending.offset, history);
    if (status == vekStatusOk) status = decodeCareful(cursor, inEnd, outEnd, history);
    if (status < 0) return status;
    // A block of a single byte, as empty input is encoded, holds nothing.
    if (*pSrcLen == 1) status = vekStatusSourceIncomplete;
    *pSrcLen = static_cast<int>(cursor.in - pSrc);
    *pDstLen = static_cast<int>(cursor.out - pDst);
    return status;
}

}  // namespace

/// Decodes a block whose history is what this call wrote.
VekStatus ownsDecodeLZ4_8u(const uint8_t* pSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen) {
    if (anyNull(pSrc, pSrcLen, pDst, pDstLen)) return vekStatusNullPointer;
    return decode(pSrc, pSrcLen, pDst, pDstLen, Prefix{pDst});
}

/// Decodes a block whose history begins `prefix` bytes in front of the output.
VekStatus ownsDecodeLZ4WithPrefix_8u(const uint8_t* pSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen,
                                     int prefix) {
    if (anyNull(pSrc, pSrcLen, pDst, pDstLen)) return vekStatusNullPointer;
    return decode(pSrc, pSrcLen, pDst, pDstLen, Prefix{pDst - prefix});
}

}  // namespace vek::inline VEK_LEVEL::lz4

using namespace vek::lz4;

extern "C" {

VekStatus veksDecodeLZ4_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen) {
    return ownsDecodeLZ4_8u(pSrc, &srcLen, pDst, pDstLen);
}

VekStatus veksDecodeLZ4Dict_8u(const uint8_t* pSrc, int* pSrcLen, uint8_t* pDst, int dstIdx,
                               int* pDstLen, const uint8_t* pDict, int dictSize) {
    if (vek::anyNull(pSrc, pSrcLen, pDst, pDstLen)) return vekStatusNullPointer;
    if (dstIdx < 0) return vekStatusBadSize;
    uint8_t* const out = pDst + dstIdx;
    if (pDict == nullptr || dictSize == 0) return ownsDecodeLZ4_8u(pSrc, pSrcLen, out, pDstLen);
    if (dictSize < 0) return vekStatusBadSize;
    if (pDict + dictSize == out)
        return ownsDecodeLZ4WithPrefix_8u(pSrc, pSrcLen, out, pDstLen, dictSize);
    return decode(pSrc, pSrcLen, out, pDstLen,
                  Dictionary{pDst, pDict, static_cast<size_t>(dictSize)});
}

}  // extern "C"
