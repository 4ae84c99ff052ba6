/* LZ4 in its three ways: one block, a stream of blocks that refer back, a dictionary. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <vekdc.h>

enum { kBlock = 120, kRoom = kBlock + kBlock / 255 + 16 };

static int check(VekStatus status, const char* what) {
    if (status != vekStatusOk) fprintf(stderr, "lz4: %s: %s\n", what, vekStatusText(status));
    return status == vekStatusOk;
}

/* Blocks of one buffer, one after the other; each may refer to all in front of it. */
static int stream(const uint8_t* text, int32_t length, uint8_t* table) {
    uint8_t coded[kRoom];
    uint8_t back[1000];
    int32_t total = 0;
    for (int32_t at = 0; at < length; at += kBlock) {
        const int32_t size = length - at < kBlock ? length - at : kBlock;
        int32_t codedSize = 0;
        /* Position 0 clears the table; later blocks keep what it has learnt. */
        if (!check(veksEncodeLZ4Dict_8u(text + at, at, size, coded, &codedSize, table, NULL, 0),
                   "encoding a block"))
            return 0;
        total += codedSize;
        /* The decoder's history is its own output so far. */
        int32_t room = (int32_t)sizeof(back) - at;
        if (!check(veksDecodeLZ4Dict_8u(coded, &codedSize, back, at, &room, back, at),
                   "decoding a block"))
            return 0;
    }
    printf("stream     %3d -> %3d bytes\n", (int)length, (int)total);
    return memcmp(back, text, (size_t)length) == 0;
}

/* A dictionary that both sides have: for small messages that resemble each other. */
static int dictionary(const uint8_t* dict, int32_t dictSize, const uint8_t* text, int32_t length,
                      uint8_t* table) {
    uint8_t coded[1000];
    uint8_t back[2000];
    int32_t codedSize = 0;
    if (!check(veksEncodeLZ4DictHashTableInit_8u(table, length), "clearing the table") ||
        !check(veksEncodeLZ4LoadDict_8u(table, dict, dictSize), "loading the dictionary") ||
        !check(
            veksEncodeLZ4Dict_8u(text, dictSize, length, coded, &codedSize, table, dict, dictSize),
            "encoding with it"))
        return 0;
    printf("dictionary %3d -> %3d bytes\n", (int)length, (int)codedSize);
    /* The output begins where the dictionary's positions end; the bytes in front stay untouched. */
    int32_t room = (int32_t)sizeof(back) - dictSize;
    return check(veksDecodeLZ4Dict_8u(coded, &codedSize, back, dictSize, &room, dict, dictSize),
                 "decoding with it") &&
           room == length && memcmp(back + dictSize, text, (size_t)length) == 0;
}

int main(void) {
    static uint32_t table[4096];
    uint8_t* const work = (uint8_t*)table;
    uint8_t text[480];
    for (int i = 0; i < 480; ++i) text[i] = (uint8_t) "a line that comes again and again, "[i % 35];

    uint8_t coded[1000];
    uint8_t back[480];
    int32_t codedSize = 0; /* not looked at: the buffer has vekLZ4EncodeBound() bytes and more */
    int32_t backSize = (int32_t)sizeof(back);
    if (!check(veksEncodeLZ4_8u(text, (int32_t)sizeof(text), coded, &codedSize, work),
               "encoding") ||
        !check(veksDecodeLZ4_8u(coded, codedSize, back, &backSize), "decoding"))
        return 1;
    printf("one block  %3d -> %3d bytes\n", (int)sizeof(text), (int)codedSize);
    if (backSize != (int32_t)sizeof(text) || memcmp(back, text, sizeof(text)) != 0) return 1;
    return stream(text, (int32_t)sizeof(text), work) && dictionary(text, 200, text + 170, 300, work)
               ? 0
               : 1;
}
