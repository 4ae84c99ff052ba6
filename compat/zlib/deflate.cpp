// Deflating streams: the interface's states and return values around the encoder.
//
// The order of the checks in deflate() is part of the interface: programs tell by the code whether
// a call made progress. A flush that found too little room goes on in the next call.
#include <algorithm>
#include <utility>

#include "codec/checksums.h"
#include "codec/deflate_encoder.h"
#include "codec/gzip.h"
#include "codec/zlib.h"
#include "compat/zlib/streams.h"

using namespace vekdc;
using namespace vekdc::codec;

namespace {

constexpr int kUsualLevel = 6;
/// Flushes as deflate() remembers them; those below zero are none.
constexpr int kInterrupted = -1;
constexpr int kNeverCalled = -2;

enum class Wrap : uint8_t { Raw, Zlib, Gzip };

struct Deflater : compat::StreamState {
    static constexpr Kind kKind = Kind::Deflate;

    enum class Phase : uint8_t { Start, GzipHeader, Busy, Finishing };

    explicit Deflater(z_streamp stream) : StreamState(stream, kKind), encoder({}, allocator()) {}
    Deflater(z_streamp stream, const Deflater& other)
        : StreamState(stream, kKind), encoder({}, allocator()) {
        phase = other.phase;
        wrap = other.wrap;
        trailed = other.trailed;
        dictionary = other.dictionary;
        lastFlush = other.lastFlush;
        strategy = other.strategy;
        options = other.options;
        gzip = other.gzip;
        header = other.header;
        frame = other.frame;
    }

    bool pending() const { return !frame.empty() || encoder.writing(); }

    Phase phase = Phase::Start;
    Wrap wrap = Wrap::Raw;
    bool trailed = false;     ///< The trailer is in `frame`, or behind it.
    bool dictionary = false;  ///< One was set before the header.
    int lastFlush = kNeverCalled;
    int strategy = Z_DEFAULT_STRATEGY;
    DeflateOptions options;
    gz_headerp gzip = nullptr;
    GzipHeaderWriter header;
    FieldsOut<kGzipTrailer> frame;  ///< zlib's header, and either format's trailer.
    DeflateEncoder encoder;
};

Deflater* stateOf(z_streamp stream) {
    return compat::stateOf<Deflater>(stream);
}

/// How far a flush goes, so that a further one that goes no farther shows.
int rank(int flush) {
    return flush * 2 - (flush > Z_FINISH ? 9 : 0);
}

Directive directiveOf(int flush) {
    switch (flush) {
        case Z_PARTIAL_FLUSH:
            return Directive::PartialFlush;
        case Z_SYNC_FLUSH:
            return Directive::SyncFlush;
        case Z_FULL_FLUSH:
            return Directive::FullFlush;
        case Z_FINISH:
            return Directive::Finish;
        case Z_BLOCK:
            return Directive::Block;
        default:
            return Directive::Go;
    }
}

DeflateStrategy strategyOf(int strategy) {
    switch (strategy) {
        case Z_HUFFMAN_ONLY:
            return DeflateStrategy::HuffmanOnly;
        case Z_RLE:
            return DeflateStrategy::RunLength;
        case Z_FIXED:
            return DeflateStrategy::FixedCodes;
        default:
            return DeflateStrategy::Usual;
    }
}

/// The level that headers tell of: such strategies are hardly any effort.
int toldLevel(const Deflater& state) {
    return state.strategy >= Z_HUFFMAN_ONLY ? 1 : std::max(state.options.level, 1);
}

GzipHeader gzipHeader(const Deflater& state) {
    GzipHeader to;
    to.hints = gzipHints(state.options.level == 9 ? 9 : toldLevel(state));
    to.system = kGzipUnix;
    const gz_header* const from = state.gzip;
    if (from == nullptr) return to;
    const auto text = [](Bytef* bytes) {
        return GzipField{bytes != nullptr, bytes,
                         bytes != nullptr ? std::strlen(reinterpret_cast<char*>(bytes)) : 0, 0};
    };
    to.text = from->text != 0;
    to.summed = from->hcrc != 0;
    to.modified = static_cast<uint32_t>(from->time);
    to.system = static_cast<uint8_t>(from->os);
    to.extra = {from->extra != nullptr, from->extra, from->extra_len & 0xFFFFU, 0};
    to.name = text(from->name);
    to.comment = text(from->comment);
    return to;
}

/// Writes what stands before the coded data; false where there is no room for all of it.
bool begin(Deflater& state, z_stream& stream, Output& out) {
    using Phase = Deflater::Phase;
    if (state.phase == Phase::Start) {
        if (state.wrap == Wrap::Gzip) {
            state.header.start(gzipHeader(state));
            state.phase = Phase::GzipHeader;
            stream.adler = kCrc32.initial;
        } else {
            state.phase = Phase::Busy;
            if (state.wrap == Wrap::Zlib) {
                DeflateOptions told = state.options;
                told.level = toldLevel(state);
                putZlibHeader(state.frame.add(kZlibHeader), told, state.dictionary);
                if (state.dictionary) putBigEndian(state.frame.add(4), stream.adler, 4);
                stream.adler = kAdler32.initial;
            }
        }
    }
    if (state.phase == Phase::GzipHeader) {
        if (!state.header.run(out)) return false;
        state.phase = Phase::Busy;
    }
    return state.trailed || state.frame.drain(out);
}

/// Codes, and behind the end of it writes the trailer. True when the stream is complete.
Status code(Deflater& state, z_stream& stream, Input& in, Output& out, int flush) {
    if (!begin(state, stream, out)) return Status::Going;
    const Input before = in;
    const Status status = state.encoder.run(in, out, directiveOf(flush));
    const Bytes taken(before.next, before.left - in.left);
    const auto check = static_cast<uint32_t>(stream.adler);
    if (state.wrap == Wrap::Zlib) stream.adler = kAdler32.update(check, taken);
    if (state.wrap == Wrap::Gzip) stream.adler = kCrc32.update(check, taken);
    if (state.encoder.ending()) state.phase = Deflater::Phase::Finishing;
    if (status != Status::Ended) return status;
    if (!state.trailed) {
        state.trailed = true;
        const auto sum = static_cast<uint32_t>(stream.adler);
        if (state.wrap == Wrap::Zlib) putBigEndian(state.frame.add(kZlibTrailer), sum, 4);
        if (state.wrap == Wrap::Gzip)
            putGzipTrailer(state.frame.add(kGzipTrailer), sum, state.encoder.totalIn());
    }
    return state.frame.drain(out) ? Status::Ended : Status::Going;
}

bool validParameters(int level, int strategy) {
    return level >= 0 && level <= 9 && strategy >= Z_DEFAULT_STRATEGY && strategy <= Z_FIXED;
}

/// The kinds of matching between which only whole blocks change.
int matcherOf(int level) {
    return level == 0 ? 0 : level < 4 ? 1 : 2;
}

}  // namespace

extern "C" {

int deflateInit2_(z_streamp strm, int level, int method, int windowBits, int memLevel, int strategy,
                  const char* version, int stream_size) {
    if (compat::wrongVersion(version, stream_size)) return Z_VERSION_ERROR;
    if (strm == nullptr) return Z_STREAM_ERROR;
    strm->msg = nullptr;
    compat::defaultMemory(strm);
    if (level == Z_DEFAULT_COMPRESSION) level = kUsualLevel;
    Wrap wrap = Wrap::Zlib;
    if (windowBits < 0) {
        if (windowBits < -MAX_WBITS) return Z_STREAM_ERROR;
        wrap = Wrap::Raw;
        windowBits = -windowBits;
    } else if (windowBits > MAX_WBITS) {
        wrap = Wrap::Gzip;
        windowBits -= 16;
    }
    if (memLevel < 1 || memLevel > MAX_MEM_LEVEL || method != Z_DEFLATED || windowBits < 8 ||
        windowBits > MAX_WBITS || !validParameters(level, strategy) ||
        (windowBits == 8 && wrap != Wrap::Zlib))
        return Z_STREAM_ERROR;
    auto* const state = compat::newState<Deflater>(strm);
    if (state == nullptr) return compat::failed(strm, Z_MEM_ERROR);
    state->wrap = wrap;
    state->strategy = strategy;
    // As elsewhere, the smallest window is taken for the next larger one.
    state->options = {level, strategyOf(strategy), static_cast<unsigned>(std::max(windowBits, 9))};
    return deflateReset(strm);
}

int deflateInit_(z_streamp strm, int level, const char* version, int stream_size) {
    return deflateInit2_(strm, level, Z_DEFLATED, MAX_WBITS, 8, Z_DEFAULT_STRATEGY, version,
                         stream_size);
}

int deflateResetKeep(z_streamp strm) {
    Deflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    strm->total_in = strm->total_out = 0;
    strm->msg = nullptr;
    strm->data_type = Z_UNKNOWN;
    strm->adler = state->wrap == Wrap::Gzip ? kCrc32.initial : kAdler32.initial;
    state->phase = Deflater::Phase::Start;
    state->trailed = state->dictionary = false;
    state->lastFlush = kNeverCalled;
    state->frame = {};
    state->encoder.reset(state->options);
    return Z_OK;
}

int deflateReset(z_streamp strm) {
    return deflateResetKeep(strm);
}

int deflateEnd(z_streamp strm) {
    Deflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    const bool busy = state->phase == Deflater::Phase::Busy;
    compat::deleteState(strm, state);
    return busy ? Z_DATA_ERROR : Z_OK;
}

int deflateCopy(z_streamp dest, z_streamp source) {
    const Deflater* const from = stateOf(source);
    if (from == nullptr || dest == nullptr) return Z_STREAM_ERROR;
    *dest = *source;
    auto* const state = compat::newState<Deflater>(dest, *from);
    if (state == nullptr) return Z_MEM_ERROR;
    if (state->encoder.copyFrom(from->encoder) == Status::Going) return Z_OK;
    compat::deleteState(dest, state);
    return Z_MEM_ERROR;
}

int deflate(z_streamp strm, int flush) {
    Deflater* const state = stateOf(strm);
    if (state == nullptr || flush > Z_BLOCK || flush < 0) return Z_STREAM_ERROR;
    const bool finishing = state->phase == Deflater::Phase::Finishing;
    if (compat::badBuffers(*strm) || (finishing && flush != Z_FINISH))
        return compat::failed(strm, Z_STREAM_ERROR);
    if (strm->avail_out == 0) return compat::failed(strm, Z_BUF_ERROR);
    const int lastFlush = std::exchange(state->lastFlush, flush);
    if (!state->pending() && strm->avail_in == 0 && rank(flush) <= rank(lastFlush) &&
        flush != Z_FINISH)
        return compat::failed(strm, Z_BUF_ERROR);
    if (finishing && strm->avail_in != 0) return compat::failed(strm, Z_BUF_ERROR);

    Input in{strm->next_in, strm->avail_in};
    Output out{strm->next_out, strm->avail_out};
    const Status status = code(*state, *strm, in, out, flush);
    strm->total_in += strm->avail_in - in.left;
    strm->total_out += strm->avail_out - out.left;
    strm->next_in = const_cast<Bytef*>(in.next);
    strm->avail_in = static_cast<uInt>(in.left);
    strm->next_out = out.next;
    strm->avail_out = static_cast<uInt>(out.left);
    if (strm->data_type == Z_UNKNOWN && state->encoder.kindKnown())
        strm->data_type = state->encoder.looksLikeText() ? Z_TEXT : Z_BINARY;
    if (status == Status::NoMemory) return compat::failed(strm, Z_MEM_ERROR);
    if (status == Status::Ended) return Z_STREAM_END;
    if (out.left == 0) state->lastFlush = kInterrupted;
    return Z_OK;
}

int deflateParams(z_streamp strm, int level, int strategy) {
    Deflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    if (level == Z_DEFAULT_COMPRESSION) level = kUsualLevel;
    if (!validParameters(level, strategy)) return Z_STREAM_ERROR;
    const bool apart =
        strategy != state->strategy || matcherOf(level) != matcherOf(state->options.level);
    if (apart && state->lastFlush != kNeverCalled) {
        if (deflate(strm, Z_BLOCK) == Z_STREAM_ERROR) return Z_STREAM_ERROR;
        if (strm->avail_in != 0 || !state->encoder.allMatched()) return Z_BUF_ERROR;
    }
    state->strategy = strategy;
    state->options.level = level;
    state->options.strategy = strategyOf(strategy);
    state->encoder.tune(level, state->options.strategy);
    return Z_OK;
}

/// The matcher has parameters of another kind; the level's stay.
int deflateTune(z_streamp strm, int, int, int, int) {
    return stateOf(strm) == nullptr ? Z_STREAM_ERROR : Z_OK;
}

int deflateSetDictionary(z_streamp strm, const Bytef* dictionary, uInt dictLength) {
    Deflater* const state = stateOf(strm);
    if (state == nullptr || dictionary == nullptr) return Z_STREAM_ERROR;
    if (state->wrap == Wrap::Gzip ||
        (state->wrap == Wrap::Zlib && state->phase != Deflater::Phase::Start) ||
        !state->encoder.betweenBlocks())
        return Z_STREAM_ERROR;
    const Bytes bytes(dictionary, dictLength);
    if (state->wrap == Wrap::Zlib) {
        strm->adler = adler32_z(strm->adler, dictionary, dictLength);
        state->dictionary = true;
    }
    if (bytes.empty()) return Z_OK;
    // What of it is kept counts as input.
    strm->total_in += std::min<uLong>(dictLength, 1UL << state->options.windowBits);
    return state->encoder.setHistory(bytes) == Status::Going ? Z_OK : Z_STREAM_ERROR;
}

int deflateGetDictionary(z_streamp strm, Bytef* dictionary, uInt* dictLength) {
    Deflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    const size_t size = state->encoder.copyHistory(dictionary);
    if (dictLength != nullptr) *dictLength = static_cast<uInt>(size);
    return Z_OK;
}

int deflateSetHeader(z_streamp strm, gz_headerp head) {
    Deflater* const state = stateOf(strm);
    if (state == nullptr || state->wrap != Wrap::Gzip || state->trailed) return Z_STREAM_ERROR;
    state->gzip = head;
    return Z_OK;
}

int deflatePending(z_streamp strm, unsigned* pending, int* bits) {
    Deflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    if (pending != nullptr)
        *pending = static_cast<unsigned>(state->frame.size() + state->encoder.pendingBytes());
    if (bits != nullptr) *bits = static_cast<int>(state->encoder.pendingBits());
    return Z_OK;
}

int deflatePrime(z_streamp strm, int bits, int value) {
    Deflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    if (bits < 0 || bits > 16) return Z_BUF_ERROR;
    return state->encoder.prime(static_cast<uint32_t>(value), static_cast<uint32_t>(bits))
               ? Z_OK
               : Z_BUF_ERROR;
}

uLong deflateBound(z_streamp strm, uLong sourceLen) {
    constexpr uLong longestPending = 16;
    const Deflater* const state = stateOf(strm);
    uLong around = kZlibLongHeader + kZlibTrailer;
    if (state != nullptr && state->wrap == Wrap::Raw) around = 0;
    if (state != nullptr && state->wrap == Wrap::Gzip) {
        const GzipHeader header = gzipHeader(*state);
        around = GzipHeaderWriter::kFixedRoom + header.extra.size + header.name.size +
                 header.comment.size + kGzipTrailer;
    }
    return compressBound(sourceLen) + around + longestPending;
}
}
