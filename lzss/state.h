// The LZSS record, seen by the encoder and by the decoder, and the sizes they share.
//
// Private to the family; a test of the encoder's long streams includes it to move a stream forward.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek::inline VEK_LEVEL::lzss {

/// A literal is a 1 and its byte; a match a 0, 15 bits of distance and 8 of length - minMatch.
constexpr int literalBits = 9;
constexpr int matchBits = 24;

constexpr uint32_t maxDistance = 32767;
constexpr uint32_t minMatch = 3;
constexpr uint32_t maxMatch = 258;
constexpr uint32_t chainEntries = 32768;
constexpr uint32_t chainMask = chainEntries - 1;
constexpr uint32_t historySize = 32768;
constexpr uint32_t windowSize = 65536;

/// Chain and head entries that hold nothing: at least 32768 before every position, so the distance
/// test refuses them.
constexpr uint32_t emptyEntry = 0xFFFF8000U;

/// A stream whose position passed this is moved down before the next call. A call adds less than
/// 2^31, so positions never come within a window of 2^32, where the empty mark would look near.
constexpr uint32_t rebaseLimit = 0x40000000U;

struct LzssEncoder {
    const int16_t* hashTable;
    uint32_t* chain;
    uint32_t* head;
    uint8_t* window;
    /// What a position is added to for its address in the window; wraps.
    uintptr_t displacement;
    uint32_t position;
    int32_t bitCount;
    uint32_t bitsHigh;
    uint32_t bitsLow;
    uint32_t reserved[2];
    uint32_t chainTable[chainEntries];
    uint32_t headTable[chainEntries];
    uint8_t windowBytes[windowSize];
};

struct LzssDecoder {
    uint32_t reserved[3];
    uint8_t* window;
    uint32_t untouched[2];
    int32_t bitCount;
    uint32_t bits;
    uint32_t reservedToo;
    uint32_t pendingDistance;
    uint32_t pendingLength;
    uint8_t windowBytes[historySize];
};

/// The caller's record, which serves either direction.
union LzssState {
    LzssEncoder encoder;
    LzssDecoder decoder;
};

#if !defined(__x86_64__)
static_assert(sizeof(LzssState) == 327724);
static_assert(offsetof(LzssEncoder, position) == 20 && offsetof(LzssEncoder, chainTable) == 44);
static_assert(offsetof(LzssDecoder, bitCount) == 24 && offsetof(LzssDecoder, windowBytes) == 44);
#endif

}  // namespace vek::inline VEK_LEVEL::lzss
