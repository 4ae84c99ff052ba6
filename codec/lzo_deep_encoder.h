// Codes a block as one LZO1X stream, much smaller and slower than the library's own encoder does.
#pragma once

#include "codec/codec.h"
#include "codec/memory.h"

namespace vekdc::codec {

class LzoDeepEncoder {
 public:
    static constexpr int kFirstLevel = 7;
    static constexpr int kLastLevel = 9;

    /// The level is kFirstLevel to kLastLevel.
    explicit LzoDeepEncoder(int level, const Allocator& allocator = {})
        : level_(level), places_(allocator), tables_(allocator) {}

    /// Codes `data` to `to`, where vekLZOEncodeBound() bytes of room are; false when there is no
    /// memory.
    [[nodiscard]] bool encode(Bytes data, uint8_t* to, size_t& written);

    /// The cheapest way to a place in the data that is known so far, and its last step.
    struct Place {
        uint32_t cost;
        uint32_t run;       ///< Literals that the way ends with.
        uint32_t length;    ///< Of the match that leads here; 0: a literal does.
        uint32_t distance;  ///< Of that match.
    };

 private:
    int level_;
    Memory<Place> places_;
    Memory<uint32_t> tables_;
};

}  // namespace vekdc::codec
