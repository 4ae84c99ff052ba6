// A reader of raw deflate streams (RFC 1951) over the inflate calls, for fuzz targets and
// benchmarks: it reads the blocks' headers from a whole stream in memory and leaves how the data is
// cut up to its target.
#pragma once

#include "../tests/support/deflate_reader.h"
#include "vekdc.h"

namespace vektest {

/// Reads the code lengths of a dynamic block and builds its tables; false when they are corrupt.
inline bool readDynamicHeader(BitSource& in, VekInflateState& state) {
    return readCodeLengths(in, [&](const uint16_t* lens, uint32_t nLit, uint32_t nDist) {
        return veksInflateBuildHuffTable(lens, nLit, nDist, &state) == vekStatusOk;
    });
}

/// Decodes a stream from `in` to its last block; false when it is corrupt, cut off, or the target
/// refuses. The target's stored(bytes, count) takes the bytes of a stored block; its coded(in,
/// state) decodes one block's data with veksInflate_8u up to the end-of-block code.
template <class Target>
bool readDeflate(BitSource& in, VekInflateState& state, Target& target) {
    for (bool last = false; !last;) {
        last = in.take(1) != 0;
        const uint32_t type = in.take(2);
        if (in.failed || type == 3) return false;
        if (type == 0) {
            in.take(in.nBits % 8);
            const uint32_t size = in.take(16), complement = in.take(16);
            if (in.failed || (size ^ complement) != 0xFFFF) return false;
            in.src -= in.nBits / 8;
            in.code = in.nBits = 0;
            const auto there = std::min<size_t>(size, static_cast<size_t>(in.end - in.src));
            if (!target.stored(in.src, there) || there != size) return false;
            in.src += size;
            continue;
        }
        state.tableKind = 0;
        if (type == 2 && !readDynamicHeader(in, state)) return false;
        if (!target.coded(in, state)) return false;
    }
    return true;
}

}  // namespace vektest
