#include "codec/zfp_field_decoder.h"

namespace vekdc::codec {
namespace {

constexpr size_t kAhead = ZfpChunkDecoder::kAhead;

/// Coded bytes that are looked at together, many times a block of the most bits.
constexpr size_t kWindow = 64 << 10;
static_assert(kWindow >= kAhead + 2 * kZfpMostBits / 8);

/// Zeros behind the window's bytes that a block may use before it is seen to be cut short, so that
/// what is left can be told exactly.
constexpr size_t kBehind = 8;

}  // namespace

ZfpFieldDecoder::ZfpFieldDecoder(const Allocator& allocator)
    : decoder_(allocator), window_(allocator), values_(allocator) {}

Status ZfpFieldDecoder::reset() {
    reader_.reset();
    phase_ = Phase::Header;
    next_ = 0;
    taken_ = 0;
    return Status::Going;
}

Status ZfpFieldDecoder::run(Input& in, Output& out) {
    for (;;) {
        switch (phase_) {
            case Phase::Header: {
                const size_t before = in.left;
                Status status = reader_.run(in);
                taken_ += before - in.left;
                if (status == Status::Ended) status = begin();
                if (status != Status::Ended) return status;
                break;
            }
            case Phase::Blocks: {
                const size_t before = in.left;
                const Status status = decodeChunk(in);
                taken_ += before - in.left;
                if (status != Status::Ended) return status;
                break;
            }
            case Phase::Drain:
                copyAcross(left_, out);
                if (left_.left != 0) return Status::Going;
                walk_ = ZfpBlockWalk(next_ < chunks_.count() ? chunks_.at(next_) : ZfpDims());
                phase_ = next_ < chunks_.count() ? Phase::Blocks : Phase::Ended;
                break;
            case Phase::Ended:
                return Status::Ended;
        }
    }
}

/// Lays the window out behind the header, whose last byte may begin the blocks.
Status ZfpFieldDecoder::begin() {
    if (!decoder_.reserve() || !window_.reserve(kWindow + kBehind)) return Status::NoMemory;
    const ZfpHeader& header = reader_.header();
    chunks_ = ZfpChunks(header.dims);
    walk_ = ZfpBlockWalk(chunks_.at(0));
    std::memset(window_.data(), 0, kAhead);
    at_ = 8 * kAhead + header.bits % 8;
    held_ = kAhead;
    if (header.bits % 8 != 0) window_[held_++] = reader_.lastByte();
    phase_ = Phase::Blocks;
    return Status::Ended;
}

/// Ended once a chunk is there.
Status ZfpFieldDecoder::decodeChunk(Input& in) {
    const ZfpDims dims = walk_.chunk();
    if (!chunks_.addressable() || !values_.reserve(static_cast<size_t>(dims.values())))
        return Status::NoMemory;
    const auto mostBits = static_cast<uint64_t>(reader_.header().parameters.mostBits());
    fill(in);
    while (!walk_.atEnd()) {
        // Where a stretch of blocks ends is found out at some cost, so stretches are kept long.
        if (bitsHeld() < 8 * kWindow / 2 && fill(in) != 0) continue;
        const uint64_t sure = bitsHeld() / mostBits;
        if (!decodeBlocks(std::max<uint64_t>(sure, 1))) return Status::Going;
    }
    const auto used = static_cast<size_t>((at_ + 7) / 8);
    in.next -= held_ - used;
    in.left += held_ - used;
    held_ = used;
    ++next_;
    left_ = {reinterpret_cast<const uint8_t*>(values_.data()), static_cast<size_t>(dims.bytes())};
    phase_ = Phase::Drain;
    return Status::Ended;
}

/// Makes the window begin shortly before the next block, and fills it up; returns by how much.
size_t ZfpFieldDecoder::fill(Input& in) {
    const auto gone = static_cast<size_t>(at_ / 8) - kAhead;
    if (gone != 0) std::memmove(window_.data(), window_.data() + gone, held_ - gone);
    at_ -= 8 * gone;
    held_ -= gone;
    Output room{window_.data() + held_, kWindow - held_};
    const size_t count = copyAcross(in, room);
    held_ += count;
    std::memset(window_.data() + held_, 0, kBehind);
    return count;
}

/// Decodes so many blocks; false, with nothing done, when the last of them is cut short.
bool ZfpFieldDecoder::decodeBlocks(uint64_t most) {
    const uint64_t bits = 8 * (held_ + kBehind);
    const ZfpBlockWalk before = walk_;
    decoder_.open({window_.data(), held_ + kBehind}, at_, reader_.header().parameters);
    if (decoder_.decode(walk_, values_.data(), most)) {
        const uint64_t left = decoder_.bitsLeft();
        if (left >= 8 * kBehind) {
            at_ = bits - left;
            return true;
        }
    }
    walk_ = before;
    return false;
}

}  // namespace vekdc::codec
