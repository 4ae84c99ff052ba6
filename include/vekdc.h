/**
 * @file vekdc.h
 * @brief vekDC: the stages of well-known compression formats as plain functions.
 *
 * Every function works on buffers and records that the caller owns. The library never allocates,
 * starts no thread, takes no lock, keeps no state and prints nothing. Any number of threads may
 * call it at once, each on records and buffers of its own.
 *
 * Conventions
 * - Every function but vekdcGetLibVersion() returns a ::VekStatus: 0 is success, a negative value
 *   is an error, a positive value is a warning after which the caller may go on.
 * - Arguments are checked before anything is touched, in this order: null pointers
 *   (::vekStatusNullPointer), sizes (::vekStatusBadSize), then everything else. A refused call
 *   leaves every output as it was, unless the function says otherwise.
 * - Lengths count bytes and are signed 32-bit numbers, unless the function says otherwise.
 * - Parameters: `pX` points to X, `ppX` to a pointer that the call moves, `xLen` is a length,
 *   `xIdx` an index. A function that is called once for its data takes the room of the output in
 *   `*pDstLen` and leaves the number of bytes written there. A function that can stop and go on
 *   moves `*ppSrc` and `*ppDst` and lowers the lengths beside them, so that the next call goes on
 *   where this one stopped.
 * - Names end in the types of the elements: `8u` unsigned bytes, `16u` unsigned 16-bit numbers,
 *   `32f` floats; two types are input and output; `_I` works in place.
 * - Buffers of one call must not overlap, unless the function says that they may.
 *
 * What the processor must have: AVX, SSE4.2 and POPCNT, and a system that saves the AVX registers
 * (the library does not check this when it is loaded). Wider or further instructions (carry-less
 * multiplication, AVX2, BMI2, AVX-512) are used where processor and system have them; the results
 * are the same with and without.
 *
 * Alignment: a pointer to a C type is aligned as the compiler aligns that type, and what a pointer
 * to bytes or to void must be aligned to is in this list. What malloc() returns is good for all.
 *
 *     plain bytes (8u), work buffers of the block sort          any address
 *     VekMtfState                                               any address
 *     VekHuffEntry, 16u symbols and distances                   2
 *     head and chain tables of deflate, counters, VekBz2RleState,
 *     VekBz2HuffDecState, tables of LZ4, record of LZO,
 *     VekZfpState, floats                                       4
 *     VekInflateState, VekBz2HuffEncState, record of LZSS       4 in 32-bit programs, 8 in 64-bit
 *
 * --- Deflate (RFC 1951): one block with a Huffman code of its own, from n source bytes ---
 *
 *     source[n]
 *       |  veksDeflateLZ77_8u()      match: window[winSize] of uint8_t; head[hashSize] and
 *       |                            chain[winSize] of int32_t, all entries -32768 before the
 *       |                            stream; 32768 is a good value for both sizes
 *       v
 *     pairs: lits[n] of uint8_t, dists[n] of uint16_t       (never more pairs than source bytes)
 *     counts: lit[286], dist[30] of VekHuffEntry, all 0 before the block
 *       |  lit[256].code = 1         the caller counts the end-of-block symbol, once
 *       |  veksDeflateLZ77FastestGenHuffTable_8u()     codes: the counts become codes, in place
 *       |  veksDeflateLZ77FastestGenHeader_8u()        header: VEK_DEFLATE_HEADER_BOUND bytes
 *       |  veksDeflateHuff_8u()      coder: the pairs, up to vekDeflateHuffBound(pairs) bytes
 *       |  the code of symbol 256    put behind the pairs by the caller: lit[256].length bits of
 *       v                            lit[256].code, lowest bit first
 *     a block. Bits fill each byte from its lowest bit on, and blocks follow each other bit by bit.
 *
 * The first bit of the header says "last block": clear it (`header[0] &= 0xFE`) in all others. Its
 * last, incomplete byte is where the coder goes on: with b bits of header, `*pDstIdx` is b / 8,
 * `*pCodeLenBits` is b % 8 and `*pCode` is the value of that byte (0 when b % 8 is 0). When the
 * block does not begin at a whole byte, the caller puts the header's bits behind the others first.
 * The stream's last byte is filled up with zero bits.
 *
 * Faster and larger: veksDeflateLZ77FastestGetStat_8u() counts and veksDeflateLZ77Fastest_8u()
 * matches and codes in one pass, into vekDeflateFastestBound(n) bytes, with codes made as above or
 * those of veksDeflateLZ77FastestPrecompHeader_8u(), which need no counting.
 *
 * Files: gzip (RFC 1952) is the ten bytes 1F 8B 08 00 00 00 00 00 00 FF, the blocks, the
 * veksCRC32_8u() of the source (start: 0) and n modulo 2^32, both as 4 bytes, lowest first. zlib
 * (RFC 1950) is 78 9C, the blocks and the veksAdler32_8u() of the source (start: 1) as 4 bytes,
 * highest first.
 *
 * --- Inflate: the way back, block by block ---
 *
 *     bits of the stream, lowest bit of each byte first, in a bit buffer: codeLenBits bits of
 *       |                            code, the next one lowest
 *       |  the caller takes 1 bit: last block; 2 bits: type, 0 stored, 1 fixed code, 2 dynamic
 *       |  stored: the caller skips to a whole byte, takes 16 bits of length and 16 of its
 *       |           complement, and copies the bytes; those in the bit buffer come first
 *       |  fixed: the caller sets VekInflateState.tableKind = 0
 *       |  dynamic: the caller reads the code lengths (RFC 1951, 3.2.7) into uint16_t[288 + 32],
 *       |           and veksInflateBuildHuffTable() makes the tables
 *       |  veksInflate_8u()          until `*pMode` is 0; history is what was written before, in
 *       v                            the output buffer or in a circular window of 32768 bytes
 *     output bytes
 *
 * --- Bzip2: a stream ---
 *
 * Bits fill each byte from its highest bit on; numbers are written highest bit first.
 *
 *     bytes   'B' 'Z' 'h' and the level, '1' to '9': a block holds up to level * 100000 bytes
 *             (after run-length coding; encoders leave the last 19 of them unused)
 *     block   48 bits 0x314159265359; 32 bits CRC of the block's plain bytes, veksCRC32_BZ2_8u()
 *             from 0 on; 1 bit 0; 24 bits primary index;
 *             the values in use: 16 bits, the highest for the values 0..15, the next for 16..31 and
 *             so on, 1 where any of the sixteen is in use; for each 1, 16 bits for the sixteen
 *             values, the highest for the lowest value;
 *             description of the code tables; symbols
 *     ...     further blocks, each from the next bit on
 *     end     48 bits 0x177245385090; 32 bits CRC of the stream: 0, and then for each block
 *             crc = (crc << 1 | crc >> 31) ^ the block's CRC; zero bits up to a whole byte
 *
 * Encoding a block, with max = level * 100000:
 *
 *     source
 *       |  veksEncodeRLE_BZ2_8u()          run-length: runs[max], fill up to max - 19 bytes;
 *       |                                  VekBz2RleState, after veksEncodeRLEInit_BZ2_8u().
 *       |                                  Where *ppSrc stops, the block's plain bytes end
 *       |  veksEncodeRLEFlush_BZ2_8u()     0 or 1 byte more, behind the others
 *       |  veksRLEGetInUseTable_8u()       inUse[256]
 *     block of len bytes
 *       |  veksBWTFwd_8u()                 sort: column[len], primary index; work buffer of
 *       |                                  veksBWTFwdGetSize_8u() bytes
 *       |  veksReduceDictionary_8u_I()     dictionary: column in place; `size` values in use
 *       |  veksMTFFwd_8u()                 move-to-front: column in place; VekMtfState, after
 *       |                                  veksMTFInit_8u()
 *       |  veksEncodeZ1Z2_BZ2_8u16u()      zero runs: symbols[len + 1] of uint16_t with a room of
 *       |                                  len; frequencies freq[258] of uint32_t, 0 before
 *       |  symbols[count++] = size + 1     the caller adds the end of block, and counts it:
 *       |                                  freq[size + 1] = 1
 *       |  veksEncodeHuffInit_BZ2_16u8u()  Huffman tables for an alphabet of size + 2; record of
 *       |                                  veksEncodeHuffGetSize_BZ2_16u8u(count) bytes
 *       |  the caller writes the block's header down to the values in use
 *       |  veksPackHuffContext_BZ2_16u8u() the description of the tables
 *       |  veksEncodeHuff_BZ2_16u8u()      the symbols; with header and description at most
 *       v                                  count * 9 / 4 + 8192 bytes
 *     bits
 *
 * The last two functions and the caller share a bit accumulator: `code` holds `codeLenBits` pending
 * bits from bit 31 down, the others 0. To put `bits` bits of a value (1 to 24, at most 7 pending):
 *
 *     code |= value << (32 - bits) >> codeLenBits;
 *     for (codeLenBits += bits; codeLenBits >= 8; codeLenBits -= 8, code <<= 8)
 *         *out++ = (uint8_t)(code >> 24);
 *
 * The way back: the caller reads the header through the same kind of accumulator, and takes `bits`
 * bits (1 to 24) like this:
 *
 *     for (; codeLenBits < bits; codeLenBits += 8) code |= (uint32_t)*in++ << (24 - codeLenBits);
 *     value = code >> (32 - bits), code <<= bits, codeLenBits -= bits;
 *
 *     bits
 *       |  veksDecodeHuffInit_BZ2_8u16u()  alphabet of size + 2; record of
 *       |                                  veksDecodeHuffGetSize_BZ2_8u16u(32767 * 50) bytes
 *       |  veksUnpackHuffContext_BZ2_8u16u()
 *       |  veksDecodeHuff_BZ2_8u16u()      symbols[max + 1] of uint16_t; gives count
 *       |  veksDecodeBlock_BZ2_16u8u()     zero runs, move-to-front, dictionary and sort at once:
 *       |                                  block[max], work buffer of
 *       |                                  veksDecodeBlockGetSize_BZ2_8u(max) bytes. Or one by one:
 *       |                                  veksDecodeZ1Z2_BZ2_16u8u(), veksMTFInv_8u(),
 *       |                                  veksExpandDictionary_8u_I(), veksBWTInv_8u()
 *       |  veksDecodeRLEState_BZ2_8u(),    run-length: output, any room at a time; VekBz2RleState,
 *       |  veksDecodeRLEStateFlush_BZ2_8u() after veksDecodeRLEStateInit_BZ2_8u()
 *       v  veksCRC32_BZ2_8u()              over the output: the block's CRC
 *     plain bytes
 *
 * --- The others ---
 *
 *     LZ4    veksEncodeLZ4_8u(): vekLZ4EncodeBound(n) bytes, hash table of 16384 bytes;
 *            back with veksDecodeLZ4_8u(). Both have forms with history, and one for small output.
 *     LZO    veksEncodeLZOGetSize(), veksEncodeLZOInit_8u(), veksEncodeLZO_8u():
 *            vekLZOEncodeBound(n) bytes, record of 131096 bytes; back with veksDecodeLZOSafe_8u().
 *     LZSS   veksLZSSGetSize_8u(), veksEncodeLZSSInit_8u(), veksEncodeLZSS_8u() for each piece,
 *            veksEncodeLZSSFlush_8u(): vekLZSSEncodeBound(n) bytes; back with
 *            veksDecodeLZSSInit_8u() and veksDecodeLZSS_8u().
 *     ZFP    veksEncodeZfpInit_32f(), a Set function, veksEncodeZfp444_32f() for each 4 x 4 x 4
 *            floats, veksEncodeZfpFlush_32f(): a block takes at most 2153 bits (or minBits, if
 *            that is more), the stream is rounded up to 8 bytes; back with the Decode functions
 *            of the same names and the same numbers.
 *
 * A whole program for each family is in the folder examples/.
 */
#ifndef VEKDC_H
#define VEKDC_H

#include <stddef.h>
#include <stdint.h>

/** The release that this header belongs to, as numbers. */
#define VEKDC_VERSION_MAJOR 10
#define VEKDC_VERSION_MINOR 0 /**< See ::VEKDC_VERSION_MAJOR. */
#define VEKDC_VERSION_PATCH 0 /**< See ::VEKDC_VERSION_MAJOR. */

/** One number that grows with each release, for `#if VEKDC_VERSION >= 100000` (10.0.0). */
#define VEKDC_VERSION \
    (VEKDC_VERSION_MAJOR * 10000 + VEKDC_VERSION_MINOR * 100 + VEKDC_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------
 * Status codes and version
 * --------------------------------------------------------------------------------------------- */

/**
 * @defgroup vekdc_status Statuses and version
 * @{
 */

/** Result of every function but the version query. */
typedef int32_t VekStatus;

enum {
    /** Success. */
    vekStatusOk = 0,
    /** A Huffman code could not be brought within its length limit, or the system does not tell. */
    vekStatusFailure = -1,
    /** Malformed input, or a state record in an impossible phase. */
    vekStatusError = -2,
    /** The ZFP bit stream has no room, or no bits, left. */
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
    /** The LZO stream or container is broken. */
    vekStatusLzoBrokenStream = -214,
    /** The input ended inside a unit; call again with more. */
    vekStatusSourceIncomplete = 32,
    /** The room for output ran out; call again with more. */
    vekStatusDestinationFull = 33,
    /** The block sort with a budget gave up; use another method. */
    vekStatusSortLimit = 47,
    /** The high-compression encoder met the end of the destination. */
    vekStatusDestinationTooSmall = 48
};

/**
 * A short plain text for a status, for messages.
 *
 * @param[in] status any value.
 * @retval "unknown status" the value is none of the statuses above.
 * @retval others a constant text in lower case, without a full stop; a different one each.
 */
static inline const char* vekStatusText(VekStatus status) {
    switch (status) {
        case vekStatusOk:
            return "success";
        case vekStatusFailure:
            return "failure";
        case vekStatusError:
            return "malformed input or state";
        case vekStatusNoRoom:
            return "bit stream exhausted";
        case vekStatusBadArgument:
            return "argument out of its domain";
        case vekStatusBadSize:
            return "size out of range";
        case vekStatusNullPointer:
            return "null pointer";
        case vekStatusStateMismatch:
            return "state record not prepared";
        case vekStatusOutOfRange:
            return "acceleration out of range";
        case vekStatusSourceDataError:
            return "corrupt input";
        case vekStatusLzoBrokenStream:
            return "broken LZO stream";
        case vekStatusSourceIncomplete:
            return "more input needed";
        case vekStatusDestinationFull:
            return "output full";
        case vekStatusSortLimit:
            return "block too repetitive for this sort";
        case vekStatusDestinationTooSmall:
            return "output too small";
        default:
            return "unknown status";
    }
}

/** What vekdcGetLibVersion() points to. Aligned as a pointer. */
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
 * The version of the library that the program runs with. It counts years and
 * revisions; the release of this header is ::VEKDC_VERSION.
 *
 * @retval pointer a constant record, the same on every call; never null, never to be changed or
 *         freed.
 */
const VekLibraryVersion* vekdcGetLibVersion(void);

/** @} */

/* ------------------------------------------------------------------------------------------------
 * Checksums
 * --------------------------------------------------------------------------------------------- */

/**
 * @defgroup vekdc_checksum Checksums
 * @{
 */

/**
 * CRC-32 of zlib, gzip and many others (RFC 1952): polynomial 0x04C11DB7, lowest bit first.
 *
 * The running value is the finished CRC of all data so far: start with 0, and pass the value back
 * with each further piece. Pieces may be cut anywhere.
 *
 * @param[in]     pSrc the data, len bytes.
 * @param[in]     len  number of bytes, at least 1.
 * @param[in,out] pCRC the running value; a refused call leaves it as it was.
 * @retval vekStatusOk          The data are added.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len is below 1.
 */
VekStatus veksCRC32_8u(const uint8_t* pSrc, int32_t len, uint32_t* pCRC);

/**
 * CRC-32 of bzip2: polynomial 0x04C11DB7, highest bit first; the register starts with all bits set
 * and is complemented at the end.
 *
 * The running value is the finished CRC of all data so far: start with 0, and pass the value back
 * with each further piece. Pieces may be cut anywhere.
 *
 * @param[in]     pSrc the data, len bytes.
 * @param[in]     len  number of bytes, at least 1.
 * @param[in,out] pCRC the running value; a refused call leaves it as it was.
 * @retval vekStatusOk          The data are added.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len is below 1.
 */
VekStatus veksCRC32_BZ2_8u(const uint8_t* pSrc, int32_t len, uint32_t* pCRC);

/**
 * CRC-32C, the Castagnoli CRC of iSCSI, ext4 and others (RFC 3720): polynomial 0x1EDC6F41, lowest
 * bit first.
 *
 * The running value is the raw register: unlike in the other CRCs it is never complemented here.
 * For the standard CRC-32C start with 0xFFFFFFFF, pass the value back with each further piece, and
 * complement the last one.
 *
 * @param[in]     pSrc the data, len bytes.
 * @param[in]     len  number of bytes, 1 to 2^32 - 1.
 * @param[in,out] pCRC the running value; a refused call leaves it as it was.
 * @retval vekStatusOk          The data are added.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len is 0.
 */
VekStatus veksCRC32C_8u(const uint8_t* pSrc, uint32_t len, uint32_t* pCRC);

/**
 * Adler-32 of zlib (RFC 1950): A, which is 1 plus the sum of all bytes, in the low 16 bits; B, the
 * sum of all values of A, in the high 16 bits; both modulo 65521.
 *
 * Start with 1, and pass the value back with each further piece.
 *
 * @param[in]     pSrc the data, len bytes. When it is null the value becomes 1, the sum of
 *                     nothing, whatever len is.
 * @param[in]     len  number of bytes. With 0 or less nothing is added, but both halves of the
 *                     value are still reduced modulo 65521.
 * @param[in,out] pSum the running value.
 * @retval vekStatusOk          The data are added.
 * @retval vekStatusNullPointer pSum is null.
 */
VekStatus veksAdler32_8u(const uint8_t* pSrc, int32_t len, uint32_t* pSum);

/** @} */

/* ------------------------------------------------------------------------------------------------
 * Deflate: match finding
 * --------------------------------------------------------------------------------------------- */

/**
 * @defgroup vekdc_deflate Deflate
 * @{
 */

/**
 * One symbol's entry in a literal/length table (286 symbols) or a distance table (30 symbols).
 *
 * The match finder counts in it how often the symbol occurs, the code generator puts the symbol's
 * code there instead. 4 bytes, aligned to 2.
 */
typedef struct VekHuffEntry {
    /** While matches are found: the count's low half. Afterwards: the code, its first bit in bit
     *  0. */
    uint16_t code;
    /** While matches are found: the count's high half. Afterwards: the code's length in bits. */
    uint16_t length;
} VekHuffEntry;

/**
 * Finds back-references in the source (the LZ77 stage of RFC 1951) at one of 30 levels.
 *
 * Writes one pair for each literal or match into two parallel arrays:
 *
 *     pair     pLitDst[i]                  pDistDst[i]
 *     literal  the byte                    0
 *     match    length - 3 (length 3..258)  distance, 1 .. winSize - 1
 *
 * (the greedy levels know no length below 4) and counts them in the two frequency tables: a
 * literal by its value, a match by 257 + its length code and by its distance code. A count is an
 * entry's two halves as one 32-bit number. Counts are added to what the tables hold, so the caller
 * clears all entries before each block. The end-of-block symbol is not counted. Up to 80 KiB of
 * stack are used.
 *
 * The match state belongs to the caller: window, head table and chain table. Position p of the
 * stream stands at `pWindow[p & (winSize - 1)]`.
 * - To begin a stream, set all entries of both tables to -32768 or less (0 works as well: whatever
 *   entry is found is verified before it is used) and `*pSrcIdx` to 0. Then call for one piece of
 *   the source after another; pieces may have any size. To begin with a history, see
 *   veksDeflateDictionarySet_8u() and veksDeflateUpdateHash_8u().
 * - Source bytes are read from the source. When a call ends, it stores the bytes that it consumed
 *   (the last winSize of them) in the window.
 * - What the tables do not name is not history, whatever the window holds: set all their entries to
 *   -32768 at any position (a full flush), and what follows decodes without what came before.
 * - The matches found depend on what the tables hold. The pairs give back the source whatever they
 *   hold.
 *
 * A caller may put the call's whole source into the window beforehand, or pass a source that lies
 * there; the history that this overwrites is then left alone. (Of a source longer than the window:
 * its last winSize bytes, and the room for pairs must be no less than the source bytes.) As many of
 * the source's first bytes count as placed as stand there. So that data which repeats itself at the
 * window's length is not taken for placed, a call whose source lies elsewhere ends by inverting the
 * byte where the next source would begin, `pWindow[*pSrcIdx & (winSize - 1)]`: it is a whole window
 * back, out of reach of every match. A caller who fills the whole window with a history of its own,
 * and does not place its sources, does well to do the same before the first call.
 *
 * Every call goes on until the source is used up or the room for pairs is full. No byte is held
 * back, and a match never reaches beyond the source of its call.
 *
 * Positions never overflow. When 2 * `*pSrcLen` + winSize + `*pSrcIdx` reaches 0x7FFFFFFF and
 * `*pSrcIdx` is greater than winSize, the state is moved down before matching: `*pSrcIdx` becomes
 * winSize, the entries of both tables are lowered by the same shift (to no less than -32768), and
 * the window and the chain table are rotated by the shift modulo winSize.
 *
 * @param[in,out] ppSrc          next source byte.
 * @param[in,out] pSrcLen        source bytes left, at least 0.
 * @param[in,out] pSrcIdx        position of the next source byte, at least 0.
 * @param[in,out] pWindow        window, winSize bytes: the history before the source.
 * @param[in]     winSize        window size, a power of two, 256..32768. (Other sizes within these
 *                               bounds are safe to pass, but the window is then of no use: the
 *                               pairs need not give back the source.)
 * @param[in,out] pHashHead      head table, hashSize entries: the latest position of each hash.
 * @param[in,out] pHashPrev      chain table, winSize entries: for each position, masked, the one
 *                               before it with the same hash.
 * @param[in]     hashSize       entries of the head table, a power of two, 256..65536.
 * @param[in,out] pLitFreqTable  counts of literals and lengths, 286 entries.
 * @param[in,out] pDistFreqTable counts of distances, 30 entries.
 * @param[out]    pLitDst        literals and lengths, room for `*pDstLen` elements.
 * @param[out]    pDistDst       distances, room for `*pDstLen` elements.
 * @param[in,out] pDstLen        room left in the two arrays, lowered by the pairs written.
 * @param[in]     comprLevel     0..29. The units digit is the effort: 0 makes literals only, 1..4
 *                               are greedy (veksDeflateLZ77Fast_8u()), 5..9 lazy
 *                               (veksDeflateLZ77Slow_8u()). The tens digit chooses between three
 *                               tunings of that scale.
 * @param[in]     flush          2 and above: the stream ends with this source. Below 2: more
 *                               follows. Either way the call uses all of its source, and may be
 *                               followed by another. The last three positions need the next bytes
 *                               to be hashed, so the next call, if there is one, enters them when
 *                               it starts. Until then the chain table may name such a position as
 *                               its own predecessor.
 * @retval vekStatusOk          Done; `*pSrcLen` is 0 unless the room for pairs ran out.
 * @retval vekStatusNullPointer A pointer, or `*ppSrc`, is null.
 * @retval vekStatusBadSize     comprLevel is above 29 (checked before anything else), winSize or
 *                              hashSize is out of range, or `*pSrcLen` or `*pSrcIdx` is negative.
 */
VekStatus veksDeflateLZ77_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                             uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                             int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                             VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                             uint32_t* pDstLen, uint32_t comprLevel, uint32_t flush);

/**
 * The greedy matcher: it takes at each position the longest match that its search finds. It works
 * as veksDeflateLZ77_8u(), but with four numbers of the caller's choice in place of a level:
 * - maxChain: how many candidates a search looks at; 0 makes literals only;
 * - goodLength: once the match found is this long, the search looks at a quarter of maxChain
 *   candidates in all (of the value given, however long chains are);
 * - niceLength: a match this long ends the search;
 * - maxInsert: the positions inside a match enter the tables if the match is at most this long.
 *
 * @param[in,out] ppSrc          next source byte.
 * @param[in,out] pSrcLen        source bytes left, at least 0.
 * @param[in,out] pSrcIdx        position of the next source byte, at least 0.
 * @param[in,out] pWindow        window, winSize bytes.
 * @param[in]     winSize        a power of two, 256..32768.
 * @param[in,out] pHashHead      head table, hashSize entries.
 * @param[in,out] pHashPrev      chain table, winSize entries.
 * @param[in]     hashSize       a power of two, 256..65536.
 * @param[in,out] pLitFreqTable  counts of literals and lengths, 286 entries.
 * @param[in,out] pDistFreqTable counts of distances, 30 entries.
 * @param[out]    pLitDst        literals and lengths, room for `*pDstLen` elements.
 * @param[out]    pDistDst       distances, room for `*pDstLen` elements.
 * @param[in,out] pDstLen        room left in the two arrays, lowered by the pairs written.
 * @param[in]     pParams        the four numbers: maxChain at least 0, the others at least 4 (any
 *                               value when maxChain is 0).
 * @param[in]     flush          2 and above: the stream ends with this source; below 2: more
 *                               follows.
 * @retval vekStatusOk          Done; `*pSrcLen` is 0 unless the room for pairs ran out.
 * @retval vekStatusNullPointer A pointer, or `*ppSrc`, is null.
 * @retval vekStatusBadSize     winSize or hashSize is out of range, or `*pSrcLen` or `*pSrcIdx` is
 *                              negative.
 * @retval vekStatusBadArgument maxChain is negative, or is positive and another value is below 4.
 */
VekStatus veksDeflateLZ77Fast_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                                 uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                                 int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                                 VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                                 uint32_t* pDstLen, const int32_t* pParams, uint32_t flush);

/**
 * The lazy matcher: before it takes a match it looks for a better one at the next position, and if
 * there is one, makes the byte before it a literal. It works as veksDeflateLZ77_8u(), but with four
 * numbers of the caller's choice in place of a level:
 * - maxChain, goodLength, niceLength: as in veksDeflateLZ77Fast_8u(); moreover, when the match in
 *   hand is at least goodLength long, the search at the next position looks at a quarter of
 *   maxChain candidates;
 * - maxLazy: the next position is searched only if the match in hand is shorter than this.
 *
 * Which candidates a search looks at, and so which matches it finds, is its own choice and may
 * change. In data of many different byte values it makes matches of three bytes too.
 *
 * @param[in,out] ppSrc          next source byte.
 * @param[in,out] pSrcLen        source bytes left, at least 0.
 * @param[in,out] pSrcIdx        position of the next source byte, at least 0.
 * @param[in,out] pWindow        window, winSize bytes.
 * @param[in]     winSize        a power of two, 256..32768.
 * @param[in,out] pHashHead      head table, hashSize entries.
 * @param[in,out] pHashPrev      chain table, winSize entries.
 * @param[in]     hashSize       a power of two, 256..65536.
 * @param[in,out] pLitFreqTable  counts of literals and lengths, 286 entries.
 * @param[in,out] pDistFreqTable counts of distances, 30 entries.
 * @param[out]    pLitDst        literals and lengths, room for `*pDstLen` elements.
 * @param[out]    pDistDst       distances, room for `*pDstLen` elements.
 * @param[in,out] pDstLen        room left in the two arrays, lowered by the pairs written.
 * @param[in]     pParams        the four numbers: maxChain at least 0, the others at least 4 (any
 *                               value when maxChain is 0).
 * @param[in]     flush          2 and above: the stream ends with this source; below 2: more
 *                               follows.
 * @retval vekStatusOk          Done; `*pSrcLen` is 0 unless the room for pairs ran out.
 * @retval vekStatusNullPointer A pointer, or `*ppSrc`, is null.
 * @retval vekStatusBadSize     winSize or hashSize is out of range, or `*pSrcLen` or `*pSrcIdx` is
 *                              negative.
 * @retval vekStatusBadArgument maxChain is negative, or is positive and another value is below 4.
 */
VekStatus veksDeflateLZ77Slow_8u(const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                                 uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                                 int32_t* pHashPrev, uint32_t hashSize, VekHuffEntry* pLitFreqTable,
                                 VekHuffEntry* pDistFreqTable, uint8_t* pLitDst, uint16_t* pDistDst,
                                 uint32_t* pDstLen, const int32_t* pParams, uint32_t flush);

/**
 * Enters positions into the match state without encoding them: history that later source bytes may
 * refer to. The caller puts the same bytes into the window.
 *
 * The last 3 positions (2 in mode 0) lack the bytes to hash and are not entered.
 *
 * @param[in]     pSrc      the bytes, srcLen of them.
 * @param[in]     srcIdx    position of the first.
 * @param[in]     srcLen    number of bytes; below 4 (3 in mode 0), also negative, nothing is done.
 * @param[in,out] pHashHead head table, hashSize entries.
 * @param[in]     hashSize  256..65536, a power of two.
 * @param[in,out] pHashPrev chain table, winSize entries; not written in mode 0.
 * @param[in]     winSize   256..32768, a power of two.
 * @param[in]     hashMode  not 0: the matchers' hash of 4 bytes, head and chain tables. 0: a
 *                          rolling hash of 3 bytes, h = (h << 5 ^ byte) & (hashSize - 1), head
 *                          table only; the matchers do not use it.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     winSize or hashSize is out of range.
 */
VekStatus veksDeflateUpdateHash_8u(const uint8_t* pSrc, int32_t srcIdx, int32_t srcLen,
                                   int32_t* pHashHead, uint32_t hashSize, int32_t* pHashPrev,
                                   uint32_t winSize, int32_t hashMode);

/**
 * Enters a preset dictionary into the match state: its bytes become positions 0 .. dictLen - 1. The
 * caller puts them (the last winSize, if there are more) into the window, position p at
 * `pWindow[p & (winSize - 1)]`, and begins encoding with `*pSrcIdx` = dictLen.
 *
 * @param[in]     pDict     the dictionary, dictLen bytes.
 * @param[in]     dictLen   its length; below 4 (3 in mode 0), also negative, nothing is done.
 * @param[in,out] pHashHead head table, hashSize entries.
 * @param[in]     hashSize  256..65536, a power of two.
 * @param[in,out] pHashPrev chain table, winSize entries; not written in mode 0.
 * @param[in]     pDictAux  must not be null; not used otherwise.
 * @param[in]     winSize   256..32768, a power of two.
 * @param[in]     hashMode  as in veksDeflateUpdateHash_8u().
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     winSize or hashSize is out of range.
 */
VekStatus veksDeflateDictionarySet_8u(const uint8_t* pDict, int32_t dictLen, int32_t* pHashHead,
                                      uint32_t hashSize, int32_t* pHashPrev, const void* pDictAux,
                                      uint32_t winSize, int32_t hashMode);

/* ------------------------------------------------------------------------------------------------
 * Deflate: Huffman coding
 * --------------------------------------------------------------------------------------------- */

/*
 * The format is RFC 1951. These functions do not write a block's end-of-block code: it is entry 256
 * of the literal/length table, and the caller puts it behind the pairs.
 *
 * Bit buffer: a 32-bit word and its number of valid bits, 0 to 32, the stream's next bit lowest. On
 * return fewer than 8 bits are valid, and those above them are 0.
 */

/**
 * Makes canonical codes of limited length from frequencies: at most 15 bits for literals and
 * lengths, at most 9 for distances. Every symbol gets a code, whether it occurs or not.
 *
 * @param[in]  pLitFreq       286 frequencies; an entry's two halves are one 32-bit number, low half
 *                            first.
 * @param[in]  pDistFreq      30 frequencies, likewise.
 * @param[out] pLitHuffTable  286 codes and lengths; may be pLitFreq.
 * @param[out] pDistHuffTable 30 codes and lengths; may be pDistFreq.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusFailure     A code could not be brought within its limit. The tables hold the
 *                              lengths of the last try. Of these, the codes of up to 15 bits are
 *                              canonical and prefix-free, so a distance code beyond its 9 bits may
 *                              still be used; symbols with longer ones have no code (0).
 */
VekStatus veksDeflateLZ77FastestGenHuffTable_8u(const VekHuffEntry* pLitFreq,
                                                const VekHuffEntry* pDistFreq,
                                                VekHuffEntry* pLitHuffTable,
                                                VekHuffEntry* pDistHuffTable);

/** Room that the header of a dynamic block may take, in bytes. */
#define VEK_DEFLATE_HEADER_BOUND 288

/**
 * Writes the header of a dynamic block (RFC 1951, 3.2.7) that announces the lengths of the codes,
 * all 286 and 30 of them. Its first bit, BFINAL, is 1: clear it in all blocks but the last.
 *
 * @param[in]  pLitHuffTable  286 entries with lengths of 0 to 15.
 * @param[in]  pDistHuffTable 30 entries, likewise.
 * @param[out] pHeader        the header, at most VEK_DEFLATE_HEADER_BOUND bytes; the last byte is
 *                            filled up with zero bits.
 * @param[out] pHeaderLen     its length in bytes.
 * @param[out] pHeaderBits    its length in bits.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 */
VekStatus veksDeflateLZ77FastestGenHeader_8u(const VekHuffEntry* pLitHuffTable,
                                             const VekHuffEntry* pDistHuffTable, uint8_t* pHeader,
                                             uint32_t* pHeaderLen, uint32_t* pHeaderBits);

/**
 * Room that veksDeflateHuff_8u() may take, in bytes: 48 bits a pair, and the bit buffer.
 *
 * @param[in] pairs number of pairs.
 * @retval bytes the room, from `*pDstIdx` on.
 */
static inline uint64_t vekDeflateHuffBound(uint32_t pairs) {
    return (uint64_t)pairs * 6 + 4;
}

/**
 * Codes pairs of the match finder.
 *
 * @param[in]     pLitSrc        literals, and lengths - 3.
 * @param[in]     pDistSrc       0 for a literal, else the distance, 1 to 32768.
 * @param[in]     srcLen         number of pairs.
 * @param[in,out] pCode          bit buffer.
 * @param[in,out] pCodeLenBits   its valid bits.
 * @param[in]     pLitHuffTable  286 codes.
 * @param[in]     pDistHuffTable 30 codes.
 * @param[out]    pDst           output; nothing is written behind the last whole byte. The room is
 *                               not checked: vekDeflateHuffBound(srcLen) bytes from `*pDstIdx` on
 *                               always suffice.
 * @param[in,out] pDstIdx        index in pDst where output goes on.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     `*pCodeLenBits` is above 32.
 */
VekStatus veksDeflateHuff_8u(const uint8_t* pLitSrc, const uint16_t* pDistSrc, uint32_t srcLen,
                             uint32_t* pCode, uint32_t* pCodeLenBits,
                             const VekHuffEntry* pLitHuffTable, const VekHuffEntry* pDistHuffTable,
                             uint8_t* pDst, uint32_t* pDstIdx);

/*
 * The fastest path, in a single pass: a matcher that looks at one place and writes codes at once.
 * Each call stands alone: matches reach neither before its source nor behind it. One block may be
 * made of several calls.
 */

/**
 * Counts the symbols that the fastest path will write for the same source.
 *
 * @param[in]     pSrc      source, srcLen bytes.
 * @param[in]     srcLen    its length, at least 1.
 * @param[out]    pHashHead work table of hashSize entries; cleared first, of no use afterwards.
 * @param[in]     hashSize  256 to 65536; powers of two use the whole table.
 * @param[in,out] pLitFreq  286 frequencies, added to as 32-bit numbers; end of block is not
 *                          counted.
 * @param[in,out] pDistFreq 30 frequencies, likewise.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     srcLen or hashSize is out of range.
 */
VekStatus veksDeflateLZ77FastestGetStat_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pHashHead,
                                           uint32_t hashSize, VekHuffEntry* pLitFreq,
                                           VekHuffEntry* pDistFreq);

/**
 * Room that veksDeflateLZ77Fastest_8u() wants, in bytes: 15 bits a byte, the bit buffer, and some
 * more for wide stores.
 *
 * @param[in] srcLen number of source bytes, at least 1.
 * @retval bytes the room, from `*pDstIdx` on.
 */
static inline uint32_t vekDeflateFastestBound(int32_t srcLen) {
    return 2 * (uint32_t)srcLen - (uint32_t)srcLen / 8 + 16;
}

/**
 * Matches and codes a source in one pass.
 *
 * @param[in]     pSrc           source, srcLen bytes.
 * @param[in]     srcLen         its length, at least 1.
 * @param[out]    pHashHead      work table of hashSize entries; cleared first, of no use
 *                               afterwards.
 * @param[in]     hashSize       256 to 65536; powers of two use the whole table.
 * @param[in,out] pCode          bit buffer.
 * @param[in,out] pCodeLenBits   its valid bits.
 * @param[in]     pLitHuffTable  286 codes, as of veksDeflateLZ77FastestPrecompHeader_8u().
 * @param[in]     pDistHuffTable 30 codes, likewise.
 * @param[out]    pDst           output; bytes behind the last one written may change, within the
 *                               room.
 * @param[in,out] pDstLen        in: room from `*pDstIdx` on, at least
 *                               vekDeflateFastestBound(srcLen) bytes; out: bytes written.
 * @param[in,out] pDstIdx        index in pDst where output goes on.
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
 * Fills both tables with a code for general use, made beforehand from text, machine code and
 * records, and writes its block header, so that a block can be written without a look at its data.
 * The header's first bit, BFINAL, is 1: clear it in all blocks but the last.
 *
 * @param[out] pLitHuffTable  286 codes.
 * @param[out] pDistHuffTable 30 codes.
 * @param[out] pHeader        the header, at most VEK_DEFLATE_HEADER_BOUND bytes.
 * @param[out] pHeaderLen     its length in bytes.
 * @param[out] pHeaderBits    its length in bits.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 */
VekStatus veksDeflateLZ77FastestPrecompHeader_8u(VekHuffEntry* pLitHuffTable,
                                                 VekHuffEntry* pDistHuffTable, uint8_t* pHeader,
                                                 uint32_t* pHeaderLen, uint32_t* pHeaderBits);

/** @} */

/* ------------------------------------------------------------------------------------------------
 * Inflate
 * --------------------------------------------------------------------------------------------- */

/**
 * @defgroup vekdc_inflate Inflate
 * @{
 */

/** Size in bytes of the area of ::VekInflateState that holds the decoding tables. */
#define VEK_INFLATE_TABLES_SIZE 7168

/**
 * State of one deflate stream being decoded (RFC 1951). Aligned as a pointer.
 *
 * The caller allocates it, sets `window` and `windowSize` (a null window with size 0 when all
 * history stands in the output buffer), and sets `tableKind` to 0 before each block with the fixed
 * code. The library fills the rest; nothing else needs to be set before the first call.
 */
typedef struct VekInflateState {
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
} VekInflateState;

/** The former name, for programs that use it. */
typedef VekInflateState InflateState;

/**
 * Builds the decoding tables of a dynamic deflate block (RFC 1951, 3.2.7) in the state record.
 *
 * Call it once a block, before veksInflate_8u() decodes the block's data. A code whose longest
 * lengths are at most 11 (literal/length) and 10 bits (distance) gets single-level tables, any
 * other gets two-level ones. Accepted are codes that use up every bit string, and also a single
 * code of length 1 (the other bit string is then invalid data), thirty distance codes of length 5
 * (those of the fixed code), and a block with no distance code at all.
 *
 * @param[in]     pCodeLens     the nLitCodeLens code lengths of the literal/length alphabet, and
 *                              directly behind them the nDistCodeLens of the distance alphabet;
 *                              each is 0 (unused) to 15.
 * @param[in]     nLitCodeLens  257 to 288 (a smaller count is corrupt data, as symbol 256 then has
 *                              no code).
 * @param[in]     nDistCodeLens 0 to 30.
 * @param[in,out] pState        its `tableKind`, `litBits`, `distBits` and tables are written; on
 *                              failure they are not to be used.
 * @retval vekStatusOk              Done.
 * @retval vekStatusNullPointer     A pointer is null.
 * @retval vekStatusBadSize         A count is above its maximum.
 * @retval vekStatusSourceDataError A length is above 15, a code is over-subscribed or incomplete,
 *                                  or the end-of-block symbol 256 has no code.
 */
VekStatus veksInflateBuildHuffTable(const uint16_t* pCodeLens, uint32_t nLitCodeLens,
                                    uint32_t nDistCodeLens, VekInflateState* pState);

/**
 * Decodes the Huffman-coded data of one deflate block (RFC 1951), from behind the block's header up
 * to its end-of-block code. It stops wherever input or output runs out, and goes on in the next
 * call.
 *
 * Bit buffer: the next bit of the stream is the lowest bit of `*pCode`, of which `*pCodeLenBits`
 * are valid; bits above them are ignored on entry and zero on return. The bytes at `*ppSrc` follow.
 * After the end of the block the buffer may hold whole bytes that were read ahead: the caller's
 * next header starts with its bits.
 *
 * History: a match reaches back into the bytes written by this call, then into the dstIdx bytes
 * before `*ppDst`, then into the window. The window is circular. Its newest byte, which is the byte
 * right before `*ppDst - dstIdx` in the output, stands at winIdx - 1, older ones before it,
 * wrapping round from the start to the end. The decoder only reads the window; the caller keeps it
 * up to date. A distance beyond all that history is corrupt data.
 *
 * Room: all of it belongs to the decoder, which copies more than it is asked for where that is
 * quicker. So bytes of the room behind the last byte written may have changed on return; what is
 * behind the room has not. The room may lie in the window, as when output goes straight to winIdx:
 * then nothing behind the last byte written changes, since it is history still in reach, and
 * decoding takes somewhat longer.
 *
 * @param[in,out] ppSrc        next source byte; then the first byte not consumed.
 * @param[in,out] pSrcLen      source bytes left; may be 0.
 * @param[in,out] pCode        bit buffer.
 * @param[in,out] pCodeLenBits valid bits in it, 0 to 32.
 * @param[in]     winIdx       window position of the next history byte, at most `windowSize`.
 * @param[in,out] ppDst        where the next output byte goes; then behind the last byte written.
 * @param[in,out] pDstLen      room left; may be 0.
 * @param[in]     dstIdx       bytes before `*ppDst` in the output buffer that are history.
 * @param[in,out] pMode        in: 2 goes on from the position saved in the state; any other value
 *                             starts at a symbol. Out: 0 when the end-of-block code was decoded; 1
 *                             when the input ran out between two symbols; 2 when the input ran out
 *                             inside a symbol, or the output is full: give more of what is missing
 *                             and call again with mode 2. A code is judged when all of its bits are
 *                             there: one that is invalid whatever its missing bits still asks for
 *                             more.
 * @param[in,out] pState       tables, window and saved position.
 * @retval vekStatusOk              Every stop described at pMode.
 * @retval vekStatusNullPointer     A pointer, `*ppSrc` or `*ppDst` is null (the window may be).
 *                                  Everything is as it was.
 * @retval vekStatusBadSize         `*pCodeLenBits` is above 32 or winIdx above `windowSize`.
 *                                  Everything is as it was.
 * @retval vekStatusSourceDataError An invalid code (also a distance entry of more than 13 extra
 *                                  bits, in tables of the caller's own making), a distance beyond
 *                                  the history, a `tableKind` above 2 or an impossible saved
 *                                  position. What was decoded before stands in the output, the
 *                                  stream arguments are written back, `*pMode` and the saved
 *                                  position are as they were.
 */
VekStatus veksInflate_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode,
                         uint32_t* pCodeLenBits, uint32_t winIdx, uint8_t** ppDst,
                         uint32_t* pDstLen, uint32_t dstIdx, int32_t* pMode,
                         VekInflateState* pState);

/** @} */

/* ------------------------------------------------------------------------------------------------
 * Bzip2
 * --------------------------------------------------------------------------------------------- */

/**
 * @defgroup vekdc_bzip2 Bzip2
 * @{
 */

/*
 * The stages of the file format of bzip2 1.0, which no standard describes; the opening of this
 * header has the whole of it, and what each stage does to the bytes is said below.
 */

/**
 * State of the run-length stage, 264 bytes, aligned to 4; one layout serves both directions.
 *
 * The format: a run of 4 to 259 equal bytes is written as the byte four times and a byte that holds
 * the run's length less 4.
 */
typedef struct VekBz2RleState {
    uint8_t inUse[256]; /**< Encoder: 1 for each value written so far. Decoder: unused. */
    int32_t symbol;     /**< Last value taken (encoder), value of the open run (decoder), or -1. */
    int32_t runCount;   /**< Length of the open run (encoder), bytes still to write (decoder). */
} VekBz2RleState;

/** The former name, for programs that use it. */
typedef VekBz2RleState Bz2RleState;

/**
 * Size of ::VekBz2RleState, for callers that allocate by size.
 *
 * @param[out] pSize 264, in bytes.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksRLEGetSize_BZ2_8u(int32_t* pSize);

/**
 * Prepares a state to encode a new block: no value in use, no open run.
 *
 * @param[out] pState the state.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksEncodeRLEInit_BZ2_8u(VekBz2RleState* pState);

/**
 * Run-length codes as much of the input as fits.
 *
 * A block's room may be given in several calls; leave one byte more for
 * veksEncodeRLEFlush_BZ2_8u().
 *
 * @param[in,out] ppSrc   next input byte.
 * @param[in,out] pSrcLen input bytes left, at least 1 on entry.
 * @param[out]    pDst    output; the pointer is not moved.
 * @param[in,out] pDstLen in: room, at least 1; out: bytes written.
 * @param[in,out] pState  prepared by veksEncodeRLEInit_BZ2_8u(); keeps an open run between calls.
 * @retval vekStatusOk              All input was taken.
 * @retval vekStatusDestinationFull The room is full and input is left.
 * @retval vekStatusNullPointer     A pointer, or `*ppSrc`, is null.
 * @retval vekStatusBadSize         A length is below 1.
 */
VekStatus veksEncodeRLE_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst,
                               int32_t* pDstLen, VekBz2RleState* pState);

/**
 * Ends a block: writes the count byte of an open run of 4 or more, if there is one.
 *
 * @param[out]    pDst    output.
 * @param[in,out] pDstLen in: room, at least 1; out: bytes written, 0 or 1.
 * @param[in,out] pState  the block's state.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     The room is below 1.
 */
VekStatus veksEncodeRLEFlush_BZ2_8u(uint8_t* pDst, int32_t* pDstLen, VekBz2RleState* pState);

/**
 * Copies the table of the values in use.
 *
 * @param[out] pInUse 256 entries: 1 for a value that occurs in the block, count bytes included,
 *                    else 0. It may overlap the state.
 * @param[in]  pState the block's state, after veksEncodeRLEFlush_BZ2_8u().
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 */
VekStatus veksRLEGetInUseTable_8u(uint8_t* pInUse, const VekBz2RleState* pState);

/**
 * Prepares a state to decode a block. The table of the values in use is not touched.
 *
 * @param[out] pState the state.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksDecodeRLEStateInit_BZ2_8u(VekBz2RleState* pState);

/**
 * Expands run-length coded input: the whole of a block's, or what an earlier call left of it.
 *
 * The last three bytes of a call's input begin no run and are copied as they are. So a block's
 * input must not be cut; its output may be cut anywhere. Every sequence of bytes is valid.
 *
 * @param[in,out] ppSrc   next input byte.
 * @param[in,out] pSrcLen input bytes left, at least 1 on entry.
 * @param[in,out] ppDst   next output byte.
 * @param[in,out] pDstLen room left, at least 1 on entry.
 * @param[in,out] pState  prepared by veksDecodeRLEStateInit_BZ2_8u(); keeps what is left of a run.
 * @retval vekStatusOk              All input was taken, or the room ended between two units: look
 *                                  at `*pSrcLen`. What is left of a last run is for
 *                                  veksDecodeRLEStateFlush_BZ2_8u().
 * @retval vekStatusDestinationFull The room ended among literals or inside a run.
 * @retval vekStatusNullPointer     A pointer, `*ppSrc` or `*ppDst` is null.
 * @retval vekStatusBadSize         A length is below 1.
 */
VekStatus veksDecodeRLEState_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                                    int32_t* pDstLen, VekBz2RleState* pState);

/**
 * Writes what is left of a run, without further input. Call it once all input was taken.
 *
 * @param[in,out] pState  the block's state.
 * @param[in,out] ppDst   next output byte.
 * @param[in,out] pDstLen room left.
 * @retval vekStatusOk              Nothing is left.
 * @retval vekStatusDestinationFull The room is full and something is left: call again.
 * @retval vekStatusNullPointer     A pointer, or `*ppDst`, is null.
 */
VekStatus veksDecodeRLEStateFlush_BZ2_8u(VekBz2RleState* pState, uint8_t** ppDst, int32_t* pDstLen);

/** State of a move-to-front coder, 256 bytes at any address; each direction keeps its own. */
typedef struct VekMtfState {
    uint8_t table[256]; /**< Forward: position of each value. Inverse: value at each position. */
} VekMtfState;

/** The former name, for programs that use it. */
typedef VekMtfState MtfState;

/**
 * Size of ::VekMtfState, for callers that allocate by size.
 *
 * @param[out] pSize 256, in bytes.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksMTFGetSize_8u(int32_t* pSize);

/**
 * Sets a state of either direction to its start: each value at its own position.
 *
 * @param[out] pState the state.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksMTFInit_8u(VekMtfState* pState);

/**
 * Replaces each byte by its position in the list of values, the one used last in front.
 *
 * @param[in]     pSrc   len bytes.
 * @param[out]    pDst   len positions; may be pSrc.
 * @param[in]     len    at least 1.
 * @param[in,out] pState the list; goes on from the call before.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len is below 1.
 */
VekStatus veksMTFFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, VekMtfState* pState);

/**
 * Replaces each position by its byte: the inverse of veksMTFFwd_8u().
 *
 * @param[in]     pSrc   len positions.
 * @param[out]    pDst   len bytes; may be pSrc.
 * @param[in]     len    at least 1.
 * @param[in,out] pState the list; goes on from the call before.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len is below 1.
 */
VekStatus veksMTFInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, VekMtfState* pState);

/**
 * Makes a block's alphabet dense, in place: each byte becomes its rank among the values in use.
 *
 * @param[in]     pInUse  256 entries, 1 for a value that occurs, else 0.
 * @param[in,out] pSrcDst len bytes; a value that is not in use gets the rank of the next one that
 *                        is.
 * @param[in]     len     at least 1.
 * @param[out]    pSize   the number of values in use.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len is below 1.
 */
VekStatus veksReduceDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                    int32_t* pSize);

/**
 * Replaces ranks by their values: the inverse of veksReduceDictionary_8u_I().
 *
 * @param[in]     pInUse  256 entries, 1 for a value in use, else 0.
 * @param[in,out] pSrcDst len ranks.
 * @param[in]     len     at least 1.
 * @param[in]     size    number of values in use, at least 1.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len or size is below 1.
 * @retval vekStatusError       size is not the number of values in use; the block is untouched.
 */
VekStatus veksExpandDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                    int32_t size);

/**
 * Codes runs of zeros as numbers in bijective base 2, and counts the symbols.
 *
 * Symbols 0 and 1 are the digits, worth 1 and 2 times 2^k, k = 0 first; a value b from 1 to 255
 * becomes the symbol b + 1.
 *
 * A block whose room is its length or more is never cut. Otherwise a run that does not fit the
 * room, with one slot to spare when a value follows, is cut to what fits and the call ends; a room
 * of one slot takes the run alone, so that every call makes progress. Pieces of a cut run must not
 * be joined into one stream of symbols, where they would read as one longer number.
 *
 * @param[in,out] ppSrc   next input byte.
 * @param[in,out] pSrcLen input bytes left, at least 1 on entry.
 * @param[out]    pDst    symbols.
 * @param[in,out] pDstLen in: room in symbols, at least 1; out: symbols written.
 * @param[in,out] pFreq   257 counters or more, one a symbol, added to.
 * @retval vekStatusOk              All input was taken.
 * @retval vekStatusDestinationFull Input is left.
 * @retval vekStatusNullPointer     A pointer, or `*ppSrc`, is null.
 * @retval vekStatusBadSize         A length is below 1.
 */
VekStatus veksEncodeZ1Z2_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen, uint16_t* pDst,
                                   int32_t* pDstLen, uint32_t* pFreq);

/**
 * The inverse of veksEncodeZ1Z2_BZ2_8u16u(). Give it the room of the whole block: the digits of a
 * run that does not fit count as consumed.
 *
 * @param[in,out] ppSrc   next symbol.
 * @param[in,out] pSrcLen symbols left, at least 1 on entry; end of block is not one of them.
 * @param[out]    pDst    bytes.
 * @param[in,out] pDstLen in: room, at least 1; out: bytes written.
 * @retval vekStatusOk              All symbols were taken.
 * @retval vekStatusDestinationFull The room did not suffice, or symbols are left.
 * @retval vekStatusNullPointer     A pointer, or `*ppSrc`, is null.
 * @retval vekStatusBadSize         A length is below 1.
 */
VekStatus veksDecodeZ1Z2_BZ2_16u8u(const uint16_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst,
                                   int32_t* pDstLen);

/*
 * Huffman coding of a block's symbols. Both directions share the caller's bit accumulator: a 32-bit
 * word of pending bits, the next one in bit 31, those behind them 0, and their number, 0 to 32.
 */

/**
 * Code tables and table choices of one block, opaque. Allocate the bytes that
 * veksEncodeHuffGetSize_BZ2_16u8u() gives, aligned as a pointer. The record holds pointers into
 * itself: it must not be moved.
 */
typedef struct VekBz2HuffEncState VekBz2HuffEncState;

/** The former name, for programs that use it. */
typedef VekBz2HuffEncState Bz2HuffEncState;

/**
 * Size of the encoder's record.
 *
 * @param[in]  len   symbols in the block, end of block included, at least 1.
 * @param[out] pSize the size in bytes.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadSize     len is below 1.
 */
VekStatus veksEncodeHuffGetSize_BZ2_16u8u(int32_t len, int32_t* pSize);

/**
 * Builds the two to six code tables of a block and chooses one for each 50 symbols. Codes have at
 * most 17 bits.
 *
 * @param[in]  alphaSize symbols in the alphabet, end of block included: 1 to 258.
 * @param[in]  pFreq     alphaSize frequencies.
 * @param[in]  pSrc      the block's symbols, each below alphaSize, end of block included.
 * @param[in]  len       their number, 1 to 1638350.
 * @param[out] pState    a record of the size that the query gives for len.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     alphaSize or len is out of range, or a symbol is not in the
 *                              alphabet.
 */
VekStatus veksEncodeHuffInit_BZ2_16u8u(int32_t alphaSize, const uint32_t* pFreq,
                                       const uint16_t* pSrc, int32_t len,
                                       VekBz2HuffEncState* pState);

/**
 * Writes the description of the tables: number of tables and of groups, choices, code lengths.
 *
 * @param[in,out] pCode        accumulator.
 * @param[in,out] pCodeLenBits its pending bits; fewer than 8 remain where the room is not used up.
 * @param[out]    pDst         output.
 * @param[in,out] pDstLen      in: room, at least 1; out: bytes written.
 * @param[in]     pState       the block's record.
 * @retval vekStatusOk              Done.
 * @retval vekStatusDestinationFull More than 32 bits would remain: the accumulator is untouched,
 *                                  and the call is to be repeated with more room.
 * @retval vekStatusNullPointer     A pointer is null.
 * @retval vekStatusBadSize         The room is below 1 or `*pCodeLenBits` is not 0 to 32.
 * @retval vekStatusError           The record was not prepared.
 */
VekStatus veksPackHuffContext_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, uint8_t* pDst,
                                        int32_t* pDstLen, const VekBz2HuffEncState* pState);

/**
 * Writes the symbols of a whole block.
 *
 * @param[in,out] pCode        accumulator.
 * @param[in,out] pCodeLenBits its pending bits; fewer than 8 remain where the room is not used up.
 * @param[in,out] ppSrc        the symbols that the record was prepared from; then behind them.
 * @param[in,out] pSrcLen      their number, at least 0; then 0.
 * @param[out]    pDst         output.
 * @param[in,out] pDstLen      in: room, at least 1; out: bytes written.
 * @param[in]     pState       the block's record.
 * @retval vekStatusOk              Done.
 * @retval vekStatusDestinationFull More than 32 bits would remain: source and accumulator are
 *                                  untouched, and the call is to be repeated with more room.
 * @retval vekStatusNullPointer     A pointer, or `*ppSrc`, is null.
 * @retval vekStatusBadSize         The room is below 1, `*pSrcLen` is negative, `*pCodeLenBits` is
 *                                  not 0 to 32, or the record does not cover the symbols.
 * @retval vekStatusError           The record was not prepared.
 */
VekStatus veksEncodeHuff_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, const uint16_t** ppSrc,
                                   int32_t* pSrcLen, uint8_t* pDst, int32_t* pDstLen,
                                   const VekBz2HuffEncState* pState);

/**
 * Decoding tables, table choices and position, opaque. Allocate the bytes that
 * veksDecodeHuffGetSize_BZ2_8u16u() gives, aligned to 4.
 */
typedef struct VekBz2HuffDecState VekBz2HuffDecState;

/** The former name, for programs that use it. */
typedef VekBz2HuffDecState Bz2HuffDecState;

/**
 * Size of the decoder's record.
 *
 * **A stream names its own number of groups, up to 32767, and the record must hold them all.** No
 * function is told the record's size, so whoever decodes input that is not trusted sizes the record
 * for 32767 * 50 symbols. No input makes the decoder leave a record of that size.
 *
 * @param[in]  len   the most symbols in a block, at least 1.
 * @param[out] pSize the size in bytes.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadSize     len is below 1.
 */
VekStatus veksDecodeHuffGetSize_BZ2_8u16u(int32_t len, int32_t* pSize);

/**
 * Prepares a record for a block.
 *
 * @param[in]  alphaSize symbols in the alphabet, end of block included: 1 to 258.
 * @param[out] pState    the record.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadSize     alphaSize is out of range.
 */
VekStatus veksDecodeHuffInit_BZ2_8u16u(int32_t alphaSize, VekBz2HuffDecState* pState);

/**
 * Reads the description of the tables and builds the decoding tables; stops and goes on at any bit.
 *
 * @param[in,out] pCode        accumulator.
 * @param[in,out] pCodeLenBits its pending bits.
 * @param[in,out] ppSrc        next input byte.
 * @param[in,out] pSrcLen      input bytes left, at least 1 on entry.
 * @param[in,out] pState       a prepared record.
 * @retval vekStatusOk               All is read.
 * @retval vekStatusSourceIncomplete Call again with more input.
 * @retval vekStatusNullPointer      A pointer, or `*ppSrc`, is null.
 * @retval vekStatusBadSize          `*pSrcLen` is below 1 or `*pCodeLenBits` is not 0 to 32.
 * @retval vekStatusSourceDataError  The description is corrupt.
 * @retval vekStatusError            The record is in an impossible phase.
 */
VekStatus veksUnpackHuffContext_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits,
                                          const uint8_t** ppSrc, int32_t* pSrcLen,
                                          VekBz2HuffDecState* pState);

/**
 * Decodes a block's symbols up to its end-of-block symbol; stops and goes on between any two.
 *
 * Twenty bits are held before each symbol, so the bytes of the stream behind the block must be at
 * hand. (A whole stream has at least 80 bits there.)
 *
 * @param[in,out] pCode        accumulator.
 * @param[in,out] pCodeLenBits its pending bits.
 * @param[in,out] ppSrc        next input byte.
 * @param[in,out] pSrcLen      input bytes left, at least 0.
 * @param[out]    pDst         symbols.
 * @param[in,out] pDstLen      in: room in symbols, at least 1; out: symbols decoded. End of block
 *                             is stored behind them, in the room, and not counted.
 * @param[in,out] pState       a record whose description was read to its end.
 * @retval vekStatusOk               The end of the block was decoded.
 * @retval vekStatusSourceIncomplete Call again with more input.
 * @retval vekStatusDestinationFull  Call again with more room.
 * @retval vekStatusNullPointer      A pointer, or `*ppSrc`, is null.
 * @retval vekStatusBadSize          The room is below 1, `*pSrcLen` is negative, or `*pCodeLenBits`
 *                                   is not 0 to 32.
 * @retval vekStatusError            A code that no symbol has, more symbols than the groups cover,
 *                                   or a record that veksUnpackHuffContext_BZ2_8u16u() did not
 *                                   leave with ::vekStatusOk.
 */
VekStatus veksDecodeHuff_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits, const uint8_t** ppSrc,
                                   int32_t* pSrcLen, uint16_t* pDst, int32_t* pDstLen,
                                   VekBz2HuffDecState* pState);

/**
 * Size of the work buffer of veksBWTFwd_8u(): the larger of 6 * len + 524484 and 18 * len + 80,
 * both taken as 32-bit values, modulo 2^32.
 *
 * From 119304643 bytes on the second no longer fits one, and up to 357826527 bytes the block is
 * sorted in the first. For longer blocks neither fits: the value means nothing, and the sort
 * refuses them.
 *
 * @param[in]  len   bytes in the block, at least 1.
 * @param[out] pSize the size in bytes.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadSize     len is below 1.
 */
VekStatus veksBWTFwdGetSize_8u(int32_t len, int32_t* pSize);

/**
 * Sorts a block's rotations (M. Burrows and D. J. Wheeler, "A Block-sorting Lossless Data
 * Compression Algorithm", 1994), in near-linear time whatever it holds.
 *
 * @param[in]  pSrc    the block, len bytes.
 * @param[out] pDst    the last column of the sorted rotations, len bytes; not pSrc.
 * @param[in]  len     1 to 357826527.
 * @param[out] pIndex  the primary index: the row of the unrotated block, the first of equal ones.
 * @param[out] pBuffer work buffer of the size that the query gives, at any address.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len is out of range.
 */
VekStatus veksBWTFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t* pIndex,
                        uint8_t* pBuffer);

/**
 * Size of the work buffer of veksBWTFwd_SelectSort_8u(): 6 * len + 524484 for methods 0 and 1,
 * 18 * len + 80 for method 2, for method 3 the larger, as in veksBWTFwdGetSize_8u().
 *
 * @param[in]  len    bytes in the block.
 * @param[out] pSize  the size in bytes; any other method leaves it as it is.
 * @param[in]  method 0 to 3.
 * @retval vekStatusOk          Done, also for any other method.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadSize     len is 0, or for methods 0 to 2 the size does not fit an int32_t. No
 *                              other length is refused.
 */
VekStatus veksBWTFwdGetBufSize_SelectSort_8u(int32_t len, int32_t* pSize, int32_t method);

/**
 * Sorts a block's rotations by a method of the caller's choice. All that succeed give the same
 * column and index.
 *
 * @param[in]  pSrc    the block, len bytes.
 * @param[out] pDst    the last column of the sorted rotations, len bytes; not pSrc.
 * @param[in]  len     at least 1; every method sorts blocks below 100 bytes in the same way.
 * @param[out] pIndex  the primary index: the row of the unrotated block, the first of equal ones.
 * @param[out] pBuffer work buffer of the size that the query gives for the method, at any address.
 * @param[in]  method  0: a bucket sort that gives up on repetitive blocks; 1: in the least memory;
 *                     2: the general kernel alone, for blocks below 43701 bytes in less memory than
 *                     the others; 3: as veksBWTFwd_8u(). Others do nothing.
 * @retval vekStatusOk          Done.
 * @retval vekStatusSortLimit   Method 0 gave up: column and index are not valid.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len is out of range.
 */
VekStatus veksBWTFwd_SelectSort_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t* pIndex,
                                   uint8_t* pBuffer, int32_t method);

/**
 * Size of the work buffer of veksBWTInv_8u().
 *
 * @param[in]  len   bytes in the block, at least 1.
 * @param[out] pSize the size in bytes.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadSize     len is below 1, or the size does not fit an int32_t.
 */
VekStatus veksBWTInvGetSize_8u(int32_t len, int32_t* pSize);

/**
 * Inverts a block sort (M. Burrows and D. J. Wheeler, 1994).
 *
 * @param[in]  pSrc    the last column of the sorted rotations, len bytes.
 * @param[out] pDst    the block, len bytes; may be pSrc for blocks of up to 2^24 bytes.
 * @param[in]  len     at least 1.
 * @param[in]  index   the primary index: the row of the unrotated block, 0 to len - 1.
 * @param[out] pBuffer work buffer of the size that the query gives, at any address.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     len or index is out of range.
 */
VekStatus veksBWTInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t index,
                        uint8_t* pBuffer);

/**
 * Size of the work buffer of veksDecodeBlock_BZ2_16u8u(): 4 bytes for each byte of the capacity.
 *
 * @param[in]  blockSize the capacity in bytes, 0 to 2^24 - 1.
 * @param[out] pSize     the size in bytes.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadSize     blockSize is out of range.
 */
VekStatus veksDecodeBlockGetSize_BZ2_8u(int32_t blockSize, int32_t* pSize);

/**
 * Decodes a block's symbols to what the run-length stage expands: zero runs, move-to-front,
 * dictionary and block sort in one.
 *
 * @param[in]     pSrc     the block's symbols without end of block.
 * @param[in]     srcLen   their number, at least 1.
 * @param[out]    pDst     the block; written only on success.
 * @param[in,out] pDstLen  in: capacity, below 2^24; out: length of the block, or of what was
 *                         decoded before an error.
 * @param[in]     index    the primary index, 0 to the capacity - 1.
 * @param[in]     dictSize number of values in use, 0 to 256.
 * @param[in]     pInUse   256 entries, above 0 (as signed bytes) for values in use.
 * @param[out]    pBuffer  work buffer of the size that the query gives for the capacity, at any
 *                         address.
 * @retval vekStatusOk          Done. Also when dictSize is not the number of values in use: nothing
 *                              is written then, and `*pDstLen` is as it was.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     srcLen, the capacity, index or dictSize is out of range.
 * @retval vekStatusError       The block is longer than the capacity, a symbol has no value, or the
 *                              index is at or beyond the length.
 */
VekStatus veksDecodeBlock_BZ2_16u8u(const uint16_t* pSrc, int32_t srcLen, uint8_t* pDst,
                                    int32_t* pDstLen, int32_t index, int32_t dictSize,
                                    const uint8_t* pInUse, uint8_t* pBuffer);

/** @} */

/* ------------------------------------------------------------------------------------------------
 * LZ4
 * --------------------------------------------------------------------------------------------- */

/**
 * @defgroup vekdc_lz4 LZ4
 * @{
 */

/*
 * Blocks of the LZ4 block format (https://github.com/lz4/lz4/blob/dev/doc/lz4_Block_format.md): no
 * frame around them, no checksum.
 *
 * A block may refer to history. Positions are then counted along a stream, in which the block's
 * first byte has the position srcIdx. The history lies in memory right in front of the block, or in
 * a separate dictionary whose byte k is stream position k.
 *
 * A block always ends in at least 5 literals (or is shorter than that), and matches reach back at
 * most 65535 bytes. Where the room is not checked, give it vekLZ4EncodeBound() bytes.
 */

/**
 * The most bytes that any LZ4 encoder here writes.
 *
 * @param[in] len number of input bytes.
 * @retval bytes the bound.
 */
static inline size_t vekLZ4EncodeBound(size_t len) {
    return len + len / 255 + 16;
}

/**
 * Decodes one block without history.
 *
 * Nothing outside the two buffers is touched, whatever the bytes. The output may be written
 * anywhere within its room. An offset of 0 is not refused: it repeats what the output buffer held.
 *
 * A room that ends where a literal run (also an empty one) ends is no error: the status is
 * ::vekStatusOk, whatever else the block holds. Who does not know the length of the data gives a
 * room that is larger than they may be: with ::vekStatusOk and fewer bytes decoded than the room,
 * the block is whole. With the room filled, veksDecodeLZ4Dict_8u() tells: at least 8 bytes of a
 * block that goes on are not consumed.
 *
 * @param[in]     pSrc    the block.
 * @param[in]     srcLen  its length in bytes, at least 1.
 * @param[out]    pDst    the data.
 * @param[in,out] pDstLen in: room in bytes, at least 1; out, unless the status is negative: bytes
 *                        decoded.
 * @retval vekStatusOk               Done.
 * @retval vekStatusSourceIncomplete The block is cut short (what was there is decoded) or has a
 *                                   single byte, as empty input is encoded.
 * @retval vekStatusDestinationFull  The room ends inside a literal run or a match. What fits is
 *                                   decoded; the call cannot go on with more room.
 * @retval vekStatusNullPointer      A pointer is null.
 * @retval vekStatusBadSize          A length is below 1, or one in the block overflows.
 * @retval vekStatusError            An offset reaches before the history.
 */
VekStatus veksDecodeLZ4_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst, int32_t* pDstLen);

/**
 * Decodes one block with history, to `pDst + dstIdx`. Otherwise as veksDecodeLZ4_8u().
 *
 * Without a dictionary (null, or size 0) there is no history. A dictionary that ends where the
 * output begins is the history in place. Any other one stands for the first dictSize bytes of the
 * buffer at pDst: a match that begins below dictSize in it is read from the dictionary, all others
 * from the buffer itself, a match that crosses the border from both. The usual call has dstIdx
 * equal to dictSize.
 *
 * @param[in]     pSrc     the block.
 * @param[in,out] pSrcLen  in: its length, at least 1; out, unless the status is negative: bytes
 *                         consumed.
 * @param[in,out] pDst     start of the output buffer.
 * @param[in]     dstIdx   where in it the block's output begins, at least 0.
 * @param[in,out] pDstLen  in: room behind the index, at least 1; out, unless the status is
 *                         negative: bytes decoded.
 * @param[in]     pDict    dictionary, or null.
 * @param[in]     dictSize its length, at least 0.
 * @retval vekStatusOk               Done.
 * @retval vekStatusSourceIncomplete The block is cut short or has a single byte.
 * @retval vekStatusDestinationFull  The room ends inside a literal run or a match.
 * @retval vekStatusNullPointer      A pointer other than the dictionary's is null.
 * @retval vekStatusBadSize          A length, index or size is out of range, or a length in the
 *                                   block overflows.
 * @retval vekStatusError            An offset reaches before the history.
 */
VekStatus veksDecodeLZ4Dict_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst, int32_t dstIdx,
                               int32_t* pDstLen, const uint8_t* pDict, int32_t dictSize);

/**
 * Size of the hash table of all encoders but the high-compression ones.
 *
 * @param[out] pSize 16384, in bytes.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksEncodeLZ4HashTableGetSize_8u(int32_t* pSize);

/**
 * Clears a hash table as a block without history uses it: 4096 entries of 16 bits for blocks below
 * 65536 bytes, else of 32. The encoders without history do so themselves.
 *
 * @param[out] pHashTable the table, aligned to 4.
 * @param[in]  srcLen     length of the block to come, at least 1.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadSize     srcLen is below 1.
 */
VekStatus veksEncodeLZ4HashTableInit_8u(uint8_t* pHashTable, int32_t srcLen);

/**
 * Encodes one block; the room is not checked.
 *
 * The table is cleared first, even when another argument is then refused.
 *
 * @param[in]  pSrc       the data.
 * @param[in]  srcLen     their length, at least 1.
 * @param[out] pDst       the block, room of vekLZ4EncodeBound(srcLen) bytes.
 * @param[out] pDstLen    bytes written; its value on entry does not matter.
 * @param[out] pHashTable work memory of veksEncodeLZ4HashTableGetSize_8u() bytes, aligned to 4.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     srcLen is below 1.
 */
VekStatus veksEncodeLZ4_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst, int32_t* pDstLen,
                           uint8_t* pHashTable);

/**
 * Encodes as much of the input as fits into the room, as one whole block.
 *
 * The table is cleared first, even when another argument is then refused.
 *
 * @param[in]     pSrc       the data.
 * @param[in,out] pSrcLen    in: their length, at least 1; out: bytes consumed.
 * @param[out]    pDst       the block.
 * @param[in,out] pDstLen    in: room, at least 1; out: bytes written.
 * @param[out]    pHashTable work memory as for veksEncodeLZ4_8u().
 * @retval vekStatusOk              Done.
 * @retval vekStatusDestinationFull Not all input fitted: the output is a block of the consumed
 *                                  bytes.
 * @retval vekStatusNullPointer     A pointer is null.
 * @retval vekStatusBadSize         A length is below 1.
 */
VekStatus veksEncodeLZ4Safe_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst,
                               int32_t* pDstLen, uint8_t* pHashTable);

/**
 * Encodes one block like veksEncodeLZ4_8u(), faster and larger the higher the acceleration. With an
 * acceleration other than 1 a refused call leaves the table alone.
 *
 * @param[in]  pSrc         the data.
 * @param[in]  srcLen       their length, at least 1.
 * @param[out] pDst         the block, room of vekLZ4EncodeBound(srcLen) bytes.
 * @param[out] pDstLen      bytes written.
 * @param[out] pHashTable   work memory as for veksEncodeLZ4_8u().
 * @param[in]  acceleration how far apart the first probes are, at least 1; 1 is veksEncodeLZ4_8u()
 *                          itself.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     srcLen is below 1.
 * @retval vekStatusOutOfRange  acceleration is below 1.
 */
VekStatus veksEncodeLZ4Fast_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst, int32_t* pDstLen,
                               uint8_t* pHashTable, int32_t acceleration);

/**
 * Clears a hash table to encode with history: 4096 entries of 32 bits.
 *
 * @param[out] pHashTable the table, aligned to 4.
 * @param[in]  srcLen     at least 1; otherwise without effect.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadSize     srcLen is below 1.
 */
VekStatus veksEncodeLZ4DictHashTableInit_8u(uint8_t* pHashTable, int32_t srcLen);

/**
 * Puts every third position of a dictionary into a hash table; one of 8 bytes or fewer has none.
 *
 * @param[in,out] pHashTable the table, cleared by veksEncodeLZ4DictHashTableInit_8u().
 * @param[in]     pDict      the dictionary.
 * @param[in]     dictLen    its length, at least 1; only its last 65535 bytes are ever referred to.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     dictLen is below 1.
 */
VekStatus veksEncodeLZ4LoadDict_8u(uint8_t* pHashTable, const uint8_t* pDict, int32_t dictLen);

/**
 * Encodes one block with history; the room is not checked.
 *
 * - Streaming: keep the blocks one behind the other in memory, start with srcIdx 0, add each
 *   block's length to it, and keep the table; no dictionary.
 * - Dictionary: load it into a cleared table and encode with srcIdx equal to its length.
 *
 * The block decodes with veksDecodeLZ4Dict_8u(), given the same dictionary, and srcIdx as its
 * index. Where srcIdx and the dictionary's length differ, only positions that both sides read from
 * the same place are used.
 *
 * The table is prepared first, even when another argument is then refused: for a srcIdx of 0 or
 * less it is cleared, whatever was loaded; else positions at or behind srcIdx are taken out of it.
 *
 * @param[in]     pSrc       the block.
 * @param[in]     srcIdx     its position in the stream. Without a dictionary, so many bytes in
 *                           front of pSrc are the history.
 * @param[in]     srcLen     its length, at least 1; srcIdx + srcLen must be below 2^31.
 * @param[out]    pDst       the output, room of vekLZ4EncodeBound(srcLen) bytes.
 * @param[out]    pDstLen    bytes written.
 * @param[in,out] pHashTable the table of the stream, aligned to 4.
 * @param[in]     pDict      dictionary, or null.
 * @param[in]     dictLen    its length; 0 for none.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer other than the dictionary's is null.
 * @retval vekStatusBadSize     srcLen is below 1, or dictLen is negative.
 * @retval vekStatusBadArgument srcIdx is negative with a separate dictionary.
 */
VekStatus veksEncodeLZ4Dict_8u(const uint8_t* pSrc, int32_t srcIdx, int32_t srcLen, uint8_t* pDst,
                               int32_t* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                               int32_t dictLen);

/**
 * Encodes with history as veksEncodeLZ4Dict_8u(), as much of the input as fits, as
 * veksEncodeLZ4Safe_8u().
 *
 * @param[in]     pSrc       the block.
 * @param[in]     srcIdx     its position in the stream.
 * @param[in,out] pSrcLen    in: its length, at least 1; out: bytes consumed.
 * @param[out]    pDst       the output.
 * @param[in,out] pDstLen    in: room, at least 1; out: bytes written.
 * @param[in,out] pHashTable the table of the stream, aligned to 4.
 * @param[in]     pDict      dictionary, or null.
 * @param[in]     dictLen    its length; 0 for none.
 * @retval vekStatusOk              Done.
 * @retval vekStatusDestinationFull Not all input fitted: the output is a block of the consumed
 *                                  bytes.
 * @retval vekStatusNullPointer     A pointer other than the dictionary's is null.
 * @retval vekStatusBadSize         A length is out of range.
 * @retval vekStatusBadArgument     srcIdx is negative with a separate dictionary.
 */
VekStatus veksEncodeLZ4DictSafe_8u(const uint8_t* pSrc, int32_t srcIdx, int32_t* pSrcLen,
                                   uint8_t* pDst, int32_t* pDstLen, uint8_t* pHashTable,
                                   const uint8_t* pDict, int32_t dictLen);

/**
 * Sizes of the two tables of high-compression encoding.
 *
 * @param[out] pHashTableSize size of the hash table: 131072, in bytes.
 * @param[out] pPrevTableSize size of the chain table: 262144, in bytes.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null; neither size is written.
 */
VekStatus veksEncodeLZ4HCHashTableGetSize_8u(int32_t* pHashTableSize, int32_t* pPrevTableSize);

/**
 * Clears the tables of high-compression encoding, as needed before every stream (and every block
 * without history).
 *
 * @param[in,out] ppHashTables two pointers: the hash table, the chain table; each aligned to 4.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer, or a table's, is null.
 */
VekStatus veksEncodeLZ4HCHashTableInit_8u(uint8_t** ppHashTables);

/**
 * Encodes one block with high compression, with or without history.
 *
 * The tables carry history from call to call; this function does not clear them. A dictionary's
 * positions get into them by encoding the dictionary itself first, at srcIdx 0 with the same
 * tables, and dropping the result; then encode with srcIdx equal to its length. Position 0 is never
 * referred to.
 *
 * A search for a match looks at up to 2^(level - 1) candidates. The search for a second match that
 * overlaps one already found looks at the nearest quarter of them. With all of them 10 MB of texts,
 * tables, programs and images take 4 171 620 bytes at level 6 and 4 125 248 at level 9, in place of
 * 4 223 963 and 4 136 332, but 28 % and 18 % more time. One level more gives about the same for
 * less (level 7: 4 177 560 bytes, 20 % more time than level 6).
 *
 * @param[in]     pSrc         the block.
 * @param[in]     srcIdx       its position in the stream, at least 0; without a dictionary, so many
 *                             bytes in front of pSrc are the history.
 * @param[in,out] pSrcLen      in: its length, at least 1; srcIdx + length must be below 2^31. Out:
 *                             bytes consumed.
 * @param[out]    pDst         the output.
 * @param[in,out] pDstLen      in: room, at least 1; vekLZ4EncodeBound() bytes always suffice. Out:
 *                             bytes written.
 * @param[in,out] ppHashTables two pointers: the hash table, the chain table; each aligned to 4.
 * @param[in]     pDict        dictionary, or null.
 * @param[in]     dictLen      its length; 0 for none.
 * @param[in]     level        1 (fast) to 9 (small); 0 and all above mean 9, all below mean 1.
 * @retval vekStatusOk                  Done.
 * @retval vekStatusDestinationFull     Only the last literals did not fit: as many as did are
 *                                      written and counted as consumed.
 * @retval vekStatusDestinationTooSmall A sequence did not fit. With this and the former the output
 *                                      is a whole block of the consumed bytes, for which the last
 *                                      sequences may have been taken back.
 * @retval vekStatusNullPointer         A pointer other than the dictionary's, or a table's, is
 *                                      null.
 * @retval vekStatusBadSize             A length is out of range.
 * @retval vekStatusBadArgument         srcIdx is negative.
 */
VekStatus veksEncodeLZ4HC_8u(const uint8_t* pSrc, int32_t srcIdx, int32_t* pSrcLen, uint8_t* pDst,
                             int32_t* pDstLen, uint8_t** ppHashTables, const uint8_t* pDict,
                             int32_t dictLen, int32_t level);

/**
 * Encodes as veksEncodeLZ4HC_8u(), but takes every dictionary for a separate one, even if it lies
 * in front of the block.
 *
 * @param[in]     pSrc         the block.
 * @param[in]     srcIdx       its position in the stream, at least 0.
 * @param[in,out] pSrcLen      in: its length, at least 1; out: bytes consumed.
 * @param[out]    pDst         the output.
 * @param[in,out] pDstLen      in: room, at least 1; out: bytes written.
 * @param[in,out] ppHashTables two pointers: the hash table, the chain table; each aligned to 4.
 * @param[in]     pDict        dictionary, or null.
 * @param[in]     dictLen      its length; 0 for none.
 * @param[in]     level        as in veksEncodeLZ4HC_8u().
 * @param[in]     dictLimit    0 refers to no dictionary byte at a stream position from srcIdx on;
 *                             other values do the same today.
 * @retval vekStatusOk                  Done.
 * @retval vekStatusDestinationFull     Only the last literals did not fit.
 * @retval vekStatusDestinationTooSmall A sequence did not fit.
 * @retval vekStatusNullPointer         A pointer other than the dictionary's, or a table's, is
 *                                      null.
 * @retval vekStatusBadSize             A length is out of range.
 * @retval vekStatusBadArgument         srcIdx is negative.
 */
VekStatus veksEncodeLZ4HCDictLimit_8u(const uint8_t* pSrc, int32_t srcIdx, int32_t* pSrcLen,
                                      uint8_t* pDst, int32_t* pDstLen, uint8_t** ppHashTables,
                                      const uint8_t* pDict, int32_t dictLen, int32_t level,
                                      int32_t dictLimit);

/** @} */

/* ------------------------------------------------------------------------------------------------
 * LZO
 * --------------------------------------------------------------------------------------------- */

/**
 * @defgroup vekdc_lzo LZO
 * @{
 */

/*
 * LZO1X, the format of the LZO library (M. F. X. J. Oberhumer; described in the Linux kernel's
 * Documentation/staging/lzo.rst), one call a buffer. Lengths are unsigned. The encoder's record has
 * veksEncodeLZOGetSize() bytes, is opaque and aligned to 4; it may serve any number of buffers
 * after one Init, one at a time.
 *
 * Container: both decoders also accept up to 32 independent streams behind a small header: byte
 * 0x55, n (1..32), n XOR 0x55, the total expanded length T, the compressed lengths of all streams
 * but the last (all of 32 bits, lowest byte first), then the streams. Stream k expands to T / n
 * bytes at offset k * (T / n), the last also to the remainder. It is recognised when the header is
 * consistent and the first stream ends in 0x11 0x00 0x00. With n = 1 the word that the decoders
 * check at offset 7 already belongs to the stream, so a container of one part may not be recognised
 * as one.
 *
 * **A container states its own length, and the decoders, the checking one too, write that many
 * bytes whatever the capacity. Whoever decodes what he did not encode must ask
 * vekLZOContainerLength() first, and provide that room or refuse.** The encoder's plain streams are
 * never taken for containers; those of others may be, if they begin with a run of 68 literals that
 * were made for it.
 */

/**
 * How many parts the decoders find in a source.
 *
 * @param[in] pSrc   the source; not looked at when it has fewer than 11 bytes.
 * @param[in] srcLen its length in bytes.
 * @retval 1..32 a container of so many parts.
 * @retval 0     a plain stream.
 */
static inline uint32_t vekLZOContainerParts(const uint8_t* pSrc, uint32_t srcLen) {
    uint32_t parts, header, first;
    if (srcLen < 11U || pSrc[0] != 0x55U) return 0U;
    parts = pSrc[1];
    header = 4U * parts + 3U;
    if (parts < 1U || parts > 32U || pSrc[2] != (parts ^ 0x55U) || srcLen < header) return 0U;
    first = pSrc[7] + 0x100U * pSrc[8] + 0x10000U * pSrc[9] + 0x1000000U * pSrc[10];
    if (first > srcLen - header) return 0U;
    pSrc += 4U * parts + first; /* The first part's last three bytes. */
    return pSrc[0] == 0x11U && pSrc[1] == 0U && pSrc[2] == 0U ? parts : 0U;
}

/**
 * How many bytes a container says that it expands to. **The decoders write that many bytes,
 * whatever the capacity.**
 *
 * @param[in] pSrc   the source; not looked at when it has fewer than 11 bytes.
 * @param[in] srcLen its length in bytes.
 * @retval 0     a plain stream, which keeps to the capacity (or an empty container).
 * @retval bytes the length of the data in a container.
 */
static inline uint32_t vekLZOContainerLength(const uint8_t* pSrc, uint32_t srcLen) {
    if (vekLZOContainerParts(pSrc, srcLen) == 0U) return 0U;
    return pSrc[3] + 0x100U * pSrc[4] + 0x10000U * pSrc[5] + 0x1000000U * pSrc[6];
}

/**
 * Room that always suffices to encode a buffer as one stream, whatever it holds, for every method.
 * Add 16 * n bytes for a container of n parts.
 *
 * @param[in] len the source's length, at most 4042322000.
 * @retval bytes the room.
 */
static inline uint32_t vekLZOEncodeBound(uint32_t len) {
    return len + len / 16 + 128;
}

/**
 * Size of the encoder's record.
 *
 * @param[in]  method      0 or 1 (smaller output) or 2 (faster).
 * @param[in]  maxInputLen not used.
 * @param[out] pSize       131096, in bytes; 0 for another method.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadArgument There is no such method.
 */
VekStatus veksEncodeLZOGetSize(int32_t method, uint32_t maxInputLen, uint32_t* pSize);

/**
 * Prepares a record: stores the method (1 becomes 0) and clears the match finder's table.
 *
 * When the caller then sets the record's first 32-bit word to 1, and its second to n, 1..32,
 * veksEncodeLZO_8u() writes a container of n parts of equal slices (the remainder in the last).
 *
 * @param[in]  method      0, 1 or 2; see veksEncodeLZOGetSize().
 * @param[in]  maxInputLen not used.
 * @param[out] pState      the record, aligned to 4.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 * @retval vekStatusBadArgument There is no such method; the record is untouched.
 */
VekStatus veksEncodeLZOInit_8u(int32_t method, uint32_t maxInputLen, void* pState);

/**
 * Compresses a buffer into one LZO1X stream that ends in 0x11 0x00 0x00.
 *
 * The capacity bounds what the match finder writes, and the literals behind the last match. **All
 * methods may write a few bytes beyond a capacity that is too small by so many:** the header of
 * that last run (at most 2 + t / 255 bytes for t literals) and the end instruction (3 bytes) are
 * written without a look at the capacity, for each part of a container anew. Give
 * vekLZOEncodeBound() bytes, or have 5 + capacity / 255 bytes more behind the capacity that you
 * state, and 6 for each part.
 *
 * A first run of 68 literals takes one byte more where decoders would take the stream for a
 * container.
 *
 * @param[in]     pSrc    the data.
 * @param[in]     srcLen  their length; 0 writes nothing, not even an end instruction.
 * @param[out]    pDst    the stream; must not overlap pSrc.
 * @param[in,out] pDstLen in: the capacity of pDst; out: bytes written.
 * @param[in,out] pState  a prepared record, aligned to 4. What its table holds from earlier buffers
 *                        can change the output, but not its correctness.
 * @retval vekStatusOk              Done.
 * @retval vekStatusDestinationFull The room ran out: the bytes written are whole instructions
 *                                  without an end, which decode to the beginning of the data.
 * @retval vekStatusNullPointer     A pointer is null.
 * @retval vekStatusBadArgument     The record has an unknown method or number of parts.
 */
VekStatus veksEncodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen,
                           void* pState);

/**
 * Expands a stream or container that the caller trusts.
 *
 * Nothing outside the capacity is written, and nothing outside the source is read when the stream
 * is good. Distances are not checked, so a broken stream can make it read before pDst. It stops at
 * the end instruction, at the end of the source, and at the capacity.
 *
 * @param[in]     pSrc    the stream or container.
 * @param[in]     srcLen  its length; 0 bytes expand to nothing.
 * @param[out]    pDst    the data; must not overlap pSrc. For a container it must hold all T bytes:
 *                        the capacity is then not looked at.
 * @param[in,out] pDstLen in: the capacity of pDst; out: bytes written.
 * @retval vekStatusOk              Done.
 * @retval vekStatusNullPointer     A pointer is null.
 * @retval vekStatusLzoBrokenStream The lengths of a container's parts pass the source.
 */
VekStatus veksDecodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen);

/**
 * Expands a stream or container of any origin, and reports whatever is wrong. **A container is
 * written to its own length, whatever the capacity: for a source that is not trusted provide
 * vekLZOContainerLength() bytes, or refuse those where it is above the capacity.**
 *
 * Bytes behind the end instruction are ignored. A stream may also end without one, behind a run of
 * 4 or more literals.
 *
 * @param[in]     pSrc    the stream or container.
 * @param[in]     srcLen  its length; 0 bytes expand to nothing.
 * @param[out]    pDst    the data; must not overlap pSrc. For a container it must hold all T bytes.
 * @param[in,out] pDstLen in: the capacity of pDst; out: bytes written.
 * @retval vekStatusOk              Done.
 * @retval vekStatusNullPointer     A pointer is null.
 * @retval vekStatusLzoBrokenStream The stream reads past the source, writes past the capacity or
 *                                  reaches before the data. A plain stream then leaves `*pDstLen`
 *                                  alone, with what was decoded in pDst. A container decodes every
 *                                  part, counts 0 for broken ones in `*pDstLen`, and has the status
 *                                  of the last that is broken.
 */
VekStatus veksDecodeLZOSafe_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
                               uint32_t* pDstLen);

/** @} */

/* ------------------------------------------------------------------------------------------------
 * LZSS
 * --------------------------------------------------------------------------------------------- */

/**
 * @defgroup vekdc_lzss LZSS
 * @{
 */

/*
 * LZSS (J. A. Storer and T. G. Szymanski, "Data Compression via Textual Substitution", 1982): a
 * stream of tokens, highest bit first, without header, length or end mark.
 *
 *     literal   9 bits: 1, the byte
 *     match    24 bits: 0, distance (15 bits, 1..32767), length - 3 (8 bits)
 *
 * The last byte is filled up with zero bits, which no decoder takes for a token. The format holds
 * no length and no checksum, and every bit pattern decodes to something: frame it yourself.
 *
 * Everything here can stop and go on: input and room may be cut anywhere. One record of
 * veksLZSSGetSize_8u() bytes, aligned as a pointer, serves either direction; each Init starts a new
 * stream. The record holds pointers into itself and must not be moved. Streams may have any length.
 */

/**
 * Room that always suffices to encode a buffer in one call and a flush.
 *
 * @param[in] len the source's length, at most 1908874000.
 * @retval bytes the room.
 */
static inline int32_t vekLZSSEncodeBound(int32_t len) {
    return len + len / 8 + 16;
}

/**
 * Size of a record for either direction.
 *
 * @param[out] pSize the size in bytes: 327724 on 32-bit x86.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksLZSSGetSize_8u(int32_t* pSize);

/**
 * Prepares a record to encode a stream.
 *
 * @param[out] pState the record, aligned as a pointer.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksEncodeLZSSInit_8u(void* pState);

/**
 * Encodes input. Matches may reach 32767 bytes back into the input of earlier calls; the last two
 * bytes of a call are always literals, so longer calls compress better.
 *
 * No room (also a negative one) is reported before the input is looked at; no input gives
 * ::vekStatusOk.
 *
 * @param[in,out] ppSrc   next input byte.
 * @param[in,out] pSrcLen input bytes left.
 * @param[in,out] ppDst   where the next whole byte goes; up to 46 bits stay in the record.
 * @param[in,out] pDstLen room left.
 * @param[in,out] pState  a prepared record.
 * @retval vekStatusOk              All input was taken.
 * @retval vekStatusDestinationFull The room was or became full, also by the very last token.
 * @retval vekStatusNullPointer     A pointer is null; with room and input also `*ppSrc` or
 *                                  `*ppDst`.
 */
VekStatus veksEncodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                            int32_t* pDstLen, void* pState);

/**
 * Writes the bits that wait for a whole byte, filled up with zero bits, at the end of a stream.
 * After ::vekStatusOk the record is to be prepared anew before it encodes again.
 *
 * @param[in,out] ppDst   where the next byte goes.
 * @param[in,out] pDstLen room left, at least 1 on entry.
 * @param[in,out] pState  the record.
 * @retval vekStatusOk              The stream is complete.
 * @retval vekStatusDestinationFull The room became full, also by the last byte: call again.
 * @retval vekStatusNullPointer     A pointer, or `*ppDst`, is null.
 * @retval vekStatusBadSize         There is no room.
 */
VekStatus veksEncodeLZSSFlush_8u(uint8_t** ppDst, int32_t* pDstLen, void* pState);

/**
 * Prepares a record to decode a stream.
 *
 * @param[out] pState the record, aligned as a pointer.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksDecodeLZSSInit_8u(void* pState);

/**
 * Decodes tokens until input or room ends. A match that the room cuts is finished by the next call.
 * A distance beyond what was produced reads whatever the record holds, nothing outside it.
 *
 * @param[in,out] ppSrc   next input byte; moved past the bytes of whole tokens, and of a last token
 *                        that waits for more.
 * @param[in,out] pSrcLen input bytes left; below 1 is no input.
 * @param[in,out] ppDst   next output byte.
 * @param[in,out] pDstLen room left, at least 1 on entry.
 * @param[in,out] pState  a prepared record.
 * @retval vekStatusOk              The input is used up.
 * @retval vekStatusDestinationFull The room is full.
 * @retval vekStatusNullPointer     A pointer, or `*ppDst`, is null; with input also `*ppSrc`.
 * @retval vekStatusBadSize         There is no room.
 */
VekStatus veksDecodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                            int32_t* pDstLen, void* pState);

/** @} */

/* ------------------------------------------------------------------------------------------------
 * ZFP
 * --------------------------------------------------------------------------------------------- */

/**
 * @defgroup vekdc_zfp ZFP
 * @{
 */

/**
 * Both ways of a stream of ZFP blocks (P. Lindstrom, "Fixed-Rate Compressed Floating-Point Arrays",
 * IEEE TVCG 2014; blocks of 4 x 4 x 4 floats, embedded coding, as the method's reference library
 * writes them). Opaque: allocate what the size query says, aligned to 4.
 *
 * One record serves one stream in one direction. Every function but the size queries and the Inits
 * returns ::vekStatusStateMismatch for a record that no Init prepared. A record may be copied as
 * bytes: the copy goes on, in the same buffer, from where the record stood.
 *
 * Four numbers govern a stream, and the decoder must be set to those of the encoder. A block takes
 * at least minBits and at most maxBits bits (both equal: a fixed rate, so that blocks stand at
 * known places), keeps at most maxPrec bit planes, and drops planes below 2^minExp.
 *
 * The method does not preserve infinities and NaNs: a block that holds one decodes to some values,
 * and its neighbours are not disturbed.
 *
 * Values below 2^-97 may come back as 0. A block's values are integers times 2^(e - 30), where 2^e
 * is the power of two above its largest magnitude, and for that scale the decoder takes normal
 * floats (2^-126 and above) or 0. So a block without a magnitude of 2^-97 or more decodes to zeros;
 * in others such values keep the bits that the block's precision gives them.
 */
typedef struct VekZfpState VekZfpState;

/** The former name, for programs that use it. */
typedef VekZfpState ZfpState;

/**
 * Size of a record to encode.
 *
 * @param[out] pSize the size in bytes: 560 on 32-bit x86.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksEncodeZfpGetStateSize_32f(int32_t* pSize);

/**
 * Prepares a record to write into a buffer, with minBits 0, maxBits 4171, maxPrec 64 and minExp
 * -10740: every plane of every value is kept.
 *
 * @param[out] pDst   the buffer; it must stay in place until the stream is flushed.
 * @param[in]  dstLen its length in bytes, at least 1.
 * @param[out] pState the record.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     dstLen is below 1.
 */
VekStatus veksEncodeZfpInit_32f(uint8_t* pDst, int32_t dstLen, VekZfpState* pState);

/**
 * veksEncodeZfpInit_32f() for longer buffers.
 *
 * @param[out] pDst   the buffer; it must stay in place until the stream is flushed.
 * @param[in]  dstLen its length in bytes, not 0. The end is the start plus the length, modulo the
 *                    address space; one that lies below the start leaves no room.
 * @param[out] pState the record.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     dstLen is 0.
 */
VekStatus veksEncodeZfpInitLong_32f(uint8_t* pDst, int64_t dstLen, VekZfpState* pState);

/**
 * Sets the encoder's four numbers, as given: what they mean together is the caller's business.
 *
 * @param[in]     minBits least bits of a block; shorter ones are filled up with zeros.
 * @param[in]     maxBits most bits of a block; the header's 9 are written in any case.
 * @param[in]     maxPrec most bit planes of a block; 32 or more is all.
 * @param[in]     minExp  exponent of the lowest bit plane kept.
 * @param[in,out] pState  the record.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   The pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 */
VekStatus veksEncodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                               VekZfpState* pState);

/**
 * Sets the encoder's minExp, and nothing else, to floor(log2(tolerance)), which keeps the absolute
 * error of every value below the tolerance.
 *
 * @param[in]     tolerance the largest error allowed; one that is not above 0 sets -10740.
 * @param[in,out] pState    the record.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   The pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 */
VekStatus veksEncodeZfpSetAccuracy_32f(double tolerance, VekZfpState* pState);

/**
 * Bytes written so far: whole 64-bit words, and after the flush everything.
 *
 * @param[in]  pState the record.
 * @param[out] pSize  the size in bytes.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   A pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 */
VekStatus veksEncodeZfpGetCompressedSize_32f(const VekZfpState* pState, int32_t* pSize);

/**
 * veksEncodeZfpGetCompressedSize_32f() for longer streams.
 *
 * @param[in]  pState the record.
 * @param[out] pSize  the size in bytes.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   A pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 */
VekStatus veksEncodeZfpGetCompressedSizeLong_32f(const VekZfpState* pState, int64_t* pSize);

/**
 * Bits written so far, those that are held in the record included.
 *
 * @param[in]  pState the record.
 * @param[out] pSize  the size in bits.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   A pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 */
VekStatus veksEncodeZfpGetCompressedBitSize_32f(const VekZfpState* pState, int64_t* pSize);

/**
 * Ends a stream: stores the bits held, as a whole word where 8 bytes of room are left, else in as
 * few bytes as hold them.
 *
 * @param[in,out] pState the record.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   The pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 * @retval vekStatusNoRoom        Not all fitted; what did is stored.
 */
VekStatus veksEncodeZfpFlush_32f(VekZfpState* pState);

/**
 * Codes one block. Up to 304 bytes behind the stream, never behind the buffer's end, may be
 * overwritten.
 *
 * @param[in]     pSrc         the block's first value; x runs over 4 neighbouring floats.
 * @param[in]     srcStep      bytes from one row (y) to the next, of either sign, any number.
 * @param[in]     srcPlaneStep bytes from one plane (z) to the next, likewise.
 * @param[in,out] pState       the record.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   A pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 * @retval vekStatusNoRoom        A word would pass the end: the words that fitted are stored, and
 *                                the stream cannot go on.
 */
VekStatus veksEncodeZfp444_32f(const float* pSrc, int32_t srcStep, int32_t srcPlaneStep,
                               VekZfpState* pState);

/**
 * Size of a record to decode.
 *
 * @param[out] pSize the size in bytes: 560 on 32-bit x86.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer The pointer is null.
 */
VekStatus veksDecodeZfpGetStateSize_32f(int32_t* pSize);

/**
 * Prepares a record to read a stream, with the same numbers as veksEncodeZfpInit_32f().
 *
 * @param[in]  pSrc   the stream; it must stay in place and unchanged while it is decoded.
 * @param[in]  srcLen its length in bytes, at least 1.
 * @param[out] pState the record.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     srcLen is below 1.
 */
VekStatus veksDecodeZfpInit_32f(const uint8_t* pSrc, int32_t srcLen, VekZfpState* pState);

/**
 * veksDecodeZfpInit_32f() for longer streams.
 *
 * @param[in]  pSrc   the stream; it must stay in place and unchanged while it is decoded.
 * @param[in]  srcLen its length in bytes, not 0; the end is found as in
 *                    veksEncodeZfpInitLong_32f().
 * @param[out] pState the record.
 * @retval vekStatusOk          Done.
 * @retval vekStatusNullPointer A pointer is null.
 * @retval vekStatusBadSize     srcLen is 0.
 */
VekStatus veksDecodeZfpInitLong_32f(const uint8_t* pSrc, int64_t srcLen, VekZfpState* pState);

/**
 * Sets the decoder's four numbers, which must be those of the encoder.
 *
 * @param[in]     minBits least bits of a block.
 * @param[in]     maxBits most bits of a block.
 * @param[in]     maxPrec most bit planes of a block.
 * @param[in]     minExp  exponent of the lowest bit plane kept.
 * @param[in,out] pState  the record.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   The pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 */
VekStatus veksDecodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                               VekZfpState* pState);

/**
 * Sets the decoder's minExp as veksEncodeZfpSetAccuracy_32f() sets the encoder's.
 *
 * @param[in]     tolerance that of the encoder.
 * @param[in,out] pState    the record.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   The pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 */
VekStatus veksDecodeZfpSetAccuracy_32f(double tolerance, VekZfpState* pState);

/**
 * Bytes taken so far. The stream is taken a 64-bit word at a time, its last bytes one by one, each
 * when its first bit is needed.
 *
 * @param[in]  pState the record.
 * @param[out] pSize  the size in bytes.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   A pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 */
VekStatus veksDecodeZfpGetDecompressedSize_32f(const VekZfpState* pState, int32_t* pSize);

/**
 * veksDecodeZfpGetDecompressedSize_32f() for longer streams.
 *
 * @param[in]  pState the record.
 * @param[out] pSize  the size in bytes.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   A pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 */
VekStatus veksDecodeZfpGetDecompressedSizeLong_32f(const VekZfpState* pState, int64_t* pSize);

/**
 * Decodes one block. Any bits decode to something; nothing outside the stream is read and nothing
 * outside the block's 16 rows is written.
 *
 * @param[in,out] pState       the record.
 * @param[out]    pDst         the block's first value; x runs over 4 neighbouring floats.
 * @param[in]     dstStep      bytes from one row (y) to the next, of either sign, any number.
 * @param[in]     dstPlaneStep bytes from one plane (z) to the next, likewise.
 * @retval vekStatusOk            Done.
 * @retval vekStatusNullPointer   A pointer is null.
 * @retval vekStatusStateMismatch The record was not prepared.
 * @retval vekStatusNoRoom        The stream ends inside the block. The position is then the end,
 *                                and the block is not written (a zero block whose filling is cut
 *                                short is).
 */
VekStatus veksDecodeZfp444_32f(VekZfpState* pState, float* pDst, int32_t dstStep,
                               int32_t dstPlaneStep);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* VEKDC_H */
