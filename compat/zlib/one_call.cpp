// Whole buffers in one call, and what the library says of itself.
#include <algorithm>
#include <climits>

#include "compat/zlib/zlib_interface.h"

namespace {

/// As much of what is left as a stream's counter holds.
void moreRoom(uInt& available, uLong& left) {
    if (available != 0) return;
    available = static_cast<uInt>(std::min<uLong>(left, UINT_MAX));
    left -= available;
}

constexpr const char* kMessages[] = {"need dictionary",
                                     "stream end",
                                     "",
                                     "file error",
                                     "stream error",
                                     "data error",
                                     "insufficient memory",
                                     "buffer error",
                                     "incompatible version",
                                     ""};

/// The width of a type as zlibCompileFlags() tells it.
template <class T>
constexpr uLong widthCode() {
    return sizeof(T) == 2 ? 0 : sizeof(T) == 4 ? 1 : sizeof(T) == 8 ? 2 : 3;
}

}  // namespace

extern "C" {

const char* zlibVersion(void) {
    return ZLIB_VERSION;
}

uLong zlibCompileFlags(void) {
    return widthCode<uInt>() | widthCode<uLong>() << 2 | widthCode<voidpf>() << 4 |
           widthCode<z_off_t>() << 6;
}

const char* zError(int err) {
    return kMessages[Z_NEED_DICT - std::clamp(err, Z_VERSION_ERROR - 1, Z_NEED_DICT)];
}

// A block that does not compress is stored, five bytes larger for each 65535; with header, trailer
// and the end of the last byte that is less than this.
uLong compressBound(uLong sourceLen) {
    return sourceLen + (sourceLen >> 12) + (sourceLen >> 14) + (sourceLen >> 25) + 13;
}

int compress2(Bytef* dest, uLongf* destLen, const Bytef* source, uLong sourceLen, int level) {
    uLong room = *destLen;
    *destLen = 0;
    z_stream stream{};
    int status = deflateInit_(&stream, level, ZLIB_VERSION, sizeof(stream));
    if (status != Z_OK) return status;
    stream.next_out = dest;
    stream.next_in = const_cast<Bytef*>(source);
    do {
        moreRoom(stream.avail_out, room);
        moreRoom(stream.avail_in, sourceLen);
        status = deflate(&stream, sourceLen != 0 ? Z_NO_FLUSH : Z_FINISH);
    } while (status == Z_OK);
    *destLen = stream.total_out;
    deflateEnd(&stream);
    return status == Z_STREAM_END ? Z_OK : status;
}

int compress(Bytef* dest, uLongf* destLen, const Bytef* source, uLong sourceLen) {
    return compress2(dest, destLen, source, sourceLen, Z_DEFAULT_COMPRESSION);
}

int uncompress2(Bytef* dest, uLongf* destLen, const Bytef* source, uLong* sourceLen) {
    // Without room, one byte shows whether the stream is empty or more is to come.
    Bytef probe[1];
    const bool probing = *destLen == 0;
    uLong room = probing ? 1 : *destLen;
    uLong left = *sourceLen;
    if (!probing) *destLen = 0;
    z_stream stream{};
    stream.next_in = const_cast<Bytef*>(source);
    int status = inflateInit_(&stream, ZLIB_VERSION, sizeof(stream));
    if (status != Z_OK) return status;
    stream.next_out = probing ? probe : dest;
    do {
        moreRoom(stream.avail_out, room);
        moreRoom(stream.avail_in, left);
        status = inflate(&stream, Z_NO_FLUSH);
    } while (status == Z_OK);
    *sourceLen -= left + stream.avail_in;
    bool roomLeft = room + stream.avail_out != 0;
    if (!probing) {
        *destLen = stream.total_out;
    } else if (stream.total_out != 0 && status == Z_BUF_ERROR) {
        roomLeft = true;
    }
    inflateEnd(&stream);
    if (status == Z_STREAM_END) return Z_OK;
    const bool cutShort = status == Z_BUF_ERROR && roomLeft;
    return status == Z_NEED_DICT || cutShort ? Z_DATA_ERROR : status;
}

int uncompress(Bytef* dest, uLongf* destLen, const Bytef* source, uLong sourceLen) {
    return uncompress2(dest, destLen, source, &sourceLen);
}
}
