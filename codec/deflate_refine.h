// Makes a block's pairs cheaper once its statistics are known.
//
// The matcher seeks matches of four bytes and more, and takes what is long. Here three
// literals become a match where the same three bytes are near and that is cheaper, and a short
// match becomes literals where its distance costs more than they do. One walk over the block's
// bytes with a small table of the latest positions does it, in a small part of the time that
// matching takes, and saves up to a twentieth where data consists of short records.
#pragma once

#include <cstdint>

#include "codec/codec.h"
#include "codec/deflate_blocks.h"

namespace vekdc::codec {

/// Refines the pairs [from, to), which stand for the bytes from `at` to the end, and writes what
/// comes of them to `lits` and `dists`, which may begin before them in the same arrays: never
/// beyond what is read. Returns how many pairs there are then, and in place of the given `counts`
/// theirs.
uint32_t refinePairs(const DeflatePairs& pairs, uint32_t from, uint32_t to, Bytes bytes,
                     uint32_t at, uint32_t window, DeflateTables& counts, uint8_t* lits,
                     uint16_t* dists);

}  // namespace vekdc::codec
