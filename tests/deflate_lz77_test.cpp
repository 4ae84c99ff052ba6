// Deflate's match finding: whatever the tables, sizes and pieces, the pairs give back the source.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <numeric>
#include <tuple>

#include "include/vekdc.h"
#include "support/data.h"
#include "support/guarded.h"
#include "vector/crc32c_step.h"

using namespace vektest;

namespace {

struct Pair {
    uint8_t lit;
    uint16_t dist;
    bool operator==(const Pair&) const = default;
};
using Pairs = std::vector<Pair>;
using Params = std::array<int32_t, 4>;

uint32_t wordAt(const uint8_t* p) {
    uint32_t word = 0;
    std::memcpy(&word, p, 4);
    return word;
}

/// The match state, every part of it between guard pages.
struct State {
    explicit State(uint32_t window, uint32_t hashes, Guarded::Edge edge = Guarded::Edge::End)
        : winSize(window),
          hashSize(hashes),
          windowBytes(window, edge),
          headBytes(hashes * size_t{4}, edge),
          prevBytes(window * size_t{4}, edge),
          litFreq(286),
          distFreq(30) {
        std::fill_n(head(), hashSize, -32768);
        std::fill_n(prev(), winSize, -32768);
    }
    int32_t* head() { return reinterpret_cast<int32_t*>(headBytes.data()); }
    int32_t* prev() { return reinterpret_cast<int32_t*>(prevBytes.data()); }

    /// Places the bytes that precede position `position` in the window.
    void place(const Bytes& history, int32_t end) {
        for (size_t i = history.size() - std::min<size_t>(history.size(), winSize);
             i < history.size(); ++i) {
            const size_t at = static_cast<size_t>(end) - history.size() + i;
            windowBytes.data()[at & (winSize - 1)] = history[i];
        }
    }

    uint32_t winSize, hashSize;
    Guarded windowBytes, headBytes, prevBytes;
    Guarded litDst{1U << 17};
    Guarded distDst{2U << 17};
    std::vector<VekHuffEntry> litFreq, distFreq;
    int32_t position = 0;
};

/// One call; moves `data` past what it consumed and appends the pairs.
VekStatus encodeOnce(State& state, const uint8_t*& src, int32_t& length, uint32_t room,
                     Pairs& pairs, const Params* params, bool lazy, uint32_t level,
                     uint32_t flush) {
    uint8_t* literals = state.litDst.data() + (state.litDst.size() - room);
    auto* distances =
        reinterpret_cast<uint16_t*>(state.distDst.data() + (state.distDst.size() - 2 * room));
    uint32_t left = room;
    VekStatus status = 0;
    if (params == nullptr) {
        status = veksDeflateLZ77_8u(&src, &length, &state.position, state.windowBytes.data(),
                                    state.winSize, state.head(), state.prev(), state.hashSize,
                                    state.litFreq.data(), state.distFreq.data(), literals,
                                    distances, &left, level, flush);
    } else {
        status = (lazy ? veksDeflateLZ77Slow_8u : veksDeflateLZ77Fast_8u)(
            &src, &length, &state.position, state.windowBytes.data(), state.winSize, state.head(),
            state.prev(), state.hashSize, state.litFreq.data(), state.distFreq.data(), literals,
            distances, &left, params->data(), flush);
    }
    EXPECT_LE(left, room);
    EXPECT_TRUE(length == 0 || left == 0);
    for (uint32_t i = 0; i < room - left; ++i) pairs.push_back({literals[i], distances[i]});
    return status;
}

/// Bytes that the pairs stand for, behind `history`; holds lengths, distances and counts to
/// account.
Bytes decode(const Pairs& pairs, const State& state, const Bytes& history = {}) {
    Bytes out = history;
    std::vector<uint32_t> lit(286);
    std::vector<uint32_t> dist(30);
    for (const Pair pair : pairs) {
        if (pair.dist == 0) {
            ++lit[pair.lit];
            out.push_back(pair.lit);
            continue;
        }
        EXPECT_LT(pair.dist, state.winSize);
        EXPECT_LE(pair.dist, out.size());
        if (pair.dist > out.size()) return {};
        for (int i = 0; i < pair.lit + 3; ++i) out.push_back(out[out.size() - pair.dist]);
        // The codes by walking the format's ranges: each adds its extra bits' worth.
        unsigned code = 0;
        for (unsigned base = 0; pair.lit != 255; ++code) {
            base += 1U << (code < 8 ? 0 : code / 4 - 1);
            if (base > pair.lit) break;
        }
        ++lit[257 + (pair.lit == 255 ? 28 : code)];
        code = 0;
        for (unsigned base = 0;; ++code) {
            base += 1U << (code < 4 ? 0 : code / 2 - 1);
            if (base > pair.dist - 1U) break;
        }
        ++dist[code];
    }
    for (size_t i = 0; i < 286; ++i) {
        EXPECT_EQ(state.litFreq[i].code + 65536U * state.litFreq[i].length, lit[i]) << i;
    }
    for (size_t i = 0; i < 30; ++i) EXPECT_EQ(state.distFreq[i].code, dist[i]) << i;
    return {out.begin() + static_cast<std::ptrdiff_t>(history.size()), out.end()};
}

struct Pieces {
    size_t most;
    uint32_t mostRoom;
    bool placed;
    bool fixed = false;
};

/// Encodes all of `data` in random pieces, each between guard pages.
Pairs encode(State& state, const Bytes& data, Random& random, Pieces pieces, const Params* params,
             bool lazy, uint32_t level) {
    Pairs pairs;
    for (size_t at = 0; at < data.size() && !testing::Test::HasFailure();) {
        const size_t most = std::min(pieces.most, data.size() - at);
        const size_t size = pieces.fixed ? most : pick(random, 1, most);
        const auto begin = data.begin() + static_cast<std::ptrdiff_t>(at);
        const Bytes piece(begin, begin + static_cast<std::ptrdiff_t>(size));
        Guarded guarded(piece, random() % 2 != 0 ? Guarded::Edge::End : Guarded::Edge::Start);
        if (pieces.placed) state.place(piece, state.position + static_cast<int32_t>(size));
        const uint8_t* src = guarded.data();
        auto left = static_cast<int32_t>(size);
        while (left != 0 && !testing::Test::HasFailure()) {
            auto room = static_cast<uint32_t>(pick(random, 1, pieces.mostRoom));
            if (pieces.fixed) room = pieces.mostRoom;
            if (pieces.placed && size > state.winSize) room = static_cast<uint32_t>(size);
            EXPECT_EQ(encodeOnce(state, src, left, room, pairs, params, lazy, level,
                                 static_cast<uint32_t>(random() % 5)),
                      vekStatusOk);
            EXPECT_EQ(src - guarded.data() + left, static_cast<std::ptrdiff_t>(size));
        }
        at += size;
    }
    return pairs;
}

uint32_t powerOfTwo(Random& random, unsigned low, unsigned high) {
    return 1U << pick(random, low, high);
}

}  // namespace

TEST(DeflateLz77, PairsGiveBackTheSourceAtEveryLevelShapeAndChunking) {
    Random random(31);
    const auto step = static_cast<uint32_t>(30 / effort(30));
    for (const Shape& shape : shapes()) {
        const Bytes data = shape.make(pick(random, 20000, 60000), static_cast<uint32_t>(random()));
        for (uint32_t level = 0; level < 30; level += step) {
            State state(powerOfTwo(random, 8, 15), powerOfTwo(random, 8, 16),
                        level % 2 != 0 ? Guarded::Edge::End : Guarded::Edge::Start);
            const Pieces pieces{size_t{1} << pick(random, 5, 17),
                                static_cast<uint32_t>(1U << pick(random, 5, 17)),
                                random() % 3 == 0};
            const Pairs pairs = encode(state, data, random, pieces, nullptr, false, level);
            ASSERT_EQ(decode(pairs, state), data) << shape.name << " level " << level << " window "
                                                  << state.winSize << " placed " << pieces.placed;
            ASSERT_EQ(level % 10 == 0, std::none_of(pairs.begin(), pairs.end(),
                                                    [](Pair pair) { return pair.dist != 0; }) &&
                                           level % 10 == 0);
        }
    }
}

TEST(DeflateLz77, OneByteAndOnePairAtATimeStillFindTheMatches) {
    Random random(32);
    const Bytes data = shapes()[4].make(3000, 7);
    for (const bool lazy : {false, true}) {
        const Params params{32, 8, 32, 16};
        State whole(1024, 1024);
        const Pairs expected =
            encode(whole, data, random, {3000, 3000, false, true}, &params, lazy, 0);
        State bytes(1024, 1024);
        const Pairs single = encode(bytes, data, random, {1, 1, false}, &params, lazy, 0);
        EXPECT_EQ(decode(single, bytes), data);
        EXPECT_EQ(single.size(), data.size());
        State rooms(1024, 1024);
        const Pairs roomy = encode(rooms, data, random, {3000, 1, false, true}, &params, lazy, 0);
        EXPECT_EQ(decode(roomy, rooms), data);
        if (!lazy) {
            EXPECT_EQ(roomy, expected);
        }
        // Nothing was entered twice or left out on the way: no position is its own predecessor, and
        // the latest occurrence of any four bytes is where the head table says.
        for (State* state : {&bytes, &rooms}) {
            if (!lazy && state == &rooms) continue;
            for (uint32_t i = 0; i < 1024; ++i) {
                const int32_t before = state->prev()[i];
                EXPECT_TRUE(before < 0 || (static_cast<uint32_t>(before) & 1023) != i ||
                            before < 1977);
            }
            for (uint32_t p = 2000; p < 2990; ++p) {
                const uint32_t hash = vek::crc32cStepPortable(0, wordAt(&data[p])) & 1023;
                EXPECT_GE(state->head()[hash], static_cast<int32_t>(p));
            }
        }
    }
}

namespace {

/// The greedy rules, with no thought of speed: chains over the whole stream.
Pairs referenceGreedy(const Bytes& data, const std::vector<size_t>& ends, size_t winSize,
                      size_t hashSize, const Params& params) {
    Pairs pairs;
    std::vector<int32_t> head(hashSize, -1);
    std::vector<int32_t> prev(data.size(), -1);
    size_t nextHeld = 0;
    const auto enter = [&](size_t p) {
        int32_t& latest = head[vek::crc32cStep(0, wordAt(&data[p])) & (hashSize - 1)];
        prev[p] = std::exchange(latest, static_cast<int32_t>(p));
    };
    size_t p = 0;
    for (const size_t end : ends) {
        for (size_t held = std::max(nextHeld, p < 3 ? 0 : p - 3); held < p && held + 4 <= end;
             ++held)
            enter(held), nextHeld = held + 1;
        while (p < end) {
            int best = 3;
            int distance = 0;
            const int limit = static_cast<int>(std::min<size_t>(258, end - p));
            if (limit >= 4) {
                enter(p);
                int budget = params[0];
                int32_t candidate = prev[p];
                for (int steps = 0; steps < budget && best < limit; ++steps) {
                    if (candidate < 0 || static_cast<size_t>(candidate) + winSize <= p) break;
                    const uint8_t* at = data.data() + candidate;
                    int length = 0;
                    while (length < limit && at[length] == data[p + static_cast<size_t>(length)])
                        ++length;
                    if (length > best) {
                        best = length;
                        distance = static_cast<int>(p) - candidate;
                        if (best >= params[1]) budget = params[0] / 4;
                        if (best >= params[2]) break;
                    }
                    candidate = prev[static_cast<size_t>(candidate)];
                }
            }
            if (distance == 0) {
                pairs.push_back({data[p], 0});
                ++p;
                continue;
            }
            pairs.push_back({static_cast<uint8_t>(best - 3), static_cast<uint16_t>(distance)});
            const size_t after = p + static_cast<size_t>(best);
            if (best <= params[3])
                for (size_t i = p + 1; i < after && i + 4 <= end; ++i) enter(i);
            p = after;
        }
    }
    return pairs;
}

}  // namespace

TEST(DeflateLz77, GreedyMatcherTakesTheMatchesOfItsRules) {
    Random random(33);
    for (const Shape& shape : shapes()) {
        for (int round = 0; round < 6; ++round) {
            const Bytes data = shape.make(pick(random, 1, 30000), static_cast<uint32_t>(random()));
            const uint32_t winSize = powerOfTwo(random, 8, 15);
            const uint32_t hashSize = powerOfTwo(random, 8, 16);
            const Params params{static_cast<int32_t>(pick(random, 1, 60)),
                                static_cast<int32_t>(pick(random, 4, 40)),
                                static_cast<int32_t>(pick(random, 4, 300)),
                                static_cast<int32_t>(pick(random, 4, 300))};
            const size_t piece = round < 3 ? data.size() : pick(random, 1, 5000);
            std::vector<size_t> ends;
            for (size_t end = piece; end < data.size(); end += piece) ends.push_back(end);
            ends.push_back(data.size());
            State state(winSize, hashSize);
            const Pairs pairs =
                encode(state, data, random, {piece, 30000, false, true}, &params, false, 0);
            ASSERT_EQ(decode(pairs, state), data);
            // (A source that happens to equal the ring's oldest bytes gives up some of the ring.)
            if (piece == data.size()) {
                ASSERT_EQ(pairs, referenceGreedy(data, ends, winSize, hashSize, params))
                    << shape.name << " round " << round;
            } else {
                const Pairs expected = referenceGreedy(data, ends, winSize, hashSize, params);
                ASSERT_LE(pairs.size(), expected.size() + expected.size() / 50 + 8) << shape.name;
            }
        }
    }
}

TEST(DeflateLz77, HostileTablesAndOddSizesStayInsideTheBuffers) {
    Random random(34);
    for (size_t round = 0; round < effort(150); ++round) {
        const auto edge = round % 2 != 0 ? Guarded::Edge::End : Guarded::Edge::Start;
        const bool odd = round % 3 == 0;
        State state(
            odd ? static_cast<uint32_t>(pick(random, 256, 32768)) : powerOfTwo(random, 8, 15),
            odd ? static_cast<uint32_t>(pick(random, 256, 65536)) : powerOfTwo(random, 8, 16),
            edge);
        const Bytes history = shapes()[random() % shapes().size()].make(state.winSize, 1);
        state.position = static_cast<int32_t>(
            round % 5 == 0 ? 0 : pick(random, 0, round % 2 != 0 ? 100000 : 0x7FFFFFFF));
        const int32_t near = state.position;
        const auto hostile = [&](uint32_t) {
            switch (random() % 4) {
                case 0:
                    return static_cast<int32_t>(random());
                case 1:
                    return static_cast<int32_t>(static_cast<uint32_t>(near) - random() % 40000);
                case 2:
                    return static_cast<int32_t>(static_cast<uint32_t>(near) + random() % 40000);
                default:
                    return near;
            }
        };
        for (uint32_t i = 0; i < state.hashSize; ++i) state.head()[i] = hostile(i);
        for (uint32_t i = 0; i < state.winSize; ++i) state.prev()[i] = hostile(i);
        Bytes before = history;
        before.resize(std::min<size_t>(before.size(), static_cast<size_t>(state.position)));
        const Bytes data = shapes()[random() % shapes().size()].make(5000, 2);
        if (!odd) state.place(before, state.position);
        const Params params{round % 10 == 0 ? 0x7FFFFFFF : 40, 258, 258, 258};
        const Pairs pairs = encode(state, data, random, {6000, 4000, round % 4 == 0}, &params,
                                   random() % 2 != 0, 0);
        if (!odd) {
            ASSERT_EQ(decode(pairs, state, before), data) << round;
        }
    }
}

TEST(DeflateLz77, PositionsNearTheirLimitAreRebasedWithoutLosingAMatch) {
    Random random(35);
    const Params params{64, 16, 258, 258};
    for (size_t round = 0; round < effort(40); ++round) {
        const uint32_t winSize = powerOfTwo(random, 8, 15);
        const bool lazy = round % 2 != 0;
        const Bytes data = shapes()[4 + random() % 4].make(40000, static_cast<uint32_t>(random()));
        State low(winSize, 4096);
        State high(winSize, 4096);
        low.position = static_cast<int32_t>(winSize);
        high.position = low.position;
        Pairs expected;
        Pairs actual;
        for (size_t at = 0; at < data.size();) {
            // Move one of the two states to just below the limit; its slots turn with it.
            const size_t size = pick(random, 1, 4000);
            const auto move =
                static_cast<uint32_t>(0x7FFFFFFF - high.position - pick(random, 0, 9000));
            const uint32_t turn = winSize - (move & (winSize - 1));
            for (uint32_t i = 0; i < 4096; ++i)
                if (high.head()[i] >= 0) high.head()[i] += static_cast<int32_t>(move);
            for (uint32_t i = 0; i < winSize; ++i)
                if (high.prev()[i] >= 0) high.prev()[i] += static_cast<int32_t>(move);
            std::rotate(high.prev(), high.prev() + turn, high.prev() + winSize);
            uint8_t* window = high.windowBytes.data();
            std::rotate(window, window + turn, window + winSize);
            high.position += static_cast<int32_t>(move);
            const auto end = std::min(at + size, data.size());
            const Bytes piece(data.begin() + static_cast<std::ptrdiff_t>(at),
                              data.begin() + static_cast<std::ptrdiff_t>(end));
            for (auto [state, pairs] : {std::pair{&low, &expected}, std::pair{&high, &actual}}) {
                Guarded source(piece);
                const uint8_t* src = source.data();
                auto left = static_cast<int32_t>(piece.size());
                ASSERT_EQ(encodeOnce(*state, src, left, 5000, *pairs, &params, lazy, 0, 0), 0);
            }
            at = end;
        }
        ASSERT_EQ(decode(expected, low), data);
        ASSERT_EQ(actual, expected) << "window " << winSize << " round " << round;
    }
}

TEST(DeflateLz77, HistoryCanBeEnteredWithoutBeingEncoded) {
    Random random(36);
    for (const int mode : {0, 1}) {
        for (const int32_t length : {-5, 0, 2, 3, 4, 5, 1000, 9000}) {
            const Bytes data = shapes()[4].make(static_cast<size_t>(std::max(length, 1)), 9);
            Guarded source(data);
            for (const int32_t first : {0, 777, 0x7FFFFFF0, -20}) {
                State state(4096, 512);
                State expected(4096, 512);
                uint32_t rolling = data.size() > 1 ? (data[0] << 5) ^ data[1] : 0U;
                for (int32_t i = 0; i + (mode != 0 ? 4 : 3) <= length; ++i) {
                    const uint32_t position =
                        static_cast<uint32_t>(first) + static_cast<uint32_t>(i);
                    const uint8_t* at = &data[static_cast<size_t>(i)];
                    rolling = (rolling << 5) ^ at[2];
                    const uint32_t hash =
                        mode != 0 ? vek::crc32cStepPortable(0, wordAt(at)) & 511 : rolling & 511;
                    int32_t& head = expected.head()[hash];
                    if (mode != 0) expected.prev()[position & 4095] = head;
                    head = static_cast<int32_t>(position);
                }
                ASSERT_EQ(veksDeflateUpdateHash_8u(source.data(), first, length, state.head(), 512,
                                                   state.prev(), 4096, mode),
                          0);
                ASSERT_EQ(state.headBytes.bytes(), expected.headBytes.bytes()) << length;
                ASSERT_EQ(state.prevBytes.bytes(), expected.prevBytes.bytes()) << length;
                if (first != 0) continue;
                State dictionary(4096, 512);
                ASSERT_EQ(veksDeflateDictionarySet_8u(source.data(), length, dictionary.head(), 512,
                                                      dictionary.prev(), &random, 4096, mode),
                          0);
                ASSERT_EQ(dictionary.headBytes.bytes(), expected.headBytes.bytes());
                ASSERT_EQ(dictionary.prevBytes.bytes(), expected.prevBytes.bytes());
            }
        }
    }
    // A source that repeats its dictionary is found there, up to the dictionary's last byte.
    const Bytes dictionary = shapes()[1].make(200, 3);
    for (const uint32_t level : {1U, 6U, 9U}) {
        State state(256, 256);
        state.place(dictionary, 200);
        state.position = 200;
        EXPECT_EQ(veksDeflateDictionarySet_8u(dictionary.data(), 200, state.head(), 256,
                                              state.prev(), &random, 256, 1),
                  0);
        Bytes data(dictionary.begin() + 197, dictionary.end());
        data.insert(data.end(), {1, 197, 199});
        data.insert(data.end(), dictionary.begin(), dictionary.begin() + 150);
        const Pairs pairs =
            encode(state, data, random, {1000, 1000, false, true}, nullptr, false, level);
        EXPECT_EQ(decode(pairs, state, dictionary), data);
        EXPECT_LE(pairs.size(), 8U);
    }
}

TEST(DeflateLz77, RefusesBadArgumentsBeforeTouchingAnything) {
    Random random(37);
    struct Case {
        const char* what;
        int nullAt;
        uint32_t winSize, hashSize;
        int32_t length, position;
        Params params;
        VekStatus status;
    };
    const Params good{8, 16, 16, 16};
    std::vector<Case> cases{
        {"small window", -1, 255, 256, 10, 0, good, vekStatusBadSize},
        {"large window", -1, 32769, 256, 10, 0, good, vekStatusBadSize},
        {"small hash", -1, 256, 255, 10, 0, good, vekStatusBadSize},
        {"large hash", -1, 256, 65537, 10, 0, good, vekStatusBadSize},
        {"negative length", -1, 256, 256, -1, 0, good, vekStatusBadSize},
        {"negative position", -1, 256, 256, 10, -1, good, vekStatusBadSize},
        {"size before domain", -1, 255, 256, 10, 0, {-1, 4, 4, 4}, vekStatusBadSize},
        {"negative chain", -1, 256, 256, 10, 0, {-1, 4, 4, 4}, vekStatusBadArgument},
        {"good length 3", -1, 256, 256, 10, 0, {8, 3, 16, 16}, vekStatusBadArgument},
        {"nice length 3", -1, 256, 256, 10, 0, {8, 4, 3, 16}, vekStatusBadArgument},
        {"limit 3", -1, 256, 256, 10, 0, {8, 4, 4, 3}, vekStatusBadArgument},
        {"no matching", -1, 256, 256, 10, 0, {0, 0, -5, 0}, vekStatusOk},
        {"nothing to do", -1, 256, 256, 0, 7, good, vekStatusOk},
    };
    for (int i = 0; i < 13; ++i)
        cases.push_back({"null", i, 1, 1, -1, -1, {-1, 0, 0, 0}, vekStatusNullPointer});
    const Bytes data = shapes()[0].make(10, 0);
    for (const Case& c : cases) {
        for (const int which : {0, 1, 2}) {
            Bytes window(32768);
            std::vector<int32_t> head(65536, -32768);
            std::vector<int32_t> prev(32768, -32768);
            std::vector<VekHuffEntry> lit(286);
            std::vector<VekHuffEntry> dist(30);
            const uint8_t* src = data.data();
            int32_t length = c.length;
            int32_t position = c.position;
            uint32_t room = 10;
            Bytes litDst(10, 99);
            std::vector<uint16_t> distDst(10);
            const auto null = [&](int at, auto* pointer) {
                return c.nullAt == at ? nullptr : pointer;
            };
            if (c.nullAt == 12) src = nullptr;
            VekStatus status;
            if (which == 0) {
                if (c.status == vekStatusBadArgument || c.what == std::string("no matching") ||
                    c.nullAt == 11)
                    continue;
                status = veksDeflateLZ77_8u(null(0, &src), null(1, &length), null(2, &position),
                                            null(3, window.data()), c.winSize, null(4, head.data()),
                                            null(5, prev.data()), c.hashSize, null(6, lit.data()),
                                            null(7, dist.data()), null(8, litDst.data()),
                                            null(9, distDst.data()), null(10, &room), 6, 0);
            } else {
                status = (which == 1 ? veksDeflateLZ77Fast_8u : veksDeflateLZ77Slow_8u)(
                    null(0, &src), null(1, &length), null(2, &position), null(3, window.data()),
                    c.winSize, null(4, head.data()), null(5, prev.data()), c.hashSize,
                    null(6, lit.data()), null(7, dist.data()), null(8, litDst.data()),
                    null(9, distDst.data()), null(10, &room), null(11, c.params.data()), 0);
            }
            EXPECT_EQ(status, c.status) << c.what << " " << c.nullAt;
            if (c.status == vekStatusOk) continue;
            EXPECT_EQ(std::tuple(length, position, room), std::tuple(c.length, c.position, 10U));
            EXPECT_EQ(litDst, Bytes(10, 99)) << c.what;
        }
    }
    EXPECT_EQ(veksDeflateLZ77_8u(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0,
                                 nullptr, nullptr, nullptr, nullptr, nullptr, 30, 0),
              vekStatusBadSize);
    std::vector<int32_t> table(65536, -1);
    for (int at = 0; at < 4; ++at) {
        const uint8_t* bytes = at == 0 ? nullptr : data.data();
        int32_t* head = at == 1 ? nullptr : table.data();
        int32_t* prev = at == 2 ? nullptr : table.data();
        const void* aux = at == 3 ? nullptr : &table;
        if (at != 3) {
            EXPECT_EQ(veksDeflateUpdateHash_8u(bytes, 0, 10, head, 1, prev, 1, 1),
                      vekStatusNullPointer);
        }
        EXPECT_EQ(veksDeflateDictionarySet_8u(bytes, 10, head, 1, prev, aux, 1, 1),
                  vekStatusNullPointer);
    }
    for (const auto& [winSize, hashSize] :
         {std::pair{255U, 256U}, {32769U, 256U}, {256U, 255U}, {256U, 65537U}}) {
        EXPECT_EQ(veksDeflateUpdateHash_8u(data.data(), 0, 10, table.data(), hashSize, table.data(),
                                           winSize, 1),
                  vekStatusBadSize);
        EXPECT_EQ(veksDeflateDictionarySet_8u(data.data(), 10, table.data(), hashSize, table.data(),
                                              &table, winSize, 0),
                  vekStatusBadSize);
    }
}

TEST(DeflateLz77, CountsGoOnBeyondSixteenBits) {
    State state(32768, 65536);
    const Bytes data(70000, 'a');
    Random random(38);
    const Pairs pairs = encode(state, data, random, {70000, 70000, false, true}, nullptr, false, 0);
    EXPECT_EQ(pairs.size(), data.size());
    EXPECT_EQ(decode(pairs, state), data);
}
