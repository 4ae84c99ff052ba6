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

/**
 * One symbol's entry in a literal/length table (286 symbols) or a distance table (30 symbols).
 *
 * The match finder counts frequencies in it, the code generator replaces them by codes.
 */
typedef struct VekHuffEntry {
    /** While matches are found: how often the symbol occurred. Afterwards: the symbol's code, its
     *  first bit in bit 0. */
    uint16_t code;
    /** While matches are found: 0. Afterwards: the code's length in bits. */
    uint16_t length;
} VekHuffEntry;

/**
 * Finds back-references in the source (the LZ77 stage of RFC 1951) at one of 30 parameter levels.
 *
 * Writes one pair for each literal or match into two parallel arrays:
 *
 *     pair     pLitDst[i]                  pDistDst[i]
 *     literal  the byte                    0
 *     match    length - 3 (length 4..258)  distance, 1 .. winSize - 1
 *
 * and counts them in the two frequency tables: a literal by its value, a match by 257 + its length
 * code and by its distance code. Counts are added to what the tables hold; the caller clears them
 * (both halves of every entry) before each block. They are whole 32-bit words: a count above 65535
 * goes on into the entry's second half, where the code generator reads it. The end-of-block symbol
 * is not counted.
 *
 * The match state is the caller's: window, head table, chain table and position. Position p of the
 * stream lives at `pWindow[p & (winSize - 1)]`. Source bytes are read from the source; at its end a
 * call stores the bytes that it consumed (the last `winSize` of them) in the window. A caller who
 * places the same bytes there before the call, clear of the last `winSize` - 1 bytes of history,
 * sees no difference.
 *
 * To begin a stream, set all entries of both tables to -32768 or less (0 works as well: whatever
 * entry is found is verified before it is used) and `*pSrcIdx` to 0; then call for one piece of the
 * source after another. Pieces may have any size. To start with a history, see
 * veksDeflateDictionarySet_8u() and veksDeflateUpdateHash_8u(). The matches found depend on what
 * the tables hold, but whatever they hold, the pairs give back the source.
 *
 * Every call goes on until the source is used up or the room for pairs is full; no byte is held
 * back, and a match never reaches beyond the source of its call.
 *
 * Positions never overflow: before matching, when 2 * `*pSrcLen` + winSize + `*pSrcIdx` reaches
 * 0x7FFFFFFF and `*pSrcIdx` is greater than winSize, the state is rebased: `*pSrcIdx` becomes
 * winSize, the entries of both tables are lowered by the same shift (to no less than -32768), and
 * the window and the chain table are rotated by the shift modulo winSize.
 *
 * @param ppSrc         In/out: next source byte.
 * @param pSrcLen       In/out: source bytes left, at least 0.
 * @param pSrcIdx       In/out: position of the next source byte, at least 0.
 * @param pWindow       Window, winSize bytes: the history before the source.
 * @param winSize       Window size, a power of two, 256..32768. (Other sizes within these bounds
 *                      are safe to pass, but the window is then of no use: the pairs need not give
 *                      back the source.)
 * @param pHashHead     Head table, hashSize entries: the latest position of each hash.
 * @param pHashPrev     Chain table, winSize entries: for each position, masked, the one before it
 *                      with the same hash.
 * @param hashSize      Size of the head table, a power of two, 256..65536.
 * @param pLitFreqTable Literal/length frequencies, 286 entries, added to.
 * @param pDistFreqTable Distance frequencies, 30 entries, added to.
 * @param pLitDst       Literal/length array, `*pDstLen` elements.
 * @param pDistDst      Distance array, `*pDstLen` elements.
 * @param pDstLen       In/out: room in the pair arrays, decreased by the pairs written.
 * @param comprLevel    0..29. The units digit is the effort: 0 makes literals only, 1..4 are
 *                      greedy (veksDeflateLZ77Fast_8u()), 5..9 lazy (veksDeflateLZ77Slow_8u()). The
 *                      tens digit chooses between three tunings of that scale.
 * @param flush         2 and above: the stream ends with this source. Below 2: more follows, and
 *                      the last positions, which need the next bytes to be hashed, are inserted at
 *                      the start of the next call.
 * @retval vekStatusOk          Done; `*pSrcLen` is 0 unless the room for pairs ran out.
 * @retval vekStatusBadSize     comprLevel is above 29 (checked before anything else), winSize or
 *                              hashSize is out of range, or `*pSrcLen` or `*pSrcIdx` is negative.
 * @retval vekStatusNullPointer A pointer, or `*ppSrc`, is null.
 */
VekStatus veksDeflateLZ77_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                             uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                             int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                             VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                             uint32_t* pDstLen, uint32_t comprLevel, uint32_t flush);

/**
 * The greedy matcher with parameters of the caller's choice: takes at each position the longest
 * match that its search finds. Everything else is as in veksDeflateLZ77_8u().
 *
 * @param pParams Four values:
 *                - maxChain: how many candidates a search looks at; 0 makes literals only;
 *                - goodLength: once the match found is this long, the rest of the search looks at
 *                  a quarter of maxChain candidates in all;
 *                - niceLength: a match this long ends the search;
 *                - maxInsert: the positions inside a match enter the tables if it is at most this
 *                  long.
 * @retval vekStatusBadArgument maxChain is negative, or is positive and another value is below 4.
 */
VekStatus veksDeflateLZ77Fast_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                                 uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                                 int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                                 VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                                 uint32_t* pDstLen, const int32_t* pParams, uint32_t flush);

/**
 * The lazy matcher with parameters of the caller's choice: before it takes a match it looks for a
 * better one at the next position, and if there is one makes the byte before it a literal.
 * Everything else is as in veksDeflateLZ77_8u().
 *
 * @param pParams Four values:
 *                - maxChain, goodLength, niceLength: as in veksDeflateLZ77Fast_8u(); moreover, when
 *                  the match in hand is at least goodLength long, the search at the next position
 *                  looks at a quarter of maxChain candidates;
 *                - maxLazy: the next position is searched only if the match in hand is shorter.
 * @retval vekStatusBadArgument maxChain is negative, or is positive and another value is below 4.
 */
VekStatus veksDeflateLZ77Slow_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                                 uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                                 int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                                 VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                                 uint32_t* pDstLen, const int32_t* pParams, uint32_t flush);

/**
 * Enters positions into the match state without encoding them: history that later source bytes may
 * refer to. The caller places the same bytes in the window.
 *
 * The last 3 positions (2 in mode 0) lack the bytes to hash and are not entered.
 *
 * @param pSrc      The bytes, srcLen of them.
 * @param srcIdx    Position of the first.
 * @param srcLen    Number of bytes; below 4 (3 in mode 0), also negative, nothing is done.
 * @param pHashHead Head table, hashSize entries.
 * @param hashSize  256..65536, a power of two.
 * @param pHashPrev Chain table, winSize entries; not written in mode 0.
 * @param winSize   256..32768, a power of two.
 * @param hashMode  Not 0: the matchers' hash of 4 bytes, head and chain tables. 0: a rolling hash
 *                  of 3 bytes, h = (h << 5 ^ byte) & (hashSize - 1), head table only; the matchers
 *                  do not use it.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     winSize or hashSize is out of range.
 */
VekStatus veksDeflateUpdateHash_8u(const uint8_t* pSrc, int32_t srcIdx, int32_t srcLen,
                                   int32_t* pHashHead, uint32_t hashSize, int32_t* pHashPrev,
                                   uint32_t winSize, int32_t hashMode);

/**
 * Enters a preset dictionary into the match state: its bytes become positions 0 .. dictLen - 1. The
 * caller places them (the last winSize, if there are more) in the window, position p at
 * `pWindow[p & (winSize - 1)]`, and begins encoding with `*pSrcIdx` = dictLen.
 *
 * @param pDict     The dictionary, dictLen bytes.
 * @param dictLen   Its length; below 4 (3 in mode 0), also negative, nothing is done.
 * @param pHashHead Head table, hashSize entries.
 * @param hashSize  256..65536, a power of two.
 * @param pHashPrev Chain table, winSize entries; not written in mode 0.
 * @param pDictAux  Must not be null; not used otherwise.
 * @param winSize   256..32768, a power of two.
 * @param hashMode  As in veksDeflateUpdateHash_8u().
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     winSize or hashSize is out of range.
 */
VekStatus veksDeflateDictionarySet_8u(const uint8_t* pDict, int32_t dictLen, int32_t* pHashHead,
                                      uint32_t hashSize, int32_t* pHashPrev, const void* pDictAux,
                                      uint32_t winSize, int32_t hashMode);

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
