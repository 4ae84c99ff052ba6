// gz files that are read: members one behind the other, or plain bytes where there are none.
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "compat/zlib/gz_file.h"

using namespace vekdc::compat;

namespace vekdc::compat {

/// Reads until the room is full or the file ends.
bool GzFile::load(Bytef* to, unsigned room, unsigned* got) {
    *got = 0;
    while (*got < room) {
        const ssize_t count = ::read(fd, to + *got, std::min<unsigned>(room - *got, INT_MAX));
        if (count < 0) return failSystem();
        if (count == 0) {
            ended = true;
            return true;
        }
        *got += static_cast<unsigned>(count);
    }
    return true;
}

/// More input behind what is left of it.
bool GzFile::refill() {
    if (error != Z_OK && error != Z_BUF_ERROR) return false;
    if (ended) return true;
    if (stream.avail_in != 0) std::memmove(input.data(), stream.next_in, stream.avail_in);
    unsigned got = 0;
    if (!load(input.data() + stream.avail_in, size - stream.avail_in, &got)) return false;
    stream.avail_in += got;
    stream.next_in = input.data();
    return true;
}

/// Finds out what comes next: a member, plain bytes if nothing else was there before, or the end.
bool GzFile::look() {
    if (!started) {
        if (!input.reserve(size) || !output.reserve(2 * size_t{size}))
            return fail(Z_MEM_ERROR, "out of memory");
        stream = {};
        if (inflateInit2_(&stream, MAX_WBITS + 16, ZLIB_VERSION, sizeof(stream)) != Z_OK)
            return fail(Z_MEM_ERROR, "out of memory");
        started = true;
    }
    if (stream.avail_in < 2 && !refill()) return false;
    if (stream.avail_in == 0) return true;
    if (stream.avail_in > 1 && stream.next_in[0] == 0x1F && stream.next_in[1] == 0x8B) {
        inflateReset(&stream);
        next = Next::Member;
        direct = false;
    } else if (!direct) {
        // Behind a member: rubbish, which is left.
        stream.avail_in = 0;
        ended = true;
        ready.have = 0;
    } else {
        std::memcpy(output.data(), stream.next_in, stream.avail_in);
        ready.next = output.data();
        ready.have = stream.avail_in;
        stream.avail_in = 0;
        next = Next::Copy;
    }
    return true;
}

/// Decodes into the stream's room; what it gave is `ready` then.
bool GzFile::decompress() {
    const unsigned room = stream.avail_out;
    int status = Z_OK;
    do {
        if (stream.avail_in == 0 && !refill()) return false;
        if (stream.avail_in == 0) {
            fail(Z_BUF_ERROR, "unexpected end of file");
            break;
        }
        status = inflate(&stream, Z_NO_FLUSH);
        if (status == Z_STREAM_ERROR || status == Z_NEED_DICT)
            return fail(Z_STREAM_ERROR, "internal error: inflate stream corrupt");
        if (status == Z_MEM_ERROR) return fail(Z_MEM_ERROR, "out of memory");
        if (status == Z_DATA_ERROR)
            return fail(Z_DATA_ERROR, stream.msg == nullptr ? "compressed data error" : stream.msg);
    } while (stream.avail_out != 0 && status != Z_STREAM_END);
    ready.have = room - stream.avail_out;
    ready.next = stream.next_out - ready.have;
    if (status == Z_STREAM_END) next = Next::Look;
    return true;
}

/// Makes something ready, unless there is nothing more.
bool GzFile::fetch() {
    do {
        switch (next) {
            case Next::Look:
                if (!look()) return false;
                if (next == Next::Look) return true;
                break;
            case Next::Copy:
                ready.next = output.data();
                return load(output.data(), 2 * size, &ready.have);
            case Next::Member:
                stream.avail_out = 2 * size;
                stream.next_out = output.data();
                if (!decompress()) return false;
        }
    } while (ready.have == 0 && (!ended || stream.avail_in != 0));
    return true;
}

/// What a seek left to be done.
bool GzFile::skipAhead() {
    if (!seeking) return true;
    seeking = false;
    for (z_off64_t left = skip; left != 0;) {
        if (ready.have != 0) {
            const auto count = static_cast<unsigned>(std::min<z_off64_t>(ready.have, left));
            ready.have -= count;
            ready.next += count;
            ready.pos += count;
            left -= count;
        } else if (ended && stream.avail_in == 0) {
            break;
        } else if (!fetch()) {
            return false;
        }
    }
    return true;
}

size_t GzFile::read(Bytef* to, size_t count) {
    if (count == 0 || !skipAhead()) return 0;
    size_t got = 0;
    while (got < count) {
        auto wanted = static_cast<unsigned>(std::min<size_t>(count - got, UINT_MAX));
        if (ready.have != 0) {
            wanted = std::min(wanted, ready.have);
            std::memcpy(to + got, ready.next, wanted);
            ready.next += wanted;
            ready.have -= wanted;
        } else if (ended && stream.avail_in == 0) {
            passed = true;
            break;
        } else if (next == Next::Look || wanted < 2 * size) {
            if (!fetch()) return 0;
            continue;
        } else if (next == Next::Copy) {
            if (!load(to + got, wanted, &wanted)) return 0;
        } else {
            // Large pieces go straight to the caller.
            stream.avail_out = wanted;
            stream.next_out = to + got;
            if (!decompress()) return 0;
            wanted = ready.have;
            ready.have = 0;
        }
        got += wanted;
        ready.pos += wanted;
    }
    return got;
}

}  // namespace vekdc::compat

extern "C" {

int gzread(gzFile handle, voidp buf, unsigned len) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->readable()) return -1;
    if (len > INT_MAX) {
        file->fail(Z_STREAM_ERROR, "request does not fit in an int");
        return -1;
    }
    const size_t got = file->read(static_cast<Bytef*>(buf), len);
    return got == 0 && !file->readable() ? -1 : static_cast<int>(got);
}

z_size_t gzfread(voidp buf, z_size_t size, z_size_t nitems, gzFile handle) {
    GzFile* const file = fileOf(handle);
    if (size == 0 || file == nullptr || !file->readable()) return 0;
    size_t bytes = 0;
    if (__builtin_mul_overflow(size, nitems, &bytes)) {
        file->fail(Z_STREAM_ERROR, "request does not fit in a size_t");
        return 0;
    }
    return file->read(static_cast<Bytef*>(buf), bytes) / size;
}

int gzgetc(gzFile handle) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->readable()) return -1;
    if (file->ready.have != 0) {
        --file->ready.have;
        ++file->ready.pos;
        return *file->ready.next++;
    }
    Bytef byte = 0;
    return file->read(&byte, 1) == 1 ? byte : -1;
}
int gzgetc_(gzFile file) {
    return gzgetc(file);
}

int gzungetc(int c, gzFile handle) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->reads()) return -1;
    // A file that was just opened has no room for it yet.
    if (!file->started) file->look();
    if (!file->readable() || !file->skipAhead() || c < 0) return -1;
    gzFile_s& ready = file->ready;
    const unsigned room = 2 * file->size;
    if (ready.have == room) {
        file->fail(Z_DATA_ERROR, "out of room to push characters");
        return -1;
    }
    if (ready.have == 0) ready.next = file->output.data() + room;
    if (ready.next == file->output.data()) {
        ready.next += room - ready.have;
        std::memmove(ready.next, file->output.data(), ready.have);
    }
    ++ready.have;
    *--ready.next = static_cast<Bytef>(c);
    --ready.pos;
    file->passed = false;
    return c;
}

char* gzgets(gzFile handle, char* buf, int len) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || buf == nullptr || len < 1) return nullptr;
    if (!file->readable() || !file->skipAhead()) return nullptr;
    gzFile_s& ready = file->ready;
    char* to = buf;
    auto left = static_cast<unsigned>(len) - 1;
    const void* lineEnd = nullptr;
    while (left != 0 && lineEnd == nullptr) {
        if (ready.have == 0 && !file->fetch()) return nullptr;
        if (ready.have == 0) {
            file->passed = true;
            break;
        }
        unsigned count = std::min(ready.have, left);
        lineEnd = std::memchr(ready.next, '\n', count);
        if (lineEnd != nullptr)
            count = static_cast<unsigned>(static_cast<const Bytef*>(lineEnd) - ready.next) + 1;
        std::memcpy(to, ready.next, count);
        ready.have -= count;
        ready.next += count;
        ready.pos += count;
        left -= count;
        to += count;
    }
    if (to == buf) return nullptr;
    *to = 0;
    return buf;
}

int gzdirect(gzFile handle) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr) return 0;
    if (file->reads() && file->next == GzFile::Next::Look && file->ready.have == 0) file->look();
    return file->direct ? 1 : 0;
}
}
