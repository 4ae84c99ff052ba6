#include "codec/bzip2_blocks.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <iterator>

#include "codec/checksums.h"

namespace vekdc::codec {
namespace {

using namespace bzip2;

constexpr int32_t kGroup = 50;          // Symbols that share a code table.
constexpr int32_t kMostGroups = 32767;  // Files may name more groups than they use.
constexpr int32_t kMostTables = 6;
constexpr int32_t kMostCodeBits = 17;  // That the encoder gives a symbol.
constexpr size_t kSymbolSlack = 64;    // Symbols of room that zero runs are never short of.
constexpr int32_t kIndexSlack = 10;    // A larger index is refused before the block is there.
constexpr char kBrokenData[] = "the block's data are broken";

/// For stages that cannot fail on what they are given.
void require([[maybe_unused]] VekStatus status) {
    assert(status == vekStatusOk);
}

template <class Query, class... Length>
size_t sizeBy(Query query, Length... length) {
    int32_t size = 0;
    require(query(length..., &size));
    return static_cast<size_t>(size);
}

/// Words that hold a record.
constexpr size_t words(size_t bytes) {
    return (bytes + sizeof(uint64_t) - 1) / sizeof(uint64_t);
}

/// Bits, the most significant first, in memory of a given size.
class BitWriter {
 public:
    BitWriter(uint8_t* to, int32_t room) : to_(to), room_(room) {}

    /// Puts the low `bits` bits of a value, 1 to 24.
    void put(uint32_t value, int32_t bits) {
        code_ |= value << (32 - bits) >> count_;
        count_ += bits;
        flush(8);
    }
    void put32(uint32_t value) {
        put(value >> 16, 16);
        put(value & 0xFFFF, 16);
    }
    void putMagic(uint64_t magic) {
        put(static_cast<uint32_t>(magic >> 24), 24);
        put(static_cast<uint32_t>(magic) & 0xFFFFFF, 24);
    }

    /// Calls a stage that writes on from here.
    template <class Stage>
    void run(Stage&& stage) {
        int32_t written = room_ - written_;
        require(stage(&code_, &count_, to_ + written_, &written));
        written_ += written;
    }

    /// Ends the last byte; returns the number of bits.
    uint64_t finish() {
        const uint64_t bits = 8 * static_cast<uint64_t>(written_) + static_cast<uint64_t>(count_);
        flush(1);
        return bits;
    }

 private:
    void flush(int32_t least) {
        for (; count_ >= least; count_ -= 8, code_ <<= 8)
            to_[written_++] = static_cast<uint8_t>(code_ >> 24);
    }

    uint8_t* to_;
    int32_t room_;
    int32_t written_ = 0;
    uint32_t code_ = 0;
    int32_t count_ = 0;
};

/// Which values are in use: a bit for each 16 of them, and 16 bits for each of those that is set.
void putMap(BitWriter& bits, const uint8_t* inUse) {
    uint32_t values[16] = {};
    uint32_t rows = 0;
    for (unsigned i = 0; i < 256; ++i) values[i / 16] |= uint32_t{inUse[i]} << (15 - i % 16);
    for (unsigned row = 0; row < 16; ++row) rows |= uint32_t{values[row] != 0} << (15 - row);
    bits.put(rows, 16);
    for (const uint32_t row : values)
        if (row != 0) bits.put(row, 16);
}

/// More bytes than a coded block has, and one for joinBits().
size_t mostCoded(int32_t count, int32_t alphaSize) {
    constexpr int32_t fieldBits = 48 + 32 + 1 + 24 + 17 * 16 + 3 + 15;
    constexpr int32_t lengthBits = 2 * 20 + 1;  // Up or down from any code length to any other.
    const int32_t groups = count / kGroup + 1;
    const int32_t bits = fieldBits + groups * kMostTables +
                         kMostTables * (5 + alphaSize * lengthBits) + count * kMostCodeBits;
    // The stages may ask for more room than they fill.
    return static_cast<size_t>(bits) / 8 + 64;
}

/// The length of the block that symbols stand for; more than `most` means just that.
int32_t blockLength(const uint16_t* symbols, int32_t count, int32_t most) {
    int32_t length = 0;
    int32_t digit = 1;
    for (int32_t i = 0; i < count && length <= most; ++i) {
        const bool inRun = symbols[i] <= 1;
        length += inRun ? digit << symbols[i] : 1;
        digit = inRun ? 2 * digit : 1;
    }
    return length;
}

/// Whether the block ends behind four equal bytes, where a count must follow.
bool lacksCount(const uint8_t* block, int32_t length) {
    if (length < 4) return false;
    const uint8_t* const end = block + length;
    if (end[-1] != end[-2] || end[-1] != end[-3] || end[-1] != end[-4]) return false;
    int32_t i = 0;
    for (int run = 0; i < length; ++i) {
        run = run != 0 && block[i] == block[i - 1] ? run + 1 : 1;
        if (run != 4) continue;
        run = 0;
        ++i;
    }
    return i > length;
}

uint32_t crcOf(const Bzip2Block& block) {
    uint8_t piece[16 << 10];
    uint32_t crc = kBzip2Crc.initial;
    Bzip2BlockExpander expander;
    expander.begin();
    for (bool done = false; !done;) {
        Output out{piece, sizeof(piece)};
        done = expander.run(block, out);
        crc = kBzip2Crc.update(crc, Bytes(piece, sizeof(piece) - out.left));
    }
    return crc;
}

}  // namespace

// --- strings of bits -----------------------------------------------------------------------------

void bzip2::writeHeader(uint8_t* to, int level) {
    std::memcpy(to, kMagic, sizeof(kMagic));
    to[sizeof(kMagic)] = static_cast<uint8_t>('0' + level);
}

size_t bzip2::joinBits(LastBits& last, uint8_t* bytes, uint64_t bits) {
    const auto count = static_cast<size_t>((bits + 7) / 8);
    uint32_t before = last.value;
    for (size_t i = 0; i < count; ++i) {
        const uint32_t both = static_cast<uint32_t>(bytes[i]) << 8 >> last.count;
        bytes[i] = static_cast<uint8_t>(before | both >> 8);
        before = both;
    }
    bytes[count] = static_cast<uint8_t>(before);
    const uint64_t all = last.count + bits;
    const auto whole = static_cast<size_t>(all / 8);
    last.count = static_cast<unsigned>(all % 8);
    last.value = last.count == 0 ? uint8_t{0} : bytes[whole];
    return whole;
}

size_t bzip2::writeEnd(LastBits last, uint8_t* to, uint32_t crc) {
    BitWriter bits(to, kEndBytes);
    bits.putMagic(kEndMagic);
    bits.put32(crc);
    const size_t whole = joinBits(last, to, bits.finish());
    return whole + (last.count != 0 ? 1 : 0);
}

// --- filling -------------------------------------------------------------------------------------

void Bzip2BlockFiller::begin(Bzip2Block& block) {
    require(veksEncodeRLEInit_BZ2_8u(&state_));
    block.length = 0;
    block.crc = kBzip2Crc.initial;
}

/// Makes room for what `more` bytes of input become at most, as far as the block can hold it.
bool Bzip2BlockFiller::reserve(Bzip2Block& block, size_t more) const {
    constexpr size_t least = 1 << 10;
    const size_t most = static_cast<size_t>(most_) + kSlack;
    more = std::min(more, most);
    const size_t needed = static_cast<size_t>(block.length) + more + more / 4 + 1 + kSlack;
    if (std::min(needed, most) <= block.data.room()) return true;
    return block.data.reserve(std::min(std::max({needed, 2 * block.data.room(), least}), most),
                              static_cast<size_t>(block.length));
}

bool Bzip2BlockFiller::take(Bzip2Block& block, Input& in) {
    constexpr size_t mostInput = 1 << 30;
    while (in.left != 0 && !isFull(block)) {
        const size_t part = std::min(in.left, mostInput);
        if (!reserve(block, part)) return false;
        const uint8_t* src = in.next;
        auto left = static_cast<int32_t>(part);
        const auto room =
            static_cast<int32_t>(std::min(static_cast<size_t>(most_), block.data.room() - kSlack));
        int32_t written = room - block.length;
        veksEncodeRLE_BZ2_8u(&src, &left, block.data.data() + block.length, &written, &state_);
        block.length += written;
        const auto taken = static_cast<size_t>(src - in.next);
        block.crc = kBzip2Crc.update(block.crc, Bytes(in.next, taken));
        in = {src, in.left - taken};
    }
    return true;
}

void Bzip2BlockFiller::end(Bzip2Block& block) {
    int32_t written = 1;
    require(veksEncodeRLEFlush_BZ2_8u(block.data.data() + block.length, &written, &state_));
    require(veksRLEGetInUseTable_8u(block.inUse, &state_));
    block.length += written;
}

// --- coding --------------------------------------------------------------------------------------

bool Bzip2BlockEncoder::encode(const Bzip2Block& block) {
    int32_t index = 0;
    if (!sort(block, index)) return false;
    int32_t values = 0;
    require(veksReduceDictionary_8u_I(block.inUse, sorted_.data(), block.length, &values));
    VekMtfState list;
    require(veksMTFInit_8u(&list));
    require(veksMTFFwd_8u(sorted_.data(), sorted_.data(), block.length, &list));
    return write(block, index, makeSymbols(block.length, values), values + 2);
}

bool Bzip2BlockEncoder::sort(const Bzip2Block& block, int32_t& index) {
    // Neither method gives up. The general kernel alone clears no tables, which small blocks feel.
    constexpr int32_t inLeastMemory = 1;
    constexpr int32_t kernelAlone = 2;
    constexpr int32_t smallBlock = 8000;
    const int32_t method = block.length < smallBlock ? kernelAlone : inLeastMemory;
    int32_t size = 0;
    require(veksBWTFwdGetBufSize_SelectSort_8u(block.length, &size, method));
    const auto length = static_cast<size_t>(block.length);
    const size_t forSymbols = (length + kSymbolSlack + 1) * sizeof(uint16_t);
    if (!work_.reserve(std::max(static_cast<size_t>(size), forSymbols)) || !sorted_.reserve(length))
        return false;
    require(veksBWTFwd_SelectSort_8u(block.data.data(), sorted_.data(), block.length, &index,
                                     work_.data(), method));
    return true;
}

/// They stand where the block was sorted: its memory is larger, and free by then.
uint16_t* Bzip2BlockEncoder::symbols() {
    return reinterpret_cast<uint16_t*>(work_.data());
}

/// Returns the number of symbols, end of block included.
int32_t Bzip2BlockEncoder::makeSymbols(int32_t length, int32_t values) {
    std::memset(frequencies_, 0, sizeof(frequencies_));
    const uint8_t* src = sorted_.data();
    int32_t count = length + static_cast<int32_t>(kSymbolSlack);
    require(veksEncodeZ1Z2_BZ2_8u16u(&src, &length, symbols(), &count, frequencies_));
    const auto end = static_cast<uint16_t>(values + 1);
    symbols()[count] = end;
    frequencies_[end] = 1;
    return count + 1;
}

bool Bzip2BlockEncoder::write(const Bzip2Block& block, int32_t index, int32_t count,
                              int32_t alphaSize) {
    const size_t room = mostCoded(count, alphaSize);
    if (!huffman_.reserve(words(sizeBy(veksEncodeHuffGetSize_BZ2_16u8u, count))) ||
        !coded_.reserve(room))
        return false;
    auto* const state = reinterpret_cast<VekBz2HuffEncState*>(huffman_.data());
    require(veksEncodeHuffInit_BZ2_16u8u(alphaSize, frequencies_, symbols(), count, state));
    BitWriter bits(coded_.data(), static_cast<int32_t>(room));
    bits.putMagic(kBlockMagic);
    bits.put32(block.crc);
    bits.put(0, 1);  // Not randomised.
    bits.put(static_cast<uint32_t>(index), 24);
    putMap(bits, block.inUse);
    bits.run([&](auto... to) { return veksPackHuffContext_BZ2_16u8u(to..., state); });
    const uint16_t* src = symbols();
    bits.run([&](uint32_t* code, int32_t* pending, uint8_t* dst, int32_t* left) {
        return veksEncodeHuff_BZ2_16u8u(code, pending, &src, &count, dst, left, state);
    });
    bits_ = bits.finish();
    return true;
}

// --- decoding ------------------------------------------------------------------------------------

void Bzip2BlockDecoder::begin(const Bzip2BitsIn& bits, int32_t most) {
    step_ = Step::Crc;
    start_ = (bits.position() - kMagicBits) / 8;
    most_ = most;
    fault_ = {};
}

Status Bzip2BlockDecoder::broken(const char* reason, uint64_t offset) {
    fault_ = {reason, offset};
    return Status::Broken;
}

Status Bzip2BlockDecoder::run(Bzip2BitsIn& bits, Input& in, Bzip2Block& block) {
    uint64_t value = 0;
    for (;;) {
        switch (step_) {
            case Step::Crc:
                if (!bits.read(in, 32, value)) return Status::Going;
                block.crc = static_cast<uint32_t>(value);
                step_ = Step::Randomised;
                break;
            case Step::Randomised:
                if (!bits.read(in, 1, value)) return Status::Going;
                if (value != 0)
                    return broken(
                        "the block is randomised, as by versions of bzip2 before 0.9.5; that is "
                        "not supported",
                        start_);
                step_ = Step::Index;
                break;
            case Step::Index:
                if (!bits.read(in, 24, value)) return Status::Going;
                index_ = static_cast<int32_t>(value);
                if (index_ > most_ + kIndexSlack) return broken(kBrokenData, start_);
                step_ = Step::Rows;
                break;
            case Step::Rows:
                if (!bits.read(in, 16, value)) return Status::Going;
                rows_ = static_cast<uint32_t>(value) << 16;
                std::memset(block.inUse, 0, sizeof(block.inUse));
                valueCount_ = 0;
                step_ = Step::Values;
                break;
            case Step::Values:
                if (rows_ != 0) {
                    if (!bits.read(in, 16, value)) return Status::Going;
                    const auto row = static_cast<unsigned>(std::countl_zero(rows_));
                    rows_ &= ~(uint32_t{1} << (31 - row));
                    for (unsigned i = 0; i < 16; ++i)
                        block.inUse[16 * row + i] = value >> (15 - i) & 1;
                    valueCount_ += std::popcount(static_cast<uint32_t>(value));
                    break;
                }
                if (valueCount_ == 0) return broken("the block has no values", bits.offset());
                step_ = Step::TablesStart;
                break;
            case Step::TablesStart:
                if (!huffman_.reserve(
                        words(sizeBy(veksDecodeHuffGetSize_BZ2_8u16u, kMostGroups * kGroup))))
                    return Status::NoMemory;
                require(veksDecodeHuffInit_BZ2_8u16u(valueCount_ + 2, huffman()));
                symbolCount_ = 0;
                step_ = Step::Tables;
                break;
            case Step::Tables: {
                const VekStatus status = bits.run(in, [&](auto... stream) {
                    return veksUnpackHuffContext_BZ2_8u16u(stream..., huffman());
                });
                if (status == vekStatusSourceIncomplete) return Status::Going;
                if (status != vekStatusOk)
                    return broken("the code tables are broken", bits.offset());
                step_ = Step::Symbols;
                break;
            }
            case Step::Symbols: {
                const Status status = readSymbols(bits, in);
                if (status != Status::Ended) return status;
                step_ = Step::Block;
                break;
            }
            case Step::Block:
                return decode(block);
        }
    }
}

/// Room for `more` symbols, or as many as there may be: one more than the longest block has is for
/// its end. It doubles, so that a block read in small pieces is not copied at each of them.
bool Bzip2BlockDecoder::reserveSymbols(size_t more) {
    constexpr size_t least = 4 << 10;
    const size_t most = static_cast<size_t>(most_) + 1;
    const auto count = static_cast<size_t>(symbolCount_);
    return std::min(count + more, most) <= symbols_.room() ||
           symbols_.reserve(std::min(std::max(2 * count, least), most), count);
}

Status Bzip2BlockDecoder::readSymbols(Bzip2BitsIn& bits, Input& in) {
    const size_t most = static_cast<size_t>(most_) + 1;
    for (;;) {
        const auto count = static_cast<size_t>(symbolCount_);
        if (count == most) return broken(kBrokenData, bits.offset());
        if (!reserveSymbols(1)) return Status::NoMemory;
        const auto room = static_cast<int32_t>(std::min(symbols_.room(), most) - count);
        const VekStatus status = bits.run(in, [&](auto... stream) {
            int32_t decoded = room;
            const VekStatus result =
                veksDecodeHuff_BZ2_8u16u(stream..., symbols_.data() + count, &decoded, huffman());
            symbolCount_ += decoded;
            return result;
        });
        if (status == vekStatusOk) return Status::Ended;
        if (status == vekStatusSourceIncomplete)
            return readLastSymbols(bits) ? Status::Ended : Status::Going;
        if (status != vekStatusDestinationFull) return broken(kBrokenData, bits.offset());
    }
}

/// The stage wants to see more than a block's last symbols have, which there is unless the file is
/// cut: tries, in a copy of its record, whether they are all there. Without memory it waits on.
bool Bzip2BlockDecoder::readLastSymbols(Bzip2BitsIn& bits) {
    uint16_t last[32];  // More symbols than bits that the stage leaves.
    const size_t size = sizeBy(veksDecodeHuffGetSize_BZ2_8u16u, kMostGroups * kGroup);
    if (!trial_.reserve(words(size))) return false;
    std::memcpy(trial_.data(), huffman_.data(), size);
    int32_t count = std::min(static_cast<int32_t>(std::size(last)), most_ + 1 - symbolCount_);
    if (!reserveSymbols(static_cast<size_t>(count)) || !bits.runToEnd([&](auto... stream) {
            return veksDecodeHuff_BZ2_8u16u(stream..., last, &count,
                                            reinterpret_cast<Bz2HuffDecState*>(trial_.data()));
        }))
        return false;
    std::copy(last, last + count, symbols_.data() + symbolCount_);
    symbolCount_ += count;
    return true;
}

Status Bzip2BlockDecoder::decode(Bzip2Block& block) {
    // Counting the block's bytes beforehand saves memory in small blocks, and takes time in large.
    constexpr int32_t fewSymbols = 16 << 10;
    const int32_t capacity =
        symbolCount_ > fewSymbols ? most_ : blockLength(symbols_.data(), symbolCount_, most_);
    if (capacity > most_ || index_ >= capacity) return broken(kBrokenData, start_);
    if (!block.data.reserve(static_cast<size_t>(capacity)) ||
        !entries_.reserve(sizeBy(veksDecodeBlockGetSize_BZ2_8u, capacity)))
        return Status::NoMemory;
    block.length = capacity;
    if (veksDecodeBlock_BZ2_16u8u(symbols_.data(), symbolCount_, block.data.data(), &block.length,
                                  index_, valueCount_, block.inUse, entries_.data()) != vekStatusOk)
        return broken(kBrokenData, start_);
    return check_ == Bzip2Check::Last ? Status::Ended : finish(block, crcOf(block));
}

Status Bzip2BlockDecoder::finish(const Bzip2Block& block, uint32_t crc) {
    if (lacksCount(block.data.data(), block.length))
        return broken("the block's last run has no length", start_);
    if (crc != block.crc) return broken("the block's CRC does not match", start_);
    return Status::Ended;
}

void Bzip2BlockExpander::begin() {
    require(veksDecodeRLEStateInit_BZ2_8u(&state_));
    at_ = 0;
}

bool Bzip2BlockExpander::run(const Bzip2Block& block, Output& out) {
    constexpr size_t mostRoom = 1 << 30;
    while (at_ != block.length || state_.runCount > 0) {
        if (out.left == 0) return false;
        uint8_t* dst = out.next;
        auto room = static_cast<int32_t>(std::min(out.left, mostRoom));
        if (at_ != block.length) {
            const uint8_t* src = block.data.data() + at_;
            int32_t left = block.length - at_;
            veksDecodeRLEState_BZ2_8u(&src, &left, &dst, &room, &state_);
            at_ = block.length - left;
        } else {
            veksDecodeRLEStateFlush_BZ2_8u(&state_, &dst, &room);
        }
        const auto written = static_cast<size_t>(dst - out.next);
        out = {dst, out.left - written};
    }
    return true;
}

}  // namespace vekdc::codec
