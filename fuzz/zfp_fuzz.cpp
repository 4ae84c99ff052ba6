// ZFP decoder over any bits, with parameters from the first bytes; then what it decoded is coded
// again into a buffer of any length, and that decoded.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vekdc.h"

namespace {

constexpr size_t headerBytes = 18;
constexpr int mostBlocks = 40;

int32_t word(const uint8_t* p) {
    int32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size <= headerBytes) return 0;
    const bool tame = (data[16] & 1) != 0;
    int32_t parameters[4];
    for (int i = 0; i < 4; ++i)
        parameters[i] = tame ? word(data + 4 * i) % 1200 : word(data + 4 * i);
    const auto set = [&](VekZfpState* state) {
        veksDecodeZfpSet_32f(parameters[0], parameters[1], parameters[2], parameters[3], state);
    };
    int32_t stateSize = 0;
    veksDecodeZfpGetStateSize_32f(&stateSize);
    std::vector<uint8_t> decoder(static_cast<size_t>(stateSize)),
        encoder(static_cast<size_t>(stateSize));
    auto* in = reinterpret_cast<VekZfpState*>(decoder.data());
    auto* out = reinterpret_cast<VekZfpState*>(encoder.data());

    const std::vector<uint8_t> stream(data + headerBytes, data + size);
    std::vector<uint8_t> again(1 + size_t{data[17]} * 8);
    veksDecodeZfpInit_32f(stream.data(), static_cast<int32_t>(stream.size()), in);
    veksEncodeZfpInit_32f(again.data(), static_cast<int32_t>(again.size()), out);
    set(in);
    set(out);
    int blocks = 0;
    VekStatus encoded = vekStatusOk;
    std::vector<float> block(64);
    for (; blocks < mostBlocks && encoded == vekStatusOk; ++blocks) {
        if (veksDecodeZfp444_32f(in, block.data(), 16, 64) != vekStatusOk) break;
        encoded = veksEncodeZfp444_32f(block.data(), 16, 64, out);
    }
    const bool whole = encoded == vekStatusOk && veksEncodeZfpFlush_32f(out) == vekStatusOk;
    int64_t bytes = 0;
    veksEncodeZfpGetCompressedSizeLong_32f(out, &bytes);
    if (bytes > static_cast<int64_t>(again.size())) std::abort();
    if (!whole || bytes == 0) return 0;
    veksDecodeZfpInitLong_32f(again.data(), bytes, in);
    set(in);
    // Every block that was coded whole decodes.
    for (int i = 0; i < blocks; ++i)
        if (veksDecodeZfp444_32f(in, block.data(), 16, 64) != vekStatusOk) std::abort();
    return 0;
}
