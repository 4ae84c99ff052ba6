#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "tools/vekdc/formats/format.h"
#include "tools/vekdc/formats/formats.h"

namespace vekdc {

const std::vector<const Format*>& formats() {
    static const std::vector<const Format*> all = {&bz2Format(), &gzFormat(),   &lz4Format(),
                                                   &lzoFormat(), &lzssFormat(), &zfpFormat(),
                                                   &zlibFormat()};
    return all;
}

const Format* formatByName(std::string_view name) {
    const auto& all = formats();
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const Format* format) { return name == format->name(); });
    return found == all.end() ? nullptr : *found;
}

const Format* formatBySuffix(std::string_view path, Suffix* suffix) {
    const std::string_view base = path.substr(path.rfind('/') + 1);
    for (const Format* format : formats()) {
        for (const Suffix& candidate : format->suffixes()) {
            if (base.size() > candidate.packed.size() && base.ends_with(candidate.packed)) {
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
