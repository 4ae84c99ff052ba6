// A name that would break its line is escaped: a newline becomes "\n", a carriage return "\r", a
// backslash "\\", and a backslash in front of the line says so.
#include "tools/vekdc/app/sum.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string_view>
#include <utility>

#include "codec/checksums.h"
#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

constexpr std::string_view kSpecial = "\\\n\r";
constexpr std::string_view kEscaped = "\\nr";

std::string escaped(const std::string& name) {
    std::string out;
    for (const char c : name) {
        const size_t special = kSpecial.find(c);
        if (special == std::string_view::npos) {
            out += c;
        } else {
            out += {'\\', kEscaped[special]};
        }
    }
    return out;
}

/// Empty where a backslash is not followed by one of the escapes.
std::string unescaped(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        const size_t escape = ++i == text.size() ? std::string_view::npos : kEscaped.find(text[i]);
        if (escape == std::string_view::npos) return {};
        out += kSpecial[escape];
    }
    return out;
}

template <int (*Change)(int)>
std::string inCase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(Change(c)); });
    return out;
}

uint32_t sumFile(const std::string& path, const codec::Checksum& checksum) {
    InputFile input(path);
    Source source(input);
    uint32_t value = checksum.initial;
    for (Bytes bytes = source.peek(); !bytes.empty(); bytes = source.peek()) {
        value = checksum.update(value, bytes);
        source.skip(bytes.size());
    }
    return checksum.finish(value);
}

// A terminal is shown no control characters at all.
std::string listLine(uint32_t value, const std::string& name, const SumOptions& options) {
    const std::string shown = escaped(name);
    const std::string line =
        (shown == name ? "" : "\\") + (options.tag ? inCase<std::toupper>(options.algorithm) +
                                                         " (" + shown + ") = " + hex32(value)
                                                   : hex32(value) + "  " + shown);
    return isatty(STDOUT_FILENO) != 0 ? printable(line) : line;
}

/// A line of a list.
struct Entry {
    const codec::Checksum* checksum;
    uint32_t value;
    std::string name;
};

std::optional<uint32_t> hexValue(std::string_view text) {
    constexpr size_t digits = 8;
    if (text.size() != digits ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos)
        return {};
    return static_cast<uint32_t>(std::stoul(std::string(text), nullptr, 16));
}

// A line is its value, a space, a space or the star of a file that was read as binary, and the
// name; or the algorithm, the name in parentheses, an equals sign and the value.
std::optional<Entry> parseLine(std::string_view line, const codec::Checksum* checksum) {
    constexpr std::string_view open = " (";
    constexpr std::string_view close = ") = ";
    const bool escapes = line.starts_with('\\');
    if (escapes) line.remove_prefix(1);
    std::string_view name;
    const size_t space = std::min(line.find(' '), line.size());
    std::optional<uint32_t> value = hexValue(line.substr(0, space));
    if (value) {
        const std::string_view rest = line.substr(space);
        if (rest.starts_with("  ") || rest.starts_with(" *")) name = rest.substr(2);
    } else {
        const size_t begin = line.find(open);
        const size_t end = line.rfind(close);
        if (end == std::string_view::npos || begin >= end) return {};
        checksum = codec::checksumByName(inCase<std::tolower>(line.substr(0, begin)));
        name = line.substr(begin + open.size(), end - begin - open.size());
        value = hexValue(line.substr(end + close.size()));
    }
    if (!value || checksum == nullptr || name.empty()) return {};
    Entry entry{checksum, *value, escapes ? unescaped(name) : std::string(name)};
    if (entry.name.empty()) return {};
    return entry;
}

ExitStatus checkEntry(const Entry& entry, bool quiet) {
    const bool good = sumFile(entry.name, *entry.checksum) == entry.value;
    if (!good || !quiet)
        std::printf("%s: %s\n", printable(entry.name).c_str(), good ? "OK" : "FAILED");
    return good ? kSuccess : kFailure;
}

template <class Use>
void forEachLine(Source& source, Use&& use) {
    std::string line;
    while (!source.atEnd()) {
        const auto c = static_cast<char>(source.byte());
        if (c != '\n') line += c;
        if (c != '\n' && !source.atEnd()) continue;
        if (line.ends_with('\r')) line.pop_back();
        if (!line.empty() && !line.starts_with('#')) use(line);
        line.clear();
    }
}

ExitStatus checkList(const std::string& list, const SumOptions& options) {
    const codec::Checksum* checksum = codec::checksumByName(options.algorithm);
    InputFile input(list);
    Source source(input);
    ExitStatus worst = kSuccess;
    size_t good = 0;
    size_t bad = 0;
    forEachLine(source, [&](const std::string& line) {
        const std::optional<Entry> entry = parseLine(line, checksum);
        ++(entry ? good : bad);
        if (entry)
            worst = worse(worst,
                          guarded(entry->name, [&] { return checkEntry(*entry, options.quiet); }));
    });
    if (good == 0) throw Failure("holds no line with a checksum and a name");
    if (bad == 0) return worst;
    complain(input.name(), bad == 1 ? "1 line is no checksum and name"
                                    : std::to_string(bad) + " lines are no checksum and name");
    return worse(worst, kWarning);
}

}  // namespace

ExitStatus sumFiles(const std::vector<std::string>& paths, const SumOptions& options) {
    const codec::Checksum& checksum = *codec::checksumByName(options.algorithm);
    ExitStatus worst = kSuccess;
    for (const std::string& path : paths) {
        worst = worse(worst, guarded(path, [&] {
                          const uint32_t value = sumFile(path, checksum);
                          std::printf("%s\n", listLine(value, path, options).c_str());
                          return kSuccess;
                      }));
    }
    return worst;
}

ExitStatus checkSums(const std::vector<std::string>& lists, const SumOptions& options) {
    ExitStatus worst = kSuccess;
    for (const std::string& list : lists)
        worst = worse(worst, guarded(list, [&] { return checkList(list, options); }));
    return worst;
}

}  // namespace vekdc
