// Test data made from seeds.
//
// Codecs have a path for each kind of redundancy: runs, short and long periods, repeats at the edge
// of a window, skewed symbols, none at all. Each shape brings out one of them in its pure form, and
// a few mix them as text, machine code and records do. std::mt19937 gives the same numbers
// everywhere; the standard's distributions need not, so nothing here may expect certain bytes.
#include "support/data.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace vektest {

size_t effort(size_t rounds) {
    static const size_t percent = [] {
        const char* text = std::getenv("VEK_TEST_EFFORT");
        return text != nullptr ? std::strtoul(text, nullptr, 10) : 100UL;
    }();
    return std::max<size_t>(1, rounds * percent / 100);
}

namespace {

uint8_t anyByte(Random& random) {
    return static_cast<uint8_t>(random());
}

/// Bytes from `next(random)`, one by one.
template <class Next>
Bytes drawn(size_t size, uint32_t seed, Next next) {
    Random random(seed);
    Bytes out(size);
    for (auto& b : out) b = static_cast<uint8_t>(next(random));
    return out;
}

/// Bytes that `append(out, random)` adds some at a time.
template <class Append>
Bytes grown(size_t size, uint32_t seed, Append append) {
    Random random(seed);
    Bytes out;
    while (out.size() < size) append(out, random);
    out.resize(size);
    return out;
}

void appendNumber(Bytes& out, uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

Bytes zeros(size_t size, uint32_t) {
    return Bytes(size, 0);
}

Bytes uniform(size_t size, uint32_t seed) {
    return drawn(size, seed, anyByte);
}

Bytes twoSymbols(size_t size, uint32_t seed) {
    return drawn(size, seed, [](Random& random) { return (random() & 1) != 0 ? 'a' : 'b'; });
}

Bytes skewed(size_t size, uint32_t seed) {
    std::geometric_distribution<int> length(0.2);
    return drawn(size, seed, [&](Random& random) { return std::min(length(random), 255); });
}

/// Words of a small vocabulary with common words more frequent, as in prose.
Bytes text(size_t size, uint32_t seed) {
    std::vector<std::string> words;
    std::geometric_distribution<size_t> rank(0.015);
    return grown(size, seed, [&](Bytes& out, Random& random) {
        if (words.empty()) {
            words.resize(600);
            for (auto& word : words)
                for (size_t n = pick(random, 1, 9); n != 0; --n)
                    word += "etaoinshrdlucmfw"[random() % 16];
        }
        const std::string& word = words[std::min(rank(random), words.size() - 1)];
        out.insert(out.end(), word.begin(), word.end());
        out.push_back(random() % 12 == 0 ? '\n' : ' ');
    });
}

/// Opcodes, small operands and addresses that differ in their low bytes.
Bytes machineCode(size_t size, uint32_t seed) {
    uint32_t address = 0x08048000;
    return grown(size, seed, [&](Bytes& out, Random& random) {
        constexpr std::array<uint8_t, 8> opcodes = {0x8B, 0x89, 0xE8, 0x0F, 0x83, 0x55, 0xC3, 0x74};
        out.push_back(opcodes[random() % opcodes.size()]);
        const bool isCall = out.back() == 0xE8;
        out.push_back(static_cast<uint8_t>(0x40 + random() % 24));
        if (isCall) appendNumber(out, address += pick<uint32_t>(random, 0, 4096));
    });
}

/// Fixed-length records with a counter, a few fields of few values, and some noise.
Bytes records(size_t size, uint32_t seed) {
    uint32_t key = seed;
    return grown(size, seed, [&](Bytes& out, Random& random) {
        appendNumber(out, key++);
        out.insert(out.end(), 9, static_cast<uint8_t>(random() % 5));
        for (int i = 0; i < 7; ++i) out.push_back("ABCD"[random() % 4]);
        for (int i = 0; i < 3; ++i) out.push_back(anyByte(random));
    });
}

Bytes periodic(size_t size, uint32_t seed, size_t period) {
    const Bytes unit = uniform(period, seed);
    Bytes out(size);
    for (size_t i = 0; i < size; ++i) out[i] = unit[i % period];
    return out;
}

Bytes shortPeriod(size_t size, uint32_t seed) {
    return periodic(size, seed, 2 + seed % 15);
}

Bytes longPeriod(size_t size, uint32_t seed) {
    return periodic(size, seed, 300 + seed % 700);
}

/// A random string that comes back at and around a distance of 32 KiB.
Bytes windowPeriod(size_t size, uint32_t seed) {
    return periodic(size, seed, 32766 + seed % 4);
}

Bytes fibonacci(size_t size, uint32_t) {
    Bytes a = {'b'}, b = {'a'};
    while (b.size() < size) a = std::exchange(b, b + a);
    b.resize(size);
    return b;
}

Bytes runs(size_t size, uint32_t seed) {
    return grown(size, seed, [](Bytes& out, Random& random) {
        const size_t length = random() % 4 == 0 ? pick(random, 1, 2000) : pick(random, 1, 6);
        out.insert(out.end(), length, anyByte(random));
    });
}

/// Noise with copies of earlier stretches at every distance.
Bytes farRepeats(size_t size, uint32_t seed) {
    return grown(size, seed, [&](Bytes& out, Random& random) {
        if (out.empty()) out = uniform(64, seed);
        if (random() % 3 == 0) {
            for (size_t n = pick(random, 1, 40); n != 0; --n) out.push_back(anyByte(random));
        } else {
            const size_t from = pick(random, 0, out.size() - 1);
            for (size_t n = pick(random, 3, 300), i = 0; i < n; ++i) out.push_back(out[from + i]);
        }
    });
}

Bytes sorted(size_t size, uint32_t seed) {
    Bytes out = uniform(size, seed);
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

const std::vector<Shape>& shapes() {
    // clang-format off
    static const std::vector<Shape> all = {
        {"zeros", zeros}, {"uniform", uniform}, {"twoSymbols", twoSymbols}, {"skewed", skewed},
        {"text", text}, {"machineCode", machineCode}, {"records", records},
        {"shortPeriod", shortPeriod}, {"longPeriod", longPeriod}, {"windowPeriod", windowPeriod},
        {"fibonacci", fibonacci}, {"runs", runs}, {"farRepeats", farRepeats}, {"sorted", sorted}};
    // clang-format on
    return all;
}

std::vector<Sample> everyShape(const std::vector<size_t>& sizes, uint32_t seed) {
    std::vector<Sample> all;
    for (const Shape& shape : shapes())
        for (const size_t size : sizes)
            all.push_back({shape.name + (" " + std::to_string(size)), shape.make(size, seed)});
    return all;
}

Bytes sample(size_t size, uint32_t seed) {
    Bytes all;
    for (const auto& shape : shapes()) all = all + shape.make(size / shapes().size() + 1, seed);
    all.resize(size);
    return all;
}

Bytes field(size_t count, uint32_t seed) {
    Random random(seed);
    Bytes bytes(count * sizeof(float));
    for (size_t i = 0; i < count; ++i) {
        const auto x = static_cast<float>(i);
        const float noise = static_cast<float>(random() % 2001) / 1e6F;
        const float wave = std::sin(x * 0.07F) * std::cos(x * 0.0013F) * 5 + noise;
        const float value = i % 997 > 700 ? 0 : wave;
        std::memcpy(&bytes[i * sizeof(value)], &value, sizeof(value));
    }
    return bytes;
}

}  // namespace vektest
