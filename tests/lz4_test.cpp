// LZ4: round trips of every encoder through our decoders and liblz4's, the decoder against a
// byte-by-byte twin on hostile input, every room, every truncation, histories of all kinds.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <string>

#include "support/data.h"
#include "support/guarded.h"
#include "vekdc.h"
#ifdef VEK_HAS_lz4
#include <lz4.h>
#include <lz4hc.h>
#endif

namespace {

using vektest::Bytes;
using vektest::effort;
using vektest::Guarded;
using vektest::pick;
using vektest::Random;
using vektest::Shape;
using vektest::shapes;
using Edge = Guarded::Edge;

int length(const Bytes& bytes) {
    return static_cast<int>(bytes.size());
}
Bytes prefix(const Bytes& data, int count) {
    return {data.begin(), data.begin() + count};
}
Bytes from(const Bytes& data, size_t start) {
    return {data.begin() + static_cast<ptrdiff_t>(start), data.end()};
}

/// What one decoding gave.
struct Decoded {
    VekStatus status = 0;
    int consumed = 0;
    int written = 0;
    Bytes out;
};

void expectSame(const Decoded& got, const Decoded& want, const std::string& what) {
    ASSERT_EQ(got.status, want.status) << what;
    if (got.status < 0) return;
    ASSERT_EQ(std::pair(got.consumed, got.written), std::pair(want.consumed, want.written)) << what;
    ASSERT_TRUE(got.out == want.out) << what;
}

/// The decoder's twin: one byte at a time, over positions of the stream. Below `dictionary.size()`
/// a position is read from the dictionary, else from the output, whose first byte is position
/// `index`. Ours are the statuses of a decoder that looks at the room before the source.
Decoded decodeSlowly(const Bytes& block, size_t room, const Bytes& dictionary, size_t index) {
    Decoded d;
    size_t in = 0;
    const auto stop = [&](VekStatus status) {
        d.status = block.size() == 1 && status >= 0 ? 32 : status;
        d.consumed = static_cast<int>(in);
        d.written = static_cast<int>(d.out.size());
        return d;
    };
    const auto extended = [&](size_t nibble, size_t& value) {
        value = nibble;
        if (nibble < 15) return true;
        while (in < block.size()) {
            const uint8_t byte = block[in++];
            value += byte;
            if (byte != 255) return true;
        }
        return false;
    };
    while (in + 1 < block.size()) {
        const uint8_t token = block[in++];
        size_t literals = 0;
        size_t match = 0;
        if (!extended(token >> 4, literals)) return stop(32);
        const bool full = literals > room - d.out.size();
        const bool cut = literals > block.size() - in;
        for (size_t i = 0; i < literals && in < block.size() && d.out.size() < room; ++i)
            d.out.push_back(block[in++]);
        if (full) return stop(33);
        if (cut || (in != block.size() && in + 8 > block.size())) return stop(32);
        if (in == block.size() || d.out.size() == room) return stop(0);
        const size_t offset = block[in] + 256U * block[in + 1];
        in += 2;
        if (offset > index + d.out.size()) return stop(-2);
        if (!extended(token & 15, match)) return stop(32);
        for (match += 4; match != 0; --match) {
            if (d.out.size() == room) return stop(33);
            const size_t from = index + d.out.size() - offset;
            if (from < dictionary.size())
                d.out.push_back(dictionary[from]);
            else
                d.out.push_back(from < index || offset == 0 ? 0 : d.out[from - index]);
        }
    }
    return stop(0);
}

/// Ours, between guard pages on the side `edge`.
Decoded decode(const Bytes& block, size_t room, Edge edge = Edge::End) {
    Guarded in(block, edge);
    Guarded out(room, edge);
    Decoded d{0, 0, static_cast<int>(room), {}};
    d.status = veksDecodeLZ4_8u(in.data(), length(block), out.data(), &d.written);
    if (d.status >= 0) d.out.assign(out.data(), out.data() + d.written);
    return d;
}

/// With a history: in front of the output, or in a buffer of its own of any size beside `index`.
enum class Place { Front, Own };
Decoded decodeWith(const Bytes& block, size_t room, const Bytes& history, Place place,
                   size_t index) {
    Guarded in(block);
    Guarded own(history);
    Guarded out(index + room);
    std::fill_n(out.data(), index + room, uint8_t{0});
    if (place == Place::Front) std::copy(history.begin(), history.end(), out.data());
    Decoded d{0, length(block), static_cast<int>(room), {}};
    d.status = veksDecodeLZ4Dict_8u(in.data(), &d.consumed, out.data(), static_cast<int>(index),
                                    &d.written, place == Place::Front ? out.data() : own.data(),
                                    length(history));
    if (d.status >= 0)
        d.out.assign(out.data() + index, out.data() + index + static_cast<size_t>(d.written));
    return d;
}

/// The work memory of all encoders, full of rubbish at first.
struct Tables {
    std::vector<uint32_t> fast = std::vector<uint32_t>(4096, 0xDEADBEEF);
    std::vector<uint32_t> hash = std::vector<uint32_t>(32768, 0xDEADBEEF);
    std::vector<uint32_t> chain = std::vector<uint32_t>(65536, 0xDEADBEEF);
    uint8_t* pair[2] = {reinterpret_cast<uint8_t*>(hash.data()),
                        reinterpret_cast<uint8_t*>(chain.data())};
    uint8_t* table() { return reinterpret_cast<uint8_t*>(fast.data()); }
    void clear() {
        veksEncodeLZ4DictHashTableInit_8u(table(), 1);
        veksEncodeLZ4HCHashTableInit_8u(pair);
    }
};

/// Every encoder behind one face: a block, the bytes of history in front of it, the room, and a
/// dictionary.
using Encode = std::function<VekStatus(Tables&, const uint8_t* src, int index, int* srcLen,
                                       uint8_t* dst, int* room, const uint8_t* dict, int dictLen)>;
struct Encoder {
    std::string name;
    enum { Alone, History, HighAlone, High } kind;
    bool checksRoom;
    Encode encode;

    bool high() const { return kind == High || kind == HighAlone; }
    bool takesHistory() const { return kind == High || kind == History; }
};
#define ENCODE(...)                                                                               \
    [=]([[maybe_unused]] Tables& t, const uint8_t* s, [[maybe_unused]] int i, int* n, uint8_t* d, \
        int* m, [[maybe_unused]] const uint8_t* dict,                                             \
        [[maybe_unused]] int dn) -> VekStatus { return __VA_ARGS__; }
const std::vector<Encoder>& encoders() {
    static const std::vector<Encoder> list = [] {
        std::vector<Encoder> all{
            {"plain", Encoder::Alone, false, ENCODE(veksEncodeLZ4_8u(s, *n, d, m, t.table()))},
            {"safe", Encoder::Alone, true, ENCODE(veksEncodeLZ4Safe_8u(s, n, d, m, t.table()))},
            {"stream", Encoder::History, false,
             ENCODE(veksEncodeLZ4Dict_8u(s, i, *n, d, m, t.table(), dict, dn))},
            {"stream safe", Encoder::History, true,
             ENCODE(veksEncodeLZ4DictSafe_8u(s, i, n, d, m, t.table(), dict, dn))},
            {"high, limit", Encoder::High, true,
             ENCODE(veksEncodeLZ4HCDictLimit_8u(s, i, n, d, m, t.pair, dict, dn, 9, i % 2))}};
        for (int a : {1, 2, 8, 100, INT_MAX})
            all.push_back({"accelerated " + std::to_string(a), Encoder::Alone, false,
                           ENCODE(veksEncodeLZ4Fast_8u(s, *n, d, m, t.table(), a))});
        for (int level : {1, 2, 4, 5, 9})
            all.push_back({"high " + std::to_string(level),
                           level == 5 ? Encoder::High : Encoder::HighAlone, true,
                           ENCODE(veksEncodeLZ4HC_8u(s, i, n, d, m, t.pair, dict, dn, level))});
        return all;
    }();
    return list;
}
#undef ENCODE

struct Encoded {
    VekStatus status = 0;
    int consumed = 0;
    Bytes block;
};
/// Codes a block alone, between guard pages on the side `edge`.
Encoded encode(const Encoder& encoder, const Bytes& data, size_t room, Edge edge = Edge::End) {
    static Tables tables;
    if (encoder.high()) veksEncodeLZ4HCHashTableInit_8u(tables.pair);
    Guarded in(data, edge);
    Guarded out(room, edge);
    Encoded e{0, length(data), {}};
    auto written = static_cast<int>(room);
    e.status = encoder.encode(tables, in.data(), 0, &e.consumed, out.data(), &written, nullptr, 0);
    if (e.status >= 0) e.block = prefix(out.bytes(), written);
    return e;
}
Bytes encodeAll(const Encoder& encoder, const Bytes& data, Edge edge = Edge::End) {
    const Encoded e = encode(encoder, data, vekLZ4EncodeBound(data.size()), edge);
    EXPECT_EQ(e.status, 0) << encoder.name;
    EXPECT_EQ(e.consumed, length(data)) << encoder.name;
    return e.block;
}
/// Codes `block` at `index` with tables that know `history`, which lies in front of it or in a
/// buffer of its own.
Bytes encodeBehind(const Encoder& encoder, Tables& tables, const Bytes& history, const Bytes& block,
                   size_t index, Place place) {
    Bytes both = history;
    both.insert(both.end(), block.begin(), block.end());
    Guarded together(both);
    Guarded dict(history);
    Guarded own(block);
    const bool front = place == Place::Front;
    Guarded out(vekLZ4EncodeBound(block.size()));
    auto n = length(block);
    auto written = static_cast<int>(out.size());
    EXPECT_EQ(encoder.encode(tables, front ? together.data() + history.size() : own.data(),
                             static_cast<int>(index), &n, out.data(), &written,
                             front ? nullptr : dict.data(), front ? 0 : length(history)),
              0);
    return prefix(out.bytes(), written);
}

#ifdef VEK_HAS_lz4
Bytes decodeByPeer(const Bytes& block, size_t size, const Bytes& dictionary = {}) {
    Bytes out(size);
    const int n = LZ4_decompress_safe_usingDict(
        reinterpret_cast<const char*>(block.data()), reinterpret_cast<char*>(out.data()),
        length(block), length(out), reinterpret_cast<const char*>(dictionary.data()),
        length(dictionary));
    out.resize(static_cast<size_t>(std::max(n, 0)));
    return out;
}
Bytes encodeByPeer(const Bytes& data, bool high) {
    Bytes out(static_cast<size_t>(LZ4_compressBound(length(data))));
    const auto* in = reinterpret_cast<const char*>(data.data());
    auto* to = reinterpret_cast<char*>(out.data());
    const int n = high ? LZ4_compress_HC(in, to, length(data), length(out), 9)
                       : LZ4_compress_default(in, to, length(data), length(out));
    out.resize(static_cast<size_t>(n));
    return out;
}
#endif

/// A block decodes to exactly `data` in every decoder.
void expectDecodes(const Bytes& block, const Bytes& data, const std::string& what) {
    const VekStatus whole = block.size() == 1 ? 32 : 0;
    for (size_t room : {std::max<size_t>(data.size(), 1), data.size() + 100}) {
        const Decoded d = decode(block, room, room % 2 == 0 ? Edge::End : Edge::Start);
        ASSERT_EQ(d.status, whole) << what;
        ASSERT_TRUE(d.out == data) << what;
    }
#ifdef VEK_HAS_lz4
    ASSERT_TRUE(decodeByPeer(block, data.size()) == data) << what;
#endif
}

const std::vector<size_t> allSizes{1,    2,    5,     12,    13,    14,    27,    28,
                                   29,   30,   31,    33,    48,    64,    100,   270,
                                   1000, 4097, 20000, 65535, 65536, 65600, 200000};

/// Those, without the long ones where everything is slow.
std::vector<size_t> sizes() {
    std::vector<size_t> some = allSizes;
    if (effort(100) < 100) some.resize(some.size() - 5);
    return some;
}

TEST(LZ4, EveryEncoderRoundTripsEveryShape) {
    for (const Shape& shape : shapes()) {
        for (size_t size : sizes()) {
            const Bytes data = shape.make(size, static_cast<uint32_t>(size));
            Bytes plain;
            for (const Encoder& encoder : encoders()) {
                const std::string what =
                    std::string(shape.name) + " " + std::to_string(size) + " " + encoder.name;
                const Bytes block =
                    encodeAll(encoder, data, size % 2 == 0 ? Edge::End : Edge::Start);
                expectDecodes(block, data, what);
                if (HasFatalFailure()) return;
                // These share one search; a stream's has no 16-bit mode.
                if (encoder.name == "plain") plain = block;
                if (encoder.name == "safe" || encoder.name == "accelerated 1" ||
                    (encoder.name == "stream" && size >= 65536)) {
                    ASSERT_EQ(block, plain) << what;
                }
            }
            if (size < 30) {
                EXPECT_EQ(plain.size(), size + (size < 15 ? 1 : 2));
            }
#ifdef VEK_HAS_lz4
            for (bool high : {false, true}) {
                expectDecodes(encodeByPeer(data, high), data, shape.name);
                if (HasFatalFailure()) return;
            }
#endif
        }
    }
}

TEST(LZ4, CheckedEncodersUseEveryRoom) {
    const size_t step = effort(100) < 100 ? 17 : 1;
    for (const Shape& shape : shapes()) {
        for (size_t size : {1U, 40U, 700U}) {
            const Bytes data = shape.make(size, 3);
            for (const Encoder& encoder : encoders()) {
                if (!encoder.checksRoom) continue;
                const size_t enough = encodeAll(encoder, data).size();
                int before = 0;
                for (size_t room = 1; room <= enough + 9;
                     room += encoder.high() ? 5 * step : step) {
                    const std::string what = std::string(shape.name) + " " + encoder.name + " " +
                                             std::to_string(size) + " in " + std::to_string(room);
                    Encoded e = encode(encoder, data, room, room % 2 ? Edge::End : Edge::Start);
                    ASSERT_EQ(e.status == 0, e.consumed == length(data)) << what;
                    // Room may cut a match, so what follows differs; but more room is never much
                    // worse.
                    ASSERT_GE(e.consumed + 300, before) << what;
                    before = e.consumed;
                    Bytes want = prefix(data, e.consumed);
                    if (encoder.high()) {
                        ASSERT_EQ(e.status == 0, room >= enough) << what;
                    }
                    if (e.status == 48) {
                        // Whole sequences: a closing run of literals makes them a block.
                        e.block.push_back(12 << 4);
                        e.block.insert(e.block.end(), 12, 'c');
                        want.insert(want.end(), 12, 'c');
                    } else {
                        ASSERT_TRUE(e.status == 0 || e.status == 33) << what;
                    }
                    // Of the last literals what fits; decoders ask for more of them.
                    if (encoder.high() && e.status == 33) continue;
                    expectDecodes(e.block, want, what);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
    const Encoded e = encode(encoders().back(), shapes()[1].make(300, 5), 100);
    EXPECT_EQ(std::pair(e.status, e.consumed), std::pair(33, 98));
}

/// A block that uses everything: literals and matches of all lengths, offsets near and far.
Bytes randomBlock(Random& random, size_t sequences, size_t history, bool hostile) {
    Bytes block;
    size_t written = history;
    const auto extend = [&](size_t value) {
        if (value < 15) return;
        for (value -= 15; value >= 255; value -= 255) block.push_back(255);
        block.push_back(static_cast<uint8_t>(value));
    };
    const auto some = [&](size_t low) {
        return pick(random, 0, 3) != 0 ? pick(random, low, low + 14) : pick(random, low, low + 700);
    };
    for (size_t i = 0; i <= sequences; ++i) {
        const size_t literals = i == sequences ? pick(random, 5, 40) : some(written == 0 ? 1 : 0);
        const size_t match = i == sequences ? 0 : some(0);
        block.push_back(static_cast<uint8_t>(std::min<size_t>(literals, 15) << 4 |
                                             std::min<size_t>(match, 15)));
        extend(literals);
        for (size_t k = 0; k < literals; ++k) block.push_back(static_cast<uint8_t>(random()));
        written += literals;
        if (i == sequences) break;
        const size_t most = std::min<size_t>(written, 65535);
        size_t offset = pick(random, 0, 1) != 0 ? pick(random, 1, 40) : pick(random, 1, 65535);
        if (!hostile || pick(random, 0, 60) != 0)
            offset = std::max<size_t>(1, std::min(offset, most));
        block.push_back(static_cast<uint8_t>(offset));
        block.push_back(static_cast<uint8_t>(offset >> 8));
        extend(match);
        written += match + 4;
    }
    if (hostile)
        for (size_t k = pick(random, 0, 3); k != 0; --k)
            block[pick(random, 0, block.size() - 1)] = static_cast<uint8_t>(random());
    return block;
}

/// True when the twin can tell every byte: an offset of 0 repeats what the buffer held.
bool hasZeroOffset(const Bytes& block) {
    for (size_t i = 0; i + 1 < block.size(); ++i)
        if (block[i] == 0 && block[i + 1] == 0) return true;
    return false;
}

TEST(LZ4, DecodersEqualTheirTwinOnHostileBlocks) {
    Random random(20);
    for (size_t round = effort(6000); round != 0; --round) {
        Bytes history(pick(random, 0, 2) == 0 ? pick(random, 1, 70000) : pick(random, 1, 60));
        for (auto& byte : history) byte = static_cast<uint8_t>(random());
        const Bytes block =
            randomBlock(random, pick(random, 0, 30), history.size(), round % 4 != 0);
        const size_t whole = decodeSlowly(block, 1U << 20, history, history.size()).out.size();
        const size_t room =
            pick(random, 0, 1) != 0 ? pick(random, 1, whole + 2) : whole + pick(random, 1, 100);
        const bool zero = hasZeroOffset(block);
        const auto check = [&](Decoded got, Decoded want, const char* what) {
            if (zero) got.out = want.out = {};
            if (got.status < 0 || got.consumed == 0) got.consumed = want.consumed;
            expectSame(got, want, what);
        };
        check(decode(block, room), decodeSlowly(block, room, {}, 0), "alone");
        const Decoded want = decodeSlowly(block, room, history, history.size());
        check(decodeWith(block, room, history, Place::Front, history.size()), want, "in front");
        check(decodeWith(block, room, history, Place::Own, history.size()), want, "dictionary");
        const size_t index = pick(random, 0, history.size() + 50);
        if (index != history.size())
            check(decodeWith(block, room, history, Place::Own, index),
                  decodeSlowly(block, room, history, index), "index beside the size");
        if (HasFatalFailure()) return;
    }
}

TEST(LZ4, EveryTruncationAndEveryRoomGivesItsStatus) {
    Random random(8);
    const Bytes block = randomBlock(random, 12, 0, false);
    const Decoded all = decodeSlowly(block, 1U << 20, {}, 0);
    for (size_t cut = 1; cut <= block.size(); ++cut) {
        const Bytes part = prefix(block, static_cast<int>(cut));
        Decoded got = decodeWith(part, all.out.size(), {}, Place::Own, 0);
        expectSame(got, decodeSlowly(part, all.out.size(), {}, 0), std::to_string(cut));
        EXPECT_TRUE(std::equal(got.out.begin(), got.out.end(), all.out.begin()));
    }
    for (size_t room = 1; room <= all.out.size() + 70; ++room) {
        const Decoded got = decodeWith(block, room, {}, Place::Own, 0);
        expectSame(got, decodeSlowly(block, room, {}, 0), std::to_string(room));
        EXPECT_EQ(static_cast<size_t>(got.written), std::min(room, all.out.size()));
    }
    for (size_t size = 1; size <= 40; ++size) {
        const Bytes noise = shapes()[1].make(size, static_cast<uint32_t>(size));
        for (Edge edge : {Edge::Start, Edge::End}) decode(noise, 50, edge);
    }
}

/// The statuses that the twin shares, and counts that are not written back on an error.
TEST(LZ4, DecoderStatusesOfSmallBlocks) {
    Bytes overflow(16909321, 255);  // 15 + 255 * n passes 2^32
    overflow[0] = 0xF0;
    overflow.back() = 0;
    Bytes overflowMatch(16909330, 255);
    const uint8_t start[] = {0x1F, 255, 1, 0};
    std::copy_n(start, 4, overflowMatch.begin());
    overflowMatch.back() = 0;
    const struct {
        const char* name;
        Bytes block;
        int room;
        VekStatus status;
        int consumed;
        int written;
    } cases[] = {
        {"empty input", {0}, 9, 32, 0, 0},
        {"a byte left", {0x10, 'a', 0}, 9, 32, 2, 1},
        {"run cut short", {0x50, 'a', 'b'}, 9, 32, 3, 2},
        {"run fills the room", {0x20, 'a', 'b'}, 2, 0, 3, 2},
        {"run past the room", {0x30, 'a', 'b', 'c'}, 2, 33, 3, 2},
        {"room before truncation", {0x50, 'a', 'b'}, 1, 33, 2, 1},
        {"extension cut off", {0xF0, 255, 255}, 9, 32, 3, 0},
        {"match extension cut off", {0x1F, 'a', 1, 0, 255, 255, 255, 255, 255, 255}, 99, 32, 10, 1},
        {"offset before the start", {0x10, 'a', 2, 0, 0x50, 1, 2, 3, 4, 5}, 99, -2, 10, 99},
        {"offset to the start", {0x10, 'a', 1, 0, 0x50, 1, 2, 3, 4, 5}, 99, 0, 10, 10},
        {"match past the room", {0x10, 'a', 1, 0, 0x50, 1, 2, 3, 4, 5}, 3, 33, 4, 3},
        {"full after a match", {0x10, 'a', 1, 0, 0x50, 1, 2, 3, 4, 5}, 5, 33, 5, 5},
        {"offset 0", {0x10, 'a', 0, 0, 0x50, 1, 2, 3, 4, 5}, 99, 0, 10, 10},
        {"literal length overflows", overflow, 99, -6, length(overflow), 99},
        {"match length overflows", overflowMatch, 99, -6, length(overflowMatch), 99},
    };
    for (const auto& c : cases) {
        const Decoded alone = decode(c.block, static_cast<size_t>(c.room));
        EXPECT_EQ(std::pair(alone.status, alone.written), std::pair(c.status, c.written)) << c.name;
        // A dictionary that no offset reaches.
        const Decoded d = decodeWith(c.block, static_cast<size_t>(c.room), {'x'}, Place::Own, 0);
        EXPECT_EQ(d.status, c.status) << c.name;
        EXPECT_EQ(std::pair(d.consumed, d.written), std::pair(c.consumed, c.written)) << c.name;
    }
}

TEST(LZ4, StreamsReferToTheBlocksBefore) {
    Random random(4);
    size_t together = 0;
    size_t alone = 0;
    for (const Shape& shape : shapes()) {
        const Bytes data = shape.make(150000, 2);
        for (const Encoder& encoder : encoders()) {
            if (!encoder.takesHistory()) continue;
            Tables tables;
            tables.clear();
            Guarded in(data);
            Bytes out(data.size());
            for (size_t at = 0, size = 0; at < data.size(); at += size) {
                size = std::min(data.size() - at, pick(random, 1, 20000));
                const auto index = static_cast<int>(at);
                auto n = static_cast<int>(size);
                Guarded block(vekLZ4EncodeBound(size));
                auto written = static_cast<int>(block.size());
                ASSERT_EQ(encoder.encode(tables, in.data() + at, index, &n, block.data(), &written,
                                         nullptr, 0),
                          0);
                together += static_cast<size_t>(written);
                alone += encodeAll(encoder, prefix(from(data, at), n)).size();
                auto room = n;
                ASSERT_EQ(veksDecodeLZ4Dict_8u(block.data(), &written, out.data(), index, &room,
                                               out.data(), index),
                          0);
                ASSERT_EQ(room, n);
            }
            ASSERT_TRUE(out == data) << shape.name << encoder.name;
        }
    }
    EXPECT_LT(together, alone - alone / 8);
}

/// Dictionaries of any size at any index, and tables of rubbish, which must do no harm.
TEST(LZ4, DictionariesAndTablesOfAnyKind) {
    Random random(6);
    size_t gained = 0;
    for (const Shape& shape : shapes()) {
        for (size_t round = effort(40); round != 0; --round) {
            const size_t size = round % 3 == 0 ? pick(random, 1, 20) : pick(random, 20, 66000);
            const Bytes data = shape.make(size + pick(random, 1, 5000), 9);
            const Bytes dictionary = prefix(data, static_cast<int>(size));
            const Bytes block = from(data, size);
            const size_t index = round % 4 == 1 ? pick(random, 0, 2 * size) : size;
            const bool rubbish = round % 4 == 0;
            for (const Encoder& encoder : encoders()) {
                if (!encoder.takesHistory()) continue;
                const std::string what = std::string(shape.name) + " " + encoder.name + " " +
                                         std::to_string(size) + " at " + std::to_string(index);
                Tables tables;
                tables.clear();
                if (rubbish) {
                    const uint32_t mask = random() % 2 ? 0xFFFFFFFFU : 0x3FFFU;
                    for (auto* table : {&tables.fast, &tables.hash, &tables.chain})
                        for (auto& entry : *table) entry = random() & mask;
                } else if (encoder.high()) {
                    // What codes a dictionary puts it into the tables.
                    encodeBehind(encoder, tables, {}, dictionary, 0, Place::Front);
                } else {
                    veksEncodeLZ4LoadDict_8u(tables.table(), dictionary.data(), length(dictionary));
                }
                const Place place = rubbish && round % 8 == 0 ? Place::Front : Place::Own;
                const Bytes coded = encodeBehind(encoder, tables, dictionary, block, index, place);
                ASSERT_TRUE(decodeWith(coded, block.size(), dictionary, Place::Own, index).out ==
                            block)
                    << what;
                if (index != size) continue;
                ASSERT_TRUE(decodeWith(coded, block.size(), dictionary, Place::Front, index).out ==
                            block)
                    << what;
#ifdef VEK_HAS_lz4
                ASSERT_TRUE(decodeByPeer(coded, block.size(), dictionary) == block) << what;
#endif
                const size_t alone = encodeAll(encoders()[0], block).size();
                if (coded.size() < alone) gained += alone - coded.size();
            }
        }
    }
    if (effort(100) == 100) {
        EXPECT_GT(gained, 100000U);
    }
}

TEST(LZ4, HigherLevelsAreSmaller) {
    const auto sizeAt = [](const Bytes& data, int level) {
        Tables tables;
        tables.clear();
        Bytes out(vekLZ4EncodeBound(data.size()));
        auto n = length(data);
        auto written = length(out);
        EXPECT_EQ(veksEncodeLZ4HC_8u(data.data(), 0, &n, out.data(), &written, tables.pair, nullptr,
                                     0, level),
                  0);
        return written;
    };
    for (size_t shape : {4U, 5U, 6U}) {
        const Bytes data = shapes()[shape].make(200000, 1);
        int before = length(data);
        for (int level = 1; level <= 9; ++level) {
            const int size = sizeAt(data, level);
            EXPECT_LE(size, before + before / 500) << level;
            before = size;
        }
        for (auto [level, same] : {std::pair{0, 9}, {-3, 1}, {12, 9}, {INT_MIN, 1}})
            EXPECT_EQ(sizeAt(data, level), sizeAt(data, same)) << level;
    }
}

TEST(LZ4, SizesClearingAndLoading) {
    int sizes[3] = {};
    EXPECT_EQ(veksEncodeLZ4HashTableGetSize_8u(sizes), 0);
    EXPECT_EQ(veksEncodeLZ4HCHashTableGetSize_8u(sizes + 1, sizes + 2), 0);
    EXPECT_TRUE(sizes[0] == 16384 && sizes[1] == 131072 && sizes[2] == 262144);
    EXPECT_EQ(veksEncodeLZ4HashTableGetSize_8u(nullptr), -8);
    EXPECT_EQ(veksEncodeLZ4HCHashTableGetSize_8u(sizes, nullptr), -8);
    EXPECT_EQ(veksEncodeLZ4HCHashTableGetSize_8u(nullptr, sizes), -8);
    EXPECT_EQ(sizes[0], 16384);
    const auto cleared = [](Tables& t) {
        return static_cast<int>(std::count(t.fast.begin(), t.fast.end(), 0U)) * 4;
    };
    for (auto [length, bytes] : {std::pair{1, 8192}, {65535, 8192}, {65536, 16384}}) {
        Tables a;
        Tables b;
        EXPECT_EQ(veksEncodeLZ4HashTableInit_8u(a.table(), length), 0);
        EXPECT_EQ(veksEncodeLZ4DictHashTableInit_8u(b.table(), length), 0);
        EXPECT_EQ(std::pair(cleared(a), cleared(b)), std::pair(bytes, 16384));
    }
    for (int size = 1; size <= 30; ++size) {
        Tables tables;
        tables.clear();
        Guarded dict(shapes()[1].make(static_cast<size_t>(size), 1));
        ASSERT_EQ(veksEncodeLZ4LoadDict_8u(tables.table(), dict.data(), size), 0);
        EXPECT_EQ(*std::max_element(tables.fast.begin(), tables.fast.end()),
                  size <= 8 ? 0U : static_cast<uint32_t>(size - 9) / 3 * 3);
    }
}

/// Every refusal, and that it leaves the counts alone. A null beats a bad size beats the rest.
TEST(LZ4, BadArgumentsAreRefusedInOrder) {
    struct Refusing {
        const char* name;
        const char* pointers;  ///< Those that must not be null, by their names below.
        bool checksRoom;
        VekStatus last;  ///< With everything else in order.
        std::function<VekStatus(const uint8_t* s, int* n, uint8_t* d, int* m, uint8_t* h)> call;
    };
    Tables t;
    const Bytes src(100, 'a');
    Bytes dst(200);
    uint8_t* half[2] = {t.pair[0], nullptr};
    const uint8_t* const none = nullptr;
    const uint8_t* const some = src.data();
    const auto pair = [high = t.pair](uint8_t* h) { return h == nullptr ? nullptr : high; };
#define CALL(...)                                                                                \
    [=]([[maybe_unused]] const uint8_t* s, [[maybe_unused]] int* n, [[maybe_unused]] uint8_t* d, \
        [[maybe_unused]] int* m, [[maybe_unused]] uint8_t* h) -> VekStatus { return __VA_ARGS__; }
    std::vector<Refusing> all{
        {"decode", "sdm", true, 0, CALL(veksDecodeLZ4_8u(s, *n, d, m))},
        {"table", "h", false, 0, CALL(veksEncodeLZ4HashTableInit_8u(h, *n))},
        {"dictionary table", "h", false, 0, CALL(veksEncodeLZ4DictHashTableInit_8u(h, *n))},
        {"load", "sh", false, 0, CALL(veksEncodeLZ4LoadDict_8u(h, s, *n))},
        {"plain", "sdmh", false, 0, CALL(veksEncodeLZ4_8u(s, *n, d, m, h))},
        {"safe", "sndmh", true, 0, CALL(veksEncodeLZ4Safe_8u(s, n, d, m, h))},
    };
    for (int a : {INT_MIN, 0, 1, 2})
        all.push_back({"accelerated", "sdmh", false, a < 1 ? -16 : 0,
                       CALL(veksEncodeLZ4Fast_8u(s, *n, d, m, h, a))});
    for (const auto& at : {std::pair{1, 5}, {1, -5}, {-1, 5}})
        all.push_back({"decode, dictionary", "sndm", true,
                       std::min(at.first, at.second) < 0 ? -6 : 0,
                       CALL(veksDecodeLZ4Dict_8u(s, n, d, at.first, m, some, at.second))});
    for (const uint8_t* dict : {none, some}) {
        const VekStatus last = dict == nullptr ? 0 : -5;
        all.push_back({"stream", "sdmh", false, last,
                       CALL(veksEncodeLZ4Dict_8u(s, -5, *n, d, m, h, dict, 9))});
        all.push_back({"stream safe", "sndmh", true, last,
                       CALL(veksEncodeLZ4DictSafe_8u(s, -5, n, d, m, h, dict, 9))});
        all.push_back({"high", "sndmh", true, -5,
                       CALL(veksEncodeLZ4HC_8u(s, -5, n, d, m, pair(h), dict, 9, 9))});
        all.push_back({"high, limit", "sndmh", true, -5,
                       CALL(veksEncodeLZ4HCDictLimit_8u(s, -5, n, d, m, pair(h), dict, 9, 9, 1))});
    }
#undef CALL
    for (const Refusing& r : all) {
        const auto expect = [&](VekStatus status, int inLength, int room, char null = ' ') {
            int n = inLength;
            int m = room;
            EXPECT_EQ(r.call(null == 's' ? nullptr : src.data(), null == 'n' ? nullptr : &n,
                             null == 'd' ? nullptr : dst.data(), null == 'm' ? nullptr : &m,
                             null == 'h' ? nullptr : t.table()),
                      status)
                << r.name << " without " << null;
            if (status < 0) {
                EXPECT_EQ(n, inLength) << r.name;
                EXPECT_EQ(m, room) << r.name;
            }
        };
        for (const char* null = r.pointers; *null != 0; ++null) expect(-8, 0, 0, *null);
        expect(-6, 0, 9);
        if (r.checksRoom) expect(-6, 9, 0);
        if (r.last != 0) expect(r.last, 9, 99);
    }

    int n = 9;
    int m = 99;
    uint8_t* d = dst.data();
    EXPECT_EQ(veksEncodeLZ4Dict_8u(some, 5, n, d, &m, nullptr, some, -1), -8);
    EXPECT_EQ(veksEncodeLZ4Dict_8u(nullptr, 5, n, d, &m, t.table(), some, -1), -6);
    EXPECT_EQ(veksEncodeLZ4HC_8u(some, 5, &n, d, &m, t.pair, some, -1, 9), -6);
    EXPECT_EQ(veksEncodeLZ4HCDictLimit_8u(some, 5, &n, d, &m, t.pair, some, -1, 9, 0), -6);
    EXPECT_EQ(veksEncodeLZ4HC_8u(some, 5, &n, d, &m, half, nullptr, 0, 9), -8);
    EXPECT_EQ(veksEncodeLZ4HCHashTableInit_8u(nullptr), -8);
    EXPECT_EQ(veksEncodeLZ4HCHashTableInit_8u(half), -8);
}

}  // namespace
