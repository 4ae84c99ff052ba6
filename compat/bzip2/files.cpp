// The interface of libbz2 to files: handles over the C library's own, and the functions that open
// one by its name. Every call leaves its code in the handle, and where the caller wants it.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "compat/bzip2/bzlib_interface.h"

namespace {

struct Handle {
    FILE* file;
    bool writing;
    int last;
    bz_stream stream;
    char bytes[BZ_MAX_UNUSED];

    static Handle* of(BZFILE* b) { return static_cast<Handle*>(b); }
};

int report(int* bzerror, Handle* handle, int code) {
    if (bzerror != nullptr) *bzerror = code;
    if (handle != nullptr) handle->last = code;
    return code;
}

bool isIn(int value, int low, int high) {
    return value >= low && value <= high;
}

/// A handle whose stream `begin(bz_stream*)` starts; null, and why is reported.
template <class Begin>
Handle* open(int* bzerror, FILE* file, bool writing, Begin&& begin) {
    if (std::ferror(file) != 0) {
        report(bzerror, nullptr, BZ_IO_ERROR);
        return nullptr;
    }
    auto* const handle = static_cast<Handle*>(std::malloc(sizeof(Handle)));
    if (handle == nullptr) {
        report(bzerror, nullptr, BZ_MEM_ERROR);
        return nullptr;
    }
    handle->file = file;
    handle->writing = writing;
    handle->stream = {};
    if (report(bzerror, handle, begin(&handle->stream)) == BZ_OK) return handle;
    std::free(handle);
    return nullptr;
}

bool atEnd(FILE* file) {
    if (std::feof(file) != 0) return true;
    const int next = std::fgetc(file);
    if (next == EOF) return true;
    std::ungetc(next, file);
    return false;
}

/// Takes input by an action and writes what comes of it, until the result is `done` or, running,
/// the input is used up.
int writeThrough(Handle* handle, int action, int done) {
    bz_stream& stream = handle->stream;
    for (;;) {
        stream.next_out = handle->bytes;
        stream.avail_out = sizeof(handle->bytes);
        const int result = BZ2_bzCompress(&stream, action);
        if (result < 0) return result;
        const size_t size = sizeof(handle->bytes) - stream.avail_out;
        if (size != 0 && (std::fwrite(handle->bytes, 1, size, handle->file) != size ||
                          std::ferror(handle->file) != 0))
            return BZ_IO_ERROR;
        if (result == done && (action != BZ_RUN || stream.avail_in == 0)) return BZ_OK;
    }
}

/// Opens a handle on what `fopenMode(const char*)` gives for a mode of the C library, by the
/// letters of a mode of this one: r or w, s, a digit.
template <class OpenFile>
BZFILE* openByMode(const char* mode, OpenFile&& openFile) {
    if (mode == nullptr) return nullptr;
    int level = 9;
    bool writing = false;
    int small = 0;
    for (const char* letter = mode; *letter != 0; ++letter) {
        if (*letter == 'r') writing = false;
        if (*letter == 'w') writing = true;
        if (*letter == 's') small = 1;
        if (isIn(*letter, '0', '9')) level = *letter == '0' ? 1 : *letter - '0';
    }
    FILE* const file = openFile(writing ? "wbe" : "rbe", writing);
    if (file == nullptr) return nullptr;
    int error = BZ_OK;
    BZFILE* const b = writing ? BZ2_bzWriteOpen(&error, file, level, 0, 0)
                              : BZ2_bzReadOpen(&error, file, 0, small, nullptr, 0);
    if (b == nullptr && file != stdin && file != stdout) std::fclose(file);
    return b;
}

}  // namespace

// --- writing -------------------------------------------------------------------------------------

BZFILE* BZ2_bzWriteOpen(int* bzerror, FILE* f, int blockSize100k, int verbosity, int workFactor) {
    report(bzerror, nullptr, BZ_OK);
    if (f == nullptr || !isIn(blockSize100k, 1, 9) || !isIn(workFactor, 0, 250) ||
        !isIn(verbosity, 0, 4)) {
        report(bzerror, nullptr, BZ_PARAM_ERROR);
        return nullptr;
    }
    return open(bzerror, f, true, [&](bz_stream* stream) {
        return BZ2_bzCompressInit(stream, blockSize100k, verbosity, workFactor);
    });
}

void BZ2_bzWrite(int* bzerror, BZFILE* b, void* buf, int len) {
    Handle* const handle = Handle::of(b);
    report(bzerror, handle, BZ_OK);
    if (handle == nullptr || buf == nullptr || len < 0) {
        report(bzerror, handle, BZ_PARAM_ERROR);
    } else if (!handle->writing) {
        report(bzerror, handle, BZ_SEQUENCE_ERROR);
    } else if (std::ferror(handle->file) != 0) {
        report(bzerror, handle, BZ_IO_ERROR);
    } else if (len != 0) {
        handle->stream.next_in = static_cast<char*>(buf);
        handle->stream.avail_in = static_cast<unsigned>(len);
        report(bzerror, handle, writeThrough(handle, BZ_RUN, BZ_RUN_OK));
    }
}

void BZ2_bzWriteClose(int* bzerror, BZFILE* b, int abandon, unsigned* nbytes_in,
                      unsigned* nbytes_out) {
    BZ2_bzWriteClose64(bzerror, b, abandon, nbytes_in, nullptr, nbytes_out, nullptr);
}

void BZ2_bzWriteClose64(int* bzerror, BZFILE* b, int abandon, unsigned* nbytes_in_lo32,
                        unsigned* nbytes_in_hi32, unsigned* nbytes_out_lo32,
                        unsigned* nbytes_out_hi32) {
    Handle* const handle = Handle::of(b);
    const bool isSound = handle != nullptr && handle->last == BZ_OK;
    if (handle == nullptr) {
        report(bzerror, nullptr, BZ_OK);
        return;
    }
    if (!handle->writing) {
        report(bzerror, handle, BZ_SEQUENCE_ERROR);
        return;
    }
    if (std::ferror(handle->file) != 0) {
        report(bzerror, handle, BZ_IO_ERROR);
        return;
    }
    const bz_stream& stream = handle->stream;
    const auto tell = [](unsigned* to, unsigned value) {
        if (to != nullptr) *to = value;
    };
    for (unsigned* to : {nbytes_in_lo32, nbytes_in_hi32, nbytes_out_lo32, nbytes_out_hi32})
        tell(to, 0);
    if (abandon == 0) {
        int result = isSound ? writeThrough(handle, BZ_FINISH, BZ_STREAM_END) : BZ_OK;
        if (result == BZ_OK && (std::fflush(handle->file) != 0 || std::ferror(handle->file) != 0))
            result = BZ_IO_ERROR;
        if (result != BZ_OK) {
            report(bzerror, handle, result);
            return;
        }
    }
    tell(nbytes_in_lo32, stream.total_in_lo32);
    tell(nbytes_in_hi32, stream.total_in_hi32);
    tell(nbytes_out_lo32, stream.total_out_lo32);
    tell(nbytes_out_hi32, stream.total_out_hi32);
    report(bzerror, handle, BZ_OK);
    BZ2_bzCompressEnd(&handle->stream);
    std::free(handle);
}

// --- reading -------------------------------------------------------------------------------------

BZFILE* BZ2_bzReadOpen(int* bzerror, FILE* f, int verbosity, int small, void* unused, int nUnused) {
    report(bzerror, nullptr, BZ_OK);
    if (f == nullptr || !isIn(small, 0, 1) || !isIn(verbosity, 0, 4) ||
        !isIn(nUnused, 0, unused == nullptr ? 0 : BZ_MAX_UNUSED)) {
        report(bzerror, nullptr, BZ_PARAM_ERROR);
        return nullptr;
    }
    Handle* const handle = open(bzerror, f, false, [&](bz_stream* stream) {
        return BZ2_bzDecompressInit(stream, verbosity, small);
    });
    if (handle == nullptr) return nullptr;
    if (nUnused != 0) std::memmove(handle->bytes, unused, static_cast<size_t>(nUnused));
    handle->stream.next_in = handle->bytes;
    handle->stream.avail_in = static_cast<unsigned>(nUnused);
    return handle;
}

void BZ2_bzReadClose(int* bzerror, BZFILE* b) {
    Handle* const handle = Handle::of(b);
    report(bzerror, handle, BZ_OK);
    if (handle == nullptr) return;
    if (handle->writing) {
        report(bzerror, handle, BZ_SEQUENCE_ERROR);
        return;
    }
    BZ2_bzDecompressEnd(&handle->stream);
    std::free(handle);
}

int BZ2_bzRead(int* bzerror, BZFILE* b, void* buf, int len) {
    Handle* const handle = Handle::of(b);
    const auto fail = [&](int code) {
        report(bzerror, handle, code);
        return 0;
    };
    fail(BZ_OK);
    if (handle == nullptr || buf == nullptr || len < 0) return fail(BZ_PARAM_ERROR);
    if (handle->writing) return fail(BZ_SEQUENCE_ERROR);
    if (len == 0) return 0;
    bz_stream& stream = handle->stream;
    stream.next_out = static_cast<char*>(buf);
    stream.avail_out = static_cast<unsigned>(len);
    for (;;) {
        if (std::ferror(handle->file) != 0) return fail(BZ_IO_ERROR);
        if (stream.avail_in == 0 && !atEnd(handle->file)) {
            stream.next_in = handle->bytes;
            stream.avail_in = static_cast<unsigned>(
                std::fread(handle->bytes, 1, sizeof(handle->bytes), handle->file));
            if (std::ferror(handle->file) != 0) return fail(BZ_IO_ERROR);
        }
        const int result = BZ2_bzDecompress(&stream);
        if (result == BZ_STREAM_END) {
            report(bzerror, handle, BZ_STREAM_END);
            return len - static_cast<int>(stream.avail_out);
        }
        if (result != BZ_OK) return fail(result);
        if (stream.avail_out == 0) return len;
        if (stream.avail_in == 0 && atEnd(handle->file)) return fail(BZ_UNEXPECTED_EOF);
    }
}

void BZ2_bzReadGetUnused(int* bzerror, BZFILE* b, void** unused, int* nUnused) {
    Handle* const handle = Handle::of(b);
    if (handle != nullptr && handle->last != BZ_STREAM_END) {
        report(bzerror, handle, BZ_SEQUENCE_ERROR);
    } else if (handle == nullptr || unused == nullptr || nUnused == nullptr) {
        report(bzerror, handle, BZ_PARAM_ERROR);
    } else {
        report(bzerror, handle, BZ_OK);
        *nUnused = static_cast<int>(handle->stream.avail_in);
        *unused = handle->stream.next_in;
    }
}

// --- by name -------------------------------------------------------------------------------------

BZFILE* BZ2_bzopen(const char* path, const char* mode) {
    return openByMode(mode, [&](const char* fileMode, bool writing) {
        if (path == nullptr || *path == 0) return writing ? stdout : stdin;
        return std::fopen(path, fileMode);
    });
}

BZFILE* BZ2_bzdopen(int fd, const char* mode) {
    return openByMode(mode, [&](const char* fileMode, bool) { return fdopen(fd, fileMode); });
}

int BZ2_bzread(BZFILE* b, void* buf, int len) {
    if (Handle::of(b)->last == BZ_STREAM_END) return 0;
    int error = BZ_OK;
    const int count = BZ2_bzRead(&error, b, buf, len);
    return error == BZ_OK || error == BZ_STREAM_END ? count : -1;
}

int BZ2_bzwrite(BZFILE* b, void* buf, int len) {
    int error = BZ_OK;
    BZ2_bzWrite(&error, b, buf, len);
    return error == BZ_OK ? len : -1;
}

int BZ2_bzflush(BZFILE*) {
    return 0;  // The interface has it, and says that it does nothing.
}

void BZ2_bzclose(BZFILE* b) {
    if (b == nullptr) return;
    FILE* const file = Handle::of(b)->file;
    int error = BZ_OK;
    if (Handle::of(b)->writing) {
        BZ2_bzWriteClose(&error, b, 0, nullptr, nullptr);
        if (error != BZ_OK) BZ2_bzWriteClose(nullptr, b, 1, nullptr, nullptr);
    } else {
        BZ2_bzReadClose(&error, b);
    }
    if (file != stdin && file != stdout) std::fclose(file);
}

const char* BZ2_bzerror(BZFILE* b, int* errnum) {
    static constexpr const char* kNames[] = {"OK",          "SEQUENCE_ERROR", "PARAM_ERROR",
                                             "MEM_ERROR",   "DATA_ERROR",     "DATA_ERROR_MAGIC",
                                             "IO_ERROR",    "UNEXPECTED_EOF", "OUTBUFF_FULL",
                                             "CONFIG_ERROR"};
    const int last = Handle::of(b)->last;
    *errnum = last > 0 ? BZ_OK : last;
    return kNames[-*errnum];
}
