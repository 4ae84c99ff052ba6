// Checksums, on every path, against their definitions bit by bit. That those are the published ones
// shows in the sums of the tool.

#include "support/features.h"
#include "support/test.h"
#include "vekcore.h"

using namespace vektest;

namespace {

uint32_t reflectedByte(uint32_t reg, uint8_t byte, uint32_t polynomial) {
    reg ^= byte;
    for (int bit = 0; bit < 8; ++bit) reg = (reg >> 1) ^ ((reg & 1) != 0 ? polynomial : 0);
    return reg;
}

uint32_t crc32Byte(uint32_t crc, uint8_t byte) {
    return ~reflectedByte(~crc, byte, 0xEDB88320U);
}

uint32_t crc32cByte(uint32_t reg, uint8_t byte) {
    return reflectedByte(reg, byte, 0x82F63B78U);
}

uint32_t bzip2Byte(uint32_t crc, uint8_t byte) {
    uint32_t reg = ~crc ^ (static_cast<uint32_t>(byte) << 24);
    for (int bit = 0; bit < 8; ++bit) reg = (reg << 1) ^ ((reg >> 31) != 0 ? 0x04C11DB7U : 0);
    return ~reg;
}

uint32_t adlerByte(uint32_t sum, uint8_t byte) {
    const uint32_t a = ((sum & 0xFFFF) + byte) % 65521;
    return a | (((sum >> 16) + a) % 65521 << 16);
}

struct Checksum {
    const char* name;
    VekStatus (*update)(const uint8_t* src, int32_t len, uint32_t* pValue);
    uint32_t (*addByte)(uint32_t value, uint8_t byte);
    uint32_t start;
};

VekStatus crc32cWithSignedLength(const uint8_t* src, int32_t len, uint32_t* pValue) {
    return veksCRC32C_8u(src, static_cast<uint32_t>(len), pValue);
}

const Checksum checksums[] = {
    {"CRC-32", veksCRC32_8u, crc32Byte, 0},
    {"bzip2 CRC", veksCRC32_BZ2_8u, bzip2Byte, 0},
    {"CRC-32C", crc32cWithSignedLength, crc32cByte, 0xFFFFFFFFU},
    {"Adler-32", veksAdler32_8u, adlerByte, 1},
};

struct Path {
    const char* name;
    uint64_t features;
};

const Path paths[] = {
    {"portable", 0},
    {"CRC instruction", VEK_FEATURE_SSE42},
    {"carry-less multiplication", VEK_FEATURE_SSE42 | VEK_FEATURE_CLMUL},
    {"AVX-512", ~UINT64_C(0)},
};

/// Runs `body` for every checksum on every path.
void onEveryPath(const std::function<void(const Checksum&)>& body) {
    for (const Path& path : paths) {
        const FeatureLimit limit(path.features);
        for (const Checksum& checksum : checksums) {
            SCOPED_TRACE(std::string(checksum.name) + ", " + path.name);
            body(checksum);
            if (testing::Test::HasFatalFailure()) return;
        }
    }
}

uint32_t valueOf(const Checksum& checksum, uint32_t value, const uint8_t* data, size_t size) {
    EXPECT_EQ(checksum.update(data, static_cast<int32_t>(size), &value), vekStatusOk);
    return value;
}

/// The values of all prefixes of `data`, the empty one first.
std::vector<uint32_t> prefixValues(const Checksum& checksum, uint32_t start, const Bytes& data) {
    std::vector<uint32_t> values = {start};
    for (const uint8_t byte : data) values.push_back(checksum.addByte(values.back(), byte));
    return values;
}

/// Where kernels change their ways: block and group sizes, stretches of three streams, multiples of
/// the XOR rings (6688 and 9600 bytes), Adler-32's chunks.
const size_t thresholds[] = {144,   256,   512,   1024,  3072,  5536,  6144,  13376,
                             19200, 20064, 26752, 28800, 32768, 65536, 96000, 131072};

}  // namespace

TEST(Checksum, ArgumentsAreCheckedBeforeAnythingIsTouched) {
    const uint8_t data[] = {1, 2, 3};
    constexpr uint32_t untouched = 0xFFFFFFFEU;
    const struct {
        size_t checksum;
        const uint8_t* src;
        int32_t len;
        VekStatus status;
        uint32_t value;
    } cases[] = {
        {0, data, 0, vekStatusBadSize, untouched},
        {0, data, -1, vekStatusBadSize, untouched},
        {0, data, INT32_MIN, vekStatusBadSize, untouched},
        {1, data, 0, vekStatusBadSize, untouched},
        {1, data, -1, vekStatusBadSize, untouched},
        {2, data, 0, vekStatusBadSize, untouched},
        {3, nullptr, 3, vekStatusOk, 1},
        {3, nullptr, -3, vekStatusOk, 1},
        {3, data, 0, vekStatusOk, 0x000E000DU},
        {3, data, INT32_MIN, vekStatusOk, 0x000E000DU},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(checksums[c.checksum].name) + " " + std::to_string(c.len));
        uint32_t value = untouched;
        EXPECT_EQ(checksums[c.checksum].update(c.src, c.len, &value), c.status);
        EXPECT_EQ(value, c.value);
    }
}

TEST(Checksum, EveryShortLengthAtEveryAlignmentStaysInsideTheBuffer) {
    constexpr size_t longest = 600;
    onEveryPath([](const Checksum& checksum) {
        const Bytes data = shapes()[1].make(longest, 1);
        const auto expected = prefixValues(checksum, 0x12345678U, data);
        Guarded atEnd(longest);
        Guarded atStart(longest + 64, Guarded::Edge::Start);
        for (size_t n = 1; n <= longest; ++n) {
            uint8_t* const p = atEnd.data() + longest - n;
            std::memcpy(p, data.data(), n);
            ASSERT_EQ(valueOf(checksum, 0x12345678U, p, n), expected[n]) << n;
        }
        for (size_t shift = 0; shift < 64; ++shift) {
            std::memcpy(atStart.data() + shift, data.data(), longest);
            for (size_t n = 1; n <= longest; n += 1 + n / 150) {
                ASSERT_EQ(valueOf(checksum, 0x12345678U, atStart.data() + shift, n), expected[n])
                    << n << " shifted by " << shift;
            }
        }
    });
}

TEST(Checksum, LengthsAroundEveryThreshold) {
    const Bytes data = shapes()[1].make(131072 + 64, 2);
    Guarded buffer(data.size());
    onEveryPath([&](const Checksum& checksum) {
        const auto expected = prefixValues(checksum, checksum.start, data);
        for (const size_t threshold : thresholds)
            for (size_t n = threshold - 33; n <= threshold + 64; n += 1 + n % 3) {
                uint8_t* const p = buffer.data() + buffer.size() - n;
                std::memcpy(p, data.data(), n);
                ASSERT_EQ(valueOf(checksum, checksum.start, p, n), expected[n]) << n;
            }
    });
}

TEST(Checksum, PiecesChainToTheWhole) {
    const Bytes data = shapes()[1].make(70000, 3);
    onEveryPath([&](const Checksum& checksum) {
        const uint32_t start = 0x8765FFF0U;  // Adler-32: a low half that is not reduced
        const auto expected = prefixValues(checksum, start, data);
        for (size_t cut = 1; cut < 300; ++cut) {
            const uint32_t head = valueOf(checksum, start, data.data(), cut);
            ASSERT_EQ(valueOf(checksum, head, data.data() + cut, 300 - cut), expected[300]) << cut;
        }
        Random random(4);
        for (size_t i = 0; i < effort(30); ++i) {
            uint32_t value = start;
            for (size_t at = 0; at < data.size();) {
                const size_t limit = size_t{1} << pick(random, 3, 16);
                const size_t n = std::min(data.size() - at, pick(random, 1, limit));
                value = valueOf(checksum, value, data.data() + at, n);
                at += n;
                ASSERT_EQ(value, expected[at]) << at;
            }
        }
    });
}

TEST(Checksum, AdlerSumsDoNotOverflow) {
    const Bytes ones(400000, 0xFF);
    uint32_t expected = 0xFFF0FFF0U;
    for (const uint8_t byte : ones) expected = adlerByte(expected, byte);
    EXPECT_EQ(valueOf(checksums[3], 0xFFF0FFF0U, ones.data(), ones.size()), expected);
    EXPECT_EQ(valueOf(checksums[3], 0xFFFFFFFFU, ones.data(), ones.size()),
              valueOf(checksums[3], 0x000E000EU, ones.data(), ones.size()));
    for (size_t n = 1; n < 100; ++n) {
        uint32_t sum = 0xFFFFFFFFU;
        for (size_t i = 0; i < n; ++i) sum = adlerByte(sum, 0xFF);
        ASSERT_EQ(valueOf(checksums[3], 0xFFFFFFFFU, ones.data(), n), sum) << n;
    }
}
