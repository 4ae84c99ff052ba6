// What the LZO1X decoders and encoder share: the container's header and the stream's marks.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek::inline VEK_LEVEL::lzo {

// A container holds up to 32 independently compressed parts behind a header of 4n + 3 bytes: the
// mark, n, n XOR mark, the expanded length T of all, and the compressed lengths of all parts but
// the last. Part k expands to T / n bytes, the last to the rest.
constexpr uint8_t containerMark = 0x55;
constexpr uint32_t maxParts = 32;
constexpr size_t totalOffset = 3;
constexpr size_t partLengthsOffset = 7;

constexpr size_t containerHeaderSize(size_t parts) {
    return 4 * parts + 3;
}

/// The end instruction, and all there is of a stream that expands to nothing.
constexpr uint8_t endInstruction[3] = {0x11, 0, 0};

}  // namespace vek::inline VEK_LEVEL::lzo
