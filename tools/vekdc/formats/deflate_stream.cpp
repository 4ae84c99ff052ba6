// An encoder of raw deflate streams, composed of the library's stages.
//
// A block is what the matcher makes of up to 256 KiB of input, or of as much as gives 64 Ki pairs.
// Large blocks share one code and one header among many pairs; what a smaller block would gain by a
// code of its own is less, in most data, than its header costs and its construction takes. When a
// block is full, its size is known exactly for each of the format's three ways (dynamic code, fixed
// code, stored) from the frequencies and the code lengths alone, without coding it; the cheapest is
// written. So data that does not compress grows by a few bytes a block.
//
// The matcher runs through a window of 32 KiB; history (of the stream's part before this one, or of
// another thread's block) is entered there without being coded. Matching takes three quarters of
// the time at level 1 and nearly all of it from level 5 on, codes and headers less than a
// twentieth. The head table is as large as the matcher allows: fewer positions of other bytes under
// the same hash save more time than the larger table's cache misses take. Levels are tuned for
// speed against the usual encoders' same levels, at sizes within a hundredth of theirs.
//
// The fastest level takes a single pass with a code made beforehand, in pieces that know nothing of
// each other. Nothing here splits blocks by content or looks for the best parse.
#include "tools/vekdc/formats/deflate_stream.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vekdc {

namespace {

/// The matchers' parameters at each level of the tool; those of level 0 are not used. Levels up to
/// 4 take the greedy matcher, the others the lazy one.
constexpr int firstLazyLevel = 5;
constexpr int32_t levelParameters[10][4] = {
    {0, 4, 4, 4},   {1, 8, 8, 8},    {4, 16, 16, 9},    {16, 32, 32, 258},   {48, 32, 32, 16},
    {12, 6, 16, 8}, {16, 6, 32, 12}, {120, 7, 256, 16}, {192, 32, 258, 128}, {256, 32, 258, 258}};

constexpr uint32_t blockPairs = 65536;    // most pairs of a block
constexpr size_t blockBytes = 256 << 10;  // most bytes of a block
constexpr size_t fastestPiece = 512 << 10;
constexpr size_t maxStored = 65535;

uint32_t frequency(const VekHuffEntry& entry) {
    uint32_t value;
    std::memcpy(&value, &entry, sizeof(value));
    return value;
}

void setFrequency(VekHuffEntry& entry, uint32_t value) {
    std::memcpy(&entry, &value, sizeof(value));
}

void check(VekStatus status) {
    if (status != vekStatusOk) throw Failure("internal error: compression failed");
}

constexpr uint32_t lengthExtraBits(uint32_t symbol) {
    const uint32_t code = symbol - 257;
    return code < 8 || code == 28 ? 0 : code / 4 - 1;
}

constexpr uint32_t distanceExtraBits(uint32_t code) {
    return code < 4 ? 0 : code / 2 - 1;
}

constexpr uint32_t reversed(uint32_t code, uint32_t length) {
    uint32_t result = 0;
    for (uint32_t i = 0; i < length; ++i) result |= ((code >> i) & 1) << (length - 1 - i);
    return result;
}

struct Codes {
    VekHuffEntry lit[286];
    VekHuffEntry dist[30];
};

/// The fixed code (RFC 1951, 3.2.6).
constexpr Codes makeFixedCodes() {
    Codes codes{};
    for (uint32_t s = 0; s < 286; ++s) {
        const uint32_t length = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
        const uint32_t code = s < 144   ? 0x30 + s
                              : s < 256 ? 0x190 + s - 144
                              : s < 280 ? s - 256
                                        : 0xC0 + s - 280;
        codes.lit[s] = {static_cast<uint16_t>(reversed(code, length)),
                        static_cast<uint16_t>(length)};
    }
    for (uint32_t s = 0; s < 30; ++s) codes.dist[s] = {static_cast<uint16_t>(reversed(s, 5)), 5};
    return codes;
}

constexpr Codes fixedCodes = makeFixedCodes();

/// Bits that a block's pairs and its end take with the given codes.
uint64_t codedBits(const VekHuffEntry* litFreq, const VekHuffEntry* distFreq,
                   const VekHuffEntry* lit, const VekHuffEntry* dist) {
    uint64_t bits = 0;
    for (uint32_t s = 0; s < 286; ++s) {
        const uint32_t extra = s < 257 ? 0 : lengthExtraBits(s);
        bits += static_cast<uint64_t>(frequency(litFreq[s])) * (lit[s].length + extra);
    }
    for (uint32_t s = 0; s < 30; ++s) {
        bits +=
            static_cast<uint64_t>(frequency(distFreq[s])) * (dist[s].length + distanceExtraBits(s));
    }
    return bits;
}

}  // namespace

DeflateEncoder::DeflateEncoder(int level) : fastest_(level == fastestLevel) {
    const int known = std::clamp(level, 0, 9);
    std::copy_n(levelParameters[known], 4, parameters_);
    lazy_ = known >= firstLazyLevel;
    head_.resize(fastest_ ? fastestHashSize : hashSize);
    if (!fastest_) {
        window_.resize(windowSize);
        prev_.resize(windowSize);
        lits_.resize(blockPairs);
        dists_.resize(blockPairs);
    }
    start({});
}

void DeflateEncoder::start(Bytes history) {
    bits_ = 0;
    bitCount_ = 0;
    clearBlock();
    if (fastest_) return;
    std::fill(head_.begin(), head_.end(), -32768);
    if (history.size() > windowSize) history = history.last(windowSize);
    position_ = static_cast<int32_t>(history.size());
    if (history.empty()) return;
    std::copy(history.begin(), history.end(), window_.begin());
    // Where the matcher looks whether its source was placed in the window: it was not.
    window_[history.size() % windowSize] = static_cast<uint8_t>(~history.front());
    check(veksDeflateUpdateHash_8u(history.data(), 0, position_, head_.data(), hashSize,
                                   prev_.data(), windowSize, 1));
}

void DeflateEncoder::encode(Bytes in, End end, std::vector<uint8_t>& out) {
    if (fastest_) {
        const bool ended = encodeFastest(in, end, out);
        if (end == End::Final && !ended) {
            // An empty block of the fixed code.
            putBits(1U | 1U << 1, 3, out);
            putBits(fixedCodes.lit[endOfBlock].code, fixedCodes.lit[endOfBlock].length, out);
        }
    } else {
        match(in, end, out);
        if (end != End::More && (pairs_ != 0 || end == End::Final))
            writeBlock(end == End::Final, out);
    }
    finish(end, out);
}

/// Finds pairs in a stretch of input, and writes a block whenever one is full. The matcher is given
/// all the room there is: each of its calls begins with the history apart from the source, which is
/// slower.
void DeflateEncoder::match(Bytes in, End end, std::vector<uint8_t>& out) {
    const auto matcher = lazy_ ? veksDeflateLZ77Slow_8u : veksDeflateLZ77Fast_8u;
    while (!in.empty()) {
        const uint32_t room = blockPairs - pairs_;
        const size_t piece = std::min(in.size(), blockBytes - raw_.size());
        const uint8_t* src = in.data();
        auto left = static_cast<int32_t>(piece);
        uint32_t roomLeft = room;
        const bool last = piece == in.size() && end != End::More;
        check(matcher(&src, &left, &position_, window_.data(), windowSize, head_.data(),
                      prev_.data(), hashSize, litFreq_, distFreq_, lits_.data() + pairs_,
                      dists_.data() + pairs_, &roomLeft, parameters_, last ? 2 : 0));
        const size_t consumed = piece - static_cast<size_t>(left);
        raw_.insert(raw_.end(), in.data(), in.data() + consumed);
        in = in.subspan(consumed);
        pairs_ += room - roomLeft;
        if (pairs_ == blockPairs || raw_.size() == blockBytes) writeBlock(false, out);
    }
}

/// Writes the block under way in the cheapest of the three ways.
void DeflateEncoder::writeBlock(bool last, std::vector<uint8_t>& out) {
    setFrequency(litFreq_[endOfBlock], 1);
    Codes codes;
    check(veksDeflateLZ77FastestGenHuffTable_8u(litFreq_, distFreq_, codes.lit, codes.dist));
    uint8_t header[VEK_DEFLATE_HEADER_BOUND];
    uint32_t headerLength = 0;
    uint32_t headerBits = 0;
    check(veksDeflateLZ77FastestGenHeader_8u(codes.lit, codes.dist, header, &headerLength,
                                             &headerBits));
    const uint64_t dynamicBits = headerBits + codedBits(litFreq_, distFreq_, codes.lit, codes.dist);
    const uint64_t fixedBits = 3 + codedBits(litFreq_, distFreq_, fixedCodes.lit, fixedCodes.dist);
    // A stored block's header, its padding at the worst, and its lengths.
    const uint64_t storedBits = 8 * raw_.size() + (3 + 7 + 32) * (raw_.size() / maxStored + 1);
    if (storedBits < dynamicBits && storedBits < fixedBits) {
        writeStored(raw_, last, out);
    } else if (fixedBits <= dynamicBits) {
        putBits((last ? 1U : 0U) | 1U << 1, 3, out);
        writePairs(fixedCodes.lit, fixedCodes.dist, out);
    } else {
        putHeader(header, headerBits, last, out);
        writePairs(codes.lit, codes.dist, out);
    }
    clearBlock();
}

void DeflateEncoder::writePairs(const VekHuffEntry* lit, const VekHuffEntry* dist,
                                std::vector<uint8_t>& out) {
    // The exact size: what a block may take at the worst would be far more than it takes.
    const uint64_t bits = bitCount_ + codedBits(litFreq_, distFreq_, lit, dist);
    const size_t at = out.size();
    out.resize(at + static_cast<size_t>(bits / 8) + 1);
    uint32_t index = 0;
    check(veksDeflateHuff_8u(lits_.data(), dists_.data(), pairs_, &bits_, &bitCount_, lit, dist,
                             out.data() + at, &index));
    out.resize(at + index);
    putBits(lit[endOfBlock].code, lit[endOfBlock].length, out);
}

void DeflateEncoder::writeStored(Bytes bytes, bool last, std::vector<uint8_t>& out) {
    do {
        const size_t n = std::min(bytes.size(), maxStored);
        putBits(last && n == bytes.size() ? 1 : 0, 3, out);
        if (bitCount_ != 0) putBits(0, 8 - bitCount_, out);
        putBits(static_cast<uint32_t>(n), 16, out);
        putBits(static_cast<uint32_t>(n) ^ 0xFFFF, 16, out);
        out.insert(out.end(), bytes.data(), bytes.data() + n);
        bytes = bytes.subspan(n);
    } while (!bytes.empty());
}

/// Appends `count` bits, at most 24, first bit lowest.
void DeflateEncoder::putBits(uint32_t bits, uint32_t count, std::vector<uint8_t>& out) {
    bits_ |= bits << bitCount_;
    bitCount_ += count;
    for (; bitCount_ >= 8; bitCount_ -= 8, bits_ >>= 8) out.push_back(static_cast<uint8_t>(bits_));
}

void DeflateEncoder::putHeader(const uint8_t* header, uint32_t bits, bool last,
                               std::vector<uint8_t>& out) {
    for (uint32_t at = 0; at < bits; at += 8) {
        uint32_t byte = header[at / 8];
        if (at == 0 && !last) byte &= ~1U;
        putBits(byte, std::min<uint32_t>(8, bits - at), out);
    }
}

/// One pass over each piece, with the general-purpose code; a piece that it does not make smaller
/// is stored. True when the stream's last block is among those written.
bool DeflateEncoder::encodeFastest(Bytes in, End end, std::vector<uint8_t>& out) {
    auto* head = reinterpret_cast<uint32_t*>(head_.data());
    const bool hadInput = !in.empty();
    while (!in.empty()) {
        const Bytes piece = in.first(std::min(in.size(), fastestPiece));
        in = in.subspan(piece.size());
        const bool last = end == End::Final && in.empty();
        Codes codes;
        uint8_t header[VEK_DEFLATE_HEADER_BOUND];
        uint32_t headerLength = 0;
        uint32_t headerBits = 0;
        check(veksDeflateLZ77FastestPrecompHeader_8u(codes.lit, codes.dist, header, &headerLength,
                                                     &headerBits));
        const uint32_t bitsBefore = bits_;
        const uint32_t countBefore = bitCount_;
        const size_t at = out.size();
        putHeader(header, headerBits, last, out);
        const auto length = static_cast<int32_t>(piece.size());
        uint32_t room = vekDeflateFastestBound(length);
        const size_t behindHeader = out.size();
        coded_.resize(room);
        uint32_t index = 0;
        check(veksDeflateLZ77Fastest_8u(piece.data(), length, head, fastestHashSize, &bits_,
                                        &bitCount_, codes.lit, codes.dist, coded_.data(), &room,
                                        &index));
        if (behindHeader - at + index > piece.size()) {
            out.resize(at);
            bits_ = bitsBefore;
            bitCount_ = countBefore;
            writeStored(piece, last, out);
            continue;
        }
        out.insert(out.end(), coded_.data(), coded_.data() + index);
        putBits(codes.lit[endOfBlock].code, codes.lit[endOfBlock].length, out);
    }
    return hadInput && end == End::Final;
}

/// Ends on a byte boundary where `end` asks for it.
void DeflateEncoder::finish(End end, std::vector<uint8_t>& out) {
    if (end == End::Sync) writeStored({}, false, out);
    if (end == End::Final && bitCount_ != 0) putBits(0, 8 - bitCount_, out);
}

void DeflateEncoder::clearBlock() {
    pairs_ = 0;
    raw_.clear();
    std::memset(litFreq_, 0, sizeof(litFreq_));
    std::memset(distFreq_, 0, sizeof(distFreq_));
}

}  // namespace vekdc
