// Blocks and streams of blocks of liblz4, coded fast: one call, into a given size, behind history.
//
// A state is the encoder's table with the stream's place behind it, so it needs no more than the
// interface's own. Blocks with history are coded at the first acceleration whatever is asked for.
#include <climits>
#include <cstdlib>

#include "compat/lz4/history.h"
#include "compat/lz4/lz4_interface.h"
#include "vekdc.h"

namespace {

using namespace vekdc::compat;

struct State {
    uint32_t table[4096];
    History history;

    static State& of(void* state) { return *static_cast<State*>(state); }
    uint8_t* work() { return reinterpret_cast<uint8_t*>(table); }

    void forget(uint32_t shift) {
        if (shift != 0) rebase(table, std::size(table), shift);
    }
    /// Keeps the last `size` bytes of history.
    void shorten(uint32_t size) {
        forget(history.length - size);
        history = {history.end() - size, size};
    }
};
static_assert(sizeof(State) <= sizeof(LZ4_stream_t) && alignof(LZ4_stream_t) % alignof(State) == 0);

bool isLength(int length) {
    return length >= 0 && length <= LZ4_MAX_INPUT_SIZE;
}

/// A block of nothing.
int putEmpty(char* dst, int room) {
    if (room < 1) return 0;
    *dst = 0;
    return 1;
}

/// Codes as much as fits; `srcSize` becomes what that is.
int encodeSome(uint8_t* table, const char* src, char* dst, int& srcSize, int room) {
    if (room < 1 || !isLength(srcSize)) return 0;
    if (srcSize == 0) return putEmpty(dst, room);
    veksEncodeLZ4Safe_8u(bytes(src), &srcSize, bytes(dst), &room, table);
    return room;
}

int encode(uint8_t* table, const char* src, char* dst, int srcSize, int room, int acceleration) {
    acceleration = std::clamp(acceleration, 1, 65537);
    if (acceleration > 1 && isLength(srcSize) && srcSize != 0 &&
        room >= LZ4_compressBound(srcSize)) {
        veksEncodeLZ4Fast_8u(bytes(src), srcSize, bytes(dst), &room, table, acceleration);
        return room;
    }
    int taken = srcSize;
    const int size = encodeSome(table, src, dst, taken, room);
    return taken == srcSize ? size : 0;
}

/// Codes a block of a stream.
int encodeNext(State& state, const char* src, char* dst, int srcSize, int room) {
    if (!isLength(srcSize) || room < 1) return 0;
    if (srcSize == 0) return putEmpty(dst, room);
    const auto length = static_cast<uint32_t>(srcSize);
    History& history = state.history;
    state.shorten(history.usable(addressOf(src), length));
    const bool isBehind = addressOf(src) == history.end();
    int taken = srcSize;
    const auto index = static_cast<int>(history.length);
    veksEncodeLZ4DictSafe_8u(bytes(src), index, &taken, bytes(dst), &room, state.work(),
                             isBehind ? nullptr : at(history.start), isBehind ? 0 : index);
    if (isBehind) {
        history.length += length;
    } else {
        state.forget(history.length);
        history = {addressOf(src), length};
    }
    if (taken == srcSize) return room;
    history = {};
    return 0;
}

}  // namespace

// --- versions and sizes --------------------------------------------------------------------------

int LZ4_versionNumber() {
    return LZ4_VERSION_NUMBER;
}
const char* LZ4_versionString() {
    return LZ4_VERSION_STRING;
}
int LZ4_compressBound(int inputSize) {
    return static_cast<int>(LZ4_COMPRESSBOUND(inputSize));
}
int LZ4_sizeofState() {
    return sizeof(LZ4_stream_t);
}

// --- single blocks -------------------------------------------------------------------------------

int LZ4_compress_fast_extState(void* state, const char* src, char* dst, int srcSize,
                               int dstCapacity, int acceleration) {
    State::of(state).history = {};
    return encode(State::of(state).work(), src, dst, srcSize, dstCapacity, acceleration);
}

int LZ4_compress_fast(const char* src, char* dst, int srcSize, int dstCapacity, int acceleration) {
    State state;
    return encode(state.work(), src, dst, srcSize, dstCapacity, acceleration);
}

int LZ4_compress_default(const char* src, char* dst, int srcSize, int dstCapacity) {
    return LZ4_compress_fast(src, dst, srcSize, dstCapacity, 1);
}

int LZ4_compress_destSize(const char* src, char* dst, int* srcSizePtr, int targetDstSize) {
    State state;
    return encodeSome(state.work(), src, dst, *srcSizePtr, targetDstSize);
}

// --- streams -------------------------------------------------------------------------------------

LZ4_stream_t* LZ4_createStream() {
    return static_cast<LZ4_stream_t*>(std::calloc(1, sizeof(LZ4_stream_t)));
}

int LZ4_freeStream(LZ4_stream_t* streamPtr) {
    std::free(streamPtr);
    return 0;
}

LZ4_stream_t* LZ4_initStream(void* buffer, size_t size) {
    if (buffer == nullptr || size < sizeof(LZ4_stream_t) ||
        addressOf(buffer) % alignof(LZ4_stream_t) != 0)
        return nullptr;
    std::memset(buffer, 0, sizeof(LZ4_stream_t));
    return static_cast<LZ4_stream_t*>(buffer);
}

void LZ4_resetStream(LZ4_stream_t* streamPtr) {
    LZ4_initStream(streamPtr, sizeof(LZ4_stream_t));
}

void LZ4_resetStream_fast(LZ4_stream_t* streamPtr) {
    State::of(streamPtr).history = {};  // A block without history clears the table.
}

int LZ4_loadDict(LZ4_stream_t* streamPtr, const char* dictionary, int dictSize) {
    State& state = State::of(streamPtr);
    state.history = {};
    if (dictSize < static_cast<int>(sizeof(size_t))) return 0;
    const int size = std::min(dictSize, static_cast<int>(kWindow));
    const char* const from = dictionary + dictSize - size;
    veksEncodeLZ4DictHashTableInit_8u(state.work(), size);
    veksEncodeLZ4LoadDict_8u(state.work(), bytes(from), size);
    state.history = {addressOf(from), static_cast<uint32_t>(size)};
    return size;
}

int LZ4_compress_fast_continue(LZ4_stream_t* streamPtr, const char* src, char* dst, int srcSize,
                               int dstCapacity, int /*acceleration*/) {
    return encodeNext(State::of(streamPtr), src, dst, srcSize, dstCapacity);
}

int LZ4_saveDict(LZ4_stream_t* streamPtr, char* safeBuffer, int maxDictSize) {
    State& state = State::of(streamPtr);
    return state.history.save(safeBuffer, maxDictSize,
                              [&](uint32_t shift) { state.forget(shift); });
}

// --- older names ---------------------------------------------------------------------------------

int LZ4_compress(const char* src, char* dest, int srcSize) {
    return LZ4_compress_default(src, dest, srcSize, LZ4_compressBound(srcSize));
}
int LZ4_compress_limitedOutput(const char* src, char* dest, int srcSize, int maxOutputSize) {
    return LZ4_compress_default(src, dest, srcSize, maxOutputSize);
}
int LZ4_compress_withState(void* state, const char* source, char* dest, int inputSize) {
    return LZ4_compress_fast_extState(state, source, dest, inputSize, LZ4_compressBound(inputSize),
                                      1);
}
int LZ4_compress_limitedOutput_withState(void* state, const char* source, char* dest, int inputSize,
                                         int maxOutputSize) {
    return LZ4_compress_fast_extState(state, source, dest, inputSize, maxOutputSize, 1);
}
int LZ4_compress_continue(LZ4_stream_t* streamPtr, const char* source, char* dest, int inputSize) {
    return LZ4_compress_fast_continue(streamPtr, source, dest, inputSize,
                                      LZ4_compressBound(inputSize), 1);
}
int LZ4_compress_limitedOutput_continue(LZ4_stream_t* streamPtr, const char* source, char* dest,
                                        int inputSize, int maxOutputSize) {
    return LZ4_compress_fast_continue(streamPtr, source, dest, inputSize, maxOutputSize, 1);
}
void* LZ4_create(char* /*inputBuffer*/) {
    return LZ4_createStream();
}
int LZ4_sizeofStreamState() {
    return sizeof(LZ4_stream_t);
}
int LZ4_resetStreamState(void* state, char* /*inputBuffer*/) {
    LZ4_resetStream(static_cast<LZ4_stream_t*>(state));
    return 0;
}
char* LZ4_slideInputBuffer(void* state) {
    return reinterpret_cast<char*>(State::of(state).history.start);
}
