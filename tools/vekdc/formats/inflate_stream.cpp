#include "tools/vekdc/formats/inflate_stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vekdc {

void InflateReader::start() {
    end_ = 0;
    code_ = 0;
    codeBits_ = 0;
    final_ = false;
    step_ = Step::Header;
    blocks_ = {};
    pending_ = nullptr;
}

Bytes InflateReader::next() {
    if (pending_) std::rethrow_exception(std::exchange(pending_, nullptr));
    if (end_ == buffer_.size()) {
        std::memmove(buffer_.data(), buffer_.data() + end_ - kHistory, kHistory);
        end_ = kHistory;
    }
    const size_t start = end_;
    try {
        run();
    } catch (const FormatError&) {
        if (end_ == start) throw;
        pending_ = std::current_exception();
    }
    return {buffer_.data() + start, end_ - start};
}

void InflateReader::run() {
    while (step_ != Step::Done && end_ < buffer_.size()) {
        switch (step_) {
            case Step::Header:
                readHeader();
                break;
            case Step::Stored:
                copyStored();
                break;
            case Step::Coded:
                decode();
                break;
            case Step::Done:
                break;
        }
    }
}

void InflateReader::corrupt(const char* reason) const {
    throw FormatError(source_.offset() - codeBits_ / 8, reason);
}

// Takes `count` bits, at most 16.
uint32_t InflateReader::bits(uint32_t count) {
    while (codeBits_ < count) {
        code_ |= static_cast<uint32_t>(source_.byte()) << codeBits_;
        codeBits_ += 8;
    }
    const uint32_t value = code_ & ((1U << count) - 1);
    code_ >>= count;
    codeBits_ -= count;
    return value;
}

// Drops the bits up to the next byte boundary and gives whole bytes read ahead back to the source.
void InflateReader::returnBytes() {
    source_.back(codeBits_ / 8);
    code_ = 0;
    codeBits_ = 0;
}

void InflateReader::readHeader() {
    if (final_) {
        returnBytes();
        step_ = Step::Done;
        return;
    }
    final_ = bits(1) != 0;
    const uint32_t type = bits(2);
    if (type == 3) corrupt("invalid deflate block type");
    ++blocks_[type];
    mode_ = 0;
    step_ = Step::Coded;
    switch (type) {
        case 0:
            returnBytes();
            storedLeft_ = bits(16);
            if ((bits(16) ^ storedLeft_) != 0xFFFF)
                corrupt("invalid length of a stored deflate block");
            step_ = Step::Stored;
            break;
        case 1:
            state_.tableKind = 0;
            break;
        default:
            readCodes();
            break;
    }
}

// The description of a dynamic block's two codes: RFC 1951, 3.2.7.
void InflateReader::readCodes() {
    constexpr std::array<uint8_t, 19> order = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                               11, 4,  12, 3, 13, 2, 14, 1, 15};
    constexpr uint32_t maxLength = 7;
    const uint32_t litCount = bits(5) + 257;
    const uint32_t distCount = bits(5) + 1;
    const uint32_t lengthCount = bits(4) + 4;
    if (litCount > 286 || distCount > 30) corrupt("too many symbols in a deflate block's code");

    std::array<uint8_t, 19> lengths{};
    for (uint32_t i = 0; i < lengthCount; ++i) lengths[order[i]] = static_cast<uint8_t>(bits(3));

    // All codes of up to 7 bits in one table, indexed by the next 7 bits, first bit lowest.
    struct Entry {
        uint8_t symbol;
        uint8_t length;
    };
    std::array<Entry, 1 << maxLength> table{};
    uint32_t next = 0;  // The code, left-aligned in 7 bits.
    for (uint32_t length = 1; length <= maxLength; ++length) {
        for (uint32_t symbol = 0; symbol < lengths.size(); ++symbol) {
            if (lengths[symbol] != length) continue;
            const uint32_t span = 1U << (maxLength - length);
            if (next + span > table.size())
                corrupt("over-subscribed code in a deflate block's header");
            for (uint32_t code = next; code < next + span; ++code) {
                uint32_t reversed = 0;
                for (uint32_t bit = 0; bit < maxLength; ++bit)
                    reversed |= ((code >> bit) & 1) << (maxLength - 1 - bit);
                table[reversed] = {static_cast<uint8_t>(symbol), static_cast<uint8_t>(length)};
            }
            next += span;
        }
    }
    if (next != table.size()) corrupt("incomplete code in a deflate block's header");

    std::array<uint16_t, 286 + 30> all{};
    const uint32_t total = litCount + distCount;
    for (uint32_t i = 0; i < total;) {
        Entry entry = table[code_ & (table.size() - 1)];
        while (entry.length > codeBits_) {
            code_ |= static_cast<uint32_t>(source_.byte()) << codeBits_;
            codeBits_ += 8;
            entry = table[code_ & (table.size() - 1)];
        }
        code_ >>= entry.length;
        codeBits_ -= entry.length;
        if (entry.symbol < 16) {
            all[i++] = entry.symbol;
            continue;
        }
        uint16_t value = 0;
        uint32_t repeat = 0;
        switch (entry.symbol) {
            case 16:
                if (i == 0) corrupt("a repeated code length without one before it");
                value = all[i - 1];
                repeat = 3 + bits(2);
                break;
            case 17:
                repeat = 3 + bits(3);
                break;
            default:
                repeat = 11 + bits(7);
                break;
        }
        if (repeat > total - i) corrupt("too many code lengths in a deflate block's header");
        std::fill_n(all.begin() + i, repeat, value);
        i += repeat;
    }
    if (veksInflateBuildHuffTable(all.data(), litCount, distCount, &state_) != vekStatusOk)
        corrupt("invalid code in a deflate block's header");
}

void InflateReader::copyStored() {
    while (storedLeft_ != 0 && end_ < buffer_.size()) {
        const Bytes bytes = source_.peek();
        if (bytes.empty()) source_.throwTruncated();
        const size_t count = std::min({bytes.size(), size_t{storedLeft_}, buffer_.size() - end_});
        std::memcpy(buffer_.data() + end_, bytes.data(), count);
        source_.skip(count);
        end_ += count;
        storedLeft_ -= static_cast<uint32_t>(count);
    }
    if (storedLeft_ == 0) step_ = Step::Header;
}

void InflateReader::decode() {
    const Bytes bytes = source_.peek();
    const uint8_t* in = bytes.data();
    auto left = static_cast<uint32_t>(std::min<size_t>(bytes.size(), 1U << 30));
    uint8_t* out = buffer_.data() + end_;
    auto room = static_cast<uint32_t>(buffer_.size() - end_);
    const VekStatus status = veksInflate_8u(&in, &left, &code_, &codeBits_, 0, &out, &room,
                                            static_cast<uint32_t>(end_), &mode_, &state_);
    source_.skip(static_cast<size_t>(in - bytes.data()));
    end_ = static_cast<size_t>(out - buffer_.data());
    if (status != vekStatusOk) corrupt("invalid deflate data");
    if (mode_ == 0) {
        step_ = Step::Header;
    } else if (bytes.empty() && room != 0) {
        source_.throwTruncated();
    }
}

}  // namespace vekdc
