// LZSS: a small streaming LZ77 coder with 9-bit literals and 24-bit matches.
//
// Encoder: hash chains of up to 16 candidates over the last 32767 bytes, every position inserted,
// the longest match taken at once. The history lies in the record's window of 64 KiB, the new input
// where the caller has it; the first 258 bytes of a call are also put behind the history, so a
// candidate in the history runs on into new input without a test. Positions are 32-bit and compared
// modulo 2^32; between calls they are moved down before they come near the wrap, so streams are
// endless.
//
// Bits go out through a 32-bit accumulator with one big-endian store a token while room lasts (7
// bits left over and a token of 24 are 31). Near the end of the room whole bytes go out one by one
// from a 64-bit accumulator, and what does not fit stays in the record.
//
// Decoder: while source and room last, a token comes straight from a 32-bit load at its first byte,
// shifted by the bit offset (a token of 24 and an offset of 7 are 31): no bit buffer is carried, so
// the tokens' only dependence is the bit position. Near the ends bytes are pulled one at a time, as
// many as the token needs.
//
// Memory: the record only. Malformed input is not recognised; it decodes to something inside the
// caller's buffers.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "bytes/copy.h"
#include "bytes/match_length.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "frame/variant.h"
#include "include/vekdc.h"
#include "lzss/state.h"
#include "lzss/tabulation_hash.h"

namespace {

using namespace vek::lzss;
using vek::load;
using vek::store;

constexpr int maxSteps = 16;
constexpr int literalBits = 9;
constexpr int matchBits = 24;

inline uint32_t hash(const uint8_t* p) {
    return static_cast<uint32_t>(randVecLZSS[0][p[0]] ^ randVecLZSS[1][p[1]] ^
                                 randVecLZSS[2][p[2]]);
}

/// Bits on their way out.
struct BitWriter {
    /// Room below which bytes go one by one: a token's store, and a byte that shows the room not
    /// full.
    static constexpr size_t wideRoom = 8;
    /// The most bits that may await when a token comes.
    static constexpr int mostPending = 23;

    uint64_t bits;
    int count;
    uint8_t* out;
    uint8_t* end;

    size_t room() const { return static_cast<size_t>(end - out); }

    /// Moves whole bytes out; false when the room is then full.
    bool drain() {
        while (count >= 8) {
            *out++ = static_cast<uint8_t>(bits >> 56);
            bits <<= 8;
            count -= 8;
            if (out == end) return false;
        }
        return true;
    }

    /// False when the room is full; the token is then taken nevertheless.
    bool put(uint32_t token, int size) {
        if (room() >= wideRoom && count < 8) {
            const auto high = static_cast<uint32_t>(bits >> 32) | token << (32 - size - count);
            store(out, vek::byteSwap(high));
            const int total = count + size;
            out += total >> 3;
            bits = uint64_t{high << (total & 24)} << 32;
            count = total & 7;
            return true;
        }
        bits |= uint64_t{token} << (64 - size - count);
        count += size;
        return drain();
    }

    bool ready() { return count <= mostPending || drain(); }
    bool literal(uint32_t byte) { return put(0x100 | byte, literalBits); }
    bool match(uint32_t distance, uint32_t length) {
        return put(distance << 8 | (length - minMatch), matchBits);
    }
};

/// One call's search: positions from `base` on are in the source, those before in the window.
struct Finder {
    uint32_t* const chain;
    uint32_t* const head;
    const uint8_t* const source;
    const uint8_t* const window;
    const uint32_t base;

    const uint8_t* at(uint32_t position) const { return source + (position - base); }

    uint32_t insert(uint32_t position, const uint8_t* p) {
        uint32_t* const entry = head + hash(p);
        const uint32_t candidate = *entry;
        chain[position & chainMask] = candidate;
        *entry = position;
        return candidate;
    }

    /// Longest match of at most `limit` bytes along the chain from `candidate`; the nearest of
    /// equals.
    uint32_t search(uint32_t position, const uint8_t* current, uint32_t candidate, uint32_t limit,
                    uint32_t* pDistance) const {
        uint32_t best = minMatch - 1;
        auto wanted = load<uint16_t>(current + best - 1);
        uint32_t distance = position - candidate;
        const uint32_t fromSource = position - base;
        for (int steps = 0; steps < maxSteps && distance <= maxDistance; ++steps) {
            // In the window a candidate stands before `base`; behind the history its first 258
            // bytes of new input follow.
            const uint8_t* const bytes =
                distance > fromSource ? window - (distance - fromSource) : current - distance;
            if (load<uint16_t>(bytes + best - 1) == wanted) {
                const auto length = static_cast<uint32_t>(vek::matchLength(bytes, current, limit));
                if (length > best) {
                    best = length;
                    *pDistance = distance;
                    if (best >= limit) break;
                    wanted = load<uint16_t>(current + best - 1);
                }
            }
            candidate = chain[candidate & chainMask];
            distance = position - candidate;
        }
        return best;
    }
};

/// Encodes `length` bytes; returns how many were taken.
uint32_t encodeTokens(Finder finder, BitWriter* pWriter, uint32_t length) {
    BitWriter writer = *pWriter;
    const uint8_t* const source = finder.source;
    // The last two bytes are literals and never become candidates.
    const uint32_t searched = length > 2 ? length - 2 : 0;
    uint32_t done = 0;
    bool going = true;
    while (going && done < searched && writer.ready()) {
        const uint32_t position = finder.base + done;
        const uint8_t* const current = source + done;
        const uint32_t candidate = finder.insert(position, current);
        const uint32_t limit = std::min(searched - done, maxMatch);
        uint32_t best = 0;
        uint32_t distance = 0;
        if (position - candidate <= maxDistance && limit >= minMatch)
            best = finder.search(position, current, candidate, limit, &distance);
        if (best < minMatch) {
            going = writer.literal(*current);
            ++done;
            continue;
        }
        going = writer.match(distance, best);
        for (uint32_t i = 1; i < best; ++i) finder.insert(position + i, current + i);
        done += best;
    }
    while (going && done >= searched && done < length && writer.ready())
        going = writer.literal(source[done++]);
    *pWriter = writer;
    return done;
}

/// Moves all positions down, so that a stream has no end. What is out of reach becomes empty.
void rebase(Encoder* state) {
    const uint32_t shift = (state->position & ~chainMask) - chainEntries;
    const auto move = [shift](uint32_t* entries) {
        for (uint32_t i = 0; i < chainEntries; ++i) {
            const uint32_t entry = entries[i];
            entries[i] = entry == emptyEntry || entry < shift ? emptyEntry : entry - shift;
        }
    };
    move(state->chain);
    move(state->head);
    state->position -= shift;
    state->displacement += shift;
}

/// The window's byte for the present position: history before it, room for new input behind.
inline uint8_t* windowAt(const Encoder& state) {
    return reinterpret_cast<uint8_t*>(state.displacement + state.position);
}

/// Makes the window hold the last 32768 bytes of a stream that grew by `consumed` bytes at
/// `source`, of which the first 258 are in the window.
void updateHistory(Encoder* state, const uint8_t* source, uint32_t consumed) {
    const auto offset = static_cast<uint32_t>(windowAt(*state) - state->window);
    uint32_t end = offset + consumed;
    if (consumed >= historySize) {
        std::memcpy(state->window, source + (consumed - historySize), historySize);
        end = historySize;
    } else {
        const uint32_t present = std::min(consumed, maxMatch);
        if (end > windowSize - maxMatch) {
            const uint32_t first = end - historySize;
            std::memmove(state->window, state->window + first, offset + present - first);
            end = historySize;
        }
        std::memcpy(state->window + (end - consumed + present), source + present,
                    consumed - present);
    }
    state->position += consumed;
    state->displacement = reinterpret_cast<uintptr_t>(state->window) + end - state->position;
}

/// Where the bytes of a match come from: this call's output, before it the window.
struct History {
    const uint8_t* windowEnd;
    const uint8_t* outStart;

    /// Copies a match to `out`; a distance of 0 leaves the bytes as they are.
    void copy(uint8_t* out, size_t distance, size_t length) const {
        const auto written = static_cast<size_t>(out - outStart);
        if (distance > written) {
            const size_t before = distance - written;
            const size_t piece = std::min(before, length);
            std::memcpy(out, windowEnd - before, piece);
            out += piece;
            length -= piece;
        }
        if (distance != 0 && length != 0) vek::copyOverlap(out, distance, length);
    }
};

/// A decoder call's position; taken from the record, and written back at its end.
struct TokenReader {
    const uint8_t* src;
    const uint8_t* const srcEnd;
    uint8_t* out;
    uint8_t* const outEnd;
    History history;
    uint32_t bits;
    int count;
    uint32_t pendingDistance;
    uint32_t pendingLength;

    // Room: a match of 258 with 15 bytes of wide copy behind. Source: a load of 4 bytes.
    static constexpr size_t roomMargin = 280;
    static constexpr size_t sourceMargin = 8;

    size_t room() const { return static_cast<size_t>(outEnd - out); }
    bool full() const { return out == outEnd; }

    void match(uint32_t distance, uint32_t length) {
        const auto now = static_cast<uint32_t>(std::min<size_t>(length, room()));
        history.copy(out, distance, now);
        out += now;
        pendingLength = length - now;
        pendingDistance = pendingLength != 0 ? distance : 0;
    }

    /// Pulls bytes until `wanted` bits are held; false when the source ends before.
    bool pull(int wanted) {
        while (count < wanted) {
            if (src == srcEnd) return false;
            bits |= uint32_t{*src++} << (24 - count);
            count += 8;
        }
        return true;
    }

    void drop(int size) {
        bits <<= size;
        count -= size;
    }

    /// One token; false when the source ends inside it.
    bool careful() {
        if (!pull(1)) return false;
        if ((bits >> 31) != 0) {
            if (!pull(literalBits)) return false;
            *out++ = static_cast<uint8_t>(bits >> 23);
            drop(literalBits);
            return true;
        }
        if (!pull(matchBits)) return false;
        const uint32_t token = bits >> 8;
        drop(matchBits);
        match(token >> 8, (token & 0xFF) + minMatch);
        return true;
    }

    /// Whole tokens while both margins last. Fewer than 8 bits are held before and after; they are
    /// the low bits of the byte before `src`, which must be one of this call's.
    void fast();
};

inline void copyMatchWide(uint8_t* out, size_t distance, size_t length) {
    if (distance < 16) {
        vek::copyOverlap(out, distance, length);
        return;
    }
    uint8_t* const end = out + length;
    const uint8_t* from = out - distance;
    do {
        vek::copy16(out, from);
        out += 16;
        from += 16;
    } while (out < end);
}

void TokenReader::fast() {
    if (static_cast<size_t>(srcEnd - src) < sourceMargin || room() < roomMargin) return;
    const uint8_t* const lastSrc = srcEnd - sourceMargin;
    uint8_t* const lastOut = outEnd - roomMargin;
    const uint8_t* in = count == 0 ? src : src - 1;
    uint32_t bit = static_cast<uint32_t>(8 - count) & 7;
    uint8_t* to = out;
    while (in <= lastSrc && to <= lastOut) {
        const uint32_t word = vek::byteSwap(load<uint32_t>(in)) << bit;
        if ((word >> 31) != 0) {
            *to++ = static_cast<uint8_t>(word >> 23);
            bit += literalBits;
            in += bit >> 3;
            bit &= 7;
            continue;
        }
        const uint32_t distance = word >> 16;
        const uint32_t length = ((word >> 8) & 0xFF) + minMatch;
        if (distance - 1 < static_cast<uint32_t>(to - history.outStart)) {
            copyMatchWide(to, distance, length);
        } else {
            history.copy(to, distance, length);
        }
        to += length;
        in += 3;
    }
    out = to;
    src = bit == 0 ? in : in + 1;
    count = static_cast<int>((8 - bit) & 7);
    bits = bit == 0 ? 0 : uint32_t{*in} << (24 + bit);
}

}  // namespace

VekStatus veksLZSSGetSize_8u(int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    *pSize = static_cast<int32_t>(stateSize);
    return vekStatusOk;
}

VekStatus veksEncodeLZSSInit_8u(void* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    auto* const state = static_cast<Encoder*>(pState);
    state->hashTable = randVecLZSS[0];
    state->chain = state->chainTable;
    state->head = state->headTable;
    state->window = state->windowBytes;
    state->displacement = reinterpret_cast<uintptr_t>(state->window);
    state->position = 0;
    state->bitCount = 0;
    state->bitsHigh = state->bitsLow = 0;
    state->reserved[0] = state->reserved[1] = 0;
    std::fill_n(state->chainTable, chainEntries, emptyEntry);
    std::fill_n(state->headTable, chainEntries, emptyEntry);
    return vekStatusOk;
}

VekStatus veksEncodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                            int32_t* pDstLen, void* pState) {
    if (vek::anyNull(ppSrc, pSrcLen, ppDst, pDstLen, pState)) return vekStatusNullPointer;
    if (*pDstLen <= 0) return vekStatusDestinationFull;
    if (*pSrcLen <= 0) return vekStatusOk;
    if (vek::anyNull(*ppSrc, *ppDst)) return vekStatusNullPointer;
    auto* const state = static_cast<Encoder*>(pState);
    if (state->position > rebaseLimit) rebase(state);

    const uint8_t* const source = *ppSrc;
    const auto length = static_cast<uint32_t>(*pSrcLen);
    uint8_t* const window = windowAt(*state);
    std::memcpy(window, source, std::min(length, maxMatch));
    BitWriter writer{uint64_t{state->bitsHigh} << 32 | state->bitsLow, state->bitCount, *ppDst,
                     *ppDst + *pDstLen};
    const Finder finder{state->chain, state->head, source, window, state->position};
    const uint32_t consumed = encodeTokens(finder, &writer, length);
    const VekStatus status = writer.room() == 0 ? vekStatusDestinationFull : vekStatusOk;

    updateHistory(state, source, consumed);
    state->bitCount = writer.count;
    state->bitsHigh = static_cast<uint32_t>(writer.bits >> 32);
    state->bitsLow = static_cast<uint32_t>(writer.bits);
    *ppSrc += consumed;
    *pSrcLen -= static_cast<int32_t>(consumed);
    *ppDst = writer.out;
    *pDstLen = static_cast<int32_t>(writer.room());
    return status;
}

VekStatus veksEncodeLZSSFlush_8u(uint8_t** ppDst, int32_t* pDstLen, void* pState) {
    if (vek::anyNull(ppDst, pDstLen, pState) || *ppDst == nullptr) return vekStatusNullPointer;
    if (*pDstLen < 1) return vekStatusBadSize;
    auto* const state = static_cast<Encoder*>(pState);
    if (state->bitCount <= 0) return vekStatusOk;
    const int wholeBytes = (state->bitCount + 7) & ~7;
    BitWriter writer{uint64_t{state->bitsHigh} << 32 | state->bitsLow, wholeBytes, *ppDst,
                     *ppDst + *pDstLen};
    const bool placed = writer.drain();
    *ppDst = writer.out;
    *pDstLen = static_cast<int32_t>(writer.room());
    if (placed) return vekStatusOk;
    state->bitCount -= wholeBytes - writer.count;
    state->bitsHigh = static_cast<uint32_t>(writer.bits >> 32);
    state->bitsLow = static_cast<uint32_t>(writer.bits);
    return vekStatusDestinationFull;
}

VekStatus veksDecodeLZSSInit_8u(void* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    auto* const state = static_cast<Decoder*>(pState);
    std::fill_n(state->reserved, 3, 0U);
    state->window = state->windowBytes;
    state->bitCount = 0;
    state->bits = 0;
    state->pendingDistance = 0;
    state->pendingLength = 0;
    return vekStatusOk;
}

VekStatus veksDecodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                            int32_t* pDstLen, void* pState) {
    if (vek::anyNull(ppSrc, pSrcLen, ppDst, pDstLen, pState) || *ppDst == nullptr ||
        (*ppSrc == nullptr && *pSrcLen > 0))
        return vekStatusNullPointer;
    if (*pDstLen < 1) return vekStatusBadSize;
    auto* const state = static_cast<Decoder*>(pState);
    const uint8_t* const source = *ppSrc;
    uint8_t* const outStart = *ppDst;
    TokenReader reader{source,
                       source + std::max(*pSrcLen, 0),
                       outStart,
                       outStart + *pDstLen,
                       {state->window + historySize, outStart},
                       state->bits,
                       state->bitCount,
                       state->pendingDistance,
                       state->pendingLength};
    if (reader.pendingLength != 0) reader.match(reader.pendingDistance, reader.pendingLength);
    bool going = !reader.full();
    while (going) {
        if (reader.count < 8 && (reader.count == 0 || reader.src != source)) reader.fast();
        going = reader.careful() && !reader.full();
    }

    const auto written = static_cast<uint32_t>(reader.out - outStart);
    if (written >= historySize) {
        std::memcpy(state->window, reader.out - historySize, historySize);
    } else {
        std::memmove(state->window, state->window + written, historySize - written);
        std::memcpy(state->window + (historySize - written), outStart, written);
    }
    state->bitCount = reader.count;
    state->bits = reader.bits;
    state->pendingDistance = reader.pendingDistance;
    state->pendingLength = reader.pendingLength;
    *pSrcLen -= static_cast<int32_t>(reader.src - source);
    *ppSrc = reader.src;
    *ppDst = reader.out;
    *pDstLen = static_cast<int32_t>(reader.room());
    return reader.full() ? vekStatusDestinationFull : vekStatusOk;
}
