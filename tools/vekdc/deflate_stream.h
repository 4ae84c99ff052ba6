// Raw deflate streams (RFC 1951), so far of stored blocks only.
#pragma once

#include <algorithm>
#include <vector>

#include "tools/vekdc/stream.h"

namespace vekdc {

class DeflateEncoder {
 public:
    enum class End { More, Sync, Final };

    /// Begins a stream, or a part of one that continues behind `history`.
    void start(Bytes /*history*/) {}

    /// Appends the code of `in` to `out`.
    void encode(Bytes in, End end, std::vector<uint8_t>& out) {
        constexpr size_t most = 65535;
        for (bool more = true; more;) {
            const auto n = static_cast<uint16_t>(std::min(in.size(), most));
            more = n != in.size();
            const auto length = static_cast<uint32_t>(n) | static_cast<uint32_t>(~n) << 16;
            out.push_back(!more && end == End::Final ? 1 : 0);
            for (int shift = 0; shift < 32; shift += 8)
                out.push_back(static_cast<uint8_t>(length >> shift));
            out.insert(out.end(), in.begin(), in.begin() + n);
            in = in.subspan(n);
        }
    }
};

}  // namespace vekdc
