// A general-purpose code, made beforehand.
//
// The code lengths below are those of the fastest path's symbols over English text, program text,
// machine code, package records, database pages and an image, each file with the same weight; a
// small uniform share keeps every symbol affordable. They follow no rule, and so are written out;
// the codes follow from them. scripts/make-single-pass-code makes such lengths of other files.

#include "deflate/canonical_codes.h"
#include "frame/args.h"
#include "vekdc.h"

using namespace vek::deflate;

namespace {

constexpr uint8_t litLengths[litLenSymbols] = {
    5,  6,  8,  8,  8,  9,  9,  9,  8,  9,  8,  9,  8,  8,  9,  8,  8,  9,  9,  9,  9,  9,  9,  9,
    9,  9,  9,  9,  9,  9,  9,  9,  6,  9,  9,  9,  7,  9,  10, 9,  9,  9,  9,  9,  8,  8,  8,  9,
    7,  7,  7,  7,  8,  8,  8,  8,  8,  8,  8,  9,  9,  9,  10, 10, 9,  8,  9,  8,  8,  8,  8,  8,
    7,  8,  9,  9,  8,  8,  8,  8,  8,  8,  8,  8,  8,  8,  8,  8,  9,  9,  9,  9,  9,  9,  9,  9,
    9,  6,  8,  7,  7,  6,  7,  8,  8,  7,  8,  8,  7,  8,  7,  7,  7,  9,  7,  7,  7,  7,  8,  8,
    8,  8,  9,  10, 9,  9,  9,  9,  9,  9,  10, 8,  8,  8,  10, 10, 9,  7,  9,  7,  10, 8,  10, 10,
    9,  10, 10, 10, 9,  10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10,
    10, 10, 10, 10, 10, 10, 10, 10, 9,  10, 10, 10, 10, 10, 9,  10, 9,  10, 10, 10, 10, 10, 10, 10,
    8,  9,  9,  9,  9,  9,  9,  9,  9,  9,  9,  9,  10, 9,  9,  9,  9,  10, 9,  10, 10, 10, 10, 10,
    9,  10, 10, 9,  10, 10, 10, 9,  9,  10, 10, 10, 10, 10, 10, 10, 7,  8,  10, 9,  9,  9,  9,  9,
    9,  9,  10, 9,  9,  9,  9,  9,  9,  9,  9,  9,  9,  9,  9,  7,  12, 12, 3,  5,  5,  6,  7,  8,
    8,  8,  8,  8,  8,  7,  9,  10, 10, 10, 11, 10, 11, 10, 11, 11, 12, 11, 11, 12, 11, 11,
};

constexpr uint8_t distLengths[distSymbols] = {
    9, 9, 9, 9, 8, 8, 7, 7, 6, 6, 6, 6, 5, 6, 5, 6, 5, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4,
};

/// Whether the lengths are those of a complete code (Kraft's sum is 1).
template <size_t N>
constexpr bool isComplete(const uint8_t (&lengths)[N]) {
    uint32_t sum = 0;
    for (const uint8_t length : lengths) sum += (1U << maxCodeLength) >> length;
    return sum == 1U << maxCodeLength;
}

static_assert(isComplete(litLengths) && isComplete(distLengths));

}  // namespace

VekStatus veksDeflateLZ77FastestPrecompHeader_8u(VekHuffEntry* pLitHuffTable,
                                                 VekHuffEntry* pDistHuffTable, uint8_t* pHeader,
                                                 uint32_t* pHeaderLen, uint32_t* pHeaderBits) {
    if (vek::anyNull(pLitHuffTable, pDistHuffTable, pHeader, pHeaderLen, pHeaderBits))
        return vekStatusNullPointer;
    for (size_t s = 0; s < litLenSymbols; ++s) pLitHuffTable[s] = {0, litLengths[s]};
    for (size_t s = 0; s < distSymbols; ++s) pDistHuffTable[s] = {0, distLengths[s]};
    assignCodes(pLitHuffTable, litLenSymbols);
    assignCodes(pDistHuffTable, distSymbols);
    return veksDeflateLZ77FastestGenHeader_8u(pLitHuffTable, pDistHuffTable, pHeader, pHeaderLen,
                                              pHeaderBits);
}
