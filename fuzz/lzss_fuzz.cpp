// LZSS: hostile bits through the decoder, and round trips, cut as the first bytes say.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "include/vekdc.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr size_t kMost = 1 << 19;

void require(bool condition) {
    if (!condition) abort();
}

template <class Call>
Bytes runAll(Call call, const uint8_t* data, size_t size, size_t piece, size_t room, void* state) {
    Bytes out;
    size_t at = 0;
    while (out.size() < kMost) {
        const size_t count = std::min(piece, size - at);
        const std::unique_ptr<uint8_t[]> src(new uint8_t[count]);
        const std::unique_ptr<uint8_t[]> dst(new uint8_t[room]);
        if (count != 0) std::memcpy(src.get(), data + at, count);
        const uint8_t* from = src.get();
        uint8_t* to = dst.get();
        auto left = static_cast<int32_t>(count);
        auto roomLeft = static_cast<int32_t>(room);
        const VekStatus status = call(&from, &left, &to, &roomLeft, state);
        require(status == (roomLeft == 0 ? vekStatusDestinationFull : vekStatusOk));
        at += static_cast<size_t>(from - src.get());
        out.insert(out.end(), dst.get(), to);
        if (status == vekStatusOk && at == size) break;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4 || size > 1 << 16) return 0;
    static std::vector<uint64_t> state(327744 / 8 + 1);
    const size_t piece = 1 + data[0] * size_t{data[0]};
    const size_t room = 1 + data[1] * size_t{data[1]};
    data += 2;
    size -= 2;
    require(veksDecodeLZSSInit_8u(state.data()) == vekStatusOk);
    runAll(veksDecodeLZSS_8u, data, size, piece, room, state.data());

    require(veksEncodeLZSSInit_8u(state.data()) == vekStatusOk);
    Bytes bits = runAll(veksEncodeLZSS_8u, data, size, piece, room, state.data());
    uint8_t rest[16];
    uint8_t* to = rest;
    int32_t left = sizeof(rest);
    require(veksEncodeLZSSFlush_8u(&to, &left, state.data()) == vekStatusOk);
    bits.insert(bits.end(), rest, to);
    require(veksDecodeLZSSInit_8u(state.data()) == vekStatusOk);
    const Bytes back =
        runAll(veksDecodeLZSS_8u, bits.data(), bits.size(), room, piece, state.data());
    require(back.size() == size && std::memcmp(back.data(), data, size) == 0);
    return 0;
}
