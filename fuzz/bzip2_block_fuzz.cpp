// The fused block decoder on hostile symbols against the separate stages: what they make a block
// of, it decodes to the same bytes, and it refuses all else, touching nothing outside its buffers
// (exact allocations under AddressSanitizer).
//
// Input: capacity (2 bytes), index (2 bytes), values in use (32 bytes of bits, and how many to
// claim too many: 1 byte), then symbols: a byte each, 0xFF and the next one make a larger one.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <vector>

#include "vekdc.h"

namespace {

using Data = std::vector<uint8_t>;
using Symbols = std::vector<uint16_t>;

void require(bool holds) {
    if (!holds) abort();
}

/// The block by way of the stages; nothing where there is none.
std::optional<Data> staged(const Symbols& symbols, size_t capacity, int index, int values,
                           const Data& inUse) {
    for (const uint16_t symbol : symbols)
        if (symbol >= 2 && symbol - 1 >= values) return std::nullopt;
    if (values == 0) return std::nullopt;
    // A run that fills the room needs a byte to spare.
    Data positions(capacity + 1);
    const uint16_t* src = symbols.data();
    auto left = static_cast<int32_t>(symbols.size());
    auto length = static_cast<int32_t>(positions.size());
    if (veksDecodeZ1Z2_BZ2_16u8u(&src, &left, positions.data(), &length) != vekStatusOk ||
        static_cast<size_t>(length) > capacity || index >= length)
        return std::nullopt;
    VekMtfState list;
    require(veksMTFInit_8u(&list) == vekStatusOk);
    require(veksMTFInv_8u(positions.data(), positions.data(), length, &list) == vekStatusOk);
    require(veksExpandDictionary_8u_I(inUse.data(), positions.data(), length, values) ==
            vekStatusOk);
    int32_t size = 0;
    require(veksBWTInvGetSize_8u(length, &size) == vekStatusOk);
    Data work(static_cast<size_t>(size));
    Data block(static_cast<size_t>(length));
    require(veksBWTInv_8u(positions.data(), block.data(), length, index, work.data()) ==
            vekStatusOk);
    return block;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t header = 37;
    if (size <= header) return 0;
    const size_t capacity = 1U + data[0] + 256U * data[1];
    const auto index = static_cast<int>((data[2] + 256U * data[3]) % capacity);
    Data inUse(256);
    for (unsigned i = 0; i < 256; ++i) inUse[i] = data[4 + i / 8] >> (i % 8) & 1;
    const auto values = static_cast<int>(std::count(inUse.begin(), inUse.end(), 1));
    const int claimed = std::min(256, values + data[36] % 2);
    Symbols symbols;
    for (size_t i = header; i < size; ++i) {
        uint16_t symbol = data[i];
        if (symbol == 0xFF && i + 1 < size) symbol = static_cast<uint16_t>(symbol + data[++i] * 2);
        symbols.push_back(symbol);
    }

    int32_t workSize = 0;
    require(veksDecodeBlockGetSize_BZ2_8u(static_cast<int32_t>(capacity), &workSize) ==
            vekStatusOk);
    Data work(static_cast<size_t>(workSize), 0xA5);
    Data block(capacity);
    auto length = static_cast<int32_t>(capacity);
    const VekStatus status =
        veksDecodeBlock_BZ2_16u8u(symbols.data(), static_cast<int32_t>(symbols.size()),
                                  block.data(), &length, index, claimed, inUse.data(), work.data());
    require(length >= 0 && static_cast<size_t>(length) <= capacity);
    if (claimed != values) {
        require(status == vekStatusOk && static_cast<size_t>(length) == capacity);
        return 0;
    }
    const auto expected = staged(symbols, capacity, index, values, inUse);
    require((status == vekStatusOk) == expected.has_value());
    if (!expected) return 0;
    block.resize(static_cast<size_t>(length));
    require(block == *expected);
    return 0;
}
