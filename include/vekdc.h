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

/**
 * Both ways of a stream of ZFP blocks (P. Lindstrom, "Fixed-Rate Compressed Floating-Point Arrays",
 * IEEE TVCG 2014; blocks of 4 x 4 x 4 floats, embedded coding, as the method's reference library
 * writes them). Opaque: allocate what the size query says, at a multiple of 4.
 *
 * One record serves one stream in one direction. Every function but the size queries and the Inits
 * returns ::vekStatusStateMismatch for a record that no Init prepared.
 *
 * Four numbers govern a stream, and the decoder must be set to the encoder's: a block takes at least
 * minBits and at most maxBits bits (both equal: a fixed rate, so that blocks stand at known places),
 * keeps at most maxPrec bit planes, and drops planes below 2^minExp.
 *
 * The method does not preserve infinities and NaNs: a block that holds one decodes to some values,
 * and its neighbours are not disturbed.
 */
typedef struct ZfpState ZfpState;

/**
 * Size in bytes of a record, 560 on 32-bit x86.
 *
 * @param[out] pSize the size.
 * @return ::vekStatusOk, ::vekStatusNullPointer.
 */
VekStatus veksEncodeZfpGetStateSize_32f(int32_t* pSize);

/**
 * Prepares a record to write into a buffer, with minBits 0, maxBits 4171, maxPrec 64 and minExp -10740:
 * every plane of every value is kept.
 *
 * @param[out] pDst   the buffer; it must stay in place until the stream is flushed.
 * @param      dstLen its length in bytes, at least 1.
 * @param[out] pState the record.
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusBadSize.
 */
VekStatus veksEncodeZfpInit_32f(uint8_t* pDst, int32_t dstLen, ZfpState* pState);

/**
 * veksEncodeZfpInit_32f() for longer buffers. Only a length of 0 is refused; the end is the start
 * plus the length, modulo the address space, and one that lies below the start leaves no room.
 */
VekStatus veksEncodeZfpInitLong_32f(uint8_t* pDst, int64_t dstLen, ZfpState* pState);

/**
 * Sets the four numbers, as given: what they mean together is the caller's business.
 *
 * @param         minBits least bits of a block; shorter ones are padded with zeros.
 * @param         maxBits most bits of a block; the header's 9 are written in any case.
 * @param         maxPrec most bit planes of a block; 32 or more is all.
 * @param         minExp  exponent of the lowest bit plane kept.
 * @param[in,out] pState  the record.
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusStateMismatch.
 */
VekStatus veksEncodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                               ZfpState* pState);

/**
 * Sets minExp, and nothing else, to floor(log2(tolerance)), which keeps the absolute error of every
 * value below the tolerance; a tolerance that is not above 0 sets -10740.
 *
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusStateMismatch.
 */
VekStatus veksEncodeZfpSetAccuracy_32f(double tolerance, ZfpState* pState);

/**
 * Bytes written so far: whole 64-bit words, and after the flush everything.
 *
 * @param      pState the record.
 * @param[out] pSize  the size.
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusStateMismatch.
 */
VekStatus veksEncodeZfpGetCompressedSize_32f(const ZfpState* pState, int32_t* pSize);

/** veksEncodeZfpGetCompressedSize_32f() for longer streams. */
VekStatus veksEncodeZfpGetCompressedSizeLong_32f(const ZfpState* pState, int64_t* pSize);

/** Bits written so far, those that are held in the record included. Arguments and results likewise. */
VekStatus veksEncodeZfpGetCompressedBitSize_32f(const ZfpState* pState, int64_t* pSize);

/**
 * Ends a stream: stores the bits held, as a whole word where 8 bytes of room are left, else in as
 * few bytes as hold them.
 *
 * @param[in,out] pState the record.
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusStateMismatch; ::vekStatusNoRoom after
 *         storing what fitted.
 */
VekStatus veksEncodeZfpFlush_32f(ZfpState* pState);

/**
 * Codes one block.
 *
 * @param         pSrc         the block's first value; x runs over 4 neighbouring floats.
 * @param         srcStep      bytes from one row (y) to the next, of either sign, any number.
 * @param         srcPlaneStep bytes from one plane (z) to the next, likewise.
 * @param[in,out] pState       the record.
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusStateMismatch; ::vekStatusNoRoom when a
 *         word would pass the end: the words that fitted are stored, and the stream cannot go on. Up
 *         to 304 bytes behind the stream, never behind the buffer's end, may have been overwritten.
 */
VekStatus veksEncodeZfp444_32f(const float* pSrc, int32_t srcStep, int32_t srcPlaneStep,
                               ZfpState* pState);

/** Size in bytes of a record, as veksEncodeZfpGetStateSize_32f(). */
VekStatus veksDecodeZfpGetStateSize_32f(int32_t* pSize);

/**
 * Prepares a record to read a stream, with the same numbers as veksEncodeZfpInit_32f().
 *
 * @param      pSrc   the stream; it must stay in place and unchanged while it is decoded.
 * @param      srcLen its length in bytes, at least 1.
 * @param[out] pState the record.
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusBadSize.
 */
VekStatus veksDecodeZfpInit_32f(const uint8_t* pSrc, int32_t srcLen, ZfpState* pState);

/** veksDecodeZfpInit_32f() for longer streams; lengths as in veksEncodeZfpInitLong_32f(). */
VekStatus veksDecodeZfpInitLong_32f(const uint8_t* pSrc, int64_t srcLen, ZfpState* pState);

/** As veksEncodeZfpSet_32f(): the decoder's numbers must be the encoder's. */
VekStatus veksDecodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                               ZfpState* pState);

/** As veksEncodeZfpSetAccuracy_32f(). */
VekStatus veksDecodeZfpSetAccuracy_32f(double tolerance, ZfpState* pState);

/**
 * Bytes taken so far. The stream is taken a 64-bit word at a time, its last bytes one by one, each
 * when its first bit is needed.
 *
 * @param      pState the record.
 * @param[out] pSize  the size.
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusStateMismatch.
 */
VekStatus veksDecodeZfpGetDecompressedSize_32f(const ZfpState* pState, int32_t* pSize);

/** veksDecodeZfpGetDecompressedSize_32f() for longer streams. */
VekStatus veksDecodeZfpGetDecompressedSizeLong_32f(const ZfpState* pState, int64_t* pSize);

/**
 * Decodes one block. Any bits decode to something; nothing outside the stream is read and nothing
 * outside the block's 16 rows is written.
 *
 * @param[in,out] pState       the record.
 * @param[out]    pDst         the block's first value; x runs over 4 neighbouring floats.
 * @param         dstStep      bytes from one row (y) to the next, of either sign, any number.
 * @param         dstPlaneStep bytes from one plane (z) to the next, likewise.
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusStateMismatch; ::vekStatusNoRoom when the
 *         stream ends inside the block: the position is then the end, and the block is not written
 *         (a zero block whose padding is cut short is).
 */
VekStatus veksDecodeZfp444_32f(ZfpState* pState, float* pDst, int32_t dstStep, int32_t dstPlaneStep);

/* (ZFP end) */

#ifdef __cplusplus
}
#endif

#endif /* VEKDC_H */
