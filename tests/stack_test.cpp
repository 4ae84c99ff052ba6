// Callers of the 32-bit library whose stack is aligned to 4 bytes only: every export does the same
// for them, down to the last byte of memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <set>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "vekdc.h"

extern "C" int32_t callOnShiftedStack(const void* function, uint32_t shift, const uint32_t* words,
                                      size_t count);

namespace {

using Bytes = std::vector<uint8_t>;

struct Call {
    std::string name;
    int32_t result;
    bool operator==(const Call&) const = default;
};

/// Calls every export on a stack shifted by so many bytes. All that the calls are given and leave
/// lies in one block of memory, at the same places in every session.
class Session {
 public:
    explicit Session(uint32_t shift) : shift_(shift) {
        checksums();
        deflate();
        bzip2Stages();
        bzip2Huffman();
        lz4();
        lzo();
        lzss();
        zfp();
    }

    static Bytes& memory() {
        static Bytes block(8 << 20);
        return block;
    }
    static Bytes& cleared() {
        std::fill(memory().begin(), memory().end(), 0);
        return memory();
    }
    const std::vector<Call>& calls() const { return calls_; }

 private:
    static constexpr int32_t n = 5000;  // long enough for every vector path
    static constexpr int32_t room = 8192;

    template <class T>
    T* array(size_t count) {
        T* at = reinterpret_cast<T*>(memory_.data() + used_);
        used_ += (count * sizeof(T) + 63) / 64 * 64;
        EXPECT_LE(used_, memory_.size());
        return at;
    }
    uint8_t* bytes(size_t count = room) { return array<uint8_t>(count); }
    template <class T>
    T* one(T value) {
        T* at = array<T>(1);
        *at = value;
        return at;
    }
    template <class T>
    const T** from(const T* at) {
        return one(at);
    }
    uint8_t** to(uint8_t* at) { return one(at); }
    int32_t* count(int32_t value = room) { return one(value); }
    uint32_t* number(uint32_t value = 0) { return one(value); }

    template <class Result, class... Parameters>
    void call(const char* name, Result (*function)(Parameters...),
              std::type_identity_t<Parameters>... arguments) {
        std::vector<uint32_t> words;
        [[maybe_unused]] const auto push = [&](const auto& argument) {
            const auto bytes = std::as_bytes(std::span(&argument, 1));
            const size_t at = words.size();
            words.resize(at + (bytes.size() + 3) / 4);
            std::memcpy(&words[at], bytes.data(), bytes.size());
        };
        (push(arguments), ...);
        const int32_t result = callOnShiftedStack(reinterpret_cast<const void*>(function), shift_,
                                                  words.data(), words.size());
        calls_.push_back({name, result});
        if constexpr (std::is_same_v<Result, VekStatus>) {
            EXPECT_EQ(result, vekStatusOk) << name;
        }
    }
#define CALL(function, ...) call(#function, function __VA_OPT__(, ) __VA_ARGS__)

    void checksums() {
        for (int32_t i = 0; i < n; ++i)
            source_[i] = static_cast<uint8_t>(i % 7 == 0 ? i >> 6 : "stack!"[i % 6]);
        CALL(vekdcGetLibVersion);
        CALL(veksCRC32_8u, source_, n, number());
        CALL(veksCRC32_BZ2_8u, source_, n, number());
        CALL(veksCRC32C_8u, source_, n, number());
        CALL(veksAdler32_8u, source_, n, number(1));
    }

    void deflate() {
        constexpr uint32_t size = 32768;
        int32_t* position = count(0);
        uint8_t* window = bytes(size);
        auto* head = array<int32_t>(size);
        auto* prev = array<int32_t>(size);
        auto* lit = array<VekHuffEntry>(286);
        auto* dist = array<VekHuffEntry>(30);
        uint8_t* lits = bytes();
        auto* dists = array<uint16_t>(room);
        uint32_t* pairs = number(room);
        auto* parameters = array<int32_t>(4);
        std::fill_n(parameters, 4, 16);
        CALL(veksDeflateUpdateHash_8u, source_, 0, n, head, size, prev, size, 1);
        CALL(veksDeflateDictionarySet_8u, source_, n, head, size, prev, source_, size, 1);
        CALL(veksDeflateLZ77_8u, from(source_), count(n), position, window, size, head, prev, size,
             lit, dist, lits, dists, number(room), 6, 0);
        CALL(veksDeflateLZ77Fast_8u, from(source_), count(n), position, window, size, head, prev,
             size, lit, dist, lits, dists, number(room), parameters, 0);
        CALL(veksDeflateLZ77Slow_8u, from(source_), count(n), position, window, size, head, prev,
             size, lit, dist, lits, dists, pairs, parameters, 2);

        lit[256].code = 1;
        auto* litCode = array<VekHuffEntry>(286);
        auto* distCode = array<VekHuffEntry>(30);
        uint8_t* coded = bytes();
        uint32_t* codedSize = number();
        CALL(veksDeflateLZ77FastestGenHuffTable_8u, lit, dist, litCode, distCode);
        CALL(veksDeflateLZ77FastestGenHeader_8u, litCode, distCode, bytes(), number(), number());
        CALL(veksDeflateHuff_8u, lits, dists, room - *pairs, number(), number(), litCode, distCode,
             coded, codedSize);
        auto* lengths = array<uint16_t>(286 + 30);
        for (int i = 0; i < 286; ++i) lengths[i] = litCode[i].length;
        for (int i = 0; i < 30; ++i) lengths[286 + i] = distCode[i].length;
        auto* state = array<VekInflateState>(1);
        state->window = window;
        state->windowSize = 2 * n;
        CALL(veksInflateBuildHuffTable, lengths, 286, 30, state);
        CALL(veksInflate_8u, from(coded), codedSize, number(), number(), 2 * n, to(bytes()),
             number(room), 0, count(1), state);

        auto* heads = reinterpret_cast<uint32_t*>(head);
        CALL(veksDeflateLZ77FastestGetStat_8u, source_, n, heads, size, lit, dist);
        CALL(veksDeflateLZ77FastestPrecompHeader_8u, litCode, distCode, bytes(), number(),
             number());
        CALL(veksDeflateLZ77Fastest_8u, source_, n, heads, size, number(), number(), litCode,
             distCode, bytes(2 * room), number(2 * room), number());
    }

    void bzip2Stages() {
        auto* runs = array<VekBz2RleState>(1);
        uint8_t* packed = bytes();
        int32_t* packedSize = count();
        CALL(veksRLEGetSize_BZ2_8u, count());
        CALL(veksEncodeRLEInit_BZ2_8u, runs);
        CALL(veksEncodeRLE_BZ2_8u, from(source_), count(n), packed, packedSize, runs);
        CALL(veksEncodeRLEFlush_BZ2_8u, packed + *packedSize, count(), runs);
        CALL(veksRLEGetInUseTable_8u, inUse_, runs);
        CALL(veksDecodeRLEStateInit_BZ2_8u, runs);
        uint8_t** out = to(bytes());
        int32_t* left = count();
        CALL(veksDecodeRLEState_BZ2_8u, from(packed), packedSize, out, left, runs);
        CALL(veksDecodeRLEStateFlush_BZ2_8u, runs, out, left);

        uint8_t* buffer = bytes(700000);
        CALL(veksBWTFwdGetSize_8u, n, count());
        CALL(veksBWTFwdGetBufSize_SelectSort_8u, n, count(), 0);
        CALL(veksBWTFwd_SelectSort_8u, source_, column_, n, count(), buffer, 1);
        CALL(veksBWTFwd_8u, source_, column_, n, &index_, buffer);
        CALL(veksBWTInvGetSize_8u, n, count());
        CALL(veksBWTInv_8u, column_, bytes(), n, index_, buffer);

        auto* fronts = array<VekMtfState>(2);
        CALL(veksReduceDictionary_8u_I, inUse_, column_, n, &valuesUsed_);
        CALL(veksMTFGetSize_8u, count());
        CALL(veksMTFInit_8u, fronts);
        fronts[1] = fronts[0];
        uint8_t* ranks = bytes();
        CALL(veksMTFFwd_8u, column_, ranks, n, fronts);
        CALL(veksMTFInv_8u, ranks, column_, n, fronts + 1);
        CALL(veksExpandDictionary_8u_I, inUse_, column_, n, valuesUsed_);
        CALL(veksEncodeZ1Z2_BZ2_8u16u, from(ranks), count(n), symbols_, &symbolCount_,
             frequencies_);
        CALL(veksDecodeZ1Z2_BZ2_16u8u, from(symbols_), count(symbolCount_), ranks, count());
        CALL(veksDecodeBlockGetSize_BZ2_8u, n, count());
        CALL(veksDecodeBlock_BZ2_16u8u, symbols_, symbolCount_, bytes(), count(n), index_,
             valuesUsed_, inUse_, buffer);
    }

    void bzip2Huffman() {
        const int32_t alphabet = valuesUsed_ + 2;
        symbols_[symbolCount_] = static_cast<uint16_t>(alphabet - 1);
        frequencies_[alphabet - 1] = 1;
        const int32_t length = symbolCount_ + 1;
        auto* encoder = reinterpret_cast<VekBz2HuffEncState*>(bytes(200000));
        auto* decoder = reinterpret_cast<VekBz2HuffDecState*>(bytes(200000));
        uint8_t* coded = bytes();
        uint32_t* code = number();
        int32_t* bits = count(0);
        int32_t* head = count();
        int32_t* body = count();
        CALL(veksEncodeHuffGetSize_BZ2_16u8u, length, count());
        CALL(veksEncodeHuffInit_BZ2_16u8u, alphabet, frequencies_, symbols_, length, encoder);
        CALL(veksPackHuffContext_BZ2_16u8u, code, bits, coded, head, encoder);
        CALL(veksEncodeHuff_BZ2_16u8u, code, bits, from(symbols_), count(length), coded + *head,
             body, encoder);
        coded[*head + *body] = static_cast<uint8_t>(*code >> 24);
        const uint8_t** in = from(coded);
        int32_t* left = count();
        code = number();
        bits = count(0);
        CALL(veksDecodeHuffGetSize_BZ2_8u16u, length, count());
        CALL(veksDecodeHuffInit_BZ2_8u16u, alphabet, decoder);
        CALL(veksUnpackHuffContext_BZ2_8u16u, code, bits, in, left, decoder);
        CALL(veksDecodeHuff_BZ2_8u16u, code, bits, in, left, array<uint16_t>(room), count(),
             decoder);
    }

    void lz4() {
        uint8_t* table = bytes(16384);
        auto** tables = array<uint8_t*>(2);
        tables[0] = bytes(131072);
        tables[1] = bytes(262144);
        uint8_t* coded = bytes();
        int32_t* size = count();
        CALL(veksEncodeLZ4HashTableGetSize_8u, count());
        CALL(veksEncodeLZ4HashTableInit_8u, table, n);
        CALL(veksEncodeLZ4_8u, source_, n, bytes(), count(), table);
        CALL(veksEncodeLZ4Safe_8u, source_, count(n), bytes(), count(), table);
        CALL(veksEncodeLZ4Fast_8u, source_, n, coded, size, table, 4);
        CALL(veksDecodeLZ4_8u, coded, *size, bytes(), count());
        CALL(veksEncodeLZ4DictHashTableInit_8u, table, n);
        CALL(veksEncodeLZ4LoadDict_8u, table, source_, 1000);
        CALL(veksEncodeLZ4DictSafe_8u, source_, 1000, count(n), bytes(), count(), table, source_,
             1000);
        CALL(veksEncodeLZ4Dict_8u, source_, 1000, n, coded, size, table, source_, 1000);
        CALL(veksDecodeLZ4Dict_8u, coded, size, bytes(), 1000, count(n), source_, 1000);
        CALL(veksEncodeLZ4HCHashTableGetSize_8u, count(), count());
        CALL(veksEncodeLZ4HCHashTableInit_8u, tables);
        CALL(veksEncodeLZ4HC_8u, source_, 0, count(n), bytes(), count(), tables, nullptr, 0, 5);
        CALL(veksEncodeLZ4HCDictLimit_8u, source_, n, count(n), bytes(), count(), tables, source_,
             n, 5, 0);
    }

    void lzo() {
        uint8_t* state = bytes(131096);
        uint8_t* coded = bytes();
        uint32_t* size = number(room);
        CALL(veksEncodeLZOGetSize, 0, n, number());
        CALL(veksEncodeLZOInit_8u, 0, n, state);
        CALL(veksEncodeLZO_8u, source_, n, coded, size, state);
        CALL(veksDecodeLZO_8u, coded, *size, bytes(), number(room));
        CALL(veksDecodeLZOSafe_8u, coded, *size, bytes(), number(room));
    }

    void lzss() {
        uint8_t* state = bytes(327724);
        uint8_t* coded = bytes();
        uint8_t** end = to(coded);
        int32_t* left = count();
        CALL(veksLZSSGetSize_8u, count());
        CALL(veksEncodeLZSSInit_8u, state);
        CALL(veksEncodeLZSS_8u, from(source_), count(n), end, left, state);
        CALL(veksEncodeLZSSFlush_8u, end, left, state);
        CALL(veksDecodeLZSSInit_8u, state);
        CALL(veksDecodeLZSS_8u, from(coded), count(static_cast<int32_t>(*end - coded)), to(bytes()),
             count(), state);
    }

    void zfp() {
        auto* writer = reinterpret_cast<VekZfpState*>(bytes(560));
        auto* reader = reinterpret_cast<VekZfpState*>(bytes(560));
        auto* values = array<float>(64);
        for (int i = 0; i < 64; ++i) values[i] = static_cast<float>(source_[i]) / 3;
        uint8_t* coded = bytes();
        auto* size = one<int64_t>(0);
        CALL(veksEncodeZfpGetStateSize_32f, count());
        CALL(veksEncodeZfpInitLong_32f, coded, room, writer);
        CALL(veksEncodeZfpInit_32f, coded, room, writer);
        CALL(veksEncodeZfpSet_32f, 0, 4171, 64, -1074, writer);
        CALL(veksEncodeZfpSetAccuracy_32f, 1e-4, writer);
        CALL(veksEncodeZfp444_32f, values, 16, 64, writer);
        CALL(veksEncodeZfpGetCompressedBitSize_32f, writer, size);
        CALL(veksEncodeZfpFlush_32f, writer);
        CALL(veksEncodeZfpGetCompressedSize_32f, writer, count());
        CALL(veksEncodeZfpGetCompressedSizeLong_32f, writer, size);
        CALL(veksDecodeZfpGetStateSize_32f, count());
        CALL(veksDecodeZfpInitLong_32f, coded, *size, reader);
        CALL(veksDecodeZfpInit_32f, coded, static_cast<int32_t>(*size), reader);
        CALL(veksDecodeZfpSet_32f, 0, 4171, 64, -1074, reader);
        CALL(veksDecodeZfpSetAccuracy_32f, 1e-4, reader);
        CALL(veksDecodeZfp444_32f, reader, array<float>(64), 16, 64);
        CALL(veksDecodeZfpGetDecompressedSize_32f, reader, count());
        CALL(veksDecodeZfpGetDecompressedSizeLong_32f, reader, size);
    }

    uint32_t shift_;
    Bytes& memory_ = cleared();
    size_t used_ = 0;
    std::vector<Call> calls_;
    uint8_t* source_ = bytes();
    // What one bzip2 stage leaves for the next.
    uint8_t* inUse_ = bytes(256);
    uint8_t* column_ = bytes();
    uint16_t* symbols_ = array<uint16_t>(room);
    uint32_t* frequencies_ = array<uint32_t>(258);
    int32_t& index_ = *count(0);
    int32_t& valuesUsed_ = *count(0);
    int32_t& symbolCount_ = *count();
};

TEST(Stack, EveryExportServesCallersOfAnyAlignment) {
    const Session aligned(0);
    const Bytes left = Session::memory();
    std::set<std::string> called;
    std::set<std::string> listed;
    for (const Call& call : aligned.calls()) called.insert(call.name);
    std::ifstream list(VEK_SOURCE_DIR "/frame/exports.txt");
    for (std::string name; std::getline(list, name);)
        if (name.starts_with("vek")) listed.insert(name);
    EXPECT_EQ(called, listed);

    for (const uint32_t shift : {4U, 8U, 12U}) {
        const Session shifted(shift);
        EXPECT_TRUE(shifted.calls() == aligned.calls()) << "shifted by " << shift;
        EXPECT_TRUE(Session::memory() == left) << "shifted by " << shift;
    }
}

}  // namespace
