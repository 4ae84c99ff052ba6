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

/** Size in bytes of the area of InflateState that holds the decoding tables. */
#define VEK_INFLATE_TABLES_SIZE 7168

/**
 * State of one deflate stream being decoded (RFC 1951).
 *
 * The caller allocates it, sets `window` and `windowSize` (a null window with size 0 when all
 * history stands in the output buffer), and sets `tableKind` to 0 before each block with the fixed
 * code; the library fills the rest. Nothing else needs to be set before the first call.
 */
typedef struct InflateState {
    const uint8_t* window;   /**< History older than the output buffer, circular; may be null. */
    uint32_t windowSize;     /**< Bytes in the window, all of them history. */
    uint32_t tableKind;      /**< 0: the fixed code, 1: two-level tables, 2: single-level tables. */
    uint32_t reserved;       /**< Not used. */
    uint32_t savedStep;      /**< Where a call stopped inside a symbol; with its three values. */
    uint32_t savedValue;     /**< Length, bytes of the match still to copy, or literal. */
    uint32_t savedExtraBits; /**< Number of extra bits still to read. */
    uint32_t savedDistance;  /**< Base distance, or distance. */
    uint32_t litBits;        /**< Bits a lookup of the single-level literal/length table takes. */
    uint32_t distBits;       /**< Bits a lookup of the single-level distance table takes; or 0. */
    uint8_t tables[VEK_INFLATE_TABLES_SIZE]; /**< The decoding tables. */
} InflateState;

/**
 * Builds the decoding tables of a dynamic deflate block (RFC 1951, 3.2.7) in the state record.
 *
 * Call it once a block, before veksInflate_8u() decodes the block's data. A code whose longest
 * lengths are at most 11 (literal/length) and 10 bits (distance) gets single-level tables, any
 * other two-level ones. Beside codes that use up every bit string, accepted are a single code of
 * length 1 (the other bit string is then invalid data), thirty distance codes of length 5 (the
 * fixed code's), and a block with no distance code at all.
 *
 * @param codeLens       The `nLitCodeLens` code lengths of the literal/length alphabet, and
 * directly behind them the `nDistCodeLens` of the distance alphabet; 0 (unused) to 15.
 * @param nLitCodeLens   257 to 288 (a smaller count is corrupt data, as symbol 256 then has no
 * code).
 * @param nDistCodeLens  0 to 30.
 * @param state          Its `tableKind`, `litBits`, `distBits` and tables are written; on failure
 *                       they are not to be used.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize when a count is above its
 *         maximum; ::vekStatusSourceDataError when a length is above 15, a code is over-subscribed
 * or incomplete, or the end-of-block symbol 256 has no code.
 */
VekStatus veksInflateBuildHuffTable(const uint16_t* codeLens, uint32_t nLitCodeLens,
                                    uint32_t nDistCodeLens, InflateState* state);

/**
 * Decodes the Huffman-coded data of one deflate block (RFC 1951), from behind the block's header up
 * to its end-of-block code; stops wherever input or output runs out and goes on in the next call.
 *
 * Bit buffer: the next bit of the stream is the lowest bit of `*pCode`, of which `*pCodeLenBits`
 * are valid; bits above them are ignored on entry and zero on return. The bytes at `*ppSrc` follow.
 * After the end of the block the buffer may hold whole bytes that were read ahead: the caller's
 * next header starts with its bits.
 *
 * History: a match reaches back into the bytes written by this call, then into the `dstIdx` bytes
 * before `*ppDst`, then into the window. The window is circular: its newest byte, which is the byte
 * right before `*ppDst - dstIdx`, stands at `winIdx - 1`, older ones before it, wrapping round from
 * the start to the end. The decoder only reads it; keeping it up to date is the caller's part. A
 * distance beyond all that history is corrupt data. Nothing behind the last byte written is
 * touched.
 *
 * @param ppSrc         In: next source byte; out: first byte not consumed.
 * @param pSrcLen       In/out: source bytes left; may be 0.
 * @param pCode         In/out: bit buffer.
 * @param pCodeLenBits  In/out: valid bits in it, 0 to 32.
 * @param winIdx        Window position of the next history byte, at most `windowSize`.
 * @param ppDst         In: where the next output byte goes; out: behind the last byte written.
 * @param pDstLen       In/out: room left; may be 0.
 * @param dstIdx        Bytes before `*ppDst` in the output buffer that are history.
 * @param pMode         In: 2 goes on from the position saved in the state; any other value starts
 * at a symbol. Out: 0 when the end-of-block code was decoded; 1 when the input ran out between two
 * symbols; 2 when the input ran out inside a symbol, or the output is full: give more of what is
 * missing and call again with mode 2.
 * @param state         Tables, window and saved position.
 * @return ::vekStatusOk on every stop above; ::vekStatusNullPointer when a pointer, `*ppSrc` or
 *         `*ppDst` is null (the window may be); ::vekStatusBadSize when `*pCodeLenBits` is above 32
 * or `winIdx` above `windowSize`; these two leave everything as it was.
 *         ::vekStatusSourceDataError on an invalid code, a distance beyond the history, a
 * `tableKind` above 2 or an impossible saved position: what was decoded before stands in the
 * output, the stream arguments are written back, `*pMode` and the saved position are left as they
 *         were.
 */
VekStatus veksInflate_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode,
                         uint32_t* pCodeLenBits, uint32_t winIdx, uint8_t** ppDst,
                         uint32_t* pDstLen, uint32_t dstIdx, int32_t* pMode, InflateState* state);

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
