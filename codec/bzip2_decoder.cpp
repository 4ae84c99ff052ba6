#include "codec/bzip2_decoder.h"

#include <algorithm>

#include "codec/checksums.h"

namespace vekdc::codec {

using namespace bzip2;

Status Bzip2Decoder::reset() {
    phase_ = Phase::Header;
    level_ = 0;
    blockCount_ = 0;
    crc_ = 0;
    fault_ = {};
    bits_ = {};
    magic_ = magicBits_ = 0;
    return Status::Going;
}

Status Bzip2Decoder::run(Input& in, Output& out) {
    for (;;) {
        if (phase_ == Phase::Expanding) {
            if (!expand(out)) return Status::Going;
            if (check_ == Bzip2Check::Last && blocks_.finish(block_, blockCrc_) == Status::Broken) {
                fault_ = blocks_.fault();
                phase_ = Phase::Magic;  // What is left of the block is nothing.
                return Status::Broken;
            }
            addBlock(block_.crc);
        }
        Status status = toBlock(in);
        if (status != Status::Going || !inBlock()) return status;
        status = blocks_.run(bits_, in, block_);
        if (status == Status::Broken) fault_ = blocks_.fault();
        if (status != Status::Ended) return status;
        expander_.begin();
        blockCrc_ = kBzip2Crc.initial;
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
                if (const Status status = readMagic(in); status != Status::Ended) return status;
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

/// Byte by byte, too.
Status Bzip2Decoder::readMagic(Input& in) {
    while (magicBits_ != kMagicBits) {
        uint64_t byte = 0;
        if (!bits_.read(in, 8, byte)) return Status::Going;
        magic_ = magic_ << 8 | byte;
        magicBits_ += 8;
        const unsigned rest = kMagicBits - magicBits_;
        if (magic_ != kBlockMagic >> rest && magic_ != kEndMagic >> rest)
            return broken("neither a block nor the end of the stream", magicBits_);
    }
    phase_ = magic_ == kEndMagic ? Phase::Crc : Phase::Block;
    if (phase_ == Phase::Block) blocks_.begin(bits_, level_ * kLevelBytes);
    magic_ = magicBits_ = 0;
    return Status::Ended;
}

/// True when all of the block is out.
bool Bzip2Decoder::expand(Output& out) {
    if (check_ == Bzip2Check::First) return expander_.run(block_, out);
    // Pieces that are still in the first cache when their sum is made.
    constexpr size_t mostPiece = 16 << 10;
    for (;;) {
        Output piece{out.next, std::min(out.left, mostPiece)};
        const bool done = expander_.run(block_, piece);
        const auto written = static_cast<size_t>(piece.next - out.next);
        blockCrc_ = kBzip2Crc.update(blockCrc_, Bytes(out.next, written));
        out = {piece.next, out.left - written};
        if (done || out.left == 0) return done;
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
