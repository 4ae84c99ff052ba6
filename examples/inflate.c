/* Inflates a raw deflate stream of one fixed-code block, handing over one byte of it at a time. */
#include <stdio.h>
#include <string.h>

#include "vekdc.h"

/* "Hello, hello, hello!" */
static const unsigned char stream[] = {0xF3, 0x48, 0xCD, 0xC9, 0xC9, 0xD7,
                                       0x51, 0xC8, 0x40, 0xA2, 0x14, 0x01};

int main(void) {
    static VekInflateState state; /* All zero: no window, the fixed code. */
    unsigned char text[64];
    uint8_t* dst = text;
    uint32_t room = sizeof text;
    uint32_t code = stream[0];
    uint32_t nBits = 8;
    const uint8_t* next = stream + 1;
    int32_t mode = 1;

    /* The block's header: the last block's flag, and two bits of type (1: the fixed code). */
    if ((code & 1) != 1 || (code >> 1 & 3) != 1) return 1;
    code >>= 3;
    nBits -= 3;

    while (mode != 0) {
        uint32_t one = 1;
        if (next == stream + sizeof stream) return 1;
        if (veksInflate_8u(&next, &one, &code, &nBits, 0, &dst, &room, (uint32_t)(dst - text),
                           &mode, &state) != vekStatusOk) {
            return 1;
        }
    }
    printf("%.*s\n", (int)(dst - text), (const char*)text);
    return memcmp(text, "Hello, hello, hello!", 20) != 0;
}
