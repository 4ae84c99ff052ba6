// The batch coder: many pairs with one set of prepared codes.
//
// Preparing takes a few hundred steps, which large blocks repay. The loop then takes two table
// entries a pair, puts both without asking what the pair is, and stores eight bytes of which the
// complete ones count. A pair has one bit at the least, so while enough pairs follow, the bytes
// that a store touches beyond the complete ones are still to be written.

#include "deflate/pdcdeflatep8y8cn.h"

#include "deflate/pair_codes.h"

using namespace vek::deflate;

static_assert(maxSymbolBits + maxDistanceBits <= BitSink::freeBits);

uint32_t ownsDeflateHuff_8u(const uint8_t* lit, const uint16_t* dist, uint32_t count,
                            const VekHuffEntry* litTable, const VekHuffEntry* distTable,
                            BitSink& sink) {
    constexpr uint32_t pairsForAStore = 64;  // at least as many bits
    if (count <= pairsForAStore) return 0;
    const PairCodes codes(litTable, distTable);
    BitSink local = sink;
    local.flushExact();
    uint32_t i = 0;
    for (; i < count - pairsForAStore; ++i) {
        const uint32_t distance = dist[i];
        local.put(codes.symbols[lit[i] + (distance != 0 ? 256U : 0U)]);
        local.put(codes.distance(distance));
        local.flushWide();
    }
    sink = local;
    return i;
}
