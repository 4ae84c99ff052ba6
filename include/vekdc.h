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

/**
 * State of the run-length stage, 264 bytes; one layout serves both directions. The format: a run of
 * 4 to 259 equal bytes is written as the byte four times and a byte holding the run's length
 * less 4.
 */
typedef struct Bz2RleState {
    uint8_t
        inUse[256];   /**< Encoder: entry v is 1 once value v has been written. Decoder: unused. */
    int32_t symbol;   /**< Last value taken (encoder), value of the open run (decoder); -1: none. */
    int32_t runCount; /**< Length of the open run (encoder), bytes still to write (decoder). */
} Bz2RleState;

/**
 * Size of ::Bz2RleState in bytes.
 * @return ::vekStatusOk; ::vekStatusNullPointer.
 */
VekStatus veksRLEGetSize_BZ2_8u(int32_t* pSize);

/**
 * Prepares a state for a new block: nothing in use, no open run.
 * @return ::vekStatusOk; ::vekStatusNullPointer.
 */
VekStatus veksEncodeRLEInit_BZ2_8u(Bz2RleState* pState);

/**
 * Run-length codes as much of the input as fits.
 *
 * @param ppSrc    in/out: next input byte
 * @param pSrcLen  in/out: input bytes left, at least 1 on entry
 * @param pDst     output; the pointer is not advanced
 * @param pDstLen  in: room, at least 1; out: bytes written
 * @param pState   prepared by veksEncodeRLEInit_BZ2_8u(); an open run stays in it between calls
 * @return ::vekStatusOk; ::vekStatusDestinationFull when input is left; ::vekStatusNullPointer
 * (also for a null `*ppSrc`); ::vekStatusBadSize.
 */
VekStatus veksEncodeRLE_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst,
                               int32_t* pDstLen, Bz2RleState* pState);

/**
 * Ends a block: writes the count byte of an open run of 4 and more, if there is one.
 *
 * @param pDst     output
 * @param pDstLen  in: room, at least 1; out: 0 or 1, the bytes written
 * @param pState   the block's state; the symbol stays
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksEncodeRLEFlush_BZ2_8u(uint8_t* pDst, int32_t* pDstLen, Bz2RleState* pState);

/**
 * Copies the state's 256-entry in-use table; the two areas may overlap.
 * @return ::vekStatusOk; ::vekStatusNullPointer.
 */
VekStatus veksRLEGetInUseTable_8u(uint8_t* pInUse, const Bz2RleState* pState);

/**
 * Prepares a state for decoding a block. The in-use table is not touched.
 * @return ::vekStatusOk; ::vekStatusNullPointer.
 */
VekStatus veksDecodeRLEStateInit_BZ2_8u(Bz2RleState* pState);

/**
 * Expands run-coded input, the whole of a block's or what an earlier call left of it.
 *
 * The last three bytes of a call's input begin no run and are copied as they are, so a block's
 * input must not be cut; its output may be cut anywhere. Every byte sequence is valid.
 *
 * @param ppSrc    in/out: next input byte
 * @param pSrcLen  in/out: input bytes left, at least 1 on entry
 * @param ppDst    in/out: next output byte
 * @param pDstLen  in/out: room left, at least 1 on entry
 * @param pState   prepared by veksDecodeRLEStateInit_BZ2_8u(); holds what is left of a run
 * @return ::vekStatusOk, also when the room ended between two units with input left (see
 * `*pSrcLen`);
 *         ::vekStatusDestinationFull when the room ended among literals or inside a run;
 *         ::vekStatusNullPointer (also for null inner pointers); ::vekStatusBadSize.
 */
VekStatus veksDecodeRLEState_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                                    int32_t* pDstLen, Bz2RleState* pState);

/**
 * Writes what is left of a run, without further input.
 *
 * @param pState   the block's state
 * @param ppDst    in/out: next output byte
 * @param pDstLen  in/out: room left
 * @return ::vekStatusOk when nothing is left; ::vekStatusDestinationFull; ::vekStatusNullPointer
 * (also for a null `*ppDst`).
 */
VekStatus veksDecodeRLEStateFlush_BZ2_8u(Bz2RleState* pState, uint8_t** ppDst, int32_t* pDstLen);

/** State of a move-to-front coder, 256 bytes; each direction keeps its own. */
typedef struct MtfState {
    uint8_t table[256]; /**< Forward: position of each value. Inverse: value at each position. */
} MtfState;

/**
 * Size of ::MtfState in bytes.
 * @return ::vekStatusOk; ::vekStatusNullPointer.
 */
VekStatus veksMTFGetSize_8u(int32_t* pSize);

/**
 * Sets a state, of either direction, to the identity.
 * @return ::vekStatusOk; ::vekStatusNullPointer.
 */
VekStatus veksMTFInit_8u(MtfState* pState);

/**
 * Replaces each byte by its position in the list of values in order of last use.
 *
 * @param pSrc    `len` bytes
 * @param pDst    `len` positions; may be `pSrc`
 * @param len     at least 1
 * @param pState  goes on from the call before
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksMTFFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, MtfState* pState);

/** The inverse of veksMTFFwd_8u(): positions become bytes. Same arguments and statuses. */
VekStatus veksMTFInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, MtfState* pState);

/**
 * Makes a block's alphabet dense, in place: each byte becomes its rank among the values in use.
 *
 * @param pInUse   256 entries, 1 for a value that occurs, else 0
 * @param pSrcDst  `len` bytes; values that are not in use take the rank of the next value that is
 * @param len      at least 1
 * @param pSize    receives the number of values in use
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksReduceDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                    int32_t* pSize);

/**
 * The inverse of veksReduceDictionary_8u_I().
 *
 * @param pInUse   256 entries, 1 for a value in use, else 0
 * @param pSrcDst  `len` ranks, replaced by their values
 * @param len      at least 1
 * @param size     number of values in use, at least 1
 * @return ::vekStatusOk; ::vekStatusError when `size` is not that number, the block untouched;
 *         ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksExpandDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                    int32_t size);

/**
 * Codes runs of zeros as numbers in bijective base 2, and counts the symbols.
 *
 * Symbols 0 and 1 are the digits, worth 1 and 2 times 2^k, least significant first; a value b from
 * 1 to 255 becomes b + 1. A run that does not fit the room, with a slot to spare when a value
 * follows, is cut to what fits and the call ends. A block whose room is its length or more is never
 * cut; pieces of a cut run must not be joined into one symbol stream, where they would read as one
 * longer number.
 *
 * @param ppSrc    in/out: next input byte
 * @param pSrcLen  in/out: input bytes left, at least 1 on entry
 * @param pDst     output symbols
 * @param pDstLen  in: room in symbols, at least 1; out: symbols written
 * @param pFreq    257 counters or more, added to
 * @return ::vekStatusOk; ::vekStatusDestinationFull when input is left; ::vekStatusNullPointer
 * (also for a null `*ppSrc`); ::vekStatusBadSize.
 */
VekStatus veksEncodeZ1Z2_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen, uint16_t* pDst,
                                   int32_t* pDstLen, uint32_t* pFreq);

/**
 * The inverse of veksEncodeZ1Z2_BZ2_8u16u(). Give it the whole block's room: the digits of a run
 * that does not fit count as consumed.
 *
 * @param ppSrc    in/out: next symbol
 * @param pSrcLen  in/out: symbols left, at least 1 on entry
 * @param pDst     output bytes
 * @param pDstLen  in: room, at least 1; out: bytes written
 * @return ::vekStatusOk; ::vekStatusDestinationFull when the room did not suffice or symbols are
 * left;
 *         ::vekStatusNullPointer (also for a null `*ppSrc`); ::vekStatusBadSize.
 */
VekStatus veksDecodeZ1Z2_BZ2_16u8u(const uint16_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst,
                                   int32_t* pDstLen);

/*
 * Huffman coding of a block's symbols. Both directions share the caller's bit accumulator: a 32-bit
 * word of pending bits, the next one in bit 31, and their number, 0 to 32.
 */

/** Code tables and table choices of one block; see veksEncodeHuffGetSize_BZ2_16u8u(). */
typedef struct Bz2HuffEncState Bz2HuffEncState;

/**
 * Size in bytes of the encoder's record for a block of `len` symbols, at least 1.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksEncodeHuffGetSize_BZ2_16u8u(int32_t len, int32_t* pSize);

/**
 * Builds the two to six code tables of a block and chooses one for each 50 symbols.
 *
 * @param alphaSize  symbols in the alphabet, end of block included: 1 to 258
 * @param pFreq      `alphaSize` frequencies
 * @param pSrc       the block's symbols, each below `alphaSize`, end of block included
 * @param len        their number, 1 to 1638350
 * @param pState     record of the size that the query gives for `len`
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksEncodeHuffInit_BZ2_16u8u(int32_t alphaSize, const uint32_t* pFreq,
                                       const uint16_t* pSrc, int32_t len, Bz2HuffEncState* pState);

/**
 * Writes the tables' description: number of tables and groups, choices, code lengths.
 *
 * @param pCode         in/out: accumulator
 * @param pCodeLenBits  in/out: its pending bits; fewer than 8 remain where the room is not used up
 * @param pDst          output
 * @param pDstLen       in: room, at least 1; out: bytes written
 * @param pState        the block's record
 * @return ::vekStatusOk; ::vekStatusDestinationFull when more than 32 bits would remain: the
 * accumulator is untouched, and the call is to be repeated with more room; ::vekStatusNullPointer;
 *         ::vekStatusBadSize; ::vekStatusError for a record that was not prepared.
 */
VekStatus veksPackHuffContext_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, uint8_t* pDst,
                                        int32_t* pDstLen, const Bz2HuffEncState* pState);

/**
 * Writes a whole block's symbols.
 *
 * @param pCode         in/out: accumulator
 * @param pCodeLenBits  in/out: its pending bits; fewer than 8 remain where the room is not used up
 * @param ppSrc         in/out: the symbols that the record was prepared from
 * @param pSrcLen       in/out: their number, at least 0
 * @param pDst          output
 * @param pDstLen       in: room, at least 1; out: bytes written
 * @param pState        the block's record
 * @return As veksPackHuffContext_BZ2_16u8u(); after ::vekStatusDestinationFull source and
 * accumulator are as they were. ::vekStatusBadSize also for symbols that the record does not cover.
 */
VekStatus veksEncodeHuff_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, const uint16_t** ppSrc,
                                   int32_t* pSrcLen, uint8_t* pDst, int32_t* pDstLen,
                                   const Bz2HuffEncState* pState);

/** Decoding tables, table choices and position; see veksDecodeHuffGetSize_BZ2_8u16u(). */
typedef struct Bz2HuffDecState Bz2HuffDecState;

/**
 * Size in bytes of the decoder's record for blocks of up to `len` symbols, at least 1.
 *
 * A stream names its own number of groups, up to 32767, and the record must hold them all: callers
 * of input that they do not trust size the record for 32767 * 50 symbols.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksDecodeHuffGetSize_BZ2_8u16u(int32_t len, int32_t* pSize);

/**
 * Prepares a record for a block.
 *
 * @param alphaSize  symbols in the alphabet, end of block included: 1 to 258
 * @param pState     record
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksDecodeHuffInit_BZ2_8u16u(int32_t alphaSize, Bz2HuffDecState* pState);

/**
 * Reads the tables' description and builds the decoding tables; stops and resumes at any bit.
 *
 * @param pCode         in/out: accumulator
 * @param pCodeLenBits  in/out: its pending bits
 * @param ppSrc         in/out: next input byte
 * @param pSrcLen       in/out: input bytes left, at least 1 on entry
 * @param pState        prepared record
 * @return ::vekStatusOk when all is read; ::vekStatusSourceIncomplete: call again with more input;
 *         ::vekStatusSourceDataError for a description that is corrupt; ::vekStatusError for a
 * record in an impossible phase; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksUnpackHuffContext_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits,
                                          const uint8_t** ppSrc, int32_t* pSrcLen,
                                          Bz2HuffDecState* pState);

/**
 * Decodes a block's symbols up to its end-of-block symbol; stops and resumes between any two.
 *
 * Twenty bits are held before each symbol, so the stream's bytes behind the block must be at hand.
 *
 * @param pCode         in/out: accumulator
 * @param pCodeLenBits  in/out: its pending bits
 * @param ppSrc         in/out: next input byte
 * @param pSrcLen       in/out: input bytes left, at least 0
 * @param pDst          output symbols
 * @param pDstLen       in: room in symbols, at least 1; out: symbols decoded. End of block is
 * stored behind them, in the room, and not counted
 * @param pState        record whose tables are built
 * @return ::vekStatusOk at the end of block; ::vekStatusSourceIncomplete;
 * ::vekStatusDestinationFull;
 *         ::vekStatusError for a code that no symbol has or more symbols than the groups cover;
 *         ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksDecodeHuff_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits, const uint8_t** ppSrc,
                                   int32_t* pSrcLen, uint16_t* pDst, int32_t* pDstLen,
                                   Bz2HuffDecState* pState);

/**
 * Size in bytes of the work buffer of veksBWTInv_8u() for a block of `len` bytes, at least 1.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksBWTInvGetSize_8u(int32_t len, int32_t* pSize);

/**
 * Inverts a block sort (Burrows and Wheeler, 1994).
 *
 * @param pSrc     last column of the sorted rotations, `len` bytes
 * @param pDst     receives the block, `len` bytes; may be `pSrc` for blocks of up to 2^24 bytes
 * @param len      at least 1
 * @param index    primary index: row of the unrotated block, 0 to `len` - 1
 * @param pBuffer  work buffer of the size that the query gives, any alignment
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksBWTInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t index,
                        uint8_t* pBuffer);

/**
 * Size in bytes of the work buffer of veksDecodeBlock_BZ2_16u8u() for a capacity of `blockSize`
 * bytes, 0 to 2^24 - 1.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksDecodeBlockGetSize_BZ2_8u(int32_t blockSize, int32_t* pSize);

/**
 * Decodes a block's symbols to what the run-length stage expands: zero runs, move-to-front, symbol
 * map and block sort in one.
 *
 * @param pSrc      the block's symbols without end of block
 * @param srcLen    their number, at least 1
 * @param pDst      receives the block; written only on success
 * @param pDstLen   in: capacity, below 2^24; out: length of the block, or of what was decoded
 * before an error
 * @param index     primary index, 0 to the capacity - 1
 * @param dictSize  number of values in use, 0 to 256
 * @param pInUse    256 entries, above 0 (as signed bytes) for values in use. When their number is
 * not `dictSize` nothing is written, `*pDstLen` stays, and the status is ::vekStatusOk
 * @param pBuffer   work buffer of the size that the query gives for the capacity, any alignment
 * @return ::vekStatusOk; ::vekStatusError for a block beyond the capacity, a symbol without a value
 * or an index at or beyond the length; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksDecodeBlock_BZ2_16u8u(const uint16_t* pSrc, int32_t srcLen, uint8_t* pDst,
                                    int32_t* pDstLen, int32_t index, int32_t dictSize,
                                    const uint8_t* pInUse, uint8_t* pBuffer);

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
