#include "codec/zfp_field_encoder.h"

namespace vekdc::codec {

ZfpFieldEncoder::ZfpFieldEncoder(const ZfpDims& dims, const ZfpParameters& parameters,
                                 const Allocator& allocator)
    : dims_(dims),
      parameters_(parameters),
      encoder_(allocator),
      values_(allocator),
      coded_(allocator) {
    reset();
}

Status ZfpFieldEncoder::reset() {
    phase_ = Phase::Header;
    bits_ = {};
    next_ = 0;
    held_ = 0;
    left_ = {nullptr, 0};
    taken_ = 0;
    broken_ = !dims_.valid() || !parameters_.valid();
    if (broken_)
        reason_.set("no field has such sides or parameters");
    else
        chunks_ = ZfpChunks(dims_);
    return Status::Going;
}

Status ZfpFieldEncoder::run(Input& in, Output& out, Directive directive) {
    if (broken_) return Status::Broken;
    for (;;) {
        switch (phase_) {
            case Phase::Header: {
                if (!coded_.words.reserve(kZfpHeaderWords)) return Status::NoMemory;
                uint64_t header[kZfpHeaderWords] = {};
                const unsigned bits = putZfpHeader(dims_, parameters_, header);
                std::memcpy(coded_.words.data(), header, sizeof(header));
                write(bits_.join(coded_.words.data(), bits));
                phase_ = Phase::Drain;
                break;
            }
            case Phase::Gather: {
                const Status status = gather(in, directive);
                if (status != Status::Ended) return status;
                break;
            }
            case Phase::Code: {
                const Status status = encode(values_.data());
                if (status != Status::Ended) return status;
                break;
            }
            case Phase::Drain:
                copyAcross(left_, out);
                if (left_.left != 0) return Status::Going;
                if (next_ < chunks_.count()) {
                    phase_ = Phase::Gather;
                } else if (bits_.held() != 0) {
                    coded_.words[0] = bits_.last();
                    bits_ = {};
                    write(1);
                } else {
                    phase_ = Phase::Ended;
                }
                break;
            case Phase::Ended:
                return Status::Ended;
        }
    }
}

/// Ended once a chunk is there; one that stands in the input, whole and aligned, is coded at once.
Status ZfpFieldEncoder::gather(Input& in, Directive directive) {
    if (!chunks_.addressable()) return Status::NoMemory;
    const auto size = static_cast<size_t>(chunks_.at(next_).bytes());
    const bool aligned = reinterpret_cast<uintptr_t>(in.next) % alignof(float) == 0;
    if (held_ == 0 && in.left >= size && aligned) {
        const Status status = encode(reinterpret_cast<const float*>(in.next));
        if (status != Status::Ended) return status;
        in.next += size;
        in.left -= size;
        taken_ += size;
        return Status::Ended;
    }
    if (in.left != 0 && !values_.reserve(size / sizeof(float))) return Status::NoMemory;
    Output room{reinterpret_cast<uint8_t*>(values_.data()) + held_, size - held_};
    const size_t count = copyAcross(in, room);
    held_ += count;
    taken_ += count;
    if (held_ == size) {
        phase_ = Phase::Code;
        return Status::Ended;
    }
    if (directive != Directive::Finish) return Status::Going;
    reason_.setWrongLength(dims_, taken_);
    broken_ = true;
    return Status::Broken;
}

/// Codes the chunk to be gathered.
Status ZfpFieldEncoder::encode(const float* values) {
    const Status status = encoder_.encode(values, chunks_.at(next_), parameters_, coded_);
    if (status != Status::Ended) return status;
    write(bits_.join(coded_.words.data(), coded_.bits));
    ++next_;
    held_ = 0;
    phase_ = Phase::Drain;
    return status;
}

}  // namespace vekdc::codec
