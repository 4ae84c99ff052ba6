// A resumable decoder of raw deflate streams: block headers, code lengths, stored blocks and
// history, around the library's decoding of a block's Huffman-coded data.
//
// Where the caller's room is large, output is decoded straight into it, and matches are served from
// there; what a later call may refer to is copied into the decoder's window at the call's end, so a
// stream that one call decodes costs no copy and no memory. Into a small room the library would
// decode a few bytes a call, and nearly all of them from the window, which is its slow way. So for
// small rooms it decodes into the decoder's own memory, up to 128 KiB at a time behind 32 KiB of
// history, and the caller gets it from there: that is one copy of each byte, as the window would
// need anyway.
//
// Bits are read a byte at a time, and no more of them than are needed, except by the library, whose
// spare bytes are given back. So at most seven bits are ever held of a byte that was taken, unless
// a symbol's rest is still to come.
#include "codec/inflate_decoder.h"

#include <algorithm>
#include <cstring>

#include "codec/fields.h"

namespace vekdc::codec {
namespace {

constexpr std::array<uint8_t, 19> kOrder = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                            11, 4,  12, 3, 13, 2, 14, 1, 15};
constexpr size_t kAhead = 128 << 10;
/// Room from which on output is decoded straight into it.
constexpr size_t kDirect = 128 << 10;
constexpr size_t kMost = 1U << 30;  // What the library takes at once.

}  // namespace

InflateDecoder::InflateDecoder(const Allocator& allocator) : window_(allocator) {}

Status InflateDecoder::reset() {
    const InflatePause pause = state_.pause;
    state_ = State();
    state_.pause = pause;
    return Status::Going;
}

Status InflateDecoder::setHistory(Bytes bytes) {
    return remember(bytes.data(), bytes.size()) ? Status::Going : Status::NoMemory;
}

Bytes InflateDecoder::history() const {
    const size_t count = std::min(state_.held, kHistory);
    return {window_.data() + state_.held - count, count};
}

bool InflateDecoder::prime(uint32_t value, uint32_t count) {
    if (count > 16 || state_.bitCount + count > 32) return false;
    state_.bits |= (value & ((1U << count) - 1)) << state_.bitCount;
    state_.bitCount += count;
    return true;
}

Status InflateDecoder::copyFrom(const InflateDecoder& other) {
    const size_t held = other.state_.held;
    if (held != 0 && !window_.reserve(kHistory + kAhead)) {
        reset();
        return Status::NoMemory;
    }
    if (held != 0) std::memcpy(window_.data(), other.window_.data(), held);
    state_ = other.state_;
    return Status::Going;
}

Status InflateDecoder::run(Input& in, Output& out) {
    State& s = state_;
    const size_t outBefore = out.left;
    s.paused = false;
    for (;;) {
        Input ready{window_.data() + s.given, s.held - s.given};
        s.given += copyAcross(ready, out);
        if (s.given != s.held || s.status != Status::Going || s.paused) break;
        const size_t inHere = in.left;
        const bool direct = s.held == 0 || out.left >= kDirect || s.pause != InflatePause::Never;
        if (direct) {
            const uint8_t* const start = out.next;
            decode(in, out, 0);
            const auto count = static_cast<size_t>(out.next - start);
            s.totalIn += inHere - in.left;
            if (s.status == Status::Going && !remember(start, count)) s.status = Status::NoMemory;
            break;
        }
        if (s.held == kHistory + kAhead) {
            std::memmove(window_.data(), window_.data() + kAhead, kHistory);
            s.held = s.given = kHistory;
        }
        Output ahead{window_.data() + s.held, kHistory + kAhead - s.held};
        decode(in, ahead, s.held);
        const size_t before = s.held;
        s.held = static_cast<size_t>(ahead.next - window_.data());
        s.totalIn += inHere - in.left;
        if (s.held == before && s.status == Status::Going) break;
    }
    s.totalOut += outBefore - out.left;
    if (s.status == Status::Broken && s.fault.offset == 0)
        s.fault.offset = s.totalIn - s.bitCount / 8;
    return s.given == s.held ? s.status : Status::Going;
}

/// Enters output that stands elsewhere into the history; false when there is no memory.
bool InflateDecoder::remember(const uint8_t* bytes, size_t count) {
    State& s = state_;
    if (count == 0) return true;
    if (!window_.reserve(kHistory + kAhead)) return false;
    const size_t kept = std::min(count, kHistory);
    if (kept > kHistory + kAhead - s.held) {
        const size_t older = kHistory - kept;
        std::memmove(window_.data(), window_.data() + s.held - older, older);
        s.held = older;
    }
    std::memcpy(window_.data() + s.held, bytes + count - kept, kept);
    s.held += kept;
    s.given = s.held;
    return true;
}

/// Decodes until input or room is used up, the stream ends, or something else is to be reported.
/// The `before` bytes in front of the room are history, or where they are none the window.
void InflateDecoder::decode(Input& in, Output& out, size_t before) {
    State& s = state_;
    s.library.window = before == 0 ? window_.data() : nullptr;
    s.library.windowSize = before == 0 ? static_cast<uint32_t>(s.held) : 0;
    const uint8_t* const start = out.next - before;
    for (bool more = true; more;) {
        switch (s.step) {
            case Step::Stored: {
                Input stored{in.next, std::min<size_t>(in.left, s.storedLeft)};
                const size_t count = copyAcross(stored, out);
                in.next += count;
                in.left -= count;
                s.storedLeft -= static_cast<uint32_t>(count);
                more = s.storedLeft == 0;
                if (more) endBlock();
                break;
            }
            case Step::Coded:
                more = decodeCoded(in, out, start);
                break;
            case Step::End:
                s.status = Status::Ended;
                return;
            default:
                more = decodeHeader(in);
                break;
        }
        if (s.paused) return;
    }
}

/// One part of a block's header; false where input is missing or it is broken.
bool InflateDecoder::decodeHeader(Input& in) {
    State& s = state_;
    switch (s.step) {
        case Step::Header: {
            if (!fill(in, 3)) return false;
            s.last = take(1) != 0;
            const uint32_t type = take(2);
            if (type == 3) return broken("invalid deflate block type");
            ++s.blocks[type];
            s.mode = 0;
            s.library.tableKind = 0;
            if (type == 0) take(s.bitCount % 8);
            s.step = type == 0 ? Step::StoredSize : type == 1 ? Step::Coded : Step::Counts;
            if (type == 1) pauseBehind(InflatePause::Codes);
            return true;
        }
        case Step::StoredSize:
            if (!fill(in, 16)) return false;
            s.storedLeft = take(16);
            s.step = Step::StoredCheck;
            return true;
        case Step::StoredCheck:
            if (!fill(in, 16)) return false;
            if ((take(16) ^ s.storedLeft) != 0xFFFF)
                return broken("invalid length of a stored deflate block");
            s.step = Step::Stored;
            pauseBehind(InflatePause::Codes);
            return true;
        case Step::Counts:
            return readCounts(in);
        case Step::LengthCode:
            return readLengthCode(in);
        default:
            return readLengths(in);
    }
}

void InflateDecoder::endBlock() {
    state_.step = state_.last ? Step::End : Step::Header;
    pauseBehind(InflatePause::Blocks);
}

void InflateDecoder::pauseBehind(InflatePause place) {
    state_.paused = state_.pause >= place;
}

// The description of a dynamic block's two codes: RFC 1951, 3.2.7.
bool InflateDecoder::readCounts(Input& in) {
    State& s = state_;
    if (!fill(in, 14)) return false;
    s.litCount = take(5) + 257;
    s.distCount = take(5) + 1;
    s.lengthCount = take(4) + 4;
    if (s.litCount > 286 || s.distCount > 30)
        return broken("too many symbols in a deflate block's code");
    s.codeLengths = {};
    s.at = 0;
    s.step = Step::LengthCode;
    return true;
}

bool InflateDecoder::readLengthCode(Input& in) {
    State& s = state_;
    for (; s.at < s.lengthCount; ++s.at) {
        if (!fill(in, 3)) return false;
        s.codeLengths[kOrder[s.at]] = static_cast<uint8_t>(take(3));
    }
    // All codes of up to 7 bits in one table, indexed by the next 7 bits, first bit lowest.
    uint32_t next = 0;  // The code, left-aligned in 7 bits.
    for (uint32_t length = 1; length <= kMaxLength; ++length) {
        for (uint32_t symbol = 0; symbol < kLengthSymbols; ++symbol) {
            if (s.codeLengths[symbol] != length) continue;
            const uint32_t span = 1U << (kMaxLength - length);
            if (next + span > s.lengthCode.size())
                return broken("over-subscribed code in a deflate block's header");
            for (uint32_t code = next; code < next + span; ++code) {
                uint32_t reversed = 0;
                for (uint32_t bit = 0; bit < kMaxLength; ++bit)
                    reversed |= ((code >> bit) & 1) << (kMaxLength - 1 - bit);
                s.lengthCode[reversed] = {static_cast<uint8_t>(symbol),
                                          static_cast<uint8_t>(length)};
            }
            next += span;
        }
    }
    if (next != s.lengthCode.size()) return broken("incomplete code in a deflate block's header");
    s.at = 0;
    s.step = Step::Lengths;
    return true;
}

bool InflateDecoder::readLengths(Input& in) {
    static constexpr std::array<uint8_t, 3> extraBits = {2, 3, 7};
    static constexpr std::array<uint8_t, 3> leastRepeat = {3, 3, 11};
    State& s = state_;
    const uint32_t total = s.litCount + s.distCount;
    while (s.at < total) {
        // As many bits as the code turns out to have, and then those behind it.
        Entry entry = s.lengthCode[s.bits & (s.lengthCode.size() - 1)];
        while (entry.length > s.bitCount) {
            if (!fill(in, s.bitCount + 1)) return false;
            entry = s.lengthCode[s.bits & (s.lengthCode.size() - 1)];
        }
        if (entry.symbol < 16) {
            take(entry.length);
            s.lengths[s.at++] = entry.symbol;
            continue;
        }
        const uint32_t kind = entry.symbol - 16U;
        if (!fill(in, entry.length + extraBits[kind])) return false;
        take(entry.length);
        if (kind == 0 && s.at == 0) return broken("a repeated code length without one before it");
        const uint16_t value = kind == 0 ? s.lengths[s.at - 1] : uint16_t{0};
        const uint32_t repeat = leastRepeat[kind] + take(extraBits[kind]);
        if (repeat > total - s.at)
            return broken("too many code lengths in a deflate block's header");
        std::fill_n(s.lengths.begin() + s.at, repeat, value);
        s.at += repeat;
    }
    if (veksInflateBuildHuffTable(s.lengths.data(), s.litCount, s.distCount, &s.library) !=
        vekStatusOk)
        return broken("invalid code in a deflate block's header");
    s.step = Step::Coded;
    pauseBehind(InflatePause::Codes);
    return true;
}

/// A block's coded data; false where input or room is used up.
bool InflateDecoder::decodeCoded(Input& in, Output& out, const uint8_t* start) {
    static constexpr uint8_t nothing = 0;
    uint8_t nowhere = 0;
    State& s = state_;
    const uint8_t* const src = in.next != nullptr ? in.next : &nothing;
    uint8_t* const dst = out.next != nullptr ? out.next : &nowhere;
    const uint8_t* from = src;
    uint8_t* to = dst;
    auto left = static_cast<uint32_t>(std::min(in.left, kMost));
    auto room = static_cast<uint32_t>(std::min(out.left, kMost));
    // In a place of its own there is no history but the window.
    const auto before = static_cast<uint32_t>(out.next - start);
    const VekStatus status =
        veksInflate_8u(&from, &left, &s.bits, &s.bitCount, s.library.windowSize, &to, &room, before,
                       &s.mode, &s.library);
    auto consumed = static_cast<size_t>(from - src);
    const auto written = static_cast<size_t>(to - dst);
    if (status == vekStatusOk && (s.mode == 0 || room == 0)) {
        const uint32_t spare = std::min(s.bitCount / 8, static_cast<uint32_t>(consumed));
        consumed -= spare;
        s.bitCount -= 8 * spare;
        s.bits &= (1U << s.bitCount) - 1;
    }
    in.next += consumed;
    in.left -= consumed;
    out.next += written;
    out.left -= written;
    if (status != vekStatusOk) return broken("invalid deflate data");
    if (s.mode == 0) {
        endBlock();
        return true;
    }
    return in.left != 0 && out.left != 0;
}

/// Reads until `count` bits, at most 24, are there.
bool InflateDecoder::fill(Input& in, uint32_t count) {
    State& s = state_;
    for (; s.bitCount < count; s.bitCount += 8, ++in.next, --in.left) {
        if (in.left == 0) return false;
        s.bits |= static_cast<uint32_t>(*in.next) << s.bitCount;
    }
    return true;
}

uint32_t InflateDecoder::take(uint32_t count) {
    State& s = state_;
    const uint32_t value = s.bits & ((1U << count) - 1);
    s.bits >>= count;
    s.bitCount -= count;
    return value;
}

bool InflateDecoder::broken(const char* reason) {
    state_.status = Status::Broken;
    state_.fault.reason = reason;
    return false;
}

}  // namespace vekdc::codec
