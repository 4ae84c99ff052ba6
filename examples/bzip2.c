/*
 * A text into a whole bzip2 stream of one block, as bunzip2 reads it, and back.
 *
 *     bzip2 [FILE]    also writes the stream to the file
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vekdc.h>

/* Level 1: a block holds up to 100000 bytes, of which encoders leave 19 unused. */
enum { LENGTH = 40000, BLOCK = 100000, ROOM = BLOCK * 9 / 4 + 8192 + 14 };

/* The stream, the bits that do not make up a byte yet (from bit 31 down), and how many. */
static uint8_t stream[ROOM];
static int32_t size;
static uint32_t code;
static int32_t pending;

/* Ends the program where a stage fails; warnings are for the caller. */
static VekStatus check(VekStatus status, const char* stage) {
    if (status >= 0) return status;
    fprintf(stderr, "%s: %s\n", stage, vekStatusText(status));
    exit(1);
}

/* Memory of the size that a query gives. */
static void* memory(VekStatus (*query)(int32_t, int32_t*), int32_t length) {
    int32_t bytes = 0;
    check(query(length, &bytes), "size query");
    void* const result = malloc((size_t)bytes);
    if (result == NULL) exit(1);
    return result;
}

/* Writes the low `bits` bits of a value, 1 to 24. */
static void put(uint32_t value, int32_t bits) {
    code |= value << (32 - bits) >> pending;
    for (pending += bits; pending >= 8; pending -= 8, code <<= 8)
        stream[size++] = (uint8_t)(code >> 24);
}

/* A mark of 48 bits and a CRC. */
static void putMark(uint32_t high, uint32_t low, uint32_t crc) {
    put(high, 24);
    put(low, 24);
    put(crc >> 16, 16);
    put(crc & 0xFFFF, 16);
}

/* Which values are in use: a bit for each sixteen, then a bit for each value of those in use. */
static void putInUse(const uint8_t* inUse) {
    uint32_t rows = 0, values[16] = {0};
    for (int i = 0; i < 256; ++i) {
        if (!inUse[i]) continue;
        rows |= 0x8000U >> (i / 16);
        values[i / 16] |= 0x8000U >> (i % 16);
    }
    put(rows, 16);
    for (int row = 0; row < 16; ++row)
        if (values[row] != 0) put(values[row], 16);
}

/* One block: run-length code, sort, dictionary, move-to-front, zero runs, Huffman code. */
static void putBlock(const uint8_t* text, int32_t left, uint32_t crc) {
    static uint8_t runs[BLOCK], column[BLOCK];
    static uint16_t symbols[BLOCK + 1];
    uint8_t inUse[256];
    uint32_t frequencies[258] = {0};

    VekBz2RleState rle;
    int32_t length = BLOCK - 19, more = 1, index = 0, values = 0;
    check(veksEncodeRLEInit_BZ2_8u(&rle), "run-length state");
    check(veksEncodeRLE_BZ2_8u(&text, &left, runs, &length, &rle), "run-length code");
    check(veksEncodeRLEFlush_BZ2_8u(runs + length, &more, &rle), "last run");
    check(veksRLEGetInUseTable_8u(inUse, &rle), "values in use");
    length += more;

    uint8_t* const work = memory(veksBWTFwdGetSize_8u, length);
    check(veksBWTFwd_8u(runs, column, length, &index, work), "sort");
    free(work);

    VekMtfState list;
    const uint8_t* positions = column;
    int32_t count = length;
    check(veksReduceDictionary_8u_I(inUse, column, length, &values), "dictionary");
    check(veksMTFInit_8u(&list), "move-to-front state");
    check(veksMTFFwd_8u(column, column, length, &list), "move-to-front");
    check(veksEncodeZ1Z2_BZ2_8u16u(&positions, &length, symbols, &count, frequencies), "zero runs");
    symbols[count++] = (uint16_t)(values + 1); /* end of block */
    frequencies[values + 1] = 1;

    putMark(0x314159, 0x265359, crc);
    put(0, 1);
    put((uint32_t)index, 24);
    putInUse(inUse);
    VekBz2HuffEncState* const tables = memory(veksEncodeHuffGetSize_BZ2_16u8u, count);
    const uint16_t* src = symbols;
    int32_t room = ROOM - size;
    check(veksEncodeHuffInit_BZ2_16u8u(values + 2, frequencies, symbols, count, tables), "tables");
    check(veksPackHuffContext_BZ2_16u8u(&code, &pending, stream + size, &room, tables),
          "description of the tables");
    size += room;
    room = ROOM - size;
    check(veksEncodeHuff_BZ2_16u8u(&code, &pending, &src, &count, stream + size, &room, tables),
          "symbols");
    size += room;
    free(tables);
}

static void encode(const uint8_t* text, int32_t length) {
    uint32_t crc = 0;
    check(veksCRC32_BZ2_8u(text, length, &crc), "CRC");
    memcpy(stream, "BZh1", 4);
    size = 4;
    putBlock(text, length, crc);
    putMark(0x177245, 0x385090, crc); /* of one block, whose CRC is the stream's too */
    if (pending != 0) stream[size++] = (uint8_t)(code >> 24);
}

/* The next 1 to 24 bits; behind the end of the stream they are 0. */
static uint32_t take(const uint8_t** src, int32_t* left, int32_t bits) {
    for (; pending < bits; pending += 8) {
        if (*left == 0) continue;
        const uint32_t byte = *(*src)++;
        code |= byte << (24 - pending);
        --*left;
    }
    const uint32_t value = code >> (32 - bits);
    code <<= bits;
    pending -= bits;
    return value;
}

/* Decodes the stream's first block into `room` bytes; returns how many there were, or -1. */
static int32_t decode(uint8_t* text, int32_t room) {
    static uint16_t symbols[BLOCK + 1];
    static uint8_t runs[BLOCK];
    const uint8_t* src = stream + 4;
    int32_t left = size - 4, count = BLOCK + 1, length = BLOCK, values = 0, all = room;
    uint8_t inUse[256] = {0};
    code = 0;
    pending = 0;
    if (take(&src, &left, 24) != 0x314159 || take(&src, &left, 24) != 0x265359) return -1;
    uint32_t crc = take(&src, &left, 16) << 16;
    crc |= take(&src, &left, 16);
    if (take(&src, &left, 1) != 0) return -1;
    const int32_t index = (int32_t)take(&src, &left, 24);
    const uint32_t rows = take(&src, &left, 16);
    for (int row = 0; row < 16; ++row) {
        const uint32_t used = rows >> (15 - row) & 1 ? take(&src, &left, 16) : 0;
        for (int i = 0; i < 16; ++i) values += inUse[16 * row + i] = used >> (15 - i) & 1;
    }
    if (values == 0 || index >= BLOCK) return -1;

    /* A stream that is not trusted names up to 32767 groups of 50 symbols. */
    VekBz2HuffDecState* const tables = memory(veksDecodeHuffGetSize_BZ2_8u16u, 32767 * 50);
    uint8_t* const work = memory(veksDecodeBlockGetSize_BZ2_8u, BLOCK);
    check(veksDecodeHuffInit_BZ2_8u16u(values + 2, tables), "tables");
    const int good =
        check(veksUnpackHuffContext_BZ2_8u16u(&code, &pending, &src, &left, tables),
              "description of the tables") == vekStatusOk &&
        check(veksDecodeHuff_BZ2_8u16u(&code, &pending, &src, &left, symbols, &count, tables),
              "symbols") == vekStatusOk &&
        check(veksDecodeBlock_BZ2_16u8u(symbols, count, runs, &length, index, values, inUse, work),
              "block") == vekStatusOk;
    free(tables);
    free(work);
    if (!good) return -1;

    VekBz2RleState rle;
    const uint8_t* block = runs;
    uint8_t* dst = text;
    uint32_t sum = 0;
    check(veksDecodeRLEStateInit_BZ2_8u(&rle), "run-length state");
    check(veksDecodeRLEState_BZ2_8u(&block, &length, &dst, &room, &rle), "run-length code");
    check(veksDecodeRLEStateFlush_BZ2_8u(&rle, &dst, &room), "last run");
    check(veksCRC32_BZ2_8u(text, all - room, &sum), "CRC");
    return sum == crc ? all - room : -1;
}

int main(int argc, char** argv) {
    static uint8_t text[LENGTH], back[LENGTH];
    for (size_t i = 0; i < LENGTH; ++i) text[i] = (uint8_t) "the quick brown fox "[i * i / 9 % 20];
    memset(text + 1000, '-', 700);

    encode(text, LENGTH);
    if (argc > 1) {
        FILE* const file = fopen(argv[1], "wb");
        if (file == NULL || fwrite(stream, 1, (size_t)size, file) != (size_t)size) return 1;
        if (fclose(file) != 0) return 1;
    }
    const int32_t length = decode(back, LENGTH);
    if (length != LENGTH || memcmp(text, back, LENGTH) != 0) return 1;
    printf("%d bytes -> %d -> %d\n", LENGTH, (int)size, (int)length);
    return 0;
}
