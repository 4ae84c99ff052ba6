// The low-level interface of libbz2 over the codecs: streams in memory, in pieces or in one call.
//
// Here is only what the interface adds to them: which calls may follow which, and what each
// returns. The work factor, the verbosity and the small mode are checked and otherwise without
// meaning. Memory comes from the stream's own allocator, as it is needed: there is none left when a
// call says BZ_MEM_ERROR, which any that codes may say; it may be made again.
#include <cstdint>
#include <cstdlib>
#include <new>

#include "codec/bzip2_decoder.h"
#include "codec/bzip2_encoder.h"
#include "compat/bzip2/bzlib_interface.h"

namespace {

using namespace vekdc::codec;

bool isIn(int value, int low, int high) {
    return value >= low && value <= high;
}

void* allocate(void* stream, size_t bytes) {
    const auto* strm = static_cast<const bz_stream*>(stream);
    return strm->bzalloc(strm->opaque, static_cast<int>(bytes), 1);
}
void release(void* stream, void* memory) {
    const auto* strm = static_cast<const bz_stream*>(stream);
    strm->bzfree(strm->opaque, memory);
}
Allocator allocatorOf(bz_stream* strm) {
    return {allocate, release, strm};
}

/// What a stream's `state` points to. A stream that was copied elsewhere is no longer its owner.
template <class Codec>
struct State {
    template <class... Arguments>
    explicit State(bz_stream* strm, Arguments... arguments) : owner(strm), codec(arguments...) {}

    bz_stream* owner;
    int action = BZ_RUN;   // That the last call has begun, and not brought to its end.
    unsigned awaited = 0;  // Of input, until it is.
    bool ended = false;
    Codec codec;

    static State* of(bz_stream* strm) {
        if (strm == nullptr || strm->state == nullptr) return nullptr;
        auto* const state = static_cast<State*>(strm->state);
        return state->owner == strm ? state : nullptr;
    }

    template <class... Arguments>
    static int begin(bz_stream* strm, Arguments... arguments) {
        if (strm->bzalloc == nullptr)
            strm->bzalloc = [](void*, int items, int size) {
                return std::malloc(static_cast<size_t>(items) * static_cast<size_t>(size));
            };
        if (strm->bzfree == nullptr) strm->bzfree = [](void*, void* memory) { std::free(memory); };
        void* const memory = allocate(strm, sizeof(State));
        if (memory == nullptr) return BZ_MEM_ERROR;
        strm->state = new (memory) State(strm, arguments...);
        strm->total_in_lo32 = strm->total_in_hi32 = 0;
        strm->total_out_lo32 = strm->total_out_hi32 = 0;
        return BZ_OK;
    }

    static int end(bz_stream* strm) {
        State* const state = of(strm);
        if (state == nullptr) return BZ_PARAM_ERROR;
        state->~State();
        release(strm, state);
        strm->state = nullptr;
        return BZ_OK;
    }
};

using Compressor = State<Bzip2Encoder>;
using Decompressor = State<Bzip2Decoder>;

void count(unsigned& low, unsigned& high, unsigned more) {
    low += more;
    high += low < more ? 1 : 0;
}

/// Calls `run(Input&, Output&)` on what the stream has; `moved` tells whether there was any
/// progress.
template <class Run>
Status runOn(bz_stream* strm, bool& moved, Run&& run) {
    Input in{reinterpret_cast<const uint8_t*>(strm->next_in), strm->avail_in};
    Output out{reinterpret_cast<uint8_t*>(strm->next_out), strm->avail_out};
    const Status status = run(in, out);
    const auto taken = strm->avail_in - static_cast<unsigned>(in.left);
    const auto given = strm->avail_out - static_cast<unsigned>(out.left);
    strm->next_in += taken;
    strm->avail_in -= taken;
    count(strm->total_in_lo32, strm->total_in_hi32, taken);
    strm->next_out += given;
    strm->avail_out -= given;
    count(strm->total_out_lo32, strm->total_out_hi32, given);
    moved = taken != 0 || given != 0;
    return status;
}

/// Brings a flush or the stream's end as far as there is room.
int compressOn(Compressor& state, bz_stream* strm, int action) {
    const Directive directive = action == BZ_RUN     ? Directive::Go
                                : action == BZ_FLUSH ? Directive::SyncFlush
                                                     : Directive::Finish;
    bool moved = false;
    const Status status = runOn(
        strm, moved, [&](Input& in, Output& out) { return state.codec.run(in, out, directive); });
    state.awaited = strm->avail_in;
    if (status == Status::NoMemory) return BZ_MEM_ERROR;
    if (action == BZ_RUN) return moved ? BZ_RUN_OK : BZ_PARAM_ERROR;
    const bool isLeft = strm->avail_in != 0 || state.codec.hasOutput();
    if (action == BZ_FLUSH) {
        if (isLeft) return BZ_FLUSH_OK;
        state.action = BZ_RUN;
        return BZ_RUN_OK;
    }
    if (!moved) return BZ_SEQUENCE_ERROR;
    if (status != Status::Ended) return BZ_FINISH_OK;
    state.ended = true;
    return BZ_STREAM_END;
}

}  // namespace

const char* BZ2_bzlibVersion() {
    return "1.0.8, 13-Jul-2019";  // Programs ask for the interface's version, which is this.
}

int BZ2_bzCompressInit(bz_stream* strm, int blockSize100k, int, int workFactor) {
    if (strm == nullptr || !isIn(blockSize100k, 1, 9) || !isIn(workFactor, 0, 250))
        return BZ_PARAM_ERROR;
    return Compressor::begin(strm, blockSize100k, allocatorOf(strm));
}

int BZ2_bzCompress(bz_stream* strm, int action) {
    Compressor* const state = Compressor::of(strm);
    if (state == nullptr) return BZ_PARAM_ERROR;
    if (state->ended) return BZ_SEQUENCE_ERROR;
    if (state->action == BZ_RUN) {
        if (!isIn(action, BZ_RUN, BZ_FINISH)) return BZ_PARAM_ERROR;
        state->action = action;
    } else if (action != state->action || strm->avail_in != state->awaited) {
        return BZ_SEQUENCE_ERROR;
    }
    return compressOn(*state, strm, action);
}

int BZ2_bzCompressEnd(bz_stream* strm) {
    return Compressor::end(strm);
}

int BZ2_bzDecompressInit(bz_stream* strm, int verbosity, int small) {
    if (strm == nullptr || !isIn(small, 0, 1) || !isIn(verbosity, 0, 4)) return BZ_PARAM_ERROR;
    return Decompressor::begin(strm, allocatorOf(strm), Bzip2Check::Last);
}

int BZ2_bzDecompress(bz_stream* strm) {
    Decompressor* const state = Decompressor::of(strm);
    if (state == nullptr) return BZ_PARAM_ERROR;
    if (state->ended) return BZ_SEQUENCE_ERROR;
    bool moved = false;
    switch (runOn(strm, moved, [&](Input& in, Output& out) { return state->codec.run(in, out); })) {
        case Status::Ended:
            state->ended = true;
            return BZ_STREAM_END;
        case Status::Broken:
            return state->codec.level() == 0 ? BZ_DATA_ERROR_MAGIC : BZ_DATA_ERROR;
        case Status::NoMemory:
            return BZ_MEM_ERROR;
        default:
            return BZ_OK;
    }
}

int BZ2_bzDecompressEnd(bz_stream* strm) {
    return Decompressor::end(strm);
}

int BZ2_bzBuffToBuffCompress(char* dest, unsigned* destLen, char* source, unsigned sourceLen,
                             int blockSize100k, int verbosity, int workFactor) {
    if (dest == nullptr || destLen == nullptr || source == nullptr || !isIn(verbosity, 0, 4))
        return BZ_PARAM_ERROR;
    bz_stream strm{};
    int result = BZ2_bzCompressInit(&strm, blockSize100k, verbosity, workFactor);
    if (result != BZ_OK) return result;
    strm.next_in = source;
    strm.avail_in = sourceLen;
    strm.next_out = dest;
    strm.avail_out = *destLen;
    result = BZ2_bzCompress(&strm, BZ_FINISH);
    BZ2_bzCompressEnd(&strm);
    if (result == BZ_FINISH_OK) return BZ_OUTBUFF_FULL;
    if (result != BZ_STREAM_END) return result;
    *destLen -= strm.avail_out;
    return BZ_OK;
}

int BZ2_bzBuffToBuffDecompress(char* dest, unsigned* destLen, char* source, unsigned sourceLen,
                               int small, int verbosity) {
    if (dest == nullptr || destLen == nullptr || source == nullptr) return BZ_PARAM_ERROR;
    bz_stream strm{};
    int result = BZ2_bzDecompressInit(&strm, verbosity, small);
    if (result != BZ_OK) return result;
    strm.next_in = source;
    strm.avail_in = sourceLen;
    strm.next_out = dest;
    strm.avail_out = *destLen;
    result = BZ2_bzDecompress(&strm);
    BZ2_bzDecompressEnd(&strm);
    if (result == BZ_OK) return strm.avail_out != 0 ? BZ_UNEXPECTED_EOF : BZ_OUTBUFF_FULL;
    if (result != BZ_STREAM_END) return result;
    *destLen -= strm.avail_out;
    return BZ_OK;
}
