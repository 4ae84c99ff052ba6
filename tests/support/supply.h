// Memory for what takes its memory from its caller: counted, and ended when a test wants it.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace vektest {

struct Supply {
    size_t left = SIZE_MAX;     ///< Gives nothing from so many pieces on,
    size_t largest = SIZE_MAX;  ///< and no piece that is larger.
    size_t given = 0;           ///< Bytes in all.
    size_t out = 0;             ///< Pieces that have not come back.
    bool refused = false;

    ~Supply() { EXPECT_EQ(out, 0U) << "memory was not released"; }

    /// Of the size that the numbers' product is.
    template <class... Numbers>
    static void* give(void* self, Numbers... numbers) {
        auto& supply = *static_cast<Supply*>(self);
        const size_t size = (size_t{1} * ... * static_cast<size_t>(numbers));
        supply.refused |= supply.left == 0 || size > supply.largest;
        if (supply.left == 0 || size > supply.largest) return nullptr;
        --supply.left;
        ++supply.out;
        supply.given += size;
        return std::malloc(size);
    }
    static void take(void* self, void* memory) {
        static_cast<Supply*>(self)->out -= memory != nullptr ? 1 : 0;
        std::free(memory);
    }
};

}  // namespace vektest
