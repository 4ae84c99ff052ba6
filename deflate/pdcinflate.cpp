// The inflate decoder (RFC 1951, 3.2): the exported call, and the decoder for two-level tables.
//
// A call works on local copies of the stream's position and writes them back at one exit. How the
// steps go is told in pdcinflatesteps.h; here is what surrounds them: where a call starts, what its
// end means, and the lookups through sub-tables.
#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "deflate/pdcinflate.h"
#include "deflate/pdcinflatesteps.h"
#include "frame/args.h"
#include "vector/bytes.h"

namespace {

using namespace vek::inflate;

/// Reversals of 5 bits, and masks of n bits.
constexpr std::array<uint8_t, 32> tablofinv = [] {
    std::array<uint8_t, 32> table{};
    for (unsigned i = 0; i < table.size(); ++i) {
        table[i] = static_cast<uint8_t>(vek::reverseBits(i, 5));
    }
    return table;
}();

class TwoLevel {
 public:
    explicit TwoLevel(const uint8_t* tables) : tables_(tables) {}

    Entry lit(uint32_t bits) const {
        uint32_t index = bits & (rootSize - 1);
        if (isLink(tables_[litKindAt + index])) {
            index = rootSize + 2U * tables_[litValueAt + index] +
                    subIndex(bits, tables_[litKindAt + index]);
        }
        return {tables_[litKindAt + index], tables_[litValueAt + index]};
    }
    Entry dist(uint32_t bits) const {
        uint32_t index = bits & (rootSize - 1);
        if (isLink(tables_[distKindAt + index])) {
            index = rootSize + base(index) + subIndex(bits, tables_[distKindAt + index]);
        }
        return {tables_[distKindAt + index], base(index)};
    }
    static bool isEnd(uint32_t kind) { return (kind & 0xF0) == twoLevelEndKind; }

    // For the fast kernel: the first level's entry, whose value is loaded only when it is needed.
    struct Look {
        uint32_t kind;
        size_t index;
    };
    Look look(Word bits) const {
        const size_t index = bits & (rootSize - 1);
        return {tables_[litKindAt + index], index};
    }
    static uint32_t kind(Look entry) { return entry.kind; }
    uint32_t value(Look entry) const { return tables_[litValueAt + entry.index]; }
    static bool isShortLiteral(Look entry) { return entry.kind <= rootBits; }
    static bool isLiteral(Look entry) { return entry.kind <= maxCodeLen; }
    static bool isLength(Look entry) { return entry.kind >= 0x80; }
    static bool isLink(Look entry) { return isLink(entry.kind) && isLiteral(entry); }
    Look follow(Look entry, Word bits) const {
        const size_t index =
            rootSize + 2 * value(entry) + subIndex(static_cast<uint32_t>(bits), entry.kind);
        return {tables_[litKindAt + index], index};
    }
    uint32_t takeLength(Look entry, Word& bits, uint32_t& count) const {
        return takeEntry(entry.kind & 15, (entry.kind >> 4) & 7, value(entry) + minMatch, bits,
                         count);
    }
    Entry lookDistance(Word bits) const {
        const size_t index = bits & (rootSize - 1);
        return {tables_[distKindAt + index], base(index)};
    }
    static bool isLongDistance(Entry entry) { return entry.codeLen() > rootBits; }
    static uint32_t takeDistance(Entry entry, Word& bits, uint32_t& count) {
        return takeEntry(entry.codeLen(), entry.distanceExtra(), entry.value, bits, count);
    }

 private:
    static bool isLink(uint32_t kind) { return (kind & 15) > rootBits; }
    static uint32_t subIndex(uint32_t bits, uint32_t link) {
        return static_cast<uint32_t>(tablofinv[(bits >> rootBits) & 31]) >>
               (maxCodeLen - (link & 15));
    }
    uint32_t base(size_t index) const {
        return vek::load<uint16_t>(tables_ + distBaseAt + 2 * index);
    }

    const uint8_t* tables_;
};

/// The first level once more, with one 32-bit word an entry that holds what the kernel would have
/// to work out: byte 0 the bits to take in all, byte 1 the code length, then the value (byte 2 or
/// both). Byte 3 of literals/lengths tells what the entry is. Making it takes as long as decoding
/// some 200 bytes, so it is for calls with more than that to do.
constexpr ptrdiff_t packedSource = 600;
constexpr ptrdiff_t packedRoom = 1500;
struct PackedLevel {
    uint32_t lits[rootSize];
    uint32_t dists[rootSize];
};

constexpr uint32_t packedOther = 0x80000000U;   ///< Anything but a literal of the first level.
constexpr uint32_t packedLength = 0x40000000U;  ///< A length.
constexpr uint32_t packedStop = 0x20000000U;    ///< The end of the block, or no code.
constexpr uint32_t packedLongDistance = 0x80U;  ///< A link: no total of bits goes this high.

/// An entry found through a sub-table.
constexpr uint32_t packLit(uint32_t kind, uint32_t value) {
    const uint32_t len = kind & 15;
    const uint32_t extra = kind >= 0x80 ? (kind >> 4) & 7 : 0;
    const uint32_t flags = kind >= 0x80 ? packedLength : kind > maxCodeLen ? packedStop : 0;
    return (len + extra) | len << 8 | value << 16 | flags | packedOther;
}

/// Fills both first levels, 16 entries at a time.
void pack(PackedLevel& packed, const uint8_t* tables) {
    const __m128i low = _mm_set1_epi8(15);
    const __m128i root = _mm_set1_epi8(rootBits);
    const auto loadAt = [&](size_t at) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(tables + at));
    };
    const auto storeAt = [](uint32_t* at, __m128i half0, __m128i half1) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(at), _mm_unpacklo_epi16(half0, half1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(at + 4), _mm_unpackhi_epi16(half0, half1));
    };
    for (size_t i = 0; i < rootSize; i += 16) {
        const __m128i kinds = loadAt(litKindAt + i);
        const __m128i values = loadAt(litValueAt + i);
        const __m128i len = _mm_and_si128(kinds, low);
        const __m128i isLength = _mm_cmplt_epi8(kinds, _mm_setzero_si128());
        const __m128i extra =
            _mm_and_si128(_mm_and_si128(_mm_srli_epi16(kinds, 4), isLength), _mm_set1_epi8(7));
        const __m128i other = _mm_or_si128(isLength, _mm_cmpgt_epi8(kinds, root));
        const __m128i flags =
            _mm_and_si128(_mm_or_si128(_mm_and_si128(isLength, _mm_set1_epi8(0x40)),
                                       _mm_set1_epi8(static_cast<char>(0x80))),
                          other);
        const __m128i total = _mm_add_epi8(len, extra);
        storeAt(packed.lits + i, _mm_unpacklo_epi8(total, len), _mm_unpacklo_epi8(values, flags));
        storeAt(packed.lits + i + 8, _mm_unpackhi_epi8(total, len),
                _mm_unpackhi_epi8(values, flags));
    }
    for (size_t i = 0; i < rootSize; i += 16) {
        const __m128i kinds = loadAt(distKindAt + i);
        const __m128i len = _mm_and_si128(kinds, low);
        const __m128i extra = _mm_and_si128(_mm_srli_epi16(kinds, 4), low);
        const __m128i isLong = _mm_and_si128(_mm_cmpgt_epi8(len, root),
                                             _mm_set1_epi8(static_cast<char>(packedLongDistance)));
        const __m128i total = _mm_or_si128(_mm_add_epi8(len, extra), isLong);
        storeAt(packed.dists + i, _mm_unpacklo_epi8(total, len), loadAt(distBaseAt + 2 * i));
        storeAt(packed.dists + i + 8, _mm_unpackhi_epi8(total, len),
                loadAt(distBaseAt + 2 * i + 16));
    }
}

/// The tables as the kernel sees them through a packed first level.
class Packed {
 public:
    Packed(const PackedLevel& level, const TwoLevel& tables) : level_(level), tables_(tables) {}

    uint32_t look(Word bits) const { return level_.lits[bits & (rootSize - 1)]; }
    static uint32_t kind(uint32_t entry) { return entry; }
    static uint32_t value(uint32_t entry) { return (entry >> 16) & 0xFF; }
    static bool isShortLiteral(uint32_t entry) { return static_cast<int32_t>(entry) >= 0; }
    static bool isLiteral(uint32_t entry) { return (entry & (packedLength | packedStop)) == 0; }
    static bool isLength(uint32_t entry) { return (entry & packedLength) != 0; }
    static bool isLink(uint32_t) { return true; }
    uint32_t follow(uint32_t, Word bits) const {
        const Entry entry = tables_.lit(static_cast<uint32_t>(bits));
        return packLit(entry.kind, entry.value);
    }
    static uint32_t takeLength(uint32_t entry, Word& bits, uint32_t& count) {
        return value(entry) + minMatch + takeBits(entry, bits, count);
    }
    uint32_t lookDistance(Word bits) const { return level_.dists[bits & (rootSize - 1)]; }
    static bool isLongDistance(uint32_t entry) { return (entry & packedLongDistance) != 0; }
    static uint32_t takeDistance(uint32_t entry, Word& bits, uint32_t& count) {
        return (entry >> 16) + takeBits(entry, bits, count);
    }
    Entry dist(uint32_t bits) const { return tables_.dist(bits); }

 private:
    /// Takes an entry's code and extra bits, which are returned.
    static uint32_t takeBits(uint32_t entry, Word& bits, uint32_t& count) {
        const auto taken = static_cast<uint32_t>(bits) & ~(~0U << (entry % 32));
        bits >>= entry % wordBits;
        count -= entry;
        return taken >> ((entry >> 8) % 32);
    }

    const PackedLevel& level_;
    const TwoLevel& tables_;
};

}  // namespace

extern "C" {

Stop ownsInflateLong_8u(Run& run, const uint8_t* tables) {
    const TwoLevel plain(tables);
    PackedLevel level;
    bool packed = false;
    return runSteps(run, plain, [&] {
        if (!packed && run.srcEnd - run.src >= packedSource && run.dstEnd - run.dst >= packedRoom) {
            pack(level, tables);
            packed = true;
        }
        if (packed) {
            runFast(run, Packed(level, plain));
        } else {
            runFast(run, plain);
        }
    });
}

VekStatus veksInflate_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode,
                         uint32_t* pCodeLenBits, uint32_t winIdx, uint8_t** ppDst,
                         uint32_t* pDstLen, uint32_t dstIdx, int32_t* pMode, InflateState* state) {
    if (vek::anyNull(ppSrc, pSrcLen, pCode, pCodeLenBits, ppDst, pDstLen, pMode, state) ||
        vek::anyNull(*ppSrc, *ppDst)) {
        return vekStatusNullPointer;
    }
    if (*pCodeLenBits > 32 || state->windowSize < winIdx) return vekStatusBadSize;

    const uint8_t* const src = *ppSrc;
    uint8_t* const dst = *ppDst;
    const bool resumed = *pMode == static_cast<int32_t>(Stop::inside);
    Run run{};
    run.src = src;
    run.srcEnd = src + std::min<uintptr_t>(*pSrcLen, ~reinterpret_cast<uintptr_t>(src));
    run.dst = dst;
    // A caller who knows that the data fits may state any room.
    run.dstEnd = dst + std::min<uintptr_t>(*pDstLen, ~reinterpret_cast<uintptr_t>(dst));
    run.dstStart = dst - dstIdx;
    run.window = state->window;
    run.windowSize = state->window != nullptr ? state->windowSize : 0;
    run.winIdx = winIdx;
    run.nBits = *pCodeLenBits;
    run.bits = run.nBits < 32 ? *pCode & ((1U << run.nBits) - 1) : *pCode;
    run.step = stepSymbol;
    if (resumed) {
        run.step = state->savedStep;
        run.value = state->savedValue;
        run.extraBits = state->savedExtraBits & maxExtraBits;
        run.distance = state->savedDistance;
    }

    Stop stop = Stop::corrupt;
    if (state->tableKind == singleLevelTables) {
        stop = ownsInflateShort_8u(run, *state);
    } else if (state->tableKind == twoLevelTables) {
        stop = ownsInflateLong_8u(run, state->tables);
    } else if (state->tableKind == fixedTables) {
        stop = ownsInflateLong_8u(run, spec_table_fixed_Huffman.data());
    }
    // A caller inside a symbol asks to go on there, and is answered in the same way even if the
    // symbol is complete by now.
    if (stop == Stop::needInput && resumed) stop = Stop::inside;

    if (stop == Stop::inside) {
        state->savedStep = run.step;
        state->savedValue = run.value;
        state->savedExtraBits = run.extraBits;
        state->savedDistance = run.distance;
    }
    *ppSrc = run.src;
    *pSrcLen -= static_cast<uint32_t>(run.src - src);
    *pCode = run.bits;
    *pCodeLenBits = run.nBits;
    *ppDst = run.dst;
    *pDstLen -= static_cast<uint32_t>(run.dst - dst);
    if (stop == Stop::corrupt) return vekStatusSourceDataError;
    *pMode = static_cast<int32_t>(stop);
    return vekStatusOk;
}
}
