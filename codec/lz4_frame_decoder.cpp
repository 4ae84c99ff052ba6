#include "codec/lz4_frame_decoder.h"

#include "vekdc.h"

namespace vekdc::codec {
namespace {

uint32_t wordAt(const uint8_t* from) {
    return static_cast<uint32_t>(getLittleEndian(from, 4));
}

/// Whether a match of a block that decodes is at a distance of 0: the decoder lets it repeat what
/// its room held before, which is nobody's to see and differs from call to call. Blocks without two
/// zeros in a row, as those of text, need no walk through their sequences.
bool refersToItself(Bytes coded) {
    const uint8_t* in = coded.data();
    const uint8_t* const end = in + coded.size();
    if (std::search_n(in, end, 2, uint8_t{0}) == end) return false;
    const auto extended = [&](size_t nibble) {
        size_t length = nibble;
        for (uint8_t byte = 255; nibble == 15 && byte == 255 && in != end; length += byte)
            byte = *in++;
        return length;
    };
    while (in != end) {
        const unsigned token = *in++;
        const size_t literals = extended(token >> 4);
        if (static_cast<size_t>(end - in) < literals + 2) return false;
        in += literals;
        if (in[0] == 0 && in[1] == 0) return true;
        in += 2;
        extended(token & 15U);
    }
    return false;
}

}  // namespace

Status Lz4FrameDecoder::run(Input& in, Output& out) {
    const Status status = runSteps(out, [&] { return step(in, out); });
    if (stage_ == Stage::Block)
        save(out);
    else
        unsaved_ = 0;
    return status;
}

Status Lz4FrameDecoder::reset() {
    restart();
    stage_ = Stage::Magic;
    info_ = {};
    content_.reset();
    windowEnd_ = unsaved_ = 0;
    return Status::Going;
}

bool Lz4FrameDecoder::step(Input& in, Output& out) {
    switch (stage_) {
        case Stage::Magic:
            return readMagic(in);
        case Stage::Header:
            return readHeader(in);
        case Stage::Block:
            return readBlock(in, out);
        case Stage::LegacyBlock:
            return readLegacyBlock(in, out);
        case Stage::End:
            return readEnd(in);
        case Stage::Skip:
            return skip(in);
        case Stage::Done:
            break;
    }
    return leave(Status::Ended);
}

// --- headers -------------------------------------------------------------------------------------

bool Lz4FrameDecoder::readMagic(Input& in) {
    const uint8_t* bytes = ahead_.show(in, 4);
    if (bytes == nullptr) return wait();
    const uint32_t magic = wordAt(bytes);
    if (!isLz4Magic(magic)) return broken(0, "not an lz4 file");
    if (isLz4Skippable(magic)) {
        info_.kind = Lz4FrameInfo::Kind::Skippable;
        bytes = ahead_.show(in, 8);
        if (bytes == nullptr) return wait();
        left_ = wordAt(bytes + 4);
        ahead_.accept(in, 8);
        stage_ = Stage::Skip;
        return true;
    }
    ahead_.accept(in, 4);
    if (magic == kLz4Magic) {
        info_.kind = Lz4FrameInfo::Kind::Frame;
        stage_ = Stage::Header;
    } else {
        info_.kind = Lz4FrameInfo::Kind::Legacy;
        info_.blockMost = kLz4LegacyBlock;
        stage_ = Stage::LegacyBlock;
    }
    return true;
}

bool Lz4FrameDecoder::skip(Input& in) {
    const auto count = static_cast<size_t>(std::min<uint64_t>(left_, in.left));
    in.next += count;
    in.left -= count;
    left_ -= count;
    if (left_ != 0) return leave(Status::Going);
    stage_ = Stage::Done;
    return true;
}

bool Lz4FrameDecoder::readHeader(Input& in) {
    const uint64_t at = ahead_.offset();
    const uint8_t* bytes = ahead_.show(in, 2);
    if (bytes == nullptr) return wait();
    info_.flags = bytes[0];
    const unsigned code = bytes[1] >> 4 & 7U;
    if ((info_.flags & kLz4VersionMask) != kLz4Version)
        return broken(at, "unknown version of the format");
    if (info_.has(kLz4Reserved) || (bytes[1] & 0x8F) != 0)
        return broken(at, "reserved bits are set in the header");
    if (code < kLz4SmallestCode) return broken(at + 1, "unknown block size");
    info_.blockMost = lz4BlockSize(code);

    const size_t sizeLength = info_.has(kLz4ContentSize) ? 8 : 0;
    const size_t idLength = info_.has(kLz4HasDictionaryId) ? 4 : 0;
    const size_t length = 2 + sizeLength + idLength;
    bytes = ahead_.show(in, length + 1);
    if (bytes == nullptr) return wait();
    info_.contentSize = getLittleEndian(bytes + 2, sizeLength);
    info_.dictionaryId = static_cast<uint32_t>(getLittleEndian(bytes + 2 + sizeLength, idLength));
    if (bytes[length] != static_cast<uint8_t>(lz4Hash({bytes, length}) >> 8))
        return broken(at + length, "the header's checksum does not match");
    if (idLength != 0 && dictionary_.empty() && insistsOnDictionary_) {
        fault_ = {"needs the dictionary with the ID", 0, info_.dictionaryId};
        return leave(Status::NeedsDictionary);
    }
    fault_ = {};
    if (isLinked()) {
        // What is saved of one block must not push out what the next one refers to.
        if (!window_.reserve(2 * kLz4History)) return leave(Status::NoMemory);
        beginWindow();
    }
    ahead_.accept(in, length + 1);
    stage_ = Stage::Block;
    return true;
}

// --- blocks --------------------------------------------------------------------------------------

bool Lz4FrameDecoder::readBlock(Input& in, Output& out) {
    const uint64_t at = ahead_.offset();
    const uint8_t* bytes = ahead_.show(in, 4);
    if (bytes == nullptr) return wait();
    const uint32_t field = wordAt(bytes);
    if (field == 0) {
        ahead_.accept(in, 4);
        block_ = 0;
        stage_ = Stage::End;
        return true;
    }
    block_ = info_.blocks + 1;
    const bool stored = (field & kLz4Stored) != 0;
    const size_t size = field & ~kLz4Stored;
    if (size > info_.blockMost) return broken(at, "the block is larger than the frame allows");
    const size_t sumLength = info_.has(kLz4BlockChecksum) ? 4 : 0;
    bytes = ahead_.show(in, 4 + size + sumLength);
    if (bytes == nullptr) return wait();
    const Bytes coded(bytes + 4, size);
    if (sumLength != 0 && insistsOnChecksums_ && wordAt(coded.data() + size) != lz4Hash(coded))
        return broken(at + 4 + size, "the block's checksum does not match");
    if (!makeBlock(coded, stored, at + 4, out)) return false;
    ahead_.accept(in, 4 + size + sumLength);
    return true;
}

/// Blocks go on until the end of the file or the next frame.
bool Lz4FrameDecoder::readLegacyBlock(Input& in, Output& out) {
    const uint64_t at = ahead_.offset();
    const uint8_t* bytes = ahead_.show(in, 4);
    if (bytes == nullptr) return wait();
    const uint32_t size = wordAt(bytes);
    if (isLz4Magic(size)) {
        stage_ = Stage::Done;
        return true;
    }
    block_ = info_.blocks + 1;
    if (size == 0 || size > vekLZ4EncodeBound(kLz4LegacyBlock))
        return broken(at, "the block's size is impossible");
    bytes = ahead_.show(in, 4 + size);
    if (bytes == nullptr) return wait();
    if (!makeBlock({bytes + 4, size}, false, at + 4, out)) return false;
    ahead_.accept(in, 4 + size);
    return true;
}

bool Lz4FrameDecoder::readEnd(Input& in) {
    if (info_.has(kLz4ContentSize) && info_.contentSize != info_.plain)
        return broken(ahead_.offset(), "the length of the content does not match");
    if (info_.has(kLz4ContentChecksum)) {
        const uint8_t* const bytes = ahead_.show(in, 4);
        if (bytes == nullptr) return wait();
        info_.checksum = wordAt(bytes);
        if (insistsOnChecksums_ && info_.checksum != content_.value())
            return broken(ahead_.offset(), "the checksum of the content does not match");
        ahead_.accept(in, 4);
    }
    stage_ = Stage::Done;
    return true;
}

/// Makes and delivers the data of a block that begins at `offset`.
bool Lz4FrameDecoder::makeBlock(Bytes coded, bool stored, uint64_t offset, Output& out) {
    size_t expected = info_.blockMost;
    if (info_.has(kLz4ContentSize))
        expected =
            static_cast<size_t>(std::min<uint64_t>(expected, info_.contentSize - info_.plain));
    if (stored) expected = coded.size();
    bool inWindow = out.left < std::max<size_t>(expected, 1);
    uint8_t* to = out.next;
    size_t size = std::min(out.left, info_.blockMost);
    VekStatus status = inWindow ? vekStatusOk : decode(coded, stored, history(out), to, size);
    // More than the header promised may still be a good block.
    if (status == vekStatusDestinationFull && out.left < info_.blockMost) inWindow = true;
    if (inWindow) {
        to = roomInWindow(out);
        if (to == nullptr) return leave(Status::NoMemory);
        size = info_.blockMost;
        status = decode(coded, stored, history(out), to, size);
    }
    if (status == vekStatusDestinationFull)
        return broken(offset, "holds more than a block of this frame may");
    if (status == vekStatusError)
        return broken(offset, "refers to data in front of the first byte");
    if (status != vekStatusOk) return broken(offset, "the block's data are broken");

    const Bytes plain(to, size);
    if (info_.has(kLz4ContentChecksum) && insistsOnChecksums_) content_.update(plain);
    ++info_.blocks;
    info_.storedBlocks += stored ? 1 : 0;
    info_.plain += size;
    if (!inWindow)
        unsaved_ += size;
    else if (isLinked())
        windowEnd_ += size;
    delivery_.deliver(out, plain);
    return true;
}

/// Decodes a block to `to`, where there is room for `size` bytes, at least 1; `size` becomes the
/// block's.
VekStatus Lz4FrameDecoder::decode(Bytes coded, bool stored, Bytes history, uint8_t* to,
                                  size_t& size) {
    // No literals, and a last token's match is not there.
    const bool empty = !stored && coded.size() == 1 && (coded[0] & 0xF0) == 0;
    if (stored || empty) {
        size = empty ? 0 : coded.size();
        if (size != 0) std::memcpy(to, coded.data(), size);
        return vekStatusOk;
    }
    auto consumed = static_cast<int>(coded.size());
    auto written = static_cast<int>(size);
    const auto index = static_cast<int>(history.size());
    // History elsewhere counts as if it were in front of the block.
    auto* const start =
        reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(to) - history.size());
    const VekStatus status = veksDecodeLZ4Dict_8u(coded.data(), &consumed, start, index, &written,
                                                  history.data(), index);
    size = static_cast<size_t>(written);
    if (status != vekStatusOk) return status;
    const bool whole = static_cast<size_t>(consumed) == coded.size() && !refersToItself(coded);
    return whole ? vekStatusOk : vekStatusSourceIncomplete;
}

void Lz4FrameDecoder::setDictionary(Bytes dictionary) {
    dictionary_ = lz4History(dictionary);
    if (stage_ == Stage::Block && info_.blocks == 0 && isLinked()) beginWindow();
}

void Lz4FrameDecoder::beginWindow() {
    windowEnd_ = dictionary_.size();
    if (windowEnd_ != 0) std::memcpy(window_.data(), dictionary_.data(), windowEnd_);
}

// --- history -------------------------------------------------------------------------------------

/// What the next block may refer to.
Bytes Lz4FrameDecoder::history(const Output& out) {
    if (info_.kind == Lz4FrameInfo::Kind::Legacy) return {};
    if (!isLinked()) return dictionary_;
    if (unsaved_ >= kLz4History) return {out.next - kLz4History, kLz4History};
    save(out);
    return lz4History({window_.data(), windowEnd_});
}

/// Makes sure that what stands in the caller's room can be referred to without it.
void Lz4FrameDecoder::save(const Output& out) {
    const size_t count = isLinked() ? std::min(unsaved_, kLz4History) : 0;
    unsaved_ = 0;
    if (count == 0) return;
    slide(count);
    std::memcpy(window_.data() + windowEnd_, out.next - count, count);
    windowEnd_ += count;
}

/// Makes room in the window for `size` bytes more, unless there is.
void Lz4FrameDecoder::slide(size_t size) {
    if (windowEnd_ + size <= window_.room()) return;
    const Bytes kept = lz4History({window_.data(), windowEnd_});
    std::memmove(window_.data(), kept.data(), kept.size());
    windowEnd_ = kept.size();
}

/// Where a block of any size can be made, behind its history; null when there is no memory.
uint8_t* Lz4FrameDecoder::roomInWindow(const Output& out) {
    save(out);
    if (!window_.reserve(info_.blockMost + (isLinked() ? 2 * kLz4History : 0), windowEnd_))
        return nullptr;
    slide(info_.blockMost);
    return window_.data() + windowEnd_;
}

}  // namespace vekdc::codec
