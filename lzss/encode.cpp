// The LZSS encoder.
//
// Hash chains of up to 16 candidates over the last 32767 bytes, every position inserted, the
// longest match taken at once. The history lies in the record's window of 64 KiB, the new input
// where the caller has it; the first 258 bytes of a call are also put behind the history, so a
// candidate in the history runs on into new input without a test. Positions are 32-bit and compared
// modulo 2^32; between calls they are moved down before they come near the wrap, so streams are
// endless.
//
// Bits go out through a 32-bit accumulator with one big-endian store a token while room lasts (7
// bits left over and a token of 24 are 31). Near the end of the room whole bytes go out one by one
// from a 64-bit accumulator, and what does not fit stays in the record.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "bits/msb_writer.h"
#include "bytes/match_length.h"
#include "bytes/words.h"
#include "frame/args.h"
#include "include/vekdc.h"
#include "lzss/state.h"
#include "lzss/tabulation_hash.h"

namespace {

using namespace vek::lzss;
using vek::load;

constexpr int maxSteps = 16;

inline uint32_t hash(const uint8_t* p) {
    return static_cast<uint32_t>(randVecLZSS[0][p[0]] ^ randVecLZSS[1][p[1]] ^
                                 randVecLZSS[2][p[2]]);
}

/// Tokens on their way out.
struct TokenWriter : vek::MsbWriter<uint64_t> {
    /// Room below which bytes go one by one: a token's store, and a byte that shows the room not
    /// full.
    static constexpr size_t wideRoom = 8;
    /// The most bits that may await when a token comes.
    static constexpr int mostPending = 23;
    static_assert(matchBits <= freeBitsOf32 && mostPending + matchBits <= wordBits);

    /// False when the room is full; the token is then taken nevertheless.
    bool token(uint32_t value, int size) {
        if (room() >= wideRoom && count < 8) {
            putFlushed(value, size);
            return true;
        }
        put(value, size);
        return drain();
    }

    bool ready() { return count <= mostPending || drain(); }
    bool literal(uint32_t byte) { return token(0x100 | byte, literalBits); }
    bool match(uint32_t distance, uint32_t length) {
        return token(distance << 8 | (length - minMatch), matchBits);
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
uint32_t encodeTokens(Finder finder, TokenWriter* pWriter, uint32_t length) {
    TokenWriter writer = *pWriter;
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
void rebase(LzssEncoder* state) {
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
inline uint8_t* windowAt(const LzssEncoder& state) {
    return reinterpret_cast<uint8_t*>(state.displacement + state.position);
}

/// Makes the window hold the last 32768 bytes of a stream that grew by `consumed` bytes at
/// `source`, of which the first 258 are in the window.
void updateHistory(LzssEncoder* state, const uint8_t* source, uint32_t consumed) {
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

}  // namespace

VekStatus veksLZSSGetSize_8u(int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    *pSize = static_cast<int32_t>(sizeof(LzssState));
    return vekStatusOk;
}

VekStatus veksEncodeLZSSInit_8u(void* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    LzssEncoder* const state = &static_cast<LzssState*>(pState)->encoder;
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
    LzssEncoder* const state = &static_cast<LzssState*>(pState)->encoder;
    if (state->position > rebaseLimit) rebase(state);

    const uint8_t* const source = *ppSrc;
    const auto length = static_cast<uint32_t>(*pSrcLen);
    uint8_t* const window = windowAt(*state);
    std::memcpy(window, source, std::min(length, maxMatch));
    TokenWriter writer{{uint64_t{state->bitsHigh} << 32 | state->bitsLow, state->bitCount, *ppDst,
                        *ppDst + *pDstLen}};
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
    LzssEncoder* const state = &static_cast<LzssState*>(pState)->encoder;
    if (state->bitCount <= 0) return vekStatusOk;
    const int wholeBytes = (state->bitCount + 7) & ~7;
    TokenWriter writer{
        {uint64_t{state->bitsHigh} << 32 | state->bitsLow, wholeBytes, *ppDst, *ppDst + *pDstLen}};
    const bool placed = writer.drain();
    *ppDst = writer.out;
    *pDstLen = static_cast<int32_t>(writer.room());
    if (placed) return vekStatusOk;
    state->bitCount -= wholeBytes - writer.count;
    state->bitsHigh = static_cast<uint32_t>(writer.bits >> 32);
    state->bitsLow = static_cast<uint32_t>(writer.bits);
    return vekStatusDestinationFull;
}
