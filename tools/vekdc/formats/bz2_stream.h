// The bzip2 file format: what its reader and its writer share.
//
// A stream is a header that names the block size, blocks, and an end mark with a CRC made of the
// blocks' own. Nothing but the header is aligned to bytes: blocks follow each other at any bit and
// are found only by decoding what is in front of them, or by the 48 bits that they start with.
#pragma once

#include <array>
#include <bit>
#include <functional>
#include <memory>

#include "tools/vekdc/formats/format.h"
#include "vekdc.h"

namespace vekdc::bz2 {

constexpr std::array<uint8_t, 3> kMagic = {'B', 'Z', 'h'};
constexpr uint64_t kBlockMagic = 0x314159265359;
constexpr uint64_t kEndMagic = 0x177245385090;
constexpr unsigned kMagicBits = 48;
constexpr int kLevelBytes = 100'000;
constexpr int kMostBlock = 9 * kLevelBytes;

/// Uninitialised memory: of what a small file leaves unused, nothing is ever touched.
template <class T>
std::unique_ptr<T[]> makeBuffer(size_t count) {
    return std::make_unique_for_overwrite<T[]>(count);
}

inline void require(VekStatus status) {
    if (status != vekStatusOk) throw std::logic_error("a bzip2 stage failed");
}

/// The CRC of a stream from those of its blocks.
inline uint32_t joinCrc(uint32_t stream, uint32_t block) {
    return std::rotl(stream, 1) ^ block;
}

/// A block as the block sort takes and gives it: run-length coded.
struct Block {
    std::unique_ptr<uint8_t[]> data = makeBuffer<uint8_t>(kMostBlock);
    size_t length = 0;
    uint32_t crc = 0;

    Bytes bytes() const { return {data.get(), length}; }
};

struct Stream {
    uint64_t number = 0;
    uint64_t offset = 0;
    int level = 0;
    uint64_t blocks = 0;
    uint32_t crc = 0;
    uint64_t packed = 0;
    uint64_t plain = 0;
};

/// Codes the source to its end as one stream.
void writeStream(Source& source, Sink& sink, const Settings& settings);

/// Reads all streams and tells of each at its end; throws FormatError.
void readStreams(Source& source, Sink& sink, const Settings& settings,
                 const std::function<void(const Stream&)>& use);

}  // namespace vekdc::bz2
