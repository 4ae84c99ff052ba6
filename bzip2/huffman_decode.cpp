// Bzip2's Huffman stage, decoder: the table description, then the block's symbols.
//
// Both readers stop at any bit for want of input and resume there. The description's reader keeps
// its phase and position in the record; the symbols' reader needs only the group and the position
// in it, since it takes a symbol whole or not at all.
//
// A code of up to eight bits is one lookup; the length of a longer one is found among the values
// where the codes of each length end. For long inputs the kernel first widens the lookup to ten
// bits, on the stack, and reads the stream a machine word at a time from its bit position, so that
// no count of pending bits is carried from symbol to symbol.

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "bits/msb_reader.h"
#include "bytes/words.h"
#include "bzip2/huffman_format.h"
#include "frame/args.h"
#include "vekdc.h"

using namespace vek::bzip2;
using vek::MsbCursor;
using vek::MsbReader;

namespace {

constexpr int fastBits = 8;
constexpr int shortestLong = fastBits + 1;
constexpr int scale =
    32 - maxCodeLength;  // the limits compare the stream's next maxCodeLength bits

/// Decoding tables of one code. An entry is a symbol above a 4-bit length; 0 is no code of that
/// length.
struct DecodeTable {
    uint32_t limits[maxCodeLength - fastBits +
                    1];                // end of the codes of 8, 9 ... 20 bits, as 20-bit values
    int16_t bases[maxCodeLength + 1];  // place in `symbols` of a length's code 0
    uint16_t fast[1 << fastBits];
    uint16_t symbols[maxAlphabet];  // by length, then symbol
};

enum Phase : int32_t { phaseCounts = 0, phaseSelectors = 1, phaseLengths = 2 };

}  // namespace

struct VekBz2HuffDecState {
    int32_t phase;
    int32_t tableCount;
    int32_t itemsRead;      // selectors, or tables, read in this phase
    int32_t itemPart;       // ones read of a selector; symbols read of a table
    int32_t currentLength;  // 0 until a table's starting length is read
    int32_t selectorCount;
    int32_t alphaSize;
    int32_t group;
    int32_t positionInGroup;
    uint8_t selectorOrder[8];
    uint8_t lengths[maxTables][maxAlphabet];
    DecodeTable tables[maxTables];
    uint8_t reserved[988];
    uint8_t selectors[1];  // one a group
};

namespace {

constexpr size_t fixedSize = offsetof(VekBz2HuffDecState, selectors);
static_assert(fixedSize == 9324 && offsetof(VekBz2HuffDecState, phase) == 0);

static_assert(18 <= MsbReader::mostNeeded && maxCodeLength <= MsbReader::mostNeeded);

VekStatus readCounts(MsbReader& in, VekBz2HuffDecState& state) {
    // Until the description is read the record has no tables, those of a block before included.
    state.tableCount = 0;
    if (!in.need(18)) return vekStatusSourceIncomplete;
    const auto tableCount = static_cast<int32_t>(in.take(3));
    state.selectorCount = static_cast<int32_t>(in.take(15));
    if (vek::outside(tableCount, minTables, maxTables) || state.selectorCount == 0) {
        return vekStatusSourceDataError;
    }
    state.tableCount = tableCount;
    for (int i = 0; i < maxTables; ++i) state.selectorOrder[i] = static_cast<uint8_t>(i);
    return vekStatusOk;
}

VekStatus readSelectors(MsbReader& in, VekBz2HuffDecState& state) {
    while (state.itemsRead < state.selectorCount) {
        if (!in.need(1)) return vekStatusSourceIncomplete;
        if (in.take(1) != 0) {
            if (++state.itemPart >= state.tableCount) return vekStatusSourceDataError;
            continue;
        }
        const uint8_t table = state.selectorOrder[state.itemPart];
        std::memmove(state.selectorOrder + 1, state.selectorOrder,
                     static_cast<size_t>(state.itemPart));
        state.selectorOrder[0] = table;
        state.selectors[state.itemsRead++] = table;
        state.itemPart = 0;
    }
    return vekStatusOk;
}

/// Reads the lengths of one table, from where an earlier call stopped.
VekStatus readTableLengths(MsbReader& in, VekBz2HuffDecState& state, uint8_t* lengths) {
    if (state.currentLength == 0) {
        if (!in.need(5)) return vekStatusSourceIncomplete;
        state.currentLength = static_cast<int32_t>(in.take(5));
        if (vek::outside(state.currentLength, 1, maxCodeLength)) return vekStatusSourceDataError;
    }
    while (state.itemPart < state.alphaSize) {
        if (!in.need(1)) return vekStatusSourceIncomplete;
        if (in.peek(1) == 0) {
            in.drop(1);
            lengths[state.itemPart++] = static_cast<uint8_t>(state.currentLength);
            continue;
        }
        if (!in.need(2)) return vekStatusSourceIncomplete;
        state.currentLength += in.take(2) == 0b10 ? 1 : -1;
        if (vek::outside(state.currentLength, 1, maxCodeLength)) return vekStatusSourceDataError;
    }
    return vekStatusOk;
}

/// Writes the entries of the codes of at most `bits` bits into a lookup of 2^bits entries.
void fillLookup(const uint8_t* lengths, int32_t alphaSize, const uint32_t* first, int bits,
                uint16_t* lookup) {
    uint32_t next[maxCodeLength + 1];
    std::memcpy(next, first, sizeof(next));
    std::memset(lookup, 0, sizeof(uint16_t) << bits);
    for (int32_t s = 0; s < alphaSize; ++s) {
        const int length = lengths[s];
        if (length > bits) continue;
        const uint32_t begin = next[length]++ << (bits - length);
        std::fill_n(lookup + begin, size_t{1} << (bits - length),
                    static_cast<uint16_t>((s << 4) | length));
    }
}

/// Counts a table's lengths and finds the first code of each; false when they are over-subscribed.
bool layOutCodes(const uint8_t* lengths, int32_t alphaSize, uint32_t* counts, uint32_t* first) {
    std::fill_n(counts, maxCodeLength + 1, 0U);
    for (int32_t s = 0; s < alphaSize; ++s) ++counts[lengths[s]];
    uint32_t code = 0;
    for (int length = 1; length <= maxCodeLength; ++length) {
        code = 2 * code + counts[length];
        if (code > (UINT32_C(1) << length)) return false;
    }
    firstCodes(counts, first);
    return true;
}

bool buildTable(const uint8_t* lengths, int32_t alphaSize, DecodeTable& table) {
    uint32_t counts[maxCodeLength + 1];
    uint32_t first[maxCodeLength + 1] = {};
    if (!layOutCodes(lengths, alphaSize, counts, first)) return false;
    fillLookup(lengths, alphaSize, first, fastBits, table.fast);
    int32_t place[maxCodeLength + 1];
    int32_t total = 0;
    for (int length = 1; length <= maxCodeLength; ++length) {
        place[length] = total;
        table.bases[length] = static_cast<int16_t>(total);
        total += static_cast<int32_t>(counts[length]);
        if (length >= fastBits) {
            table.limits[length - fastBits] = (first[length] + counts[length])
                                              << (maxCodeLength - length);
        }
    }
    for (int32_t s = 0; s < alphaSize; ++s)
        table.symbols[place[lengths[s]]++] = static_cast<uint16_t>(s);
    return true;
}

VekStatus readTables(MsbReader& in, VekBz2HuffDecState& state) {
    while (state.itemsRead < state.tableCount) {
        uint8_t* lengths = state.lengths[state.itemsRead];
        const VekStatus status = readTableLengths(in, state, lengths);
        if (status != vekStatusOk) return status;
        if (!buildTable(lengths, state.alphaSize, state.tables[state.itemsRead]))
            return vekStatusSourceDataError;
        ++state.itemsRead;
        state.itemPart = 0;
        state.currentLength = 0;
    }
    return vekStatusOk;
}

void enter(VekBz2HuffDecState& state, Phase phase) {
    state.phase = phase;
    state.itemsRead = 0;
    state.itemPart = 0;
    state.currentLength = 0;
}

VekStatus unpack(MsbReader& in, VekBz2HuffDecState& state) {
    VekStatus status = vekStatusOk;
    if (state.phase == phaseCounts) {
        status = readCounts(in, state);
        if (status != vekStatusOk) return status;
        enter(state, phaseSelectors);
    }
    if (state.phase == phaseSelectors) {
        status = readSelectors(in, state);
        if (status != vekStatusOk) return status;
        enter(state, phaseLengths);
    }
    status = readTables(in, state);
    if (status != vekStatusOk) return status;
    enter(state, phaseCounts);
    state.group = 0;
    state.positionInGroup = 0;
    return vekStatusOk;
}

/// A symbol above its length, or 0.
constexpr uint32_t found(uint32_t symbol, uint32_t length) {
    return (symbol << 8) | length;
}

/// Decodes a code longer than the fast lookup's from the stream's next maxCodeLength bits; 0 when
/// no symbol of such a length has it.
uint32_t decodeLong(const DecodeTable& table, uint32_t bits20) {
    if (bits20 < table.limits[0]) return 0;
    for (uint32_t length = shortestLong; length <= maxCodeLength; ++length) {
        if (bits20 >= table.limits[length - fastBits]) continue;
        const uint32_t code =
            (bits20 - table.limits[length - 1 - fastBits]) >> (maxCodeLength - length);
        return found(table.symbols[static_cast<uint32_t>(table.bases[length]) + code], length);
    }
    return 0;
}

/// The kernel's lookup: as the record's, wider, and with the end of block left out so that it is
/// met where the rare cases are.
constexpr int wideBits = 10;
using WideLookup = uint16_t[1 << wideBits];

/// Symbols that one look at the stream serves.
constexpr int symbolsPerWord = MsbCursor::validBits / maxCodeLength;

/// One call's work: the symbols' output and the place in the groups, as local copies.
class SymbolDecoder {
 public:
    SymbolDecoder(const VekBz2HuffDecState& state, uint16_t* dst, int32_t room)
        : state_(state),
          group_(state.group),
          position_(state.positionInGroup),
          dst_(dst),
          room_(room) {}

    VekStatus run(MsbReader& in) {
        const uint8_t* begin = in.src;
        for (;;) {
            const bool betweenGroups = position_ == 0 || position_ == groupSize;
            if (betweenGroups && in.left() >= worthTheTables) decodeFast(in, begin);
            if (written_ == room_) return vekStatusDestinationFull;
            if (!in.need(maxCodeLength)) return vekStatusSourceIncomplete;
            enterGroup();
            if (group_ >= state_.selectorCount) return vekStatusError;
            const DecodeTable& table = state_.tables[state_.selectors[group_]];
            const uint32_t fast = table.fast[in.peek(fastBits)];
            const uint32_t next =
                fast != 0 ? found(fast >> 4, fast & 15) : decodeLong(table, in.bits >> scale);
            if (next == 0) return vekStatusError;
            in.drop(static_cast<int>(next & 0xFF));
            ++position_;
            dst_[written_] = static_cast<uint16_t>(next >> 8);
            if (next >> 8 == endOfBlock()) {
                group_ = 0;
                position_ = 0;
                return vekStatusOk;
            }
            ++written_;
        }
    }

    int32_t group() const { return group_; }
    int32_t position() const { return position_; }
    int32_t written() const { return written_; }

 private:
    static constexpr int32_t worthTheTables =
        2048;  // input bytes that pay for widening the lookups
    static constexpr int32_t bytesOfGroup =
        (groupSize * maxCodeLength + 7) / 8 + static_cast<int32_t>(sizeof(size_t));

    uint32_t endOfBlock() const { return static_cast<uint32_t>(state_.alphaSize - 1); }

    void enterGroup() {
        if (position_ < groupSize) return;
        position_ = 0;
        ++group_;
    }

    bool widenLookups() {
        for (int32_t t = 0; t < state_.tableCount; ++t) {
            uint32_t counts[maxCodeLength + 1];
            uint32_t first[maxCodeLength + 1] = {};
            if (!layOutCodes(state_.lengths[t], state_.alphaSize, counts, first)) return false;
            fillLookup(state_.lengths[t], state_.alphaSize, first, wideBits, lookups_[t]);
            for (uint16_t& entry : lookups_[t]) {
                if (entry >> 4 == endOfBlock()) entry = 0;
            }
        }
        return true;
    }

    /// Decodes whole groups while input and room for one are certain, and stops in front of
    /// whatever is the careful loop's: the end of block, a code that no symbol has, the last
    /// groups. `begin` is the start of the call's input; pending bits from before it cannot be read
    /// from a position in it.
    void decodeFast(MsbReader& in, const uint8_t* begin) {
        const auto taken = static_cast<size_t>(in.src - begin);
        if (8 * taken < static_cast<size_t>(in.count) ||
            (!widened_ && !(widened_ = widenLookups())))
            return;
        MsbCursor stream{begin, 8 * taken - static_cast<size_t>(in.count)};
        const size_t size = taken + static_cast<size_t>(in.left());
        bool goesOn = true;
        while (goesOn && room_ - written_ >= groupSize &&
               size - (stream.bit >> 3) >= bytesOfGroup) {
            enterGroup();
            if (group_ >= state_.selectorCount) break;
            goesOn = decodeGroup(stream);
        }
        const size_t consumed = (stream.bit + 7) / 8;
        in.count = static_cast<int32_t>(8 * consumed - stream.bit);
        in.bits = in.count == 0 ? 0 : static_cast<uint32_t>(begin[consumed - 1]) << (32 - in.count);
        in.src = begin + consumed;
    }

    /// The kernel's next symbol above its length; 0 for what is the careful loop's.
    uint32_t decodeWide(const WideLookup& lookup, const DecodeTable& table, size_t word) const {
        const uint32_t wide = lookup[word >> (MsbCursor::wordBits - wideBits)];
        // Long codes stand for rare symbols: they are kept out of the loop's straight code.
        if (wide != 0) [[likely]]
            return found(wide >> 4, wide & 15);
        const auto bits20 = static_cast<uint32_t>(word >> (MsbCursor::wordBits - maxCodeLength));
        const uint32_t next = decodeLong(table, bits20);
        return next >> 8 == endOfBlock() ? 0 : next;
    }

    /// Decodes a group from its start; false when it stopped in front of a symbol.
    bool decodeGroup(MsbCursor& stream) {
        const uint8_t selector = state_.selectors[group_];
        const WideLookup& lookup = lookups_[selector];
        const DecodeTable& table = state_.tables[selector];
        MsbCursor position = stream;
        uint16_t* dst = dst_ + written_;
        int32_t i = 0;
        bool goesOn = true;
        while (goesOn && i < groupSize) {
            size_t word = position.word();
            for (int k = 0; k < symbolsPerWord; ++k) {
                const uint32_t next = decodeWide(lookup, table, word);
                goesOn = next != 0;
                if (!goesOn) break;
                dst[i++] = static_cast<uint16_t>(next >> 8);
                word <<= next & 0xFF;
                position.bit += next & 0xFF;
            }
        }
        stream = position;
        position_ = i;
        written_ += i;
        return goesOn;
    }

    const VekBz2HuffDecState& state_;
    int32_t group_;
    int32_t position_;
    uint16_t* dst_;
    int32_t room_;
    int32_t written_ = 0;
    bool widened_ = false;
    WideLookup lookups_[maxTables];
};

/// True when the counters of a record lie where its own functions can have left them.
bool isSound(const VekBz2HuffDecState& state) {
    return !vek::outside(state.alphaSize, 1, maxAlphabet) &&
           !vek::outside(state.itemsRead, 0, maxSelectors) &&
           !vek::outside(state.itemPart, 0, maxAlphabet) &&
           !vek::outside(state.tableCount, 0, maxTables) && state.group >= 0 &&
           !vek::outside(state.positionInGroup, 0, groupSize);
}

/// True when a description was read to its end and what it says is there.
bool hasTables(const VekBz2HuffDecState& state) {
    return isSound(state) && state.phase == phaseCounts && state.tableCount >= minTables;
}

}  // namespace

VekStatus veksDecodeHuffGetSize_BZ2_8u16u(int32_t len, int32_t* pSize) {
    if (vek::anyNull(pSize)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    *pSize = groupsOf(len) + static_cast<int32_t>(fixedSize);
    return vekStatusOk;
}

VekStatus veksDecodeHuffInit_BZ2_8u16u(int32_t alphaSize, VekBz2HuffDecState* pState) {
    if (vek::anyNull(pState)) return vekStatusNullPointer;
    if (vek::outside(alphaSize, 1, maxAlphabet)) return vekStatusBadSize;
    enter(*pState, phaseCounts);
    pState->alphaSize = alphaSize;
    pState->tableCount = 0;
    pState->selectorCount = 0;
    pState->group = 0;
    pState->positionInGroup = 0;
    return vekStatusOk;
}

VekStatus veksUnpackHuffContext_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits,
                                          const uint8_t** ppSrc, int32_t* pSrcLen,
                                          VekBz2HuffDecState* pState) {
    if (vek::anyNull(pCode, pCodeLenBits, ppSrc, pSrcLen, pState) || *ppSrc == nullptr) {
        return vekStatusNullPointer;
    }
    if (*pSrcLen < 1 || vek::outside(*pCodeLenBits, 0, 32)) return vekStatusBadSize;
    if (vek::outside<int32_t>(pState->phase, phaseCounts, phaseLengths) || !isSound(*pState))
        return vekStatusError;
    MsbReader in = MsbReader::after(*pCode, *pCodeLenBits, *ppSrc, *ppSrc + *pSrcLen);
    const VekStatus status = unpack(in, *pState);
    *pCode = in.bits;
    *pCodeLenBits = in.count;
    *ppSrc = in.src;
    *pSrcLen = static_cast<int32_t>(in.left());
    return status;
}

VekStatus veksDecodeHuff_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits, const uint8_t** ppSrc,
                                   int32_t* pSrcLen, uint16_t* pDst, int32_t* pDstLen,
                                   VekBz2HuffDecState* pState) {
    if (vek::anyNull(pCode, pCodeLenBits, ppSrc, pSrcLen, pDst, pDstLen, pState) ||
        *ppSrc == nullptr) {
        return vekStatusNullPointer;
    }
    if (*pSrcLen < 0 || *pDstLen < 1 || vek::outside(*pCodeLenBits, 0, 32)) return vekStatusBadSize;
    if (!hasTables(*pState)) return vekStatusError;
    MsbReader in = MsbReader::after(*pCode, *pCodeLenBits, *ppSrc, *ppSrc + *pSrcLen);
    SymbolDecoder decoder(*pState, pDst, *pDstLen);
    const VekStatus status = decoder.run(in);
    pState->group = decoder.group();
    pState->positionInGroup = decoder.position();
    *pCode = in.bits;
    *pCodeLenBits = in.count;
    *ppSrc = in.src;
    *pSrcLen = static_cast<int32_t>(in.left());
    *pDstLen = decoder.written();
    return status;
}
