// A small container for LZSS streams: docs/lzss.md has its layout, byte by byte.
//
// The stream has no end mark, no length and no checksum, and grows by an eighth where there is
// nothing to find. So the container cuts the data into blocks, each a stream of its own or stored,
// behind its lengths and the CRC-32C of all data so far: damage is told from the block that has it
// on, before anything of that block is delivered, and a lost or exchanged block is noticed too.
// Blocks of 1 MiB lose next to nothing to the 32 KiB of history that each one starts without.
#pragma once

#include <array>

#include "codec/checksums.h"
#include "codec/memory.h"
#include "vekdc.h"

namespace vekdc::codec {

constexpr std::array<uint8_t, 8> kLzssMagic = {0x89, 'L', 'Z', 'S', 'S', 0x0D, 0x0A, 0x1A};
constexpr uint8_t kLzssVersion = 1;
constexpr size_t kLzssHeader = 22;
constexpr size_t kLzssBlockHead = 12;
constexpr size_t kLzssEnd = 12;
constexpr unsigned kLzssBlockBits = 20;  ///< Of the blocks written.
constexpr unsigned kLzssFewestBits = 12;
constexpr unsigned kLzssMostBits = 24;
constexpr uint64_t kLzssUnknown = ~uint64_t{0};  ///< A length in the header that is none.

/// The library's record, for one block at a time.
class LzssRecord {
 public:
    explicit LzssRecord(const Allocator& allocator) : memory_(allocator) {}

    /// Null when there is no memory. Zeros at first: what a broken stream refers to in front of its
    /// first byte is never memory of someone else.
    void* get() {
        int32_t size = 0;
        veksLZSSGetSize_8u(&size);
        const size_t words = static_cast<size_t>(size) / sizeof(void*) + 1;
        if (words <= memory_.room()) return memory_.data();
        if (!memory_.reserve(words)) return nullptr;
        std::memset(memory_.data(), 0, words * sizeof(void*));
        return memory_.data();
    }

 private:
    Memory<void*> memory_;
};

}  // namespace vekdc::codec
