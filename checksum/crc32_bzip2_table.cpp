// CRC-32 of bzip2: the portable path by slicing-by-8.
//
// This CRC takes the most significant bit first. With the register and every table entry
// byte-swapped it shifts right, and the loop of the reflected CRCs serves it as it is.

#include "checksum/checksum.h"
#include "checksum/crc_math.h"

namespace {

constexpr auto crc_table =
    vek::checksum::slice<8>(vek::checksum::swappedByteTable(vek::checksum::crc32Polynomial));
static_assert(crc_table[0][1] == 0xB71DC104U);

}  // namespace

void ownsCRC32_BZ2_8u(const uint8_t* src, size_t len, uint32_t* pCRC) {
    const uint32_t r = vek::checksum::sliceBytes(crc_table, ~vek::byteSwap(*pCRC), src, len);
    *pCRC = ~vek::byteSwap(r);
}
