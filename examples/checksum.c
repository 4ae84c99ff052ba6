/* Checksums of a text that arrives in two pieces. */
#include <stdio.h>
#include <string.h>
#include <vekdc.h>

int main(void) {
    const char* const pieces[] = {"12345", "6789"};
    uint32_t crc32 = 0;
    uint32_t bzip2 = 0;
    uint32_t crc32c = 0xFFFFFFFFU; /* the one whose register the caller conditions */
    uint32_t adler = 1;
    for (int i = 0; i < 2; ++i) {
        const uint8_t* const data = (const uint8_t*)pieces[i];
        const int32_t size = (int32_t)strlen(pieces[i]);
        if (veksCRC32_8u(data, size, &crc32) != vekStatusOk ||
            veksCRC32_BZ2_8u(data, size, &bzip2) != vekStatusOk ||
            veksCRC32C_8u(data, (uint32_t)size, &crc32c) != vekStatusOk ||
            veksAdler32_8u(data, size, &adler) != vekStatusOk) {
            fprintf(stderr, "checksum: refused\n");
            return 1;
        }
    }
    crc32c = ~crc32c;
    printf("CRC-32   %08x\nbzip2    %08x\nCRC-32C  %08x\nAdler-32 %08x\n", (unsigned)crc32,
           (unsigned)bzip2, (unsigned)crc32c, (unsigned)adler);
    return crc32 == 0xCBF43926U && bzip2 == 0xFC891918U && crc32c == 0xE3069283U &&
                   adler == 0x091E01DEU
               ? 0
               : 1;
}
