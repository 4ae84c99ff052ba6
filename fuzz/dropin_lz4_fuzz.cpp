// The drop-in liblz4 and the distribution's on hostile blocks and frames: where both decode, they
// give the same, in pieces of any size; and what theirs decodes whole ours does not refuse. Two
// things the format forbids are left to either: a match at the distance 0, which refers to itself,
// and blocks that do not end in literals, which theirs refuses or takes by where they end.
//
// Input: what it is and a seed for the pieces (3 bytes), room for a block (2 bytes), bytes.
#include <lz4.h>
#include <lz4frame.h>

#include <cstring>

#include "fuzz/dropin.h"

namespace {

using namespace vekfuzz;

struct Lz4 : Library {
    using Library::Library;
    VEK_MEMBER(decode, LZ4_decompress_safe)
    VEK_MEMBER(decodePart, LZ4_decompress_safe_partial)
    VEK_MEMBER(decodeBehind, LZ4_decompress_safe_usingDict)
    VEK_MEMBER(create, LZ4F_createDecompressionContext)
    VEK_MEMBER(destroy, LZ4F_freeDecompressionContext)
    VEK_MEMBER(decodeFrame, LZ4F_decompress)
    VEK_MEMBER(isError, LZ4F_isError)
};

const Lz4 ours(VEK_OURS);
const Lz4 stock(VEK_STOCK);

constexpr int mostCalls = 1000;

struct Outcome {
    bool good = false;
    int calls = 0;
    Data plain;
};

const char* chars(std::span<const uint8_t> bytes) {
    return reinterpret_cast<const char*>(bytes.data());
}

Outcome decodeBlock(const Lz4& by, std::span<const uint8_t> packed, int how, size_t room) {
    // Copies of their own, so that what is touched behind them shows.
    const Data in(packed.begin(), packed.end());
    Data out(room);
    const Data dictionary(300, 'd');
    auto* const to = reinterpret_cast<char*>(out.data());
    const auto size = static_cast<int>(in.size());
    const auto most = static_cast<int>(room);
    const int got = how == 0   ? by.decode(chars(in), to, size, most)
                    : how == 1 ? by.decodePart(chars(in), to, size, most / 2, most)
                               : by.decodeBehind(chars(in), to, size, most, chars(dictionary), 300);
    out.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return {got >= 0, 1, out};
}

/// As far as one frame goes. It is good where its end is reached.
Outcome decodeFrame(const Lz4& by, std::span<const uint8_t> packed, uint32_t seed) {
    constexpr size_t most[] = {1, 30, 2000, 100000};
    Outcome outcome;
    Sizes sizes(seed);
    LZ4F_dctx* context = nullptr;
    if (by.isError(by.create(&context, LZ4F_VERSION)) != 0) abort();
    size_t at = 0;
    for (int idle = 0; idle < 3 && outcome.calls < mostCalls; ++outcome.calls) {
        size_t in = std::min(packed.size() - at, sizes.upTo(most[seed % 4]));
        Data room(sizes.upTo(most[seed / 4 % 4]));
        size_t out = room.size();
        const Data piece(packed.begin() + static_cast<ptrdiff_t>(at),
                         packed.begin() + static_cast<ptrdiff_t>(at + in));
        const size_t hint = by.decodeFrame(context, room.data(), &out, piece.data(), &in, nullptr);
        if (by.isError(hint) != 0) break;
        at += in;
        outcome.plain.insert(outcome.plain.end(), room.begin(),
                             room.begin() + static_cast<ptrdiff_t>(out));
        outcome.good = hint == 0 && at != 0;
        if (outcome.good) break;
        idle = out == 0 && at == packed.size() ? idle + 1 : 0;
    }
    by.destroy(context);
    return outcome;
}

/// What the format asks of a block beyond what decoding it takes.
struct Form {
    bool endsWell = false;  ///< At least 5 literals, 12 bytes behind the last match's beginning.
    bool refersToItself = false;
};

Form formOf(std::span<const uint8_t> block) {
    Form form;
    size_t at = 0;
    const auto extended = [&](size_t length) {
        if (length != 15) return length;
        while (at < block.size() && block[at] == 255) length += block[at++];
        return at < block.size() ? length + block[at++] : length;
    };
    for (size_t match = 0; at < block.size(); match += 4) {
        const uint8_t token = block[at++];
        const size_t literals = extended(token >> 4);
        if (literals >= block.size() - at) {
            const bool enough = match == 0 || (literals >= 5 && match + literals >= 12);
            form.endsWell = literals == block.size() - at && enough;
            break;
        }
        at += literals;
        if (block.size() - at < 2) break;
        form.refersToItself |= (block[at] | block[at + 1]) == 0;
        at += 2;
        match = extended(token & 15);
    }
    return form;
}

/// That of all blocks of a frame, if it is one without a dictionary's name.
Form formOfFrame(std::span<const uint8_t> frame) {
    Form form{true, false};
    const auto word = [&](size_t at) {
        uint32_t value = 0;
        if (at + 4 <= frame.size()) std::memcpy(&value, &frame[at], 4);
        return value;
    };
    if (frame.size() < 7 || (frame[4] & 1) != 0) return {};
    const size_t checksum = (frame[4] & 16) != 0 ? 4 : 0;
    size_t at = (frame[4] & 8) != 0 ? 15 : 7;
    while (word(at) != 0) {
        const uint32_t size = word(at);
        at += 4;
        if ((size & 0x7FFFFFFF) > frame.size() - at) return {};
        if (size < 0x80000000) {
            const Form block = formOf(frame.subspan(at, size));
            form.endsWell &= block.endsWell;
            form.refersToItself |= block.refersToItself;
        }
        at += (size & 0x7FFFFFFF) + checksum;
    }
    return form;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t length) {
    Choices choices({data, length});
    const int how = choices.byte() % 8;
    const uint32_t seed = choices.byte() * 256U + choices.byte();
    const size_t room = choices.byte() * 256U + choices.byte();
    const auto packed = choices.rest();
    const auto decoded = [&](const Lz4& by) {
        return how < 3 ? decodeBlock(by, packed, how, room) : decodeFrame(by, packed, seed);
    };
    const Outcome mine = decoded(ours);
    const Outcome theirs = decoded(stock);
    if (mine.calls == mostCalls || theirs.calls == mostCalls) return 0;
    const bool isFrame = how >= 3;
    const bool partial = how == 1;
    const Form form = isFrame ? formOfFrame(packed) : formOf(packed);
    if (theirs.good && !mine.good && !partial && form.endsWell && !(isFrame && form.refersToItself))
        abort();
    if (!isFrame && !partial && mine.good && !theirs.good && form.endsWell) abort();
    if (!mine.good || !theirs.good) return 0;
    // Of blocks that are cut short or end in a match, theirs alone gives the beginning, or more.
    const size_t size = std::min(mine.plain.size(), theirs.plain.size());
    if (!partial && mine.plain.size() != theirs.plain.size()) abort();
    if (!form.refersToItself &&
        !std::equal(mine.plain.begin(), mine.plain.begin() + static_cast<ptrdiff_t>(size),
                    theirs.plain.begin()))
        abort();
    return 0;
}
