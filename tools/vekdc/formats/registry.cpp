#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "tools/vekdc/formats/format.h"
#include "tools/vekdc/formats/formats.h"

namespace vekdc {
namespace {

bool equalInAnyCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
        return std::tolower(x) == std::tolower(y);
    });
}

}  // namespace

const std::vector<const Format*>& formats() {
    static const std::vector<const Format*> all = {&bz2Format(), &gzFormat(),   &lz4Format(),
                                                   &lzoFormat(), &lzssFormat(), &zfpFormat(),
                                                   &zlibFormat()};
    return all;
}

const Format* formatByName(std::string_view name) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 3> others = {
        {{"gzip", "gz"}, {"bzip2", "bz2"}, {"lzop", "lzo"}}};
    if (name.starts_with('.')) name.remove_prefix(1);
    for (const auto& [other, own] : others)
        if (equalInAnyCase(name, other)) name = own;
    for (const Format* format : formats()) {
        if (equalInAnyCase(name, format->name())) return format;
        for (const Suffix& suffix : format->suffixes())
            if (equalInAnyCase(name, suffix.packed.substr(1))) return format;
    }
    return nullptr;
}

std::string formatsWith(std::string_view option) {
    std::string names;
    for (const Format* format : formats())
        for (const FormatOption& own : format->options())
            if (own.name == option)
                names += (names.empty() ? "" : ", ") + std::string(format->name());
    return names;
}

const Format* formatBySuffix(std::string_view path, Suffix* suffix) {
    const std::string_view base = path.substr(path.rfind('/') + 1);
    for (const Format* format : formats()) {
        for (const Suffix& candidate : format->suffixes()) {
            if (endsWith(base, candidate.packed)) {
                if (suffix != nullptr) *suffix = candidate;
                return format;
            }
        }
    }
    return nullptr;
}

const Format* formatByStart(Bytes start) {
    const auto& all = formats();
    const auto found = std::find_if(
        all.begin(), all.end(), [&](const Format* format) { return format->recognises(start); });
    return found == all.end() ? nullptr : *found;
}

void readParts(const Format& format, Source& source, const Settings& settings,
               const std::function<void()>& readPart) {
    for (;;) {
        readPart();
        source.skipZeros();
        if (source.atEnd()) return;
        if (!format.recognises(source.peek(kMagicBytes))) {
            settings.warn("byte " + std::to_string(source.offset()) +
                          ": ignored what follows the " + format.name() + " data");
            return;
        }
    }
}

std::string totalText(uint64_t count, const char* parts, uint64_t packed, uint64_t plain) {
    return "  " + std::to_string(count) + " " + parts + ", " + std::to_string(packed) + " -> " +
           std::to_string(plain) + " bytes, ratio " + ratio(plain, packed);
}

bool endsWith(std::string_view name, std::string_view suffix) {
    return name.size() > suffix.size() &&
           equalInAnyCase(name.substr(name.size() - suffix.size()), suffix);
}

std::optional<uint64_t> numberFrom(std::string_view text) {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) return {};
    std::string_view unit = text.substr(static_cast<size_t>(end - text.data()));
    if (unit.empty()) return value;
    constexpr std::string_view units = "kmg";
    const size_t power =
        units.find(static_cast<char>(std::tolower(static_cast<unsigned char>(unit[0]))));
    unit.remove_prefix(1);
    const size_t shift = 10 * (power + 1);
    if (power == std::string_view::npos || !(unit.empty() || equalInAnyCase(unit, "ib")) ||
        value > UINT64_MAX >> shift)
        return {};
    return value << shift;
}

std::string hex32(uint32_t value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%08x", static_cast<unsigned>(value));
    return text.data();
}

std::string ratio(uint64_t plain, uint64_t packed) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3f",
                  packed == 0 ? 0.0 : static_cast<double>(plain) / static_cast<double>(packed));
    return text.data();
}

std::string printable(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
    return out;
}

std::string timeText(uint32_t seconds) {
    if (seconds == 0) return "-";
    const time_t time = seconds;
    std::tm parts{};
    std::array<char, 32> text{};
    gmtime_r(&time, &parts);
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
    return text.data();
}

}  // namespace vekdc
