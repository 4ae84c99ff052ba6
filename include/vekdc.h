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

/*
 * Blocks of the LZ4 block format (https://github.com/lz4/lz4/blob/dev/doc/lz4_Block_format.md):
 * no frame around them, no checksum.
 *
 * A block may refer to history: positions are then counted along a stream, in which the block's
 * first byte has the position `srcIdx`. The history lies in memory right in front of the block, or
 * in a separate dictionary whose byte k is stream position k.
 *
 * A block always ends in at least 5 literals (or is shorter than that), and matches reach back at
 * most 65535 bytes. Where a destination is not checked, give it vekLZ4EncodeBound() bytes.
 */

/** The most bytes that any LZ4 encoder here writes for `len` bytes of input. */
static inline size_t vekLZ4EncodeBound(size_t len) {
    return len + len / 255 + 16;
}

/**
 * Decodes one block without history.
 *
 * Nothing outside the two buffers is touched, whatever the bytes. The destination may be written
 * anywhere within its room. An offset of 0 is not refused: it repeats what the destination held.
 *
 * @param pSrc    The block.
 * @param srcLen  Its length in bytes, at least 1.
 * @param pDst    Destination.
 * @param pDstLen In: its room in bytes, at least 1. Out, unless the result is negative: the bytes
 *                decoded.
 * @return 0; ::vekStatusSourceIncomplete when the block is cut short (what was there is decoded)
 *         or has a single byte, as empty input is encoded; ::vekStatusDestinationFull when the room
 *         ends inside a literal run or a match (what fits is decoded; the call cannot be resumed);
 *         ::vekStatusError for an offset to before the history; ::vekStatusBadSize for a length
 *         below 1, or one in the block that overflows; ::vekStatusNullPointer.
 */
VekStatus veksDecodeLZ4_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen);

/**
 * Decodes one block with history, to `pDst + dstIdx`.
 *
 * Without a dictionary (null, or size 0) there is no history. A dictionary that ends where the
 * output begins is the history in place. Any other one stands for the first `dictSize` bytes of the
 * buffer at pDst: a match source at an offset below `dictSize` from pDst is read from the
 * dictionary, all others from the buffer itself, a match that crosses the border from both. The
 * usual call has `dstIdx` equal to `dictSize`.
 *
 * @param pSrc     The block.
 * @param pSrcLen  In: its length, at least 1. Out: bytes consumed.
 * @param pDst     Start of the output buffer.
 * @param dstIdx   Where in it the block's output begins, at least 0.
 * @param pDstLen  In: room behind the index, at least 1. Out: bytes decoded.
 * @param pDict    Dictionary, or null.
 * @param dictSize Its length, at least 0.
 * @return As veksDecodeLZ4_8u(); both counts are written unless the result is negative.
 */
VekStatus veksDecodeLZ4Dict_8u(const uint8_t* pSrc, int* pSrcLen, uint8_t* pDst, int dstIdx,
                               int* pDstLen, const uint8_t* pDict, int dictSize);

/**
 * Bytes of the hash table of all encoders but the high-compression one: 16384.
 *
 * @param pSize Out: the size.
 * @return 0 or ::vekStatusNullPointer.
 */
VekStatus veksEncodeLZ4HashTableGetSize_8u(int* pSize);

/**
 * Clears a hash table as a block of `srcLen` bytes uses it: 4096 entries of 16 bits below 65536
 * bytes, else of 32. The encoders without history do so themselves.
 *
 * @param pHashTable The table, 4-byte aligned.
 * @param srcLen     Length of the block to come, at least 1.
 * @return 0, ::vekStatusNullPointer or ::vekStatusBadSize.
 */
VekStatus veksEncodeLZ4HashTableInit_8u(uint8_t* pHashTable, int srcLen);

/**
 * Encodes one block; the destination's room is not checked.
 *
 * The table is cleared first, even when another argument is then refused.
 *
 * @param pSrc       Input.
 * @param srcLen     Its length, at least 1.
 * @param pDst       Destination of vekLZ4EncodeBound(srcLen) bytes.
 * @param pDstLen    Out: bytes written. Its value on entry does not matter.
 * @param pHashTable Work memory of veksEncodeLZ4HashTableGetSize_8u() bytes, 4-byte aligned.
 * @return 0, ::vekStatusNullPointer or ::vekStatusBadSize.
 */
VekStatus veksEncodeLZ4_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen,
                           uint8_t* pHashTable);

/**
 * Encodes as much of the input as fits into the destination, as one complete block.
 *
 * @param pSrc       Input.
 * @param pSrcLen    In: its length, at least 1. Out: bytes consumed.
 * @param pDst       Destination.
 * @param pDstLen    In: its room, at least 1. Out: bytes written.
 * @param pHashTable Work memory as for veksEncodeLZ4_8u().
 * @return 0; ::vekStatusDestinationFull when not all input fitted: the destination holds a block
 *         of the consumed bytes; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksEncodeLZ4Safe_8u(const uint8_t* pSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen,
                               uint8_t* pHashTable);

/**
 * Encodes one block like veksEncodeLZ4_8u(), faster and larger the higher the acceleration.
 *
 * @param pSrc         Input.
 * @param srcLen       Its length, at least 1.
 * @param pDst         Destination of vekLZ4EncodeBound(srcLen) bytes.
 * @param pDstLen      Out: bytes written.
 * @param pHashTable   Work memory as for veksEncodeLZ4_8u().
 * @param acceleration Distance of the first probes, at least 1; 1 is veksEncodeLZ4_8u() itself.
 * @return 0, ::vekStatusNullPointer, ::vekStatusBadSize, or ::vekStatusOutOfRange for an
 *         acceleration below 1.
 */
VekStatus veksEncodeLZ4Fast_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen,
                               uint8_t* pHashTable, int acceleration);

/**
 * Clears a hash table for encoding with history: 4096 entries of 32 bits.
 *
 * @param pHashTable The table, 4-byte aligned.
 * @param srcLen     At least 1; otherwise without effect.
 * @return 0, ::vekStatusNullPointer or ::vekStatusBadSize.
 */
VekStatus veksEncodeLZ4DictHashTableInit_8u(uint8_t* pHashTable, int srcLen);

/**
 * Puts every third position of a dictionary into a hash table; one of 8 bytes or fewer has none.
 *
 * @param pHashTable The table, cleared by veksEncodeLZ4DictHashTableInit_8u().
 * @param pDict      Dictionary.
 * @param dictLen    Its length, at least 1; only its last 65535 bytes are ever referred to.
 * @return 0, ::vekStatusNullPointer or ::vekStatusBadSize.
 */
VekStatus veksEncodeLZ4LoadDict_8u(uint8_t* pHashTable, const uint8_t* pDict, int dictLen);

/**
 * Encodes one block with history; the destination's room is not checked.
 *
 * Streaming: keep the blocks one behind the other in memory, start with `srcIdx` 0, add each
 * block's length to it, and keep the table; no dictionary. Dictionary: load it into a cleared table
 * and encode with `srcIdx` equal to its length. The block decodes with veksDecodeLZ4Dict_8u()
 * given the same dictionary and `srcIdx` as its index. Where `srcIdx` and the dictionary's length
 * differ, only positions that both sides read from the same place are used.
 *
 * The table is prepared first, even when another argument is then refused: cleared for a `srcIdx`
 * of 0 or less, whatever was loaded, else freed of positions at or behind `srcIdx`.
 *
 * @param pSrc       The block.
 * @param srcIdx     Its position in the stream. Without a dictionary, so many bytes in front of
 *                   pSrc are the history.
 * @param srcLen     Its length, at least 1; srcIdx + srcLen must be below 2^31.
 * @param pDst       Destination of vekLZ4EncodeBound(srcLen) bytes.
 * @param pDstLen    Out: bytes written.
 * @param pHashTable The table of the stream, 4-byte aligned.
 * @param pDict      Dictionary, or null.
 * @param dictLen    Its length; 0 for none.
 * @return 0; ::vekStatusNullPointer; ::vekStatusBadSize; ::vekStatusBadArgument for a negative
 *         srcIdx with a separate dictionary.
 */
VekStatus veksEncodeLZ4Dict_8u(const uint8_t* pSrc, int srcIdx, int srcLen, uint8_t* pDst,
                               int* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                               int dictLen);

/**
 * Encodes with history as veksEncodeLZ4Dict_8u(), as much of the input as fits, as
 * veksEncodeLZ4Safe_8u().
 *
 * @param pSrc       The block.
 * @param srcIdx     Its position in the stream.
 * @param pSrcLen    In: its length, at least 1. Out: bytes consumed.
 * @param pDst       Destination.
 * @param pDstLen    In: its room, at least 1. Out: bytes written.
 * @param pHashTable The table of the stream, 4-byte aligned.
 * @param pDict      Dictionary, or null.
 * @param dictLen    Its length; 0 for none.
 * @return As veksEncodeLZ4Dict_8u(); ::vekStatusDestinationFull when not all input fitted.
 */
VekStatus veksEncodeLZ4DictSafe_8u(const uint8_t* pSrc, int srcIdx, int* pSrcLen, uint8_t* pDst,
                                   int* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                                   int dictLen);

/**
 * Bytes of the two tables of high-compression encoding: 131072 and 262144.
 *
 * @param pHashTableSize Out: size of the hash table.
 * @param pPrevTableSize Out: size of the chain table.
 * @return 0 or ::vekStatusNullPointer; then neither is written.
 */
VekStatus veksEncodeLZ4HCHashTableGetSize_8u(int* pHashTableSize, int* pPrevTableSize);

/**
 * Clears the tables of high-compression encoding, as needed before every stream (and every block
 * without history).
 *
 * @param ppHashTables Two pointers: the hash table, the chain table; each 4-byte aligned.
 * @return 0 or ::vekStatusNullPointer.
 */
VekStatus veksEncodeLZ4HCHashTableInit_8u(uint8_t** ppHashTables);

/**
 * Encodes one block with high compression, with or without history.
 *
 * The tables carry history from call to call; this function does not clear them. A dictionary's
 * positions get into them by encoding the dictionary itself first, at `srcIdx` 0 with the same
 * tables, and dropping the result; then encode with `srcIdx` equal to its length. Position 0 is
 * never referred to.
 *
 * @param pSrc         The block.
 * @param srcIdx       Its position in the stream, at least 0; without a dictionary, so many bytes
 *                     in front of pSrc are the history.
 * @param pSrcLen      In: its length, at least 1; srcIdx + length must be below 2^31. Out: bytes
 *                     consumed.
 * @param pDst         Destination.
 * @param pDstLen      In: its room, at least 1; vekLZ4EncodeBound() bytes always suffice. Out:
 *                     bytes written.
 * @param ppHashTables Two pointers: the hash table, the chain table.
 * @param pDict        Dictionary, or null.
 * @param dictLen      Its length; 0 for none.
 * @param level        1 (fast) to 9 (small); 0 and all above mean 9, all below mean 1. Each level
 *                     looks at twice as many candidates as the one before.
 * @return 0; ::vekStatusDestinationFull when only the last literals did not fit: as many as did are
 *         written and counted as consumed; ::vekStatusDestinationTooSmall when a sequence did not
 *         fit: whole sequences were written, of exactly the consumed bytes, without the run of
 *         literals that must end a block: append one of at least 12, or retry with more room;
 *         ::vekStatusNullPointer; ::vekStatusBadSize; ::vekStatusBadArgument for a negative srcIdx.
 */
VekStatus veksEncodeLZ4HC_8u(const uint8_t* pSrc, int srcIdx, int* pSrcLen, uint8_t* pDst,
                             int* pDstLen, uint8_t** ppHashTables, const uint8_t* pDict,
                             int dictLen, int level);

/**
 * Encodes as veksEncodeLZ4HC_8u(), but takes every dictionary for a separate one, even if it lies
 * in front of the block.
 *
 * @param pSrc         The block.
 * @param srcIdx       Its position in the stream, at least 0.
 * @param pSrcLen      In: its length. Out: bytes consumed.
 * @param pDst         Destination.
 * @param pDstLen      In: its room. Out: bytes written.
 * @param ppHashTables Two pointers: the hash table, the chain table.
 * @param pDict        Dictionary, or null.
 * @param dictLen      Its length; 0 for none.
 * @param level        As for veksEncodeLZ4HC_8u().
 * @param dictLimit    0 refers to no dictionary byte at a stream position from srcIdx on; other
 *                     values do the same today.
 * @return As veksEncodeLZ4HC_8u().
 */
VekStatus veksEncodeLZ4HCDictLimit_8u(const uint8_t* pSrc, int srcIdx, int* pSrcLen, uint8_t* pDst,
                                      int* pDstLen, uint8_t** ppHashTables, const uint8_t* pDict,
                                      int dictLen, int level, int dictLimit);

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
