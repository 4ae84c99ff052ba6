#include "codec/checksums.h"

#include <algorithm>

#include "vekdc.h"

namespace vekdc::codec {
namespace {

// The library takes lengths as signed 32-bit numbers; longer stretches go in pieces.
constexpr size_t kPiece = 1U << 30;

template <class Length, VekStatus (*function)(const uint8_t*, Length, uint32_t*)>
uint32_t update(uint32_t value, Bytes bytes) {
    while (!bytes.empty()) {
        const size_t piece = std::min(bytes.size(), kPiece);
        function(bytes.data(), static_cast<Length>(piece), &value);
        bytes = bytes.subspan(piece);
    }
    return value;
}

uint32_t same(uint32_t value) {
    return value;
}
uint32_t complement(uint32_t value) {
    return ~value;
}

}  // namespace

const Checksum kCrc32 = {"crc32", 0, update<int32_t, veksCRC32_8u>, same, crc32Combine};
const Checksum kCrc32c = {"crc32c", 0xFFFFFFFF, update<uint32_t, veksCRC32C_8u>, complement,
                          nullptr};
const Checksum kBzip2Crc = {"bzip2", 0, update<int32_t, veksCRC32_BZ2_8u>, same, nullptr};
const Checksum kAdler32 = {"adler32", 1, update<int32_t, veksAdler32_8u>, same, adler32Combine};

const Checksum* checksumByName(std::string_view name) {
    for (const Checksum* checksum : {&kCrc32, &kCrc32c, &kBzip2Crc, &kAdler32})
        if (name == checksum->name) return checksum;
    return nullptr;
}

}  // namespace vekdc::codec
