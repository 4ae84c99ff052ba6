// A gz file under way: what its functions for reading, writing and seeking share.
#pragma once

#include <string_view>

#include "codec/memory.h"
#include "compat/zlib/zlib_interface.h"

namespace vekdc::compat {

/// Begins with what the macro gzgetc() of zlib.h works on: output that waits to be read.
struct GzFile {
    enum class Mode : uint8_t { Read, Write };
    /// What comes next in a file that is read: a member's header or anything, plain bytes, a
    /// member.
    enum class Next : uint8_t { Look, Copy, Member };

    gzFile_s ready{};
    Mode mode = Mode::Read;
    Next next = Next::Look;
    bool direct = false;   ///< Reading: what was found is no gz file. Writing: none is to be made.
    bool ended = false;    ///< The file is read to its end.
    bool passed = false;   ///< More was wanted than there was.
    bool seeking = false;  ///< `skip` bytes are to be skipped or filled first.
    bool started = false;  ///< The buffers and the stream are there.
    bool between = false;  ///< Writing: a member has ended, none has begun.
    int fd = -1;
    int level = Z_DEFAULT_COMPRESSION;
    int strategy = Z_DEFAULT_STRATEGY;
    int error = Z_OK;
    unsigned size = 8192;  ///< Of the smaller buffer; the other has twice that.
    z_off64_t first = 0;   ///< Where reading began.
    z_off64_t skip = 0;
    codec::Memory<char> path;
    codec::Memory<char> message;
    codec::Memory<Bytef> input;
    codec::Memory<Bytef> output;
    z_stream stream{};

    bool reads() const { return mode == Mode::Read; }
    /// A short read is no reason to read no further.
    bool readable() const { return reads() && (error == Z_OK || error == Z_BUF_ERROR); }
    bool writable() const { return !reads() && error == Z_OK; }

    /// Sets the state that gzerror() tells of, always false.
    bool fail(int code, const char* why);
    bool failSystem();
    void clearError() { fail(Z_OK, nullptr); }
    /// As when it was opened.
    void restart();

    // Each is false where it failed.
    bool fetch();
    bool look();
    bool skipAhead();
    size_t read(Bytef* to, size_t count);

    bool start();
    bool compress(int flush);
    bool fillAhead();
    size_t write(const Bytef* from, size_t count);

 private:
    bool load(Bytef* to, unsigned room, unsigned* got);
    bool refill();
    bool decompress();
    bool put(const Bytef* from, size_t count);
};

inline GzFile* fileOf(gzFile file) {
    return reinterpret_cast<GzFile*>(file);
}

}  // namespace vekdc::compat
