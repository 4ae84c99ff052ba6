// gz files that are written: small pieces gather in a buffer, large ones are coded where they
// stand.
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "compat/zlib/gz_file.h"

using namespace vekdc::compat;

namespace vekdc::compat {

bool GzFile::start() {
    if (started) return true;
    // Twice the size, so that a text may be printed behind a buffer that is all but full.
    if (!input.reserve(2 * size_t{size}) || (!direct && !output.reserve(size)))
        return fail(Z_MEM_ERROR, "out of memory");
    stream = {};
    if (!direct) {
        if (deflateInit2_(&stream, level, Z_DEFLATED, MAX_WBITS + 16, MAX_MEM_LEVEL - 1, strategy,
                          ZLIB_VERSION, sizeof(stream)) != Z_OK)
            return fail(Z_MEM_ERROR, "out of memory");
        stream.next_out = output.data();
        stream.avail_out = size;
    }
    started = true;
    return true;
}

bool GzFile::put(const Bytef* from, size_t count) {
    while (count != 0) {
        const ssize_t done = ::write(fd, from, std::min<size_t>(count, INT_MAX));
        if (done < 0) return failSystem();
        from += done;
        count -= static_cast<size_t>(done);
    }
    return true;
}

/// Codes all input. What is coded is written when the buffer is full, or for a flush.
bool GzFile::compress(int flush) {
    if (!start()) return false;
    if (direct) {
        if (!put(stream.next_in, stream.avail_in)) return false;
        stream.avail_in = 0;
        return true;
    }
    if (between) {
        if (stream.avail_in == 0) return true;
        deflateReset(&stream);
        deflateParams(&stream, level, strategy);
        between = false;
    }
    for (bool progress = true; progress;) {
        const unsigned room = stream.avail_out;
        if (deflate(&stream, flush) == Z_STREAM_ERROR)
            return fail(Z_STREAM_ERROR, "internal error: deflate stream corrupt");
        progress = stream.avail_out != room;
        if (stream.avail_out == 0 || (flush != Z_NO_FLUSH && !progress)) {
            if (!put(output.data(), size - stream.avail_out)) return false;
            stream.next_out = output.data();
            stream.avail_out = size;
        }
    }
    between = flush == Z_FINISH;
    return true;
}

/// What a seek left to be done: zeros.
bool GzFile::fillAhead() {
    if (!seeking) return true;
    seeking = false;
    if (!start() || (stream.avail_in != 0 && !compress(Z_NO_FLUSH))) return false;
    std::memset(input.data(), 0, size);
    for (z_off64_t left = skip; left != 0;) {
        const auto count = static_cast<unsigned>(std::min<z_off64_t>(size, left));
        stream.next_in = input.data();
        stream.avail_in = count;
        ready.pos += count;
        if (!compress(Z_NO_FLUSH)) return false;
        left -= count;
    }
    return true;
}

size_t GzFile::write(const Bytef* from, size_t count) {
    if (count == 0 || !start() || !fillAhead()) return 0;
    if (count >= size) {
        if (stream.avail_in != 0 && !compress(Z_NO_FLUSH)) return 0;
        for (size_t done = 0; done < count;) {
            const auto piece = static_cast<unsigned>(std::min<size_t>(count - done, UINT_MAX));
            stream.next_in = const_cast<Bytef*>(from) + done;
            stream.avail_in = piece;
            ready.pos += piece;
            if (!compress(Z_NO_FLUSH)) return 0;
            done += piece;
        }
        return count;
    }
    for (size_t left = count;;) {
        if (stream.avail_in == 0) stream.next_in = input.data();
        const auto held = static_cast<size_t>(stream.next_in + stream.avail_in - input.data());
        const size_t piece = std::min<size_t>(size - std::min<size_t>(held, size), left);
        std::memcpy(input.data() + held, from, piece);
        stream.avail_in += static_cast<unsigned>(piece);
        ready.pos += static_cast<z_off64_t>(piece);
        from += piece;
        left -= piece;
        if (left == 0) return count;
        if (!compress(Z_NO_FLUSH)) return 0;
    }
}

}  // namespace vekdc::compat

extern "C" {

int gzwrite(gzFile handle, voidpc buf, unsigned len) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->writable()) return 0;
    if (len > INT_MAX) {
        file->fail(Z_DATA_ERROR, "requested length does not fit in int");
        return 0;
    }
    return static_cast<int>(file->write(static_cast<const Bytef*>(buf), len));
}

z_size_t gzfwrite(voidpc buf, z_size_t size, z_size_t nitems, gzFile handle) {
    GzFile* const file = fileOf(handle);
    if (size == 0 || file == nullptr || !file->writable()) return 0;
    size_t bytes = 0;
    if (__builtin_mul_overflow(size, nitems, &bytes)) {
        file->fail(Z_STREAM_ERROR, "request does not fit in a size_t");
        return 0;
    }
    return file->write(static_cast<const Bytef*>(buf), bytes) / size;
}

int gzputc(gzFile handle, int c) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->writable()) return -1;
    const auto byte = static_cast<Bytef>(c);
    return file->write(&byte, 1) == 1 ? byte : -1;
}

int gzputs(gzFile handle, const char* s) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->writable()) return -1;
    const size_t length = std::strlen(s);
    if (length > INT_MAX) {
        file->fail(Z_STREAM_ERROR, "string length does not fit in int");
        return -1;
    }
    return file->write(reinterpret_cast<const Bytef*>(s), length) < length
               ? -1
               : static_cast<int>(length);
}

int gzvprintf(gzFile handle, const char* format, va_list va) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->writable()) return Z_STREAM_ERROR;
    if (!file->start() || !file->fillAhead()) return file->error;
    z_stream& stream = file->stream;
    if (stream.avail_in == 0) stream.next_in = file->input.data();
    // The buffer is less than full, and as large again: a text of its size fits behind.
    auto* const to = reinterpret_cast<char*>(stream.next_in + stream.avail_in);
    const int length = std::vsnprintf(to, file->size, format, va);
    if (length <= 0 || static_cast<unsigned>(length) >= file->size) return 0;
    stream.avail_in += static_cast<unsigned>(length);
    file->ready.pos += length;
    if (stream.next_in + stream.avail_in >= file->input.data() + file->size &&
        !file->compress(Z_NO_FLUSH))
        return file->error;
    return length;
}

int gzprintf(gzFile file, const char* format, ...) {
    va_list va;
    va_start(va, format);
    const int length = gzvprintf(file, format, va);
    va_end(va);
    return length;
}

int gzflush(gzFile handle, int flush) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->writable() || flush < 0 || flush > Z_FINISH)
        return Z_STREAM_ERROR;
    if (file->fillAhead()) file->compress(flush);
    return file->error;
}

int gzsetparams(gzFile handle, int level, int strategy) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->writable() || file->direct) return Z_STREAM_ERROR;
    if (level == file->level && strategy == file->strategy) return Z_OK;
    if (!file->fillAhead()) return file->error;
    // All is written first: what deflateParams itself could find no room for would be lost.
    if (file->started && !file->between) {
        if (!file->compress(Z_BLOCK)) return file->error;
        deflateParams(&file->stream, level, strategy);
    }
    file->level = level;
    file->strategy = strategy;
    return Z_OK;
}
}
