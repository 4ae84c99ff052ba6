// gz files: opening, positions, errors, closing.
#include "compat/zlib/gz_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

using namespace vekdc::compat;

namespace vekdc::compat {

bool GzFile::fail(int code, const char* why) {
    message.release();
    error = code;
    if (code != Z_OK && code != Z_BUF_ERROR) ready.have = 0;
    if (why == nullptr || code == Z_MEM_ERROR) return false;
    const size_t room = std::strlen(path.data()) + std::strlen(why) + 3;
    if (message.reserve(room)) {
        std::snprintf(message.data(), room, "%s: %s", path.data(), why);
    } else {
        error = Z_MEM_ERROR;
    }
    return false;
}

bool GzFile::failSystem() {
    return fail(Z_ERRNO, std::strerror(errno));
}

void GzFile::restart() {
    ready.have = 0;
    ready.pos = 0;
    ended = passed = between = seeking = false;
    next = Next::Look;
    stream.avail_in = 0;
    clearError();
}

}  // namespace vekdc::compat

namespace {

/// What a mode string says; false where it says what cannot be.
bool parseMode(const char* mode, GzFile& file, int& flags) {
    bool chosen = false;
    bool append = false;
    bool transparent = false;
    for (; *mode != 0; ++mode) {
        switch (*mode) {
            case 'r':
            case 'w':
            case 'a':
                chosen = true;
                file.mode = *mode == 'r' ? GzFile::Mode::Read : GzFile::Mode::Write;
                append = *mode == 'a';
                break;
            case '+':
                return false;
            case 'e':
                flags |= O_CLOEXEC;
                break;
            case 'x':
                flags |= O_EXCL;
                break;
            case 'f':
                file.strategy = Z_FILTERED;
                break;
            case 'h':
                file.strategy = Z_HUFFMAN_ONLY;
                break;
            case 'R':
                file.strategy = Z_RLE;
                break;
            case 'F':
                file.strategy = Z_FIXED;
                break;
            case 'T':
                transparent = true;
                break;
            default:
                if (*mode >= '0' && *mode <= '9') file.level = *mode - '0';
        }
    }
    if (!chosen || (file.reads() && transparent)) return false;
    // Until something else is found, an empty file counts as a plain one.
    file.direct = file.reads() || transparent;
    if (file.reads()) {
        flags &= ~O_EXCL;
    } else {
        flags |= O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC);
    }
    return true;
}

void destroy(GzFile* file) {
    file->~GzFile();
    std::free(file);
}

/// Opens a path, or takes a descriptor where the path only names it.
gzFile open(const char* path, int fd, const char* mode) {
    if (path == nullptr) return nullptr;
    void* const memory = std::malloc(sizeof(GzFile));
    if (memory == nullptr) return nullptr;
    auto* const file = new (memory) GzFile;
    int flags = O_LARGEFILE;
    const size_t length = std::strlen(path) + 1;
    if (!parseMode(mode, *file, flags) || !file->path.reserve(length)) {
        destroy(file);
        return nullptr;
    }
    std::memcpy(file->path.data(), path, length);
    file->fd = fd >= 0 ? fd : ::open(path, flags, 0666);
    if (file->fd == -1) {
        destroy(file);
        return nullptr;
    }
    if ((flags & O_APPEND) != 0) ::lseek64(file->fd, 0, SEEK_END);
    if (file->reads()) file->first = std::max<z_off64_t>(::lseek64(file->fd, 0, SEEK_CUR), 0);
    file->restart();
    return &file->ready;
}

z_off_t narrow(z_off64_t offset) {
    return offset == static_cast<z_off_t>(offset) ? static_cast<z_off_t>(offset) : -1;
}

}  // namespace

extern "C" {

gzFile gzopen(const char* path, const char* mode) {
    return open(path, -1, mode);
}
gzFile gzopen64(const char* path, const char* mode) {
    return open(path, -1, mode);
}

gzFile gzdopen(int fd, const char* mode) {
    if (fd == -1) return nullptr;
    char name[32];
    std::snprintf(name, sizeof(name), "<fd:%d>", fd);
    return open(name, fd, mode);
}

int gzbuffer(gzFile handle, unsigned size) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || file->started) return -1;
    if (size > std::numeric_limits<unsigned>::max() / 2) return -1;
    file->size = std::max(size, 2U);
    return 0;
}

int gzrewind(gzFile handle) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->readable()) return -1;
    if (::lseek64(file->fd, file->first, SEEK_SET) == -1) return -1;
    file->restart();
    return 0;
}

z_off64_t gzseek64(gzFile handle, z_off64_t offset, int whence) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || (!file->readable() && file->error != Z_OK && file->error != Z_BUF_ERROR))
        return -1;
    if (whence != SEEK_SET && whence != SEEK_CUR) return -1;
    gzFile_s& ready = file->ready;
    if (whence == SEEK_SET) {
        offset -= ready.pos;
    } else if (file->seeking) {
        offset += file->skip;
    }
    file->seeking = false;

    if (file->reads() && file->next == GzFile::Next::Copy && ready.pos + offset >= 0) {
        if (::lseek64(file->fd, offset - static_cast<z_off64_t>(ready.have), SEEK_CUR) == -1)
            return -1;
        ready.have = 0;
        file->ended = file->passed = false;
        file->clearError();
        file->stream.avail_in = 0;
        return ready.pos += offset;
    }
    if (offset < 0) {
        offset += ready.pos;
        if (!file->reads() || offset < 0 || gzrewind(handle) == -1) return -1;
    }
    if (file->reads()) {
        const auto count =
            static_cast<unsigned>(std::min<z_off64_t>(offset, static_cast<z_off64_t>(ready.have)));
        ready.have -= count;
        ready.next += count;
        ready.pos += count;
        offset -= count;
    }
    file->seeking = offset != 0;
    file->skip = offset;
    return ready.pos + offset;
}
z_off_t gzseek(gzFile file, z_off_t offset, int whence) {
    return narrow(gzseek64(file, offset, whence));
}

z_off64_t gztell64(gzFile handle) {
    const GzFile* const file = fileOf(handle);
    if (file == nullptr) return -1;
    return file->ready.pos + (file->seeking ? file->skip : 0);
}
z_off_t gztell(gzFile file) {
    return narrow(gztell64(file));
}

z_off64_t gzoffset64(gzFile handle) {
    const GzFile* const file = fileOf(handle);
    if (file == nullptr) return -1;
    const z_off64_t offset = ::lseek64(file->fd, 0, SEEK_CUR);
    return offset == -1 || !file->reads() ? offset : offset - file->stream.avail_in;
}
z_off_t gzoffset(gzFile file) {
    return narrow(gzoffset64(file));
}

int gzeof(gzFile handle) {
    const GzFile* const file = fileOf(handle);
    return file != nullptr && file->reads() && file->passed ? 1 : 0;
}

const char* gzerror(gzFile handle, int* errnum) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr) return nullptr;
    if (errnum != nullptr) *errnum = file->error;
    if (file->error == Z_MEM_ERROR) return "out of memory";
    return file->message.data() == nullptr ? "" : file->message.data();
}

void gzclearerr(gzFile handle) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr) return;
    file->ended = file->passed = false;
    file->clearError();
}

int gzclose_r(gzFile handle) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || !file->reads()) return Z_STREAM_ERROR;
    if (file->started) inflateEnd(&file->stream);
    const int error = file->error == Z_BUF_ERROR ? Z_BUF_ERROR : Z_OK;
    const int closed = ::close(file->fd);
    destroy(file);
    return closed != 0 ? Z_ERRNO : error;
}

int gzclose_w(gzFile handle) {
    GzFile* const file = fileOf(handle);
    if (file == nullptr || file->reads()) return Z_STREAM_ERROR;
    int status = Z_OK;
    if (!file->fillAhead()) status = file->error;
    if (!file->compress(Z_FINISH)) status = file->error;
    if (file->started && !file->direct) deflateEnd(&file->stream);
    if (::close(file->fd) == -1) status = Z_ERRNO;
    destroy(file);
    return status;
}

int gzclose(gzFile handle) {
    const GzFile* const file = fileOf(handle);
    if (file == nullptr) return Z_STREAM_ERROR;
    return file->reads() ? gzclose_r(handle) : gzclose_w(handle);
}
}
