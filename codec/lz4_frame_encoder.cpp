#include "codec/lz4_frame_encoder.h"

namespace vekdc::codec {

size_t putLz4Header(const Lz4FrameOptions& options, uint8_t* to) {
    const bool hasSize = options.contentSize != Lz4FrameOptions::kUnknown;
    const bool hasId = options.dictionaryId != 0;
    putLittleEndian(to, kLz4Magic, 4);
    to[4] =
        static_cast<uint8_t>(kLz4Version | (options.linked ? 0 : kLz4Independent) |
                             (options.coding.checksums ? kLz4BlockChecksum : 0) |
                             (options.contentChecksum ? kLz4ContentChecksum : 0) |
                             (hasSize ? kLz4ContentSize : 0) | (hasId ? kLz4HasDictionaryId : 0));
    to[5] = static_cast<uint8_t>(options.blockCode << 4);
    size_t end = 6;
    if (hasSize) putLittleEndian(to + end, options.contentSize, 8);
    end += hasSize ? 8 : 0;
    if (hasId) putLittleEndian(to + end, options.dictionaryId, 4);
    end += hasId ? 4 : 0;
    to[end] = static_cast<uint8_t>(lz4Hash({to + 4, end - 4}) >> 8);
    return end + 1;
}

size_t putLz4End(const Lz4FrameOptions& options, const Lz4Hash& content, uint8_t* to) {
    putLittleEndian(to, 0, 4);
    if (!options.contentChecksum) return 4;
    putLittleEndian(to + 4, content.value(), 4);
    return 8;
}

// --- Lz4Ahead ------------------------------------------------------------------------------------

void Lz4Ahead::begin(const Lz4FrameOptions& options) {
    constexpr size_t seldom = 1 << 20;
    dictionary_ = lz4History(options.dictionary);
    linked_ = options.linked;
    behind_ = linked_ || !dictionary_.empty();
    begun_ = follows_ = false;
    block_ = lz4BlockSize(options.blockCode);
    most_ = kLz4History + std::max(block_, seldom);
    history_ = held_ = 0;
    alone_.reset();
}

const uint8_t* Lz4Ahead::show(Input& in, size_t size) {
    if (!behind_) return alone_.show(in, size);
    return keep(in, size) && held_ >= size ? memory_.data() + history_ : nullptr;
}

bool Lz4Ahead::keep(Input& in, size_t size) {
    if (!behind_) return alone_.keep(in, size);
    if (!begun_) {
        if (!memory_.reserve(dictionary_.size())) return false;
        if (!dictionary_.empty())
            std::memcpy(memory_.data(), dictionary_.data(), dictionary_.size());
        history_ = dictionary_.size();
        begun_ = true;
    }
    const size_t piece = std::min(in.left, size - std::min(size, held_));
    const size_t used = history_ + held_;
    if (used + piece > memory_.room() &&
        !memory_.reserve(std::min(std::max(used + piece, 2 * memory_.room()), most_), used))
        return false;
    Output room{memory_.data() + used, piece};
    held_ += copyAcross(in, room);
    return true;
}

/// Where the next block might not fit behind it, all history but the window goes.
void Lz4Ahead::accept(Input& in, size_t size) {
    if (!behind_) return alone_.accept(in, size);
    held_ = 0;
    if (!linked_) return;
    history_ += size;
    follows_ = history_ <= most_ - block_;
    if (follows_) return;
    std::memmove(memory_.data(), memory_.data() + history_ - kLz4History, kLz4History);
    history_ = kLz4History;
}

void Lz4Ahead::forget() {
    if (linked_) history_ = 0;
    begun_ = true;
    follows_ = false;
}

Bytes Lz4Ahead::kept() const {
    return behind_ ? Bytes(memory_.data(), held_) : alone_.kept();
}

// --- Lz4FrameFormat ------------------------------------------------------------------------------

void Lz4FrameFormat::set(const Lz4FrameOptions& options) {
    options_ = options;
    blocks_.set(options.coding);
}

void Lz4FrameFormat::begin(Lz4Ahead& ahead) {
    ahead.begin(options_);
    content_.reset();
    length_ = 0;
}

bool Lz4FrameFormat::putBlock(const Lz4Ahead& ahead, Bytes data, uint8_t* to, size_t& written) {
    const bool done = options_.linked
                          ? blocks_.encodeNext(data.data(), ahead.history(), data.size(),
                                               ahead.follows(), to, written)
                          : blocks_.encode(data.data(), ahead.history(), data.size(), to, written);
    if (!done) return false;
    if (options_.contentChecksum) content_.update(data);
    length_ += data.size();
    return true;
}

size_t Lz4FrameFormat::putEnd(uint8_t* to) const {
    const bool isWrong =
        options_.contentSize != Lz4FrameOptions::kUnknown && options_.contentSize != length_;
    return isWrong ? 0 : putLz4End(options_, content_, to);
}

}  // namespace vekdc::codec
