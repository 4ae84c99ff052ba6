// Bzip2's run-length decoder on any bytes against a plain one, its output cut anywhere; and what it
// gives, coded again with input and output cut anywhere, decodes to the same.
//
// Input: two sizes of pieces (1 byte each), bytes.
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

void append(Data& to, const Data& from, int32_t count) {
    to.insert(to.end(), from.begin(), from.begin() + count);
}

Data expandPlainly(const Data& coded) {
    Data out;
    int run = 0;
    for (size_t i = 0; i < coded.size(); ++i) {
        run = run != 0 && coded[i] == coded[i - 1] ? run + 1 : 1;
        out.push_back(coded[i]);
        if (run < 4) continue;
        run = 0;
        if (++i < coded.size()) out.insert(out.end(), coded[i], coded[i - 1]);
    }
    return out;
}

Data expand(const Data& coded, size_t piece) {
    VekBz2RleState state;
    require(veksDecodeRLEStateInit_BZ2_8u(&state) == vekStatusOk);
    const uint8_t* src = coded.data();
    auto left = static_cast<int32_t>(coded.size());
    Data out;
    for (bool more = true; more;) {
        Data part(piece);
        uint8_t* dst = part.data();
        auto room = static_cast<int32_t>(piece);
        const bool flush = left == 0;
        const VekStatus status = flush
                                     ? veksDecodeRLEStateFlush_BZ2_8u(&state, &dst, &room)
                                     : veksDecodeRLEState_BZ2_8u(&src, &left, &dst, &room, &state);
        more = !flush || status == vekStatusDestinationFull;
        require(status == vekStatusOk || status == vekStatusDestinationFull);
        require(dst == part.data() + piece - room && src == coded.data() + coded.size() - left);
        require(left >= 0 && room >= 0);
        append(out, part, static_cast<int32_t>(piece) - room);
    }
    return out;
}

Data contract(const Data& plain, size_t inPiece, size_t outPiece) {
    VekBz2RleState state;
    require(veksEncodeRLEInit_BZ2_8u(&state) == vekStatusOk);
    Data out;
    for (size_t at = 0; at < plain.size();) {
        const size_t count = std::min(inPiece, plain.size() - at);
        const Data in(plain.begin() + static_cast<ptrdiff_t>(at),
                      plain.begin() + static_cast<ptrdiff_t>(at + count));
        const uint8_t* src = in.data();
        auto left = static_cast<int32_t>(count);
        Data part(outPiece);
        auto written = static_cast<int32_t>(outPiece);
        const VekStatus status = veksEncodeRLE_BZ2_8u(&src, &left, part.data(), &written, &state);
        require(status == (left != 0 ? vekStatusDestinationFull : vekStatusOk));
        at += count - static_cast<size_t>(left);
        append(out, part, written);
    }
    Data last(1);
    int32_t written = 1;
    require(veksEncodeRLEFlush_BZ2_8u(last.data(), &written, &state) == vekStatusOk);
    append(out, last, written);
    Data inUse(256);
    require(veksRLEGetInUseTable_8u(inUse.data(), &state) == vekStatusOk);
    Data values(256);
    for (const uint8_t value : out) values[value] = 1;
    require(inUse == values);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    // Every small size, and larger ones.
    const size_t outPiece = 1U + data[0] * size_t{data[0]} / 16;
    const size_t inPiece = 1U + data[1] * size_t{data[1]} / 16;
    const Data coded(data + 2, data + size);
    const Data plain = expandPlainly(coded);
    require(expand(coded, outPiece) == plain);
    require(expand(coded, plain.size() + 1) == plain);
    const Data again = contract(plain, inPiece, outPiece);
    require(contract(plain, plain.size(), plain.size() * 5 / 4 + 1) == again);
    require(expandPlainly(again) == plain);
    return 0;
}
