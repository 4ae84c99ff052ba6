/* A text through LZO and back. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vekdc.h>

int main(void) {
    char text[4000];
    uint32_t stateSize = 0;
    for (size_t i = 0; i < sizeof(text); ++i) text[i] = "the quick brown fox "[i % 20];
    if (veksEncodeLZOGetSize(0, sizeof(text), &stateSize) != vekStatusOk) return 1;

    uint32_t packed = vekLZOEncodeBound(sizeof(text));
    uint8_t* const stream = malloc(packed);
    void* const state = malloc(stateSize);
    uint8_t back[sizeof(text)];
    uint32_t length = sizeof(back);
    const int ok = stream != NULL && state != NULL &&
                   veksEncodeLZOInit_8u(0, sizeof(text), state) == vekStatusOk &&
                   veksEncodeLZO_8u((const uint8_t*)text, sizeof(text), stream, &packed, state) ==
                       vekStatusOk &&
                   /* A stream of our own needs no such question, one from elsewhere does. */
                   vekLZOContainerLength(stream, packed) <= length &&
                   veksDecodeLZOSafe_8u(stream, packed, back, &length) == vekStatusOk &&
                   length == sizeof(text) && memcmp(back, text, sizeof(text)) == 0;
    if (ok)
        printf("%u bytes -> %u -> %u\n", (unsigned)sizeof(text), (unsigned)packed,
               (unsigned)length);
    free(stream);
    free(state);
    return ok ? 0 : 1;
}
