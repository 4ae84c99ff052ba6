// Checksums against zlib, libdeflate, (CRC-32C) a plain loop of the CRC instruction, and a loop
// that only reads the bytes, with the widest loads that the machine has: as fast as memory allows.

#include <immintrin.h>

#include <cstring>

#include "bench.h"
#include "vekdc.h"

#ifdef VEK_HAS_zlib
#include <zlib.h>
#endif
#ifdef VEK_HAS_libdeflate
#include <libdeflate.h>
#endif

namespace {

using Function = uint32_t (*)(const uint8_t* src, size_t len);

template <auto Update, uint32_t Start>
uint32_t ours(const uint8_t* src, size_t len) {
    uint32_t value = Start;
    Update(src, static_cast<int32_t>(len), &value);
    return value;
}

/// The word that one step of the chain takes.
using Word = size_t;

__attribute__((target("sse4.2"))) uint32_t chain(const uint8_t* src, size_t len) {
    uint32_t crc = 0;
    for (size_t i = 0; i < len; i += sizeof(Word)) {
        Word word = 0;
        std::memcpy(&word, src + i, sizeof(word));
#ifdef __x86_64__
        crc = static_cast<uint32_t>(_mm_crc32_u64(crc, word));
#else
        crc = _mm_crc32_u32(crc, word);
#endif
    }
    return crc;
}

/// Reads all of it and keeps next to nothing: four aligned vectors a turn, whose sum cannot be left
/// out. Lengths are multiples of what a turn reads.
template <class Vector>
[[gnu::always_inline]] inline uint32_t readAll(const uint8_t* src, size_t len) {
    const auto* const from = reinterpret_cast<const Vector*>(src);
    Vector a{};
    Vector b{};
    Vector c{};
    Vector d{};
    for (size_t i = 0; i < len / sizeof(Vector); i += 4) {
        a |= from[i];
        b |= from[i + 1];
        c |= from[i + 2];
        d |= from[i + 3];
    }
    return static_cast<uint32_t>(((a | b) | (c | d))[0]);
}

using Vector16 [[gnu::vector_size(16), gnu::may_alias]] = long long;
using Vector32 [[gnu::vector_size(32), gnu::may_alias]] = long long;
using Vector64 [[gnu::vector_size(64), gnu::may_alias]] = long long;

uint32_t read16(const uint8_t* src, size_t len) {
    return readAll<Vector16>(src, len);
}
__attribute__((target("avx2"))) uint32_t read32(const uint8_t* src, size_t len) {
    return readAll<Vector32>(src, len);
}
__attribute__((target("avx512f"))) uint32_t read64(const uint8_t* src, size_t len) {
    return readAll<Vector64>(src, len);
}

Function widestRead() {
    if (__builtin_cpu_supports("avx512f")) return read64;
    return __builtin_cpu_supports("avx2") ? read32 : read16;
}

struct Contender {
    const char* name;
    Function function;
    bool sameResult = true;
};

struct Operation {
    const char* name;
    std::vector<Contender> contenders;
    const char* peer;   // for short inputs; long ones are held against reading
    double read;        // goal over reading, at 64 KiB and more
    double speed;       // over the peer, at 1 KiB
    double shortSpeed;  // and at 64 bytes; 0: none
};

constexpr bool is64 = sizeof(Word) == 8;
constexpr double crcOverRead = is64 ? 0.6 : 0.55;
constexpr double adlerOverRead = is64 ? 0.8 : 0.4;
constexpr const char* memory = "memory read";

std::vector<Operation> operations() {
    return {
        {"crc32",
         {
             {"vekdc", ours<veksCRC32_8u, 0>},
#ifdef VEK_HAS_libdeflate
             {"libdeflate",
              [](const uint8_t* src, size_t len) { return libdeflate_crc32(0, src, len); }},
#endif
#ifdef VEK_HAS_zlib
             {"zlib",
              [](const uint8_t* src, size_t len) {
                  return static_cast<uint32_t>(crc32(0, src, static_cast<uInt>(len)));
              }},
#endif
         },
         "libdeflate",
         crcOverRead,
         2.5,
         1.0},
        // No library offers this CRC alone; peers' reflected CRC-32 stands for it.
        {"crc32bzip2",
         {
             {"vekdc", ours<veksCRC32_BZ2_8u, 0>},
#ifdef VEK_HAS_libdeflate
             {"libdeflate-crc32",
              [](const uint8_t* src, size_t len) { return libdeflate_crc32(0, src, len); }, false},
#endif
         },
         "libdeflate-crc32",
         crcOverRead,
         2.5,
         1.0},
        {"crc32c",
         {
             {"vekdc", ours<veksCRC32C_8u, 0>},
             {"chain", chain},
#ifdef VEK_HAS_libdeflate
             {"libdeflate-crc32",
              [](const uint8_t* src, size_t len) { return libdeflate_crc32(0, src, len); }, false},
#endif
         },
         "libdeflate-crc32",
         crcOverRead,
         2.5,
         1.0},
        {"adler32",
         {
             {"vekdc", ours<veksAdler32_8u, 1>},
#ifdef VEK_HAS_libdeflate
             {"libdeflate",
              [](const uint8_t* src, size_t len) { return libdeflate_adler32(1, src, len); }},
#endif
#ifdef VEK_HAS_zlib
             {"zlib",
              [](const uint8_t* src, size_t len) {
                  return static_cast<uint32_t>(adler32(1, src, static_cast<uInt>(len)));
              }},
#endif
         },
         "libdeflate",
         adlerOverRead,
         0,
         is64 ? 0.6 : 1.0},
    };
}

constexpr size_t alignment = 64;  // of the data, so that no vector straddles two lines

const uint8_t* data() {
    static const std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> b;
        while (b.size() < (4U << 20) + alignment) {
            for (const auto& input : vekbench::files()) {
                b.insert(b.end(), input.bytes.begin(), input.bytes.end());
            }
        }
        return b;
    }();
    return bytes.data() + (-reinterpret_cast<uintptr_t>(bytes.data()) & (alignment - 1));
}

}  // namespace

void registerBenchmarks() {
    struct Size {
        const char* name;
        size_t bytes;
    };
    const Size sizes[] = {
        {"4MiB", 4U << 20}, {"64KiB", 64U << 10}, {"1KiB", 1U << 10}, {"64B", 64}};
    for (Operation operation : operations()) {
        operation.contenders.push_back({memory, widestRead(), false});
        for (const auto& size : sizes) {
            const bool isLong = size.bytes > 1024;
            const std::string name = std::string(operation.name) + "-" + size.name;
            const uint8_t* src = data();
            const uint32_t expected = operation.contenders[0].function(src, size.bytes);
            for (const auto& contender : operation.contenders) {
                if (contender.name == memory && !isLong) continue;
                const Function function = contender.function;
                const size_t bytes = size.bytes;
                if (contender.sameResult && function(src, bytes) != expected) {
                    vekbench::fail(name + ": wrong checksum");
                }
                vekbench::add(name, "mixed", contender.name, bytes, [function, src, bytes] {
                    function(src, bytes);
                    return size_t{0};
                });
            }
            const double speed = size.bytes == 64 ? operation.shortSpeed : operation.speed;
            if (isLong) {
                vekbench::goal(name, memory, operation.read);
            } else if (speed != 0) {
                vekbench::goal(name, operation.peer, speed);
            }
        }
    }
}
