// The three LZ4 decoders on hostile blocks: no byte outside the buffers (exact allocations under
// AddressSanitizer), counts within bounds, the three equal wherever they should be, and what liblz4
// accepts decoded alike.
//
// Input: room (2 bytes), history size (2 bytes), index in place of it or not (1 byte), block.
#include <lz4.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "vekdc.h"

namespace {

using Data = std::vector<uint8_t>;

struct Result {
    VekStatus status;
    int consumed;
    int written;
    Data buffer;  // All of it, history included.
};

void require(bool holds) {
    if (!holds) abort();
}

/// Decodes behind `index` bytes into a buffer that begins with `start`.
Result decode(const Data& block, Data start, size_t index, size_t room, const Data* dictionary) {
    start.resize(index + room);
    Result r{0, static_cast<int>(block.size()), static_cast<int>(room), std::move(start)};
    const uint8_t* const dict = dictionary != nullptr ? dictionary->data() : r.buffer.data();
    const size_t size = dictionary != nullptr ? dictionary->size() : index;
    r.status =
        veksDecodeLZ4Dict_8u(block.data(), &r.consumed, r.buffer.data(), static_cast<int>(index),
                             &r.written, dict, static_cast<int>(size));
    require(r.consumed >= 0 && static_cast<size_t>(r.consumed) <= block.size());
    require(r.written >= 0 && static_cast<size_t>(r.written) <= room);
    if (r.status < 0) require(static_cast<size_t>(r.written) == room);
    return r;
}

/// An offset of 0 repeats what the buffer held, which differs from decoder to decoder.
bool hasZeroOffset(const Data& block) {
    for (size_t i = 0; i + 1 < block.size(); ++i)
        if (block[i] == 0 && block[i + 1] == 0) return true;
    return false;
}

void requireSame(const Result& a, size_t indexA, const Result& b, size_t indexB, bool bytes) {
    require(a.status == b.status);
    if (a.status < 0) return;
    require(a.consumed == b.consumed && a.written == b.written);
    require(!bytes || std::equal(a.buffer.begin() + static_cast<ptrdiff_t>(indexA),
                                 a.buffer.begin() + static_cast<ptrdiff_t>(indexA) + a.written,
                                 b.buffer.begin() + static_cast<ptrdiff_t>(indexB)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 6) return 0;
    const size_t room = 1U + data[0] + 256U * (data[1] % 16);
    const size_t historySize = data[2] + 256U * data[3];
    const size_t index = (data[4] & 1) != 0 ? historySize : size_t{data[4]} * 9;
    const Data block(data + 5, data + size);
    Data history(historySize);
    for (size_t i = 0; i < history.size(); ++i) history[i] = static_cast<uint8_t>(i * 7 + i / 256);
    const bool bytes = !hasZeroOffset(block);

    Data out(room);
    int written = static_cast<int>(room);
    const VekStatus alone =
        veksDecodeLZ4_8u(block.data(), static_cast<int>(block.size()), out.data(), &written);
    const Result empty = decode(block, {}, 0, room, nullptr);
    require(alone == empty.status);
    if (alone >= 0) require(written == empty.written);

    // A larger room leaves the fast loop later; what the smaller one held must be the same.
    const Result wide = decode(block, {}, 0, room + 100, nullptr);
    if (bytes && empty.status >= 0 && wide.status >= 0)
        require(std::equal(empty.buffer.begin(), empty.buffer.begin() + empty.written,
                           wide.buffer.begin()));
    if (bytes && empty.status == 0) {
        Data theirs(room);
        const int n = LZ4_decompress_safe(reinterpret_cast<const char*>(block.data()),
                                          reinterpret_cast<char*>(theirs.data()),
                                          static_cast<int>(block.size()), static_cast<int>(room));
        if (n > 0 && static_cast<size_t>(empty.consumed) == block.size())
            require(n == empty.written &&
                    std::equal(theirs.begin(), theirs.begin() + n, empty.buffer.begin()));
    }

    if (historySize != 0) {
        const Result front = decode(block, history, historySize, room, nullptr);
        const Result own = decode(block, {}, historySize, room, &history);
        requireSame(front, historySize, own, historySize, bytes);
        decode(block, {}, index, room, &history);
    }
    return 0;
}
