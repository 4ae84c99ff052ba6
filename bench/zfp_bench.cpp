// ZFP: whole fields of 128 x 128 x 128 floats, block by block, against the method's own library.

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "bench.h"
#include "vekdc.h"

#ifdef VEK_HAS_zfp
#include <zfp.h>
#endif

namespace {

constexpr int side = 128;
constexpr int32_t row = side * 4;
constexpr int32_t plane = side * side * 4;

using Field = std::vector<float>;

struct Mode {
    const char* name;
    int32_t minBits, maxBits, minExp;
};

constexpr Mode modes[] = {{"8 bits a value", 512, 512, -1074},
                          {"16 bits a value", 1024, 1024, -1074},
                          {"accuracy 1e-3", 0, 4171, -10}};

/// A sum of waves whose amplitudes fall with the frequency by `decay`.
Field makeField(double decay) {
    Field field(side * side * side);
    uint32_t seed = 1;
    const auto random = [&seed] { return (seed = seed * 1664525U + 1013904223U) / 4294967296.0; };
    for (int wave = 0; wave < 24; ++wave) {
        const double frequency = std::pow(1.25, wave) * 0.02;
        const double amplitude = std::pow(frequency / 0.02, -decay);
        const double a = frequency * (random() - 0.5), b = frequency * (random() - 0.5);
        const double c = frequency * (random() - 0.5), phase = 6.28 * random();
        for (int i = 0; i < side * side * side; ++i) {
            const int x = i % side, y = i / side % side, z = i / side / side;
            field[static_cast<size_t>(i)] +=
                static_cast<float>(amplitude * std::sin(phase + 6.28 * (a * x + b * y + c * z)));
        }
    }
    return field;
}

template <class Float, class Block>
void eachBlock(Float* field, Block block) {
    for (int z = 0; z < side; z += 4)
        for (int y = 0; y < side; y += 4)
            for (int x = 0; x < side; x += 4) block(field + (z * side + y) * side + x);
}

/// Our side: a record and its stream.
struct Ours {
    std::vector<uint32_t> record;
    std::vector<uint8_t> stream = std::vector<uint8_t>(side * side * side * 5);

    VekZfpState* state() { return reinterpret_cast<VekZfpState*>(record.data()); }

    Ours() {
        int32_t size = 0;
        veksEncodeZfpGetStateSize_32f(&size);
        record.resize(static_cast<size_t>(size) / 4);
    }

    size_t encode(const Mode& mode, const Field& field) {
        veksEncodeZfpInit_32f(stream.data(), static_cast<int32_t>(stream.size()), state());
        veksEncodeZfpSet_32f(mode.minBits, mode.maxBits, 64, mode.minExp, state());
        eachBlock(field.data(),
                  [&](const float* p) { veksEncodeZfp444_32f(p, row, plane, state()); });
        veksEncodeZfpFlush_32f(state());
        int32_t size = 0;
        veksEncodeZfpGetCompressedSize_32f(state(), &size);
        return static_cast<size_t>(size);
    }

    void decode(const Mode& mode, Field& field) {
        veksDecodeZfpInit_32f(stream.data(), static_cast<int32_t>(stream.size()), state());
        veksDecodeZfpSet_32f(mode.minBits, mode.maxBits, 64, mode.minExp, state());
        eachBlock(field.data(), [&](float* p) { veksDecodeZfp444_32f(state(), p, row, plane); });
    }
};

#ifdef VEK_HAS_zfp
/// The peer's side, serial, over the whole field with its own loop.
struct Theirs {
    std::vector<uint8_t> stream = std::vector<uint8_t>(side * side * side * 5);
    bitstream* bits = stream_open(stream.data(), stream.size());
    zfp_stream* zfp = zfp_stream_open(bits);

    Theirs() = default;
    Theirs(const Theirs&) = delete;
    Theirs& operator=(const Theirs&) = delete;
    ~Theirs() {
        zfp_stream_close(zfp);
        stream_close(bits);
    }

    size_t run(const Mode& mode, Field& field, bool encode) {
        zfp_stream_set_params(zfp, static_cast<uint>(mode.minBits), static_cast<uint>(mode.maxBits),
                              64, mode.minExp);
        zfp_stream_rewind(zfp);
        zfp_field* f = zfp_field_3d(field.data(), zfp_type_float, side, side, side);
        const size_t size = encode ? zfp_compress(zfp, f) : zfp_decompress(zfp, f);
        zfp_field_free(f);
        return size;
    }
};
#endif

void registerField(const char* name, double decay) {
    const auto field = std::make_shared<Field>(makeField(decay));
    const size_t bytes = field->size() * 4;
    for (const Mode& mode : modes) {
        const auto ours = std::make_shared<Ours>();
        const auto decoded = std::make_shared<Field>(field->size());
        const size_t size = ours->encode(mode, *field);
        ours->decode(mode, *decoded);
        const std::string encode = std::string("zfp encode, ") + mode.name;
        const std::string decode = std::string("zfp decode, ") + mode.name;
#ifdef VEK_HAS_zfp
        const auto theirs = std::make_shared<Theirs>();
        const auto theirDecoded = std::make_shared<Field>(field->size());
        // The peer may be built for shorter words, and then ends its stream sooner.
        const size_t theirSize = theirs->run(mode, *field, true);
        if ((theirSize + 7) / 8 * 8 != size ||
            std::memcmp(theirs->stream.data(), ours->stream.data(), theirSize) != 0)
            vekbench::fail("the streams differ");
        theirs->run(mode, *theirDecoded, false);
        if (*theirDecoded != *decoded) vekbench::fail("the decoded fields differ");
        vekbench::add(encode, name, "libzfp", bytes,
                      [=, &mode] { return theirs->run(mode, *field, true); });
        vekbench::add(decode, name, "libzfp", bytes, [=, &mode] {
            theirs->run(mode, *theirDecoded, false);
            return size_t{0};
        });
#else
        static_cast<void>(size);
#endif
        vekbench::add(encode, name, "vekdc", bytes,
                      [=, &mode] { return ours->encode(mode, *field); });
        vekbench::add(decode, name, "vekdc", bytes, [=, &mode] {
            ours->decode(mode, *decoded);
            return size_t{0};
        });
        vekbench::goal(encode, "libzfp", sizeof(void*) == 4 ? 6.5 : 4);
        vekbench::goal(decode, "libzfp", 3);
    }
}

}  // namespace

void registerBenchmarks() {
    registerField("smooth", 2.5);
    registerField("turbulent", 0.6);
}
