// CRC-32 of zlib and of bzip2: the exports, and the path by carry-less multiplication
// (crc32_folding.h) of 16 bytes at a time.
//
// Long messages are first shortened by XOR (crc_sparse.h), short ones go through the tables. Where
// the processor multiplies 64 bytes at a time, everything from 256 bytes on goes there instead.

#include "checksum/crc32_folding.h"

#include "checksum/checksum.h"
#include "checksum/crc_sparse.h"
#include "frame/args.h"
#include "frame/features.h"

namespace {

using namespace vek::checksum;

/// What the two CRCs differ in.
struct Zlib {
    using Order = ZlibOrder;
    static constexpr auto tables = ownsCRC32_8u;
    static constexpr auto wide = ownsCRC32_avx512;
};
struct Bzip2 {
    using Order = Bzip2Order;
    static constexpr auto tables = ownsCRC32_BZ2_8u;
    static constexpr auto wide = ownsCRC32_BZ2_avx512;
};

/// The path of short messages, out of line like that of long ones: the function that folds then
/// calls nothing and needs no stack frame, which 64-byte messages would feel.
template <class Crc>
[[gnu::noinline]] uint32_t byTables(const uint8_t* src, size_t len, uint32_t crc) {
    Crc::tables(src, len, &crc);
    return crc;
}

template <class Crc>
[[gnu::noinline]] uint32_t shortenAndFold(const uint8_t* src, size_t len, uint32_t crc) {
    using Order = typename Crc::Order;
    return ~shortenThen<crc32Multiple>(
        Order::toBytes(~crc), src, len, [](uint32_t reg, const uint8_t* piece, size_t size) {
            if (size < 16) return ~byTables<Crc>(piece, size, ~reg);
            return Order::reduce(foldMessage<Order>(reg, piece, size));
        });
}

/// From here on shortening pays: a round of XOR takes a third of the time of folding it, but the
/// ring, which has the length of a round, is still to be folded.
constexpr size_t shortenFrom = 2 * crc32Multiple.ringBytes();

/// The running value after a message. Inlined into the exports: at 64 bytes a further call shows.
template <class Crc>
[[gnu::always_inline]] inline uint32_t update(const uint8_t* src, size_t len, uint32_t crc) {
    using Order = typename Crc::Order;
    if (len < 16) [[unlikely]]
        return byTables<Crc>(src, len, crc);
    const uint32_t features = vek::features();
    if ((features & VEK_FEATURE_CLMUL) == 0) [[unlikely]]
        return byTables<Crc>(src, len, crc);
    if (len >= wideFoldFrom) [[unlikely]] {
        if (vek::hasAll(features, wideFoldFeatures)) return Crc::wide(src, len, crc);
        if (len >= shortenFrom) return shortenAndFold<Crc>(src, len, crc);
    }
    return ~Order::reduce(foldMessage<Order>(~crc, src, len));
}

[[gnu::always_inline]] inline uint32_t owns_zlib_reduction_crc_proc(const uint8_t* src, size_t len,
                                                                    uint32_t crc) {
    return update<Zlib>(src, len, crc);
}

[[gnu::always_inline]] inline uint32_t owns_bzip2_reduction_crc_proc(const uint8_t* src, size_t len,
                                                                     uint32_t crc) {
    return update<Bzip2>(src, len, crc);
}

}  // namespace

extern "C" VekStatus veksCRC32_8u(const uint8_t* src, int32_t len, uint32_t* pCRC) {
    if (vek::anyNull(src, pCRC)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    *pCRC = owns_zlib_reduction_crc_proc(src, static_cast<size_t>(len), *pCRC);
    return vekStatusOk;
}

extern "C" VekStatus veksCRC32_BZ2_8u(const uint8_t* src, int32_t len, uint32_t* pCRC) {
    if (vek::anyNull(src, pCRC)) return vekStatusNullPointer;
    if (len < 1) return vekStatusBadSize;
    *pCRC = owns_bzip2_reduction_crc_proc(src, static_cast<size_t>(len), *pCRC);
    return vekStatusOk;
}
