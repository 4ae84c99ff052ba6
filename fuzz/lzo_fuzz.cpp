// LZO: hostile streams and containers through the checking decoder, and round trips in every room.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "include/vekdc.h"

namespace {

void require(bool condition) {
    if (!condition) abort();
}

/// Heap blocks of exact size, so that the sanitizer sees every byte outside.
void decodeHostile(const uint8_t* data, uint32_t size, uint32_t capacity) {
    // A plain stream keeps to the capacity, a container to what it says.
    const bool container = vekLZOContainerParts(data, size) != 0;
    const uint32_t room = container ? vekLZOContainerLength(data, size) : capacity;
    if (room > 1 << 20) return;
    const std::unique_ptr<uint8_t[]> out(new uint8_t[room]);
    uint32_t length = capacity;
    const VekStatus status = veksDecodeLZOSafe_8u(data, size, out.get(), &length);
    require(status == vekStatusOk || status == vekStatusLzoBrokenStream);
    require(length <= room);
    if (status != vekStatusOk) return;
    // What passes the checks, the trusting decoder expands to the same.
    const std::unique_ptr<uint8_t[]> twin(new uint8_t[room]);
    uint32_t twinLength = capacity;
    require(veksDecodeLZO_8u(data, size, twin.get(), &twinLength) == vekStatusOk);
    require(twinLength == length && std::memcmp(out.get(), twin.get(), length) == 0);
}

void roundTrip(const uint8_t* data, uint32_t size, uint8_t choice, uint32_t capacity) {
    static std::vector<uint32_t> state(131096 / 4);
    require(veksEncodeLZOInit_8u(choice % 3, size, state.data()) == vekStatusOk);
    const uint32_t parts = choice >> 3;
    if (parts >= 2) {
        state[0] = 1;
        state[1] = parts;
    }
    const uint32_t bound = vekLZOEncodeBound(size) + 16 * parts;
    capacity = (choice & 4) != 0 ? bound : std::min(capacity, bound);
    const uint32_t slack = 6 * 32 + capacity / 255;
    std::vector<uint8_t> stream(capacity + ((choice & 4) != 0 ? 0 : slack));
    uint32_t length = capacity;
    const VekStatus status = veksEncodeLZO_8u(data, size, stream.data(), &length, state.data());
    require(status == vekStatusOk || (status == vekStatusDestinationFull && (choice & 4) == 0));
    require(parts >= 2 || vekLZOContainerParts(stream.data(), length) == 0);
    if (status != vekStatusOk) return;
    std::vector<uint8_t> back(size + 1);
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[length]);
    std::memcpy(exact.get(), stream.data(), length);
    uint32_t backLength = size;
    require(veksDecodeLZOSafe_8u(exact.get(), length, back.data(), &backLength) == vekStatusOk);
    require(backLength == size && std::memcmp(back.data(), data, size) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3 || size > 1 << 20) return 0;
    const uint32_t capacity = data[0] * 64U;
    decodeHostile(data + 1, static_cast<uint32_t>(size - 1), capacity);
    roundTrip(data + 2, static_cast<uint32_t>(size - 2), data[1], capacity);
    return 0;
}
