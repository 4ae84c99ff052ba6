// LZO1X decoders: one that checks every read, write and distance, and one that trusts distances.
//
// A stream is a sequence of instructions of one to three bytes: literal runs, and matches of five
// classes that differ in the bits for distance and length. Every match carries in the low two bits
// of its next-to-last byte the number (0..3) of literals that follow it, so most text decodes as a
// chain of "match, up to three literals".
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
#include <emmintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "bytes/copy.h"
#include "bytes/repeat.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "frame/variant.h"
#include "include/vekdc.h"
#include "lzo/instructions.h"

namespace {

using vek::copy16;
using vek::load;
using vek::store;

// Context of an instruction: literals copied just before it, 4 standing for "a run of 4 or more".
constexpr uint32_t afterRun = 4;

// The fast loop's margins. Room: a match of 33, copied as 48, is more than with a word of trailing
// literals, and than a run of 18, copied as 32; source: 1 + 32 bytes of a run, or 3 of a match and
// a word.
constexpr size_t roomMargin = 48;
constexpr size_t sourceMargin = 40;

constexpr size_t tooLong = SIZE_MAX;

/// Copies a match in pieces of 16 bytes; up to 15 bytes behind it are overwritten.
inline void copyMatchWide(uint8_t* dst, size_t distance, size_t length) {
    uint8_t* const end = dst + length;
    const uint8_t* src = dst - distance;
    if (distance >= 16) {
        do {
            copy16(dst, src);
            dst += 16;
            src += 16;
        } while (dst < end);
        return;
    }
    vek::copyRepeated<16>(dst, distance, length);
}

/// Reads a run extension, 255 for each zero byte and then a non-zero byte, from [*pSrc, end).
/// Returns tooLong when the source ends inside it or its value passes any buffer.
size_t readExtension(const uint8_t** pSrc, const uint8_t* end) {
    const uint8_t* src = *pSrc;
    const uint8_t* const start = src;
    while (static_cast<size_t>(end - src) >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
        const auto zeros =
            static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128())));
        if (zeros != 0xFFFFU) {
            src += vek::lowestSetBit(~zeros);
            break;
        }
        src += 16;
    }
    while (src != end && *src == 0) ++src;
    if (src == end) return tooLong;
    const auto zeros = static_cast<size_t>(src - start);
    // 255 bytes for each zero and the rest of the longest instruction stay below 2^32.
    constexpr size_t mostZeros = (UINT32_MAX - 512U) / 255U;
    if (zeros > mostZeros) return tooLong;
    *pSrc = src + 1;
    return 255 * zeros + *src;
}

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
        vek::copyOverlap(dst, distance, possible);
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
        if (op < 16 && context == 0) {
            size_t length = op;
            return extended(&length, 15) && literals(length + 3);
        }
        if (op < 16 || op >= 64) {
            if (sourceLeft() == 0) return false;
            const uint32_t next = *src++;
            if (op >= 64) return match(1 + ((op >> 2) & 7) + 8 * next, (op >> 5) + 1, op & 3);
            const uint32_t distance = (op >> 2) + 4 * next;
            return context == afterRun ? match(2049 + distance, 3, op & 3)
                                       : match(1 + distance, 2, op & 3);
        }
        size_t length = op >= 32 ? op & 31 : op & 7;
        if (!extended(&length, op >= 32 ? 31 : 7) || sourceLeft() < 2) return false;
        const uint32_t word = load<uint16_t>(src);
        src += 2;
        if (op >= 32) return match(1 + (word >> 2), length + 2, word & 3);
        const uint32_t distance = 16384 + ((op & 8) << 11) + (word >> 2);
        if (distance == 16384) {
            ended = true;
            return false;
        }
        return match(distance, length + 2, word & 3);
    }

    /// Whole instructions while both margins last and nothing needs care.
    void fast() {
        if (sourceLeft() < sourceMargin || room() < roomMargin) return;
        const uint8_t* const lastSrc = srcEnd - sourceMargin;
        uint8_t* const lastDst = dstEnd - roomMargin;
        const uint8_t* in = src;
        uint8_t* out = dst;
        uint32_t literalCount = context;
        while (in <= lastSrc && out <= lastDst) {
            const auto word = load<uint32_t>(in);
            const uint32_t op = word & 0xFF;
            size_t length;
            size_t distance;
            uint32_t trailing;
            const uint8_t* next;
            if (op >= 64) {
                length = (op >> 5) + 1;
                distance = 1 + (((word >> 2) & 7) | ((word >> 5) & 0x7F8));
                trailing = op & 3;
                next = in + 2;
            } else if (op >= 16) {
                next = in + 3;
                distance = (word >> 10) & 0x3FFF;
                trailing = (word >> 8) & 3;
                if (op >= 32) {
                    length = (op & 31) + 2;
                    distance += 1;
                } else {
                    length = (op & 7) + 2;
                    distance += 16384 + ((op & 8) << 11);
                    if (distance == 16384) break;
                }
                if (length == 2) {
                    const uint8_t* after = in + 1;
                    const size_t extension = readExtension(&after, srcEnd);
                    if (extension == tooLong || after > lastSrc) break;
                    length += extension + (op >= 32 ? 31 : 7);
                    if (length > static_cast<size_t>(lastDst - out)) break;
                    const uint32_t low = load<uint16_t>(after);
                    distance = (low >> 2) + (op >= 32 ? 1 : 16384 + ((op & 8) << 11));
                    if (op < 32 && distance == 16384) break;
                    trailing = low & 3;
                    next = after + 2;
                }
            } else if (literalCount == 0) {
                if (op != 0) {
                    copy16(out, in + 1);
                    copy16(out + 16, in + 17);
                    out += op + 3;
                    in += op + 4;
                } else {
                    const uint8_t* after = in + 1;
                    const size_t extension = readExtension(&after, srcEnd);
                    if (extension == tooLong || after > lastSrc) break;
                    const size_t run = extension + 18;
                    if (run > static_cast<size_t>(lastSrc - after) ||
                        run > static_cast<size_t>(lastDst - out))
                        break;
                    uint8_t* const runEnd = out + run;
                    const uint8_t* from = after;
                    do {
                        copy16(out, from);
                        out += 16;
                        from += 16;
                    } while (out < runEnd);
                    out = runEnd;
                    in = after + run;
                }
                literalCount = afterRun;
                continue;
            } else {
                distance =
                    (op >> 2) + 4 * ((word >> 8) & 0xFF) + (literalCount == afterRun ? 2049 : 1);
                length = literalCount == afterRun ? 3 : 2;
                trailing = op & 3;
                next = in + 2;
            }
            if (Checking && distance > static_cast<size_t>(out - dstStart)) break;
            const auto tail = load<uint32_t>(next);
            copyMatchWide(out, distance, length);
            out += length;
            store(out, tail);
            out += trailing;
            in = next + trailing;
            literalCount = trailing;
        }
        src = in;
        dst = out;
        context = literalCount;
    }

    VekStatus stream(uint32_t* pDstLen) {
        const bool empty = sourceLeft() >= 3 && std::memcmp(src, vek::lzo::endInstruction, 3) == 0;
        bool going = sourceLeft() != 0 && !empty;
        ended = empty;
        if (going && *src >= 16) {
            const uint32_t first = *src++;
            going = first >= 18 && literals(first - 17);
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

/// Decodes one plain stream.
template <bool Checking>
VekStatus decodeStream(const uint8_t* src, size_t srcLen, uint8_t* dst, uint32_t* pDstLen) {
    Decoder<Checking> decoder{src, src + srcLen, dst, dst, dst + *pDstLen};
    return decoder.stream(pDstLen);
}

template <bool Checking>
VekStatus decodeContainer(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen,
                          uint32_t parts) {
    const auto total = load<uint32_t>(src + vek::lzo::totalOffset);
    const uint32_t slice = total / parts;
    const uint8_t* part = src + vek::lzo::containerHeaderSize(parts);
    auto left = static_cast<uint32_t>(src + srcLen - part);
    VekStatus status = vekStatusOk;
    uint32_t sum = 0;
    for (uint32_t k = 0; k < parts; ++k) {
        const bool last = k + 1 == parts;
        const uint32_t length =
            last ? left : load<uint32_t>(src + vek::lzo::partLengthsOffset + 4 * size_t{k});
        if (length > left) {
            status = vekStatusLzoBrokenStream;
            break;
        }
        uint32_t partLen = last ? slice + total % parts : slice;
        const VekStatus partStatus =
            decodeStream<Checking>(part, length, dst + size_t{k} * slice, &partLen);
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

template <bool Checking>
VekStatus decode(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen) {
    if (vek::anyNull(src, dst, pDstLen)) return vekStatusNullPointer;
    if (srcLen == 0) {
        *pDstLen = 0;
        return vekStatusOk;
    }
    const uint32_t parts = vekLZOContainerParts(src, srcLen);
    if (parts != 0) return decodeContainer<Checking>(src, srcLen, dst, pDstLen, parts);
    return decodeStream<Checking>(src, srcLen, dst, pDstLen);
}

}  // namespace

VekStatus veksDecodeLZO_8u(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen) {
    return decode<false>(src, srcLen, dst, pDstLen);
}

VekStatus veksDecodeLZOSafe_8u(const uint8_t* src, uint32_t srcLen, uint8_t* dst,
                               uint32_t* pDstLen) {
    return decode<true>(src, srcLen, dst, pDstLen);
}
