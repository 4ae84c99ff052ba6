/*
 * Compresses a buffer into a raw deflate stream of one block with a code of its own, and decodes it
 * again.
 *
 * Matches are found and counted, the counts become codes, the codes a header, and the pairs bits.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vekdc.h>

enum { kWindow = 32768, kHash = 32768, kSize = 60000, kEndOfBlock = 256 };

static uint8_t window[kWindow], text[kSize], lits[kSize], back[kSize];
static int32_t head[kHash], chain[kWindow];
static uint16_t dists[kSize];
static VekHuffEntry lit[286], dist[30];

/* Puts an entry's code behind the bits of the buffer, and stores the whole bytes. */
static void putCode(VekHuffEntry entry, uint32_t* bits, uint32_t* count, uint8_t* out,
                    uint32_t* at) {
    *bits |= (uint32_t)entry.code << *count;
    for (*count += entry.length; *count >= 8; *count -= 8, *bits >>= 8)
        out[(*at)++] = (uint8_t)*bits;
}

static uint32_t compress(uint8_t* out) {
    const uint8_t* src = text;
    int32_t left = kSize, position = 0, i;
    uint32_t pairs = kSize, length, bits, code, count, at;
    for (i = 0; i < kHash; ++i) head[i] = -32768;
    veksDeflateLZ77_8u(&src, &left, &position, window, kWindow, head, chain, kHash, lit, dist, lits,
                       dists, &pairs, 6, 2);
    pairs = kSize - pairs;
    lit[kEndOfBlock].code = 1;
    veksDeflateLZ77FastestGenHuffTable_8u(lit, dist, lit, dist);
    veksDeflateLZ77FastestGenHeader_8u(lit, dist, out, &length, &bits);
    /* The header's last, incomplete byte begins the bit buffer. */
    at = bits / 8;
    count = bits % 8;
    code = count != 0 ? out[at] : 0;
    veksDeflateHuff_8u(lits, dists, pairs, &code, &count, lit, dist, out, &at);
    putCode(lit[kEndOfBlock], &code, &count, out, &at);
    if (count != 0) out[at++] = (uint8_t)code;
    printf("%u pairs, header %u bits, %u bytes\n", (unsigned)pairs, (unsigned)bits, (unsigned)at);
    return at;
}

/* Decodes the block's data; its header is skipped, since the code lengths are at hand. */
static int decompresses(const uint8_t* coded, uint32_t size) {
    static uint8_t header[VEK_DEFLATE_HEADER_BOUND];
    static VekInflateState state;
    uint16_t lengths[286 + 30];
    uint32_t length, headerBits, bits, count, room = kSize, i;
    const uint8_t* src;
    uint8_t* dst = back;
    int32_t mode = 1;
    for (i = 0; i < 286; ++i) lengths[i] = lit[i].length;
    for (i = 0; i < 30; ++i) lengths[286 + i] = dist[i].length;
    if (veksInflateBuildHuffTable(lengths, 286, 30, &state) != vekStatusOk) return 0;
    veksDeflateLZ77FastestGenHeader_8u(lit, dist, header, &length, &headerBits);
    src = coded + headerBits / 8;
    size -= headerBits / 8;
    count = headerBits % 8 != 0 ? 8 - headerBits % 8 : 0;
    bits = 0;
    if (count != 0) {
        bits = (uint32_t)*src++ >> (headerBits % 8);
        --size;
    }
    return veksInflate_8u(&src, &size, &bits, &count, 0, &dst, &room, 0, &mode, &state) ==
               vekStatusOk &&
           mode == 0 && room == 0 && memcmp(text, back, kSize) == 0;
}

int main(void) {
    uint8_t* out = malloc(VEK_DEFLATE_HEADER_BOUND + (size_t)vekDeflateHuffBound(kSize));
    uint32_t size, i;
    int good;
    if (out == NULL) return 1;
    for (i = 0; i < kSize; ++i)
        text[i] = (uint8_t)("deflate finds what was said before "[i * i / 7 % 35]);
    size = compress(out);
    good = decompresses(out, size);
    puts(good ? "came back the same" : "came back different");
    free(out);
    return good ? 0 : 1;
}
