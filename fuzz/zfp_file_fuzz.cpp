// The tool's reader of zfp fields on hostile bytes: it ends in a FormatError or in a whole field,
// in pieces of any size and with any number of threads alike; and what it decoded codes again and
// comes back as large.
//
// The first byte chooses the pieces and the threads; the rest is the file.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <vector>

#include "fuzz/reader.h"

namespace {

using vekdc::Bytes;
using namespace vekfuzz;

/// A zero block takes a bit, so few bytes promise large fields; those are left out.
constexpr uint64_t kMostValues = 1 << 20;

const vekdc::Format& zfp() {
    return *vekdc::formatByName("zfp");
}

std::optional<Data> decode(vekdc::Source& source, unsigned jobs) {
    vekdc::MemorySink sink;
    vekdc::Settings settings;
    settings.jobs = jobs;
    try {
        zfp().decompress(source, sink, settings);
    } catch (const vekdc::FormatError&) {
        return std::nullopt;
    }
    return sink.data;
}

/// The sides that the file's header states.
std::vector<uint32_t> sidesOf(Bytes file) {
    std::vector<uint32_t> sides;
    for (unsigned bit = 36; bit < 84; bit += 16) {
        uint32_t side = 0;
        for (unsigned i = 0; i < 16; ++i)
            side |= static_cast<uint32_t>(file[(bit + i) / 8] >> (bit + i) % 8 & 1) << i;
        sides.push_back(side + 1);
    }
    return sides;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t headerBytes = 12;
    if (size <= headerBytes) return 0;
    const Bytes file(data + 1, size - 1);
    const std::vector<uint32_t> sides = sidesOf(file);
    if (uint64_t{sides[0]} * sides[1] * sides[2] > kMostValues) return 0;

    vekdc::Source whole(file);
    const auto field = decode(whole, 1);
    Dripping reader(file, 1 + (data[0] >> 1));
    vekdc::Source pieces(reader, 32 + data[0]);
    if (decode(pieces, data[0] % 16 == 0 ? 2 : 1) != field) abort();
    if (!field) return 0;
    if (field->size() != size_t{4} * sides[0] * sides[1] * sides[2]) abort();

    vekdc::Settings settings;
    settings.own["dims"] =
        std::to_string(sides[0]) + "x" + std::to_string(sides[1]) + "x" + std::to_string(sides[2]);
    if ((data[0] & 1) != 0) settings.own["rate"] = std::to_string(1 + data[0] / 8);
    vekdc::Source source(*field);
    vekdc::MemorySink packed;
    zfp().compress(source, packed, settings);
    vekdc::Source again(packed.data);
    const auto back = decode(again, 1);
    if (!back || back->size() != field->size()) abort();
    return 0;
}
