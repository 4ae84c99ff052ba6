// The pairs of a short stream that is all there.
//
// Of a few hundred bytes the usual matcher's preparations, and the refinement behind it, take
// longer than the search. Here one lazy search of matches from three bytes on does it all, and of a
// few thousand finds more than the fast levels do. A byte weighs four bits, which is about what one
// costs of those that matches replace, and of two matches the one is taken that weighs more beside
// its distance. The tables are as large as the stream wants them, and stand on the stack.
#pragma once

#include <cstdint>

#include "codec/codec.h"
#include "codec/deflate_codes.h"

namespace vekdc::codec {

/// The longest such stream.
constexpr size_t kMostShort = 4096;
/// How far beyond its end is read.
constexpr size_t kBehindShort = 8;

/// Writes the pairs of all bytes, counts their symbols, and returns how many there are. `depth`
/// places are looked at for a match.
uint32_t parseShort(Bytes bytes, uint32_t depth, uint8_t* lits, uint16_t* dists,
                    DeflateTables& counts);

}  // namespace vekdc::codec
