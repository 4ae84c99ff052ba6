// The tool's lz4 format against liblz4's frames, in memory: every option both ways, and what is
// wrong with broken files.
#include <unistd.h>

#include "support/tool.h"

#ifdef VEK_HAS_lz4
#define LZ4F_STATIC_LINKING_ONLY
#include <lz4.h>
#include <lz4frame.h>
#endif

namespace {

using vekdc::FormatError;
using vekdc::Settings;
using vekdc::Source;
using namespace vektest;

const vekdc::Format& lz4() {
    return *vekdc::formatByName("lz4");
}

Bytes compress(const Bytes& plain, const Settings& settings) {
    return vektest::compress(lz4(), plain, settings);
}
Bytes decompress(const Bytes& packed, const Settings& settings = {}) {
    return vektest::decompress(lz4(), packed, settings);
}

/// A dictionary in a file, for --dict.
class DictionaryFile {
 public:
    explicit DictionaryFile(const Bytes& bytes)
        : path_(testing::TempDir() + "vekdc_lz4_dictionary_" + std::to_string(getpid())) {
        std::ofstream file(path_, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    ~DictionaryFile() { std::remove(path_.c_str()); }
    DictionaryFile(const DictionaryFile&) = delete;
    DictionaryFile& operator=(const DictionaryFile&) = delete;
    const std::string& path() const { return path_; }

 private:
    std::string path_;
};

#ifdef VEK_HAS_lz4
Bytes decompressByPeer(const Bytes& packed, const Bytes& dictionary, size_t most) {
    LZ4F_dctx* context = nullptr;
    LZ4F_createDecompressionContext(&context, LZ4F_VERSION);
    Bytes out(most + 1);
    size_t in = 0;
    size_t done = 0;
    size_t status = 1;
    while (status != 0 && in < packed.size()) {
        size_t room = out.size() - done;
        size_t left = packed.size() - in;
        status = LZ4F_decompress_usingDict(context, out.data() + done, &room, packed.data() + in,
                                           &left, dictionary.data(), dictionary.size(), nullptr);
        if (LZ4F_isError(status) != 0U || (left == 0 && room == 0)) break;
        in += left;
        done += room;
    }
    LZ4F_freeDecompressionContext(context);
    if (status != 0 || in != packed.size()) return {};
    out.resize(done);
    return out;
}

Bytes compressByPeer(const Bytes& plain, const LZ4F_preferences_t& preferences,
                     const Bytes& dictionary) {
    LZ4F_cctx* context = nullptr;
    LZ4F_createCompressionContext(&context, LZ4F_VERSION);
    LZ4F_CDict* dict =
        dictionary.empty() ? nullptr : LZ4F_createCDict(dictionary.data(), dictionary.size());
    Bytes out(LZ4F_compressFrameBound(plain.size(), &preferences));
    const size_t n = LZ4F_compressFrame_usingCDict(context, out.data(), out.size(), plain.data(),
                                                   plain.size(), dict, &preferences);
    LZ4F_freeCDict(dict);
    LZ4F_freeCompressionContext(context);
    EXPECT_FALSE(LZ4F_isError(n));
    out.resize(n);
    return out;
}
#endif

TEST(Lz4Format, WritesWhatTheLibraryAndItselfRead) {
    const Bytes dictionary = sample(70000);
    const DictionaryFile file(dictionary);
    const std::vector<std::pair<const char*, std::vector<std::pair<std::string, std::string>>>>
        options = {{"default", {}},
                   {"small blocks", {{"block-size", "64K"}, {"block-checksums", ""}}},
                   {"linked", {{"block-size", "64K"}, {"linked", ""}}},
                   {"dictionary", {{"dict", file.path()}, {"block-size", "256K"}}},
                   {"all", {{"dict", file.path()}, {"linked", ""}, {"block-size", "64K"}}},
                   {"accelerated", {{"fast", "5"}}}};
    for (const size_t size : {0U, 1U, 13U, 1000U, 65536U, 65537U, 700000U}) {
        const Bytes plain = sample(size);
        for (const auto& [name, own] : options) {
            for (const int level : {0, 1, 4, 9}) {
                if (level > 4 && size > 100000) continue;
                Settings settings;
                settings.level = std::max(level, 1);
                settings.fastest = level == 0;
                for (const auto& [key, value] : own) settings.own[key] = value;
                const Bytes packed = compress(plain, settings);
                ASSERT_TRUE(decompress(packed, settings) == plain) << name << size;
                settings.jobs = 3;
                ASSERT_TRUE(compress(plain, settings) == packed) << name << size;
#ifdef VEK_HAS_lz4
                const bool uses = settings.own.contains("dict");
                const Bytes last(dictionary.end() - 65536, dictionary.end());
                ASSERT_TRUE(decompressByPeer(packed, uses ? last : Bytes(), size) == plain)
                    << name << " " << size << " level " << level;
#endif
            }
        }
    }
}

TEST(Lz4Format, LinkedBlocksAndDictionariesPay) {
    const Bytes plain = shapes()[4].make(300000, 3);
    const DictionaryFile file(plain);
    Settings small;
    small.level = 4;
    small.own["block-size"] = "64K";
    Settings linked = small;
    linked.own["linked"] = "";
    Settings known = small;
    known.own["dict"] = file.path();
    EXPECT_LT(compress(plain, linked).size(), compress(plain, small).size());
    EXPECT_LT(compress(Bytes(plain.end() - 5000, plain.end()), known).size(), 200U);
}

#ifdef VEK_HAS_lz4
TEST(Lz4Format, ReadsWhatTheLibraryWrites) {
    const Bytes dictionary = sample(40000);
    const DictionaryFile file(dictionary);
    const Bytes plain = sample(600000);
    for (int mask = 0; mask < 64; ++mask) {
        LZ4F_preferences_t preferences{};
        preferences.frameInfo.blockMode =
            (mask & 1) != 0 ? LZ4F_blockIndependent : LZ4F_blockLinked;
        preferences.frameInfo.blockSizeID = (mask & 2) != 0 ? LZ4F_max64KB : LZ4F_max1MB;
        preferences.frameInfo.contentChecksumFlag =
            (mask & 4) != 0 ? LZ4F_contentChecksumEnabled : LZ4F_noContentChecksum;
        preferences.frameInfo.blockChecksumFlag =
            (mask & 8) != 0 ? LZ4F_blockChecksumEnabled : LZ4F_noBlockChecksum;
        preferences.frameInfo.contentSize = (mask & 16) != 0 ? plain.size() : 0;
        preferences.frameInfo.dictID = (mask & 32) != 0 ? 77 : 0;
        const Bytes packed =
            compressByPeer(plain, preferences, (mask & 32) != 0 ? dictionary : Bytes());
        Settings settings;
        if ((mask & 32) != 0) settings.own["dict"] = file.path();
        ASSERT_TRUE(decompress(packed, settings) == plain) << mask;
        if ((mask & 32) != 0) {
            EXPECT_THROW(decompress(packed), FormatError);
        }
    }
}

TEST(Lz4Format, ReadsLegacyFrames) {
    Bytes plain = sample((8U << 20) + 5000);
    Bytes packed = {0x02, 0x21, 0x4C, 0x18};
    for (size_t at = 0; at < plain.size(); at += 8U << 20) {
        const size_t size = std::min<size_t>(plain.size() - at, 8U << 20);
        Bytes block(static_cast<size_t>(LZ4_compressBound(static_cast<int>(size))));
        const int n = LZ4_compress_default(reinterpret_cast<const char*>(plain.data() + at),
                                           reinterpret_cast<char*>(block.data()),
                                           static_cast<int>(size), static_cast<int>(block.size()));
        for (int shift = 0; shift < 32; shift += 8)
            packed.push_back(static_cast<uint8_t>(static_cast<uint32_t>(n) >> shift));
        packed.insert(packed.end(), block.begin(), block.begin() + n);
    }
    ASSERT_TRUE(lz4().recognises(packed));
    EXPECT_TRUE(decompress(packed) == plain);
    // Another frame may follow.
    EXPECT_TRUE(decompress(packed + compress(plain, {})) == plain + plain);
}
#endif

TEST(Lz4Format, FramesFollowEachOther) {
    const Bytes plain = sample(30000);
    const Bytes packed = compress(plain, {});
    const Bytes skipped = {0x5A, 0x2A, 0x4D, 0x18, 3, 0, 0, 0, 'x', 'y', 'z'};
    EXPECT_TRUE(decompress(skipped + packed + skipped + packed + skipped) == plain + plain);
    std::string warning;
    Settings settings;
    settings.warn = [&](const std::string& text) { warning = text; };
    EXPECT_TRUE(decompress(packed + Bytes{'j', 'u', 'n', 'k', '!'}, settings) == plain);
    EXPECT_NE(warning.find("byte " + std::to_string(packed.size())), std::string::npos);

    std::string text;
    Source source(packed);
    Settings none;
    lz4().describe(source, none, [&](const std::string& line) { text += line + "\n"; });
    EXPECT_NE(text.find("independent,content-size"), std::string::npos) << text;
}

TEST(Lz4Format, EveryFaultIsFound) {
    const Bytes plain = sample(3000);
    Settings settings;
    settings.own["block-checksums"] = "";
    // A changed magic number may be another frame's, which then is broken all the same.
    EXPECT_EQ(damage(lz4(), compress(plain, settings)), 0U);
    // Without block checksums it shows in the decoder or at the end; another offset may be as good.
    const Bytes block = compress(plain, {});
    for (size_t at = 15; at + 8 < block.size(); ++at) {
        Bytes broken = block;
        broken[at] ^= 0x55;
        try {
            EXPECT_TRUE(decompress(broken) == plain) << at;
        } catch (const FormatError&) {
        }
    }
}

TEST(Lz4Format, SaysWhatIsWrongAndWhere) {
    Settings small;
    small.own["block-size"] = "64K";
    small.own["block-checksums"] = "";
    const Bytes plain = sample(200000);
    const Bytes packed = compress(plain, small);
    const auto with = [&](size_t at, uint8_t value) {
        Bytes broken = packed;
        broken[at] = value;
        return broken;
    };
    EXPECT_EQ(complaint(lz4(), {'n', 'o', '!', '!', '!'}), "0: not an lz4 file");
    EXPECT_EQ(complaint(lz4(), with(4, 0x24)), "4: frame 1: unknown version of the format");
    EXPECT_EQ(complaint(lz4(), with(5, 0x10)), "5: frame 1: unknown block size");
    EXPECT_EQ(complaint(lz4(), with(6, static_cast<uint8_t>(packed[6] + 1))),
              "6: frame 1: the header's checksum does not match");
    const size_t first = packed[7] + 256U * packed[8] + 65536U * packed[9];
    EXPECT_EQ(complaint(lz4(), compress({'a'}, {}) + with(11 + first, packed[11 + first] ^ 1)),
              std::to_string(compress({'a'}, {}).size() + 11 + first) +
                  ": frame 2, block 1: the block's checksum does not match");
    EXPECT_EQ(complaint(lz4(), with(9, 0x7F)),
              "7: frame 1, block 1: the block is larger than the frame allows");
    EXPECT_EQ(complaint(lz4(), with(packed.size() - 1, packed.back() ^ 1)),
              std::to_string(packed.size() - 4) +
                  ": frame 1: the checksum of the content does not match");
    for (const auto& [key, value] :
         {std::pair{"fast", "0"}, {"fast", "x"}, {"block-size", "5M"}, {"dict", "/nowhere/x"}}) {
        Settings wrong;
        wrong.own[key] = value;
        EXPECT_THROW(compress(plain, wrong), vekdc::Failure) << key << value;
    }
}

}  // namespace
