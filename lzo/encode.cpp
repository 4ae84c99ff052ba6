// LZO1X encoder: two match finders over the CRC instruction's hash, one writer of instructions.
//
// Method 0 looks at every position, keeps the whole history that the format can reach (49151 bytes)
// in a table of 32768 positions, and takes the first match it sees. Method 2 takes the input in
// chunks of 49152 bytes with a table of 16-bit offsets that is cleared for each chunk, looks at two
// positions a step and takes longer steps while it finds nothing: less than half the work, a little
// larger. Candidates are always compared, so whatever a table holds can change the output but never
// break it.
//
// Room: a run of 19 literals before a match of 4 that is far away costs 24 bytes for 23, so the
// output may outgrow the input by a twenty-third. The unchecked loops run only when not even that
// can overflow; they may then also copy literals 16 bytes at a time. Otherwise each pair of run and
// match is measured before its first byte is written, and the finder stops between two pairs.
//
// The last 33 bytes are never matched, which lets matches be extended 16 bytes a comparison.
#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "bytes/copy.h"
#include "bytes/crc32c_step.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "frame/variant.h"
#include "include/vekdc.h"
#include "lzo/instructions.h"

namespace vek::inline VEK_LEVEL::lzo {

constexpr uint32_t bestMethod = 0;
constexpr uint32_t multiPart = 1;
constexpr uint32_t fastMethod = 2;

constexpr size_t dictionarySize = 131072;
constexpr size_t positionEntries = dictionarySize / sizeof(uint32_t);  // Method 0's.
constexpr size_t chunkEntries = 16384;                                 // Method 2's, of 16 bits.
constexpr size_t chunkSize = 0xC000;
static_assert(chunkSize <= maxDistance + 1, "every distance within a chunk can be written");

constexpr size_t firstSearched = 4;
constexpr size_t minMatch = 4;
constexpr size_t matchMargin = 33;  // No match reaches into the last so many bytes.

/// The caller's record; the words between are of no use to this encoder.
struct LzoEncodeState {
    uint32_t method;
    uint32_t parts;
    uint32_t unused[2];
    uint8_t dictionary[dictionarySize];
    uint32_t unusedTail[2];
};

constexpr uint32_t stateSize = 131096;
static_assert(offsetof(LzoEncodeState, dictionary) == 16);
static_assert(sizeof(LzoEncodeState) == stateSize);

namespace {

// The longest run, middle match and far match without an extension.
constexpr size_t directRun = runBase + runBits;
constexpr size_t directMiddle = matchBase + middleBits;
constexpr size_t directFar = matchBase + farBits;

/// Bytes that announce a run of `length` literals, in the stream's first byte or not.
inline size_t runHeaderSize(size_t length, bool inFirst) {
    if (inFirst) return 1;
    if (length <= maxTrailing) return 0;
    return length <= directRun ? 1 : 2 + (length - directRun - 1) / 255;
}

inline size_t matchSize(size_t distance, size_t length) {
    if (distance <= nearDistance && length <= nearLength) return 2;
    const size_t direct = distance <= middleDistance ? directMiddle : directFar;
    return length <= direct ? 3 : 4 + (length - direct - 1) / 255;
}

/// Writes a value that a run extension adds: 255 for each zero byte, then 1..255.
inline uint8_t* putExtension(uint8_t* out, size_t value) {
    for (; value > 255; value -= 255) *out++ = 0;
    *out++ = static_cast<uint8_t>(value);
    return out;
}

inline uint8_t* putRunHeader(uint8_t* out, size_t length, bool inFirst) {
    if (inFirst) {
        *out++ = static_cast<uint8_t>(length + firstRunBase);
    } else if (length <= maxTrailing) {
        // In the low bits of the next-to-last byte of the match before.
        if (length != 0) out[-2] = static_cast<uint8_t>(out[-2] | length);
    } else if (length <= directRun) {
        *out++ = static_cast<uint8_t>(length - runBase);
    } else {
        *out++ = 0;
        out = putExtension(out, length - directRun);
    }
    return out;
}

inline uint8_t* putMatch(uint8_t* out, size_t distance, size_t length) {
    if (distance <= nearDistance && length <= nearLength) {
        const size_t d = distance - 1;
        store(out, static_cast<uint16_t>(((length - 1) << 5) | ((d & 7) << 2) | (d >> 3 << 8)));
        return out + 2;
    }
    size_t d;
    size_t op;
    size_t direct;
    if (distance <= middleDistance) {
        d = distance - 1;
        op = middleMatch;
        direct = directMiddle;
    } else {
        d = distance - middleDistance;
        op = farMatch | ((d >> 11) & 8);
        direct = directFar;
    }
    if (length <= direct) {
        *out++ = static_cast<uint8_t>(op | (length - matchBase));
    } else {
        *out++ = static_cast<uint8_t>(op);
        out = putExtension(out, length - direct);
    }
    store(out, static_cast<uint16_t>(d << 2));
    return out + 2;
}

/// As matchLength, where 15 bytes behind both limits may be read. Most matches end in the
/// first word, and the next search waits for the length: a scan of that word comes sooner than a
/// mask.
inline size_t matchLengthWide(const uint8_t* a, const uint8_t* b, size_t limit) {
    using Word = std::conditional_t<sizeof(size_t) == 8, uint64_t, uint32_t>;
    const Word difference = load<Word>(a) ^ load<Word>(b);
    size_t n = sizeof(Word);
    if (difference != 0) {
        n = lowestSetBit(difference) / 8;
    } else {
        for (; n < limit; n += 16) {
            const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + n));
            const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + n));
            const auto equal = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y)));
            if (equal != 0xFFFFU) {
                n += lowestSetBit(~equal);
                break;
            }
        }
    }
    if (n > limit) [[unlikely]]
        return limit;
    return n;
}

/// Where an encoder stands in one stream.
struct Encoder {
    const uint8_t* const src;
    const size_t srcLen;
    uint8_t* const dst;
    const size_t capacity;
    /// The first byte is not to be the container's mark.
    const bool avoidMark;
    size_t written = 0;
    /// Source bytes that the instructions written so far stand for.
    size_t consumed = 0;
    /// Method 2's positions without a match since the last one.
    size_t misses = 0;

    /// True when the stream's first byte announces a run of so many literals.
    bool inFirstByte(size_t run) const {
        return written == 0 && run <= UINT8_MAX - firstRunBase &&
               !(avoidMark && run == containerMark - firstRunBase);
    }

    /// Writes the literals since `consumed` and a match at `position`. With CheckRoom it returns
    /// false, and has written nothing, when both do not fit.
    template <bool CheckRoom>
    bool sequence(size_t position, size_t distance, size_t length) {
        const size_t run = position - consumed;
        const bool inFirst = inFirstByte(run);
        if (CheckRoom) {
            const size_t need = runHeaderSize(run, inFirst) + run + matchSize(distance, length);
            if (need > capacity - written) return false;
        }
        uint8_t* out = putRunHeader(dst + written, run, inFirst);
        const uint8_t* literals = src + consumed;
        if (CheckRoom) {
            std::memcpy(out, literals, run);
        } else {
            // Many runs are empty; copyWide would take a step for these.
            for (size_t i = 0; i < run; i += 16) copy16(out + i, literals + i);
        }
        out = putMatch(out + run, distance, length);
        written = static_cast<size_t>(out - dst);
        consumed = position + length;
        return true;
    }

    void tail();
};

/// Whether the output for `length` more bytes fits whatever they are: a byte more for each 16 is
/// above the twenty-third that the worst input takes; the spare bytes are for a last wide copy, the
/// lengths' rounding and the end.
inline bool neverOverflows(const Encoder& encoder, size_t length) {
    constexpr size_t spare = 64;
    const uint64_t need = uint64_t{length} + length / 16 + spare + encoder.written;
    return need <= encoder.capacity;
}

/// Method 0. False when room ran out. Apart from its caller, so that its loop has all registers.
template <bool CheckRoom>
[[gnu::noinline]] bool findEverywhere(Encoder* pEncoder, uint32_t* dictionary) {
    Encoder encoder = *pEncoder;
    const uint8_t* const src = encoder.src;
    const size_t limit = encoder.srcLen > matchMargin ? encoder.srcLen - matchMargin : 0;
    bool fits = true;
    for (size_t p = firstSearched; p + minMatch <= limit;) {
        const auto word = load<uint32_t>(src + p);
        uint32_t* const entry = dictionary + (crc32cStep(0, word) & (positionEntries - 1));
        const size_t stored = *entry;
        *entry = static_cast<uint32_t>(p);
        // An entry out of reach, or left at or behind p by an earlier buffer, becomes 0, the empty
        // one, without a branch: its word can be compared, and is never taken.
        const size_t candidate = stored & (size_t{0} - (p - stored - 1 < maxDistance));
        if (load<uint32_t>(src + candidate) != word || candidate == 0) {
            ++p;
            continue;
        }
        const size_t length = minMatch + matchLengthWide(src + candidate + minMatch,
                                                         src + p + minMatch, limit - p - minMatch);
        fits = encoder.sequence<CheckRoom>(p, p - candidate, length);
        if (!fits) break;
        p += length;
    }
    pEncoder->written = encoder.written;
    pEncoder->consumed = encoder.consumed;
    return fits;
}

/// Method 2 in the chunk [start, end). False when room ran out.
template <bool CheckRoom>
bool findInChunk(Encoder* pEncoder, uint16_t* dictionary, size_t start, size_t end) {
    Encoder encoder = *pEncoder;
    const uint8_t* const chunk = encoder.src + start;
    const size_t length = end - start;
    bool fits = true;
    size_t misses = encoder.misses;
    for (size_t p = firstSearched; p + 1 + minMatch <= length;) {
        const auto first = load<uint32_t>(chunk + p);
        const auto second = load<uint32_t>(chunk + p + 1);
        uint16_t* const firstEntry = dictionary + (crc32cStep(0, first) & (chunkEntries - 1));
        const size_t firstCandidate = *firstEntry;
        *firstEntry = static_cast<uint16_t>(p);
        uint16_t* const secondEntry = dictionary + (crc32cStep(0, second) & (chunkEntries - 1));
        const size_t secondCandidate = *secondEntry;
        *secondEntry = static_cast<uint16_t>(p + 1);
        // An empty entry is the chunk's first byte, a candidate like any other.
        size_t candidate = firstCandidate;
        size_t position = p;
        if (load<uint32_t>(chunk + firstCandidate) != first) {
            if (load<uint32_t>(chunk + secondCandidate) != second) {
                misses += 2;
                p += 2 + (misses >> 5);
                continue;
            }
            candidate = secondCandidate;
            position = p + 1;
        }
        const size_t matched =
            minMatch + matchLengthWide(chunk + candidate + minMatch, chunk + position + minMatch,
                                       length - position - minMatch);
        fits = encoder.sequence<CheckRoom>(start + position, position - candidate, matched);
        if (!fits) break;
        p = position + matched;
        misses = 0;
    }
    pEncoder->written = encoder.written;
    pEncoder->consumed = encoder.consumed;
    pEncoder->misses = misses;
    return fits;
}

/// Method 0 where the output cannot overflow,
VekStatus ownEncodeLZO1XOptNoOutCheck(Encoder* encoder, uint32_t* dictionary) {
    return findEverywhere<false>(encoder, dictionary) ? vekStatusOk : vekStatusDestinationFull;
}
/// and where it may: 33 when it would, with whole instructions written.
VekStatus ownEncodeLZO1XOptOutCheck(Encoder* encoder, uint32_t* dictionary) {
    return findEverywhere<true>(encoder, dictionary) ? vekStatusOk : vekStatusDestinationFull;
}

/// Method 0 over the whole source.
VekStatus ownEncodeLZO1X_opt(Encoder* encoder, uint8_t* dictionary) {
    auto* const positions = reinterpret_cast<uint32_t*>(dictionary);
    return neverOverflows(*encoder, encoder->srcLen)
               ? ownEncodeLZO1XOptNoOutCheck(encoder, positions)
               : ownEncodeLZO1XOptOutCheck(encoder, positions);
}

/// Method 2 over the whole source, a chunk at a time; each chooses its loop by the room it finds.
VekStatus ownEncodeLZO1X1_opt(Encoder* encoder, uint8_t* dictionary) {
    auto* const offsets = reinterpret_cast<uint16_t*>(dictionary);
    const size_t limit = encoder->srcLen > matchMargin ? encoder->srcLen - matchMargin : 0;
    for (size_t start = 0; start < limit; start += std::min(chunkSize, limit - start)) {
        const size_t end = start + std::min(chunkSize, limit - start);
        std::memset(offsets, 0, chunkEntries * sizeof(uint16_t));
        const size_t pending = end - encoder->consumed;
        const bool fits = neverOverflows(*encoder, pending)
                              ? findInChunk<false>(encoder, offsets, start, end)
                              : findInChunk<true>(encoder, offsets, start, end);
        if (!fits) return vekStatusDestinationFull;
    }
    return vekStatusOk;
}

/// Writes what no match took as one literal run, as far as the literals themselves fit.
void Encoder::tail() {
    const size_t room = capacity > written ? capacity - written : 0;
    const size_t run = std::min(srcLen - consumed, room);
    if (run == 0) return;
    uint8_t* const out = putRunHeader(dst + written, run, inFirstByte(run));
    std::memcpy(out, src + consumed, run);
    written = static_cast<size_t>(out - dst) + run;
    consumed += run;
}

inline uint8_t* putEnd(uint8_t* out) {
    std::memcpy(out, endInstruction, sizeof(endInstruction));
    return out + sizeof(endInstruction);
}

/// One whole stream; leaves in *pWritten what was written.
VekStatus encodeStream(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity,
                       uint32_t method, uint8_t* dictionary, size_t* pWritten,
                       bool avoidMark = false) {
    Encoder encoder{src, srcLen, dst, capacity, avoidMark};
    const VekStatus status = method == fastMethod ? ownEncodeLZO1X1_opt(&encoder, dictionary)
                                                  : ownEncodeLZO1X_opt(&encoder, dictionary);
    if (status == vekStatusOk) encoder.tail();
    *pWritten = encoder.written;
    if (encoder.consumed != srcLen) return vekStatusDestinationFull;
    *pWritten = static_cast<size_t>(putEnd(dst + encoder.written) - dst);
    return vekStatusOk;
}

/// True when decoders may take what was written for a container; also with an end behind it, where
/// room ran out.
bool maybeContainer(const uint8_t* dst, size_t written, VekStatus status) {
    if (status != vekStatusOk) return written != 0 && dst[0] == containerMark;
    return vekLZOContainerParts(dst, static_cast<uint32_t>(written)) != 0;
}

/// A container of equal slices, the remainder in the last, each a stream of method 0 with a table
/// of its own.
VekStatus encodeParts(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen,
                      LzoEncodeState* state) {
    const uint32_t parts = state->parts;
    if (outside<uint32_t>(parts, 1, maxParts)) return vekStatusBadArgument;
    const size_t capacity = *pDstLen;
    size_t written = containerHeaderSize(parts);
    if (capacity < written) {
        *pDstLen = 0;
        return vekStatusDestinationFull;
    }
    dst[0] = containerMark;
    dst[1] = static_cast<uint8_t>(parts);
    dst[2] = static_cast<uint8_t>(parts ^ containerMark);
    store(dst + totalOffset, srcLen);
    const uint32_t slice = srcLen / parts;
    VekStatus status = vekStatusOk;
    for (uint32_t k = 0; k < parts && status == vekStatusOk; ++k) {
        const bool last = k + 1 == parts;
        const size_t length = last ? slice + srcLen % parts : slice;
        const size_t room = capacity > written ? capacity - written : 0;
        size_t partLength = 0;
        std::memset(state->dictionary, 0, dictionarySize);
        if (length == 0 && room < sizeof(endInstruction)) {
            status = vekStatusDestinationFull;
        } else {
            status = encodeStream(src + size_t{k} * slice, length, dst + written, room, bestMethod,
                                  state->dictionary, &partLength);
        }
        if (!last)
            store(dst + partLengthsOffset + 4 * size_t{k}, static_cast<uint32_t>(partLength));
        written += partLength;
    }
    *pDstLen = static_cast<uint32_t>(written);
    return status;
}

constexpr bool isMethod(int32_t method) {
    return !outside<int32_t>(method, 0, 2);
}

}  // namespace
}  // namespace vek::inline VEK_LEVEL::lzo

using namespace vek::lzo;

VekStatus veksEncodeLZOGetSize(int32_t method, uint32_t, uint32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    *pSize = isMethod(method) ? stateSize : 0;
    return isMethod(method) ? vekStatusOk : vekStatusBadArgument;
}

VekStatus veksEncodeLZOInit_8u(int32_t method, uint32_t, void* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    if (!isMethod(method)) return vekStatusBadArgument;
    auto* const state = static_cast<LzoEncodeState*>(pState);
    state->method = method == 2 ? fastMethod : bestMethod;
    std::memset(state->dictionary, 0, dictionarySize);
    return vekStatusOk;
}

VekStatus veksEncodeLZO_8u(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen,
                           void* pState) {
    if (vek::anyNull(pState, src, dst, pDstLen)) return vekStatusNullPointer;
    if (srcLen == 0) {
        *pDstLen = 0;
        return vekStatusOk;
    }
    auto* const state = static_cast<LzoEncodeState*>(pState);
    if (state->method == multiPart) return encodeParts(src, srcLen, dst, pDstLen, state);
    if (state->method > fastMethod) return vekStatusBadArgument;
    size_t written = 0;
    const auto encode = [&](bool avoidMark) {
        return encodeStream(src, srcLen, dst, *pDstLen, state->method, state->dictionary, &written,
                            avoidMark);
    };
    VekStatus status = encode(false);
    // Hardly ever, and then by intent: the first run's literals read as a container's header.
    if (maybeContainer(dst, written, status)) status = encode(true);
    *pDstLen = static_cast<uint32_t>(written);
    return status;
}
