#include "codec/zfp_blocks.h"

#include <bit>

namespace vekdc::codec {
namespace {

static_assert(std::endian::native == std::endian::little && sizeof(float) == 4);

/// Bytes of a chunk of several times four planes: they stay in a processor's own cache.
constexpr size_t kChunk = 256 << 10;
constexpr uint64_t kMostMemory = static_cast<size_t>(-1) / 2;

/// A block of its own, for one that the field does not fill.
struct Block {
    float values[kZfpBlockValues];
};
constexpr int32_t kBlockRow = 4 * sizeof(float);
constexpr int32_t kBlockPlane = 16 * sizeof(float);

/// The library's steps between a chunk's rows and planes.
struct Steps {
    explicit Steps(const ZfpDims& chunk)
        : row(static_cast<int32_t>(chunk.x * sizeof(float))),
          plane(static_cast<int32_t>(uint64_t{chunk.y} * chunk.x * sizeof(float))),
          reachable(uint64_t{chunk.y} * chunk.x * sizeof(float) <= INT32_MAX) {}
    int32_t row;
    int32_t plane;
    bool reachable;  ///< Whether a plane is not too long a step.
};

/// Calls `copy` with each row of a block that the field holds: where it begins in the chunk, and
/// where in the block.
template <class Copy>
void eachRow(const ZfpBlockWalk& walk, const ZfpDims& filled, Copy&& copy) {
    const ZfpDims& chunk = walk.chunk();
    for (uint32_t z = 0; z < filled.z; ++z)
        for (uint32_t y = 0; y < filled.y; ++y)
            copy(walk.first() + (size_t{z} * chunk.y + y) * chunk.x, 16 * z + 4 * y);
}

/// Fills up a line of which `count` values are there.
void padLine(float* line, size_t stride, uint32_t count) {
    if (count < 2) line[stride] = line[0];
    if (count < 3) line[2 * stride] = line[stride];
    if (count < 4) line[3 * stride] = line[0];
}

void padBlock(Block& block, const ZfpDims& filled) {
    for (uint32_t z = 0; z < filled.z; ++z) {
        float* const plane = block.values + size_t{16} * z;
        for (uint32_t y = 0; y < filled.y; ++y) padLine(plane + size_t{4} * y, 1, filled.x);
        for (uint32_t x = 0; x < 4; ++x) padLine(plane + x, 4, filled.y);
    }
    for (uint32_t i = 0; i < 16; ++i) padLine(block.values + i, 16, filled.z);
}

bool isFull(const ZfpDims& filled) {
    return filled.x + filled.y + filled.z == 12;
}

/// The destination has room for every block's most bits, so nothing can fail.
void encodeBlock(const float* values, const ZfpBlockWalk& walk, const Steps& steps,
                 VekZfpState* state) {
    const ZfpDims filled = walk.filled();
    if (isFull(filled) && steps.reachable) {
        veksEncodeZfp444_32f(values + walk.first(), steps.row, steps.plane, state);
        return;
    }
    Block block;
    eachRow(walk, filled, [&](size_t from, size_t to) {
        std::memcpy(block.values + to, values + from, filled.x * sizeof(float));
    });
    padBlock(block, filled);
    veksEncodeZfp444_32f(block.values, kBlockRow, kBlockPlane, state);
}

bool decodeBlock(float* values, const ZfpBlockWalk& walk, const Steps& steps, VekZfpState* state) {
    const ZfpDims filled = walk.filled();
    if (isFull(filled) && steps.reachable)
        return veksDecodeZfp444_32f(state, values + walk.first(), steps.row, steps.plane) ==
               vekStatusOk;
    Block block;
    if (veksDecodeZfp444_32f(state, block.values, kBlockRow, kBlockPlane) != vekStatusOk)
        return false;
    eachRow(walk, filled, [&](size_t to, size_t from) {
        std::memcpy(values + to, block.values + from, filled.x * sizeof(float));
    });
    return true;
}

/// Skips bits, at least kZfpBlockHeaderBits: a block of that many whose planes are all dropped.
bool skipBits(VekZfpState* state, uint64_t count) {
    Block unused;
    veksDecodeZfpSet_32f(static_cast<int32_t>(count), kZfpBlockHeaderBits, 0, 0, state);
    return veksDecodeZfp444_32f(state, unused.values, kBlockRow, kBlockPlane) == vekStatusOk;
}

size_t stateSize() {
    int32_t size = 0;
    veksEncodeZfpGetStateSize_32f(&size);
    return static_cast<size_t>(size);
}

}  // namespace

ZfpChunks::ZfpChunks(const ZfpDims& field)
    : field_(field), byPlanes_(field.z > 1), layers_(byPlanes_ ? field.z : field.y) {
    const uint64_t four = 4 * field.bytes() / layers_;
    const uint64_t times = std::clamp<uint64_t>(kChunk / four, 1, kZfpLongestSide / 4);
    perChunk_ = static_cast<uint32_t>(4 * times);
}

ZfpDims ZfpChunks::at(uint32_t index) const {
    ZfpDims dims = field_;
    (byPlanes_ ? dims.z : dims.y) = std::min(perChunk_, layers_ - index * perChunk_);
    return dims;
}

bool ZfpChunks::addressable() const {
    return at(0).bytes() <= kMostMemory;
}

bool ZfpRecord::reserve() {
    return memory_.data() != nullptr || memory_.reserve((stateSize() + 3) / 4);
}

void ZfpRecord::copy(const ZfpRecord& other) {
    std::memcpy(memory_.data(), other.memory_.data(), stateSize());
}

Status ZfpChunkEncoder::encode(const float* values, const ZfpDims& chunk, const ZfpParameters& p,
                               ZfpCoded& coded) {
    const uint64_t room = chunk.blocks() * static_cast<uint64_t>(p.mostBits()) / 64 + 1;
    if (room > kMostMemory / 8 || !record_.reserve() ||
        !coded.words.reserve(static_cast<size_t>(room)))
        return Status::NoMemory;
    VekZfpState* const state = record_.get();
    veksEncodeZfpInitLong_32f(reinterpret_cast<uint8_t*>(coded.words.data()),
                              static_cast<int64_t>(8 * room), state);
    veksEncodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, state);
    const Steps steps(chunk);
    for (ZfpBlockWalk walk(chunk); !walk.atEnd(); walk.advance())
        encodeBlock(values, walk, steps, state);
    int64_t bits = 0;
    veksEncodeZfpGetCompressedBitSize_32f(state, &bits);
    veksEncodeZfpFlush_32f(state);
    coded.bits = static_cast<uint64_t>(bits);
    return Status::Ended;
}

size_t ZfpBitString::join(uint64_t* words, uint64_t bits) {
    const auto full = static_cast<size_t>(bits / 64);
    const auto rest = static_cast<unsigned>(bits % 64);
    const unsigned shift = pending_;
    if (shift != 0) {
        for (size_t i = 0; i < full; ++i) {
            const uint64_t word = words[i];
            words[i] = held_ | word << shift;
            held_ = word >> (64 - shift);
        }
    }
    if (rest == 0) return full;
    const uint64_t word = words[full];
    pending_ += rest;
    if (pending_ < 64) {
        held_ |= word << shift;
        return full;
    }
    pending_ -= 64;
    words[full] = held_ | word << shift;
    held_ = word >> (64 - shift);  // Other than 0: `rest` alone is less than a word.
    return full + 1;
}

void ZfpChunkDecoder::open(Bytes bytes, uint64_t skip, const ZfpParameters& p) {
    bytes_ = bytes;
    VekZfpState* const state = record_.get();
    veksDecodeZfpInitLong_32f(bytes.data(), static_cast<int64_t>(bytes.size()), state);
    skipBits(state, skip);
    veksDecodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, state);
}

bool ZfpChunkDecoder::decode(ZfpBlockWalk& walk, float* values, uint64_t most) {
    const Steps steps(walk.chunk());
    for (; most != 0 && !walk.atEnd(); --most) {
        if (!decodeBlock(values, walk, steps, record_.get())) return false;
        walk.advance();
    }
    return true;
}

// The record counts whole words, so the bits that it holds of one are found by trying how many can
// be skipped.
uint64_t ZfpChunkDecoder::bitsLeft() {
    int64_t taken = 0;
    veksDecodeZfpGetDecompressedSizeLong_32f(record_.get(), &taken);
    const uint64_t behind = 8 * (bytes_.size() - static_cast<uint64_t>(taken));
    uint64_t held = 0;
    for (uint64_t step = 32; step != 0; step /= 2) {
        probe_.copy(record_);
        if (skipBits(probe_.get(), behind + held + step)) held += step;
    }
    return behind + held;
}

}  // namespace vekdc::codec
