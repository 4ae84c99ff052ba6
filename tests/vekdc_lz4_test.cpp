// The tool's lz4 format against liblz4's frames, in memory: every option both ways, and what is
// wrong with broken files.
#include "support/tool.h"

#ifdef VEK_HAS_lz4
#define LZ4F_STATIC_LINKING_ONLY
#include <lz4frame.h>
#endif

namespace {

using vekdc::Settings;
using namespace vektest;

const vekdc::Format& lz4() {
    return format("lz4");
}

/// With files for --dict.
using Lz4Format = Program;

#ifdef VEK_HAS_lz4
Bytes decompressByPeer(const Bytes& packed, const Bytes& dictionary, size_t most) {
    LZ4F_dctx* context = nullptr;
    LZ4F_createDecompressionContext(&context, LZ4F_VERSION);
    Bytes out(most + 1);
    size_t room = out.size(), taken = packed.size();
    const size_t status =
        LZ4F_decompress_usingDict(context, out.data(), &room, packed.data(), &taken,
                                  dictionary.data(), dictionary.size(), nullptr);
    LZ4F_freeDecompressionContext(context);
    EXPECT_TRUE(status == 0 && taken == packed.size());
    out.resize(room);
    return out;
}
#endif

TEST_F(Lz4Format, WritesWhatTheLibraryAndItselfRead) {
    const Bytes dictionary = sample(70000);
    write("dictionary", dictionary);
    const std::pair<const char*, Options> options[] = {
        {"default", {}},
        {"small blocks", {{"block-size", "64K"}, {"block-checksums", ""}}},
        {"linked", {{"block-size", "64K"}, {"linked", ""}}},
        {"dictionary", {{"dict", path("dictionary")}, {"block-size", "256K"}}},
        {"all", {{"dict", path("dictionary")}, {"linked", ""}, {"block-size", "64K"}}},
        {"accelerated", {{"fast", "5"}}}};
    for (const size_t size : {0U, 1U, 13U, 1000U, 65536U, 65537U, 700000U}) {
        const Bytes plain = sample(size);
        for (const auto& [name, own] : options)
            for (const int level : {0, 1, 4, 9}) {
                if (level > 4 && size > 100000) continue;
                Settings settings = settingsOf(level, 1, own);
                const Bytes packed = compress(lz4(), plain, settings);
                ASSERT_TRUE(decompress(lz4(), packed, settings) == plain) << name << size;
                settings.jobs = 3;
                ASSERT_TRUE(compress(lz4(), plain, settings) == packed) << name << size;
#ifdef VEK_HAS_lz4
                const bool uses = own.contains("dict");
                const Bytes last(dictionary.end() - 65536, dictionary.end());
                ASSERT_TRUE(decompressByPeer(packed, uses ? last : Bytes(), size) == plain)
                    << name << " " << size << " level " << level;
#endif
            }
    }
}

TEST_F(Lz4Format, LinkedBlocksAndDictionariesPay) {
    const Bytes plain = shapes()[4].make(300000, 3);
    write("dictionary", plain);
    const auto size = [&](const Bytes& bytes, Options own) {
        own["block-size"] = "64K";
        return compress(lz4(), bytes, settingsOf(4, 1, own)).size();
    };
    EXPECT_LT(size(plain, {{"linked", ""}}), size(plain, {}));
    EXPECT_LT(size(Bytes(plain.end() - 5000, plain.end()), {{"dict", path("dictionary")}}), 200U);
}

TEST_F(Lz4Format, ReadsLegacyFrames) {
    const Bytes plain = sample((8U << 20) + 5000);
    Bytes packed = {0x02, 0x21, 0x4C, 0x18};
    for (size_t at = 0; at < plain.size(); at += 8U << 20) {
        const Bytes data = part(plain, at, 8U << 20);
        Bytes table(16384), block(vekLZ4EncodeBound(data.size()));
        int32_t size = length(block);
        veksEncodeLZ4_8u(data.data(), length(data), block.data(), &size, table.data());
        for (int shift = 0; shift < 32; shift += 8)
            packed.push_back(static_cast<uint8_t>(size >> shift));
        packed = packed + part(block, 0, static_cast<size_t>(size));
    }
    ASSERT_TRUE(lz4().recognises(packed));
    EXPECT_TRUE(decompress(lz4(), packed) == plain);
    // Another frame may follow.
    EXPECT_TRUE(decompress(lz4(), packed + compress(lz4(), plain)) == plain + plain);
}

TEST_F(Lz4Format, FramesFollowEachOther) {
    const Bytes plain = sample(30000);
    const Bytes packed = compress(lz4(), plain);
    const Bytes skipped = {0x5A, 0x2A, 0x4D, 0x18, 3, 0, 0, 0, 'x', 'y', 'z'};
    EXPECT_EQ(decompress(lz4(), skipped + packed + skipped + packed + skipped), plain + plain);
    const Decoded decoded = decode(lz4(), packed + bytesOf("junk!"));
    EXPECT_TRUE(decoded.plain == plain);
    EXPECT_TRUE(decoded.warning.starts_with("byte " + std::to_string(packed.size())));
    EXPECT_TRUE(contains(info(lz4(), packed), "independent,content-size"));
}

TEST_F(Lz4Format, SaysWhatIsWrongAndWhere) {
    const Bytes plain = sample(200000);
    const Bytes one = compress(lz4(), {'a'});
    const Bytes packed =
        compress(lz4(), plain, settingsOf(6, 1, {{"block-size", "64K"}, {"block-checksums", ""}}));
    const auto with = [&](size_t at, uint8_t value) {
        Bytes broken = packed;
        broken[at] = value;
        return broken;
    };
    const size_t first = packed[7] + 256U * packed[8] + 65536U * packed[9];
    expectComplaints(
        lz4(), {{bytesOf("no!!!"), "0: not an lz4 file"},
                {with(4, 0x24), "4: frame 1: unknown version"},
                {with(5, 0x41), "4: frame 1: reserved bits"},
                {with(5, 0x10), "5: frame 1: unknown block size"},
                {with(6, static_cast<uint8_t>(packed[6] + 1)), "6: frame 1: the header's checksum"},
                {one + with(11 + first, packed[11 + first] ^ 1),
                 std::to_string(one.size() + 11 + first) + ": frame 2, block 1: the block's check"},
                {with(9, 0x7F), "7: frame 1, block 1: the block is larger"},
                {with(packed.size() - 1, packed.back() ^ 1),
                 std::to_string(packed.size() - 4) + ": frame 1: the checksum of the content"}});
    for (const auto& [key, value] :
         {std::pair{"fast", "0"}, {"fast", "x"}, {"block-size", "5M"}, {"dict", "/nowhere/x"}})
        EXPECT_THROW(compress(lz4(), plain, settingsOf(6, 1, {{key, value}})), vekdc::Failure)
            << key << value;
}

}  // namespace
