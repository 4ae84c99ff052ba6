// LZO1X encoder: two methods of one match finder over the CRC instruction's hash, one writer of
// instructions.
//
// The finder looks at two positions a step, takes the first candidate that agrees in 4 bytes, and
// takes longer steps the longer nothing was found, up to a limit, so that incompressible data pass
// at the memory's speed and what follows them is not missed. What it costs is a guess or two for
// each match that the processor makes wrong. So matches are to be few and long: the hash is of more
// bytes than a match needs, which passes over the short ones that save next to nothing.
//
// Method 0 keeps the whole history that the format can reach (49151 bytes) in a table of 32768
// positions under the hash of 5 bytes. Method 2 takes the input in chunks of 49152 bytes, each with
// a cleared table of 16384 under the hash of 6 bytes: faster by a fifth, larger by a twentieth.
//
// A table's entry is the low half of a position: as no candidate farther than 65535 bytes can be
// used, the distance to it, modulo 65536, is all there is to know, and an old entry is a candidate
// like any other.
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
constexpr size_t chunkSize = 0xC000;
static_assert(chunkSize <= maxDistance + 1, "every distance within a chunk can be written");

constexpr size_t firstSearched = 4;
constexpr size_t minMatch = 4;
constexpr size_t matchMargin = 33;  // No match reaches into the last so many bytes.

// Where nothing is found, a step of two grows by two bytes for each 64 passed over, by so many at
// most.
constexpr size_t stepGrowth = 64 / 2;
constexpr size_t mostGrowth = 512;

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

/// As putMatch, which may write a byte more.
inline uint8_t* putMatchWide(uint8_t* out, size_t distance, size_t length) {
    if (distance <= nearDistance && length <= nearLength) return putMatch(out, distance, length);
    const bool middle = distance <= middleDistance;
    if (length > (middle ? directMiddle : directFar)) [[unlikely]]
        return putMatch(out, distance, length);
    const size_t d = distance - (middle ? 1 : middleDistance);
    const size_t op = middle ? middleMatch : farMatch | (d >> 11 & 8);
    store(out, static_cast<uint32_t>(op | (length - matchBase) | d << 10));
    return out + 3;
}

/// Length of a match of which 4 bytes are known, at most `limit`, where 15 bytes behind both limits
/// may be read. Most matches end in the first word, and the next search waits for the length: a
/// scan of that word comes sooner than a mask.
inline size_t matchLengthWide(const uint8_t* a, const uint8_t* b, size_t limit) {
    using Word = std::conditional_t<sizeof(size_t) == 8, uint64_t, uint32_t>;
    const Word difference = load<Word>(a + minMatch) ^ load<Word>(b + minMatch);
    if (difference != 0) [[likely]]
        return std::min(minMatch + lowestSetBit(difference) / 8, limit);
    size_t n = minMatch + sizeof(Word);
    for (; n < limit; n += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + n));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + n));
        const auto equal = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y)));
        if (equal != 0xFFFFU) {
            n += lowestSetBit(~equal);
            break;
        }
    }
    return std::min(n, limit);
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

    /// What no match reaches.
    const uint8_t* searchEnd() const { return src + srcLen - std::min(srcLen, matchMargin); }

    /// True when the stream's first byte announces a run of so many literals.
    bool inFirstByte(size_t run) const {
        return written == 0 && run <= UINT8_MAX - firstRunBase &&
               !(avoidMark && run == containerMark - firstRunBase);
    }

    /// Writes the literals since `consumed` and a match at `position`. Returns false, and has
    /// written nothing, when both do not fit.
    bool sequence(size_t position, size_t distance, size_t length) {
        const size_t run = position - consumed;
        const size_t need =
            runHeaderSize(run, inFirstByte(run)) + run + matchSize(distance, length);
        if (need > capacity - written) return false;
        written = static_cast<size_t>(putMatch(longRun(position), distance, length) - dst);
        consumed = position + length;
        return true;
    }
    /// Writes the literals between `consumed` and `position`; returns their end.
    [[gnu::noinline]] uint8_t* longRun(size_t position) const {
        const size_t run = position - consumed;
        uint8_t* const out = putRunHeader(dst + written, run, inFirstByte(run));
        std::memcpy(out, src + consumed, run);
        return out + run;
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

/// A match finder's table: low halves of positions, counted from a base, under the hash of so many
/// bytes.
/// `Wraps` tells that more is searched than 16 bits can count.
template <size_t Entries, size_t HashedBytes, bool Wraps>
struct Table {
    uint16_t* entries;
    const uint8_t* base;

    Table(uint8_t* dictionary, const uint8_t* start)
        : entries(reinterpret_cast<uint16_t*>(dictionary)), base(start) {
        static_assert(Entries * sizeof(uint16_t) <= dictionarySize);
        std::memset(entries, 0, Entries * sizeof(uint16_t));
    }
    uint16_t& at(const uint8_t* p) const {
        static_assert(HashedBytes == 5 || HashedBytes == 6);
        const uint32_t behind = HashedBytes == 5 ? p[4] : load<uint16_t>(p + 4);
        return entries[crc32cStep(behind, load<uint32_t>(p)) & (Entries - 1)];
    }
    /// False for a distance that the format lacks, or 0, where an entry has come round.
    static bool reaches(size_t distance) { return !Wraps || distance - 1 < maxDistance; }
    void insert(const uint8_t* p) const { at(p) = static_cast<uint16_t>(p - base); }
    /// Inserts p; returns the distance to what stood there, which lies at or behind the base.
    size_t exchange(const uint8_t* p) const {
        const auto position = static_cast<uint32_t>(p - base);
        uint16_t& entry = at(p);
        const uint32_t before = entry;
        entry = static_cast<uint16_t>(position);
        return Wraps ? static_cast<uint16_t>(position - before) : position - before;
    }
};
using WholeTable = Table<32768, 5, true>;   // Method 0's.
using ChunkTable = Table<16384, 6, false>;  // Method 2's.

/// Finds matches of and in [table.base, stop) and writes them. False when room ran out. Apart from
/// its caller, so that its loop has all registers.
template <bool CheckRoom, class AnyTable>
[[gnu::noinline]] bool find(Encoder* encoder, const AnyTable table, const uint8_t* const stop) {
    const uint8_t* const src = encoder->src;
    uint8_t* const dst = encoder->dst;
    const uint8_t* anchor = src + encoder->consumed;
    uint8_t* out = dst + encoder->written;
    const auto save = [&] {
        encoder->written = static_cast<size_t>(out - dst);
        encoder->consumed = static_cast<size_t>(anchor - src);
    };
    constexpr auto probed = static_cast<ptrdiff_t>(1 + minMatch);
    for (const uint8_t* p = table.base + firstSearched; stop - p >= probed;) {
        const auto word = load<uint32_t>(p);
        const auto nextWord = load<uint32_t>(p + 1);
        size_t distance = table.exchange(p);
        const size_t nextDistance = table.exchange(p + 1);
        if (load<uint32_t>(p - distance) != word) {
            if (load<uint32_t>(p + 1 - nextDistance) != nextWord) {
                p += 2 + std::min(static_cast<size_t>(p - anchor) / stepGrowth & ~size_t{1},
                                  mostGrowth);
                continue;
            }
            distance = nextDistance;
            ++p;
        }
        if (!AnyTable::reaches(distance)) [[unlikely]] {
            p += 2;
            continue;
        }
        const size_t length = matchLengthWide(p, p - distance, static_cast<size_t>(stop - p));
        if constexpr (CheckRoom) {
            if (!encoder->sequence(static_cast<size_t>(p - src), distance, length)) return false;
            anchor = p += length;
        } else {
            const uint8_t* const literals = anchor;
            const auto run = static_cast<size_t>(p - literals);
            if (run <= maxTrailing && out != dst) {
                if (run != 0) {
                    out[-2] = static_cast<uint8_t>(out[-2] | run);
                    store(out, load<uint32_t>(literals));
                    out += run;
                }
            } else if (run <= 16 && out != dst) [[likely]] {
                *out++ = static_cast<uint8_t>(run - runBase);
                copy16(out, literals);
                out += run;
            } else {
                save();
                out = encoder->longRun(static_cast<size_t>(p - src));
            }
            anchor = p += length;
            out = putMatchWide(out, distance, length);
        }
        // What a match covers is not inserted, but for the place where the next may come from.
        table.insert(p - 2);
    }
    if constexpr (!CheckRoom) save();
    return true;
}

/// Method 0 where the output cannot overflow,
VekStatus ownEncodeLZO1XOptNoOutCheck(Encoder* encoder, uint8_t* dictionary) {
    find<false>(encoder, WholeTable(dictionary, encoder->src), encoder->searchEnd());
    return vekStatusOk;
}
/// and where it may: 33 when it would, with whole instructions written.
VekStatus ownEncodeLZO1XOptOutCheck(Encoder* encoder, uint8_t* dictionary) {
    return find<true>(encoder, WholeTable(dictionary, encoder->src), encoder->searchEnd())
               ? vekStatusOk
               : vekStatusDestinationFull;
}

/// Method 0 over the whole source.
VekStatus ownEncodeLZO1X_opt(Encoder* encoder, uint8_t* dictionary) {
    return neverOverflows(*encoder, encoder->srcLen)
               ? ownEncodeLZO1XOptNoOutCheck(encoder, dictionary)
               : ownEncodeLZO1XOptOutCheck(encoder, dictionary);
}

/// Method 2 over the whole source, a chunk at a time; each chooses its loop by the room it finds.
VekStatus ownEncodeLZO1X1_opt(Encoder* encoder, uint8_t* dictionary) {
    const uint8_t* const limit = encoder->searchEnd();
    for (const uint8_t* start = encoder->src; start != limit;) {
        const uint8_t* const end = start + std::min(chunkSize, static_cast<size_t>(limit - start));
        const auto pending = static_cast<size_t>(end - encoder->src) - encoder->consumed;
        const ChunkTable table(dictionary, start);
        const bool fits = neverOverflows(*encoder, pending) ? find<false>(encoder, table, end)
                                                            : find<true>(encoder, table, end);
        if (!fits) return vekStatusDestinationFull;
        start = end;
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
