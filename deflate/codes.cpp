// Huffman codes of a block, from its symbols' frequencies.
//
// Every symbol of both alphabets gets a code, used or not: a code for an unused symbol costs next
// to nothing in a block of thousands of symbols, and neither side has holes to think of. Distance
// codes are kept to 9 bits. How the lengths come about is told in code_lengths.h.

#include "bytes/words.h"
#include "deflate/canonical_codes.h"
#include "deflate/code_lengths.h"
#include "frame/args.h"
#include "frame/variant.h"
#include "vekdc.h"

#define ownGenHuff1 VEK_INTERNAL(ownGenHuff1)

using namespace vek::deflate;

static_assert(sizeof(VekHuffEntry) == 4);

namespace {

constexpr unsigned maxDistanceCodeLength = 9;

/// A frequency table's entry is read as one 32-bit number.
uint32_t frequencyOf(const VekHuffEntry& entry) {
    return vek::load<uint32_t>(&entry);
}

/// Lengths of one alphabet's codes, from its frequencies into its table; the two may be the same.
bool ownGenHuff1(const VekHuffEntry* frequencies, int n, unsigned limit, VekHuffEntry* table) {
    uint8_t lengths[litLenSymbols];
    const bool fits =
        limitedLengths([=](size_t s) { return frequencyOf(frequencies[s]); }, n, limit, lengths);
    for (int s = 0; s < n; ++s) table[s] = {0, lengths[s]};
    return fits;
}

}  // namespace

VekStatus veksDeflateLZ77FastestGenHuffTable_8u(const VekHuffEntry* pLitFreq,
                                                const VekHuffEntry* pDistFreq,
                                                VekHuffEntry* pLitHuffTable,
                                                VekHuffEntry* pDistHuffTable) {
    if (vek::anyNull(pLitFreq, pDistFreq, pLitHuffTable, pDistHuffTable))
        return vekStatusNullPointer;
    const bool litFits = ownGenHuff1(pLitFreq, litLenSymbols, maxCodeLength, pLitHuffTable);
    const bool distFits =
        ownGenHuff1(pDistFreq, distSymbols, maxDistanceCodeLength, pDistHuffTable);
    assignCodes(pLitHuffTable, litLenSymbols);
    assignCodes(pDistHuffTable, distSymbols);
    return litFits && distFits ? vekStatusOk : vekStatusFailure;
}
