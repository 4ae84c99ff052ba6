// Checksum kernels, one a path. Every path of a checksum gives the same result for any length,
// alignment and split; the exports choose by what the processor has.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/variant.h"

#define ownsCRC32_8u VEK_INTERNAL(ownsCRC32_8u)
#define ownsCRC32_BZ2_8u VEK_INTERNAL(ownsCRC32_BZ2_8u)
#define ownsCRC32C_8u VEK_INTERNAL(ownsCRC32C_8u)
#define ownsAdler32_8u VEK_INTERNAL(ownsAdler32_8u)
#define owns_zlib_reduction_crc_proc VEK_INTERNAL(owns_zlib_reduction_crc_proc)
#define owns_bzip2_reduction_crc_proc VEK_INTERNAL(owns_bzip2_reduction_crc_proc)
#define ownscrc_216_asm VEK_INTERNAL(ownscrc_216_asm)
#define ownscrc_plc_asm VEK_INTERNAL(ownscrc_plc_asm)

extern "C" {

/// Portable paths: tables only (Adler-32: the variant's own vector instructions). They update the
/// caller's running value in place.
void ownsCRC32_8u(const uint8_t* src, size_t len, uint32_t* pCRC);
void ownsCRC32_BZ2_8u(const uint8_t* src, size_t len, uint32_t* pCRC);
void ownsCRC32C_8u(const uint8_t* src, size_t len, uint32_t* pCRC);
void ownsAdler32_8u(const uint8_t* src, size_t len, uint32_t* pSum);

/// Carry-less multiplication: take the caller's running value, return the new one.
uint32_t owns_zlib_reduction_crc_proc(const uint8_t* src, size_t len, uint32_t crc);
uint32_t owns_bzip2_reduction_crc_proc(const uint8_t* src, size_t len, uint32_t crc);

/// CRC-32C by the CRC instruction alone, and by three streams of it that carry-less multiplication
/// joins: take the raw register, return the new one.
uint32_t ownscrc_216_asm(const uint8_t* src, size_t len, uint32_t crc);
uint32_t ownscrc_plc_asm(const uint8_t* src, size_t len, uint32_t crc);
}
