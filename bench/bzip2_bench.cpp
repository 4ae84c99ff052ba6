// The bzip2 block pipeline: whole blocks against libbz2, the block sort against libdivsufsort, and
// each stage's own rate; one block of 900 000 bytes is taken from each file. And whole streams, by
// the tool on one thread against lbzip2 on one, both as programs.

#include <algorithm>
#include <cstring>
#include <utility>

#include "bench.h"
#include "vekdc.h"

#ifdef VEK_HAS_bzip2
#include <bzlib.h>
#endif
#ifdef VEK_HAS_divsufsort
#include <divsufsort.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int32_t blockSize = 900000 - 19;  // what the format's own encoder puts into a block

void check(bool good, const char* what) {
    if (!good) vekbench::fail(what);
}

void checkStatus(VekStatus status, const char* what) {
    check(status == vekStatusOk, what);
}

int32_t sizeOf(const Bytes& bytes) {
    return static_cast<int32_t>(bytes.size());
}

/// A block's data after each stage; a stage reads one member and writes the next.
struct Block {
    Bytes raw;
    Bytes runs;
    Bytes column;
    Bytes positions;
    std::vector<uint16_t> symbols;
    Bytes packed;
    int32_t index = 0;
    int32_t values = 0;
    Bytes inUse = Bytes(256);
    std::vector<uint32_t> frequencies;
    Bytes work;
    Bytes record;
    uint32_t bits = 0;
    int32_t bitCount = 0;

    void encodeRuns() {
        runs.resize(blockSize + 1);
        VekBz2RleState state;
        veksEncodeRLEInit_BZ2_8u(&state);
        const uint8_t* src = raw.data();
        int32_t left = sizeOf(raw);
        int32_t written = blockSize;
        const VekStatus status = veksEncodeRLE_BZ2_8u(&src, &left, runs.data(), &written, &state);
        check(status == vekStatusOk || status == vekStatusDestinationFull, "run-length encoder");
        int32_t more = 1;
        checkStatus(veksEncodeRLEFlush_BZ2_8u(runs.data() + written, &more, &state), "flush");
        veksRLEGetInUseTable_8u(inUse.data(), &state);
        written += more;
        runs.resize(static_cast<size_t>(written));
        raw.resize(raw.size() - static_cast<size_t>(left));
    }

    void sort() {
        column.resize(runs.size());
        checkStatus(veksBWTFwd_8u(runs.data(), column.data(), sizeOf(runs), &index, work.data()),
                    "sort");
    }

    void moveToFront() {
        positions = column;
        const int32_t length = sizeOf(column);
        checkStatus(veksReduceDictionary_8u_I(inUse.data(), positions.data(), length, &values),
                    "map");
        VekMtfState state;
        veksMTFInit_8u(&state);
        checkStatus(veksMTFFwd_8u(positions.data(), positions.data(), length, &state), "mtf");
    }

    void encodeZeros() {
        symbols.resize(positions.size() + 1);
        frequencies.assign(258, 0);
        const uint8_t* src = positions.data();
        int32_t left = sizeOf(positions);
        int32_t count = left;
        checkStatus(
            veksEncodeZ1Z2_BZ2_8u16u(&src, &left, symbols.data(), &count, frequencies.data()),
            "zero runs");
        const auto last = static_cast<uint16_t>(values + 1);
        symbols[static_cast<size_t>(count)] = last;
        frequencies[last] = 1;
        symbols.resize(static_cast<size_t>(count) + 1);
    }

    template <class State>
    State* recordOf(VekStatus (*query)(int32_t, int32_t*)) {
        int32_t size = 0;
        checkStatus(query(static_cast<int32_t>(symbols.size()), &size), "record size");
        record.resize(std::max(record.size(), static_cast<size_t>(size)));
        return reinterpret_cast<State*>(record.data());
    }

    void encodeSymbols() {
        auto* const state = recordOf<VekBz2HuffEncState>(veksEncodeHuffGetSize_BZ2_16u8u);
        auto count = static_cast<int32_t>(symbols.size());
        checkStatus(veksEncodeHuffInit_BZ2_16u8u(values + 2, frequencies.data(), symbols.data(),
                                                 count, state),
                    "tables");
        packed.resize(symbols.size() * 3 + 40000);
        bits = 0;
        bitCount = 0;
        int32_t head = sizeOf(packed);
        checkStatus(veksPackHuffContext_BZ2_16u8u(&bits, &bitCount, packed.data(), &head, state),
                    "description");
        const uint16_t* src = symbols.data();
        int32_t length = sizeOf(packed) - head;
        checkStatus(veksEncodeHuff_BZ2_16u8u(&bits, &bitCount, &src, &count, packed.data() + head,
                                             &length, state),
                    "codes");
        length += head;
        packed.resize(static_cast<size_t>(length));
        // The last bits, and what a stream has behind its block.
        for (int i = 0; i < 8; ++i, bits <<= 8) packed.push_back(static_cast<uint8_t>(bits >> 24));
    }

    size_t encode() {
        uint32_t crc = 0;
        veksCRC32_BZ2_8u(raw.data(), sizeOf(raw), &crc);
        encodeRuns();
        sort();
        moveToFront();
        encodeZeros();
        encodeSymbols();
        return packed.size();
    }

    int32_t decodeSymbols(std::vector<uint16_t>* out) {
        auto* const state = recordOf<VekBz2HuffDecState>(veksDecodeHuffGetSize_BZ2_8u16u);
        checkStatus(veksDecodeHuffInit_BZ2_8u16u(values + 2, state), "decoder");
        uint32_t pending = 0;
        int32_t pendingCount = 0;
        const uint8_t* src = packed.data();
        int32_t left = sizeOf(packed);
        checkStatus(veksUnpackHuffContext_BZ2_8u16u(&pending, &pendingCount, &src, &left, state),
                    "unpacking");
        auto count = static_cast<int32_t>(out->size());
        checkStatus(veksDecodeHuff_BZ2_8u16u(&pending, &pendingCount, &src, &left, out->data(),
                                             &count, state),
                    "decoding");
        return count;
    }

    static size_t decodeRuns(const Bytes& from, Bytes* to) {
        VekBz2RleState state;
        veksDecodeRLEStateInit_BZ2_8u(&state);
        const uint8_t* src = from.data();
        int32_t left = sizeOf(from);
        uint8_t* dst = to->data();
        int32_t room = sizeOf(*to);
        const VekStatus status = veksDecodeRLEState_BZ2_8u(&src, &left, &dst, &room, &state);
        check(status == vekStatusOk || status == vekStatusDestinationFull, "run-length decoder");
        if (room > 0) veksDecodeRLEStateFlush_BZ2_8u(&state, &dst, &room);
        return to->size() - static_cast<size_t>(room);
    }
};

/// Room for what the decoding stages make of a block.
struct Decoded {
    std::vector<uint16_t> symbols;
    Bytes runs;
    Bytes raw;
};

size_t decode(Block& block, Decoded* to) {
    const int32_t count = block.decodeSymbols(&to->symbols);
    int32_t length = sizeOf(to->runs);
    checkStatus(
        veksDecodeBlock_BZ2_16u8u(to->symbols.data(), count, to->runs.data(), &length, block.index,
                                  block.values, block.inUse.data(), block.work.data()),
        "block");
    const size_t size = Block::decodeRuns(to->runs, &to->raw);
    uint32_t crc = 0;
    veksCRC32_BZ2_8u(to->raw.data(), sizeOf(to->raw), &crc);
    return size;
}

size_t allocateWork(Block* block, size_t length) {
    int32_t size = 0;
    checkStatus(veksBWTFwdGetSize_8u(static_cast<int32_t>(length), &size), "work size");
    block->work.resize(static_cast<size_t>(size));
    return length;
}

void addSort(const std::string& operation, const std::string& name, Block* block) {
    const size_t size = block->runs.size();
    vekbench::add(operation, name, "vekdc", size, [=] { return block->sort(), size_t{0}; });
#ifdef VEK_HAS_divsufsort
    auto* const column = new Bytes(size);
    auto* const rows = new std::vector<int32_t>(size + 1);
    vekbench::add(operation, name, "divsufsort", size, [=] {
        const int32_t row =
            divbwt(block->runs.data(), column->data(), rows->data(), static_cast<int32_t>(size));
        return static_cast<size_t>(row > 0 ? 0 : 1);
    });
#endif
}

void addStages(const std::string& name, Block* block, Decoded* to) {
    const auto stage = [&](const char* operation, size_t bytes, vekbench::Run run) {
        vekbench::add(operation, name, "vekdc", bytes, std::move(run));
    };
    const size_t raw = block->raw.size();
    const size_t length = block->runs.size();
    const int32_t count = sizeOf(block->positions);
    stage("bzip2-run-length-encode", raw, [=] { return block->encodeRuns(), size_t{0}; });
    stage("bzip2-run-length-decode", raw, [=] { return Block::decodeRuns(block->runs, &to->raw); });
    stage("bzip2-move-to-front", length, [=] { return block->moveToFront(), size_t{0}; });
    stage("bzip2-move-to-front-inverse", length, [=] {
        VekMtfState state;
        veksMTFInit_8u(&state);
        veksMTFInv_8u(block->positions.data(), to->runs.data(), count, &state);
        return size_t{0};
    });
    stage("bzip2-zero-run-encode", length, [=] { return block->encodeZeros(), size_t{0}; });
    stage("bzip2-zero-run-decode", length, [=] {
        const uint16_t* src = block->symbols.data();
        auto left = static_cast<int32_t>(block->symbols.size() - 1);
        int32_t room = count;
        veksDecodeZ1Z2_BZ2_16u8u(&src, &left, to->runs.data(), &room);
        return size_t{0};
    });
    stage("bzip2-huffman-encode", length,
          [=] { return block->encodeSymbols(), block->packed.size(); });
    stage("bzip2-huffman-decode", length,
          [=] { return static_cast<size_t>(block->decodeSymbols(&to->symbols)); });
    stage("bzip2-sort-inverse", length, [=] {
        checkStatus(veksBWTInv_8u(block->column.data(), to->runs.data(), count, block->index,
                                  block->work.data()),
                    "inverse");
        return size_t{0};
    });
}

void addWhole(const std::string& name, Block* block, Decoded* to) {
    const size_t size = block->raw.size();
    vekbench::add("bzip2-encode", name, "vekdc", size, [=] { return block->encode(); });
    vekbench::add("bzip2-decode", name, "vekdc", size, [=] { return decode(*block, to); });
#ifdef VEK_HAS_bzip2
    auto* const stream = new Bytes(size + size / 100 + 600);
    const auto compress = [=] {
        auto length = static_cast<unsigned>(stream->capacity());
        stream->resize(length);
        check(BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(stream->data()), &length,
                                       reinterpret_cast<char*>(block->raw.data()),
                                       static_cast<unsigned>(size), 9, 0, 0) == BZ_OK,
              "libbz2");
        stream->resize(length);
        return size_t{length};
    };
    compress();
    auto* const back = new Bytes(size);
    vekbench::add("bzip2-encode", name, "libbz2", size, compress);
    vekbench::add("bzip2-decode", name, "libbz2", size, [=] {
        auto length = static_cast<unsigned>(size);
        check(BZ2_bzBuffToBuffDecompress(reinterpret_cast<char*>(back->data()), &length,
                                         reinterpret_cast<char*>(stream->data()),
                                         static_cast<unsigned>(stream->size()), 0, 0) == BZ_OK,
              "libbz2");
        return size_t{length};
    });
#endif
}

#ifdef VEK_TOOL
void addStream(const vekbench::Input& file) {
    vekbench::addProgram("bzip2-stream", file.name, "vekdc", file.bytes,
                         {VEK_TOOL, "compress", "--format", "bz2", "-9", "--jobs", "1"});
#ifdef VEK_LBZIP2
    vekbench::addProgram("bzip2-stream", file.name, "lbzip2", file.bytes,
                         {VEK_LBZIP2, "-9", "-n", "1"});
#endif
}
#else
void addStream(const vekbench::Input&) {}
#endif

/// Blocks that are hard to sort by comparison.
std::vector<vekbench::Input> hardBlocks(const Bytes& text) {
    const auto size = static_cast<size_t>(blockSize);
    std::vector<vekbench::Input> blocks;
    Bytes before = {'a'};
    Bytes fibonacci = {'a', 'b'};
    while (fibonacci.size() < size) {
        Bytes next = fibonacci;
        next.insert(next.end(), before.begin(), before.end());
        before = std::exchange(fibonacci, std::move(next));
    }
    fibonacci.resize(size);
    blocks.push_back({"fibonacci", fibonacci});
    for (const size_t period : {size_t{2}, size_t{1000}, size / 2}) {
        Bytes block(size);
        for (size_t i = 0; i < size; ++i) block[i] = text[i % period];
        block.back() ^= 1;
        blocks.push_back({"period" + std::to_string(period), block});
    }
    Bytes runs(size, 'a');
    for (size_t i = 0; i < size; i += 4001) runs[i] = 'b';
    blocks.push_back({"runs", runs});
    return blocks;
}

}  // namespace

void registerBenchmarks() {
    for (const auto& file : vekbench::files()) {
        auto* const block = new Block;
        block->raw = file.bytes;
        block->encodeRuns();
        allocateWork(block, block->runs.size());
        block->encode();
        auto* const to = new Decoded{std::vector<uint16_t>(block->symbols.size()),
                                     Bytes(block->runs.size()), Bytes(block->raw.size())};
        check(decode(*block, to) == block->raw.size() && to->raw == block->raw, "round trip");
        addWhole(file.name, block, to);
        addSort("bzip2-sort", file.name, block);
        addStages(file.name, block, to);
        addStream(file);
    }
    for (auto& input : hardBlocks(vekbench::files().front().bytes)) {
        auto* const block = new Block;
        block->runs = std::move(input.bytes);
        allocateWork(block, block->runs.size());
        addSort("bzip2-sort-hard", input.name, block);
    }
    vekbench::goal("bzip2-encode", "libbz2", 2.2, 1.005);
    vekbench::goal("bzip2-decode", "libbz2", 2.7);
    const bool is64 = sizeof(void*) == 8;
    vekbench::goal("bzip2-sort", "divsufsort", {.speed = is64 ? 1.4 : 1.3, .worstSpeed = 1.0});
    vekbench::goal("bzip2-stream", "lbzip2", {.worstSpeed = 1.0});
    for (const char* stage : {"run-length", "zero-run"}) {
        for (const char* direction : {"encode", "decode"})
            if (is64) vekbench::rateGoal(std::string("bzip2-") + stage + "-" + direction, 300);
    }
    vekbench::rateGoal("bzip2-huffman-encode", is64 ? 250 : 220);
    vekbench::rateGoal("bzip2-huffman-decode", is64 ? 310 : 270);
}
