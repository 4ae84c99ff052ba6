// The general kernel of the forward block sort: near-linear whatever the block holds.
//
// The block is cut to its shortest root first, so that all rotations differ. Its stars are sorted
// (sort_stars.h), and from them the rest is induced (sort_induced.h). Work areas too small for the
// tables of pairs sort all rotations by ranks alone (sort_ranks.h).

#include <cstring>

#include "bzip2/sort.h"
#include "bzip2/sort_induced.h"
#include "bzip2/sort_ranks.h"
#include "bzip2/sort_stars.h"

using namespace vek::bzip2;

namespace {

Scratch scratchBetween(uint8_t* begin, const uint8_t* end) {
    uint8_t* const first = alignUp(begin);
    const size_t bytes = first < end ? static_cast<size_t>(end - first) : 0;
    return {reinterpret_cast<uint64_t*>(first), bytes / sizeof(uint64_t)};
}

uint32_t sortRoot(const uint8_t* block, uint32_t length, uint8_t* column, uint8_t* work,
                  size_t room) {
    TwoStage sort(block, length, work);
    const Scratch scratch = scratchBetween(sort.end(), work + room);
    StarSort(sort, scratch).run();
    return sort.induce(column);
}

/// Sorts all rotations by ranks, starting from their first bytes.
uint32_t sortSmallRoot(const uint8_t* block, uint32_t length, uint8_t* column, uint8_t* work,
                       size_t room) {
    auto* const order = reinterpret_cast<uint32_t*>(alignUp(work));
    uint32_t* const ranks = order + length;
    uint32_t places[257] = {};
    for (uint32_t i = 0; i < length; ++i) ++places[block[i] + 1];
    for (unsigned byte = 0; byte < 256; ++byte) places[byte + 1] += places[byte];
    for (uint32_t i = 0; i < length; ++i) order[places[block[i]]++] = i;
    for (uint32_t i = 0; i < length; ++i) {
        if (i == 0 || block[order[i]] != block[order[i - 1] & ~firstOfGroup])
            order[i] |= firstOfGroup;
    }
    const Scratch scratch = scratchBetween(reinterpret_cast<uint8_t*>(ranks + length), work + room);
    RankSort sort(order, ranks, length, scratch);
    sort.sort();
    for (uint32_t i = 0; i < length; ++i) column[sort.place(i)] = block[(i == 0 ? length : i) - 1];
    return sort.place(0);
}

}  // namespace

void owns_BWT_sfx_fwd_asm(const uint8_t* block, uint32_t length, uint8_t* column, int32_t* index,
                          uint8_t* work, size_t room) {
    const uint32_t times = repeats(block, length);
    const uint32_t root = length / times;
    uint32_t row = 0;
    if (root == 1) {
        column[0] = block[0];
    } else if (room >= twoStageSize(root)) {
        row = sortRoot(block, root, column, work, room);
    } else {
        row = sortSmallRoot(block, root, column, work, room);
    }
    if (times > 1) {
        for (uint32_t i = root; i-- > 0;) std::memset(column + size_t{times} * i, column[i], times);
    }
    *index = static_cast<int32_t>(row * times);
}
