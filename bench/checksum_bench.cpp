// Checksums against zlib, libdeflate, and (CRC-32C) a plain loop of the CRC instruction.

#include <nmmintrin.h>

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

struct Contender {
    const char* name;
    Function function;
    bool sameResult = true;
};

struct Operation {
    const char* name;
    std::vector<Contender> contenders;
    const char* peer;
    double speed;       // goal over the peer
    double shortSpeed;  // the same for the shortest input; 0: none
};

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
         1.3,
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
         1.3,
         1.0},
        {"crc32c", {{"vekdc", ours<veksCRC32C_8u, 0>}, {"chain", chain}}, "chain", 2.5, 0},
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
         sizeof(Word) == 8 ? 0.6 : 1.0,
         sizeof(Word) == 8 ? 0.6 : 1.0},
    };
}

const std::vector<uint8_t>& data() {
    static const std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> b;
        while (b.size() < (4U << 20)) {
            for (const auto& input : vekbench::files()) {
                b.insert(b.end(), input.bytes.begin(), input.bytes.end());
            }
        }
        return b;
    }();
    return bytes;
}

}  // namespace

void registerBenchmarks() {
    struct Size {
        const char* name;
        size_t bytes;
    };
    const Size sizes[] = {{"4MiB", 4U << 20}, {"64KiB", 64U << 10}, {"64B", 64}};
    for (const auto& operation : operations()) {
        for (const auto& size : sizes) {
            const std::string name = std::string(operation.name) + "-" + size.name;
            const uint8_t* src = data().data();
            const uint32_t expected = operation.contenders[0].function(src, size.bytes);
            for (const auto& contender : operation.contenders) {
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
            if (speed != 0) vekbench::goal(name, operation.peer, speed);
        }
    }
}
