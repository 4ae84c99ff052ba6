// The block sort and its inverse, alone and fused with the stages in front of it.

#include "support/test.h"

using namespace vektest;

namespace {

struct Sorted {
    Bytes column;
    int32_t index = 0;
};

/// The transform by its definition. Among equal rotations the first row is the block's.
Sorted sortRotations(const Bytes& block) {
    Bytes twice = block;
    twice.insert(twice.end(), block.begin(), block.end());
    std::vector<size_t> rows(block.size());
    std::iota(rows.begin(), rows.end(), size_t{0});
    const auto compare = [&](size_t a, size_t b) {
        return std::memcmp(&twice[a], &twice[b], block.size());
    };
    std::stable_sort(rows.begin(), rows.end(),
                     [&](size_t a, size_t b) { return compare(a, b) < 0; });
    Sorted result;
    for (const size_t row : rows) result.column.push_back(twice[row + block.size() - 1]);
    result.index = static_cast<int32_t>(
        std::find_if(rows.begin(), rows.end(), [&](size_t row) { return compare(row, 0) == 0; }) -
        rows.begin());
    return result;
}

/// The encoder's stages behind the sort, through the library's own exports.
struct Symbols {
    std::vector<uint16_t> symbols;
    Bytes inUse = Bytes(256, 0);
    int32_t dictSize = 0;
};

Symbols toSymbols(Bytes column) {
    Symbols result;
    const auto len = length(column);
    for (const uint8_t byte : column) result.inUse[byte] = 1;
    EXPECT_EQ(veksReduceDictionary_8u_I(result.inUse.data(), column.data(), len, &result.dictSize),
              vekStatusOk);
    VekMtfState mtf;
    veksMTFInit_8u(&mtf);
    EXPECT_EQ(veksMTFFwd_8u(column.data(), column.data(), len, &mtf), vekStatusOk);
    result.symbols.resize(column.size());
    std::vector<uint32_t> frequencies(257);
    const uint8_t* src = column.data();
    int32_t left = len, count = len;
    EXPECT_EQ(
        veksEncodeZ1Z2_BZ2_8u16u(&src, &left, result.symbols.data(), &count, frequencies.data()),
        vekStatusOk);
    result.symbols.resize(static_cast<size_t>(count));
    return result;
}

std::vector<Sample> blocks() {
    return everyShape({1, 2, 3, 7, 99, 100, 101, 1000, 3001});
}

/// Sorts in exactly the room that the query names, and by method 3 also through the plain export.
Sorted transform(const Bytes& block, int32_t method, VekStatus* status) {
    const auto len = length(block);
    int32_t size = 0;
    EXPECT_EQ(veksBWTFwdGetBufSize_SelectSort_8u(len, &size, method), vekStatusOk);
    Guarded buffer(static_cast<size_t>(size));
    Guarded src(block);
    Guarded column(block.size());
    Sorted result;
    *status = veksBWTFwd_SelectSort_8u(src.data(), column.data(), len, &result.index, buffer.data(),
                                       method);
    result.column = column.bytes();
    return result;
}

/// The block of a column, in exactly the room that the query names.
Bytes invert(const Sorted& sorted) {
    const auto len = length(sorted.column);
    int32_t size = 0;
    EXPECT_EQ(veksBWTInvGetSize_8u(len, &size), vekStatusOk);
    Guarded column(sorted.column);
    Guarded buffer(static_cast<size_t>(size));
    Guarded out(sorted.column.size());
    EXPECT_EQ(veksBWTInv_8u(column.data(), out.data(), len, sorted.index, buffer.data()),
              vekStatusOk);
    // Any index of a hostile stream stays inside.
    EXPECT_EQ(veksBWTInv_8u(column.data(), column.data(), len, len - 1, buffer.data()),
              vekStatusOk);
    return out.bytes();
}

/// The inverse restores the block, and every method gives what `expected` says, or the bucket sort
/// gives up.
void expectEveryMethod(const Bytes& block, const Sorted& expected) {
    ASSERT_EQ(invert(expected), block);
    for (const int32_t method : {0, 1, 2, 3}) {
        VekStatus status{};
        const Sorted result = transform(block, method, &status);
        if (method == 0 && status == vekStatusSortLimit) continue;
        ASSERT_EQ(status, vekStatusOk);
        ASSERT_EQ(result.index, expected.index) << method << " of " << block.size();
        ASSERT_EQ(result.column, expected.column) << method << " of " << block.size();
    }
}

}  // namespace

TEST(Bzip2Sort, EveryMethodSortsRotations) {
    for (const auto& [name, block] : blocks()) expectEveryMethod(block, sortRotations(block));
    Random random(7);
    for (size_t round = 0; round < effort(1500); ++round) {
        const size_t alphabet = pick(random, 1, round % 4 == 0 ? 256 : 3);
        Bytes root(pick(random, 1, round % 2 == 0 ? 20 : 300));
        for (auto& byte : root) byte = static_cast<uint8_t>(255 - random() % alphabet);
        // Runs longer than what is compared before ranks take over.
        if (round % 3 == 0)
            root.insert(root.begin() + static_cast<ptrdiff_t>(root.size() / 2), 60, root[0]);
        Bytes block;
        const size_t times = pick(random, 1, 12);
        for (size_t i = 0; i < times; ++i) block.insert(block.end(), root.begin(), root.end());
        if (random() % 2 == 0) block.back() ^= 1;
        expectEveryMethod(block, sortRotations(block));
    }
}

// A column and an index that give the block back are its transform.
TEST(Bzip2Sort, LongBlocksOfEveryShape) {
    for (const auto& [name, block] : everyShape({99899, 99900, effort(900000)})) {
        SCOPED_TRACE(name);
        VekStatus status{};
        expectEveryMethod(block, transform(block, 3, &status));
    }
}

TEST(Bzip2Sort, TheBucketSortGivesUpOnRepetition) {
    Bytes block;
    for (int i = 0; i < 40000; ++i) block.insert(block.end(), {'a', 'b', 'c'});
    VekStatus status{};
    transform(block, 0, &status);
    EXPECT_EQ(status, vekStatusSortLimit);
    transform(shapes()[1].make(200000, 1), 0, &status);
    EXPECT_EQ(status, vekStatusOk);
    const Bytes equal(100, 'x');
    EXPECT_EQ(transform(equal, 0, &status).column, equal);
    EXPECT_EQ(status, vekStatusOk);
}

TEST(Bzip2Sort, ForwardSizesAndRefusedCalls) {
    constexpr int32_t refused = -1;
    const auto sizeOf = [](int32_t len, int32_t method) {
        int32_t size = refused;
        const VekStatus status = veksBWTFwdGetBufSize_SelectSort_8u(len, &size, method);
        EXPECT_EQ(status, size != refused || method == 7 ? vekStatusOk : vekStatusBadSize);
        return size;
    };
    EXPECT_EQ(sizeOf(900000, 7), refused);
    EXPECT_EQ(sizeOf(900000, 0), 5924484);
    EXPECT_EQ(sizeOf(0, 0), refused);
    int32_t size = 0;
    EXPECT_EQ(veksBWTFwdGetBufSize_SelectSort_8u(-1, &size, 0), vekStatusOk);
    // Sizes are compared as 32-bit values, and refused where no other one stands in for them.
    const struct {
        int32_t len;
        int32_t sizes[3];  // by method, from 1 on
    } limits[] = {{0, {refused, refused, refused}},
                  {1, {524490, 98, 524490}},
                  {900000, {5924484, 16200080, 16200080}},
                  {119304642, {716352336, 2147483636, 2147483636}},
                  {119304643, {716352342, refused, 716352342}},
                  {200000000, {1200524484, refused, 1200524484}},
                  {357826527, {2147483646, refused, 2147483646}},
                  {357826528, {refused, refused, 2145910288}},
                  {INT32_MAX, {refused, refused, 524478}}};
    for (const auto& limit : limits) {
        for (const int32_t method : {1, 2, 3})
            EXPECT_EQ(sizeOf(limit.len, method), limit.sizes[method - 1]) << limit.len;
        size = refused;
        EXPECT_EQ(veksBWTFwdGetSize_8u(limit.len, &size),
                  limit.len == 0 ? vekStatusBadSize : vekStatusOk);
        EXPECT_EQ(size, limit.sizes[2]);
    }

    const Bytes block(100, 'x');
    Bytes column(100, '-'), buffer(600000);
    const uint8_t* const s = block.data();
    uint8_t *const d = column.data(), *const b = buffer.data();
    int32_t index = -1;
    for (const int32_t method : {-1, 4})
        EXPECT_EQ(veksBWTFwd_SelectSort_8u(s, d, 100, &index, b, method), vekStatusOk);
    for (const int32_t len : {0, -5, 357826528}) {
        EXPECT_EQ(veksBWTFwd_8u(s, d, len, &index, b), vekStatusBadSize);
        EXPECT_EQ(veksBWTFwd_SelectSort_8u(s, d, len, &index, b, 3), vekStatusBadSize);
    }
    EXPECT_TRUE(column == Bytes(100, '-') && index == -1);
    EXPECT_EQ(veksBWTFwd_8u(s, d, 100, &index, b), vekStatusOk);
    EXPECT_TRUE(column == block && index == 0);
}

TEST(Bzip2Sort, BlockDecodingEqualsTheStagesOneByOne) {
    for (const auto& [name, block] : blocks()) {
        const Sorted sorted = sortRotations(block);
        const Symbols coded = toSymbols(sorted.column);
        const auto exact = length(block);
        // A capacity one short fails with what stands before the symbol that leaves it.
        for (const int32_t capacity : {exact - 1, exact, exact + 1, exact + 100}) {
            const bool fits = capacity >= exact;
            if (!fits && (capacity == 0 || sorted.index >= capacity)) continue;
            int32_t size = 0;
            ASSERT_EQ(veksDecodeBlockGetSize_BZ2_8u(capacity, &size), vekStatusOk);
            Guarded buffer(static_cast<size_t>(size));
            Guarded out(block.size());
            int32_t written = capacity;
            ASSERT_EQ(veksDecodeBlock_BZ2_16u8u(coded.symbols.data(),
                                                static_cast<int32_t>(coded.symbols.size()),
                                                out.data(), &written, sorted.index, coded.dictSize,
                                                coded.inUse.data(), buffer.data()),
                      fits ? vekStatusOk : vekStatusError);
            ASSERT_TRUE(fits ? written == exact && out.bytes() == block : written <= capacity);
        }
    }
}

TEST(Bzip2Sort, HostileBlocksStayInside) {
    Random random(31);
    for (size_t round = 0; round < effort(3000); ++round) {
        std::vector<uint16_t> symbols(pick(random, 1, 300));
        const size_t alphabet = pick(random, 1, 300);
        for (auto& s : symbols)
            s = static_cast<uint16_t>(random() % 3 == 0 ? random() % 2 : pick(random, 0, alphabet));
        if (round % 10 == 0) symbols.assign(symbols.size(), 1);
        Bytes inUse(256, 0);
        const size_t used = pick(random, 0, 256);
        for (size_t v = 0; v < used; ++v) inUse[v] = 1;
        const auto capacity = pick<int32_t>(random, 1, 2000);
        Guarded buffer(static_cast<size_t>(4 * capacity));
        Guarded out(static_cast<size_t>(capacity));
        int32_t length = capacity;
        const VekStatus status = veksDecodeBlock_BZ2_16u8u(
            symbols.data(), static_cast<int32_t>(symbols.size()), out.data(), &length,
            pick<int32_t>(random, 0, static_cast<size_t>(capacity) - 1), static_cast<int32_t>(used),
            inUse.data(), buffer.data());
        ASSERT_TRUE(status == vekStatusOk || status == vekStatusError);
        ASSERT_LE(length, capacity);
    }
}

TEST(Bzip2Sort, StatusesAndLenience) {
    Bytes inUse(256, 0);
    inUse['x'] = 1;
    Bytes buffer(400), out(100, '-');
    // Symbols that are four zeros, or none, and room; the room that is left in the length.
    const struct {
        int32_t count, length, index, dictSize;
        VekStatus status;
        int32_t written;
    } calls[] = {{2, 100, 3, 1, vekStatusOk, 4},
                 {2, 100, 3, 2, vekStatusOk, 100},
                 {2, 100, 4, 1, vekStatusError, 4},
                 {2, 4, 4, 1, vekStatusBadSize, 4},
                 {2, 1 << 24, 0, 1, vekStatusBadSize, 1 << 24},
                 {0, 10, 0, 1, vekStatusBadSize, 10},
                 {2, 10, 0, 257, vekStatusBadSize, 10}};
    const uint16_t symbols[] = {1, 0};
    for (const auto& c : calls) {
        int32_t length = c.length;
        EXPECT_EQ(veksDecodeBlock_BZ2_16u8u(symbols, c.count, out.data(), &length, c.index,
                                            c.dictSize, inUse.data(), buffer.data()),
                  c.status)
            << &c - calls;
        EXPECT_EQ(length, c.written) << &c - calls;
        EXPECT_TRUE(&c != calls || part(out, 0, 5) == Bytes({'x', 'x', 'x', 'x', '-'}));
    }
    for (const int32_t index : {-1, 4})
        EXPECT_EQ(veksBWTInv_8u(out.data(), out.data(), 4, index, buffer.data()), vekStatusBadSize);
    int32_t size = 10;
    for (const int32_t length : {1 << 24, -1})
        EXPECT_EQ(veksDecodeBlockGetSize_BZ2_8u(length, &size), vekStatusBadSize);
    EXPECT_EQ(size, 10);
}
