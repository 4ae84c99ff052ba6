// Deflate's match finding with tables, sizes, parameters and pieces of the fuzzer's choice: the
// pairs must give back the source, and nothing outside the buffers be touched. Where the tables are
// empty, at the start or by a flush on the way, no pair may refer to what came before.
//
// Input: a header of choices, then table contents and source from the same bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "include/vekdc.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t header = 16;
    if (size < header) return 0;
    uint32_t choices[header / 4];
    std::memcpy(choices, data, header);
    const uint8_t* const begin = data + header;
    const uint8_t* const end = data + size;
    std::minstd_rand random(choices[0]);
    const uint32_t winSize = 256U << (choices[1] % 8);
    const uint32_t hashSize = 256U << (choices[1] / 8 % 9);
    const uint32_t mode = choices[1] >> 16;
    const uint32_t level = mode % 34;
    const int32_t params[4] = {static_cast<int32_t>(choices[2] % 300),
                               static_cast<int32_t>(4 + choices[2] / 512 % 300),
                               static_cast<int32_t>(4 + choices[2] / 262144 % 300),
                               static_cast<int32_t>(4 + choices[0] % 300)};
    auto position = static_cast<int32_t>(choices[3] & 0x7FFFFFFF);
    if (mode % 3 == 0) position %= 70000;

    // History: the window holds bytes of the input itself, so that matches reach into it.
    std::vector<uint8_t> window(winSize);
    std::vector<uint8_t> out;
    for (uint32_t i = 0; i < std::min<uint32_t>(winSize, static_cast<uint32_t>(position)); ++i)
        out.push_back(begin == end ? uint8_t{0} : begin[i % static_cast<size_t>(end - begin)]);
    const size_t historySize = out.size();
    for (size_t i = 0; i < historySize; ++i)
        window[(static_cast<size_t>(position) - historySize + i) & (winSize - 1)] = out[i];

    std::vector<int32_t> head(hashSize, -32768);
    std::vector<int32_t> prev(winSize, -32768);
    const auto entry = [&] {
        const auto value = static_cast<uint32_t>(random());
        return static_cast<int32_t>(
            value % 3 == 0 ? value * 3 : static_cast<uint32_t>(position) - value % 40000);
    };
    size_t partStart = historySize;
    if (mode % 2 == 0) {
        partStart = 0;
        std::generate(head.begin(), head.end(), entry);
        std::generate(prev.begin(), prev.end(), entry);
    }
    std::vector<VekHuffEntry> litFreq(286);
    std::vector<VekHuffEntry> distFreq(30);

    const size_t longest = mode % 7 == 0 ? 9 : 5000;
    for (const uint8_t* at = begin; at != end;) {
        if (mode % 5 != 0 && random() % 8 == 0) {
            std::fill(head.begin(), head.end(), -32768);
            std::fill(prev.begin(), prev.end(), -32768);
            partStart = out.size();
        }
        const size_t piece = 1 + random() % std::min(static_cast<size_t>(end - at), longest);
        const std::vector<uint8_t> source(at, at + piece);
        const uint32_t room = 1 + random() % 3000;
        std::vector<uint8_t> lit(room);
        std::vector<uint16_t> dist(room);
        const uint8_t* src = source.data();
        auto left = static_cast<int32_t>(piece);
        uint32_t roomLeft = room;
        const auto flush = static_cast<uint32_t>(random() % 4);
        VekStatus status = 0;
        if (level < 30) {
            status = veksDeflateLZ77_8u(&src, &left, &position, window.data(), winSize, head.data(),
                                        prev.data(), hashSize, litFreq.data(), distFreq.data(),
                                        lit.data(), dist.data(), &roomLeft, level, flush);
        } else {
            status = (level < 32 ? veksDeflateLZ77Fast_8u : veksDeflateLZ77Slow_8u)(
                &src, &left, &position, window.data(), winSize, head.data(), prev.data(), hashSize,
                litFreq.data(), distFreq.data(), lit.data(), dist.data(), &roomLeft, params, flush);
        }
        require(status == vekStatusOk);
        require(left == 0 || roomLeft == 0);
        for (uint32_t i = 0; i < room - roomLeft; ++i) {
            if (dist[i] == 0) {
                out.push_back(lit[i]);
                continue;
            }
            require(dist[i] <= out.size() - partStart && dist[i] < winSize);
            for (int k = 0; k < lit[i] + 3; ++k) out.push_back(out[out.size() - dist[i]]);
        }
        at += src - source.data();
    }
    require(out.size() - historySize == static_cast<size_t>(end - begin));
    require(std::equal(begin, end, out.begin() + static_cast<std::ptrdiff_t>(historySize)));
    uint64_t pairs = 0;
    for (const VekHuffEntry& e : litFreq) pairs += e.code + 65536ULL * e.length;
    require(pairs <= static_cast<uint64_t>(end - begin));
    return 0;
}
