// Deflate's Huffman stage, the fastest path, and whole streams of the tool's encoder.

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <numeric>
#include <tuple>

#include "support/data.h"
#include "support/deflate_ranges.h"
#include "support/deflate_reader.h"
#include "support/guarded.h"
#include "tools/vekdc/deflate_stream.h"
#include "tools/vekdc/inflate_stream.h"
#include "vekdc.h"

#ifdef VEK_HAS_zlib
#include <zlib.h>
#endif

using namespace vektest;
using vekdc::DeflateEncoder;

namespace {

constexpr size_t litSymbols = 286;
constexpr size_t distSymbols = 30;
constexpr size_t endOfBlock = 256;

using Table = std::vector<VekHuffEntry>;

Table fromFrequencies(const std::vector<uint32_t>& frequencies) {
    Table table(frequencies.size());
    std::memcpy(table.data(), frequencies.data(), frequencies.size() * sizeof(uint32_t));
    return table;
}

/// The construction as it is defined: an ordered list, a merged item in front of its equals.
std::vector<unsigned> lengthsByDefinition(const std::vector<uint32_t>& frequencies,
                                          unsigned limit) {
    struct Item {
        uint64_t weight;
        std::vector<size_t> symbols;
    };
    std::vector<unsigned> lengths;
    for (uint32_t extra = 0; extra < 4096; ++extra) {
        lengths.assign(frequencies.size(), 1);
        std::vector<Item> sorted;
        for (size_t s = 0; s < frequencies.size(); ++s) {
            sorted.push_back({std::max<uint64_t>(uint64_t{frequencies[s]} + extra, 1), {s}});
        }
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const Item& a, const Item& b) { return a.weight < b.weight; });
        std::list<Item> items(sorted.begin(), sorted.end());
        while (items.size() > 2) {
            Item merged = items.front();
            items.pop_front();
            merged.weight += items.front().weight;
            merged.symbols.insert(merged.symbols.end(), items.front().symbols.begin(),
                                  items.front().symbols.end());
            items.pop_front();
            for (const size_t s : merged.symbols) ++lengths[s];
            const auto at = std::find_if(items.begin(), items.end(),
                                         [&](const Item& i) { return i.weight >= merged.weight; });
            items.insert(at, merged);
        }
        if (*std::max_element(lengths.begin(), lengths.end()) <= limit) break;
    }
    return lengths;
}

constexpr int kinds = 5;
constexpr int beyondLimits = 5;  // a kind for which no code fits

/// Frequencies of every skew, from even to steeper than any limit allows.
std::vector<uint32_t> makeFrequencies(size_t n, Random& random, int kind) {
    std::vector<uint32_t> frequencies(n);
    uint32_t a = 1;
    uint32_t b = 1;
    for (size_t s = 0; s < n; ++s) {
        uint32_t& frequency = frequencies[s];
        if (kind == 1) frequency = static_cast<uint32_t>(pick(random, 0, 3));
        if (kind == 2 || (kind == 3 && random() % 5 == 0))
            frequency = static_cast<uint32_t>(pick(random, 0, 60000));
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

VekStatus makeCodes(const std::vector<uint32_t>& lit, const std::vector<uint32_t>& dist,
                    Codes& codes) {
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

/// A stream of bits by its definition, first bit lowest.
struct Bits {
    std::vector<bool> bits;

    void put(uint32_t value, unsigned count) {
        for (unsigned i = 0; i < count; ++i) bits.push_back(((value >> i) & 1) != 0);
    }
};

void putPair(Bits& out, uint8_t lit, uint16_t dist, const Codes& codes) {
    if (dist == 0) return out.put(codes.lit[lit].code, codes.lit[lit].length);
    const Range length = lengthRange(lit + 3U);
    out.put(codes.lit[257 + length.code].code, codes.lit[257 + length.code].length);
    out.put(lit + 3U - length.base, length.extra);
    const Range distance = distanceRange(dist);
    out.put(codes.dist[distance.code].code, codes.dist[distance.code].length);
    out.put(dist - distance.base, distance.extra);
}

/// What a stream holds, behind `history` (which only zlib can be told of).
Bytes decompress(const std::vector<uint8_t>& coded, [[maybe_unused]] size_t size,
                 [[maybe_unused]] const Bytes& history = {}) {
    Bytes out;
#ifdef VEK_HAS_zlib
    out.resize(size + 1);
    z_stream stream = {};
    inflateInit2(&stream, -15);
    inflateSetDictionary(&stream, history.data(), static_cast<uInt>(history.size()));
    stream.next_in = const_cast<Bytef*>(coded.data());
    stream.avail_in = static_cast<uInt>(coded.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END)
        << (stream.msg != nullptr ? stream.msg : "");
    EXPECT_EQ(stream.avail_in, 0U);
    out.resize(stream.total_out);
    inflateEnd(&stream);
#else
    vekdc::Source source{vekdc::Bytes(coded)};
    vekdc::InflateReader reader(source);
    reader.start();
    for (auto piece = reader.next(); !piece.empty(); piece = reader.next())
        out.insert(out.end(), piece.begin(), piece.end());
#endif
    return out;
}

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
            if (kind == beyondLimits) continue;
            // Canonical and complete: by length, then symbol, the codes read as fractions grow by
            // the lengths' share, and come to 1.
            std::vector<size_t> order(table.size());
            std::iota(order.begin(), order.end(), size_t{0});
            std::stable_sort(order.begin(), order.end(), [&, &t = table](size_t a, size_t b) {
                return t[a].length < t[b].length;
            });
            uint32_t next = 0;
            for (const size_t s : order) {
                uint32_t code = 0;
                for (unsigned i = 0; i < table[s].length; ++i)
                    code |= ((table[s].code >> i) & 1U) << (15 - i);
                ASSERT_EQ(code, next);
                next += 1U << (16 - table[s].length);
            }
            ASSERT_EQ(next, 1U << 16);
        }
    }
}

TEST(DeflateCodes, HeadersReadBackAsTheLengths) {
    Random random(42);
    for (size_t round = 0; round < effort(200); ++round) {
        Codes codes = makeCodes(random, round);
        if (round % 2 == 1) {
            // Codes of a caller's own, with long runs of unused symbols and of one length.
            for (Table* table : {&codes.lit, &codes.dist}) {
                for (size_t s = 0; s < table->size();) {
                    const size_t run = std::min(pick(random, 1, 160), table->size() - s);
                    const auto length =
                        static_cast<uint16_t>(random() % 2 == 0 ? 0 : pick(random, 1, 15));
                    for (size_t i = 0; i < run; ++i) (*table)[s++].length = length;
                }
            }
        }
        Guarded header(VEK_DEFLATE_HEADER_BOUND);
        uint32_t length = 0;
        uint32_t bits = 0;
        ASSERT_EQ(veksDeflateLZ77FastestGenHeader_8u(codes.lit.data(), codes.dist.data(),
                                                     header.data(), &length, &bits),
                  vekStatusOk);
        ASSERT_EQ(length, (bits + 7) / 8);
        BitSource in{header.data(), header.data() + length};
        ASSERT_EQ(in.take(3), 1U | 2U << 1);
        const auto same = [&](const uint16_t* lengths, uint32_t nLit, uint32_t nDist) {
            bool equal = nLit == litSymbols && nDist == distSymbols;
            for (const VekHuffEntry& entry : codes.lit) equal &= entry.length == *lengths++;
            for (const VekHuffEntry& entry : codes.dist) equal &= entry.length == *lengths++;
            return equal;
        };
        ASSERT_TRUE(readCodeLengths(in, same));
        ASSERT_EQ(static_cast<size_t>(in.src - header.data()) * 8 - in.nBits, bits);
        ASSERT_EQ(in.code, 0U) << "padding";
    }
}

TEST(DeflateCoding, BothLoopsWriteTheBitsOfTheDefinitionAndNothingBehindThem) {
    Random random(43);
    for (const size_t count : {0, 1, 2, 63, 64, 65, 2047, 2048, 2049, 2112, 5000}) {
        for (size_t round = 0; round < effort(8); ++round) {
            const Codes codes = makeCodes(random, round);
            Guarded lits(count);
            Guarded dists(2 * count);
            auto* dist = reinterpret_cast<uint16_t*>(dists.data());
            const uint32_t start = static_cast<uint32_t>(pick(random, 0, 32));
            const auto buffer = static_cast<uint32_t>(random());
            Bits expected;
            expected.put(buffer, start);
            for (size_t i = 0; i < count; ++i) {
                lits.data()[i] = static_cast<uint8_t>(random());
                dist[i] = static_cast<uint16_t>(random() % 2 == 0   ? 0
                                                : random() % 2 == 0 ? pick(random, 1, 300)
                                                                    : pick(random, 1, 32768));
                putPair(expected, lits.data()[i], dist[i], codes);
            }
            const size_t whole = expected.bits.size() / 8;
            Guarded out(whole + 3);
            uint32_t code = buffer;
            uint32_t bits = start;
            uint32_t index = 3;
            ASSERT_EQ(
                veksDeflateHuff_8u(lits.data(), dist, static_cast<uint32_t>(count), &code, &bits,
                                   codes.lit.data(), codes.dist.data(), out.data(), &index),
                vekStatusOk);
            ASSERT_EQ(index, whole + 3);
            ASSERT_EQ(bits, expected.bits.size() % 8);
            Bits found;
            for (size_t i = 0; i < whole; ++i) found.put(out.data()[3 + i], 8);
            found.put(code, bits);
            ASSERT_EQ(found.bits, expected.bits) << count << " pairs, kind " << round % kinds;
            ASSERT_EQ(code >> bits, 0U);
            ASSERT_LE(whole, vekDeflateHuffBound(static_cast<uint32_t>(count)));
        }
    }
}

TEST(DeflateFastest, StatisticsForetellTheStreamAndTheStreamGivesBackTheSource) {
    Random random(44);
    for (const Shape& shape : shapes()) {
        for (const size_t size : {1, 3, 4, 5, 100, 5000, 70000}) {
            Guarded source(shape.make(size, static_cast<uint32_t>(size)));
            const auto length = static_cast<int32_t>(size);
            const auto hashSize = static_cast<uint32_t>(size % 2 == 0 ? 65536 : 300);
            Guarded head(4 * hashSize);
            auto* table = reinterpret_cast<uint32_t*>(head.data());
            for (uint32_t i = 0; i < hashSize; ++i) table[i] = static_cast<uint32_t>(random());
            Codes own;
            ASSERT_EQ(veksDeflateLZ77FastestGetStat_8u(source.data(), length, table, hashSize,
                                                       own.lit.data(), own.dist.data()),
                      vekStatusOk);
            own.lit[endOfBlock].code = 1;
            Codes general;
            uint8_t header[VEK_DEFLATE_HEADER_BOUND];
            for (Codes* codes : {&own, &general}) {
                uint32_t headerLength = 0;
                uint32_t headerBits = 0;
                if (codes == &own) {
                    veksDeflateLZ77FastestGenHuffTable_8u(own.lit.data(), own.dist.data(),
                                                          own.lit.data(), own.dist.data());
                    veksDeflateLZ77FastestGenHeader_8u(own.lit.data(), own.dist.data(), header,
                                                       &headerLength, &headerBits);
                } else {
                    veksDeflateLZ77FastestPrecompHeader_8u(general.lit.data(), general.dist.data(),
                                                           header, &headerLength, &headerBits);
                }
                uint32_t index = headerBits / 8;
                uint32_t bits = headerBits % 8;
                uint32_t code = bits != 0 ? header[index] : 0;
                const uint32_t room = vekDeflateFastestBound(length);
                Guarded out(index + room);
                std::memcpy(out.data(), header, index);
                uint32_t written = room;
                ASSERT_EQ(veksDeflateLZ77Fastest_8u(source.data(), length, table, hashSize, &code,
                                                    &bits, codes->lit.data(), codes->dist.data(),
                                                    out.data(), &written, &index),
                          vekStatusOk);
                ASSERT_EQ(index, headerBits / 8 + written);
                std::vector<uint8_t> coded(out.data(), out.data() + index);
                code |= static_cast<uint32_t>(codes->lit[endOfBlock].code) << bits;
                for (bits += codes->lit[endOfBlock].length; bits > 0;
                     bits -= std::min(bits, 8U), code >>= 8)
                    coded.push_back(static_cast<uint8_t>(code));
                ASSERT_EQ(decompress(coded, size), source.bytes()) << shape.name << " " << size;
            }
        }
    }
}

TEST(DeflateStreams, EveryLevelAndChunkingDecodes) {
    Random random(45);
    for (int level = 0; level <= 9; ++level) {
        DeflateEncoder encoder(level);
        for (const Shape& shape : shapes()) {
            const Bytes in =
                shape.make(pick(random, 0, effort(150000)), static_cast<uint32_t>(level));
            std::vector<uint8_t> out;
            encoder.start({});
            const size_t most = std::max<size_t>(1, in.size() / pick(random, 1, 30));
            for (size_t at = 0; at < in.size();) {
                const size_t n = std::min(pick(random, 1, most), in.size() - at);
                const auto end =
                    random() % 8 == 0 ? DeflateEncoder::End::Sync : DeflateEncoder::End::More;
                encoder.encode({in.data() + at, n}, end, out);
                at += n;
            }
            encoder.encode({}, DeflateEncoder::End::Final, out);
            ASSERT_EQ(decompress(out, in.size()), in) << shape.name << " at level " << level;
            if (std::string(shape.name) == "uniform") {
                EXPECT_LE(out.size(), in.size() + in.size() / 500 + 600);
            }
        }
    }
}

#ifdef VEK_HAS_zlib
TEST(DeflateStreams, APartContinuesBehindItsHistory) {
    // A part that repeats its history shows whether it was found: its size is a few bytes then.
    for (const size_t size : {1, 3, 4, 300, 32768, 50000}) {
        const Bytes history = shapes()[1].make(size, 46);
        const size_t kept = std::min<size_t>(size, 32768);
        const Bytes window(history.end() - static_cast<std::ptrdiff_t>(kept), history.end());
        // In full reach, and from where the first byte is a window's length behind.
        Bytes in(window.end() - static_cast<std::ptrdiff_t>(std::min<size_t>(kept, 300)),
                 window.end());
        in.insert(in.end(), window.begin(), window.end());
        for (int level = 0; level <= 9; ++level) {
            DeflateEncoder encoder(level);
            std::vector<uint8_t> out;
            encoder.encode(in, DeflateEncoder::End::Sync, out);  // a part before, to be forgotten
            out.clear();
            encoder.start(history);
            encoder.encode(in, DeflateEncoder::End::Final, out);
            ASSERT_EQ(decompress(out, in.size(), window), in) << size << " at level " << level;
            if (size == 300 && level != DeflateEncoder::fastestLevel) {
                EXPECT_LT(out.size(), 20U);
            }
        }
    }
}
#endif

TEST(DeflateHuffman, RefusedCallsTouchNothing) {
    Codes codes;
    VekHuffEntry* const litTable = codes.lit.data();
    VekHuffEntry* const distTable = codes.dist.data();
    const uint8_t lit = 0;
    const uint16_t dist = 0;
    uint32_t code = 5;
    uint32_t bits = 33;
    uint32_t index = 7;
    uint32_t room = 10;
    uint8_t out[64] = {};
    std::vector<uint32_t> head(256, 9);
    const auto fastest = [&](uint32_t hashSize, uint32_t* count) {
        return veksDeflateLZ77Fastest_8u(&lit, 1, head.data(), hashSize, &code, count, litTable,
                                         distTable, out, &room, &index);
    };
    const struct {
        VekStatus found, wanted;
    } calls[] = {
        {veksDeflateHuff_8u(&lit, &dist, 1, &code, &bits, litTable, distTable, out, &index),
         vekStatusBadSize},
        {veksDeflateHuff_8u(&lit, nullptr, 1, &code, &bits, litTable, distTable, out, &index),
         vekStatusNullPointer},
        {veksDeflateLZ77FastestGenHuffTable_8u(nullptr, distTable, litTable, distTable),
         vekStatusNullPointer},
        {veksDeflateLZ77FastestGenHeader_8u(litTable, distTable, out, nullptr, &index),
         vekStatusNullPointer},
        {veksDeflateLZ77FastestPrecompHeader_8u(litTable, distTable, nullptr, &room, &index),
         vekStatusNullPointer},
        {veksDeflateLZ77FastestGetStat_8u(&lit, 0, head.data(), 256, litTable, distTable),
         vekStatusBadSize},
        {veksDeflateLZ77FastestGetStat_8u(&lit, 1, head.data(), 255, litTable, distTable),
         vekStatusBadSize},
        {fastest(256, &bits), vekStatusBadSize},  // more than 32 bits
        {fastest(65537, &index), vekStatusBadSize},
        {fastest(256, &index), vekStatusBadSize},  // too little room
        {fastest(256, nullptr), vekStatusNullPointer},
    };
    for (const auto& call : calls) EXPECT_EQ(call.found, call.wanted) << "call " << (&call - calls);
    EXPECT_EQ(std::tuple(code, bits, index, room, head[0]), std::tuple(5U, 33U, 7U, 10U, 9U));
    EXPECT_TRUE(std::all_of(out, out + sizeof(out), [](uint8_t byte) { return byte == 0; }));
}
