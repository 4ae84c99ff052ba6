// Checksum kernels, one a path. Every path of a checksum gives the same result for any length,
// alignment and split; the exports choose by what the processor has.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/variant.h"
#include "vekcore.h"

#define ownsCRC32_8u VEK_INTERNAL(ownsCRC32_8u)
#define ownsCRC32_BZ2_8u VEK_INTERNAL(ownsCRC32_BZ2_8u)
#define ownsCRC32C_8u VEK_INTERNAL(ownsCRC32C_8u)
#define ownsAdler32_8u VEK_INTERNAL(ownsAdler32_8u)
#define ownscrc_216_asm VEK_INTERNAL(ownscrc_216_asm)
#define ownscrc_plc_asm VEK_INTERNAL(ownscrc_plc_asm)
#define ownsCRC32_avx512 VEK_INTERNAL(ownsCRC32_avx512)
#define ownsCRC32_BZ2_avx512 VEK_INTERNAL(ownsCRC32_BZ2_avx512)
#define ownsCRC32C_avx512 VEK_INTERNAL(ownsCRC32C_avx512)
#define ownsAdler32_avx512 VEK_INTERNAL(ownsAdler32_avx512)

// Told before the calls are compiled, so that they go straight to the kernels.
#pragma GCC visibility push(hidden)
extern "C" {

/// Portable paths: tables only (Adler-32: the variant's own vector instructions). They update the
/// caller's running value in place.
void ownsCRC32_8u(const uint8_t* src, size_t len, uint32_t* pCRC);
void ownsCRC32_BZ2_8u(const uint8_t* src, size_t len, uint32_t* pCRC);
void ownsCRC32C_8u(const uint8_t* src, size_t len, uint32_t* pCRC);
void ownsAdler32_8u(const uint8_t* src, size_t len, uint32_t* pSum);

/// CRC-32C by the CRC instruction alone, and by three streams of it that carry-less multiplication
/// joins: take the raw register, return the new one.
uint32_t ownscrc_216_asm(const uint8_t* src, size_t len, uint32_t crc);
uint32_t ownscrc_plc_asm(const uint8_t* src, size_t len, uint32_t crc);

/// By carry-less multiplication of 64 bytes at a time, where wideFoldFeatures are there; at least
/// wideFoldFrom bytes.
uint32_t ownsCRC32_avx512(const uint8_t* src, size_t len, uint32_t crc);
uint32_t ownsCRC32_BZ2_avx512(const uint8_t* src, size_t len, uint32_t crc);
uint32_t ownsCRC32C_avx512(const uint8_t* src, size_t len, uint32_t crc);

/// Adler-32 of 64 bytes at a time, where wideSumFeatures are there; at least wideSumFrom bytes.
uint32_t ownsAdler32_avx512(const uint8_t* src, size_t len, uint32_t sum);
}
#pragma GCC visibility pop

namespace vek::inline VEK_LEVEL::checksum {

constexpr uint64_t wideFoldFeatures = VEK_FEATURE_AVX512 | VEK_FEATURE_VPCLMUL;
constexpr size_t wideFoldFrom = 256;

constexpr uint64_t wideSumFeatures = VEK_FEATURE_AVX512 | VEK_FEATURE_VNNI;
constexpr size_t wideSumFrom = 256;

}  // namespace vek::inline VEK_LEVEL::checksum
