#include "tools/vekdc/io/stream.h"

#include <algorithm>
#include <cstring>

namespace vekdc {

void Source::throwTruncated() const {
    throw FormatError(offset_, "the file ends too early");
}

void Source::fill(size_t wanted) {
    if (reader_ == nullptr) return;
    const size_t kept = std::min(at_, kBack);
    size_t end = kept + view_.size() - at_;
    std::memmove(buffer_.data(), view_.data() + at_ - kept, end);
    at_ = kept;
    while (end - at_ < wanted && end < buffer_.size()) {
        const size_t count = reader_->read(buffer_.data() + end, buffer_.size() - end);
        if (count == 0) {
            reader_ = nullptr;
            break;
        }
        end += count;
    }
    view_ = {buffer_.data(), end};
}

size_t Source::read(uint8_t* to, size_t count) {
    size_t done = 0;
    while (done < count) {
        const Bytes bytes = peek();
        if (bytes.empty()) break;
        const size_t piece = std::min(bytes.size(), count - done);
        std::memcpy(to + done, bytes.data(), piece);
        skip(piece);
        done += piece;
    }
    return done;
}

void Source::take(Buffer& to, size_t count) {
    for (size_t piece = 0; count != 0; count -= piece) {
        const Bytes bytes = peek();
        if (bytes.empty()) throwTruncated();
        piece = std::min(bytes.size(), count);
        to.insert(to.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(piece));
        skip(piece);
    }
}

void Source::skipZeros() {
    for (Bytes bytes = peek(); !bytes.empty() && bytes[0] == 0; bytes = peek()) {
        size_t zeros = 1;
        while (zeros < bytes.size() && bytes[zeros] == 0) ++zeros;
        skip(zeros);
    }
}

}  // namespace vekdc
