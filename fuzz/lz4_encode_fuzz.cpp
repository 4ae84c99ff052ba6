// Every LZ4 encoder on any bytes, in any room, with any history: the output decodes to exactly what
// was consumed, here and with liblz4.
//
// Input: which encoder (1 byte), parameter (1 byte), room (2 bytes), history size (2 bytes), data.
#include <lz4.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "vekdc.h"

namespace {

using Data = std::vector<uint8_t>;

void require(bool holds) {
    if (!holds) abort();
}

struct Tables {
    Data fast = Data(16384);
    Data hash = Data(131072);
    Data chain = Data(262144);
    uint8_t* pair[2] = {hash.data(), chain.data()};
};

struct Block {
    VekStatus status = 0;
    int consumed = 0;
    int written = 0;
    Data bytes;
};

enum Encoder {
    kPlain,
    kSafe,
    kAccelerated,
    kDictionary,
    kDictionarySafe,
    kHigh,
    kHighLimit,
    kCount
};

bool checksRoom(Encoder encoder) {
    return encoder == kSafe || encoder >= kDictionarySafe;
}

Block encode(Encoder encoder, int parameter, const Data& in, size_t room, const Data& history,
             bool inPlace) {
    static Tables t;
    const auto index = static_cast<int>(history.size());
    const auto length = static_cast<int>(in.size());
    Data together = history;
    together.insert(together.end(), in.begin(), in.end());
    const uint8_t* const src = inPlace ? together.data() + index : in.data();
    const uint8_t* const dict = inPlace || index == 0 ? nullptr : history.data();
    if (!checksRoom(encoder)) room = vekLZ4EncodeBound(in.size());
    Block b{0, length, static_cast<int>(room), Data(room)};
    veksEncodeLZ4DictHashTableInit_8u(t.fast.data(), 1);
    if (encoder >= kHigh) veksEncodeLZ4HCHashTableInit_8u(t.pair);
    if (index != 0 && encoder < kHigh)
        veksEncodeLZ4LoadDict_8u(t.fast.data(), history.data(), index);
    if (index != 0 && encoder >= kHigh) {
        Data scrap(vekLZ4EncodeBound(history.size()));
        int n = index;
        auto m = static_cast<int>(scrap.size());
        veksEncodeLZ4HC_8u(history.data(), 0, &n, scrap.data(), &m, t.pair, nullptr, 0, parameter);
    }
    uint8_t* const out = b.bytes.data();
    switch (encoder) {
        case kPlain:
            b.status = veksEncodeLZ4_8u(in.data(), length, out, &b.written, t.fast.data());
            break;
        case kSafe:
            b.status = veksEncodeLZ4Safe_8u(in.data(), &b.consumed, out, &b.written, t.fast.data());
            break;
        case kAccelerated:
            b.status = veksEncodeLZ4Fast_8u(in.data(), length, out, &b.written, t.fast.data(),
                                            1 + parameter * parameter);
            break;
        case kDictionary:
            b.status = veksEncodeLZ4Dict_8u(src, index, length, out, &b.written, t.fast.data(),
                                            dict, index);
            break;
        case kDictionarySafe:
            b.status = veksEncodeLZ4DictSafe_8u(src, index, &b.consumed, out, &b.written,
                                                t.fast.data(), dict, index);
            break;
        case kHigh:
            b.status = veksEncodeLZ4HC_8u(src, index, &b.consumed, out, &b.written, t.pair, dict,
                                          index, parameter % 10);
            break;
        default:
            b.status = veksEncodeLZ4HCDictLimit_8u(src, index, &b.consumed, out, &b.written, t.pair,
                                                   dict, index, parameter % 10, parameter & 1);
            break;
    }
    require(b.written >= 0 && static_cast<size_t>(b.written) <= room);
    require(b.consumed >= 0 && b.consumed <= length);
    b.bytes.resize(static_cast<size_t>(b.written));
    return b;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 7) return 0;
    const auto encoder = static_cast<Encoder>(data[0] % kCount);
    const bool inPlace = (data[0] & 0x80) != 0;
    const size_t room = 1U + data[2] + 256U * data[3];
    const Data all(data + 6, data + size);
    size_t split = 0;
    if (encoder >= kDictionary) split = (data[4] + 256U * data[5]) % all.size();
    const Data history(all.begin(), all.begin() + static_cast<ptrdiff_t>(split));
    Data in(all.begin() + static_cast<ptrdiff_t>(split), all.end());
    // A short input, repeated, reaches the 32-bit table.
    if ((data[0] & 0x40) != 0)
        while (in.size() < 70000)
            in.insert(
                in.end(), in.begin(),
                in.begin() + static_cast<ptrdiff_t>(std::min(in.size(), 70000 - in.size() / 2)));

    const Block b = encode(encoder, data[1], in, room, history, inPlace);
    const Data want(in.begin(), in.begin() + b.consumed);
    require(b.status == 0 || b.status == 33 || (b.status == 48 && encoder >= kHigh));
    require((b.status == 0) == (static_cast<size_t>(b.consumed) == in.size()));
    const VekStatus whole = b.bytes.size() == 1 ? 32 : 0;
    for (const size_t slack : {size_t{0}, size_t{80}}) {
        Data out(split + want.size() + slack + (want.empty() ? 1 : 0));
        std::copy(history.begin(), history.end(), out.begin());
        auto n = static_cast<int>(b.bytes.size());
        auto m = static_cast<int>(out.size() - split);
        const VekStatus status =
            veksDecodeLZ4Dict_8u(b.bytes.data(), &n, out.data(), static_cast<int>(split), &m,
                                 slack == 0 ? out.data() : history.data(), static_cast<int>(split));
        require(status == whole && static_cast<size_t>(m) == want.size());
        require(std::equal(want.begin(), want.end(), out.begin() + static_cast<ptrdiff_t>(split)));
    }
    if (whole == 0) {
        Data theirs(want.size() + 1);
        const int n = LZ4_decompress_safe_usingDict(
            reinterpret_cast<const char*>(b.bytes.data()), reinterpret_cast<char*>(theirs.data()),
            static_cast<int>(b.bytes.size()), static_cast<int>(want.size()),
            reinterpret_cast<const char*>(history.data()), static_cast<int>(split));
        require(n >= 0 && static_cast<size_t>(n) == want.size() &&
                std::equal(want.begin(), want.end(), theirs.begin()));
    }
    return 0;
}
