// What the units of the inflate decoder share: the two layouts of its tables, and the local copy of
// a stream's position that a call works on.
//
// A literal/length entry has a kind byte and a value, a distance entry a kind byte and a base
// distance. The kind's low nibble is the code length; 0 there marks an entry that no code reaches,
// which is an invalid code. The high nibble is
// - of a literal 0 (the value is the byte);
// - of a length 8 plus the number of extra bits (the value is the base length - 3);
// - of the end of block or a symbol that must not occur a number that no length has, per layout;
// - of a distance the number of extra bits; 14 and 15 there mark the two that do not exist.
//
// Single-level layout: the literal/length entries, 16 bits each with the value in the high byte;
// the distance kinds; from 1024 bytes behind the start of those the base distances. A lookup takes
// litBits or distBits bits of the stream.
//
// Two-level layout: kinds and values in arrays of their own, at the places named below. A lookup
// takes 10 bits. A first-level kind of 11 to 15 is no literal but a link to the sub-table of the
// codes that start with these 10 bits, the longest of which has that many: the sub-table stands at
// twice the entry's value (of distances: at the base distance) in the second level, and is indexed
// by the following bits with the first bit of the stream as the highest, so that codes in canonical
// order stand side by side.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "bits/deflate_symbols.h"
#include "bits/lsb_reader.h"
#include "frame/variant.h"
#include "vekdc.h"

#define ownsInflateShort_8u VEK_INTERNAL(ownsInflateShort_8u)
#define ownsInflateLong_8u VEK_INTERNAL(ownsInflateLong_8u)
#define ownsInflateShort_avx2 VEK_INTERNAL(ownsInflateShort_avx2)
#define ownsInflateLong_avx2 VEK_INTERNAL(ownsInflateLong_avx2)
#define fixedCodeTables VEK_INTERNAL(fixedCodeTables)

/// What goes from a call to the kernel of any level, and is one type for all of them.
namespace vek::inflate_call {

/// Why a call ends; the first three are the modes that it reports.
enum class Stop : int32_t { endOfBlock = 0, needInput = 1, inside = 2, corrupt };

/// A stream's position and surroundings while a call works on it.
struct Run : LsbReader {
    uint8_t* dst;
    uint8_t* dstEnd;
    uint8_t* overEnd;         ///< Up to here bytes behind the output may be run over.
    const uint8_t* dstStart;  ///< Start of the history in the output buffer.
    const uint8_t* window;
    uint32_t windowSize;  ///< 0 when there is no window.
    uint32_t winIdx;
    uint32_t step;
    uint32_t value;
    uint32_t extraBits;
    uint32_t distance;
};

}  // namespace vek::inflate_call

namespace vek::inline VEK_LEVEL::inflate {

#if !defined(__x86_64__)
static_assert(sizeof(VekInflateState) == 40 + VEK_INFLATE_TABLES_SIZE);
static_assert(offsetof(VekInflateState, windowSize) == 4);
static_assert(offsetof(VekInflateState, tableKind) == 8);
static_assert(offsetof(VekInflateState, reserved) == 12);
static_assert(offsetof(VekInflateState, savedStep) == 16);
static_assert(offsetof(VekInflateState, savedValue) == 20);
static_assert(offsetof(VekInflateState, savedExtraBits) == 24);
static_assert(offsetof(VekInflateState, savedDistance) == 28);
static_assert(offsetof(VekInflateState, litBits) == 32);
static_assert(offsetof(VekInflateState, distBits) == 36);
static_assert(offsetof(VekInflateState, tables) == 40);
#endif

using namespace deflate_format;
using namespace inflate_call;

enum TableKind : uint32_t { fixedTables = 0, twoLevelTables = 1, singleLevelTables = 2 };

/// Single-level layout.
constexpr unsigned maxLitBits = 11;
constexpr unsigned maxDistBits = 10;
constexpr uint32_t distBaseOffset = 1024;  ///< From the distance kinds to the base distances.
constexpr uint8_t singleEndKind = 0xF0;
static_assert((2U << maxLitBits) + distBaseOffset + (2U << maxDistBits) == VEK_INFLATE_TABLES_SIZE);

/// Two-level layout: bits of the first level, size of each second level, places in the area.
constexpr unsigned rootBits = 10;
constexpr uint32_t rootSize = 1U << rootBits;
constexpr uint32_t litSubSize = 512;
constexpr uint32_t distSubSize = 256;
constexpr uint32_t litValueAt = 0;
constexpr uint32_t litKindAt = litValueAt + rootSize + litSubSize;
constexpr uint32_t distBaseAt = litKindAt + rootSize + litSubSize;
constexpr uint32_t distKindAt = distBaseAt + 2 * (rootSize + distSubSize);
constexpr uint32_t twoLevelSize = distKindAt + rootSize + distSubSize;
constexpr uint8_t twoLevelEndKind = 0x60;
constexpr uint8_t twoLevelInvalidKind = 0x70;
static_assert(litKindAt == 1536 && distBaseAt == 3072 && distKindAt == 5632 &&
              twoLevelSize <= VEK_INFLATE_TABLES_SIZE);

/// What a call does next; the values are those saved in the state.
enum Step : uint32_t {
    stepSymbol = 1,
    stepLengthExtra = 2,
    stepDistance = 3,
    stepDistanceExtra = 4,
    stepCopy = 5,
    stepLiteral = 6,
};

}  // namespace vek::inline VEK_LEVEL::inflate

extern "C" {

/// Decodes with the state's single-level tables.
vek::inflate_call::Stop ownsInflateShort_8u(vek::inflate_call::Run& run,
                                            const VekInflateState& state);
vek::inflate_call::Stop ownsInflateShort_avx2(vek::inflate_call::Run& run,
                                              const VekInflateState& state);

/// Decodes with the two-level tables at `tables`.
vek::inflate_call::Stop ownsInflateLong_8u(vek::inflate_call::Run& run, const uint8_t* tables);
vek::inflate_call::Stop ownsInflateLong_avx2(vek::inflate_call::Run& run, const uint8_t* tables);

/// The fixed code of RFC 1951, 3.2.6, in the two-level layout.
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): it is constexpr where it is defined.
extern const std::array<uint8_t, vek::inflate::twoLevelSize> fixedCodeTables;
}
