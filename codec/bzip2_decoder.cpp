#include "codec/bzip2_decoder.h"

namespace vekdc::codec {

using namespace bzip2;

Status Bzip2Decoder::reset() {
    phase_ = Phase::Header;
    level_ = 0;
    blockCount_ = 0;
    crc_ = 0;
    fault_ = {};
    bits_ = {};
    return Status::Going;
}

Status Bzip2Decoder::run(Input& in, Output& out) {
    for (;;) {
        if (phase_ == Phase::Expanding) {
            if (!expander_.run(block_, out)) return Status::Going;
            addBlock(block_.crc);
        }
        Status status = toBlock(in);
        if (status != Status::Going || !inBlock()) return status;
        status = blocks_.run(bits_, in, block_);
        if (status == Status::Broken) fault_ = blocks_.fault();
        if (status != Status::Ended) return status;
        expander_.begin();
        phase_ = Phase::Expanding;
    }
}

Status Bzip2Decoder::toBlock(Input& in) {
    if (fault_.reason != nullptr) return Status::Broken;
    uint64_t value = 0;
    for (;;) {
        switch (phase_) {
            case Phase::Header: {
                const Status status = readHeader(in);
                if (status != Status::Ended) return status;
                phase_ = Phase::Magic;
                break;
            }
            case Phase::Magic:
                if (!bits_.read(in, kMagicBits, value)) return Status::Going;
                if (value == kBlockMagic) {
                    blocks_.begin(bits_, level_ * kLevelBytes);
                    phase_ = Phase::Block;
                } else if (value == kEndMagic) {
                    phase_ = Phase::Crc;
                } else {
                    return broken("neither a block nor the end of the stream", kMagicBits);
                }
                break;
            case Phase::Crc:
                if (!bits_.read(in, 32, value)) return Status::Going;
                if (value != crc_) return broken("the stream's CRC does not match", 32);
                bits_.toByte();
                phase_ = Phase::Ended;
                break;
            case Phase::Ended:
                return Status::Ended;
            case Phase::Block:
            case Phase::Expanding:
                return Status::Going;
        }
    }
}

/// Byte by byte: what differs from a header is no stream, however short it is.
Status Bzip2Decoder::readHeader(Input& in) {
    for (;;) {
        const uint64_t at = bits_.offset();
        if (at == kHeaderBytes) return Status::Ended;
        uint64_t byte = 0;
        if (!bits_.read(in, 8, byte)) return Status::Going;
        const bool fits = at < sizeof(kMagic) ? byte == kMagic[at] : byte >= '1' && byte <= '9';
        if (!fits) {
            fault_ = {"not a bz2 file", 0};
            return Status::Broken;
        }
        if (at == sizeof(kMagic)) level_ = static_cast<int>(byte - '0');
    }
}

/// The field of `bits` bits that was read last is wrong.
Status Bzip2Decoder::broken(const char* reason, unsigned bits) {
    fault_ = {reason, (bits_.position() - bits) / 8};
    return Status::Broken;
}

void Bzip2Decoder::passBlock(uint32_t crc, uint64_t end, Input& in) {
    bits_.startAt(end, in);
    addBlock(crc);
}

void Bzip2Decoder::addBlock(uint32_t crc) {
    crc_ = joinCrc(crc_, crc);
    ++blockCount_;
    phase_ = Phase::Magic;
}

}  // namespace vekdc::codec
