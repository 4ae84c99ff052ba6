// Shared primitives against their plain definitions.

#include "bytes/copy.h"
#include "bytes/crc32c_step.h"
#include "bytes/fill.h"
#include "bytes/match_length.h"
#include "bytes/wide_copy.h"
#include "bytes/words.h"
#include "support/test.h"

using namespace vektest;

TEST(Bytes, HashStepEqualsPortableStep) {
    Random random(1);
    for (int i = 0; i < 10000; ++i) {
        const auto crc = static_cast<uint32_t>(random());
        const auto word = static_cast<uint32_t>(random());
        ASSERT_EQ(vek::crc32cStep(crc, word), vek::crc32cStepPortable(crc, word));
    }
}

TEST(Bytes, BitReversalReversesEveryWidth) {
    for (unsigned bits = 1; bits <= 32; ++bits)
        for (unsigned i = 0; i < bits; ++i)
            EXPECT_EQ(vek::reverseBits(1U << i, bits), 1U << (bits - 1 - i));
}

TEST(Bytes, MatchLengthStopsAtTheDifferenceAndAtTheLimit) {
    for (size_t limit = 0; limit <= 80; ++limit) {
        Guarded a(Bytes(limit, 'x'));
        Guarded b(Bytes(limit, 'x'));
        EXPECT_EQ(vek::matchLength(a.data(), b.data(), limit), limit);
        for (size_t at = 0; at < limit; ++at) {
            b.data()[at] = 'y';
            EXPECT_EQ(vek::matchLength(a.data(), b.data(), limit), at);
            b.data()[at] = 'x';
        }
    }
}

TEST(Bytes, OverlappingCopyRepeatsItsOwnOutput) {
    Random random(2);
    for (size_t distance = 1; distance <= 40; ++distance)
        for (size_t length = 0; length <= 300; length += 1 + length / 40) {
            const Bytes history = shapes()[1].make(distance, static_cast<uint32_t>(random()));
            Bytes expected = history;
            for (size_t i = 0; i < length; ++i) expected.push_back(expected[i]);
            const auto expectCopied = [&](size_t margin, const auto& copy) {
                Guarded buffer(distance + length + margin);
                std::memcpy(buffer.data(), history.data(), distance);
                copy(buffer.data() + distance);
                ASSERT_EQ(part(buffer.bytes(), 0, distance + length), expected)
                    << distance << " " << length;
            };
            expectCopied(0, [&](uint8_t* to) { vek::copyOverlap(to, distance, length); });
            expectCopied(0, [&](uint8_t* to) {
                vek::D_COPY_SLOW(to - distance, to, static_cast<ptrdiff_t>(length));
            });
            if (length == 0) continue;
            expectCopied(vek::wideCopyMargin<16>,
                         [&](uint8_t* to) { vek::copyMatchWide<16>(to, distance, length); });
            expectCopied(vek::wideCopyMargin<32>,
                         [&](uint8_t* to) { vek::copyMatchWide<32>(to, distance, length); });
        }
}

TEST(Bytes, FillsSetEveryElementAtEveryLengthAndAlignment) {
    constexpr size_t beyondEveryCache = 320U << 20;
    for (const size_t length : {0, 1, 3, 4, 5, 15, 16, 17, 1000, (3 << 20) + 1})
        for (size_t shift = 0; shift < 16; ++shift) {
            Guarded buffer(length * 4 + shift);
            auto* words = reinterpret_cast<int32_t*>(buffer.data() + shift);
            ownsSet_32s(0x12345678, words, length);
            for (size_t i = 0; i < length; ++i)
                ASSERT_EQ(vek::load<int32_t>(buffer.data() + shift + 4 * i), 0x12345678);
            ownsSet_8u(0xA5, buffer.data() + shift, length);
            for (size_t i = 0; i < length; ++i) ASSERT_EQ(buffer.data()[shift + i], 0xA5);
            if (length > 1000) break;
        }
    Guarded large(beyondEveryCache + 7);
    ownsSet_32s(0x01020304, reinterpret_cast<int32_t*>(large.data() + 3), beyondEveryCache / 4);
    for (size_t i = 0; i < beyondEveryCache; i += 997) ASSERT_EQ(large.data()[3 + i], 4 - i % 4);
    EXPECT_EQ(large.data()[0], 0);
    EXPECT_EQ(large.data()[3 + beyondEveryCache], 0);
}
