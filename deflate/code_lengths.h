// Lengths of a Huffman code within a limit, by raising the weights until they fit.
//
// Every symbol counts at least once, so that every symbol gets a code and a block header needs no
// holes. When the longest code exceeds the limit, 1 is added to every weight and the code is built
// anew: the weights flatten, and with them the code. That costs a little against an optimal limited
// code, and keeps the construction and its result simple.
//
// The code is built from two queues: the leaves in order of weight, and the merged nodes, whose
// weights never fall. A new node goes in front of everything of its own weight, so nodes of one
// weight come out last in, first out, and ahead of leaves.
#pragma once

#include <algorithm>
#include <cstdint>

#include "deflate/symbol_tables.h"

namespace vek::inline VEK_LEVEL::deflate {

/// Nodes in order of weight, those of one weight newest first: a queue of stacks.
class NodeQueue {
 public:
    bool empty() const { return first_ == last_; }
    uint64_t weight() const { return stacks_[first_].weight; }

    void push(int16_t node, uint64_t nodeWeight) {
        if (empty() || stacks_[last_ - 1].weight != nodeWeight)
            stacks_[last_++] = {nodeWeight, none};
        below_[node] = stacks_[last_ - 1].top;
        stacks_[last_ - 1].top = node;
    }

    int16_t pop() {
        const int16_t node = stacks_[first_].top;
        stacks_[first_].top = below_[node];
        if (stacks_[first_].top == none) ++first_;
        return node;
    }

 private:
    static constexpr int16_t none = -1;

    struct Stack {
        uint64_t weight;
        int16_t top;
    };

    int first_ = 0;
    int last_ = 0;
    Stack stacks_[litLenSymbols];
    int16_t below_[litLenSymbols];
};

/// A leaf of the code: the weight above the symbol, so that one comparison sorts by both.
using Leaf = uint64_t;

constexpr Leaf makeLeaf(uint32_t weight, size_t symbol) {
    return (Leaf{weight} << 16) | symbol;
}
constexpr uint64_t leafWeight(Leaf leaf) {
    return leaf >> 16;
}
constexpr size_t leafSymbol(Leaf leaf) {
    return leaf & 0xFFFF;
}

/// Code lengths of `n` leaves, which are in order, each with `extra` added to its weight:
/// lengths[i] is that of leaves[i]. Returns the longest. n is 1 to litLenSymbols; a lone leaf gets
/// length 1.
inline unsigned buildLengths(const Leaf* leaves, int n, uint32_t extra, uint8_t* lengths) {
    NodeQueue nodes;
    int16_t leafParent[litLenSymbols];
    int16_t nodeParent[litLenSymbols];
    const auto made = static_cast<int16_t>(n - 2);  // the last two items stay apart, as roots
    int leaf = 0;
    for (int16_t node = 0; node < made; ++node) {
        uint64_t sum = 0;
        for (int child = 0; child < 2; ++child) {
            const uint64_t leafNext = leaf < n ? leafWeight(leaves[leaf]) + extra : UINT64_MAX;
            if (!nodes.empty() && nodes.weight() <= leafNext) {
                sum += nodes.weight();
                nodeParent[nodes.pop()] = node;
            } else {
                sum += leafNext;
                leafParent[leaf++] = node;
            }
        }
        nodeParent[node] = -1;
        nodes.push(node, sum);
    }
    for (; leaf < n; ++leaf) leafParent[leaf] = -1;
    uint8_t depth[litLenSymbols];
    for (int node = made - 1; node >= 0; --node) {
        depth[node] = static_cast<uint8_t>(nodeParent[node] < 0 ? 1 : depth[nodeParent[node]] + 1);
    }
    unsigned longest = 1;
    for (int i = 0; i < n; ++i) {
        lengths[i] = static_cast<uint8_t>(leafParent[i] < 0 ? 1 : depth[leafParent[i]] + 1);
        longest = std::max<unsigned>(longest, lengths[i]);
    }
    return longest;
}

/// Code lengths of `n` symbols, at most `limit` bits where 4096 tries bring them there: lengths[s]
/// is that of symbol s, `frequency(s)` its frequency. False when they did not; the lengths are then
/// those of the last try. Equal weights keep the order of their symbols.
template <class Frequency>
bool limitedLengths(Frequency frequency, int n, unsigned limit, uint8_t* lengths) {
    constexpr uint32_t tries = 4096;
    Leaf leaves[litLenSymbols];
    uint8_t byLeaf[litLenSymbols];
    bool fits = false;
    for (uint32_t extra = 0; extra < tries && !fits; ++extra) {
        // A weight of 0 becomes 1, which with nothing added makes it equal to a weight of 1: the
        // order of the first try is not that of the others.
        if (extra <= 1) {
            for (int s = 0; s < n; ++s) {
                const uint32_t weight = frequency(static_cast<size_t>(s));
                leaves[s] =
                    makeLeaf(extra == 0 ? std::max(weight, 1U) : weight, static_cast<size_t>(s));
            }
            std::sort(leaves, leaves + n);
        }
        fits = buildLengths(leaves, n, extra, byLeaf) <= limit;
    }
    for (int i = 0; i < n; ++i) lengths[leafSymbol(leaves[i])] = byLeaf[i];
    return fits;
}

}  // namespace vek::inline VEK_LEVEL::deflate
