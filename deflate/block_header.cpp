// The header of a dynamic block, which announces its codes (RFC 1951, 3.2.7).
//
// It always lists the lengths of all 286 and 30 symbols, run-length coded, and the code of that
// coding in front of them.

#include <algorithm>

#include "bits/lsb_writer.h"
#include "deflate/canonical_codes.h"
#include "deflate/code_lengths.h"
#include "frame/args.h"
#include "vekdc.h"

using namespace vek::deflate;

namespace {

constexpr unsigned codeLengthSymbols = 19;
constexpr unsigned maxCodeLengthCodeLength = 7;

/// One symbol of the run-length coded code lengths.
struct LengthSymbol {
    uint8_t symbol;
    uint8_t extra;
};

/// Extra bits of the symbols 16, 17 and 18; none below.
constexpr uint32_t extraBitsOf(uint8_t symbol) {
    return symbol == 16 ? 2 : symbol == 17 ? 3 : symbol == 18 ? 7 : 0;
}

/// The run-length coded code lengths of both alphabets.
struct LengthList {
    LengthSymbol symbols[litLenSymbols + distSymbols];
    size_t count = 0;

    void put(unsigned symbol, size_t extra = 0) {
        symbols[count++] = {static_cast<uint8_t>(symbol), static_cast<uint8_t>(extra)};
    }

    void putZeros(size_t run) {
        if (run >= 11) return put(18, run - 11);
        if (run >= 3) return put(17, run - 3);
        while (run-- != 0) put(0);
    }

    void putRepeats(unsigned length, size_t run) {
        if (run >= 3) return put(16, run - 3);
        while (run-- != 0) put(length);
    }

    /// Adds one alphabet's lengths. A run never goes on from one alphabet into the other.
    void addTable(const VekHuffEntry* table, size_t n) {
        unsigned previous = 0;
        for (size_t s = 0; s < n;) {
            const unsigned length = table[s].length & maxCodeLength;
            if (length != 0 && length != previous) {
                put(length);
                previous = length;
                ++s;
                continue;
            }
            const size_t longest = std::min<size_t>(length == 0 ? 138 : 6, n - s);
            size_t run = 1;
            while (run < longest && (table[s + run].length & maxCodeLength) == length) ++run;
            if (length == 0) {
                putZeros(run);
                previous = 0;
            } else {
                putRepeats(length, run);
            }
            s += run;
        }
    }
};

/// The code of the code lengths, for the symbols that occur.
void makeLengthCode(const LengthList& list, VekHuffEntry (&code)[codeLengthSymbols]) {
    uint32_t frequencies[codeLengthSymbols] = {};
    for (size_t i = 0; i < list.count; ++i) ++frequencies[list.symbols[i].symbol];
    uint8_t used[codeLengthSymbols];
    int n = 0;
    for (uint8_t s = 0; s < codeLengthSymbols; ++s) {
        code[s] = {0, 0};
        if (frequencies[s] != 0) used[n++] = s;
    }
    uint8_t lengths[codeLengthSymbols];
    limitedLengths([&](size_t i) { return frequencies[used[i]]; }, n, maxCodeLengthCodeLength,
                   lengths);
    for (int i = 0; i < n; ++i) code[used[i]].length = lengths[i];
    assignCodes(code, codeLengthSymbols);
}

/// Order in which the header gives the code length code's own lengths.
constexpr uint8_t cod_len_cod[codeLengthSymbols] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                    11, 4,  12, 3, 13, 2, 14, 1, 15};

static_assert(3 + 5 + 5 + 4 <= vek::LsbWriter::freeBits &&
              maxCodeLengthCodeLength + extraBitsOf(18) <= vek::LsbWriter::freeBits);

}  // namespace

VekStatus veksDeflateLZ77FastestGenHeader_8u(const VekHuffEntry* pLitHuffTable,
                                             const VekHuffEntry* pDistHuffTable, uint8_t* pHeader,
                                             uint32_t* pHeaderLen, uint32_t* pHeaderBits) {
    if (vek::anyNull(pLitHuffTable, pDistHuffTable, pHeader, pHeaderLen, pHeaderBits))
        return vekStatusNullPointer;
    LengthList list;
    list.addTable(pLitHuffTable, litLenSymbols);
    list.addTable(pDistHuffTable, distSymbols);
    VekHuffEntry code[codeLengthSymbols];
    makeLengthCode(list, code);
    uint32_t listed = codeLengthSymbols;
    while (listed > 4 && code[cod_len_cod[listed - 1]].length == 0) --listed;

    vek::LsbWriter header(0, 0, pHeader);
    constexpr uint32_t finalDynamic = 1 | (2 << 1);  // BFINAL, BTYPE
    header.put({finalDynamic, 3});
    header.put({litLenSymbols - firstLengthSymbol, 5});
    header.put({distSymbols - 1, 5});
    header.put({listed - 4, 4});
    header.flushExact();
    for (uint32_t i = 0; i < listed; ++i) {
        header.put({code[cod_len_cod[i]].length, 3});
        header.flushExact();
    }
    for (size_t i = 0; i < list.count; ++i) {
        const LengthSymbol item = list.symbols[i];
        header.put({code[item.symbol].code, code[item.symbol].length});
        header.put({item.extra, extraBitsOf(item.symbol)});
        header.flushExact();
    }
    *pHeaderBits = header.bitsSince(pHeader);
    header.put({0, (8 - header.count()) % 8});
    header.flushExact();
    *pHeaderLen = static_cast<uint32_t>(header.position() - pHeader);
    return vekStatusOk;
}
