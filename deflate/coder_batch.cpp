// The batch coder: many pairs with one set of prepared codes.
//
// Preparing takes a few hundred steps, which large blocks repay. The loop then takes two table
// entries a pair, puts both without asking what the pair is, and stores eight bytes of which the
// complete ones count. A pair has one bit at the least, so while enough pairs follow, the bytes
// that a store touches beyond the complete ones are still to be written. Whether eight pairs are
// all literals, as they are for long stretches of data that hardly compresses, is asked once for
// the eight: then they go without the empty distances between them.

#include "deflate/coder_batch.h"

#include <smmintrin.h>

#include "deflate/pair_codes.h"

using namespace vek::deflate;

static_assert(maxSymbolBits + maxDistanceBits <= vek::LsbWriter::freeBits);

namespace {

constexpr uint32_t pairsAtOnce = 8;
constexpr uint32_t literalsPerFlush = 3;

static_assert(literalsPerFlush * maxCodeLength <= vek::LsbWriter::freeBits);

bool nextAreLiterals(const uint16_t* dist) {
    const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dist));
    return _mm_testz_si128(next, next) != 0;
}

}  // namespace

uint32_t ownsDeflateHuff_8u(const uint8_t* lit, const uint16_t* dist, uint32_t count,
                            const VekHuffEntry* litTable, const VekHuffEntry* distTable,
                            vek::LsbWriter& sink) {
    constexpr uint32_t pairsForAStore = 64 + pairsAtOnce;  // at least as many bits
    if (count <= pairsForAStore) return 0;
    const PairCodes codes(litTable, distTable);
    vek::LsbWriter local = sink;
    local.flushExact();
    uint32_t i = 0;
    while (i < count - pairsForAStore) {
        if (nextAreLiterals(dist + i)) {
#pragma GCC unroll 8
            for (uint32_t k = 0; k < pairsAtOnce; ++k) {
                local.put(codes.literal(lit[i + k]));
                if (k % literalsPerFlush == literalsPerFlush - 1) local.flushWide();
            }
            local.flushWide();
            i += pairsAtOnce;
            continue;
        }
        for (const uint32_t end = i + pairsAtOnce; i != end; ++i) {
            const uint32_t distance = dist[i];
            local.put(codes.symbol(lit[i], distance));
            local.put(codes.distance(distance));
            local.flushWide();
        }
    }
    sink = local;
    return i;
}
