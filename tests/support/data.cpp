// Test data made from seeds.
//
// Codecs have a path for each kind of redundancy: runs, short and long periods, repeats at the edge
// of a window, skewed symbols, none at all. Each shape brings out one of them in its pure form, and
// a few mix them as text, machine code and records do. std::mt19937 gives the same numbers
// everywhere; the standard's distributions need not, so nothing here may expect certain bytes.
#include "support/data.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>

namespace vektest {

size_t pick(Random& random, size_t low, size_t high) {
    return std::uniform_int_distribution<size_t>(low, high)(random);
}

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

Bytes zeros(size_t size, uint32_t) {
    return Bytes(size, 0);
}

Bytes uniform(size_t size, uint32_t seed) {
    Random random(seed);
    Bytes out(size);
    for (auto& b : out) b = anyByte(random);
    return out;
}

Bytes twoSymbols(size_t size, uint32_t seed) {
    Random random(seed);
    Bytes out(size);
    for (auto& b : out) b = (random() & 1) != 0 ? 'a' : 'b';
    return out;
}

Bytes skewed(size_t size, uint32_t seed) {
    Random random(seed);
    std::geometric_distribution<int> length(0.2);
    Bytes out(size);
    for (auto& b : out) b = static_cast<uint8_t>(std::min(length(random), 255));
    return out;
}

/// Words of a small vocabulary with common words more frequent, as in prose.
Bytes text(size_t size, uint32_t seed) {
    Random random(seed);
    std::vector<std::string> words(600);
    for (auto& word : words) {
        for (size_t n = pick(random, 1, 9); n != 0; --n) word += "etaoinshrdlucmfw"[random() % 16];
    }
    std::geometric_distribution<size_t> rank(0.015);
    Bytes out;
    while (out.size() < size) {
        const std::string& word = words[std::min(rank(random), words.size() - 1)];
        out.insert(out.end(), word.begin(), word.end());
        out.push_back(random() % 12 == 0 ? '\n' : ' ');
    }
    out.resize(size);
    return out;
}

/// Opcodes, small operands and addresses that differ in their low bytes.
Bytes machineCode(size_t size, uint32_t seed) {
    Random random(seed);
    constexpr std::array<uint8_t, 8> opcodes = {0x8B, 0x89, 0xE8, 0x0F, 0x83, 0x55, 0xC3, 0x74};
    Bytes out;
    uint32_t address = 0x08048000;
    while (out.size() < size) {
        const uint8_t opcode = opcodes[random() % opcodes.size()];
        out.push_back(opcode);
        out.push_back(static_cast<uint8_t>(0x40 + random() % 24));
        if (opcode == 0xE8) {
            address += static_cast<uint32_t>(pick(random, 0, 4096));
            for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(address >> (8 * i)));
        }
    }
    out.resize(size);
    return out;
}

/// Fixed-length records with a counter, a few fields of few values, and some noise.
Bytes records(size_t size, uint32_t seed) {
    Random random(seed);
    Bytes out;
    for (uint32_t key = seed; out.size() < size; ++key) {
        for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(key >> (8 * i)));
        out.insert(out.end(), 9, static_cast<uint8_t>(random() % 5));
        for (int i = 0; i < 7; ++i) out.push_back("ABCD"[random() % 4]);
        for (int i = 0; i < 3; ++i) out.push_back(anyByte(random));
    }
    out.resize(size);
    return out;
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
    Bytes a = {'b'};
    Bytes b = {'a'};
    while (b.size() < size) {
        Bytes next = b;
        next.insert(next.end(), a.begin(), a.end());
        a = std::move(b);
        b = std::move(next);
    }
    b.resize(size);
    return b;
}

Bytes runs(size_t size, uint32_t seed) {
    Random random(seed);
    Bytes out;
    while (out.size() < size) {
        const size_t length = random() % 4 == 0 ? pick(random, 1, 2000) : pick(random, 1, 6);
        out.insert(out.end(), length, anyByte(random));
    }
    out.resize(size);
    return out;
}

/// Noise with copies of earlier stretches at every distance.
Bytes farRepeats(size_t size, uint32_t seed) {
    Random random(seed);
    Bytes out = uniform(std::min<size_t>(size, 64), seed);
    while (out.size() < size) {
        if (random() % 3 == 0) {
            for (size_t n = pick(random, 1, 40); n != 0; --n) out.push_back(anyByte(random));
        } else {
            const size_t from = pick(random, 0, out.size() - 1);
            for (size_t n = pick(random, 3, 300), i = 0; i < n; ++i) out.push_back(out[from + i]);
        }
    }
    out.resize(size);
    return out;
}

Bytes sorted(size_t size, uint32_t seed) {
    Bytes out = uniform(size, seed);
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

const std::vector<Shape>& shapes() {
    static const std::vector<Shape> all = {
        {"zeros", zeros},
        {"uniform", uniform},
        {"twoSymbols", twoSymbols},
        {"skewed", skewed},
        {"text", text},
        {"machineCode", machineCode},
        {"records", records},
        {"shortPeriod", shortPeriod},
        {"longPeriod", longPeriod},
        {"windowPeriod", windowPeriod},
        {"fibonacci", fibonacci},
        {"runs", runs},
        {"farRepeats", farRepeats},
        {"sorted", sorted},
    };
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

}  // namespace vektest
