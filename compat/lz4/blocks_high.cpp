// Blocks and streams of blocks of liblz4, coded small.
//
// Levels 3 to 9 are the encoder's own, 10 to 12 its best, 9; those below 1 mean 9. The encoder's
// two tables are larger than the interface's state, where only the chains have room. The other
// table stands behind a state that this library has made. For one that the caller has made, it is
// taken from the C library for each call, and the tables are filled anew from the history.
#include <cstdlib>

#include "compat/lz4/history.h"
#include "compat/lz4/lz4_interface.h"
#include "vekdc.h"

namespace {

using namespace vekdc::compat;

constexpr size_t kHeads = 32768;
constexpr size_t kChain = 65536;

struct State {
    uint32_t chain[kChain];
    History history;
    int16_t level;
    uint16_t unused;
    uint32_t mark;       // kMark in a state that has its heads,
    const State* owner;  // and stands where it was made.

    static constexpr uint32_t kMark = 0x56446348;

    static State& of(void* state) { return *static_cast<State*>(state); }
    uint32_t* heads() {
        return mark == kMark && owner == this ? reinterpret_cast<uint32_t*>(this + 1) : nullptr;
    }
    void reset(int newLevel) {
        history = {};
        level = static_cast<int16_t>(newLevel < 1 ? LZ4HC_CLEVEL_DEFAULT
                                                  : std::min(newLevel, LZ4HC_CLEVEL_MAX));
    }
};
static_assert(sizeof(State) <= sizeof(LZ4_streamHC_t) &&
              alignof(LZ4_streamHC_t) % alignof(State) == 0);

/// The two tables for a call; none where there is no memory.
class Tables {
 public:
    explicit Tables(State& state) : state_(state), heads_(state.heads()) {
        if (heads_ != nullptr) return;
        heads_ = own_ = static_cast<uint32_t*>(std::malloc(kHeads * sizeof(uint32_t)));
    }
    ~Tables() { std::free(own_); }
    Tables(const Tables&) = delete;
    Tables& operator=(const Tables&) = delete;

    bool areThere() const { return heads_ != nullptr; }
    /// Whether what the last call has left in them is there.
    bool last() const { return own_ == nullptr; }

    void clear() { veksEncodeLZ4HCHashTableInit_8u(Both(*this).tables); }

    /// Fills them with the history, by coding it. Its size is what is in the tables then.
    void load() {
        constexpr uint32_t piece = 8 << 10;
        constexpr int bound = LZ4_COMPRESSBOUND(piece);
        uint8_t unused[bound];
        const History& history = state_.history;
        clear();
        for (uint32_t done = 0; done < history.length;) {
            auto size = static_cast<int>(std::min(piece, history.length - done));
            int room = bound;
            veksEncodeLZ4HC_8u(at(history.start + done), static_cast<int>(done), &size, unused,
                               &room, Both(*this).tables, nullptr, 0, 1);
            done += static_cast<uint32_t>(size);
        }
    }

    /// Chains are found by a position's low bits, so they move along with the counting.
    void forget(uint32_t shift) {
        if (shift == 0 || !last()) return;
        rebase(heads_, kHeads, shift);
        std::rotate(state_.chain, state_.chain + shift % kChain, state_.chain + kChain);
        rebase(state_.chain, kChain, shift);
    }

    /// Codes as much of a block as fits.
    void encode(const uint8_t* src, int* srcSize, char* dst, int* room, const uint8_t* dictionary) {
        const auto index = static_cast<int>(state_.history.length);
        veksEncodeLZ4HCDictLimit_8u(src, index, srcSize, bytes(dst), room, Both(*this).tables,
                                    dictionary, dictionary == nullptr ? 0 : index, state_.level, 0);
    }

 private:
    struct Both {
        explicit Both(Tables& t)
            : tables{reinterpret_cast<uint8_t*>(t.heads_),
                     reinterpret_cast<uint8_t*>(t.state_.chain)} {}
        uint8_t* tables[2];
    };

    State& state_;
    uint32_t* heads_;
    uint32_t* own_ = nullptr;
};

int putEmpty(char* dst, int room) {
    if (room < 1) return 0;
    *dst = 0;
    return 1;
}

/// Codes the next block of a stream, as much as fits; `srcSize` becomes what that is.
int encodeNext(State& state, const char* src, char* dst, int& srcSize, int room) {
    constexpr uint32_t mostPositions = 1 << 30;
    if (srcSize < 0 || srcSize > LZ4_MAX_INPUT_SIZE || room < 1) return 0;
    if (srcSize == 0) return putEmpty(dst, room);
    Tables tables(state);
    if (!tables.areThere()) return 0;
    History& history = state.history;
    const auto usable = history.usable(addressOf(src), static_cast<uint32_t>(srcSize));
    const bool isBehind = addressOf(src) == history.end();
    // In place, no match begins further back than the window, whatever the tables hold.
    if (!isBehind || !tables.last() || history.length > mostPositions) {
        tables.forget(history.length - usable);
        history = {history.end() - usable, usable};
    }
    if (!tables.last())
        tables.load();
    else if (history.length == 0)
        tables.clear();
    tables.encode(bytes(src), &srcSize, dst, &room, isBehind ? nullptr : at(history.start));
    const auto taken = static_cast<uint32_t>(srcSize);
    if (isBehind) {
        history.length += taken;
    } else {
        tables.forget(history.length);
        history = {addressOf(src), taken};
    }
    return room;
}

/// Likewise, all of it or nothing.
int encodeAll(State& state, const char* src, char* dst, int srcSize, int room) {
    int taken = srcSize;
    const int size = encodeNext(state, src, dst, taken, room);
    if (taken == srcSize) return size;
    state.history = {};
    return 0;
}

}  // namespace

int LZ4_sizeofStateHC() {
    return sizeof(LZ4_streamHC_t);
}

// --- single blocks -------------------------------------------------------------------------------

int LZ4_compress_HC_extStateHC(void* stateHC, const char* src, char* dst, int srcSize,
                               int maxDstSize, int compressionLevel) {
    if (addressOf(stateHC) % alignof(LZ4_streamHC_t) != 0) return 0;
    State& state = State::of(stateHC);
    state.reset(compressionLevel);
    return encodeAll(state, src, dst, srcSize, maxDstSize);
}

int LZ4_compress_HC(const char* src, char* dst, int srcSize, int dstCapacity,
                    int compressionLevel) {
    LZ4_streamHC_t* const state = LZ4_createStreamHC();
    if (state == nullptr) return 0;
    const int size =
        LZ4_compress_HC_extStateHC(state, src, dst, srcSize, dstCapacity, compressionLevel);
    LZ4_freeStreamHC(state);
    return size;
}

int LZ4_compress_HC_destSize(void* stateHC, const char* src, char* dst, int* srcSizePtr,
                             int targetDstSize, int compressionLevel) {
    State& state = State::of(stateHC);
    state.reset(compressionLevel);
    return encodeNext(state, src, dst, *srcSizePtr, targetDstSize);
}

// --- streams -------------------------------------------------------------------------------------

LZ4_streamHC_t* LZ4_createStreamHC() {
    static_assert(sizeof(State) % alignof(uint32_t) == 0);
    void* const memory =
        std::malloc(std::max(sizeof(LZ4_streamHC_t), sizeof(State) + kHeads * sizeof(uint32_t)));
    if (memory == nullptr) return nullptr;
    State& state = State::of(memory);
    state.reset(LZ4HC_CLEVEL_DEFAULT);
    state.mark = State::kMark;
    state.owner = &state;
    return static_cast<LZ4_streamHC_t*>(memory);
}

int LZ4_freeStreamHC(LZ4_streamHC_t* streamHCPtr) {
    if (streamHCPtr != nullptr) State::of(streamHCPtr).owner = nullptr;
    std::free(streamHCPtr);
    return 0;
}

LZ4_streamHC_t* LZ4_initStreamHC(void* buffer, size_t size) {
    if (buffer == nullptr || size < sizeof(LZ4_streamHC_t) ||
        addressOf(buffer) % alignof(LZ4_streamHC_t) != 0)
        return nullptr;
    State::of(buffer).reset(LZ4HC_CLEVEL_DEFAULT);
    return static_cast<LZ4_streamHC_t*>(buffer);
}

void LZ4_resetStreamHC(LZ4_streamHC_t* streamHCPtr, int compressionLevel) {
    State::of(streamHCPtr).reset(compressionLevel);
}

void LZ4_resetStreamHC_fast(LZ4_streamHC_t* streamHCPtr, int compressionLevel) {
    State::of(streamHCPtr).reset(compressionLevel);
}

int LZ4_loadDictHC(LZ4_streamHC_t* streamHCPtr, const char* dictionary, int dictSize) {
    State& state = State::of(streamHCPtr);
    const int size = std::min(dictSize, static_cast<int>(kWindow));
    state.history = {};
    if (size <= 0) return size;
    state.history = {addressOf(dictionary + dictSize - size), static_cast<uint32_t>(size)};
    if (Tables tables(state); tables.last()) tables.load();
    return size;
}

int LZ4_compress_HC_continue(LZ4_streamHC_t* streamHCPtr, const char* src, char* dst, int srcSize,
                             int maxDstSize) {
    return encodeAll(State::of(streamHCPtr), src, dst, srcSize, maxDstSize);
}

int LZ4_compress_HC_continue_destSize(LZ4_streamHC_t* LZ4_streamHCPtr, const char* src, char* dst,
                                      int* srcSizePtr, int targetDstSize) {
    return encodeNext(State::of(LZ4_streamHCPtr), src, dst, *srcSizePtr, targetDstSize);
}

int LZ4_saveDictHC(LZ4_streamHC_t* streamHCPtr, char* safeBuffer, int maxDictSize) {
    State& state = State::of(streamHCPtr);
    return state.history.save(safeBuffer, maxDictSize, [&](uint32_t shift) {
        if (Tables tables(state); tables.last()) tables.forget(shift);
    });
}

// --- older names ---------------------------------------------------------------------------------

int LZ4_compressHC(const char* source, char* dest, int inputSize) {
    return LZ4_compress_HC(source, dest, inputSize, LZ4_compressBound(inputSize), 0);
}
int LZ4_compressHC_limitedOutput(const char* source, char* dest, int inputSize, int maxOutputSize) {
    return LZ4_compress_HC(source, dest, inputSize, maxOutputSize, 0);
}
int LZ4_compressHC2(const char* source, char* dest, int inputSize, int compressionLevel) {
    return LZ4_compress_HC(source, dest, inputSize, LZ4_compressBound(inputSize), compressionLevel);
}
int LZ4_compressHC2_limitedOutput(const char* source, char* dest, int inputSize, int maxOutputSize,
                                  int compressionLevel) {
    return LZ4_compress_HC(source, dest, inputSize, maxOutputSize, compressionLevel);
}
int LZ4_compressHC_withStateHC(void* state, const char* source, char* dest, int inputSize) {
    return LZ4_compress_HC_extStateHC(state, source, dest, inputSize, LZ4_compressBound(inputSize),
                                      0);
}
int LZ4_compressHC_limitedOutput_withStateHC(void* state, const char* source, char* dest,
                                             int inputSize, int maxOutputSize) {
    return LZ4_compress_HC_extStateHC(state, source, dest, inputSize, maxOutputSize, 0);
}
int LZ4_compressHC2_withStateHC(void* state, const char* source, char* dest, int inputSize,
                                int compressionLevel) {
    return LZ4_compress_HC_extStateHC(state, source, dest, inputSize, LZ4_compressBound(inputSize),
                                      compressionLevel);
}
int LZ4_compressHC2_limitedOutput_withStateHC(void* state, const char* source, char* dest,
                                              int inputSize, int maxOutputSize,
                                              int compressionLevel) {
    return LZ4_compress_HC_extStateHC(state, source, dest, inputSize, maxOutputSize,
                                      compressionLevel);
}
int LZ4_compressHC_continue(LZ4_streamHC_t* streamHCPtr, const char* source, char* dest,
                            int inputSize) {
    return LZ4_compress_HC_continue(streamHCPtr, source, dest, inputSize,
                                    LZ4_compressBound(inputSize));
}
int LZ4_compressHC_limitedOutput_continue(LZ4_streamHC_t* streamHCPtr, const char* source,
                                          char* dest, int inputSize, int maxOutputSize) {
    return LZ4_compress_HC_continue(streamHCPtr, source, dest, inputSize, maxOutputSize);
}
void* LZ4_createHC(const char* /*inputBuffer*/) {
    return LZ4_createStreamHC();
}
int LZ4_freeHC(void* LZ4HC_Data) {
    return LZ4_freeStreamHC(static_cast<LZ4_streamHC_t*>(LZ4HC_Data));
}
int LZ4_compressHC2_continue(void* LZ4HC_Data, const char* source, char* dest, int inputSize,
                             int compressionLevel) {
    return LZ4_compressHC2_limitedOutput_continue(LZ4HC_Data, source, dest, inputSize,
                                                  LZ4_compressBound(inputSize), compressionLevel);
}
int LZ4_compressHC2_limitedOutput_continue(void* LZ4HC_Data, const char* source, char* dest,
                                           int inputSize, int maxOutputSize, int compressionLevel) {
    State& state = State::of(LZ4HC_Data);
    const History history = state.history;
    state.reset(compressionLevel);
    state.history = history;
    return encodeAll(state, source, dest, inputSize, maxOutputSize);
}
int LZ4_sizeofStreamStateHC() {
    return sizeof(LZ4_streamHC_t);
}
int LZ4_resetStreamStateHC(void* state, char* /*inputBuffer*/) {
    if (LZ4_initStreamHC(state, sizeof(LZ4_streamHC_t)) == nullptr) return 1;
    return 0;
}
char* LZ4_slideInputBufferHC(void* LZ4HC_Data) {
    State& state = State::of(LZ4HC_Data);
    auto* const start = reinterpret_cast<char*>(state.history.start);
    state.history = {};
    return start;
}
