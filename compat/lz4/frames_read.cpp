// The frame interface of liblz4, reading: frames and skippable frames in pieces of any size.
//
// A block comes out once all of it is in, so what a broken frame gives before its error may be less
// than the distribution's library would. What a call returns, as how much input it would like next,
// is a block's rest, or 1 where it waits for room.
#include <cstring>

#include "codec/lz4_frame_decoder.h"
#include "compat/lz4/frames.h"

namespace {

using namespace vekdc;
using namespace vekdc::codec;
using compat::failed;

/// The interface's number of what is wrong.
LZ4F_errorCodes codeOf(const char* reason) {
    static constexpr struct {
        const char* reason;
        LZ4F_errorCodes code;
    } kReasons[] = {
        {"not an lz4 file", LZ4F_ERROR_frameType_unknown},
        {"unknown version of the format", LZ4F_ERROR_headerVersion_wrong},
        {"reserved bits are set in the header", LZ4F_ERROR_reservedFlag_set},
        {"unknown block size", LZ4F_ERROR_maxBlockSize_invalid},
        {"the header's checksum does not match", LZ4F_ERROR_headerChecksum_invalid},
        {"the block is larger than the frame allows", LZ4F_ERROR_maxBlockSize_invalid},
        {"the block's checksum does not match", LZ4F_ERROR_blockChecksum_invalid},
        {"the checksum of the content does not match", LZ4F_ERROR_contentChecksum_invalid},
        {"the length of the content does not match", LZ4F_ERROR_frameSize_wrong},
    };
    for (const auto& known : kReasons)
        if (std::strcmp(known.reason, reason) == 0) return known.code;
    return LZ4F_ERROR_decompressionFailed;
}

}  // namespace

struct LZ4F_dctx_s : compat::WithMemory<LZ4F_dctx_s> {
    explicit LZ4F_dctx_s(const LZ4F_CustomMem& from) : WithMemory(from), decoder(allocator()) {
        reset();
    }

    void reset() {
        decoder.reset();
        decoder.setDictionary({});
        skips = false;
    }
    size_t run(Input& in, Output& out);

    Lz4FrameDecoder decoder;
    bool skips = false;
};

size_t LZ4F_dctx_s::run(Input& in, Output& out) {
    decoder.insist(!skips, false);
    const Status status = decoder.run(in, out);
    if (decoder.info().kind == Lz4FrameInfo::Kind::Legacy)
        return failed(LZ4F_ERROR_frameType_unknown);
    switch (status) {
        case Status::Ended:
            reset();
            return 0;
        case Status::Broken:
            return failed(codeOf(decoder.fault().reason));
        case Status::NoMemory:
            return failed(LZ4F_ERROR_allocation_failed);
        default:
            break;
    }
    if (!decoder.hasBegun()) return LZ4F_HEADER_SIZE_MIN;
    return std::max<size_t>(decoder.missing(), 1);
}

namespace {

constexpr size_t kSkippableHeader = 8;  // No other header is as long.

}

size_t LZ4F_headerSize(const void* src, size_t srcSize) {
    if (src == nullptr) return failed(LZ4F_ERROR_srcPtr_wrong);
    if (srcSize < LZ4F_MIN_SIZE_TO_KNOW_HEADER_LENGTH)
        return failed(LZ4F_ERROR_frameHeader_incomplete);
    const auto* const bytes = static_cast<const uint8_t*>(src);
    const auto magic = static_cast<uint32_t>(getLittleEndian(bytes, 4));
    if (isLz4Skippable(magic)) return kSkippableHeader;
    if (magic != kLz4Magic) return failed(LZ4F_ERROR_frameType_unknown);
    return LZ4F_HEADER_SIZE_MIN + ((bytes[4] & kLz4ContentSize) != 0 ? 8U : 0) +
           ((bytes[4] & kLz4HasDictionaryId) != 0 ? 4U : 0);
}

// --- contexts ------------------------------------------------------------------------------------

LZ4F_dctx* LZ4F_createDecompressionContext_advanced(LZ4F_CustomMem customMem,
                                                    unsigned /*version*/) {
    return LZ4F_dctx::create(customMem);
}

LZ4F_errorCode_t LZ4F_createDecompressionContext(LZ4F_dctx** dctxPtr, unsigned version) {
    if (dctxPtr == nullptr) return failed(LZ4F_ERROR_parameter_null);
    *dctxPtr = LZ4F_createDecompressionContext_advanced(LZ4F_defaultCMem, version);
    return *dctxPtr == nullptr ? failed(LZ4F_ERROR_allocation_failed) : 0;
}

/// Tells whether a frame was left unfinished.
LZ4F_errorCode_t LZ4F_freeDecompressionContext(LZ4F_dctx* dctx) {
    const bool unfinished = dctx != nullptr && dctx->decoder.hasBegun();
    LZ4F_dctx::destroy(dctx);
    return unfinished ? 1 : 0;
}

void LZ4F_resetDecompressionContext(LZ4F_dctx* dctx) {
    dctx->reset();
}

// --- frames --------------------------------------------------------------------------------------

size_t LZ4F_getFrameInfo(LZ4F_dctx* dctx, LZ4F_frameInfo_t* frameInfoPtr, const void* srcBuffer,
                         size_t* srcSizePtr) {
    Lz4FrameDecoder& decoder = dctx->decoder;
    const size_t given = *srcSizePtr;
    *srcSizePtr = 0;
    size_t hint = LZ4F_BLOCK_HEADER_SIZE;
    const auto isSkippable = [&] { return decoder.info().kind == Lz4FrameInfo::Kind::Skippable; };
    if (!decoder.hasHeader() && !isSkippable()) {
        if (decoder.hasBegun()) return failed(LZ4F_ERROR_frameDecoding_alreadyStarted);
        size_t size = LZ4F_headerSize(srcBuffer, given);
        if (LZ4F_isError(size) != 0) return size;
        if (given < size) return failed(LZ4F_ERROR_frameHeader_incomplete);
        // Of a skippable frame only the magic number is taken.
        if (size == kSkippableHeader) size = 4;
        Input in{static_cast<const uint8_t*>(srcBuffer), size};
        Output out{nullptr, 0};
        hint = dctx->run(in, out);
        if (LZ4F_isError(hint) != 0) {
            dctx->reset();
            return hint;
        }
        *srcSizePtr = size;
    }
    const Lz4FrameInfo& info = decoder.info();
    *frameInfoPtr = LZ4F_INIT_FRAMEINFO;
    if (isSkippable()) {
        frameInfoPtr->frameType = LZ4F_skippableFrame;
        return hint;
    }
    unsigned code = kLz4SmallestCode;
    while (code < kLz4LargestCode && lz4BlockSize(code) < info.blockMost) ++code;
    frameInfoPtr->blockSizeID = static_cast<LZ4F_blockSizeID_t>(code);
    frameInfoPtr->blockMode = info.has(kLz4Independent) ? LZ4F_blockIndependent : LZ4F_blockLinked;
    frameInfoPtr->contentChecksumFlag =
        static_cast<LZ4F_contentChecksum_t>(info.has(kLz4ContentChecksum));
    frameInfoPtr->blockChecksumFlag =
        static_cast<LZ4F_blockChecksum_t>(info.has(kLz4BlockChecksum));
    frameInfoPtr->contentSize = info.contentSize;
    frameInfoPtr->dictID = info.dictionaryId;
    return hint;
}

size_t LZ4F_decompress(LZ4F_dctx* dctx, void* dstBuffer, size_t* dstSizePtr, const void* srcBuffer,
                       size_t* srcSizePtr, const LZ4F_decompressOptions_t* dOptPtr) {
    if (dOptPtr != nullptr && dOptPtr->skipChecksums != 0) dctx->skips = true;
    Input in{static_cast<const uint8_t*>(srcBuffer), srcBuffer == nullptr ? 0 : *srcSizePtr};
    Output out{static_cast<uint8_t*>(dstBuffer), dstBuffer == nullptr ? 0 : *dstSizePtr};
    const size_t taken = in.left;
    const size_t room = out.left;
    *srcSizePtr = *dstSizePtr = 0;
    const size_t result = dctx->run(in, out);
    if (LZ4F_isError(result) != 0) return result;
    *srcSizePtr = taken - in.left;
    *dstSizePtr = room - out.left;
    return result;
}

size_t LZ4F_decompress_usingDict(LZ4F_dctx* dctxPtr, void* dstBuffer, size_t* dstSizePtr,
                                 const void* srcBuffer, size_t* srcSizePtr, const void* dict,
                                 size_t dictSize,
                                 const LZ4F_decompressOptions_t* decompressOptionsPtr) {
    Lz4FrameDecoder& decoder = dctxPtr->decoder;
    if (!decoder.hasHeader() || decoder.info().blocks == 0)
        decoder.setDictionary({static_cast<const uint8_t*>(dict), dictSize});
    return LZ4F_decompress(dctxPtr, dstBuffer, dstSizePtr, srcBuffer, srcSizePtr,
                           decompressOptionsPtr);
}
