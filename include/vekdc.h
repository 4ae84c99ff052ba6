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
