// CRC-32C by three streams of the CRC instruction, joined by carry-less multiplication.
//
// One chain of the instruction waits two cycles of three. Three registers run over three adjacent
// stretches of equal length; then the first two partial CRCs are moved over the bytes that follow
// them (multiplied by a power of x modulo the generator) and all three added (Gopal et al., "Fast
// CRC Computation for iSCSI Polynomial Using CRC32 Instruction", 2011). The instruction itself
// reduces the products: they are added to the last word of the third stretch before that word is
// fed.
//
// Long messages are first shortened by XOR (crc_sparse.h): that takes two thirds of the time on
// x86-64, and less than half on 32-bit x86, where the instruction takes only 4 bytes.

#include <wmmintrin.h>

#include "checksum/checksum.h"
#include "checksum/crc_instruction.h"
#include "checksum/crc_sparse.h"

namespace {

using vek::load;
using vek::checksum::stepWord;
using vek::checksum::Word;

/// Lengths of a stretch are counted in units of 8 bytes.
constexpr size_t unit = 8;
constexpr size_t maxUnits = 128;

/// Below this, the chain is done before three streams are joined.
constexpr size_t threeStreamsFrom = 144;

/// Multipliers that move a partial CRC over one and over two stretches of n units. The product of
/// two reflected 32-bit words stands one place low in 64 bits, and feeding it multiplies it by
/// x^32.
struct Shift {
    uint32_t over1;
    uint32_t over2;
};

constexpr std::array<Shift, maxUnits + 1> shiftTable = [] {
    std::array<Shift, maxUnits + 1> table = {};
    std::array<uint32_t, 2 * maxUnits + 1> powers = {};
    uint32_t power = vek::checksum::powerOfX(8 * unit - 33, vek::checksum::castagnoliPolynomial);
    for (size_t n = 1; n <= 2 * maxUnits; ++n) {
        powers[n] = static_cast<uint32_t>(vek::checksum::reflect(power, 32));
        for (size_t i = 0; i < 8 * unit; ++i) {
            power = vek::checksum::timesX(power, vek::checksum::castagnoliPolynomial);
        }
    }
    for (size_t n = 1; n <= maxUnits; ++n) table[n] = {powers[n], powers[2 * n]};
    return table;
}();

inline __m128i product(uint32_t crc, uint32_t multiplier) {
    return _mm_clmulepi64_si128(_mm_cvtsi32_si128(static_cast<int>(crc)),
                                _mm_cvtsi32_si128(static_cast<int>(multiplier)), 0x00);
}

/// Three adjacent stretches of `units` units each.
inline uint32_t stepThree(uint32_t crc, const uint8_t* src, size_t units) {
    const size_t stretch = units * unit;
    const uint8_t* const second = src + stretch;
    const uint8_t* const third = second + stretch;
    uint32_t crc2 = 0;
    uint32_t crc3 = 0;
    size_t i = 0;
    for (; i < stretch - unit; i += sizeof(Word)) {
        crc = stepWord(crc, load<Word>(src + i));
        crc2 = stepWord(crc2, load<Word>(second + i));
        crc3 = stepWord(crc3, load<Word>(third + i));
    }
    crc = vek::checksum::step64(crc, load<uint64_t>(src + i));
    crc2 = vek::checksum::step64(crc2, load<uint64_t>(second + i));
    const __m128i moved = _mm_xor_si128(product(crc, shiftTable[units].over2),
                                        product(crc2, shiftTable[units].over1));
    const __m128i last =
        _mm_xor_si128(moved, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(third + i)));
    uint64_t word = 0;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(&word), last);
    return vek::checksum::step64(crc3, word);
}

uint32_t stepStreams(const uint8_t* src, size_t len, uint32_t crc) {
    for (; len >= 3 * maxUnits * unit; src += 3 * maxUnits * unit, len -= 3 * maxUnits * unit) {
        crc = stepThree(crc, src, maxUnits);
    }
    if (len >= threeStreamsFrom) {
        const size_t units = len / (3 * unit);
        crc = stepThree(crc, src, units);
        src += 3 * units * unit;
        len -= 3 * units * unit;
    }
    return vek::checksum::stepChain(crc, src, len);
}

[[gnu::noinline]] uint32_t shortenAndStep(const uint8_t* src, size_t len, uint32_t crc) {
    return vek::checksum::shortenThen<vek::checksum::castagnoliMultiple>(
        crc, src, len, [](uint32_t reg, const uint8_t* piece, size_t size) {
            return stepStreams(piece, size, reg);
        });
}

constexpr size_t shortenFrom = 3 * vek::checksum::castagnoliMultiple.ringBytes();

}  // namespace

uint32_t ownscrc_plc_asm(const uint8_t* src, size_t len, uint32_t crc) {
    if (len < threeStreamsFrom) return vek::checksum::stepChain(crc, src, len);
    return len < shortenFrom ? stepStreams(src, len, crc) : shortenAndStep(src, len, crc);
}
