// Deflate's Huffman stage and the fastest path.

#include <map>

#include "bytes/words.h"
#include "support/deflate_ranges.h"
#include "support/deflate_reader.h"

#include "support/test.h"

#ifdef VEK_HAS_zlib
#include "support/zlib_peer.h"
#endif

using namespace vektest;

namespace {

constexpr size_t litSymbols = 286;
constexpr size_t distSymbols = 30;
constexpr size_t endOfBlock = 256;

using Table = std::vector<VekHuffEntry>;
using Counts = std::vector<uint32_t>;

Table fromFrequencies(const Counts& frequencies) {
    Table table(frequencies.size());
    std::memcpy(table.data(), frequencies.data(), frequencies.size() * sizeof(uint32_t));
    return table;
}

/// The construction as it is defined: an ordered list, a merged item in front of its equals.
std::vector<unsigned> lengthsByDefinition(const Counts& frequencies, unsigned limit) {
    std::vector<unsigned> lengths;
    for (uint32_t extra = 0; extra < 4096; ++extra) {
        lengths.assign(frequencies.size(), 1);
        std::multimap<uint64_t, std::vector<size_t>> items;  // symbols by weight, equals in order
        for (size_t s = 0; s < frequencies.size(); ++s)
            items.emplace(std::max<uint64_t>(uint64_t{frequencies[s]} + extra, 1), std::vector{s});
        while (items.size() > 2) {
            auto merged = items.extract(items.begin());
            const auto second = items.extract(items.begin());
            merged.key() += second.key();
            auto& symbols = merged.mapped();
            symbols.insert(symbols.end(), second.mapped().begin(), second.mapped().end());
            for (const size_t s : symbols) ++lengths[s];
            const auto equals = items.lower_bound(merged.key());
            items.insert(equals, std::move(merged));
        }
        if (*std::max_element(lengths.begin(), lengths.end()) <= limit) break;
    }
    return lengths;
}

constexpr int kinds = 5;
constexpr int beyondLimits = 5;  // a kind for which no code fits

/// Frequencies of every skew, from even to steeper than any limit allows.
Counts makeFrequencies(size_t n, Random& random, int kind) {
    Counts frequencies(n);
    uint32_t a = 1, b = 1;
    for (size_t s = 0; s < n; ++s) {
        uint32_t& frequency = frequencies[s];
        if (kind == 1) frequency = pick<uint32_t>(random, 0, 3);
        if (kind == 2 || (kind == 3 && random() % 5 == 0))
            frequency = pick<uint32_t>(random, 0, 60000);
        if (kind == 4 && s % (n / 15) == 0) {
            frequency = a;
            a = std::exchange(b, a + b);
        }
        if (kind == beyondLimits && s < distSymbols) frequency = 1U << s;
    }
    std::shuffle(frequencies.begin(), frequencies.end(), random);
    return frequencies;
}

struct Codes {
    Table lit = Table(litSymbols);
    Table dist = Table(distSymbols);
};

VekStatus makeCodes(const Counts& lit, const Counts& dist, Codes& codes) {
    return veksDeflateLZ77FastestGenHuffTable_8u(fromFrequencies(lit).data(),
                                                 fromFrequencies(dist).data(), codes.lit.data(),
                                                 codes.dist.data());
}

/// Codes that random frequencies give.
Codes makeCodes(Random& random, size_t round) {
    const int kind = static_cast<int>(round % kinds);
    Codes codes;
    EXPECT_EQ(makeCodes(makeFrequencies(litSymbols, random, kind),
                        makeFrequencies(distSymbols, random, kind), codes),
              vekStatusOk);
    return codes;
}

#ifdef VEK_HAS_zlib
/// What an entry holds before it becomes a code.
uint32_t countOf(const VekHuffEntry& entry) {
    return vek::load<uint32_t>(&entry);
}

/// A stream of one block in some code: `write(dst, index, code, bits)` puts the pairs behind the
/// header, in `room` bytes; `held` whole bytes of that are still in the bit buffer.
template <class Write>
Bytes makeBlock(const Codes& codes, uint32_t room, uint32_t held, Write write) {
    uint8_t header[VEK_DEFLATE_HEADER_BOUND + sizeof(uint32_t)] = {};
    uint32_t index = 0, bits = 0;
    veksDeflateLZ77FastestGenHeader_8u(codes.lit.data(), codes.dist.data(), header, &index, &bits);
    index = bits / 8 - held;
    bits = bits % 8 + 8 * held;
    uint32_t code = 0;
    std::memcpy(&code, header + index, sizeof(code));
    Guarded out(index + room);
    std::memcpy(out.data(), header, index);
    write(out.data(), index, code, bits);
    Bytes coded(out.data(), out.data() + index);
    const VekHuffEntry end = codes.lit[endOfBlock];
    uint64_t last = code | uint64_t{end.code} << bits;
    for (bits += end.length; bits != 0; bits -= std::min(bits, 8U), last >>= 8)
        coded.push_back(static_cast<uint8_t>(last));
    return coded;
}
#endif

}  // namespace

TEST(DeflateCodes, LengthsAreThoseOfTheDefinitionAndCodesAreCanonical) {
    Random random(41);
    for (size_t round = 0; round <= effort(60); ++round) {
        const int kind = round == 0 ? beyondLimits : static_cast<int>(round % kinds);
        const auto lit = makeFrequencies(litSymbols, random, kind == beyondLimits ? 0 : kind);
        const auto dist = makeFrequencies(distSymbols, random, kind);
        Codes codes;
        ASSERT_EQ(makeCodes(lit, dist, codes),
                  kind == beyondLimits ? vekStatusFailure : vekStatusOk);
        for (const auto& [table, lengths] : {std::pair(codes.lit, lengthsByDefinition(lit, 15)),
                                             std::pair(codes.dist, lengthsByDefinition(dist, 9))}) {
            for (size_t s = 0; s < table.size(); ++s)
                ASSERT_EQ(table[s].length, lengths[s]) << "kind " << kind << " symbol " << s;
            // Canonical and complete: by length, then symbol, the codes read as fractions grow by
            // the lengths' share, and come to 1. Those that fit keep apart where others do not.
            uint32_t next = 0;
            for (unsigned length = 1; length <= 15; ++length)
                for (const VekHuffEntry& entry : table) {
                    if (entry.length != length) continue;
                    ASSERT_EQ(vek::reverseBits(entry.code, 16), next);
                    next += 1U << (16 - length);
                }
            if (kind != beyondLimits) {
                ASSERT_EQ(next, 1U << 16);
            }
        }
    }
}

TEST(DeflateCodes, HeadersReadBackAsTheLengths) {
    Random random(42);
    for (size_t round = 0; round < effort(200); ++round) {
        Codes codes = makeCodes(random, round);
        if (round % 2 == 1) {
            // Codes of a caller's own, with long runs of unused symbols and of one length.
            for (Table* table : {&codes.lit, &codes.dist})
                for (size_t s = 0; s < table->size();) {
                    const size_t run = std::min(pick(random, 1, 160), table->size() - s);
                    const auto length =
                        static_cast<uint16_t>(random() % 2 == 0 ? 0 : pick(random, 1, 15));
                    for (size_t i = 0; i < run; ++i) (*table)[s++].length = length;
                }
        }
        Guarded header(VEK_DEFLATE_HEADER_BOUND);
        uint32_t length = 0, bits = 0;
        ASSERT_EQ(veksDeflateLZ77FastestGenHeader_8u(codes.lit.data(), codes.dist.data(),
                                                     header.data(), &length, &bits),
                  vekStatusOk);
        ASSERT_EQ(length, (bits + 7) / 8);
        BitSource in{header.data(), header.data() + length};
        ASSERT_EQ(in.take(3), 1U | 2U << 1);
        Table all = codes.lit;
        all.insert(all.end(), codes.dist.begin(), codes.dist.end());
        ASSERT_TRUE(readCodeLengths(in, [&](const uint16_t* lengths, uint32_t nLit,
                                            uint32_t nDist) {
            return nLit == litSymbols && nDist == distSymbols &&
                   std::equal(all.begin(), all.end(), lengths,
                              [](VekHuffEntry entry, uint16_t len) { return entry.length == len; });
        }));
        ASSERT_EQ(static_cast<size_t>(in.src - header.data()) * 8 - in.nBits, bits);
        ASSERT_EQ(in.code, 0U) << "padding";
    }
}

#ifdef VEK_HAS_zlib
TEST(DeflateCoding, BothLoopsWriteWhatZlibReadsAndNothingBehindIt) {
    Random random(43);
    const Bytes history = shapes()[1].make(32768, 43);
    for (const uint32_t count : {0, 1, 2, 63, 64, 65, 2047, 2048, 2049, 2112, 5000})
        for (size_t round = 0; round < effort(8); ++round) {
            const Codes codes = makeCodes(random, round);
            Guarded lits(count);
            Guarded dists(size_t{2} * count);
            auto* dist = reinterpret_cast<uint16_t*>(dists.data());
            Bytes text = history;
            // Every other time the shortest code comes last, of which wide stores run farthest on,
            // and the longest first, behind what the bit buffer holds.
            const auto [shortest, longest] = std::minmax_element(
                codes.lit.begin(), codes.lit.begin() + 256,
                [](VekHuffEntry a, VekHuffEntry b) { return a.length < b.length; });
            const auto held = static_cast<uint32_t>(round % 4);
            for (size_t i = 0; i < count; ++i) {
                const bool first = round % 2 != 0 && i < 8;
                const bool last = round % 2 != 0 && (first || i + 70 > count);
                const auto lit = static_cast<uint8_t>(
                    last ? (first ? longest : shortest) - codes.lit.begin() : random());
                const size_t far[] = {0, 0, pick(random, 1, 300), pick(random, 1, 32768)};
                lits.data()[i] = lit;
                dist[i] = static_cast<uint16_t>(last ? 0 : far[random() % 4]);
                if (dist[i] == 0) text.push_back(lit);
                for (int k = -3; dist[i] != 0 && k < lit; ++k)
                    text.push_back(text[text.size() - dist[i]]);
            }
            const uint32_t room = vekDeflateHuffBound(count);
            const auto write = [&](uint8_t* dst, uint32_t& index, uint32_t& code, uint32_t& bits) {
                std::fill_n(dst + index, room, uint8_t{0xEE});
                uint8_t* const end = dst + index + room;
                EXPECT_EQ(veksDeflateHuff_8u(lits.data(), dist, count, &code, &bits,
                                             codes.lit.data(), codes.dist.data(), dst, &index),
                          vekStatusOk);
                EXPECT_TRUE(bits < 8 && code >> bits == 0);
                EXPECT_EQ(std::count(dst + index, end, 0xEE), end - (dst + index));
            };
            const Bytes coded = makeBlock(codes, room, held, write);
            text.erase(text.begin(), text.begin() + 32768);
            ASSERT_EQ(zlibInflate(coded, -15, text.size(), history), text) << count << " pairs";
        }
}

TEST(DeflateFastest, StatisticsForetellTheStreamAndTheStreamGivesBackTheSource) {
    Random random(44);
    for (const Shape& shape : shapes())
        for (const size_t size : {1, 3, 4, 5, 100, 5000, 70000}) {
            Guarded source(shape.make(size, static_cast<uint32_t>(size)));
            const auto length = static_cast<int32_t>(size);
            const auto hashSize = static_cast<uint32_t>(size % 2 == 0 ? 65536 : 300);
            Guarded head(4 * hashSize);
            auto* table = reinterpret_cast<uint32_t*>(head.data());
            std::generate_n(table, hashSize, std::ref(random));
            Codes own, general;
            ASSERT_EQ(veksDeflateLZ77FastestGetStat_8u(source.data(), length, table, hashSize,
                                                       own.lit.data(), own.dist.data()),
                      vekStatusOk);
            own.lit[endOfBlock].code = 1;
            const Codes counts = own;
            veksDeflateLZ77FastestGenHuffTable_8u(own.lit.data(), own.dist.data(), own.lit.data(),
                                                  own.dist.data());
            uint8_t header[VEK_DEFLATE_HEADER_BOUND];
            uint32_t headerSize[2];
            veksDeflateLZ77FastestPrecompHeader_8u(general.lit.data(), general.dist.data(), header,
                                                   &headerSize[0], &headerSize[1]);
            for (const Codes& codes : {own, general}) {
                // Of the codes and extra bits, as the counts tell, without the end of the block.
                size_t foretold = 0;
                for (unsigned i = 0; i < litSymbols; ++i) {
                    const unsigned extra = i <= endOfBlock ? 0 : findLength(ofCode(i - 257)).extra;
                    if (i != endOfBlock)
                        foretold += countOf(counts.lit[i]) * (codes.lit[i].length + extra);
                }
                for (unsigned i = 0; i < distSymbols; ++i)
                    foretold += countOf(counts.dist[i]) *
                                (codes.dist[i].length + findDistance(ofCode(i)).extra);
                const uint32_t room = vekDeflateFastestBound(length);
                const auto write = [&](uint8_t* dst, uint32_t& index, uint32_t& code,
                                       uint32_t& bits) {
                    const uint32_t start = index, before = bits;
                    uint32_t written = room;
                    EXPECT_EQ(veksDeflateLZ77Fastest_8u(source.data(), length, table, hashSize,
                                                        &code, &bits, codes.lit.data(),
                                                        codes.dist.data(), dst, &written, &index),
                              vekStatusOk);
                    EXPECT_EQ(index, start + written);
                    EXPECT_EQ(size_t{8} * written + bits - before, foretold);
                };
                ASSERT_EQ(zlibInflate(makeBlock(codes, room, size % 4, write), -15, size),
                          source.bytes())
                    << shape.name << " " << size;
            }
        }
}
#endif

TEST(DeflateFastest, ReachesBackAWholeWindowAndNoFarther) {
    for (const size_t distance : {32767, 32768, 32769}) {
        Bytes data(distance + 8);
        for (size_t i = 0; i < 8; ++i) data[i] = data[distance + i] = static_cast<uint8_t>(200 + i);
        std::vector<uint32_t> head(65536);
        Codes counts;
        veksDeflateLZ77FastestGetStat_8u(data.data(), static_cast<int32_t>(data.size()),
                                         head.data(), 65536, counts.lit.data(), counts.dist.data());
        EXPECT_EQ(counts.dist[29].code, distance <= 32768 ? 1 : 0) << distance;
    }
}

TEST(DeflateHuffman, RefusedCallsTouchNothing) {
    Codes codes;
    VekHuffEntry* const litTable = codes.lit.data();
    VekHuffEntry* const distTable = codes.dist.data();
    const uint8_t lit = 0;
    const uint16_t dist = 0;
    uint32_t code = 5, bits = 33, index = 7, room = 10;
    uint8_t out[64] = {};
    std::vector<uint32_t> head(256, 9);
    const auto fastest = [&](uint32_t hashSize, uint32_t* count) {
        return veksDeflateLZ77Fastest_8u(&lit, 1, head.data(), hashSize, &code, count, litTable,
                                         distTable, out, &room, &index);
    };
    const std::pair<VekStatus, VekStatus> calls[] = {
        {veksDeflateHuff_8u(&lit, &dist, 1, &code, &bits, litTable, distTable, out, &index),
         vekStatusBadSize},
        {veksDeflateLZ77FastestGetStat_8u(&lit, 0, head.data(), 256, litTable, distTable),
         vekStatusBadSize},
        {veksDeflateLZ77FastestGetStat_8u(&lit, 1, head.data(), 255, litTable, distTable),
         vekStatusBadSize},
        {fastest(256, &bits), vekStatusBadSize},  // more than 32 bits
        {fastest(65537, &index), vekStatusBadSize},
        {fastest(256, &index), vekStatusBadSize},  // too little room
    };
    for (const auto& call : calls) EXPECT_EQ(call.first, call.second) << "call " << &call - calls;
    EXPECT_EQ(std::tuple(code, bits, index, room, head[0]), std::tuple(5U, 33U, 7U, 10U, 9U));
    EXPECT_TRUE(std::all_of(out, out + sizeof(out), [](uint8_t byte) { return byte == 0; }));
}
