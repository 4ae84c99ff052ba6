/**
 * @file vekdc.h
 * @brief vekDC: the stages of well-known compression formats as plain functions.
 *
 * Every function works on buffers and records that the caller owns. The library never allocates,
 * starts no thread, holds no lock and no mutable state, and prints nothing; any number of threads
 * may call it at once on distinct records.
 *
 * Conventions
 * - Every function but vekdcGetLibVersion() returns a ::VekStatus: 0 is success, negative values
 * are errors, positive values are warnings after which the caller may go on.
 * - Arguments are checked before anything is touched, in this order: null pointers
 *   (::vekStatusNullPointer), sizes (::vekStatusBadSize), then the other domains. A refused call
 *   leaves every output and every in/out argument as it was, unless the function says otherwise.
 * - Lengths are signed 32-bit byte counts unless a function says otherwise.
 * - One-shot functions take the destination's room in `*pDstLen` and leave the bytes written there.
 * - Resumable functions advance `*ppSrc` and `*ppDst` and decrease the lengths beside them, so that
 *   the next call goes on where this one stopped.
 * - Names end in the element types: `8u` unsigned bytes, `16u` unsigned 16-bit, `32f` floats; `_I`
 *   works in place.
 */
#ifndef VEKDC_H
#define VEKDC_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------
 * Status codes and version
 * --------------------------------------------------------------------------------------------- */

/** Result of every function but the version query. */
typedef int32_t VekStatus;

enum {
    /** Success. */
    vekStatusOk = 0,
    /** A Huffman code could not be brought within its length limit. */
    vekStatusFailure = -1,
    /** Malformed input, or a state record in an impossible phase. */
    vekStatusError = -2,
    /** The ZFP bit stream is exhausted. */
    vekStatusNoRoom = -4,
    /** An argument other than a pointer or a size is out of its domain. */
    vekStatusBadArgument = -5,
    /** A length, size, count, index or capacity is out of range. */
    vekStatusBadSize = -6,
    /** A required pointer, or the pointer it points to, is null. */
    vekStatusNullPointer = -8,
    /** The ZFP state record was not prepared by an Init function. */
    vekStatusStateMismatch = -13,
    /** The LZ4 acceleration is below 1. */
    vekStatusOutOfRange = -16,
    /** A Huffman description or coded data is corrupt. */
    vekStatusSourceDataError = -200,
    /** The checking LZO decoder met a broken stream. */
    vekStatusLzoBrokenStream = -214,
    /** The input ended inside a unit; call again with more. */
    vekStatusSourceIncomplete = 32,
    /** The output room ran out; call again with more. */
    vekStatusDestinationFull = 33,
    /** The budgeted block sort gave up; use another method. */
    vekStatusSortLimit = 47,
    /** The high-compression encoder met the end of the destination. */
    vekStatusDestinationTooSmall = 48
};

/** What vekdcGetLibVersion() points to. */
typedef struct VekLibraryVersion {
    int32_t major;         /**< Year of the release. */
    int32_t minor;         /**< Release within the year. */
    int32_t majorBuild;    /**< Build of the release. */
    int32_t build;         /**< Revision number, as a signed value. */
    char targetCpu[4];     /**< Variant code: "g9" on 32-bit x86, "x9" on x86-64. */
    const char* name;      /**< Name of the library and variant. */
    const char* version;   /**< The numbers above as text. */
    const char* buildDate; /**< Date of the revision. */
} VekLibraryVersion;

/**
 * The version of the library.
 *
 * @return A constant record, the same on every call; never null, never to be changed or freed.
 */
const VekLibraryVersion* vekdcGetLibVersion(void);

/* ------------------------------------------------------------------------------------------------
 * Checksums
 * --------------------------------------------------------------------------------------------- */

/**
 * CRC-32 of zlib, gzip and many others (RFC 1952): polynomial 0x04C11DB7, least significant bit
 * first. The running value is the finished CRC of all data so far; start with 0 and pass the value
 * back with each further piece. Pieces may be cut anywhere.
 *
 * Fast where the processor has carry-less multiplication; every path gives the same value.
 *
 * @param src the data; any alignment.
 * @param len bytes at `src`, at least 1.
 * @param pCRC the running value; updated.
 * @return ::vekStatusOk; ::vekStatusNullPointer for a null pointer; ::vekStatusBadSize for a `len`
 *         below 1. A refused call leaves `*pCRC` alone.
 */
VekStatus veksCRC32_8u(const uint8_t* src, int32_t len, uint32_t* pCRC);

/**
 * CRC-32 of bzip2: polynomial 0x04C11DB7, most significant bit first. Otherwise as veksCRC32_8u():
 * the running value is the finished CRC; start with 0.
 *
 * @param src the data; any alignment.
 * @param len bytes at `src`, at least 1.
 * @param pCRC the running value; updated.
 * @return as veksCRC32_8u().
 */
VekStatus veksCRC32_BZ2_8u(const uint8_t* src, int32_t len, uint32_t* pCRC);

/**
 * CRC-32C, the Castagnoli CRC of iSCSI, ext4 and others (RFC 3720): polynomial 0x1EDC6F41, least
 * significant bit first.
 *
 * The running value is the raw register: unlike the other CRCs' it is never complemented here. For
 * the standard CRC-32C start with 0xFFFFFFFF, pass the value back with each further piece, and
 * complement the last one.
 *
 * @param src the data; any alignment.
 * @param len bytes at `src`, at least 1; unsigned, up to 4 GiB - 1.
 * @param pCRC the running value; updated.
 * @return ::vekStatusOk; ::vekStatusNullPointer for a null pointer; ::vekStatusBadSize for a `len`
 *         of 0. A refused call leaves `*pCRC` alone.
 */
VekStatus veksCRC32C_8u(const uint8_t* src, uint32_t len, uint32_t* pCRC);

/**
 * Adler-32 of zlib (RFC 1950): A, 1 plus the sum of all bytes, in the low 16 bits; B, the sum of all
 * values of A, in the high 16 bits; both modulo 65521. Start with 1 and pass the value back with
 * each further piece.
 *
 * @param src the data; any alignment. Null stores the sum of nothing, 1, whatever `len` is.
 * @param len bytes at `src`. 0 or less processes nothing, but still reduces both halves of `*pSum`
 *        modulo 65521.
 * @param pSum the running value; updated.
 * @return ::vekStatusOk; ::vekStatusNullPointer when `pSum` is null.
 */
VekStatus veksAdler32_8u(const uint8_t* src, int32_t len, uint32_t* pSum);

/* (checksums end) */

/* ------------------------------------------------------------------------------------------------
 * Deflate: match finding
 * --------------------------------------------------------------------------------------------- */

/* (deflate match finding end) */

/* ------------------------------------------------------------------------------------------------
 * Deflate: Huffman coding
 * --------------------------------------------------------------------------------------------- */

/* (deflate Huffman coding end) */

/* ------------------------------------------------------------------------------------------------
 * Inflate
 * --------------------------------------------------------------------------------------------- */

/* (inflate end) */

/* ------------------------------------------------------------------------------------------------
 * Bzip2
 * --------------------------------------------------------------------------------------------- */

/* (bzip2 end) */

/* ------------------------------------------------------------------------------------------------
 * LZ4
 * --------------------------------------------------------------------------------------------- */

/* (LZ4 end) */

/* ------------------------------------------------------------------------------------------------
 * LZO
 * --------------------------------------------------------------------------------------------- */

/* (LZO end) */

/* ------------------------------------------------------------------------------------------------
 * LZSS
 * --------------------------------------------------------------------------------------------- */

/* (LZSS end) */

/* ------------------------------------------------------------------------------------------------
 * ZFP
 * --------------------------------------------------------------------------------------------- */

/* (ZFP end) */

#ifdef __cplusplus
}
#endif

#endif /* VEKDC_H */
