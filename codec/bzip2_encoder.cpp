#include "codec/bzip2_encoder.h"

namespace vekdc::codec {

using namespace bzip2;

Bzip2Encoder::Bzip2Encoder(int level, const Allocator& allocator)
    : level_(level), block_(allocator), filler_(level), encoder_(allocator) {
    reset();
}

Status Bzip2Encoder::reset() {
    phase_ = Phase::Filling;
    crc_ = 0;
    last_ = {};
    coded_ = {};
    fields_ = {};
    begun_ = false;
    filler_.begin(block_);
    return Status::Going;
}

Status Bzip2Encoder::run(Input& in, Output& out, Directive directive) {
    for (;;) {
        if (!drain(out)) return Status::Going;
        switch (phase_) {
            case Phase::Filling:
                if (!filler_.take(block_, in)) return Status::NoMemory;
                if (!filler_.isFull(block_) && directive == Directive::Go) return Status::Going;
                putHeader();
                if (block_.length != 0) {
                    phase_ = Phase::Coding;
                } else if (directive == Directive::Finish) {
                    end();
                } else {
                    drain(out);
                    return Status::Going;
                }
                break;
            case Phase::Coding:
                if (!codeBlock()) return Status::NoMemory;
                break;
            case Phase::Ended:
                return Status::Ended;
        }
    }
}

bool Bzip2Encoder::drain(Output& out) {
    if (!fields_.drain(out)) return false;
    copyAcross(coded_, out);
    return coded_.left == 0;
}

void Bzip2Encoder::putHeader() {
    if (!begun_) writeHeader(fields_.add(kHeaderBytes), level_);
    begun_ = true;
}

bool Bzip2Encoder::codeBlock() {
    filler_.end(block_);
    if (!encoder_.encode(block_)) return false;
    coded_ = {encoder_.coded(), joinBits(last_, encoder_.coded(), encoder_.bits())};
    crc_ = joinCrc(crc_, block_.crc);
    filler_.begin(block_);
    phase_ = Phase::Filling;
    return true;
}

void Bzip2Encoder::end() {
    uint8_t bytes[kEndBytes];
    const size_t count = writeEnd(last_, bytes, crc_);
    fields_.add(bytes, count);
    phase_ = Phase::Ended;
}

}  // namespace vekdc::codec
