/* A field of floats at eight bits a value, and back. */
#include <stdio.h>
#include <stdlib.h>

#include "vekdc.h"

enum { SIDE = 32, ROW = SIDE * 4, PLANE = SIDE * SIDE * 4, BITS = 8 * 64 };

static float field[SIDE * SIDE * SIDE], decoded[SIDE * SIDE * SIDE];
static uint8_t stream[sizeof(field) / 4];

int main(void) {
    int32_t size;
    if (veksEncodeZfpGetStateSize_32f(&size) != vekStatusOk) return 1;
    VekZfpState* state = malloc((size_t)size);
    if (state == NULL) return 1;
    for (int i = 0; i < SIDE * SIDE * SIDE; ++i)
        field[i] = (float)(i % SIDE) * 0.1F + (float)(i / SIDE % SIDE * (i / SIDE / SIDE)) * 0.01F;

    VekStatus status = veksEncodeZfpInit_32f(stream, (int32_t)sizeof(stream), state);
    if (status == vekStatusOk) status = veksEncodeZfpSet_32f(BITS, BITS, 64, -1074, state);
    for (int z = 0; z < SIDE; z += 4)
        for (int y = 0; y < SIDE; y += 4)
            for (int x = 0; x < SIDE && status == vekStatusOk; x += 4)
                status = veksEncodeZfp444_32f(&field[(z * SIDE + y) * SIDE + x], ROW, PLANE, state);
    if (status == vekStatusOk) status = veksEncodeZfpFlush_32f(state);
    if (status == vekStatusOk) status = veksEncodeZfpGetCompressedSize_32f(state, &size);

    if (status == vekStatusOk) status = veksDecodeZfpInit_32f(stream, size, state);
    if (status == vekStatusOk) status = veksDecodeZfpSet_32f(BITS, BITS, 64, -1074, state);
    for (int z = 0; z < SIDE; z += 4)
        for (int y = 0; y < SIDE; y += 4)
            for (int x = 0; x < SIDE && status == vekStatusOk; x += 4)
                status =
                    veksDecodeZfp444_32f(state, &decoded[(z * SIDE + y) * SIDE + x], ROW, PLANE);
    free(state);
    if (status != vekStatusOk) return 1;

    float worst = 0;
    for (int i = 0; i < SIDE * SIDE * SIDE; ++i) {
        const float error = field[i] < decoded[i] ? decoded[i] - field[i] : field[i] - decoded[i];
        if (error > worst) worst = error;
    }
    printf("%u bytes of floats in %d bytes, largest error %g\n", (unsigned)sizeof(field), (int)size,
           (double)worst);
    return worst < 0.01F ? 0 : 1;
}
