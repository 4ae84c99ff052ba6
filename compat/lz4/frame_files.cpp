// Frames in files of the C library, as liblz4 exports them without a header of its own installed.
#include <cstdio>

#include "compat/lz4/frames.h"

namespace {

using vekdc::compat::failed;

constexpr size_t kPiece = 64 << 10;

struct ReadFile {
    LZ4F_dctx* context;
    FILE* file;
    size_t begin;
    size_t end;
    char bytes[kPiece];
};

struct WriteFile {
    LZ4F_cctx* context;
    FILE* file;
    size_t error;
    size_t room;
    char bytes[1];
};

}  // namespace

extern "C" {
#pragma GCC visibility push(default)

LZ4F_errorCode_t LZ4F_readOpen(ReadFile** lz4fRead, FILE* fp) {
    if (fp == nullptr || lz4fRead == nullptr) return failed(LZ4F_ERROR_GENERIC);
    auto* const self = static_cast<ReadFile*>(std::calloc(1, sizeof(ReadFile)));
    *lz4fRead = self;
    if (self == nullptr) return failed(LZ4F_ERROR_allocation_failed);
    self->file = fp;
    size_t result = LZ4F_createDecompressionContext(&self->context, LZ4F_VERSION);
    if (LZ4F_isError(result) == 0) {
        self->end = std::fread(self->bytes, 1, LZ4F_HEADER_SIZE_MAX, fp);
        LZ4F_frameInfo_t info;
        size_t taken = self->end;
        result = LZ4F_getFrameInfo(self->context, &info, self->bytes, &taken);
        self->begin = taken;
        if (LZ4F_isError(result) == 0) return 0;
        LZ4F_freeDecompressionContext(self->context);
    }
    std::free(self);
    *lz4fRead = nullptr;
    return result;
}

size_t LZ4F_read(ReadFile* lz4fRead, void* buf, size_t size) {
    if (lz4fRead == nullptr || buf == nullptr) return failed(LZ4F_ERROR_GENERIC);
    ReadFile& self = *lz4fRead;
    size_t done = 0;
    while (done < size) {
        if (self.begin == self.end) {
            self.begin = 0;
            self.end = std::fread(self.bytes, 1, sizeof(self.bytes), self.file);
            if (self.end == 0) break;
        }
        size_t taken = self.end - self.begin;
        size_t given = size - done;
        const size_t result = LZ4F_decompress(self.context, static_cast<char*>(buf) + done, &given,
                                              self.bytes + self.begin, &taken, nullptr);
        if (LZ4F_isError(result) != 0) return result;
        self.begin += taken;
        done += given;
    }
    return done;
}

LZ4F_errorCode_t LZ4F_readClose(ReadFile* lz4fRead) {
    if (lz4fRead == nullptr) return failed(LZ4F_ERROR_GENERIC);
    LZ4F_freeDecompressionContext(lz4fRead->context);
    std::free(lz4fRead);
    return 0;
}

LZ4F_errorCode_t LZ4F_writeOpen(WriteFile** lz4fWrite, FILE* fp,
                                const LZ4F_preferences_t* prefsPtr) {
    if (fp == nullptr || lz4fWrite == nullptr) return failed(LZ4F_ERROR_GENERIC);
    const size_t room = LZ4F_compressBound(kPiece, prefsPtr) + LZ4F_HEADER_SIZE_MAX;
    if (LZ4F_isError(room) != 0) return room;
    auto* const self = static_cast<WriteFile*>(std::calloc(1, sizeof(WriteFile) + room));
    *lz4fWrite = self;
    if (self == nullptr) return failed(LZ4F_ERROR_allocation_failed);
    self->file = fp;
    self->room = room;
    size_t result = LZ4F_createCompressionContext(&self->context, LZ4F_VERSION);
    if (LZ4F_isError(result) == 0) {
        result = LZ4F_compressBegin(self->context, self->bytes, room, prefsPtr);
        if (LZ4F_isError(result) == 0 && std::fwrite(self->bytes, 1, result, fp) == result)
            return 0;
        LZ4F_freeCompressionContext(self->context);
    }
    std::free(self);
    *lz4fWrite = nullptr;
    return LZ4F_isError(result) != 0 ? result : failed(LZ4F_ERROR_GENERIC);
}

size_t LZ4F_write(WriteFile* lz4fWrite, const void* buf, size_t size) {
    if (lz4fWrite == nullptr || buf == nullptr) return failed(LZ4F_ERROR_GENERIC);
    WriteFile& self = *lz4fWrite;
    for (size_t done = 0; done < size;) {
        const size_t piece = size - done < kPiece ? size - done : kPiece;
        size_t result = LZ4F_compressUpdate(self.context, self.bytes, self.room,
                                            static_cast<const char*>(buf) + done, piece, nullptr);
        if (LZ4F_isError(result) == 0 && std::fwrite(self.bytes, 1, result, self.file) != result)
            result = failed(LZ4F_ERROR_GENERIC);
        if (LZ4F_isError(result) != 0) {
            self.error = result;
            return result;
        }
        done += piece;
    }
    return size;
}

LZ4F_errorCode_t LZ4F_writeClose(WriteFile* lz4fWrite) {
    if (lz4fWrite == nullptr) return failed(LZ4F_ERROR_GENERIC);
    WriteFile& self = *lz4fWrite;
    size_t result = 0;
    if (self.error == 0) {
        result = LZ4F_compressEnd(self.context, self.bytes, self.room, nullptr);
        if (LZ4F_isError(result) == 0)
            result = std::fwrite(self.bytes, 1, result, self.file) == result
                         ? 0
                         : failed(LZ4F_ERROR_GENERIC);
    }
    LZ4F_freeCompressionContext(self.context);
    std::free(lz4fWrite);
    return result;
}

#pragma GCC visibility pop
}
