/* A text through the stages of a bzip2 block and back. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vekdc.h>

enum { LENGTH = 4000, PACKED = 3 * LENGTH + 40000 };

/* Memory of the size that a query gives. */
static void* record(VekStatus (*query)(int32_t, int32_t*), int32_t length) {
    int32_t size = 0;
    return query(length, &size) == vekStatusOk ? malloc((size_t)size) : NULL;
}

/* Run-length code, block sort, move-to-front, zero runs, Huffman code; returns the bytes written.
 */
static int32_t encode(const uint8_t* text, uint8_t* packed, int32_t* index, int32_t* values,
                      uint8_t* inUse) {
    uint8_t runs[LENGTH + LENGTH / 4 + 1], column[sizeof(runs)];
    uint16_t symbols[sizeof(runs) + 1];
    uint32_t frequencies[258] = {0}, bits = 0;
    int32_t bitCount = 0;

    Bz2RleState rle;
    int32_t left = LENGTH, length = sizeof(runs) - 1, more = 1;
    veksEncodeRLEInit_BZ2_8u(&rle);
    veksEncodeRLE_BZ2_8u(&text, &left, runs, &length, &rle);
    veksEncodeRLEFlush_BZ2_8u(runs + length, &more, &rle);
    veksRLEGetInUseTable_8u(inUse, &rle);
    length += more;

    uint8_t* const buffer = record(veksBWTFwdGetSize_8u, length);
    if (buffer == NULL) return 0;
    veksBWTFwd_8u(runs, column, length, index, buffer);
    free(buffer);

    MtfState mtf;
    veksReduceDictionary_8u_I(inUse, column, length, values);
    veksMTFInit_8u(&mtf);
    veksMTFFwd_8u(column, column, length, &mtf);
    const uint8_t* positions = column;
    int32_t count = length;
    veksEncodeZ1Z2_BZ2_8u16u(&positions, &length, symbols, &count, frequencies);
    symbols[count] = (uint16_t)(*values + 1); /* end of block */
    frequencies[symbols[count++]] = 1;

    Bz2HuffEncState* const tables = record(veksEncodeHuffGetSize_BZ2_16u8u, count);
    if (tables == NULL) return 0;
    const uint16_t* src = symbols;
    int32_t head = PACKED, size = 0;
    veksEncodeHuffInit_BZ2_16u8u(*values + 2, frequencies, symbols, count, tables);
    veksPackHuffContext_BZ2_16u8u(&bits, &bitCount, packed, &head, tables);
    size = PACKED - 4 - head;
    veksEncodeHuff_BZ2_16u8u(&bits, &bitCount, &src, &count, packed + head, &size, tables);
    free(tables);
    size += head;
    /* The last bits, and room for the decoder to read ahead: a stream has more behind its block. */
    for (int i = 0; i < 4; ++i, bits <<= 8) packed[size++] = (uint8_t)(bits >> 24);
    return size;
}

static int32_t decode(const uint8_t* packed, int32_t size, uint8_t* text, int32_t index,
                      int32_t values, const uint8_t* inUse) {
    uint16_t symbols[2 * LENGTH];
    uint8_t runs[2 * LENGTH];
    uint32_t bits = 0;
    int32_t bitCount = 0, count = 2 * LENGTH, length = sizeof(runs), room = LENGTH;
    VekStatus status = vekStatusError;
    /* A stream that is not trusted names up to 32767 groups of 50 symbols. */
    Bz2HuffDecState* const tables = record(veksDecodeHuffGetSize_BZ2_8u16u, 32767 * 50);
    uint8_t* const buffer = record(veksDecodeBlockGetSize_BZ2_8u, length);
    if (tables != NULL && buffer != NULL) {
        veksDecodeHuffInit_BZ2_8u16u(values + 2, tables);
        status = veksUnpackHuffContext_BZ2_8u16u(&bits, &bitCount, &packed, &size, tables);
        if (status == vekStatusOk)
            status =
                veksDecodeHuff_BZ2_8u16u(&bits, &bitCount, &packed, &size, symbols, &count, tables);
        if (status == vekStatusOk)
            status = veksDecodeBlock_BZ2_16u8u(symbols, count, runs, &length, index, values, inUse,
                                               buffer);
    }
    free(tables);
    free(buffer);
    if (status != vekStatusOk) return 0;

    Bz2RleState rle;
    const uint8_t* src = runs;
    veksDecodeRLEStateInit_BZ2_8u(&rle);
    veksDecodeRLEState_BZ2_8u(&src, &length, &text, &room, &rle);
    veksDecodeRLEStateFlush_BZ2_8u(&rle, &text, &room);
    return LENGTH - room;
}

int main(void) {
    static uint8_t text[LENGTH], back[LENGTH], packed[PACKED], inUse[256];
    int32_t index = 0, values = 0;
    for (size_t i = 0; i < LENGTH; ++i) text[i] = (uint8_t) "the quick brown fox "[i % 20];
    memset(text + 1000, '-', 700);

    const int32_t size = encode(text, packed, &index, &values, inUse);
    const int32_t length = size > 0 ? decode(packed, size, back, index, values, inUse) : 0;
    if (length != LENGTH || memcmp(text, back, LENGTH) != 0) return 1;
    printf("%d bytes -> %d -> %d\n", LENGTH, (int)size, (int)length);
    return 0;
}
