#include "codec/lzss_decoder.h"

namespace vekdc::codec {
namespace {

/// The longest match, 258 bytes, takes 3.
constexpr size_t kLargestExpansion = 86;

}  // namespace

Status LzssDecoder::reset() {
    restart();
    stage_ = Stage::Header;
    info_ = {};
    sum_ = kCrc32c.initial;
    return Status::Going;
}

bool LzssDecoder::step(Input& in, Output& out) {
    switch (stage_) {
        case Stage::Header:
            return readHeader(in);
        case Stage::Block:
            return readBlock(in, out);
        case Stage::End:
            return readEnd(in);
        case Stage::Done:
            break;
    }
    return leave(Status::Ended);
}

bool LzssDecoder::readHeader(Input& in) {
    constexpr size_t version = kLzssMagic.size();
    constexpr size_t sum = kLzssHeader - 4;
    const uint8_t* bytes = showMagic(in, version + 1, kLzssMagic, "not an lzss file");
    if (bytes == nullptr) return false;
    if (bytes[version] != kLzssVersion) return broken(version, "unknown version of the format");
    bytes = ahead_.show(in, kLzssHeader);
    if (bytes == nullptr) return wait();
    if (getLittleEndian(bytes + sum, 4) !=
        kCrc32c.finish(kCrc32c.update(kCrc32c.initial, {bytes, sum})))
        return broken(sum, "the header's checksum does not match");
    info_.blockBits = bytes[version + 1];
    info_.stated = getLittleEndian(bytes + version + 2, 8);
    if (info_.blockBits < kLzssFewestBits || info_.blockBits > kLzssMostBits)
        return broken(version + 1, "unknown block size");
    ahead_.accept(in, kLzssHeader);
    stage_ = Stage::Block;
    return true;
}

bool LzssDecoder::readBlock(Input& in, Output& out) {
    const uint64_t at = ahead_.offset();
    const uint8_t* bytes = ahead_.show(in, 4);
    if (bytes == nullptr) return wait();
    const auto size = static_cast<size_t>(getLittleEndian(bytes, 4));
    if (size == 0) {
        ahead_.accept(in, 4);
        block_ = 0;
        stage_ = Stage::End;
        return true;
    }
    block_ = info_.blocks + 1;
    if (size > size_t{1} << info_.blockBits)
        return broken(at, "the block is larger than the file allows");
    bytes = ahead_.show(in, kLzssBlockHead);
    if (bytes == nullptr) return wait();
    const auto codedSize = static_cast<size_t>(getLittleEndian(bytes + 4, 4));
    if (codedSize > size || size / kLargestExpansion > codedSize)
        return broken(at + 4, "the compressed length is impossible");
    bytes = ahead_.show(in, kLzssBlockHead + codedSize);
    if (bytes == nullptr) return wait();

    const Bytes coded(bytes + kLzssBlockHead, codedSize);
    uint8_t* const to = delivery_.room(out, size);
    if (to == nullptr) return leave(Status::NoMemory);
    const bool stored = codedSize == size;
    if (stored) std::memcpy(to, coded.data(), size);
    const Status status = stored ? Status::Ended : decodeStream(coded, to, size);
    if (status == Status::Broken) return broken(at + kLzssBlockHead, "the block's data are broken");
    if (status != Status::Ended) return leave(status);
    const uint32_t sum = kCrc32c.update(sum_, {to, size});
    if (kCrc32c.finish(sum) != getLittleEndian(bytes + 8, 4))
        return broken(at + 8, "the CRC-32C does not match");
    sum_ = sum;
    ++info_.blocks;
    info_.storedBlocks += stored ? 1 : 0;
    info_.plain += size;
    delivery_.deliver(out, {to, size});
    ahead_.accept(in, kLzssBlockHead + codedSize);
    return true;
}

/// Decodes a block's stream, which must be of exactly `size` bytes.
Status LzssDecoder::decodeStream(Bytes stream, uint8_t* to, size_t size) {
    void* const record = record_.get();
    if (record == nullptr) return Status::NoMemory;
    // A broken stream's match at a distance of 0 leaves what is there: the same wherever that is.
    std::memset(to, 0, size);
    const uint8_t* from = stream.data();
    auto left = static_cast<int32_t>(stream.size());
    auto room = static_cast<int32_t>(size);
    uint8_t more = 0;  // Behind the block, for a stream that goes on.
    uint8_t* behind = &more;
    int32_t moreRoom = 1;
    veksDecodeLZSSInit_8u(record);
    veksDecodeLZSS_8u(&from, &left, &to, &room, record);
    if (room != 0) return Status::Broken;
    veksDecodeLZSS_8u(&from, &left, &behind, &moreRoom, record);
    return left == 0 && moreRoom == 1 ? Status::Ended : Status::Broken;
}

bool LzssDecoder::readEnd(Input& in) {
    constexpr size_t stated = kLzssMagic.size() + 2;
    const uint8_t* const bytes = ahead_.show(in, 8);
    if (bytes == nullptr) return wait();
    info_.sum = kCrc32c.finish(sum_);
    if (getLittleEndian(bytes, 8) != info_.plain)
        return broken(ahead_.offset(), "the length does not match");
    if (info_.stated != kLzssUnknown && info_.stated != info_.plain)
        return broken(stated, "the length in the header does not match");
    ahead_.accept(in, 8);
    stage_ = Stage::Done;
    return true;
}

}  // namespace vekdc::codec
