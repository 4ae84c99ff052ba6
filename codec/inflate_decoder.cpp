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

#include "codec/deflate_codes.h"
#include "codec/fields.h"

namespace vekdc::codec {
namespace {

constexpr std::array<uint8_t, 19> kOrder = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                            11, 4,  12, 3, 13, 2, 14, 1, 15};
/// Room from which on output is decoded straight into it.
constexpr size_t kDirect = 128 << 10;
constexpr size_t kMost = 1U << 30;  // What the library takes at once.
/// And of a room behind whose output nothing may change.
constexpr size_t kKept = 16 << 10;

// Where the library stops inside a symbol (VekInflateState.savedStep), and its mode then.
constexpr uint32_t kStepLengthExtra = 2;
constexpr uint32_t kStepDistance = 3;
constexpr uint32_t kStepDistanceExtra = 4;
constexpr uint32_t kStepCopy = 5;
constexpr uint32_t kStepLiteral = 6;
constexpr int32_t kInside = 2;

constexpr auto kFixedLengths = [] {
    std::array<uint16_t, allLitLenSymbols + allDistSymbols> lengths{};
    for (uint32_t s = 0; s < allLitLenSymbols; ++s) lengths[s] = fixedLitLength(s);
    for (uint32_t s = 0; s < allDistSymbols; ++s) lengths[allLitLenSymbols + s] = kFixedDistLength;
    return lengths;
}();

/// Whether a code uses up every bit string; or has one symbol with a single bit, or none.
bool completeCode(const uint16_t* lengths, uint32_t count) {
    constexpr uint32_t whole = 1U << 15;
    uint32_t used = 0;
    uint32_t longest = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (lengths[i] != 0) used += whole >> lengths[i];
        longest = std::max<uint32_t>(longest, lengths[i]);
    }
    return used == whole || longest == 0 || (longest == 1 && used < whole);
}

/// Reads bits one by one, and no byte before it is needed.
struct SlowBits {
    Input in;
    uint32_t bits;
    uint32_t count;
    bool dry = false;  ///< More were taken than there are.

    uint32_t take(uint32_t wanted) {
        uint32_t value = 0;
        for (uint32_t i = 0; i < wanted; ++i) {
            if (count == 0) {
                dry = in.left == 0;
                if (dry) return value;
                bits = *in.next++;
                --in.left;
                count = 8;
            }
            value |= (bits & 1) << i;
            bits >>= 1;
            --count;
        }
        return value;
    }
};

/// A canonical code, read a bit at a time.
class SlowCode {
 public:
    SlowCode(const uint16_t* lengths, uint32_t count) : complete_(false) {
        std::array<uint16_t, 17> next{};
        for (uint32_t i = 0; i < count; ++i) ++counts_[lengths[i]];
        counts_[0] = 0;
        uint32_t used = 0;
        for (uint32_t length = 1; length <= 15; ++length) {
            next[length + 1] = static_cast<uint16_t>(next[length] + counts_[length]);
            used += static_cast<uint32_t>(counts_[length]) << (15 - length);
        }
        for (uint32_t i = 0; i < count; ++i)
            if (lengths[i] != 0) symbols_[next[lengths[i]]++] = static_cast<uint16_t>(i);
        complete_ = used == 1U << 15;
    }

    /// The next symbol, or -1 behind the one bit that is none's.
    int read(SlowBits& bits) const {
        uint32_t code = 0;
        uint32_t first = 0;
        uint32_t index = 0;
        for (uint32_t length = 1; length <= (complete_ ? 15U : 1U); ++length) {
            code |= bits.take(1);
            const uint32_t count = counts_[length];
            if (code < first + count) return symbols_[index + code - first];
            index += count;
            first = (first + count) << 1;
            code <<= 1;
        }
        return -1;
    }

 private:
    std::array<uint16_t, 16> counts_{};
    std::array<uint16_t, allLitLenSymbols> symbols_{};
    bool complete_;
};

}  // namespace

InflateDecoder::InflateDecoder(const Allocator& allocator) : window_(allocator) {}

Status InflateDecoder::restart() {
    const size_t held = state_.held;
    reset();
    state_.held = state_.given = held;
    return Status::Going;
}

Status InflateDecoder::reset() {
    const InflatePause pause = state_.pause;
    const bool exact = state_.exact;
    const size_t reach = state_.reach;
    state_ = State();
    state_.pause = pause;
    state_.exact = exact;
    state_.reach = reach;
    return Status::Going;
}

void InflateDecoder::neverAhead(size_t history) {
    // What was reserved for the other way may be smaller or larger.
    if (!state_.exact) window_.release();
    state_.exact = true;
    state_.reach = std::min(history, kHistory);
}

Status InflateDecoder::setHistory(Bytes bytes) {
    return remember(bytes.data(), bytes.size()) ? Status::Going : Status::NoMemory;
}

Bytes InflateDecoder::history() const {
    const size_t count = std::min(state_.held, state_.reach);
    return {window_.data() + state_.held - count, count};
}

bool InflateDecoder::prime(uint32_t value, uint32_t count) {
    if (count > 16 || state_.bitCount + count > 32) return false;
    if (count != 0) state_.bits |= (value & ((1U << count) - 1)) << state_.bitCount;
    state_.bitCount += count;
    return true;
}

Status InflateDecoder::copyFrom(const InflateDecoder& other) {
    const size_t held = other.state_.held;
    if (state_.exact != other.state_.exact) window_.release();
    if (held != 0 && !window_.reserve(other.windowRoom())) {
        reset();
        return Status::NoMemory;
    }
    if (held != 0) std::memcpy(window_.data(), other.window_.data(), held);
    state_ = other.state_;
    return Status::Going;
}

uint32_t InflateDecoder::takeUnused() {
    const uint32_t bits = state_.bits;
    state_.bits = 0;
    state_.bitCount = 0;
    return bits;
}

Status InflateDecoder::run(Input& in, Output& out) {
    State& s = state_;
    const size_t inBefore = in.left;
    const size_t outBefore = out.left;
    s.paused = s.endedBlock = false;
    if (s.status == Status::Going || s.given != s.held) {
        if (s.exact) {
            decodeExactly(in, out);
        } else {
            decodeAhead(in, out);
        }
    }
    s.totalIn += inBefore - in.left;
    s.totalOut += outBefore - out.left;
    if (s.status == Status::Broken && s.fault.offset == 0)
        s.fault.offset = s.totalIn - s.bitCount / 8;
    return s.given == s.held ? s.status : Status::Going;
}

void InflateDecoder::decodeAhead(Input& in, Output& out) {
    State& s = state_;
    for (;;) {
        Input ready{window_.data() + s.given, s.held - s.given};
        s.given += copyAcross(ready, out);
        if (s.given != s.held || s.status != Status::Going || s.paused) return;
        if (s.held == 0 || out.left >= kDirect || s.pause != InflatePause::Never)
            return decodeDirect(in, out);
        slideWindow();
        Output ahead{window_.data() + s.held, windowRoom() - s.held};
        const size_t before = s.held;
        decode(in, ahead, before);
        s.held = static_cast<size_t>(ahead.next - window_.data());
        if (s.held == before && s.status == Status::Going) return;
    }
}

void InflateDecoder::decodeExactly(Input& in, Output& out) {
    State& s = state_;
    if (s.held == 0 || out.left >= kDirect) return decodeDirect(in, out);
    size_t first = s.held - std::min(s.held, s.reach);
    for (bool more = true; more;) {
        const size_t heldBefore = s.held;
        slideWindow();
        first -= std::min(first, heldBefore - s.held);
        Output ahead{window_.data() + s.held, std::min(windowRoom() - s.held, out.left)};
        more = ahead.left < out.left;
        decode(in, ahead, s.held - first);
        more = more && ahead.left == 0 && s.status == Status::Going && !s.paused;
        s.held = static_cast<size_t>(ahead.next - window_.data());
        Input ready{window_.data() + s.given, s.held - s.given};
        s.given += copyAcross(ready, out);
    }
}

/// Into the caller's memory.
void InflateDecoder::decodeDirect(Input& in, Output& out) {
    State& s = state_;
    const uint8_t* const start = out.next;
    decode(in, out, 0);
    if (s.status == Status::Going && !remember(start, static_cast<size_t>(out.next - start)))
        s.status = Status::NoMemory;
}

/// Makes room behind the history.
void InflateDecoder::slideWindow() {
    State& s = state_;
    if (s.held != windowRoom()) return;
    std::memmove(window_.data(), window_.data() + s.held - kHistory, kHistory);
    s.held = s.given = kHistory;
}

/// Enters output that stands elsewhere into the history; false when there is no memory.
bool InflateDecoder::remember(const uint8_t* bytes, size_t count) {
    State& s = state_;
    if (count == 0) return true;
    if (!window_.reserve(windowRoom())) return false;
    const size_t kept = std::min(count, kHistory);
    if (kept > windowRoom() - s.held) {
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
    const size_t window = before == 0 ? std::min(s.held, s.exact ? s.reach : s.held) : 0;
    s.library.window = before == 0 ? window_.data() + s.held - window : nullptr;
    s.library.windowSize = static_cast<uint32_t>(window);
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
                more = decodeCoded(in, out, start, s.exact && before == 0);
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
            if (type == 3) return broken(InflateFault::BlockType, "invalid deflate block type");
            ++s.blocks[type];
            s.mode = 0;
            s.library.tableKind = 0;
            s.step = type == 0 ? Step::StoredSize : type == 1 ? Step::Coded : Step::Counts;
            if (type == 1) pauseBehind(InflatePause::Codes);
            return true;
        }
        case Step::StoredSize: {
            take(s.bitCount % 8);
            if (!fill(in, 32)) return false;
            if (((s.bits >> 16) ^ (s.bits & 0xFFFF)) != 0xFFFF)
                return broken(InflateFault::StoredLength,
                              "invalid length of a stored deflate block");
            s.storedLeft = take(16);
            take(16);
            s.step = Step::Stored;
            pauseBehind(InflatePause::Codes);
            return true;
        }
        case Step::Counts:
            return readCounts(in);
        case Step::LengthCode:
            return readLengthCode(in);
        default:
            return readLengths(in);
    }
}

void InflateDecoder::endBlock() {
    state_.endedBlock = true;
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
    s.litCount = take(5) + firstLengthSymbol;
    s.distCount = take(5) + 1;
    s.lengthCount = take(4) + 4;
    if (s.litCount > litLenSymbols || s.distCount > distSymbols)
        return broken(InflateFault::SymbolCounts, "too many symbols in a deflate block's code");
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
                return broken(InflateFault::LengthCode,
                              "over-subscribed code in a deflate block's header");
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
    // Without any code, every bit stands for a length of 0; the end of block will be missing.
    if (next == 0) {
        s.lengthCode.fill({0, 1});
    } else if (next != s.lengthCode.size()) {
        return broken(InflateFault::LengthCode, "incomplete code in a deflate block's header");
    }
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
        if (kind == 0 && s.at == 0)
            return broken(InflateFault::LengthRepeat,
                          "a repeated code length without one before it");
        const uint16_t value = kind == 0 ? s.lengths[s.at - 1] : uint16_t{0};
        const uint32_t repeat = leastRepeat[kind] + take(extraBits[kind]);
        if (repeat > total - s.at)
            return broken(InflateFault::LengthRepeat,
                          "too many code lengths in a deflate block's header");
        std::fill_n(s.lengths.begin() + s.at, repeat, value);
        s.at += repeat;
    }
    if (veksInflateBuildHuffTable(s.lengths.data(), s.litCount, s.distCount, &s.library) !=
            vekStatusOk ||
        !completeCode(s.lengths.data() + s.litCount, s.distCount))
        return brokenCode();
    s.step = Step::Coded;
    pauseBehind(InflatePause::Codes);
    return true;
}

/// A block's coded data; false where input or room is used up. The library runs over bytes behind
/// its output; callers who count every byte get them back.
bool InflateDecoder::decodeCoded(Input& in, Output& out, const uint8_t* start, bool keepRoom) {
    static constexpr uint8_t nothing = 0;
    uint8_t nowhere = 0;
    State& s = state_;
    const uint8_t* const src = in.next != nullptr ? in.next : &nothing;
    uint8_t* const dst = out.next != nullptr ? out.next : &nowhere;
    const uint8_t* from = src;
    uint8_t* to = dst;
    auto left = static_cast<uint32_t>(std::min(in.left, kMost));
    const Position position{in, s.bits, s.bitCount,
                            s.library.windowSize + static_cast<uint64_t>(out.next - start)};
    auto room = static_cast<uint32_t>(std::min(out.left, keepRoom ? kKept : kMost));
    std::array<uint8_t, kKept> kept;
    if (keepRoom) std::memcpy(kept.data(), dst, room);
    // In a place of its own there is no history but the window.
    const auto before = static_cast<uint32_t>(out.next - start);
    const VekStatus status =
        veksInflate_8u(&from, &left, &s.bits, &s.bitCount, s.library.windowSize, &to, &room, before,
                       &s.mode, &s.library);
    auto consumed = static_cast<size_t>(from - src);
    const auto written = static_cast<size_t>(to - dst);
    if (keepRoom) std::memcpy(to, kept.data() + written, room);
    const bool full = s.mode == kInside && s.library.savedStep >= kStepCopy;
    if (status == vekStatusOk && (s.mode == 0 || full)) {
        const uint32_t spare = std::min(s.bitCount / 8, static_cast<uint32_t>(consumed));
        consumed -= spare;
        s.bitCount -= 8 * spare;
        s.bits &= (1U << s.bitCount) - 1;
    }
    in.next += consumed;
    in.left -= consumed;
    out.next += written;
    out.left -= written;
    if (status != vekStatusOk) return brokenData(in, out, position);
    if (s.mode == 0) {
        endBlock();
        return true;
    }
    return out.left != 0 && (in.left != 0 || full);
}

/// Reads until `count` bits are there: at most 24, or 32 at a byte's boundary.
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

bool InflateDecoder::broken(InflateFault kind, const char* reason) {
    state_.status = Status::Broken;
    state_.faultKind = kind;
    state_.fault.reason = reason;
    return false;
}

/// Which of a block's codes the library refused.
bool InflateDecoder::brokenCode() {
    const State& s = state_;
    const InflateFault kind = s.lengths[256] == 0 ? InflateFault::NoEndOfBlock
                              : !completeCode(s.lengths.data(), s.litCount)
                                  ? InflateFault::LiteralCode
                                  : InflateFault::DistanceCode;
    return broken(kind, "invalid code in a deflate block's header");
}

/// What the library found wrong, and behind which bit. It tells neither, so the call's symbols are
/// read once more, a bit at a time: this happens once a stream.
bool InflateDecoder::brokenData(Input& in, const Output& out, const Position& start) {
    State& s = state_;
    const bool fixed = s.library.tableKind == 0;
    const uint16_t* const lengths = fixed ? kFixedLengths.data() : s.lengths.data();
    const uint32_t litCount = fixed ? allLitLenSymbols : s.litCount;
    const SlowCode lits(lengths, litCount);
    const SlowCode dists(lengths + litCount, fixed ? allDistSymbols : s.distCount);

    SlowBits bits{start.in, start.bits, start.bitCount};
    uint64_t reach = start.reach;
    uint32_t step = s.mode == kInside ? s.library.savedStep : 1;
    uint32_t length = s.library.savedValue;
    uint32_t distance = s.library.savedDistance;
    uint32_t extra = s.library.savedExtraBits;
    InflateFault kind = InflateFault::None;
    while (kind == InflateFault::None && !bits.dry) {
        switch (step) {
            case kStepLengthExtra:
                length += bits.take(extra);
                step = kStepDistance;
                break;
            case kStepDistance: {
                const auto code = static_cast<uint32_t>(dists.read(bits));
                if (code >= distSymbols) {
                    kind = InflateFault::DistanceSymbol;
                    break;
                }
                extra = distExtraTable[code];
                distance = distBaseTable[code] + 1U;
                step = kStepDistanceExtra;
                break;
            }
            case kStepDistanceExtra:
                distance += bits.take(extra);
                step = kStepCopy;
                break;
            case kStepCopy:
                if (distance > reach) kind = InflateFault::Distance;
                reach += length;
                step = 1;
                break;
            case kStepLiteral:
                ++reach;
                step = 1;
                break;
            default: {
                const int symbol = lits.read(bits);
                const auto code = static_cast<uint32_t>(symbol) - firstLengthSymbol;
                if (symbol >= 0 && symbol < static_cast<int>(endOfBlock)) {
                    step = kStepLiteral;
                } else if (code >= lengthCodes) {
                    kind = InflateFault::LiteralSymbol;
                } else {
                    extra = litExtraTable[code];
                    length = code == lengthCodes - 1 ? maxMatch : litBaseTable[code] + minMatch;
                    step = kStepLengthExtra;
                }
            }
        }
    }
    in = bits.in;
    s.bits = bits.bits;
    s.bitCount = bits.count;
    if (s.exact && kind == InflateFault::Distance && out.left == 0) {
        // Judged when there is room for it.
        s.mode = kInside;
        s.library.savedStep = kStepCopy;
        s.library.savedValue = length;
        s.library.savedDistance = distance;
        return false;
    }
    return broken(kind, "invalid deflate data");
}

}  // namespace vekdc::codec
