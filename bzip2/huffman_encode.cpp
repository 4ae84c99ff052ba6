// Bzip2's Huffman stage, encoder: two to six code tables, one chosen for each group of 50 symbols.
//
// Tables and choices are refined together, four times over: each group takes the table that codes
// it in the fewest bits, then each table is built anew from the groups that took it. It starts from
// tables that each favour one range of the alphabet.
//
// The costs of a group under all tables are summed at once, one table a 16-bit lane: a symbol costs
// one addition whatever the number of tables, and one instruction finds the smallest sum. The
// coding itself keeps a machine word of pending bits, which takes several codes before the whole
// bytes are stored.

#include <smmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "bits/msb_writer.h"
#include "bzip2/huffman_format.h"
#include "frame/args.h"
#include "frame/variant.h"
#include "vekdc.h"

#define ownsHuffSelectGroup VEK_INTERNAL(ownsHuffSelectGroup)

using namespace vek::bzip2;

struct VekBz2HuffEncState {
    int32_t alphaSize;
    int32_t selectorCount;
    int32_t tableCount;
    uint32_t (*codesRef)[maxAlphabet];
    uint8_t (*lengthsRef)[maxAlphabet];
    uint8_t* selectorsRef;
    uint32_t codes[maxTables][maxAlphabet];
    uint8_t lengths[maxTables][maxAlphabet];
    uint8_t selectors[1];  // one a group, then room for one coded selector a group
};

namespace {

constexpr size_t fixedSize = offsetof(VekBz2HuffEncState, selectors);
static_assert(sizeof(void*) != 4 || fixedSize == 7764);

constexpr int iterations = 4;
constexpr uint8_t unlikely = 15;  // starting length of symbols outside a table's range

int32_t tablesFor(int32_t symbols) {
    if (symbols < 200) return 2;
    if (symbols < 600) return 3;
    if (symbols < 1200) return 4;
    if (symbols < 2400) return 5;
    return 6;
}

/// Largest of `count` symbols.
uint16_t largestSymbol(const uint16_t* symbols, int32_t count) {
    __m128i largest = _mm_setzero_si128();
    int32_t i = 0;
    for (; count - i >= 8; i += 8) {
        largest =
            _mm_max_epu16(largest, _mm_loadu_si128(reinterpret_cast<const __m128i*>(symbols + i)));
    }
    alignas(16) uint16_t lanes[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), largest);
    uint16_t result = *std::max_element(lanes, lanes + 8);
    for (; i < count; ++i) result = std::max(result, symbols[i]);
    return result;
}

/// Splits the alphabet into ranges of about equal frequency, one a table, the last table the first
/// range.
void startTables(VekBz2HuffEncState& state, const uint32_t* frequencies) {
    std::memset(state.lengths, unlikely, sizeof(state.lengths));
    uint64_t remaining = 0;
    for (int32_t s = 0; s < state.alphaSize; ++s) remaining += frequencies[s];
    int32_t begin = 0;
    bool giveBack = false;
    for (int32_t table = state.tableCount - 1; table >= 0; --table, giveBack = !giveBack) {
        const uint64_t target = remaining / static_cast<uint32_t>(table + 1);
        uint64_t sum = 0;
        int32_t end = begin;
        while (end < state.alphaSize && (sum < target || end == begin)) sum += frequencies[end++];
        if (giveBack && table != 0 && end - begin > 1) sum -= frequencies[--end];
        if (end > begin)
            std::memset(state.lengths[table] + begin, 0, static_cast<size_t>(end - begin));
        begin = end;
        remaining -= sum;
    }
}

/// Chooses each group's cheapest table, the first among equals, and counts the symbols it then
/// codes.
void ownsHuffSelectGroup(VekBz2HuffEncState& state, const uint16_t* symbols, int32_t count,
                         uint32_t (*frequencies)[maxAlphabet]) {
    alignas(16) uint16_t costs[maxAlphabet][8];
    for (int32_t s = 0; s < state.alphaSize; ++s) {
        for (int32_t table = 0; table < 8; ++table) {
            costs[s][table] = table < state.tableCount ? state.lengths[table][s] : uint16_t{0xFFFF};
        }
    }
    for (int32_t group = 0; group < state.selectorCount; ++group) {
        const uint16_t* begin = symbols + group * groupSize;
        const uint16_t* end = begin + std::min(groupSize, count - group * groupSize);
        __m128i sums = _mm_setzero_si128();
        for (const uint16_t* s = begin; s != end; ++s) {
            sums =
                _mm_adds_epu16(sums, _mm_load_si128(reinterpret_cast<const __m128i*>(costs[*s])));
        }
        const auto best = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_minpos_epu16(sums))) >> 16;
        state.selectors[group] = static_cast<uint8_t>(best);
        for (const uint16_t* s = begin; s != end; ++s) ++frequencies[best][*s];
    }
}

/// Lengths of a Huffman code over `n` ascending weights, unlimited; `counts` gets the codes of each
/// length (those beyond the array's end are counted at its end). Only the counts matter: in order
/// of weight, the lengths descend. Two queues, leaves and nodes, each in order: the lighter head is
/// always next.
void countLengths(const uint32_t* weights, int32_t n, uint32_t (&counts)[maxAlphabet + 1]) {
    uint32_t nodeWeight[maxAlphabet];
    int16_t leafParent[maxAlphabet];
    int16_t nodeParent[maxAlphabet];
    int32_t leaf = 0;
    int32_t node = 0;
    for (int32_t made = 0; made < n - 1; ++made) {
        uint32_t sum = 0;
        for (int child = 0; child < 2; ++child) {
            if (leaf < n && (node >= made || weights[leaf] <= nodeWeight[node])) {
                leafParent[leaf] = static_cast<int16_t>(made);
                sum += weights[leaf++];
            } else {
                nodeParent[node] = static_cast<int16_t>(made);
                sum += nodeWeight[node++];
            }
        }
        nodeWeight[made] = sum;
    }
    int32_t depth[maxAlphabet];
    depth[n - 2] = 0;
    for (int32_t i = n - 3; i >= 0; --i) depth[i] = depth[nodeParent[i]] + 1;
    std::fill(counts, counts + maxAlphabet + 1, 0U);
    for (int32_t i = 0; i < n; ++i) ++counts[depth[leafParent[i]] + 1];
}

/// Brings every length within the limit: two leaves below it move up to where one shorter code,
/// split in two, makes place for them.
void limitLengths(uint32_t (&counts)[maxAlphabet + 1]) {
    for (int32_t length = maxAlphabet; length > maxWrittenLength; --length) {
        while (counts[length] != 0) {
            int shorter = maxWrittenLength - 1;
            while (counts[shorter] == 0) --shorter;
            // The pair's parent becomes a leaf one level up, and the shorter code a node with two
            // leaves.
            counts[length] -= 2;
            counts[length - 1] += 1;
            counts[shorter] -= 1;
            counts[shorter + 1] += 2;
        }
    }
}

/// Code lengths of one table from its symbols' frequencies, 0 counting as 1; ties by symbol order.
void buildLengths(const uint32_t* frequencies, int32_t alphaSize, uint8_t* lengths) {
    if (alphaSize == 1) {
        lengths[0] = 1;
        return;
    }
    uint64_t order[maxAlphabet];  // frequency above symbol: one comparison sorts by both
    uint32_t weights[maxAlphabet];
    for (int32_t s = 0; s < alphaSize; ++s) {
        order[s] =
            (static_cast<uint64_t>(std::max(frequencies[s], 1U)) << 16) | static_cast<uint32_t>(s);
    }
    std::sort(order, order + alphaSize);
    for (int32_t i = 0; i < alphaSize; ++i) weights[i] = static_cast<uint32_t>(order[i] >> 16);
    uint32_t counts[maxAlphabet + 1];
    countLengths(weights, alphaSize, counts);
    limitLengths(counts);
    int length = maxWrittenLength;
    for (int32_t i = 0; i < alphaSize; ++i) {
        while (counts[length] == 0) --length;
        --counts[length];
        lengths[order[i] & 0xFFFF] = static_cast<uint8_t>(length);
    }
}

void assignCodes(const uint8_t* lengths, int32_t alphaSize, uint32_t* codes) {
    uint32_t counts[maxCodeLength + 1] = {};
    uint32_t next[maxCodeLength + 1] = {};
    for (int32_t s = 0; s < alphaSize; ++s) ++counts[lengths[s]];
    firstCodes(counts, next);
    for (int32_t s = 0; s < alphaSize; ++s) codes[s] = next[lengths[s]]++;
}

/// The caller's accumulator as a machine word, and the output behind it.
class CodeWriter {
 public:
    using Writer = vek::MsbWriter<size_t>;

    CodeWriter(uint32_t code, int32_t count, uint8_t* dst, int32_t room)
        : writer_{0, count, dst, dst + room}, begin_(dst) {
        // What stands below the valid bits is not to be trusted.
        if (count > 0)
            writer_.bits = static_cast<size_t>(code >> (32 - count)) << (Writer::wordBits - count);
        writer_.drain();
    }

    /// Appends `length` bits, 1 to 18, stores whole bytes while there is room, and remembers when
    /// bits were lost.
    void put(uint32_t bits, int length) {
        if (writer_.count + length > Writer::wordBits) {
            lost_ = true;
            return;
        }
        writer_.put(bits, length);
        writer_.drain();
    }

    /// For codes that need not look at the room.
    Writer& unchecked() { return writer_; }

    size_t room() const { return writer_.room(); }
    int32_t written() const { return static_cast<int32_t>(writer_.out - begin_); }
    bool fitsAccumulator() const { return !lost_ && writer_.count <= 32; }

    /// The caller's accumulator, when it fits.
    void save(uint32_t* code, int32_t* count) const {
        *code = static_cast<uint32_t>(writer_.bits >> (Writer::wordBits - 32));
        *count = writer_.count;
    }

 private:
    Writer writer_;
    bool lost_ = false;
    uint8_t* begin_;
};

/// Codes a group without looking at the room, which must be roomForGroup or more.
void putGroup(CodeWriter::Writer& writer, const uint16_t* symbols, int32_t count,
              const uint32_t* table) {
    constexpr int perFlush = CodeWriter::Writer::freeBits / maxWrittenLength;
    int32_t i = 0;
    for (; count - i >= perFlush; i += perFlush) {
        for (int k = 0; k < perFlush; ++k) {
            writer.put(table[symbols[i + k]] >> 8, table[symbols[i + k]] & 0xFF);
        }
        writer.flushWide();
    }
    for (; i < count; ++i) {
        writer.put(table[symbols[i]] >> 8, table[symbols[i]] & 0xFF);
        writer.flushWide();
    }
}

constexpr size_t roomForGroup = (groupSize * maxWrittenLength + 7) / 8 + sizeof(size_t);

/// True for a state that Init made; the tables and selectors are then sound.
bool isReady(const VekBz2HuffEncState& state) {
    return state.tableCount >= minTables && state.tableCount <= maxTables && state.alphaSize >= 1 &&
           state.alphaSize <= maxAlphabet;
}

void putDescription(CodeWriter& writer, const VekBz2HuffEncState& state) {
    writer.put(static_cast<uint32_t>(state.tableCount), 3);
    writer.put(static_cast<uint32_t>(state.selectorCount), 15);
    const uint8_t* coded = state.selectors + state.selectorCount;
    for (int32_t i = 0; i < state.selectorCount; ++i) {
        // As many ones as the position, then a zero.
        writer.put((2U << coded[i]) - 2, coded[i] + 1);
    }
    for (int32_t table = 0; table < state.tableCount; ++table) {
        int length = state.lengths[table][0];
        writer.put(static_cast<uint32_t>(length), 5);
        for (int32_t s = 0; s < state.alphaSize; ++s) {
            for (; length < state.lengths[table][s]; ++length) writer.put(0b10, 2);
            for (; length > state.lengths[table][s]; --length) writer.put(0b11, 2);
            writer.put(0, 1);
        }
    }
}

/// Move-to-front codes the selectors into the area behind them.
void codeSelectors(VekBz2HuffEncState& state) {
    uint8_t order[maxTables] = {0, 1, 2, 3, 4, 5};
    uint8_t* coded = state.selectors + state.selectorCount;
    for (int32_t i = 0; i < state.selectorCount; ++i) {
        const uint8_t* at = std::find(order, order + maxTables - 1, state.selectors[i]);
        const auto position = at - order;
        std::memmove(order + 1, order, static_cast<size_t>(position));
        order[0] = state.selectors[i];
        coded[i] = static_cast<uint8_t>(position);
    }
}

}  // namespace

VekStatus veksEncodeHuffGetSize_BZ2_16u8u(int32_t len, int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    *pSize = groupsOf(len) * 2 + static_cast<int32_t>(fixedSize);
    return vekStatusOk;
}

VekStatus veksEncodeHuffInit_BZ2_16u8u(int32_t alphaSize, const uint32_t* pFreq,
                                       const uint16_t* pSrc, int32_t len,
                                       VekBz2HuffEncState* pState) {
    if (vek::anyNull(pFreq, pSrc, pState)) return vekStatusNullPointer;
    if (alphaSize < 1 || alphaSize > maxAlphabet || len < 1 || groupsOf(len) > maxSelectors ||
        largestSymbol(pSrc, len) >= alphaSize) {
        return vekStatusBadSize;
    }
    VekBz2HuffEncState& state = *pState;
    state.alphaSize = alphaSize;
    state.selectorCount = groupsOf(len);
    state.tableCount = tablesFor(len);
    state.codesRef = state.codes;
    state.lengthsRef = state.lengths;
    state.selectorsRef = state.selectors;
    startTables(state, pFreq);
    for (int i = 0; i < iterations; ++i) {
        uint32_t frequencies[maxTables][maxAlphabet] = {};
        ownsHuffSelectGroup(state, pSrc, len, frequencies);
        for (int32_t table = 0; table < state.tableCount; ++table) {
            buildLengths(frequencies[table], alphaSize, state.lengths[table]);
        }
    }
    for (int32_t table = 0; table < state.tableCount; ++table) {
        assignCodes(state.lengths[table], alphaSize, state.codes[table]);
    }
    codeSelectors(state);
    return vekStatusOk;
}

VekStatus veksPackHuffContext_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, uint8_t* pDst,
                                        int32_t* pDstLen, const VekBz2HuffEncState* pState) {
    if (vek::anyNull(pCode, pCodeLenBits, pDst, pDstLen, pState)) return vekStatusNullPointer;
    if (*pDstLen < 1 || vek::outside(*pCodeLenBits, 0, 32)) return vekStatusBadSize;
    if (!isReady(*pState)) return vekStatusError;
    CodeWriter writer(*pCode, *pCodeLenBits, pDst, *pDstLen);
    putDescription(writer, *pState);
    *pDstLen = writer.written();
    if (!writer.fitsAccumulator()) return vekStatusDestinationFull;
    writer.save(pCode, pCodeLenBits);
    return vekStatusOk;
}

VekStatus veksEncodeHuff_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, const uint16_t** ppSrc,
                                   int32_t* pSrcLen, uint8_t* pDst, int32_t* pDstLen,
                                   const VekBz2HuffEncState* pState) {
    if (vek::anyNull(pCode, pCodeLenBits, ppSrc, pSrcLen, pDst, pDstLen, pState) ||
        *ppSrc == nullptr) {
        return vekStatusNullPointer;
    }
    const VekBz2HuffEncState& state = *pState;
    const uint16_t* symbols = *ppSrc;
    const int32_t count = *pSrcLen;
    if (*pDstLen < 1 || count < 0 || vek::outside(*pCodeLenBits, 0, 32)) return vekStatusBadSize;
    if (!isReady(state)) return vekStatusError;
    if (groupsOf(count) > state.selectorCount || largestSymbol(symbols, count) >= state.alphaSize) {
        return vekStatusBadSize;
    }
    uint32_t tables[maxTables][maxAlphabet];  // code above length, so that a symbol is one load
    for (int32_t table = 0; table < state.tableCount; ++table) {
        for (int32_t s = 0; s < state.alphaSize; ++s) {
            tables[table][s] = (state.codes[table][s] << 8) | state.lengths[table][s];
        }
    }
    CodeWriter writer(*pCode, *pCodeLenBits, pDst, *pDstLen);
    for (int32_t at = 0, group = 0; at < count; at += groupSize, ++group) {
        const int32_t n = std::min(groupSize, count - at);
        const uint32_t* table = tables[state.selectors[group]];
        if (writer.room() >= roomForGroup) {
            putGroup(writer.unchecked(), symbols + at, n, table);
            continue;
        }
        for (int32_t i = 0; i < n; ++i) {
            writer.put(table[symbols[at + i]] >> 8, table[symbols[at + i]] & 0xFF);
        }
    }
    *pDstLen = writer.written();
    if (!writer.fitsAccumulator()) return vekStatusDestinationFull;
    writer.save(pCode, pCodeLenBits);
    *ppSrc = symbols + count;
    *pSrcLen = 0;
    return vekStatusOk;
}
