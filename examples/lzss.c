/* A text through LZSS in two calls, and back in small pieces. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vekdc.h>

enum { kSize = 4000 };

static int roundTrip(const uint8_t* text, void* state, int32_t* packed) {
    uint8_t bits[kSize + kSize / 8 + 16];
    uint8_t back[kSize];
    const uint8_t* src = text;
    uint8_t* dst = bits;
    int32_t room = sizeof(bits);
    if (veksEncodeLZSSInit_8u(state) != vekStatusOk) return 0;
    for (int half = 0; half < 2; ++half) {
        int32_t left = kSize / 2;
        if (veksEncodeLZSS_8u(&src, &left, &dst, &room, state) != vekStatusOk) return 0;
    }
    if (veksEncodeLZSSFlush_8u(&dst, &room, state) != vekStatusOk) return 0;
    *packed = (int32_t)(dst - bits);

    if (veksDecodeLZSSInit_8u(state) != vekStatusOk) return 0;
    src = bits;
    int32_t left = *packed;
    dst = back;
    while (dst != back + kSize) {
        int32_t piece = 100; /* kSize is a multiple of it */
        if (veksDecodeLZSS_8u(&src, &left, &dst, &piece, state) != vekStatusDestinationFull)
            return 0;
    }
    return memcmp(back, text, kSize) == 0;
}

int main(void) {
    uint8_t text[kSize];
    for (int i = 0; i < kSize; ++i) text[i] = (uint8_t) "the quick brown fox "[i % 20];
    int32_t size = 0;
    int32_t packed = 0;
    if (veksLZSSGetSize_8u(&size) != vekStatusOk) return 1;
    void* const state = malloc((size_t)size);
    const int ok = state != NULL && roundTrip(text, state, &packed);
    free(state);
    if (ok) printf("%d bytes -> %d -> %d\n", kSize, (int)packed, kSize);
    return ok ? 0 : 1;
}
