#include "tools/vekdc/app/work.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "codec/checksums.h"
#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

/// One file from start to end.
class FileWork {
 public:
    FileWork(const WorkOptions& options, const std::string& path)
        : options_(options),
          input_(checked(options, path)),
          progress_(options.quiet ? Progress::When::Never : options.progress,
                    printable(baseName(input_.name())), input_.size()),
          source_(input_) {
        input_.report(progress_);
    }

    ExitStatus run() {
        try {
            switch (options_.task) {
                case Task::Compress:
                    compress();
                    break;
                case Task::Decompress:
                    decompress();
                    break;
                case Task::Test:
                    test();
                    break;
                case Task::Info:
                    info();
                    break;
            }
        } catch (...) {
            progress_.clear();
            throw;
        }
        return warned_ ? kWarning : kSuccess;
    }

 private:
    Settings settings() {
        Settings settings = options_.settings;
        settings.warn = [this](const std::string& text) {
            warned_ = true;
            progress_.clear();
            if (!options_.quiet) complain(input_.name(), text);
        };
        return settings;
    }

    bool toStdout() const {
        return options_.toStdout || (options_.output.empty() && input_.isStdin());
    }

    std::unique_ptr<OutputFile> open(const std::string& path) {
        if (!toStdout()) return std::make_unique<OutputFile>(path, options_.force, input_);
        auto output = std::make_unique<OutputFile>();
        if (output->isSameAs(input_)) throw Failure("input and output are the same file");
        return output;
    }

    // What is no regular file has no coded form to stand beside it. Told before it is opened:
    // opening a pipe waits for its writer.
    static const std::string& checked(const WorkOptions& options, const std::string& path) {
        const bool writesBeside =
            (options.task == Task::Compress || options.task == Task::Decompress) &&
            !options.toStdout && options.output.empty() && path != kStdin;
        struct stat status {};
        if (writesBeside && stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) &&
            !S_ISDIR(status.st_mode))
            throw Failure("not a regular file; use --stdout or --output");
        return path;
    }

    void finish(OutputFile& output) {
        const bool remove = options_.remove && !input_.isStdin() && !toStdout() && !warned_;
        output.commit(remove);
        if (remove) removeFile(input_.path());
        progress_.clear();
        if (options_.verbose) report(output);
    }

    void report(const OutputFile& output) const {
        const double rate = static_cast<double>(std::max(source_.offset(), output.written())) /
                            std::max(progress_.seconds(), 1e-9);
        std::fprintf(stderr, "%s: %llu -> %llu bytes, %s/s\n", printable(input_.name()).c_str(),
                     static_cast<unsigned long long>(source_.offset()),
                     static_cast<unsigned long long>(output.written()),
                     sizeText(static_cast<uint64_t>(rate)).c_str());
    }

    void compress() {
        const Format* format = options_.format;
        if (format == nullptr && !options_.output.empty()) format = formatBySuffix(options_.output);
        if (format == nullptr) format = formatByName("gz");
        std::string path = options_.output;
        if (!toStdout() && path.empty()) {
            if (formatBySuffix(input_.path()) == format && !options_.force)
                throw Failure(
                    "already has a suffix of the format; use --force to compress it again");
            path = input_.path() + std::string(format->suffixes().front().packed);
        }
        const auto output = open(path);
        if (output->isTerminal() && !options_.force)
            throw Failure("compressed data is not written to a terminal; use --force to do it");
        Settings own = settings();
        if (options_.storeName && input_.isRegular() && !input_.isStdin()) {
            const auto time = input_.status().st_mtim.tv_sec;
            own.name = baseName(input_.path());
            own.modified = time > 0 && time <= std::numeric_limits<uint32_t>::max()
                               ? static_cast<uint32_t>(time)
                               : 0;
            own.mode = input_.status().st_mode;
        }
        format->compress(source_, *output, own);
        finish(*output);
    }

    const Format& recognise() {
        if (options_.format != nullptr) return *options_.format;
        const Bytes start = source_.peek(kMagicBytes);
        if (start.empty()) throw FormatError(0, "the file is empty");
        const Format* format = formatByStart(start.first(std::min(start.size(), kMagicBytes)));
        if (format == nullptr) throw FormatError(0, "not in any format that vekdc knows");
        return *format;
    }

    void decompress() {
        const Format& format = recognise();
        std::string path = options_.output;
        if (!toStdout() && path.empty()) {
            Suffix suffix;
            if (formatBySuffix(input_.path(), &suffix) == nullptr)
                throw Failure("unknown suffix; use --stdout or --output");
            path = input_.path();
            path.replace(path.size() - suffix.packed.size(), suffix.packed.size(), suffix.plain);
        }
        const auto output = open(path);
        try {
            format.decompress(source_, *output, settings());
        } catch (const FormatError&) {
            const bool keeps = options_.keepPartial && output->written() != 0;
            if (keeps || toStdout()) output->commit(false);
            throw;
        }
        finish(*output);
    }

    void test() {
        NullSink nowhere;
        recognise().decompress(source_, nowhere, settings());
        progress_.clear();
        if (options_.verbose) std::fprintf(stderr, "%s: good\n", printable(input_.name()).c_str());
    }

    void info() {
        const Format& format = recognise();
        bool first = true;
        format.describe(source_, settings(), [&](const std::string& line) {
            progress_.clear();
            if (first) std::printf("%s: %s\n", printable(input_.name()).c_str(), format.title());
            first = false;
            std::printf("%s\n", line.c_str());
        });
    }

    const WorkOptions& options_;
    InputFile input_;
    Progress progress_;
    Source source_;
    bool warned_ = false;
};

// Runs one step on one file, and turns every way to fail into a one-line message.
template <class Step>
ExitStatus guarded(const std::string& path, Step&& step) {
    const std::string name = path == kStdin ? "standard input" : path;
    try {
        return step();
    } catch (const FormatError& error) {
        complain(name, "byte " + std::to_string(error.offset) + ": " + error.what());
    } catch (const SystemFailure& error) {
        complain(error.path, error.what());
    } catch (const std::bad_alloc&) {
        complain(name, "out of memory");
    } catch (const std::exception& error) {
        complain(name, error.what());
    }
    return kFailure;
}

ExitStatus worse(ExitStatus a, ExitStatus b) {
    if (a == kFailure || b == kFailure) return kFailure;
    return a == kWarning || b == kWarning ? kWarning : kSuccess;
}

// A line of a check list. What would break it is escaped as in other tools' lists, which a
// backslash in front of the line says; a terminal is shown no control characters at all.
std::string listLine(const std::string& sum, const std::string& name) {
    std::string escaped;
    for (const char c : name) {
        const size_t special = std::string_view("\\\n\r").find(c);
        if (special == std::string_view::npos) {
            escaped += c;
        } else {
            escaped += {'\\', "\\nr"[special]};
        }
    }
    const std::string line = (escaped == name ? "" : "\\") + sum + "  " + escaped;
    return isatty(STDOUT_FILENO) != 0 ? printable(line) : line;
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

}  // namespace

void complain(const std::string& name, const std::string& text) {
    std::fflush(stdout);
    std::fprintf(stderr, "vekdc: %s: %s\n", printable(name).c_str(), text.c_str());
}

ExitStatus workOnFiles(const std::vector<std::string>& paths, const WorkOptions& options) {
    ExitStatus worst = kSuccess;
    for (const std::string& path : paths)
        worst = worse(worst, guarded(path, [&] { return FileWork(options, path).run(); }));
    return worst;
}

ExitStatus sumFiles(const std::vector<std::string>& paths, const std::string& algorithm) {
    const codec::Checksum& checksum = *codec::checksumByName(algorithm);
    ExitStatus worst = kSuccess;
    for (const std::string& path : paths) {
        worst = worse(worst, guarded(path, [&] {
                          const uint32_t value = sumFile(path, checksum);
                          std::printf("%s\n", listLine(hex32(value), path).c_str());
                          return kSuccess;
                      }));
    }
    return worst;
}

// Lines are "<hexadecimal value>  <name>"; each is "OK" or "FAILED", as other checksum tools say
// it.
ExitStatus checkSums(const std::vector<std::string>& lists, const std::string& algorithm,
                     bool quiet) {
    const codec::Checksum& checksum = *codec::checksumByName(algorithm);
    ExitStatus worst = kSuccess;
    const auto checkLine = [&](const std::string& line) {
        const size_t digits = line.find_first_not_of("0123456789abcdefABCDEF");
        if (digits != 8 || line.compare(digits, 2, "  ") != 0 || line.size() <= digits + 2)
            throw Failure("a line is not \"<checksum>  <name>\"");
        const auto expected =
            static_cast<uint32_t>(std::stoul(line.substr(0, digits), nullptr, 16));
        const std::string name = line.substr(digits + 2);
        worst =
            worse(worst, guarded(name, [&] {
                      const bool good = sumFile(name, checksum) == expected;
                      if (!good || !quiet)
                          std::printf("%s: %s\n", printable(name).c_str(), good ? "OK" : "FAILED");
                      return good ? kSuccess : kFailure;
                  }));
    };
    for (const std::string& list : lists) {
        worst = worse(worst, guarded(list, [&] {
                          InputFile input(list);
                          Source source(input);
                          std::string line;
                          while (!source.atEnd()) {
                              const auto c = static_cast<char>(source.byte());
                              if (c != '\n') line += c;
                              if ((c == '\n' || source.atEnd()) && !line.empty())
                                  checkLine(std::exchange(line, {}));
                          }
                          return kSuccess;
                      }));
    }
    return worst;
}

}  // namespace vekdc
