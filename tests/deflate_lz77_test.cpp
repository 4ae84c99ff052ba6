// Deflate's match finding: whatever the tables, sizes and pieces, the pairs give back the source.

#include <sys/mman.h>

#include "bytes/crc32c_step.h"
#include "support/deflate_ranges.h"
#include "support/test.h"

using namespace vektest;

namespace {

struct Pair {
    uint8_t lit;
    uint16_t dist;
    bool operator==(const Pair&) const = default;
};
using Pairs = std::vector<Pair>;
using Params = std::array<int32_t, 4>;

/// A level's matcher, or one of the two with parameters of the test's own.
struct Matcher {
    uint32_t level;
    bool lazy = false;
    const Params* params = nullptr;
};

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
                     Pairs& pairs, Matcher matcher, uint32_t flush) {
    uint8_t* literals = state.litDst.data() + (state.litDst.size() - room);
    auto* distances =
        reinterpret_cast<uint16_t*>(state.distDst.data() + (state.distDst.size() - 2 * room));
    uint32_t left = room;
    const auto call = [&](auto function, auto choice) {
        return function(&src, &length, &state.position, state.windowBytes.data(), state.winSize,
                        state.head(), state.prev(), state.hashSize, state.litFreq.data(),
                        state.distFreq.data(), literals, distances, &left, choice, flush);
    };
    const VekStatus status = matcher.params == nullptr ? call(veksDeflateLZ77_8u, matcher.level)
                                                       : call(matcher.lazy ? veksDeflateLZ77Slow_8u
                                                                           : veksDeflateLZ77Fast_8u,
                                                              matcher.params->data());
    EXPECT_LE(left, room);
    EXPECT_TRUE(status != vekStatusOk || length == 0 || left == 0);
    for (uint32_t i = 0; i < room - left; ++i) pairs.push_back({literals[i], distances[i]});
    return status;
}

/// Bytes that the pairs stand for, behind `history`; holds lengths, distances and counts to
/// account.
Bytes decode(const Pairs& pairs, const State& state, const Bytes& history = {}) {
    Bytes out = history;
    std::vector<uint32_t> lit(286), dist(30);
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
        ++lit[257 + findLength(holding(pair.lit + 3U)).code];
        ++dist[findDistance(holding(pair.dist)).code];
    }
    EXPECT_EQ(std::memcmp(state.litFreq.data(), lit.data(), 286 * sizeof(uint32_t)), 0);
    EXPECT_EQ(std::memcmp(state.distFreq.data(), dist.data(), 30 * sizeof(uint32_t)), 0);
    return part(out, history.size());
}

struct Pieces {
    size_t most;
    uint32_t mostRoom;
    bool placed, fixed = false;
};

/// Encodes all of `data` in random pieces, each between guard pages.
Pairs encode(State& state, const Bytes& data, Random& random, Pieces pieces, Matcher matcher) {
    Pairs pairs;
    for (size_t at = 0, size = 0; at < data.size() && !testing::Test::HasFailure(); at += size) {
        size = std::min(pieces.most, data.size() - at);
        if (!pieces.fixed) size = pick(random, 1, size);
        const Bytes piece = part(data, at, size);
        Guarded guarded(piece, random() % 2 != 0 ? Guarded::Edge::End : Guarded::Edge::Start);
        if (pieces.placed) state.place(piece, state.position + static_cast<int32_t>(size));
        const uint8_t* src = guarded.data();
        auto left = static_cast<int32_t>(size);
        while (left != 0 && !testing::Test::HasFailure()) {
            size_t room = pieces.fixed ? pieces.mostRoom : pick(random, 1, pieces.mostRoom);
            if (pieces.placed && size > state.winSize) room = size;
            EXPECT_EQ(encodeOnce(state, src, left, static_cast<uint32_t>(room), pairs, matcher,
                                 static_cast<uint32_t>(random() % 5)),
                      vekStatusOk);
            EXPECT_EQ(src + left, guarded.data() + size);
        }
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
        // The first shape is zeros: without matches, a count beyond 16 bits.
        const size_t size = &shape == shapes().data() ? 70000 : pick(random, 20000, 60000);
        const Bytes data = shape.make(size, static_cast<uint32_t>(random()));
        for (uint32_t level = 0; level < 30; level += step) {
            State state(powerOfTwo(random, 8, 15), powerOfTwo(random, 8, 16),
                        level % 2 != 0 ? Guarded::Edge::End : Guarded::Edge::Start);
            const Pieces pieces{size_t{1} << pick(random, 5, 17),
                                static_cast<uint32_t>(1U << pick(random, 5, 17)),
                                random() % 3 == 0};
            const Pairs pairs = encode(state, data, random, pieces, {level});
            ASSERT_EQ(decode(pairs, state), data) << shape.name << " level " << level << " window "
                                                  << state.winSize << " placed " << pieces.placed;
            ASSERT_TRUE(level % 10 != 0 || pairs.size() == data.size());
        }
    }
}

TEST(DeflateLz77, OneByteAndOnePairAtATimeStillFindTheMatches) {
    Random random(32);
    const Bytes data = shapes()[4].make(3000, 7);
    for (const Params params : {Params{32, 8, 32, 16}, Params{1, 8, 32, 16}})
        for (const bool lazy : {false, true}) {
            const Matcher matcher{0, lazy, &params};
            State bytes(1024, 1024);
            const Pairs single = encode(bytes, data, random, {1, 1, false}, matcher);
            EXPECT_EQ(decode(single, bytes), data);
            EXPECT_EQ(single.size(), data.size());
            // Nothing was entered twice or left out on the way: no position is its own predecessor,
            // and the latest occurrence of any four bytes is where the head table says.
            for (uint32_t i = 0; i < 1024; ++i) {
                const int32_t before = bytes.prev()[i];
                EXPECT_TRUE((static_cast<uint32_t>(before) & 1023) != i || before < 1977 ||
                            before > 2996);
            }
            for (uint32_t p = 2000; p < 2990; ++p) {
                const uint32_t hash = vek::crc32cStepPortable(0, wordAt(&data[p])) & 1023;
                EXPECT_GE(bytes.head()[hash], static_cast<int32_t>(p));
            }
        }
}

namespace {

/// The rules of both matchers, with no thought of speed: chains over the whole stream.
class Reference {
 public:
    Reference(const Bytes& source, const State& state, const Params& parameters)
        : data(source),
          params(parameters),
          winSize(state.winSize),
          head(state.hashSize, -1),
          prev(data.size(), -1) {}

    Pairs greedy() {
        while (at < data.size()) {
            enter(at);
            const Found found = search(at, 3, params[0]);
            const bool entersAll = found.length <= static_cast<size_t>(params[3]);
            take(found, [&](size_t p) { return entersAll && p != at; });
        }
        return pairs;
    }

    Pairs lazy() {
        while (at < data.size()) {
            enter(at);
            Found found = search(at, 3, params[0]);
            size_t entered = at + 1;
            while (found.distance != 0 && found.length < static_cast<size_t>(params[3]) &&
                   entered + 4 <= data.size()) {
                enter(entered++);
                const bool good = found.length >= static_cast<size_t>(params[1]);
                const Found next = search(at + 1, found.length, params[0] / (good ? 4 : 1));
                if (next.distance == 0) break;
                pairs.push_back({data[at++], 0});
                found = next;
            }
            take(found, [&](size_t p) { return p >= entered; });
        }
        return pairs;
    }

 private:
    struct Found {
        size_t length, distance;
    };

    void enter(size_t p) {
        if (p + 4 > data.size()) return;
        int32_t& latest = head[vek::crc32cStep(0, wordAt(&data[p])) & (head.size() - 1)];
        prev[p] = std::exchange(latest, static_cast<int32_t>(p));
    }

    Found search(size_t p, size_t longest, int budget) const {
        Found best{longest, 0};
        const size_t limit = std::min<size_t>(258, data.size() - p);
        auto candidate = static_cast<size_t>(prev[p]);
        for (int steps = 0; steps < budget && best.length < limit; ++steps) {
            if (candidate >= p || candidate + winSize <= p) break;
            size_t length = 0;
            while (length < limit && data[p + length] == data[candidate + length]) ++length;
            if (length > best.length) {
                best = {length, p - candidate};
                if (length >= static_cast<size_t>(params[1])) budget = params[0] / 4;
                if (length >= static_cast<size_t>(params[2])) break;
            }
            candidate = static_cast<size_t>(prev[candidate]);
        }
        return best;
    }

    /// Writes a match, or a literal if there is none, and enters those positions in it that
    /// `enters` tells.
    template <class Enters>
    void take(Found found, Enters enters) {
        const bool literal = found.distance == 0;
        const size_t length = literal ? 1 : found.length;
        pairs.push_back({literal ? data[at] : static_cast<uint8_t>(length - 3),
                         static_cast<uint16_t>(found.distance)});
        for (size_t p = at; p < at + length; ++p)
            if (enters(p)) enter(p);
        at += length;
    }

    const Bytes& data;
    const Params& params;
    size_t winSize;
    std::vector<int32_t> head, prev;
    size_t at = 0;
    Pairs pairs;
};

}  // namespace

TEST(DeflateLz77, MatchersTakeTheMatchesOfTheirRules) {
    Random random(33);
    size_t lazyPairs = 0;
    size_t lazyExpected = 0;
    for (const Shape& shape : shapes())
        for (int round = 0; round < 9; ++round) {
            const Bytes data = shape.make(pick(random, 1, 20000), static_cast<uint32_t>(random()));
            const bool lazy = round > 3;
            Params params{};
            for (int32_t& p : params) p = pick<int32_t>(random, 4, 40);
            params[2] *= 7;
            if (round % 3 == 0) params[0] = 1;
            // Chains longer than the window, of which a quarter is still longer.
            if (round % 3 == 1) params = {1024, 4, 258, 258};
            State state(round % 3 == 1 ? 256 : powerOfTwo(random, 8, 15),
                        powerOfTwo(random, 8, 16));
            const Pairs pairs =
                encode(state, data, random, {data.size(), 20000, false, true}, {0, lazy, &params});
            ASSERT_EQ(decode(pairs, state), data);
            Reference reference(data, state, params);
            const Pairs expected = lazy ? reference.lazy() : reference.greedy();
            // The lazy matcher takes the rarest chain, and knows matches of three bytes besides.
            if (lazy) {
                ASSERT_LE(pairs.size(), expected.size() + expected.size() / 25 + 4) << shape.name;
                lazyPairs += pairs.size();
                lazyExpected += expected.size();
                continue;
            }
            ASSERT_EQ(pairs, expected) << shape.name << " round " << round;
            // In pieces that cut no match the greedy matcher finds the same, whether the source
            // ends there or the room.
            State pieces(state.winSize, state.hashSize);
            State rooms(state.winSize, state.hashSize);
            Pairs fromPieces, fromRooms;
            const uint8_t* src = data.data();
            const uint8_t* roomSrc = src;
            int32_t left = length(data);
            for (size_t at = 0, count = 0; at < pairs.size(); at += count) {
                count = std::min(pick(random, 1, 6), pairs.size() - at);
                int32_t length = 0;
                for (size_t i = at; i < at + count; ++i)
                    length += pairs[i].dist == 0 ? 1 : pairs[i].lit + 3;
                encodeOnce(pieces, src, length, 1000, fromPieces, {0, false, &params}, 2);
                encodeOnce(rooms, roomSrc, left, static_cast<uint32_t>(count), fromRooms,
                           {0, false, &params}, 2);
            }
            ASSERT_EQ(fromPieces, pairs) << shape.name << " round " << round;
            ASSERT_EQ(fromRooms, pairs) << shape.name << " round " << round;
        }
    EXPECT_LE(lazyPairs, lazyExpected);
}

TEST(DeflateLz77, SearchesAreCutToAQuarterOfTheChainGiven) {
    // Behind a match of goodLength stands a run of candidates, and behind the run, within a quarter
    // of maxChain, a longer match: not a quarter of what the window holds, nor a quarter twice.
    struct Case {
        bool lazy;
        uint32_t winSize;
        Params params;
        size_t run;
    };
    const std::string longer = "aaaaxyzuvw";
    for (const Case& c :
         {Case{false, 256, {1024, 4, 258, 258}, 80}, Case{true, 32768, {64, 4, 258, 258}, 14}}) {
        // The lazy one has a match in hand one byte earlier.
        std::string text = longer;
        text.append(c.lazy ? "1Zaaaq" : "1").append(c.run, 'a').append(c.lazy ? "xQ2Z" : "xQ2");
        text.append(longer).append("#");
        const Bytes data(text.begin(), text.end());
        State state(c.winSize, 65536);
        Random random(1);
        const Pairs pairs =
            encode(state, data, random, {data.size(), 1000, false, true}, {0, c.lazy, &c.params});
        ASSERT_EQ(decode(pairs, state), data);
        const auto distance = data.size() - 1 - longer.size();
        const auto isLonger = [&](const Pair& pair) {
            return pair.dist == distance && pair.lit + 3U == longer.size();
        };
        EXPECT_EQ(std::count_if(pairs.begin(), pairs.end(), isLonger), 1) << c.lazy;
    }
}

TEST(DeflateLz77, RecordsWhoseFirstByteIsTheSameAreNoText) {
    // Records of 16 bytes that hold the same three bytes twice, in a source of such a size that
    // every 256th byte was looked at: the lazy matcher takes them, as the other bytes are of all
    // values.
    Random random(3);
    Bytes data;
    for (int record = 0; record < 255 * 64; ++record) {
        Bytes bytes(16, 0);
        std::generate(bytes.begin() + 1, bytes.end(),
                      [&] { return pick<uint8_t>(random, 0, 255); });
        std::copy_n(bytes.begin() + 1, 3, bytes.begin() + 8);
        data = std::move(data) + bytes;
    }
    State state(32768, 65536);
    const Params params = {16, 8, 32, 16};
    const Pairs pairs =
        encode(state, data, random, {data.size(), 5000, false, true}, {0, true, &params});
    ASSERT_EQ(decode(pairs, state), data);
    EXPECT_TRUE(
        std::any_of(pairs.begin(), pairs.begin() + 1000, [](Pair pair) { return pair.dist == 7; }));
}

TEST(DeflateLz77, EmptiedTablesLeaveNoHistory) {
    Random random(37);
    for (size_t round = 0; round < effort(600); ++round) {
        const Shape& shape = shapes()[round % shapes().size()];
        const Bytes data = shape.make(pick(random, 1, 600), static_cast<uint32_t>(random()));
        State state(256, powerOfTwo(random, 8, 16));
        // From any position, behind bytes that are in the window but not in the tables.
        state.position = pick<int32_t>(random, 0, 600);
        state.place(data, state.position);
        const Matcher matcher{static_cast<uint32_t>(round % 30)};
        const size_t most = pick(random, 1, 40);
        Pairs pairs;
        for (size_t at = 0, from = 0; at < data.size();) {
            const Bytes piece = part(data, at, pick(random, 1, most));
            const uint8_t* src = piece.data();
            int32_t left = length(piece);
            encodeOnce(state, src, left, pick<uint32_t>(random, 1, 40), pairs, matcher,
                       static_cast<uint32_t>(random() % 5));
            at += piece.size() - static_cast<size_t>(left);
            if (random() % 4 != 0 && at != data.size()) continue;
            ASSERT_EQ(decode(pairs, state), part(data, from, at - from)) << shape.name << round;
            from = at;
            pairs.clear();
            std::fill_n(state.head(), state.hashSize, -32768);
            std::fill_n(state.prev(), state.winSize, -32768);
            state.litFreq.assign(286, {});
            state.distFreq.assign(30, {});
        }
    }
}

TEST(DeflateLz77, HistoryIsKeptWhereverTheSourceStands) {
    // Data whose period divides the window's size looks like placed by the caller, and is not. What
    // is placed, or lies in the window to begin with, takes the place of other bytes, or of equal.
    const Bytes block = shapes()[1].make(4096, 5);
    enum class Source { Apart, Placed, InWindow };
    for (const Source where : {Source::Apart, Source::Placed, Source::InWindow})
        for (const size_t piece : {1000U, 4096U, 32768U, 40000U})
            for (const bool lazy : {false, true}) {
                if (where == Source::InWindow && 32768 % piece != 0) continue;
                SCOPED_TRACE(testing::Message() << static_cast<int>(where) << ' ' << piece);
                Bytes data;
                for (int i = 0; i < 64; ++i) data.insert(data.end(), block.begin(), block.end());
                for (size_t i = 40000; where != Source::Apart && i < data.size(); i += 5000)
                    data[i] ^= 1;
                State state(32768, 65536);
                const Params params{32, 32, 258, 258};
                Pairs pairs;
                for (size_t at = 0; at < data.size(); at += piece) {
                    const Bytes bytes = part(data, at, piece);
                    int32_t left = length(bytes);
                    if (where != Source::Apart) state.place(bytes, state.position + left);
                    const uint8_t* src = where == Source::InWindow
                                             ? state.windowBytes.data() + (state.position & 32767)
                                             : bytes.data();
                    // In two calls, where a source may be placed that is not used up.
                    const auto few = static_cast<uint32_t>(piece > 32768 ? left : 1);
                    encodeOnce(state, src, left, few, pairs, {0, lazy, &params}, 0);
                    encodeOnce(state, src, left, 1U << 16, pairs, {0, lazy, &params}, 0);
                    ASSERT_EQ(left, 0);
                }
                ASSERT_EQ(decode(pairs, state), data);
                EXPECT_TRUE(where != Source::Apart || pairs.size() < 5500) << pairs.size();
            }
}

TEST(DeflateLz77, HostileTablesAndOddSizesStayInsideTheBuffers) {
    Random random(34);
    for (size_t round = 0; round < effort(150); ++round) {
        const auto edge = round % 2 != 0 ? Guarded::Edge::End : Guarded::Edge::Start;
        const bool odd = round % 3 == 0;
        State state(odd ? pick<uint32_t>(random, 256, 32768) : powerOfTwo(random, 8, 15),
                    odd ? pick<uint32_t>(random, 256, 65536) : powerOfTwo(random, 8, 16), edge);
        state.position = static_cast<int32_t>(
            round % 5 == 0 ? 0 : pick(random, 0, round % 2 != 0 ? 100000 : 0x7FFFFFFF));
        const auto near = static_cast<uint32_t>(state.position);
        const auto hostile = [&] {
            const auto any = static_cast<uint32_t>(random());
            const uint32_t values[] = {any, near - any % 40000, near + any % 40000, near};
            return static_cast<int32_t>(values[random() % 4]);
        };
        std::generate_n(state.head(), state.hashSize, hostile);
        std::generate_n(state.prev(), state.winSize, hostile);
        Bytes before = shapes()[random() % shapes().size()].make(state.winSize, 1);
        before.resize(std::min<size_t>(before.size(), static_cast<size_t>(state.position)));
        const Bytes data = shapes()[random() % shapes().size()].make(5000, 2);
        if (!odd) state.place(before, state.position);
        const int32_t chain = round % 10 == 0 ? 0x7FFFFFFF : round % 3 == 1 ? 1 : 40;
        const Params params{chain, 258, 258, 258};
        const Pairs pairs = encode(state, data, random, {6000, 4000, round % 4 == 0},
                                   {0, random() % 2 != 0, &params});
        ASSERT_TRUE(odd || decode(pairs, state, before) == data) << round;
    }
}

TEST(DeflateLz77, PositionsNearTheirLimitAreRebasedWithoutLosingAMatch) {
    Random random(35);
    for (size_t round = 0; round < effort(40); ++round) {
        const Params params{round % 4 == 0 ? 1 : 64, 16, 258, 258};
        const uint32_t winSize = powerOfTwo(random, 8, 15);
        const bool lazy = round % 2 != 0;
        const Bytes data = shapes()[4 + random() % 4].make(40000, static_cast<uint32_t>(random()));
        State low(winSize, 4096), high(winSize, 4096);
        low.position = static_cast<int32_t>(winSize);
        high.position = low.position;
        Pairs expected, actual;
        for (size_t at = 0; at < data.size();) {
            // Move one of the two states to just below the limit; its slots turn with it.
            const size_t size = pick(random, 1, 4000);
            const auto move =
                static_cast<uint32_t>(0x7FFFFFFF - high.position - pick(random, 0, 9000));
            const uint32_t turn = winSize - (move & (winSize - 1));
            const auto lift = [&](int32_t& p) { p += p >= 0 ? static_cast<int32_t>(move) : 0; };
            std::for_each_n(high.head(), 4096, lift);
            std::for_each_n(high.prev(), winSize, lift);
            std::rotate(high.prev(), high.prev() + turn, high.prev() + winSize);
            uint8_t* window = high.windowBytes.data();
            std::rotate(window, window + turn, window + winSize);
            high.position += static_cast<int32_t>(move);
            const Bytes piece = part(data, at, size);
            for (auto [state, pairs] : {std::pair{&low, &expected}, std::pair{&high, &actual}}) {
                Guarded source(piece);
                const uint8_t* src = source.data();
                int32_t left = length(piece);
                ASSERT_EQ(encodeOnce(*state, src, left, 5000, *pairs, {0, lazy, &params}, 0), 0);
            }
            at += piece.size();
        }
        ASSERT_EQ(decode(expected, low), data);
        ASSERT_EQ(actual, expected) << "window " << winSize << " round " << round;
    }
}

TEST(DeflateLz77, TheLimitOfPositionsIsFoundWhereSumsExceed32Bits) {
    constexpr size_t size = 0x48000000;  // only its ends are looked at, and none is written
    void* const zeros =
        mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (zeros == MAP_FAILED) GTEST_SKIP() << "no address space";
    State state(32768, 256);
    state.position = 0x7FFFFF80;
    Pairs pairs;
    const auto* src = static_cast<const uint8_t*>(zeros);
    int32_t left = size;
    EXPECT_EQ(encodeOnce(state, src, left, 2, pairs, {1}, 0), vekStatusOk);
    EXPECT_EQ(pairs, (Pairs{{0, 0}, {255, 1}}));
    EXPECT_EQ(state.position, 32768 + 1 + 258);
    munmap(zeros, size);
}

TEST(DeflateLz77, HistoryCanBeEnteredWithoutBeingEncoded) {
    Random random(36);
    for (const int32_t length : {-5, 0, 2, 3, 4, 5, 9000}) {
        const Bytes data = shapes()[4].make(static_cast<size_t>(std::max(length, 1)), 9);
        Guarded source(data);
        for (const int32_t first : {0, 777, -20})
            for (const int mode : {0, 1}) {
                State expected(4096, 512);
                for (int32_t i = 0; i + (mode != 0 ? 4 : 3) <= length; ++i) {
                    const uint8_t* at = &data[static_cast<size_t>(i)];
                    const uint32_t hash = mode != 0 ? vek::crc32cStepPortable(0, wordAt(at))
                                                    : at[0] << 10 ^ at[1] << 5 ^ at[2];
                    int32_t& head = expected.head()[hash & 511];
                    if (mode != 0) expected.prev()[(first + i) & 4095] = head;
                    head = first + i;
                }
                for (const bool dictionary : {false, true}) {
                    if (dictionary && first != 0) continue;
                    State state(4096, 512);
                    const VekStatus status =
                        dictionary
                            ? veksDeflateDictionarySet_8u(source.data(), length, state.head(), 512,
                                                          state.prev(), &random, 4096, mode)
                            : veksDeflateUpdateHash_8u(source.data(), first, length, state.head(),
                                                       512, state.prev(), 4096, mode);
                    ASSERT_EQ(status, vekStatusOk);
                    ASSERT_EQ(state.headBytes.bytes(), expected.headBytes.bytes()) << length;
                    ASSERT_EQ(state.prevBytes.bytes(), expected.prevBytes.bytes()) << length;
                }
            }
    }
}

TEST(DeflateLz77, RefusesBadArgumentsBeforeTouchingAnything) {
    const Params good{8, 16, 16, 16};
    const struct {
        VekStatus status;
        uint32_t winSize, hashSize;
        int32_t length, position;
        Params params;
    } cases[] = {
        {vekStatusBadSize, 255, 256, 10, 0, {-1, 4, 4, 4}},
        {vekStatusBadSize, 32769, 256, 10, 0, good},
        {vekStatusBadSize, 256, 255, 10, 0, good},
        {vekStatusBadSize, 256, 65537, 10, 0, good},
        {vekStatusBadSize, 256, 256, -1, 0, good},
        {vekStatusBadSize, 256, 256, 10, -1, good},
        {vekStatusBadArgument, 256, 256, 10, 0, {-1, 4, 4, 4}},
        {vekStatusBadArgument, 256, 256, 10, 0, {8, 3, 16, 16}},
        {vekStatusBadArgument, 256, 256, 10, 0, {8, 4, 3, 16}},
        {vekStatusBadArgument, 256, 256, 10, 0, {8, 4, 4, 3}},
        {vekStatusOk, 256, 256, 10, 0, {0, 0, -5, 0}},
        {vekStatusOk, 256, 256, 0, 7, good},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        for (const Matcher& matcher : {Matcher{6}, {0, false, &c.params}, {0, true, &c.params}}) {
            const bool byLevel = matcher.params == nullptr;
            if (byLevel && (c.status == vekStatusBadArgument || c.params[0] == 0)) continue;
            State state(32768, 65536);
            state.winSize = c.winSize;
            state.hashSize = c.hashSize;
            state.position = c.position;
            const Bytes data(10);
            const uint8_t* src = data.data();
            int32_t length = c.length;
            Pairs pairs;
            EXPECT_EQ(encodeOnce(state, src, length, 10, pairs, matcher, 0), c.status);
            EXPECT_TRUE(c.status == vekStatusOk ||
                        std::tuple(length, state.position, pairs.size(), state.head()[0]) ==
                            std::tuple(c.length, c.position, 0U, -32768));
        }
        // Of history, the two sizes.
        if (std::min(c.length, c.position) < 0) continue;
        const uint8_t byte = 0;
        std::vector<int32_t> table(65536);
        int32_t* const tables = table.data();
        const VekStatus status = c.status == vekStatusBadArgument ? vekStatusOk : c.status;
        EXPECT_EQ(
            veksDeflateDictionarySet_8u(&byte, 1, tables, c.hashSize, tables, &table, c.winSize, 1),
            status);
        EXPECT_EQ(veksDeflateUpdateHash_8u(&byte, 0, 1, tables, c.hashSize, tables, c.winSize, 0),
                  status);
    }
    EXPECT_EQ(veksDeflateLZ77_8u(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0,
                                 nullptr, nullptr, nullptr, nullptr, nullptr, 30, 0),
              vekStatusBadSize);
}
