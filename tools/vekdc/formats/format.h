// What a container format is to the tool, and which ones there are.
//
// A format is one file: a class derived from Format and a function that returns its one instance,
// named in registry.cpp. Everything about files, names, progress and exit statuses is elsewhere.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vekdc/io/stream.h"

namespace vekdc {

using Print = std::function<void(const std::string&)>;

/// An option that one format alone understands, `--name VALUE`, or `--name` without a value.
struct FormatOption {
    const char* name;
    const char* valueName;  ///< Null for an option without a value.
    const char* help;
};

/// What a part of a file keeps of the file that it was made from.
struct Stored {
    std::string name;       ///< Empty: none.
    uint32_t modified = 0;  ///< 0: not known.
};

/// Levels as commands and tables number them: beside 1 to 9 that of --fastest and that of --best.
constexpr int kFastest = 0;
constexpr int kMaxLevel = 9;
constexpr int kBest = 10;

/// How to code; a format takes from it what it has a use for.
struct Settings {
    int level = 6;                           ///< 1 to kMaxLevel.
    bool best = false;                       ///< Smaller than level 9, where there is a way.
    bool fastest = false;                    ///< Faster than level 1.
    unsigned jobs = 1;                       ///< Threads, at least 1.
    std::string name;                        ///< Name to store; empty: none.
    uint32_t modified = 0;                   ///< Time stamp to store; 0: none.
    uint32_t mode = 0;                       ///< File type and permissions to store; 0: none.
    std::map<std::string, std::string> own;  ///< Given options of the format's own, by name.
    Print warn = [](const std::string&) {};  ///< Takes what is odd but no failure.
    /// Takes what is stored, where it is set, before the data that it belongs to is decoded.
    std::function<void(const Stored&)> stored;

    void setLevel(int number) {
        level = std::clamp(number, 1, kMaxLevel);
        best = number == kBest;
        fastest = number == kFastest;
    }
};

/// A file name suffix, and what replaces it when the file is decompressed (".tgz" to ".tar").
struct Suffix {
    std::string_view packed;
    std::string_view plain;
};

class Format {
 public:
    virtual ~Format() = default;
    virtual const char* name() const = 0;
    virtual const char* title() const = 0;
    /// The first one is appended when a file is compressed.
    virtual std::vector<Suffix> suffixes() const = 0;
    /// Whether a file that begins so (kMagicBytes, fewer when it is shorter) is of this format.
    virtual bool recognises(Bytes start) const = 0;
    virtual std::vector<FormatOption> options() const { return {}; }
    /// False for one that codes fields of numbers, and not without loss.
    virtual bool codesAnyBytes() const { return true; }

    /// Codes the source to its end.
    virtual void compress(Source& source, Sink& sink, const Settings& settings) const = 0;
    /// Decodes the source to its end, checking all that can be checked; throws FormatError.
    virtual void decompress(Source& source, Sink& sink, const Settings& settings) const = 0;
    /// Prints what the source holds, a line at a time.
    virtual void describe(Source& source, const Settings& settings, const Print& print) const = 0;
};

constexpr size_t kMagicBytes = 16;

/// All formats, the most telling magic numbers first.
const std::vector<const Format*>& formats();

/// By name, suffix or the name of the tool that is known for it, in any case; null when there is
/// none.
const Format* formatByName(std::string_view name);
/// The names of those that have an option, "lz4, lzo".
std::string formatsWith(std::string_view option);
/// By the suffix of a file's name, in any case, which `suffix` receives; null when there is none.
const Format* formatBySuffix(std::string_view path, Suffix* suffix = nullptr);
/// By a file's first bytes; null when there is none.
const Format* formatByStart(Bytes start);

/// Calls `readPart` for every part of a file of parts one behind the other, each as the format
/// recognises it. Zeros behind the last one are padding; warns of anything else there.
void readParts(const Format& format, Source& source, const Settings& settings,
               const std::function<void()>& readPart);

/// The last line of info on a file of several parts; `parts` is what the format calls them.
std::string totalText(uint64_t count, const char* parts, uint64_t packed, uint64_t plain);

/// Whether a name is more than a suffix and ends with it, in any case.
bool endsWith(std::string_view name, std::string_view suffix);
/// A number, as it is or with K, M, G, KiB, MiB or GiB behind it, in any case.
std::optional<uint64_t> numberFrom(std::string_view text);

/// A checksum or size as info prints it; a ratio with three decimals.
std::string hex32(uint32_t value);
std::string ratio(uint64_t plain, uint64_t packed);
/// Text from a file, made fit for a terminal: control characters become '?'.
std::string printable(std::string_view text);
/// A time stamp in UTC, "-" for 0.
std::string timeText(uint32_t seconds);

}  // namespace vekdc
