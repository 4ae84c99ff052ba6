// Formats measured in memory: sizes, and times both ways, of data that came back as it was.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/vekdc/formats/format.h"

namespace vekdc {

/// A format with settings, and what tables call them.
struct Way {
    const Format* format;
    std::string label;
    Settings settings;
};

struct Measured {
    std::string sample;
    std::string format;
    std::string label;
    uint64_t plain = 0;
    uint64_t packed = 0;
    double compressSeconds = 0;
    double decompressSeconds = 0;

    double share() const { return static_cast<double>(packed) / static_cast<double>(plain); }
    double compressRate() const { return static_cast<double>(plain) / 1e6 / compressSeconds; }
    double decompressRate() const { return static_cast<double>(plain) / 1e6 / decompressSeconds; }
};

inline const std::vector<int> kAllLevels = {kFastest, 1, 2, 3, 4, 5, 6, 7, 8, 9, kBest};

/// The levels of a format; of one that codes fields of numbers, some rates, unless the settings say
/// which. Of the settings it takes those options that it has.
std::vector<Way> waysOf(const Format& format, const std::vector<int>& levels,
                        const Settings& settings);

/// What a measurement came to: the row, the file made, and what was read back from it.
using Inspect = std::function<void(const Measured&, Bytes packed, Bytes back)>;

/// Measures each way in turn, for at least so many seconds both ways together, and takes the best
/// times. A way that makes the same file as the one before it has that one's times. Throws a
/// Failure where what comes back is not what went in.
std::vector<Measured> measure(const std::string& sample, Bytes plain, const std::vector<Way>& ways,
                              double seconds, const Inspect& inspect = {});

/// A file as a sample; one that is empty is left alone.
std::vector<uint8_t> contentOf(const std::string& path);

/// One row for each format and label, over all samples, in the order of their first ones.
std::vector<Measured> inTotal(const std::vector<Measured>& rows);

/// Rows one behind the other that are of the same files become one, "4-9".
std::vector<Measured> merged(const std::vector<Measured>& rows);

}  // namespace vekdc
