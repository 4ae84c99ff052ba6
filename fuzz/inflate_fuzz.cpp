// Inflate against zlib: the first three bytes say how the rest, a raw deflate stream, is cut up;
// what zlib accepts must give the same bytes here, and what it refuses must be refused. Pieces of
// input and output lie in heap blocks of their own size, with the history in a circular window or
// in the output.
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "deflate_streams.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr size_t most = 1 << 17;
constexpr uint32_t windowSize = 32768;

void require(bool holds) {
    if (!holds) std::abort();
}

struct Cut {
    size_t in, out;
    bool windowed;
};

class Output {
 public:
    Output(Cut cut, VekInflateState& state) : cut_(cut), window_(cut.windowed ? windowSize : 0) {
        state.window = cut.windowed ? window_.data() : nullptr;
        state.windowSize = 0;
    }

    bool stored(const uint8_t* bytes, size_t count) {
        append(bytes, count);
        return out.size() <= most;
    }
    bool coded(vektest::BitSource& in, VekInflateState& state) {
        const size_t kinds = state.tableKind == 2 ? size_t{2} << state.litBits : 5632;
        if (state.tableKind != 0 && state.tables[kinds + 15] == 0) lenient = true;
        for (int32_t mode = 1; mode != 0;) {
            const size_t left = static_cast<size_t>(in.end - in.src);
            const Bytes piece(in.src, in.src + std::min(cut_.in, left));
            // The history is the window, or all output before: then both share one block.
            const size_t before = cut_.windowed ? 0 : out.size();
            const auto block = std::make_unique<uint8_t[]>(before + cut_.out);
            if (before != 0) std::memcpy(block.get(), out.data(), before);
            if (cut_.windowed) {
                state.windowSize = static_cast<uint32_t>(std::min<size_t>(out.size(), windowSize));
            }
            uint8_t none = 0;
            const uint8_t* src = piece.empty() ? &none : piece.data();
            const uint8_t* const start = src;
            auto srcLen = static_cast<uint32_t>(piece.size());
            uint8_t* dst = block.get() + before;
            auto room = static_cast<uint32_t>(cut_.out);
            const VekStatus status =
                veksInflate_8u(&src, &srcLen, &in.code, &in.nBits, winIdx_, &dst, &room,
                               static_cast<uint32_t>(before), &mode, &state);
            in.src += src - start;
            append(block.get() + before, cut_.out - room);
            if (status != vekStatusOk || out.size() > most) return false;
            require(mode >= 0 && mode <= 2 && (mode != 1 || srcLen == 0));
            if (mode != 0 && in.src == in.end && room != 0) return false;
        }
        return true;
    }

    Bytes out;
    bool lenient = false;  ///< A code was met that zlib refuses and we do not.

 private:
    void append(const uint8_t* bytes, size_t count) {
        out.insert(out.end(), bytes, bytes + count);
        for (size_t i = 0; i < count && cut_.windowed; ++i) {
            winIdx_ %= windowSize;
            window_[winIdx_++] = bytes[i];
        }
    }

    Cut cut_;
    Bytes window_;
    uint32_t winIdx_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const Cut cut{size_t{1} + (data[0] & 1 ? data[1] : 64 * data[1]),
                  size_t{1} + (data[0] & 2 ? data[2] : 64 * data[2]), (data[0] & 4) != 0};
    data += 3;
    size -= 3;

    Bytes expected(most + 1);
    z_stream z{};
    require(inflateInit2(&z, -15) == Z_OK);
    z.next_in = const_cast<Bytef*>(data);
    z.avail_in = static_cast<uInt>(size);
    z.next_out = expected.data();
    z.avail_out = static_cast<uInt>(expected.size());
    const bool zlibGood = inflate(&z, Z_FINISH) == Z_STREAM_END;
    expected.resize(z.total_out);
    const size_t zlibLeft = z.avail_in;
    inflateEnd(&z);
    if (expected.size() > most || (!cut.windowed && cut.out < 64 && expected.size() > 4096))
        return 0;

    auto state = std::make_unique<VekInflateState>();
    Output output(cut, *state);
    vektest::BitSource in{data, data + size};
    const bool good = vektest::readDeflate(in, *state, output);
    if (output.lenient) return 0;
    require(good == zlibGood);
    if (good) {
        require(output.out == expected);
        require(static_cast<size_t>(in.end - in.src) + in.nBits / 8 == zlibLeft);
    }
    return 0;
}
