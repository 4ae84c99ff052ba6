// The frame interface of liblz4, writing: a header, blocks as they get full, an end.
//
// A call must have room for all that it could come to, by a formula of the interface. That has none
// for a block that grows; the encoder needs it, so where room is short a block is made in memory of
// the context's own and copied.
#include "compat/lz4/frames.h"

#include "codec/lz4_frame_encoder.h"

namespace {

using namespace vekdc;
using namespace vekdc::codec;
using compat::failed;

constexpr size_t kBlockField = 4;
constexpr size_t kSum = 4;
constexpr LZ4F_preferences_t kDefaults = LZ4F_INIT_PREFERENCES;

bool isBlockId(LZ4F_blockSizeID_t id) {
    return id == LZ4F_default || (id >= LZ4F_max64KB && id <= LZ4F_max4MB);
}
unsigned codeOf(LZ4F_blockSizeID_t id) {
    return id == LZ4F_default ? kLz4SmallestCode : static_cast<unsigned>(id);
}

/// The most that `size` bytes more can bring, behind `held` ones, the end of the frame included.
size_t bound(size_t size, const LZ4F_preferences_t& prefs, size_t held) {
    const size_t block = lz4BlockSize(codeOf(prefs.frameInfo.blockSizeID));
    const size_t around = kBlockField + (prefs.frameInfo.blockChecksumFlag != 0 ? kSum : 0);
    const size_t end = kBlockField + (prefs.frameInfo.contentChecksumFlag != 0 ? kSum : 0);
    const size_t all = size + held;
    const size_t last = prefs.autoFlush != 0 || size == 0 ? all % block : 0;
    const size_t blocks = all / block;
    return (blocks + (last != 0 ? 1 : 0)) * around + blocks * block + last + end;
}

}  // namespace

struct LZ4F_CDict_s : compat::WithMemory<LZ4F_CDict_s> {
    explicit LZ4F_CDict_s(const LZ4F_CustomMem& from) : WithMemory(from), bytes(allocator()) {}

    Memory<uint8_t> bytes;
    size_t size = 0;
};

struct LZ4F_cctx_s : compat::WithMemory<LZ4F_cctx_s> {
    explicit LZ4F_cctx_s(const LZ4F_CustomMem& from)
        : WithMemory(from), ahead(allocator()), blocks({}, allocator()), made(allocator()) {}

    size_t begin(uint8_t* to, size_t room, const LZ4F_CDict* dictionary,
                 const LZ4F_preferences_t& preferences);
    size_t update(Output& out, Input in, bool stored);
    size_t flush(Output& out);
    size_t end(Output& out);

    bool begun = false;

 private:
    bool hasRoom(const Output& out, size_t size) const { return out.left >= size; }
    size_t put(Output& out, Input& in, size_t size);
    size_t encode(Bytes data, uint8_t* to, size_t& written);
    size_t store(Bytes data, uint8_t* to) const;

    LZ4F_preferences_t prefs = kDefaults;
    Lz4FrameOptions options;
    bool storing = false;
    Lz4Ahead ahead;
    size_t held = 0;
    Lz4BlockEncoder blocks;
    Memory<uint8_t> made;
    Lz4Hash content;
    uint64_t length = 0;
};

size_t LZ4F_cctx_s::begin(uint8_t* to, size_t room, const LZ4F_CDict* dictionary,
                          const LZ4F_preferences_t& preferences) {
    if (room < kLz4LargestHeader) return failed(LZ4F_ERROR_dstMaxSize_tooSmall);
    prefs = preferences;
    const LZ4F_frameInfo_t& info = prefs.frameInfo;
    if (!isBlockId(info.blockSizeID)) return failed(LZ4F_ERROR_maxBlockSize_invalid);
    const int level = prefs.compressionLevel;
    constexpr int mostLevel = 9;
    constexpr int mostAcceleration = 65537;
    options = {};
    options.coding.level = level < LZ4HC_CLEVEL_MIN ? 1 : std::min(level, mostLevel);
    options.coding.acceleration = level >= 0 ? 1 : 1 - std::max(level, 1 - mostAcceleration);
    options.coding.checksums = info.blockChecksumFlag != 0;
    options.blockCode = codeOf(info.blockSizeID);
    options.linked = info.blockMode == LZ4F_blockLinked;
    options.contentChecksum = info.contentChecksumFlag != 0;
    if (info.contentSize != 0) options.contentSize = info.contentSize;
    options.dictionaryId = info.dictID;
    if (dictionary != nullptr) options.dictionary = {dictionary->bytes.data(), dictionary->size};
    blocks.set(options.coding);
    ahead.begin(options);
    content.reset();
    length = held = 0;
    storing = false;
    begun = true;
    return putLz4Header(options, to);
}

size_t LZ4F_cctx_s::store(Bytes data, uint8_t* to) const {
    putLittleEndian(to, data.size() | kLz4Stored, kBlockField);
    std::memcpy(to + kBlockField, data.data(), data.size());
    if (!options.coding.checksums) return kBlockField + data.size();
    putLittleEndian(to + kBlockField + data.size(), lz4Hash(data), kSum);
    return kBlockField + data.size() + kSum;
}

/// Makes a block at `to`, where there is room for one that grows.
size_t LZ4F_cctx_s::encode(Bytes data, uint8_t* to, size_t& written) {
    const bool done = options.linked
                          ? blocks.encodeNext(data.data(), ahead.history(), data.size(),
                                              ahead.follows(), to, written)
                          : blocks.encode(data.data(), ahead.history(), data.size(), to, written);
    return done ? 0 : failed(LZ4F_ERROR_allocation_failed);
}

/// Puts a block of the next `size` bytes; 0, or an error.
size_t LZ4F_cctx_s::put(Output& out, Input& in, size_t size) {
    const uint8_t* const data = ahead.show(in, size);
    if (data == nullptr) return failed(LZ4F_ERROR_allocation_failed);
    const Bytes plain(data, size);
    size_t written = 0;
    if (storing) {
        written = store(plain, out.next);
    } else if (hasRoom(out, Lz4BlockEncoder::bound(size))) {
        if (const size_t error = encode(plain, out.next, written); error != 0) return error;
    } else {
        if (!made.reserve(Lz4BlockEncoder::bound(size)))
            return failed(LZ4F_ERROR_allocation_failed);
        if (const size_t error = encode(plain, made.data(), written); error != 0) return error;
        std::memcpy(out.next, made.data(), written);
    }
    out = {out.next + written, out.left - written};
    if (options.contentChecksum) content.update(plain);
    length += size;
    ahead.accept(in, size);
    held = 0;
    return 0;
}

size_t LZ4F_cctx_s::flush(Output& out) {
    if (held == 0) return 0;
    if (!begun) return failed(LZ4F_ERROR_compressionState_uninitialized);
    if (!hasRoom(out, held + kBlockField + kSum)) return failed(LZ4F_ERROR_dstMaxSize_tooSmall);
    Input none{nullptr, 0};
    return put(out, none, held);
}

size_t LZ4F_cctx_s::update(Output& out, Input in, bool stored) {
    if (!begun) return failed(LZ4F_ERROR_compressionState_uninitialized);
    if (!hasRoom(out, bound(in.left, prefs, held))) return failed(LZ4F_ERROR_dstMaxSize_tooSmall);
    if (stored != storing) {
        if (const size_t error = flush(out); error != 0) return error;
        if (!hasRoom(out, bound(in.left, prefs, 0))) return failed(LZ4F_ERROR_dstMaxSize_tooSmall);
        storing = stored;
    }
    const size_t block = lz4BlockSize(options.blockCode);
    while (held + in.left >= block)
        if (const size_t error = put(out, in, block); error != 0) return error;
    if (prefs.autoFlush != 0 && held + in.left != 0) return put(out, in, held + in.left);
    const size_t more = in.left;
    if (!ahead.keep(in, block)) return failed(LZ4F_ERROR_allocation_failed);
    held += more;
    return 0;
}

size_t LZ4F_cctx_s::end(Output& out) {
    if (const size_t error = flush(out); error != 0) return error;
    if (!hasRoom(out, kBlockField + (options.contentChecksum ? kSum : 0)))
        return failed(LZ4F_ERROR_dstMaxSize_tooSmall);
    const size_t written = putLz4End(options, content, out.next);
    out = {out.next + written, out.left - written};
    begun = false;
    const bool isWrong =
        options.contentSize != Lz4FrameOptions::kUnknown && options.contentSize != length;
    return isWrong ? failed(LZ4F_ERROR_frameSize_wrong) : 0;
}

namespace {

/// What a call wrote, or its error.
template <class Call>
size_t writeTo(void* to, size_t room, Call&& call) {
    Output out{static_cast<uint8_t*>(to), room};
    const size_t error = call(out);
    return error != 0 ? error : room - out.left;
}

const LZ4F_preferences_t& orDefaults(const LZ4F_preferences_t* prefs) {
    return prefs != nullptr ? *prefs : kDefaults;
}

LZ4F_preferences_t forOneCall(const LZ4F_preferences_t* given, size_t size) {
    LZ4F_preferences_t prefs = orDefaults(given);
    LZ4F_frameInfo_t& info = prefs.frameInfo;
    if (info.contentSize != 0) info.contentSize = size;
    // The smallest blocks of which one is enough.
    unsigned code = kLz4SmallestCode;
    while (isBlockId(info.blockSizeID) && code < codeOf(info.blockSizeID) &&
           size > lz4BlockSize(code))
        ++code;
    if (isBlockId(info.blockSizeID)) info.blockSizeID = static_cast<LZ4F_blockSizeID_t>(code);
    prefs.autoFlush = 1;
    if (size <= lz4BlockSize(code)) info.blockMode = LZ4F_blockIndependent;
    return prefs;
}

}  // namespace

// --- what is known beforehand --------------------------------------------------------------------

unsigned LZ4F_isError(LZ4F_errorCode_t code) {
    return code > failed(LZ4F_ERROR_maxCode) ? 1 : 0;
}

const char* LZ4F_getErrorName(LZ4F_errorCode_t code) {
#define VEK_NAME(name) #name,
    static constexpr const char* kNames[] = {LZ4F_LIST_ERRORS(VEK_NAME)};
#undef VEK_NAME
    return LZ4F_isError(code) != 0 ? kNames[-static_cast<ptrdiff_t>(code)]
                                   : "Unspecified error code";
}

LZ4F_errorCodes LZ4F_getErrorCode(size_t functionResult) {
    if (LZ4F_isError(functionResult) == 0) return LZ4F_OK_NoError;
    return static_cast<LZ4F_errorCodes>(-static_cast<ptrdiff_t>(functionResult));
}

unsigned LZ4F_getVersion() {
    return LZ4F_VERSION;
}
int LZ4F_compressionLevel_max() {
    return LZ4HC_CLEVEL_MAX;
}
size_t LZ4F_getBlockSize(LZ4F_blockSizeID_t blockSizeID) {
    if (!isBlockId(blockSizeID)) return failed(LZ4F_ERROR_maxBlockSize_invalid);
    return lz4BlockSize(codeOf(blockSizeID));
}

size_t LZ4F_compressBound(size_t srcSize, const LZ4F_preferences_t* prefsPtr) {
    LZ4F_preferences_t prefs = orDefaults(prefsPtr);
    if (prefsPtr == nullptr) {
        prefs.frameInfo.contentChecksumFlag = LZ4F_contentChecksumEnabled;
        prefs.frameInfo.blockChecksumFlag = LZ4F_blockChecksumEnabled;
    }
    if (!isBlockId(prefs.frameInfo.blockSizeID)) return failed(LZ4F_ERROR_maxBlockSize_invalid);
    const size_t most = lz4BlockSize(codeOf(prefs.frameInfo.blockSizeID)) - 1;
    return bound(srcSize, prefs, prefs.autoFlush != 0 ? 0 : most);
}

size_t LZ4F_compressFrameBound(size_t srcSize, const LZ4F_preferences_t* preferencesPtr) {
    LZ4F_preferences_t prefs = orDefaults(preferencesPtr);
    prefs.autoFlush = 1;
    if (!isBlockId(prefs.frameInfo.blockSizeID)) return failed(LZ4F_ERROR_maxBlockSize_invalid);
    return kLz4LargestHeader + bound(srcSize, prefs, 0);
}

// --- contexts and dictionaries -------------------------------------------------------------------

LZ4F_cctx* LZ4F_createCompressionContext_advanced(LZ4F_CustomMem customMem, unsigned /*version*/) {
    return LZ4F_cctx::create(customMem);
}

LZ4F_errorCode_t LZ4F_createCompressionContext(LZ4F_cctx** cctxPtr, unsigned version) {
    if (cctxPtr == nullptr) return failed(LZ4F_ERROR_parameter_null);
    *cctxPtr = LZ4F_createCompressionContext_advanced(LZ4F_defaultCMem, version);
    return *cctxPtr == nullptr ? failed(LZ4F_ERROR_allocation_failed) : 0;
}

LZ4F_errorCode_t LZ4F_freeCompressionContext(LZ4F_cctx* cctx) {
    LZ4F_cctx::destroy(cctx);
    return 0;
}

LZ4F_CDict* LZ4F_createCDict_advanced(LZ4F_CustomMem customMem, const void* dictBuffer,
                                      size_t dictSize) {
    LZ4F_CDict* const dictionary = LZ4F_CDict::create(customMem);
    if (dictionary == nullptr) return nullptr;
    const Bytes last = lz4History({static_cast<const uint8_t*>(dictBuffer), dictSize});
    if (!dictionary->bytes.reserve(last.size())) {
        LZ4F_CDict::destroy(dictionary);
        return nullptr;
    }
    dictionary->size = last.size();
    if (!last.empty()) std::memcpy(dictionary->bytes.data(), last.data(), last.size());
    return dictionary;
}

LZ4F_CDict* LZ4F_createCDict(const void* dictBuffer, size_t dictSize) {
    return LZ4F_createCDict_advanced(LZ4F_defaultCMem, dictBuffer, dictSize);
}

void LZ4F_freeCDict(LZ4F_CDict* CDict) {
    LZ4F_CDict::destroy(CDict);
}

// --- frames --------------------------------------------------------------------------------------

size_t LZ4F_compressBegin_usingCDict(LZ4F_cctx* cctx, void* dstBuffer, size_t dstCapacity,
                                     const LZ4F_CDict* cdict, const LZ4F_preferences_t* prefsPtr) {
    return cctx->begin(static_cast<uint8_t*>(dstBuffer), dstCapacity, cdict, orDefaults(prefsPtr));
}

size_t LZ4F_compressBegin(LZ4F_cctx* cctx, void* dstBuffer, size_t dstCapacity,
                          const LZ4F_preferences_t* prefsPtr) {
    return LZ4F_compressBegin_usingCDict(cctx, dstBuffer, dstCapacity, nullptr, prefsPtr);
}

size_t LZ4F_compressUpdate(LZ4F_cctx* cctx, void* dstBuffer, size_t dstCapacity,
                           const void* srcBuffer, size_t srcSize,
                           const LZ4F_compressOptions_t* /*cOptPtr*/) {
    return writeTo(dstBuffer, dstCapacity, [&](Output& out) {
        return cctx->update(out, {static_cast<const uint8_t*>(srcBuffer), srcSize}, false);
    });
}

size_t LZ4F_uncompressedUpdate(LZ4F_cctx* cctx, void* dstBuffer, size_t dstCapacity,
                               const void* srcBuffer, size_t srcSize,
                               const LZ4F_compressOptions_t* /*cOptPtr*/) {
    return writeTo(dstBuffer, dstCapacity, [&](Output& out) {
        return cctx->update(out, {static_cast<const uint8_t*>(srcBuffer), srcSize}, true);
    });
}

size_t LZ4F_flush(LZ4F_cctx* cctx, void* dstBuffer, size_t dstCapacity,
                  const LZ4F_compressOptions_t* /*cOptPtr*/) {
    return writeTo(dstBuffer, dstCapacity, [&](Output& out) { return cctx->flush(out); });
}

size_t LZ4F_compressEnd(LZ4F_cctx* cctx, void* dstBuffer, size_t dstCapacity,
                        const LZ4F_compressOptions_t* /*cOptPtr*/) {
    return writeTo(dstBuffer, dstCapacity, [&](Output& out) { return cctx->end(out); });
}

size_t LZ4F_compressFrame_usingCDict(LZ4F_cctx* cctx, void* dst, size_t dstCapacity,
                                     const void* src, size_t srcSize, const LZ4F_CDict* cdict,
                                     const LZ4F_preferences_t* preferencesPtr) {
    const LZ4F_preferences_t prefs = forOneCall(preferencesPtr, srcSize);
    if (dstCapacity < LZ4F_compressFrameBound(srcSize, &prefs))
        return failed(LZ4F_ERROR_dstMaxSize_tooSmall);
    return writeTo(dst, dstCapacity, [&](Output& out) {
        const size_t header = cctx->begin(out.next, out.left, cdict, prefs);
        if (LZ4F_isError(header) != 0) return header;
        out = {out.next + header, out.left - header};
        const size_t error = cctx->update(out, {static_cast<const uint8_t*>(src), srcSize}, false);
        return error != 0 ? error : cctx->end(out);
    });
}

size_t LZ4F_compressFrame(void* dstBuffer, size_t dstCapacity, const void* srcBuffer,
                          size_t srcSize, const LZ4F_preferences_t* preferencesPtr) {
    LZ4F_cctx context(LZ4F_defaultCMem);
    return LZ4F_compressFrame_usingCDict(&context, dstBuffer, dstCapacity, srcBuffer, srcSize,
                                         nullptr, preferencesPtr);
}
