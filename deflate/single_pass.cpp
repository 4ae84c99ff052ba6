// The single-pass fastest path: one look at each place, straight to bits.
//
// The matcher keeps one position for each hash and takes the first match it finds, of four bytes
// and more. Where nothing matches it strides ahead faster and faster, so that data without matches
// costs little more than its literals. Positions in the head table are source offsets plus one; 0
// is empty. The matcher clears the table itself, so every entry it reads is its own and lies before
// the place it stands at.
//
// The same matcher drives a counter of frequencies or a writer of codes. With the general-purpose
// code below, one pass over the data is all: that is the fastest that deflate goes here.

#include <cstring>

#include "bits/lsb_writer.h"
#include "bytes/crc32c_step.h"
#include "bytes/fill.h"
#include "bytes/match_length.h"
#include "deflate/pair_codes.h"
#include "deflate/symbol_counts.h"
#include "frame/args.h"
#include "vekdc.h"

using namespace vek::deflate;
using vek::load;

namespace {

constexpr uint32_t hashBytes = 4;
constexpr uint32_t strideShift = 5;  // misses until the stride grows by one

bool validSizes(int32_t srcLen, uint32_t hashSize) {
    return srcLen >= 1 && !vek::outside<uint32_t>(hashSize, 256, 65536);
}

/// Runs the matcher; the sink is told of literals, one or a run [begin, end), and of matches, in
/// order.
template <class Sink>
void matchFastest(const uint8_t* src, uint32_t srcLen, uint32_t* head, uint32_t hashSize,
                  Sink& sink) {
    ownsSet_32s(0, reinterpret_cast<int32_t*>(head), hashSize);
    const uint32_t mask = hashSize - 1;
    const uint32_t end = srcLen < hashBytes ? 0 : srcLen - hashBytes + 1;
    uint32_t misses = 0;
    uint32_t at = 0;
    while (at < end) {
        const uint8_t* const current = src + at;
        const auto word = load<uint32_t>(current);
        uint32_t& entry = head[vek::crc32cStep(0, word) & mask];
        const uint32_t distance = at + 1 - entry;  // above `at` for an empty entry
        entry = at + 1;
        // One branch for both questions: whether the entry is in reach cannot be predicted.
        const uint32_t usable =
            0U - static_cast<uint32_t>(distance - 1 < std::min(at, maxDistance));
        if (((load<uint32_t>(current - (distance & usable)) ^ word) | ~usable) != 0) {
            const uint32_t stride = 1 + (misses++ >> strideShift);
            if (stride == 1) {
                sink.literal(static_cast<uint8_t>(word));
                ++at;
            } else {
                const uint32_t next = std::min(at + stride, srcLen);
                sink.literals(current, src + next);
                at = next;
            }
            continue;
        }
        const uint32_t limit = std::min<uint32_t>(maxMatch, srcLen - at) - hashBytes;
        const uint8_t* behind = current + hashBytes;
        const auto length =
            hashBytes + static_cast<uint32_t>(vek::matchLength(behind, behind - distance, limit));
        sink.match(length, distance);
        at += length;
        misses = 0;
    }
    sink.literals(src + at, src + srcLen);
}

/// Writes codes; the output's worst case, stated to callers, leaves room for the wide stores.
struct CodeWriter {
    const PairCodes& codes;
    vek::LsbWriter sink;

    void literal(uint8_t byte) {
        sink.put(codes.literal(byte));
        sink.flushWide();
    }

    void literals(const uint8_t* begin, const uint8_t* end) {
        constexpr int perFlush = vek::LsbWriter::freeBits / maxCodeLength;
        for (; end - begin >= perFlush; begin += perFlush) {
            for (int i = 0; i < perFlush; ++i) sink.put(codes.literal(begin[i]));
            sink.flushWide();
        }
        for (; begin != end; ++begin) sink.put(codes.literal(*begin));
        sink.flushWide();
    }

    static_assert(maxSymbolBits + maxDistanceBits <= vek::LsbWriter::freeBits);

    void match(uint32_t length, uint32_t distance) {
        sink.put(codes.length(length - minMatch));
        sink.put(codes.distance(distance));
        sink.flushWide();
    }
};

}  // namespace

VekStatus veksDeflateLZ77FastestGetStat_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pHashHead,
                                           uint32_t hashSize, VekHuffEntry* pLitFreq,
                                           VekHuffEntry* pDistFreq) {
    if (vek::anyNull(pSrc, pHashHead, pLitFreq, pDistFreq)) return vekStatusNullPointer;
    if (!validSizes(srcLen, hashSize)) return vekStatusBadSize;
    SymbolCounts counts{pLitFreq, pDistFreq};
    matchFastest(pSrc, static_cast<uint32_t>(srcLen), pHashHead, hashSize, counts);
    return vekStatusOk;
}

VekStatus veksDeflateLZ77Fastest_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pHashHead,
                                    uint32_t hashSize, uint32_t* pCode, uint32_t* pCodeLenBits,
                                    const VekHuffEntry* pLitHuffTable,
                                    const VekHuffEntry* pDistHuffTable, uint8_t* pDst,
                                    uint32_t* pDstLen, uint32_t* pDstIdx) {
    if (vek::anyNull(pSrc, pHashHead, pCode, pCodeLenBits, pLitHuffTable, pDistHuffTable, pDst,
                     pDstLen, pDstIdx)) {
        return vekStatusNullPointer;
    }
    if (!validSizes(srcLen, hashSize) || *pCodeLenBits > 32 ||
        *pDstLen < vekDeflateFastestBound(srcLen)) {
        return vekStatusBadSize;
    }
    const PairCodes codes(pLitHuffTable, pDistHuffTable);
    CodeWriter writer{codes, vek::LsbWriter(*pCode, *pCodeLenBits, pDst + *pDstIdx)};
    writer.sink.flushExact();
    matchFastest(pSrc, static_cast<uint32_t>(srcLen), pHashHead, hashSize, writer);
    *pCode = writer.sink.buffer();
    *pCodeLenBits = writer.sink.count();
    const auto written = static_cast<uint32_t>(writer.sink.position() - (pDst + *pDstIdx));
    *pDstLen = written;
    *pDstIdx += written;
    return vekStatusOk;
}
