#include "tools/vekdc/app/chart.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <memory>
#include <set>

namespace vekdc {
namespace {

constexpr int kBar = 24;

std::string bar(double part, char mark) {
    const int length = static_cast<int>(std::lround(std::clamp(part, 0.0, 1.0) * kBar));
    return std::string(static_cast<size_t>(length), mark) +
           std::string(static_cast<size_t>(kBar - length), ' ');
}

struct Range {
    double least = INFINITY;
    double most = 0;
};

template <class Figure>
Range rangeOf(const std::vector<Measured>& rows, Figure&& figure) {
    Range range;
    for (const Measured& row : rows) {
        range.least = std::min(range.least, figure(row));
        range.most = std::max(range.most, figure(row));
    }
    return range;
}

// A sample's name as a field: quoted, as it may be a path with a comma.
std::string csvString(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) out += c == '"' ? "\"\"" : std::string(1, c);
    return out + "\"";
}

struct ClosePipe {
    void operator()(std::FILE* pipe) const { pclose(pipe); }
};

// What gnuplot takes as a string: paths have no newlines here, and a quote is doubled.
std::string gnuplotString(const std::string& text) {
    std::string out = "'";
    for (const char c : text) out += c == '\'' ? "''" : std::string(1, c);
    return out + "'";
}

}  // namespace

void printHead() {
    std::printf("%-16s %-6s %-9s %10s %7s %13s %13s\n", "sample", "format", "level", "bytes",
                "ratio", "compress", "decompress");
}

void printRow(const Measured& row, const std::string& note) {
    std::printf("%-16s %-6s %-9s %10" PRIu64 " %7s %8.0f MB/s %8.0f MB/s%s%s\n",
                printable(row.sample.substr(row.sample.rfind('/') + 1)).c_str(), row.format.c_str(),
                row.label.c_str(), row.packed, ratio(row.plain, row.packed).c_str(),
                row.compressRate(), row.decompressRate(), note.empty() ? "" : "   ", note.c_str());
    std::fflush(stdout);
}

void printCsv(const std::vector<Measured>& rows) {
    std::puts("file,format,level,bytes,compressed,ratio,compress_mb_per_s,decompress_mb_per_s");
    for (const Measured& row : rows)
        std::printf("%s,%s,%s,%" PRIu64 ",%" PRIu64 ",%.4f,%.2f,%.2f\n",
                    csvString(row.sample).c_str(), row.format.c_str(), row.label.c_str(), row.plain,
                    row.packed, 1 / row.share(), row.compressRate(), row.decompressRate());
}

void printChart(const std::vector<Measured>& rows) {
    const auto [slowest, fastest] =
        rangeOf(rows, [](const Measured& row) { return row.compressRate(); });
    // The slowest has a bar too.
    const double range = std::log2(fastest / slowest) + 1;
    std::printf("\n%-16s %-*s %-9s %-*s\n", "", kBar, "size, short is small", "", kBar,
                "compression, long is fast");
    for (const Measured& row : rows)
        std::printf("%-6s %-9s %s %6.1f %%  %s %6.0f MB/s\n", row.format.c_str(), row.label.c_str(),
                    bar(row.share(), '#').c_str(), 100 * row.share(),
                    bar((std::log2(row.compressRate() / slowest) + 1) / range, '=').c_str(),
                    row.compressRate());
}

void drawPlot(const std::vector<Measured>& rows, const std::string& path) {
    if (std::system("command -v gnuplot >/dev/null 2>&1") != 0)
        throw Failure("gnuplot, which draws it, is not installed");
    std::unique_ptr<std::FILE, ClosePipe> pipe(popen("gnuplot", "w"));
    if (pipe == nullptr) throw Failure("gnuplot does not start");
    const Range rates = rangeOf(rows, [](const Measured& row) { return row.compressRate(); });
    const Range ratios = rangeOf(rows, [](const Measured& row) { return 1 / row.share(); });
    std::fprintf(pipe.get(),
                 "set terminal %s size 960,640 noenhanced font 'sans,11'\nset output %s\n"
                 "set logscale x\nset xrange [%g:%g]\nset yrange [%g:%g]\n"
                 "set grid\nset key outside right\n"
                 "set xlabel 'compression, MB/s'\nset ylabel 'ratio'\n",
                 endsWith(path, ".png") ? "pngcairo" : "svg", gnuplotString(path).c_str(),
                 rates.least * 0.7, rates.most * 1.4, ratios.least * 0.9, ratios.most * 1.1);
    std::set<std::string> names;
    std::string plots;
    for (const Measured& first : rows) {
        if (!names.insert(first.format).second) continue;
        std::fprintf(pipe.get(), "$%s << EOD\n", first.format.c_str());
        for (const Measured& row : rows)
            if (row.format == first.format)
                std::fprintf(pipe.get(), "%.3f %.4f \"%s\"\n", row.compressRate(), 1 / row.share(),
                             row.label.c_str());
        std::fputs("EOD\n", pipe.get());
        const std::string data = "$" + first.format;
        const std::string colour = " lc " + std::to_string(names.size());
        plots.append(plots.empty() ? "plot " : ", ");
        plots.append(data).append(" using 1:2 with linespoints pt 7").append(colour);
        plots.append(" title '").append(first.format).append("', ");
        plots.append(data).append(" using 1:2:3 with labels offset 0,0.7 font ',8' notitle");
    }
    std::fprintf(pipe.get(), "%s\n", plots.c_str());
    if (pclose(pipe.release()) != 0) throw Failure("gnuplot could not draw it");
}

}  // namespace vekdc
