#include "tools/vekdc/app/bench.h"

#include <filesystem>

#include "tools/vekdc/app/chart.h"
#include "tools/vekdc/app/measure.h"
#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

// Short files are done again and again for so long, since one time alone says little.
constexpr double kSecondsEach = 0.2;

// Formats of fields are measured where their sides are given.
std::vector<const Format*> formatsFor(const BenchOptions& options) {
    if (options.format != nullptr) return {options.format};
    std::vector<const Format*> chosen;
    for (const Format* format : formats())
        if (format->codesAnyBytes() || options.settings.own.contains("dims"))
            chosen.push_back(format);
    return chosen;
}

}  // namespace

ExitStatus benchFiles(const std::vector<std::string>& paths, const BenchOptions& options) {
    if (!options.plot.empty() && !options.force && std::filesystem::exists(options.plot))
        throw Failure(options.plot + ": exists already (--force replaces it)");
    ExitStatus worst = kSuccess;
    std::vector<Measured> rows;
    if (!options.csv) printHead();
    for (const std::string& path : paths) {
        worst = worse(
            worst, guarded(path, [&] {
                const std::vector<uint8_t> content = contentOf(path);
                for (const Format* format : formatsFor(options)) {
                    const std::vector<Way> ways = waysOf(*format, kAllLevels, options.settings);
                    const std::vector<Measured> own = measure(path, content, ways, kSecondsEach);
                    if (!options.csv)
                        for (const Measured& row : merged(own)) printRow(row);
                    rows.insert(rows.end(), own.begin(), own.end());
                }
                return kSuccess;
            }));
    }
    if (rows.empty()) return worst;
    if (options.csv) {
        printCsv(rows);
    } else {
        printChart(merged(inTotal(rows)));
    }
    if (!options.plot.empty()) drawPlot(merged(inTotal(rows)), options.plot);
    return worst;
}

}  // namespace vekdc
