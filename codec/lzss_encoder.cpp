#include "codec/lzss_encoder.h"

namespace vekdc::codec {

bool LzssBlockEncoder::encode(Bytes data, uint8_t* to, size_t& written) {
    void* const record = record_.get();
    if (record == nullptr) return false;
    const uint8_t* from = data.data();
    auto left = static_cast<int32_t>(data.size());
    uint8_t* next = to;
    int32_t room = left - 1;  // What fills it is not worth having.
    const bool fits = veksEncodeLZSSInit_8u(record) == vekStatusOk &&
                      veksEncodeLZSS_8u(&from, &left, &next, &room, record) == vekStatusOk &&
                      veksEncodeLZSSFlush_8u(&next, &room, record) == vekStatusOk;
    if (!fits) std::memcpy(to, data.data(), data.size());
    written = fits ? static_cast<size_t>(next - to) : data.size();
    return true;
}

size_t LzssFrame::putHeader(uint8_t* to) const {
    uint8_t* const fields = std::copy(kLzssMagic.begin(), kLzssMagic.end(), to);
    fields[0] = kLzssVersion;
    fields[1] = kLzssBlockBits;
    putLittleEndian(fields + 2, stated_, 8);
    const uint32_t sum = kCrc32c.update(kCrc32c.initial, {to, kLzssHeader - 4});
    putLittleEndian(fields + 10, kCrc32c.finish(sum), 4);
    return kLzssHeader;
}

size_t LzssFrame::putBlockHead(Bytes data, size_t codedSize, uint8_t* to) {
    length_ += data.size();
    sum_ = kCrc32c.update(sum_, data);
    putLittleEndian(to, data.size(), 4);
    putLittleEndian(to + 4, codedSize, 4);
    putLittleEndian(to + 8, kCrc32c.finish(sum_), 4);
    return kLzssBlockHead;
}

size_t LzssFrame::putEnd(uint8_t* to) const {
    putLittleEndian(to, 0, 4);
    putLittleEndian(to + 4, length_, 8);
    return stated_ == kLzssUnknown || stated_ == length_ ? kLzssEnd : 0;
}

}  // namespace vekdc::codec
