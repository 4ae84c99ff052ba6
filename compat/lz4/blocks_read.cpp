// The block decoders of liblz4: whole blocks, the beginnings of blocks, blocks behind history.
//
// What is no block gives a negative number, not always the same as the distribution's. The decoder
// refuses nothing for where in the room it stands, so it takes some blocks that another would not.
#include <cstdlib>

#include "compat/lz4/history.h"
#include "compat/lz4/lz4_interface.h"
#include "vekdc.h"

namespace {

using namespace vekdc::compat;

constexpr int kBroken = -1;

/// History in front of a block: a part right in front of where it is decoded to, and a part
/// elsewhere in front of that.
struct Behind {
    const uint8_t* elsewhere = nullptr;
    size_t elsewhereSize = 0;
    size_t inPlace = 0;

    /// What there is at `dictionary`, for a block that is decoded to `dst`.
    static Behind of(const char* dictionary, int size, const char* dst) {
        if (size <= 0) return {};
        const auto length = static_cast<size_t>(size);
        if (dictionary + size == dst) return {nullptr, 0, length};
        return {bytes(dictionary), length, 0};
    }
};

/// Decodes a block, all of it or its beginning; returns the number of bytes, or kBroken.
int decode(const char* src, char* dst, int srcSize, int room, const Behind& behind, bool partial) {
    if (src == nullptr || room < 0) return kBroken;
    if (partial && room == 0) return 0;
    if (srcSize < 1) return kBroken;
    // A block of nothing; the length of a match that never comes does not matter, if there is room.
    if (srcSize == 1 || room == 0)
        return srcSize == 1 && (room == 0 ? *src : *src & 0xF0) == 0 ? 0 : kBroken;
    const size_t inPlace = std::min<size_t>(behind.inPlace, kWindow);
    const size_t elsewhere = std::min<size_t>(behind.elsewhereSize, kWindow);
    const auto index = static_cast<int>(inPlace + elsewhere);
    const uint8_t* dictionary = behind.elsewhere + (behind.elsewhereSize - elsewhere);
    auto dictionarySize = static_cast<int>(elsewhere);
    if (elsewhere == 0) {
        dictionary = at(addressOf(dst) - inPlace);
        dictionarySize = index;
    }
    int taken = srcSize;
    int written = room;
    const VekStatus status = veksDecodeLZ4Dict_8u(
        bytes(src), &taken, const_cast<uint8_t*>(at(addressOf(dst) - static_cast<size_t>(index))),
        index, &written, dictionary, dictionarySize);
    if (status < vekStatusOk) return kBroken;
    if (partial) return written;
    return status == vekStatusOk && taken == srcSize ? written : kBroken;
}

/// Reads a length's extension, whose bytes are known only from the block itself.
size_t readLength(const uint8_t*& in, size_t nibble) {
    size_t length = nibble;
    if (nibble != 15) return length;
    do length += *in;
    while (*in++ == 255);
    return length;
}

/// Decodes a block whose own size is unknown: it is read byte by byte, as far as it tells to.
/// Returns that size.
int decodeFast(const char* src, char* dst, int size, const Behind& behind) {
    constexpr size_t leastInFrontOfMatch = 12;
    constexpr size_t leastBehindMatch = 5;
    constexpr size_t shortestMatch = 4;
    if (src == nullptr || size < 0) return kBroken;
    if (size == 0) return *src == 0 ? 1 : kBroken;
    const uint8_t* in = bytes(src);
    uint8_t* out = bytes(dst);
    uint8_t* const end = out + size;
    for (;;) {
        const unsigned token = *in++;
        const size_t literals = readLength(in, token >> 4);
        if (literals > static_cast<size_t>(end - out)) return kBroken;
        std::memcpy(out, in, literals);
        in += literals;
        out += literals;
        if (out == end) return static_cast<int>(in - bytes(src));
        if (static_cast<size_t>(end - out) < leastInFrontOfMatch) return kBroken;
        const size_t offset = in[0] | static_cast<size_t>(in[1]) << 8;
        in += 2;
        size_t match = readLength(in, token & 15) + shortestMatch;
        const auto near = static_cast<size_t>(out - bytes(dst)) + behind.inPlace;
        if (match + leastBehindMatch > static_cast<size_t>(end - out) ||
            offset > near + behind.elsewhereSize)
            return kBroken;
        if (offset > near) {
            const size_t part = std::min(match, offset - near);
            std::memmove(out, behind.elsewhere + behind.elsewhereSize - (offset - near), part);
            out += part;
            match -= part;
        }
        for (; match != 0; --match, ++out) *out = *at(addressOf(out) - offset);
    }
}

using Place = LZ4_streamDecode_t_internal;

/// What a block at `dst` may refer to, and where the stream then is, once it is known to be whole.
Behind behindOf(const Place& place, const char* dst) {
    if (place.prefixSize == 0) return {};
    if (place.prefixEnd == bytes(dst))
        return {place.externalDict, place.extDictSize, place.prefixSize};
    return {place.prefixEnd - place.prefixSize, place.prefixSize, 0};
}
void moveOn(Place& place, char* dst, int size) {
    const auto length = static_cast<size_t>(size);
    if (place.prefixSize != 0 && place.prefixEnd == bytes(dst)) {
        place.prefixSize += length;
        place.prefixEnd += length;
        return;
    }
    if (place.prefixSize != 0) {
        place.extDictSize = place.prefixSize;
        place.externalDict = place.prefixEnd - place.prefixSize;
    }
    place.prefixSize = length;
    place.prefixEnd = bytes(dst) + length;
}

}  // namespace

int LZ4_decompress_safe(const char* src, char* dst, int compressedSize, int dstCapacity) {
    return decode(src, dst, compressedSize, dstCapacity, {}, false);
}

int LZ4_decompress_safe_partial(const char* src, char* dst, int srcSize, int targetOutputSize,
                                int dstCapacity) {
    return decode(src, dst, srcSize, std::min(targetOutputSize, dstCapacity), {}, true);
}

int LZ4_decompress_safe_usingDict(const char* src, char* dst, int srcSize, int dstCapacity,
                                  const char* dictStart, int dictSize) {
    return decode(src, dst, srcSize, dstCapacity, Behind::of(dictStart, dictSize, dst), false);
}

int LZ4_decompress_safe_partial_usingDict(const char* src, char* dst, int compressedSize,
                                          int targetOutputSize, int maxOutputSize,
                                          const char* dictStart, int dictSize) {
    return decode(src, dst, compressedSize, std::min(targetOutputSize, maxOutputSize),
                  Behind::of(dictStart, dictSize, dst), true);
}

int LZ4_decompress_safe_withPrefix64k(const char* src, char* dst, int compressedSize,
                                      int maxDstSize) {
    return decode(src, dst, compressedSize, maxDstSize, {nullptr, 0, kWindow}, false);
}

int LZ4_uncompress_unknownOutputSize(const char* source, char* dest, int isize, int maxOutputSize) {
    return LZ4_decompress_safe(source, dest, isize, maxOutputSize);
}

// --- blocks of unknown size ----------------------------------------------------------------------

int LZ4_decompress_fast(const char* src, char* dst, int originalSize) {
    return decodeFast(src, dst, originalSize, {});
}

int LZ4_decompress_fast_usingDict(const char* src, char* dst, int originalSize,
                                  const char* dictStart, int dictSize) {
    return decodeFast(src, dst, originalSize, Behind::of(dictStart, dictSize, dst));
}

int LZ4_decompress_fast_withPrefix64k(const char* src, char* dst, int originalSize) {
    return decodeFast(src, dst, originalSize, {nullptr, 0, kWindow});
}

int LZ4_uncompress(const char* source, char* dest, int outputSize) {
    return LZ4_decompress_fast(source, dest, outputSize);
}

// --- streams -------------------------------------------------------------------------------------

LZ4_streamDecode_t* LZ4_createStreamDecode() {
    return static_cast<LZ4_streamDecode_t*>(std::calloc(1, sizeof(LZ4_streamDecode_t)));
}

int LZ4_freeStreamDecode(LZ4_streamDecode_t* LZ4_stream) {
    std::free(LZ4_stream);
    return 0;
}

int LZ4_setStreamDecode(LZ4_streamDecode_t* LZ4_streamDecode, const char* dictionary,
                        int dictSize) {
    Place& place = LZ4_streamDecode->internal_donotuse;
    const auto size = static_cast<size_t>(dictSize);
    place = {nullptr, dictSize == 0 ? bytes(dictionary) : bytes(dictionary) + size, 0, size};
    return 1;
}

int LZ4_decoderRingBufferSize(int maxBlockSize) {
    constexpr int smallest = 16;
    if (maxBlockSize < 0 || maxBlockSize > LZ4_MAX_INPUT_SIZE) return 0;
    return LZ4_DECODER_RING_BUFFER_SIZE(std::max(maxBlockSize, smallest));
}

int LZ4_decompress_safe_continue(LZ4_streamDecode_t* LZ4_streamDecode, const char* src, char* dst,
                                 int srcSize, int dstCapacity) {
    Place& place = LZ4_streamDecode->internal_donotuse;
    const int size = decode(src, dst, srcSize, dstCapacity, behindOf(place, dst), false);
    if (size > 0) moveOn(place, dst, size);
    return size;
}

int LZ4_decompress_fast_continue(LZ4_streamDecode_t* LZ4_streamDecode, const char* src, char* dst,
                                 int originalSize) {
    Place& place = LZ4_streamDecode->internal_donotuse;
    const int size = decodeFast(src, dst, originalSize, behindOf(place, dst));
    if (size > 0) moveOn(place, dst, originalSize);
    return size;
}
