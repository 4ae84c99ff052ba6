// CRC-32C (Castagnoli): the export, and the portable path by slicing-by-4.
//
// The register is the caller's, raw: whoever wants the standard CRC-32C (RFC 3720) starts with
// 0xFFFFFFFF and complements the end.

#include "checksum/checksum.h"
#include "checksum/crc_math.h"
#include "frame/args.h"
#include "frame/features.h"

namespace {

constexpr auto CRC32CTable =
    vek::checksum::slice<4>(vek::checksum::reflectedByteTable(vek::checksum::castagnoliPolynomial));
static_assert(CRC32CTable[0][1] == 0xF26B8303U);

}  // namespace

void ownsCRC32C_8u(const uint8_t* src, size_t len, uint32_t* pCRC) {
    *pCRC = vek::checksum::sliceBytes(CRC32CTable, *pCRC, src, len);
}

extern "C" VekStatus veksCRC32C_8u(const uint8_t* src, uint32_t len, uint32_t* pCRC) {
    if (vek::anyNull(src, pCRC)) return vekStatusNullPointer;
    if (len == 0) return vekStatusBadSize;
    const uint32_t features = vek::features();
    if (len >= vek::checksum::wideFoldFrom &&
        vek::hasAll(features, vek::checksum::wideFoldFeatures)) {
        *pCRC = ownsCRC32C_avx512(src, len, *pCRC);
    } else if ((features & VEK_FEATURE_CLMUL) != 0) {
        *pCRC = ownscrc_plc_asm(src, len, *pCRC);
    } else if ((features & VEK_FEATURE_SSE42) != 0) {
        *pCRC = ownscrc_216_asm(src, len, *pCRC);
    } else {
        ownsCRC32C_8u(src, len, pCRC);
    }
    return vekStatusOk;
}
