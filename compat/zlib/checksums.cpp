// Checksums and their combinations.
#include "codec/checksums.h"

#include "compat/zlib/zlib_interface.h"
#include "vekdc.h"

using namespace vekdc::codec;

namespace {

constexpr std::array<z_crc_t, 256> kTable = [] {
    std::array<z_crc_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ ((value & 1) != 0 ? 0xEDB88320U : 0);
        table[i] = value;
    }
    return table;
}();

constexpr uint32_t kOne = 1U << 31;  // x^0

uLong combineCrc(uLong crc1, uLong crc2, uint64_t length2) {
    return crc32Combine(static_cast<uint32_t>(crc1), static_cast<uint32_t>(crc2), length2);
}

uLong combineAdler(uLong adler1, uLong adler2, int64_t length2) {
    if (length2 < 0) return 0xFFFFFFFF;
    return adler32Combine(static_cast<uint32_t>(adler1), static_cast<uint32_t>(adler2),
                          static_cast<uint64_t>(length2));
}

}  // namespace

extern "C" {

uLong crc32_z(uLong crc, const Bytef* buf, z_size_t len) {
    if (buf == nullptr) return 0;
    return kCrc32.update(static_cast<uint32_t>(crc), {buf, len});
}
uLong crc32(uLong crc, const Bytef* buf, uInt len) {
    return crc32_z(crc, buf, len);
}
const z_crc_t* get_crc_table(void) {
    return kTable.data();
}

uLong adler32_z(uLong adler, const Bytef* buf, z_size_t len) {
    if (buf == nullptr) return kAdler32.initial;
    auto value = static_cast<uint32_t>(adler);
    if (len != 0) return kAdler32.update(value, {buf, len});
    veksAdler32_8u(buf, 0, &value);
    return value;
}
uLong adler32(uLong adler, const Bytef* buf, uInt len) {
    return adler32_z(adler, buf, len);
}

uLong crc32_combine64(uLong crc1, uLong crc2, z_off64_t len2) {
    return combineCrc(crc1, crc2, static_cast<uint64_t>(len2));
}
uLong crc32_combine(uLong crc1, uLong crc2, z_off_t len2) {
    return crc32_combine64(crc1, crc2, len2);
}
uLong crc32_combine_gen64(z_off64_t len2) {
    return crc32Combine(kOne, 0, static_cast<uint64_t>(len2));
}
uLong crc32_combine_gen(z_off_t len2) {
    return crc32_combine_gen64(len2);
}
uLong crc32_combine_op(uLong crc1, uLong crc2, uLong op) {
    return crc32Multiply(static_cast<uint32_t>(op), static_cast<uint32_t>(crc1)) ^
           (crc2 & 0xFFFFFFFF);
}

uLong adler32_combine64(uLong adler1, uLong adler2, z_off64_t len2) {
    return combineAdler(adler1, adler2, len2);
}
uLong adler32_combine(uLong adler1, uLong adler2, z_off_t len2) {
    return combineAdler(adler1, adler2, len2);
}
}
