// Writes a ZFP field: a header (zfp_header.h), and the bits of its chunks (zfp_blocks.h) strung
// together and filled up to whole 64-bit words.
//
// A chunk's blocks reach over all of its planes, so its floats are gathered before they are coded:
// memory is a chunk, raw and coded. A chunk that comes whole is coded where it stands.
#pragma once

#include "codec/zfp_blocks.h"

namespace vekdc::codec {

class ZfpFieldEncoder {
 public:
    ZfpFieldEncoder(const ZfpDims& dims, const ZfpParameters& parameters,
                    const Allocator& allocator = {});

    /// Takes the field's floats as bytes. The sides tell where it ends, so Finish only says that no
    /// more comes: a field that is too short then is Broken. There is nothing to flush before.
    Status run(Input& in, Output& out, Directive directive);
    Fault fault() const { return {broken_ ? reason_.text() : nullptr, taken_}; }
    /// Ready for another field of the same sides and parameters.
    Status reset();

 private:
    enum class Phase { Header, Gather, Code, Drain, Ended };

    Status gather(Input& in, Directive directive);
    Status encode(const float* values);
    void write(size_t words) {
        left_ = {reinterpret_cast<uint8_t*>(coded_.words.data()), 8 * words};
    }

    ZfpDims dims_;
    ZfpParameters parameters_;
    ZfpChunks chunks_;
    ZfpChunkEncoder encoder_;
    ZfpBitString bits_;
    Memory<float> values_;
    ZfpCoded coded_;

    Phase phase_ = Phase::Header;
    uint32_t next_ = 0;          ///< The chunk to be gathered.
    size_t held_ = 0;            ///< Bytes of it.
    Input left_ = {nullptr, 0};  ///< Of coded_, to be written.
    uint64_t taken_ = 0;         ///< Bytes of the field.
    ZfpReason reason_;
    bool broken_ = false;
};

}  // namespace vekdc::codec
