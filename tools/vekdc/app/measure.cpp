#include "tools/vekdc/app/measure.h"

#include <algorithm>
#include <chrono>

#include "tools/vekdc/app/status.h"
#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

template <class Call>
double secondsOf(Call&& call) {
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Keeps the shortest of several times.
void keepBest(double& best, double seconds) {
    if (best == 0 || seconds < best) best = seconds;
}

double compress(const Way& way, Bytes plain, MemorySink& packed) {
    packed.data.clear();
    return secondsOf([&] {
        Source source(plain);
        way.format->compress(source, packed, way.settings);
    });
}

double decompress(const Way& way, Bytes packed, MemorySink& back) {
    back.data.clear();
    return secondsOf([&] {
        Source source(packed);
        way.format->decompress(source, back, way.settings);
    });
}

void requireSame(const Way& way, Bytes plain, Bytes back) {
    const bool same = way.format->codesAnyBytes()
                          ? std::equal(plain.begin(), plain.end(), back.begin(), back.end())
                          : plain.size() == back.size();
    if (!same)
        throw Failure(std::string(way.format->name()) + " " + way.label + ": came back different");
}

Settings settingsFor(const Format& format, const Settings& settings) {
    Settings own = settings;
    std::erase_if(own.own, [&](const auto& given) {
        const std::vector<FormatOption> options = format.options();
        return std::none_of(options.begin(), options.end(),
                            [&](const FormatOption& option) { return option.name == given.first; });
    });
    return own;
}

}  // namespace

std::vector<Way> waysOf(const Format& format, const std::vector<int>& levels,
                        const Settings& settings) {
    const Settings base = settingsFor(format, settings);
    std::vector<Way> ways;
    if (format.codesAnyBytes()) {
        for (const int level : levels) {
            const std::string label = level == kFastest ? "fastest"
                                      : level == kBest  ? "best"
                                                        : std::to_string(level);
            ways.push_back({&format, label, base});
            ways.back().settings.setLevel(level);
        }
    } else if (base.own.size() > 1) {
        ways.push_back({&format, "given", base});
    } else {
        for (const char* rate : {"16", "8", "4"}) {
            ways.push_back({&format, "rate " + std::string(rate), base});
            ways.back().settings.own["rate"] = rate;
        }
    }
    return ways;
}

std::vector<Measured> measure(const std::string& sample, Bytes plain, const std::vector<Way>& ways,
                              double seconds, const Inspect& inspect) {
    std::vector<Measured> rows;
    std::vector<uint8_t> last;
    for (const Way& way : ways) {
        Measured row{sample, way.format->name(), way.label, plain.size()};
        MemorySink packed;
        MemorySink back;
        row.compressSeconds = compress(way, plain, packed);
        if (!rows.empty() && rows.back().format == row.format && packed.data == last) {
            row = rows.back();
            row.label = way.label;
            rows.push_back(std::move(row));
            continue;
        }
        row.packed = packed.data.size();
        back.data.reserve(plain.size());
        row.decompressSeconds = decompress(way, packed.data, back);
        requireSame(way, plain, back.data);
        if (inspect) inspect(row, packed.data, back.data);
        for (double spent = row.compressSeconds + row.decompressSeconds; spent < seconds;) {
            const double in = compress(way, plain, packed);
            const double out = decompress(way, packed.data, back);
            keepBest(row.compressSeconds, in);
            keepBest(row.decompressSeconds, out);
            spent += in + out;
        }
        last = std::move(packed.data);
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<uint8_t> contentOf(const std::string& path) {
    InputFile file(path);
    std::vector<uint8_t> content;
    content.reserve(static_cast<size_t>(file.size()));
    std::vector<uint8_t> piece(Source::kRoom);
    while (const size_t count = file.read(piece.data(), piece.size()))
        content.insert(content.end(), piece.begin(), piece.begin() + static_cast<ptrdiff_t>(count));
    if (content.empty()) throw LeftAlone("there is nothing to measure in an empty file");
    return content;
}

std::vector<Measured> inTotal(const std::vector<Measured>& rows) {
    std::vector<Measured> totals;
    for (const Measured& row : rows) {
        auto total = std::find_if(totals.begin(), totals.end(), [&](const Measured& other) {
            return other.format == row.format && other.label == row.label;
        });
        if (total == totals.end()) total = totals.insert(totals.end(), {"", row.format, row.label});
        total->plain += row.plain;
        total->packed += row.packed;
        total->compressSeconds += row.compressSeconds;
        total->decompressSeconds += row.decompressSeconds;
    }
    return totals;
}

std::vector<Measured> merged(const std::vector<Measured>& rows) {
    std::vector<Measured> out;
    for (const Measured& row : rows) {
        if (out.empty() || out.back().format != row.format || out.back().packed != row.packed ||
            out.back().compressSeconds != row.compressSeconds) {
            out.push_back(row);
        } else {
            std::string& label = out.back().label;
            label = label.substr(0, label.find('-')) + "-" + row.label;
        }
    }
    return out;
}

}  // namespace vekdc
