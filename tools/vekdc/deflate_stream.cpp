#include "tools/vekdc/deflate_stream.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vekdc {
namespace {

constexpr size_t kLits = 286;
constexpr size_t kDists = 30;
constexpr uint32_t kEndOfBlock = 256;
constexpr int32_t kNowhere = -32768;  // An empty entry of the match finder's tables.
constexpr size_t kStoredMost = 65535;

using LitTable = std::array<VekHuffEntry, kLits>;
using DistTable = std::array<VekHuffEntry, kDists>;

constexpr uint32_t lengthExtra(uint32_t symbol) {
    return symbol < 265 || symbol == 285 ? 0 : (symbol - 261) / 4;
}
constexpr uint32_t distExtra(uint32_t symbol) {
    return symbol < 4 ? 0 : symbol / 2 - 1;
}

constexpr uint16_t reversed(uint32_t code, uint32_t length) {
    uint32_t out = 0;
    for (uint32_t i = 0; i < length; ++i) out |= ((code >> i) & 1) << (length - 1 - i);
    return static_cast<uint16_t>(out);
}

// The fixed code: RFC 1951, 3.2.6.
constexpr LitTable fixedLits() {
    LitTable table{};
    for (uint32_t s = 0; s < kLits; ++s) {
        const uint32_t length = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
        const uint32_t code = s < 144   ? 0x30 + s
                              : s < 256 ? 0x190 + s - 144
                              : s < 280 ? s - 256
                                        : 0xC0 + s - 280;
        table[s] = {reversed(code, length), static_cast<uint16_t>(length)};
    }
    return table;
}
constexpr DistTable fixedDists() {
    DistTable table{};
    for (uint32_t s = 0; s < kDists; ++s) table[s] = {reversed(s, 5), 5};
    return table;
}
constexpr LitTable kFixedLits = fixedLits();
constexpr DistTable kFixedDists = fixedDists();

uint32_t frequency(const VekHuffEntry& entry) {
    return static_cast<uint32_t>(entry.code) | static_cast<uint32_t>(entry.length) << 16;
}

/// Bits that the symbols take with these codes, the end of the block included.
uint64_t codedBits(const LitTable& litFreq, const DistTable& distFreq, const LitTable& lits,
                   const DistTable& dists) {
    uint64_t bits = 0;
    for (uint32_t s = 0; s < kLits; ++s)
        bits += uint64_t{frequency(litFreq[s])} *
                (lits[s].length + (s > kEndOfBlock ? lengthExtra(s) : 0));
    for (uint32_t s = 0; s < kDists; ++s)
        bits += uint64_t{frequency(distFreq[s])} * (dists[s].length + distExtra(s));
    return bits;
}

void require(VekStatus status) {
    if (status != vekStatusOk) throw std::logic_error("a deflate stage refused its arguments");
}

}  // namespace

DeflateEncoder::DeflateEncoder(uint32_t level) : level_(level) {
    if (level_ == kFastest) {
        fastHead_.resize(kFastHash);
    } else {
        window_.resize(kWindow);
        head_.resize(kHash);
        chain_.resize(kWindow);
        lits_.resize(kBlock);
        dists_.resize(kBlock);
    }
    start();
}

void DeflateEncoder::start(Bytes history) {
    code_ = 0;
    codeBits_ = 0;
    pending_.clear();
    if (level_ == kFastest) return;
    std::fill(head_.begin(), head_.end(), kNowhere);
    std::fill(chain_.begin(), chain_.end(), kNowhere);
    history = history.last(std::min<size_t>(history.size(), kWindow));
    std::copy(history.begin(), history.end(), window_.begin());
    position_ = static_cast<int32_t>(history.size());
    if (!history.empty())
        require(veksDeflateDictionarySet_8u(history.data(), position_, head_.data(), kHash,
                                            chain_.data(), window_.data(), kWindow, 1));
}

void DeflateEncoder::encode(Bytes in, End end, std::vector<uint8_t>& out) {
    if (!pending_.empty()) {
        const Bytes more = in.first(std::min(in.size(), kBlock - pending_.size()));
        pending_.insert(pending_.end(), more.begin(), more.end());
        in = in.subspan(more.size());
        if (pending_.size() < kBlock && end == End::More) return;
        encodeBlock(pending_, end == End::Final && in.empty(), out);
        pending_.clear();
        if (in.empty() && end == End::Final) return;
    }
    while (in.size() > kBlock || (in.size() == kBlock && end != End::Final)) {
        encodeBlock(in.first(kBlock), false, out);
        in = in.subspan(kBlock);
    }
    if (end == End::More) {
        pending_.assign(in.begin(), in.end());
        return;
    }
    if (!in.empty() || end == End::Final) encodeBlock(in, end == End::Final, out);
    if (end == End::Sync) writeStored({}, false, out);
}

void DeflateEncoder::put(uint32_t value, uint32_t count, std::vector<uint8_t>& out) {
    uint64_t bits = code_ | static_cast<uint64_t>(value) << codeBits_;
    for (codeBits_ += count; codeBits_ >= 8; codeBits_ -= 8, bits >>= 8)
        out.push_back(static_cast<uint8_t>(bits));
    code_ = static_cast<uint32_t>(bits);
}

void DeflateEncoder::align(std::vector<uint8_t>& out) {
    if (codeBits_ != 0) put(0, 8 - codeBits_, out);
}

void DeflateEncoder::writeStored(Bytes in, bool last, std::vector<uint8_t>& out) {
    do {
        const Bytes piece = in.first(std::min(in.size(), kStoredMost));
        in = in.subspan(piece.size());
        put(last && in.empty() ? 1 : 0, 3, out);
        align(out);
        const auto length = static_cast<uint32_t>(piece.size());
        put(length, 16, out);
        put(length ^ 0xFFFF, 16, out);
        out.insert(out.end(), piece.begin(), piece.end());
    } while (!in.empty());
}

void DeflateEncoder::writePairs(const VekHuffEntry* lit, const VekHuffEntry* dist,
                                std::vector<uint8_t>& out) {
    auto at = static_cast<uint32_t>(out.size());
    out.resize(out.size() + static_cast<size_t>(vekDeflateHuffBound(pairs_)));
    require(veksDeflateHuff_8u(lits_.data(), dists_.data(), pairs_, &code_, &codeBits_, lit, dist,
                               out.data(), &at));
    out.resize(at);
    put(lit[kEndOfBlock].code, lit[kEndOfBlock].length, out);
}

// A dynamic block's header as the library makes it, for a last block.
void DeflateEncoder::putHeader(const uint8_t* header, uint32_t headerBits, bool last,
                               std::vector<uint8_t>& out) {
    for (uint32_t i = 0; i < headerBits; i += 8) {
        const uint32_t byte = i == 0 && !last ? header[0] & 0xFEU : header[i / 8];
        put(byte, std::min(8U, headerBits - i), out);
    }
}

void DeflateEncoder::encodeFastest(Bytes in, bool last, std::vector<uint8_t>& out) {
    LitTable lits{};
    DistTable dists{};
    std::array<uint8_t, VEK_DEFLATE_HEADER_BOUND> header{};
    uint32_t headerBytes = 0;
    uint32_t headerBits = 0;
    require(veksDeflateLZ77FastestPrecompHeader_8u(lits.data(), dists.data(), header.data(),
                                                   &headerBytes, &headerBits));
    const size_t start = out.size();
    const uint32_t code = code_;
    const uint32_t codeBits = codeBits_;
    putHeader(header.data(), headerBits, last, out);
    if (!in.empty()) {
        const auto length = static_cast<int32_t>(in.size());
        auto at = static_cast<uint32_t>(out.size());
        uint32_t room = vekDeflateFastestBound(length);
        out.resize(out.size() + room);
        require(veksDeflateLZ77Fastest_8u(in.data(), length, fastHead_.data(), kFastHash, &code_,
                                          &codeBits_, lits.data(), dists.data(), out.data(), &room,
                                          &at));
        out.resize(at);
    }
    put(lits[kEndOfBlock].code, lits[kEndOfBlock].length, out);
    if (out.size() - start > in.size()) {
        out.resize(start);
        code_ = code;
        codeBits_ = codeBits;
        writeStored(in, last, out);
    }
    if (last) align(out);
}

void DeflateEncoder::encodeBlock(Bytes in, bool last, std::vector<uint8_t>& out) {
    if (level_ == kFastest) {
        encodeFastest(in, last, out);
        return;
    }
    LitTable litFreq{};
    DistTable distFreq{};
    const uint8_t* source = in.empty() ? window_.data() : in.data();
    auto left = static_cast<int32_t>(in.size());
    auto room = static_cast<uint32_t>(kBlock);
    require(veksDeflateLZ77_8u(&source, &left, &position_, window_.data(), kWindow, head_.data(),
                               chain_.data(), kHash, litFreq.data(), distFreq.data(), lits_.data(),
                               dists_.data(), &room, level_, last ? 2 : 0));
    pairs_ = static_cast<uint32_t>(kBlock) - room;
    ++litFreq[kEndOfBlock].code;

    LitTable lits{};
    DistTable dists{};
    std::array<uint8_t, VEK_DEFLATE_HEADER_BOUND> header{};
    uint32_t headerBytes = 0;
    uint32_t headerBits = 0;
    uint64_t dynamicBits = ~uint64_t{0};
    if (veksDeflateLZ77FastestGenHuffTable_8u(litFreq.data(), distFreq.data(), lits.data(),
                                              dists.data()) == vekStatusOk) {
        require(veksDeflateLZ77FastestGenHeader_8u(lits.data(), dists.data(), header.data(),
                                                   &headerBytes, &headerBits));
        dynamicBits = headerBits + codedBits(litFreq, distFreq, lits, dists);
    }
    const uint64_t fixedBits = 3 + codedBits(litFreq, distFreq, kFixedLits, kFixedDists);
    const size_t storedBlocks = std::max<size_t>(1, (in.size() + kStoredMost - 1) / kStoredMost);
    const uint64_t storedBits = 8 * in.size() + storedBlocks * (3 + 7 + 32);

    if (storedBits < std::min(dynamicBits, fixedBits)) {
        writeStored(in, last, out);
    } else if (fixedBits <= dynamicBits) {
        put((last ? 1 : 0) | 1 << 1, 3, out);
        writePairs(kFixedLits.data(), kFixedDists.data(), out);
    } else {
        putHeader(header.data(), headerBits, last, out);
        writePairs(lits.data(), dists.data(), out);
    }
    if (last) align(out);
}

}  // namespace vekdc
