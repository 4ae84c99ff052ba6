#include "codec/lz4_blocks.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cstring>

#include "codec/fields.h"
#include "vekdc.h"

namespace vekdc::codec {
namespace {

constexpr size_t kTable = 16384;
constexpr size_t kHighTable = 131072;
constexpr size_t kHighChain = 262144;

uint8_t* bytesOf(Memory<uint32_t>& memory) {
    return reinterpret_cast<uint8_t*>(memory.data());
}
bool reserveBytes(Memory<uint32_t>& memory, size_t bytes) {
    return memory.reserve(bytes / sizeof(uint32_t));
}

}  // namespace

uint32_t lz4Hash(Bytes bytes) {
    return bytes.data() == nullptr ? XXH32("", 0, 0) : XXH32(bytes.data(), bytes.size(), 0);
}

static_assert(sizeof(XXH32_state_t) == 48 && alignof(XXH32_state_t) == alignof(uint32_t));

void Lz4Hash::reset() {
    XXH32_reset(reinterpret_cast<XXH32_state_t*>(state_), 0);
}
void Lz4Hash::update(Bytes bytes) {
    XXH32_update(reinterpret_cast<XXH32_state_t*>(state_), bytes.data(), bytes.size());
}
uint32_t Lz4Hash::value() const {
    return XXH32_digest(reinterpret_cast<const XXH32_state_t*>(state_));
}

size_t Lz4BlockEncoder::bound(size_t length) {
    return 4 + vekLZ4EncodeBound(length) + 4;
}

bool Lz4BlockEncoder::encode(const uint8_t* data, size_t history, size_t length, uint8_t* to,
                             size_t& written) {
    if (coding_.level > 1 || history != 0)
        return encodeNext(data, history, length, false, to, written);
    if (!reserveBytes(table_, kTable)) return false;
    int coded = 0;
    veksEncodeLZ4Fast_8u(data, static_cast<int>(length), to + 4, &coded, bytesOf(table_),
                         coding_.acceleration);
    written = finish({data, length}, to, coded);
    return true;
}

bool Lz4BlockEncoder::encodeNext(const uint8_t* data, size_t history, size_t length, bool follows,
                                 uint8_t* to, size_t& written) {
    if (!follows && !load(data, history, length)) return false;
    const auto index = static_cast<int>(history);
    auto consumed = static_cast<int>(length);
    auto coded = static_cast<int>(vekLZ4EncodeBound(length));
    if (coding_.level > 1) {
        uint8_t* tables[2] = {bytesOf(table_), bytesOf(chain_)};
        veksEncodeLZ4HC_8u(data, index, &consumed, to + 4, &coded, tables, nullptr, 0,
                           coding_.level);
    } else {
        veksEncodeLZ4Dict_8u(data, index, consumed, to + 4, &coded, bytesOf(table_), nullptr, 0);
    }
    written = finish({data, length}, to, coded);
    return true;
}

/// Makes the tables those of the history alone.
bool Lz4BlockEncoder::load(const uint8_t* data, size_t history, size_t length) {
    const uint8_t* const start = data - history;
    auto count = static_cast<int>(history);
    if (coding_.level <= 1) {
        if (!reserveBytes(table_, kTable)) return false;
        if (history == 0) return true;  // The encoder then clears the table.
        veksEncodeLZ4DictHashTableInit_8u(bytesOf(table_), static_cast<int>(length));
        veksEncodeLZ4LoadDict_8u(bytesOf(table_), start, count);
        return true;
    }
    // History gets into these tables by being coded itself.
    if (!reserveBytes(table_, kHighTable) || !reserveBytes(chain_, kHighChain) ||
        !unused_.reserve(history == 0 ? 0 : vekLZ4EncodeBound(history)))
        return false;
    uint8_t* tables[2] = {bytesOf(table_), bytesOf(chain_)};
    veksEncodeLZ4HCHashTableInit_8u(tables);
    if (history == 0) return true;
    auto room = static_cast<int>(unused_.room());
    veksEncodeLZ4HC_8u(start, 0, &count, unused_.data(), &room, tables, nullptr, 0, 1);
    return true;
}

/// Puts size and checksum around the `coded` bytes of a block, or the data where those are no more.
size_t Lz4BlockEncoder::finish(Bytes data, uint8_t* to, int coded) const {
    auto size = static_cast<size_t>(coded);
    const bool stored = size >= data.size();
    if (stored) {
        size = data.size();
        std::memcpy(to + 4, data.data(), size);
    }
    putLittleEndian(to, size | (stored ? kLz4Stored : 0), 4);
    if (!coding_.checksums) return 4 + size;
    putLittleEndian(to + 4 + size, lz4Hash({to + 4, size}), 4);
    return 4 + size + 4;
}

}  // namespace vekdc::codec
