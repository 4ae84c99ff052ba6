// The drop-in libbz2 and the distribution's on hostile streams in pieces of any size: what ours
// decodes to the end theirs does too, with the same bytes and counts, and the reverse but for the
// streams that ours alone refuses; and calls out of order give the same codes.
//
// Input: a seed for the pieces (2 bytes), stream.
#include <bzlib.h>

#include "fuzz/dropin.h"

namespace {

using namespace vekfuzz;

struct Bz2 : Library {
    using Library::Library;
    VEK_MEMBER(decompressInit, BZ2_bzDecompressInit)
    VEK_MEMBER(decompress, BZ2_bzDecompress)
    VEK_MEMBER(decompressEnd, BZ2_bzDecompressEnd)
};

const Bz2 ours(VEK_OURS);
const Bz2 stock(VEK_STOCK);

constexpr int mostCalls = 1000;

struct Outcome {
    int status = BZ_OK;
    Data plain;
    uint64_t taken = 0;
    int calls = 0;
    std::string before;  ///< Codes of calls out of order before the first,
    std::string behind;  ///< and behind the last.
};

Outcome decode(const Bz2& by, std::span<const uint8_t> packed, uint32_t seed) {
    constexpr size_t most[] = {1, 30, 2000, 100000};
    Outcome outcome;
    bz_stream s{};
    Sizes sizes(seed);
    outcome.before = text(by.decompress(&s), by.decompressEnd(&s),
                          by.decompressInit(&s, 0, static_cast<int>(seed % 4)));
    if (seed % 4 > 1) {
        outcome.behind = text(by.decompressEnd(&s));
        return outcome;
    }
    size_t at = 0;
    for (int idle = 0; outcome.status == BZ_OK && idle < 3 && outcome.calls < mostCalls;
         ++outcome.calls) {
        const size_t in = std::min(packed.size() - at, sizes.upTo(most[seed / 4 % 4]));
        Data room(sizes.upTo(most[seed / 16 % 4]));
        Data piece(packed.begin() + static_cast<ptrdiff_t>(at),
                   packed.begin() + static_cast<ptrdiff_t>(at + in));
        s.next_in = reinterpret_cast<char*>(piece.data());
        s.avail_in = static_cast<unsigned>(in);
        s.next_out = reinterpret_cast<char*>(room.data());
        s.avail_out = static_cast<unsigned>(room.size());
        outcome.status = by.decompress(&s);
        at += in - s.avail_in;
        room.resize(room.size() - s.avail_out);
        idle = room.empty() && at == packed.size() ? idle + 1 : 0;
        outcome.plain.insert(outcome.plain.end(), room.begin(), room.end());
    }
    outcome.taken = uint64_t{s.total_in_hi32} << 32 | s.total_in_lo32;
    const int behind = outcome.status == BZ_STREAM_END ? by.decompress(&s) : 0;
    outcome.behind = text(behind, by.decompressEnd(&s), by.decompressEnd(&s));
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices({data, size});
    const uint32_t seed = choices.byte() * 256U + choices.byte();
    const Outcome mine = decode(ours, choices.rest(), seed);
    const Outcome theirs = decode(stock, choices.rest(), seed);
    if (mine.calls == mostCalls || theirs.calls == mostCalls) return 0;
    same(mine.before, theirs.before, "before");
    if (mine.status == BZ_STREAM_END || theirs.status == BZ_DATA_ERROR_MAGIC ||
        mine.status == BZ_DATA_ERROR_MAGIC)
        same(text(mine.status, mine.taken, mine.plain.size(), mine.behind),
             text(theirs.status, theirs.taken, theirs.plain.size(), theirs.behind), "end");
    // Ours alone refuses randomised blocks and codes of too many symbols, and sees some faults
    // later; and never stops at a stream that theirs has finished.
    if (theirs.status == BZ_STREAM_END && mine.status != BZ_STREAM_END)
        same(text(mine.status), text(BZ_DATA_ERROR), "refused");
    if (mine.status == BZ_STREAM_END && mine.plain != theirs.plain) abort();
    return 0;
}
