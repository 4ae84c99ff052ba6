// CRC-32 of zlib and gzip: the portable path by slicing-by-8 (RFC 1952; Kounavis
// and Berry, "A Systematic Approach to Building High Performance Software-Based CRC Generators",
// 2005).
//
// Eight bytes a step cost eight loads from 8 KiB of tables; the folding path in crc32_folding.cpp
// is several times faster where the processor has carry-less multiplication.

#include "checksum/checksum.h"
#include "checksum/crc_math.h"

namespace {

constexpr auto crc_table_il8 =
    vek::checksum::slice<8>(vek::checksum::reflectedByteTable(vek::checksum::crc32Polynomial));
static_assert(crc_table_il8[0][1] == 0x77073096U);

}  // namespace

void ownsCRC32_8u(const uint8_t* src, size_t len, uint32_t* pCRC) {
    *pCRC = ~vek::checksum::sliceBytes(crc_table_il8, ~*pCRC, src, len);
}
