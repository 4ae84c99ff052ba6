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
 * Adler-32 of zlib (RFC 1950): A, 1 plus the sum of all bytes, in the low 16 bits; B, the sum of
 * all values of A, in the high 16 bits; both modulo 65521. Start with 1 and pass the value back
 * with each further piece.
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
 * call stores the bytes that it consumed (the last `winSize` of them) in the window. A caller may
 * place the call's whole source there beforehand, or pass a source that lies there; the history
 * overwritten by that is then left alone. (Of a source longer than the window, its last `winSize`
 * bytes, provided that the room for pairs is no less than the source bytes.) As many of the
 * source's first bytes count as placed as stand there. So that data which repeats itself at the
 * window's length is not taken for placed, a call whose source lies elsewhere ends by inverting the
 * byte where the next source would begin, `pWindow[*pSrcIdx & (winSize - 1)]`: it is a whole window
 * back, out of reach of every match. A caller who fills the whole window with a history of its own,
 * and does not place its sources, does well to do the same before the first call.
 *
 * To begin a stream, set all entries of both tables to -32768 or less (0 works as well: whatever
 * entry is found is verified before it is used) and `*pSrcIdx` to 0; then call for one piece of the
 * source after another. Pieces may have any size. To start with a history, see
 * veksDeflateDictionarySet_8u() and veksDeflateUpdateHash_8u(). The matches found depend on what
 * the tables hold, but whatever they hold, the pairs give back the source.
 *
 * What the tables do not name is not history, whatever the window holds: set all entries of both to
 * -32768 at any position (a full flush), and what follows decodes without what came before.
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
 * @param flush         2 and above: the stream ends with this source. Below 2: more follows.
 *                      Either way the call uses all of its source, and may be followed by another:
 *                      the last three positions, which need the next bytes to be hashed, are
 *                      entered at the start of the next call if there is one. Until then the chain
 *                      table may name such a position as its own predecessor.
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
 *                - goodLength: once the match found is this long, the search looks at a quarter of
 *                  maxChain candidates in all (of the value given, however long chains may be);
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

/*
 * The deflate format is RFC 1951. A block's end-of-block code is not written by these functions:
 * its entry is symbol 256 of the literal/length table, and the caller puts it behind the pairs.
 *
 * Bit buffer: a 32-bit word and its number of valid bits, 0 to 32, the stream's next bit lowest. On
 * return fewer than 8 bits are valid, and those above them are 0.
 */

/**
 * Makes length-limited canonical codes from frequencies: 15 bits for literals and lengths, 9 for
 * distances. Every symbol gets a code, whether it occurs or not.
 *
 * @param pLitFreq       286 frequencies; an entry's two halves are read as one 32-bit number, low
 * half first
 * @param pDistFreq      30 frequencies, likewise
 * @param pLitHuffTable  receives 286 codes and lengths; may be pLitFreq
 * @param pDistHuffTable receives 30 codes and lengths; may be pDistFreq
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusFailure     A code could not be brought within its limit. The tables hold the
 * lengths of the last try. Of these, the codes of up to 15 bits are canonical and prefix-free, so a
 * distance code beyond its 9 bits may still be used; symbols with longer ones have no code (0).
 */
VekStatus veksDeflateLZ77FastestGenHuffTable_8u(const VekHuffEntry* pLitFreq,
                                                const VekHuffEntry* pDistFreq,
                                                VekHuffEntry* pLitHuffTable,
                                                VekHuffEntry* pDistHuffTable);

/** Room that a dynamic block's header may take, in bytes. */
#define VEK_DEFLATE_HEADER_BOUND 288

/**
 * Writes the header of a dynamic block (RFC 1951, 3.2.7) that announces the tables' code lengths,
 * all 286 and 30 of them. Its first bit, BFINAL, is 1: clear it in all blocks but the last.
 *
 * @param pLitHuffTable  286 entries whose lengths are 0 to 15
 * @param pDistHuffTable 30 entries, likewise
 * @param pHeader        receives the header, at most VEK_DEFLATE_HEADER_BOUND bytes, the last one
 * padded with zero bits
 * @param pHeaderLen     receives its length in bytes
 * @param pHeaderBits    receives its length in bits
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 */
VekStatus veksDeflateLZ77FastestGenHeader_8u(const VekHuffEntry* pLitHuffTable,
                                             const VekHuffEntry* pDistHuffTable, uint8_t* pHeader,
                                             uint32_t* pHeaderLen, uint32_t* pHeaderBits);

/** Room that veksDeflateHuff_8u() may take for `pairs` pairs, in bytes: 48 bits a pair and the bit
 * buffer. */
static inline uint64_t vekDeflateHuffBound(uint32_t pairs) {
    return (uint64_t)pairs * 6 + 4;
}

/**
 * Codes pairs of the match finder.
 *
 * @param pLitSrc        literals, and lengths - 3
 * @param pDistSrc       0 for a literal, else the distance, 1 to 32768
 * @param srcLen         number of pairs
 * @param pCode          in/out: bit buffer
 * @param pCodeLenBits   in/out: its valid bits
 * @param pLitHuffTable  286 codes
 * @param pDistHuffTable 30 codes
 * @param pDst           output; nothing is written behind the last complete byte. The caller sees
 * to the room: vekDeflateHuffBound() bytes from `*pDstIdx` on always suffice
 * @param pDstIdx        in/out: index in pDst where output goes on
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     `*pCodeLenBits` is above 32.
 */
VekStatus veksDeflateHuff_8u(const uint8_t* pLitSrc, const uint16_t* pDistSrc, uint32_t srcLen,
                             uint32_t* pCode, uint32_t* pCodeLenBits,
                             const VekHuffEntry* pLitHuffTable, const VekHuffEntry* pDistHuffTable,
                             uint8_t* pDst, uint32_t* pDstIdx);

/*
 * The single-pass fastest path: a matcher that looks at one place and writes codes at once. Each
 * call stands alone: matches reach neither before its source nor behind it. One block may be made
 * of several calls.
 */

/**
 * Counts the symbols that the fastest path will write for the same source.
 *
 * @param pSrc       source
 * @param srcLen     its length, at least 1
 * @param pHashHead  work table of hashSize entries; cleared first, used up
 * @param hashSize   256 to 65536; powers of two use the whole table
 * @param pLitFreq   286 frequencies, added to as 32-bit numbers; end of block is not counted
 * @param pDistFreq  30 frequencies, likewise
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     srcLen or hashSize is out of range.
 */
VekStatus veksDeflateLZ77FastestGetStat_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pHashHead,
                                           uint32_t hashSize, VekHuffEntry* pLitFreq,
                                           VekHuffEntry* pDistFreq);

/** Room that veksDeflateLZ77Fastest_8u() wants for `srcLen` bytes: 15 bits a byte, the bit buffer,
 * slack. */
static inline uint32_t vekDeflateFastestBound(int32_t srcLen) {
    return 2 * (uint32_t)srcLen - (uint32_t)srcLen / 8 + 16;
}

/**
 * Matches and codes a source in one pass.
 *
 * @param pSrc           source
 * @param srcLen         its length, at least 1
 * @param pHashHead      work table of hashSize entries; cleared first, used up
 * @param hashSize       256 to 65536; powers of two use the whole table
 * @param pCode          in/out: bit buffer
 * @param pCodeLenBits   in/out: its valid bits
 * @param pLitHuffTable  286 codes, for instance those of veksDeflateLZ77FastestPrecompHeader_8u()
 * @param pDistHuffTable 30 codes, likewise
 * @param pDst           output buffer; bytes behind the last one written may change, within the
 * room
 * @param pDstLen        in: room from `*pDstIdx` on, at least vekDeflateFastestBound(srcLen); out:
 * bytes written
 * @param pDstIdx        in/out: index in pDst where output goes on
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     srcLen, hashSize, the room or `*pCodeLenBits` is out of range.
 */
VekStatus veksDeflateLZ77Fastest_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pHashHead,
                                    uint32_t hashSize, uint32_t* pCode, uint32_t* pCodeLenBits,
                                    const VekHuffEntry* pLitHuffTable,
                                    const VekHuffEntry* pDistHuffTable, uint8_t* pDst,
                                    uint32_t* pDstLen, uint32_t* pDstIdx);

/**
 * Fills both tables with a general-purpose code, made beforehand from text, machine code and
 * records, and writes its block header, so that a block can be written without a look at its data.
 * BFINAL is 1 in it.
 *
 * @param pLitHuffTable  receives 286 codes
 * @param pDistHuffTable receives 30 codes
 * @param pHeader        receives the header, at most VEK_DEFLATE_HEADER_BOUND bytes
 * @param pHeaderLen     receives its length in bytes
 * @param pHeaderBits    receives its length in bits
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 */
VekStatus veksDeflateLZ77FastestPrecompHeader_8u(VekHuffEntry* pLitHuffTable,
                                                 VekHuffEntry* pDistHuffTable, uint8_t* pHeader,
                                                 uint32_t* pHeaderLen, uint32_t* pHeaderBits);

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
 * distance beyond all that history is corrupt data. On return nothing behind the last byte written
 * has changed; while the call runs the room is the decoder's, so the window must not lie in it.
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
 * missing and call again with mode 2. A code is judged when all of its bits are there: one that is
 * invalid whatever its missing bits still asks for more.
 * @param state         Tables, window and saved position.
 * @return ::vekStatusOk on every stop above; ::vekStatusNullPointer when a pointer, `*ppSrc` or
 *         `*ppDst` is null (the window may be); ::vekStatusBadSize when `*pCodeLenBits` is above 32
 * or `winIdx` above `windowSize`; these two leave everything as it was.
 *         ::vekStatusSourceDataError on an invalid code (also a distance entry of more than 13
 * extra bits, in tables of the caller's own making), a distance beyond the history, a `tableKind`
 * above 2 or an impossible saved position: what was decoded before stands in the output, the stream
 * arguments are written back, `*pMode` and the saved position are left as they were.
 */
VekStatus veksInflate_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode,
                         uint32_t* pCodeLenBits, uint32_t winIdx, uint8_t** ppDst,
                         uint32_t* pDstLen, uint32_t dstIdx, int32_t* pMode, InflateState* state);

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
 * follows, is cut to what fits and the call ends; a room of one slot takes the run alone, so that
 * every call makes progress. A block whose room is its length or more is never cut; pieces of a cut
 * run must not be joined into one symbol stream, where they would read as one longer number.
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
 * **A stream names its own number of groups, up to 32767, and the record must hold them all**: no
 * function is told the record's size, so callers of input that they do not trust size it for
 * 32767 * 50 symbols. No input makes the decoder leave a record of that size.
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
 * @param pState        record whose description was read to its end
 * @return ::vekStatusOk at the end of block; ::vekStatusSourceIncomplete;
 * ::vekStatusDestinationFull;
 *         ::vekStatusError for a code that no symbol has, more symbols than the groups cover, or a
 * record that veksUnpackHuffContext_BZ2_8u16u() did not leave with ::vekStatusOk;
 *         ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksDecodeHuff_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits, const uint8_t** ppSrc,
                                   int32_t* pSrcLen, uint16_t* pDst, int32_t* pDstLen,
                                   Bz2HuffDecState* pState);

/**
 * Size in bytes of the work buffer of veksBWTFwd_8u() for a block of `len` bytes, at least 1: the
 * larger of 6 * len + 524484 and 18 * len + 80, both taken as 32-bit values, modulo 2^32. From
 * 119304643 bytes on the second no longer fits one, and up to 357826527 bytes the block is sorted
 * in the first. For longer blocks neither fits: the value means nothing, and the sort refuses them.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksBWTFwdGetSize_8u(int32_t len, int32_t* pSize);

/**
 * Sorts a block's rotations (Burrows and Wheeler, 1994), in near-linear time whatever it holds.
 *
 * @param pSrc     block, `len` bytes, not changed
 * @param pDst     receives the last column of the sorted rotations, `len` bytes; not `pSrc`
 * @param len      at least 1
 * @param pIndex   receives the primary index: row of the unrotated block, the first of equal ones
 * @param pBuffer  work buffer of the size that the query gives, any alignment
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize, also for more than 357826527
 * bytes.
 */
VekStatus veksBWTFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t* pIndex,
                        uint8_t* pBuffer);

/**
 * Size in bytes of the work buffer of veksBWTFwd_SelectSort_8u(): 6 * len + 524484 for methods 0
 * and 1, 18 * len + 80 for method 2, for method 3 the larger as in veksBWTFwdGetSize_8u(). Any
 * other method leaves `*pSize` as it is. Only a length of 0, or for methods 0 to 2 one whose size
 * does not fit an int32_t, is refused.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksBWTFwdGetBufSize_SelectSort_8u(int32_t len, int32_t* pSize, int32_t method);

/**
 * Sorts a block's rotations by a method of the caller's choice. All that succeed give the same
 * column and index.
 *
 * @param pSrc     block, `len` bytes, not changed
 * @param pDst     receives the last column of the sorted rotations, `len` bytes; not `pSrc`
 * @param len      at least 1; blocks below 100 bytes are sorted the same way by every method
 * @param pIndex   receives the primary index: row of the unrotated block, the first of equal ones
 * @param pBuffer  work buffer of the size that the query gives for the method, any alignment
 * @param method   0: a bucket sort that gives up on repetitive blocks; 1: in the least memory;
 *                 2: the general kernel alone, for blocks below 43701 bytes in less memory than the
 *                 others; 3: as veksBWTFwd_8u(). Others do nothing
 * @return ::vekStatusOk; ::vekStatusSortLimit when method 0 gave up: column and index are not
 * valid; ::vekStatusNullPointer; ::vekStatusBadSize.
 */
VekStatus veksBWTFwd_SelectSort_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t* pIndex,
                                   uint8_t* pBuffer, int32_t method);

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
 * A room that ends where a literal run (also an empty one) ends is no error: the result is 0,
 * whatever else the block holds. Who does not know the length of the data tells by a room that is
 * larger than they may be: with 0 and fewer bytes decoded than the room the block is whole. With
 * the room filled, veksDecodeLZ4Dict_8u() tells: at least 8 bytes of a block that goes on are not
 * consumed.
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
 * A search for a match looks at up to 2^(level - 1) candidates. The search for a second match that
 * overlaps one already found looks at the nearest quarter of them. With all of them 10 MB of texts,
 * tables, programs and images take 4 171 620 bytes at level 6 and 4 125 248 at level 9, in place of
 * 4 223 963 and 4 136 332, but 28 % and 18 % more time. One level more gives the like of that for
 * less (level 7: 4 177 560 bytes, 20 % more time than level 6).
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
 * @param level        1 (fast) to 9 (small); 0 and all above mean 9, all below mean 1.
 * @return 0; ::vekStatusDestinationFull when only the last literals did not fit: as many as did are
 *         written and counted as consumed; ::vekStatusDestinationTooSmall when a sequence did not
 *         fit. With both the destination holds a whole block of the consumed bytes, for which the
 *         last sequences may have been taken back. ::vekStatusNullPointer; ::vekStatusBadSize;
 *         ::vekStatusBadArgument for a negative srcIdx.
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

/*
 * LZO1X, the format of the LZO library (M. F. X. J. Oberhumer), in one call a buffer. Lengths are
 * unsigned. The encoder's record is veksEncodeLZOGetSize() bytes, opaque, aligned to 4; it may
 * serve any number of buffers after one Init, one at a time.
 *
 * Container: both decoders also accept up to 32 independent streams behind a small header: byte
 * 0x55, n (1..32), n XOR 0x55, the total expanded length T (32-bit, little-endian), the compressed
 * lengths of all streams but the last, then the streams. Stream k expands to T / n bytes at offset
 * k * (T / n), the last also to the remainder. It is recognised when the header is consistent and
 * the first stream ends in 0x11 0x00 0x00. With n = 1 the word that the decoders check at offset 7
 * already belongs to the stream, so a container of one part may not be recognised as one.
 *
 * **A container states its own length, and the decoders, the checking one too, write that many
 * bytes whatever the capacity. Whoever decodes what he did not encode must ask
 * vekLZOContainerLength() first, and provide that room or refuse.** The encoder's plain streams are
 * never taken for containers; those of others may be, if they begin with a run of 68 literals that
 * were made for it.
 */

/**
 * How many parts the decoders find in a source: 1 to 32 in a container, 0 in a plain stream.
 *
 * @param src the source, `srcLen` bytes; not looked at when there are fewer than 11.
 */
static inline uint32_t vekLZOContainerParts(const uint8_t* src, uint32_t srcLen) {
    uint32_t parts, header, first;
    if (srcLen < 11U || src[0] != 0x55U) return 0U;
    parts = src[1];
    header = 4U * parts + 3U;
    if (parts < 1U || parts > 32U || src[2] != (parts ^ 0x55U) || srcLen < header) return 0U;
    first = src[7] + 0x100U * src[8] + 0x10000U * src[9] + 0x1000000U * src[10];
    if (first > srcLen - header) return 0U;
    src += 4U * parts + first; /* The first part's last three bytes. */
    return src[0] == 0x11U && src[1] == 0U && src[2] == 0U ? parts : 0U;
}

/**
 * How many bytes a container says that it expands to; 0 for a plain stream, which keeps to the
 * capacity. **The decoders write that many bytes, whatever the capacity.**
 *
 * @param src the source, `srcLen` bytes.
 */
static inline uint32_t vekLZOContainerLength(const uint8_t* src, uint32_t srcLen) {
    if (vekLZOContainerParts(src, srcLen) == 0U) return 0U;
    return src[3] + 0x100U * src[4] + 0x10000U * src[5] + 0x1000000U * src[6];
}

/**
 * Room that always suffices to encode `len` bytes as one stream, whatever they are, for every
 * method. Add 16 * n bytes for a container of n parts.
 *
 * @param len the source's length, at most 4042322000.
 */
static inline uint32_t vekLZOEncodeBound(uint32_t len) {
    return len + len / 16 + 128;
}

/**
 * Size of the encoder's record.
 *
 * @param method 0 or 1 (smaller output) or 2 (faster).
 * @param maxInputLen not used.
 * @param pSize receives 131096; 0 for another method.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadArgument for another method.
 */
VekStatus veksEncodeLZOGetSize(int32_t method, uint32_t maxInputLen, uint32_t* pSize);

/**
 * Prepares a record: stores the method (1 becomes 0) and clears the match finder's table.
 *
 * A record whose first 32-bit word the caller then sets to 1, and whose second to n, 1..32, makes
 * veksEncodeLZO_8u() write a container of n parts of equal slices (the remainder in the last).
 *
 * @param method 0, 1 or 2; see veksEncodeLZOGetSize().
 * @param maxInputLen not used.
 * @param pState the record.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadArgument for another method (the
 * record is then untouched).
 */
VekStatus veksEncodeLZOInit_8u(int32_t method, uint32_t maxInputLen, void* pState);

/**
 * Compresses a buffer into one LZO1X stream that ends in 0x11 0x00 0x00.
 *
 * The capacity bounds what the match finder writes, and the literals behind the last match. **All
 * methods may write a few bytes beyond a capacity that is too small by so many:** that last run's
 * header (at most 2 + t / 255 bytes for t literals) and the end instruction (3 bytes) are written
 * without a look at the capacity, for each part of a container anew. Give vekLZOEncodeBound()
 * bytes, or have 5 + capacity / 255 bytes more behind the capacity you state, and 6 for each part.
 *
 * A first run of 68 literals takes one byte more where decoders would take the stream for a
 * container.
 *
 * @param src the data, `srcLen` bytes.
 * @param srcLen 0 writes nothing, not even an end instruction.
 * @param dst receives the stream; must not overlap `src`.
 * @param pDstLen in: the capacity of `dst`; out: the bytes written.
 * @param pState a prepared record. What its table holds from earlier buffers can change the output
 * but not its correctness.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusBadArgument for a record with an
 * unknown method or part count; ::vekStatusDestinationFull when room ran out: `*pDstLen` bytes are
 * then whole instructions without an end, which decode to the beginning of the data.
 */
VekStatus veksEncodeLZO_8u(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen,
                           void* pState);

/**
 * Expands a stream or container that the caller trusts. Nothing outside `src` and the capacity is
 * written, nor read when the stream is good; distances are not checked, so a broken stream can make
 * it read before `dst`. It stops at the end instruction, at the end of the source, and at the
 * capacity.
 *
 * @param src the stream or container, `srcLen` bytes; 0 bytes expand to nothing.
 * @param srcLen bytes at `src`.
 * @param dst receives the data; must not overlap `src`. For a container it must hold all T bytes:
 * the capacity is then not looked at.
 * @param pDstLen in: the capacity of `dst`; out: the bytes written.
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusLzoBrokenStream only for a container
 * whose part lengths pass the source.
 */
VekStatus veksDecodeLZO_8u(const uint8_t* src, uint32_t srcLen, uint8_t* dst, uint32_t* pDstLen);

/**
 * Expands a stream or container of any origin: as veksDecodeLZO_8u(), but reports whatever is
 * wrong. **A container is written to its own length, whatever the capacity: for a source that is
 * not trusted provide vekLZOContainerLength() bytes, or refuse those where it is above the
 * capacity.**
 *
 * Bytes behind the end instruction are ignored. A stream may also end without one, behind a run of
 * 4 or more literals.
 *
 * @param src,srcLen,dst,pDstLen as for veksDecodeLZO_8u().
 * @return ::vekStatusOk; ::vekStatusNullPointer; ::vekStatusLzoBrokenStream when the stream reads
 * past the source, writes past the capacity or reaches before the data. A plain stream then leaves
 *         `*pDstLen` alone, with what was decoded in `dst`; a container decodes every part, counts
 * 0 for broken ones in `*pDstLen`, and has the status of the last that is broken.
 */
VekStatus veksDecodeLZOSafe_8u(const uint8_t* src, uint32_t srcLen, uint8_t* dst,
                               uint32_t* pDstLen);

/* (LZO end) */

/* ------------------------------------------------------------------------------------------------
 * LZSS
 * --------------------------------------------------------------------------------------------- */

/*
 * LZSS: a stream of tokens, most significant bit first, without header, length or end mark.
 *
 *     literal   9 bits: 1, the byte
 *     match    24 bits: 0, distance (15 bits, 1..32767), length - 3 (8 bits)
 *
 * The last byte is filled up with zero bits, which no decoder takes for a token. The format holds
 * no length and no checksum, and every bit pattern decodes to something: frame it yourself.
 *
 * All of it is resumable: input and room may be cut anywhere. One record of veksLZSSGetSize_8u()
 * bytes, aligned as a pointer, serves either direction; each Init starts a new stream. It holds
 * pointers into itself and must not be moved. Streams may be of any length.
 */

/**
 * Room that always suffices to encode `len` bytes in one call and a flush.
 *
 * @param len the source's length, at most 1908874000.
 */
static inline int32_t vekLZSSEncodeBound(int32_t len) {
    return len + len / 8 + 16;
}

/**
 * Size of a record for either direction.
 *
 * @param pSize receives the size in bytes: 327724 on 32-bit x86.
 * @return ::vekStatusOk; ::vekStatusNullPointer.
 */
VekStatus veksLZSSGetSize_8u(int32_t* pSize);

/**
 * Prepares a record to encode a stream.
 *
 * @return ::vekStatusOk; ::vekStatusNullPointer.
 */
VekStatus veksEncodeLZSSInit_8u(void* pState);

/**
 * Encodes input. Matches may reach 32767 bytes back into earlier calls' input; the last two bytes
 * of a call are always literals, so longer calls compress better.
 *
 * @param ppSrc,pSrcLen the input; advanced past what was consumed.
 * @param ppDst,pDstLen the room; advanced past the whole bytes written. Up to 46 bits stay in the
 *        record.
 * @param pState a prepared record.
 * @return ::vekStatusOk when all input was consumed; ::vekStatusDestinationFull when the room was
 * or became full, also by the very last token; ::vekStatusNullPointer. No room (also a negative
 *         one) is reported before input is looked at, no input returns ::vekStatusOk.
 */
VekStatus veksEncodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                            int32_t* pDstLen, void* pState);

/**
 * Writes the bits that await a whole byte, filled up with zero bits, at the end of a stream. After
 * ::vekStatusOk the record is to be prepared anew before it encodes again.
 *
 * @param ppDst,pDstLen the room, at least 1 byte; advanced.
 * @param pState the record.
 * @return ::vekStatusOk; ::vekStatusDestinationFull when the room became full, also by the last
 * byte: call again; ::vekStatusNullPointer; ::vekStatusBadSize for no room.
 */
VekStatus veksEncodeLZSSFlush_8u(uint8_t** ppDst, int32_t* pDstLen, void* pState);

/**
 * Prepares a record to decode a stream.
 *
 * @return ::vekStatusOk; ::vekStatusNullPointer.
 */
VekStatus veksDecodeLZSSInit_8u(void* pState);

/**
 * Decodes tokens until input or room ends. A match that the room cuts is finished by the next call.
 * A distance beyond what was produced reads whatever the record holds, nothing outside it.
 *
 * @param ppSrc,pSrcLen the input; advanced past the bytes of whole tokens, and of a last token that
 *        awaits more. A length below 1 is no input.
 * @param ppDst,pDstLen the room, at least 1 byte; advanced past what was written.
 * @param pState a prepared record.
 * @return ::vekStatusOk when the input is exhausted; ::vekStatusDestinationFull when the room is
 * full;
 *         ::vekStatusNullPointer; ::vekStatusBadSize for no room.
 */
VekStatus veksDecodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                            int32_t* pDstLen, void* pState);

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
 * returns ::vekStatusStateMismatch for a record that no Init prepared. A record may be copied as
 * bytes: the copy goes on, in the same buffer, from where the record stood.
 *
 * Four numbers govern a stream, and the decoder must be set to the encoder's: a block takes at
 * least minBits and at most maxBits bits (both equal: a fixed rate, so that blocks stand at known
 * places), keeps at most maxPrec bit planes, and drops planes below 2^minExp.
 *
 * The method does not preserve infinities and NaNs: a block that holds one decodes to some values,
 * and its neighbours are not disturbed.
 *
 * Values below 2^-97 may come back as 0: a block's values are integers times 2^(e - 30), where 2^e
 * is the power of two above its largest magnitude, and for that scale the decoder takes normal
 * floats (2^-126 and above) or 0. So a block without a magnitude of 2^-97 or more decodes to zeros;
 * in others such values keep the bits that the block's precision gives them.
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
 * Prepares a record to write into a buffer, with minBits 0, maxBits 4171, maxPrec 64 and minExp
 * -10740: every plane of every value is kept.
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

/** Bits written so far, those that are held in the record included. Arguments and results likewise.
 */
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
 *         word would pass the end: the words that fitted are stored, and the stream cannot go on.
 * Up to 304 bytes behind the stream, never behind the buffer's end, may have been overwritten.
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
 * @return ::vekStatusOk, ::vekStatusNullPointer, ::vekStatusStateMismatch; ::vekStatusNoRoom when
 * the stream ends inside the block: the position is then the end, and the block is not written (a
 * zero block whose padding is cut short is).
 */
VekStatus veksDecodeZfp444_32f(ZfpState* pState, float* pDst, int32_t dstStep,
                               int32_t dstPlaneStep);

/* (ZFP end) */

#ifdef __cplusplus
}
#endif

#endif /* VEKDC_H */
