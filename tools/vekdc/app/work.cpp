#include "tools/vekdc/app/work.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>

#include "tools/vekdc/app/walk.h"
#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

/// One file from start to end.
class FileWork {
 public:
    FileWork(const WorkOptions& options, const Found& found)
        : options_(options),
          place_(found.below),
          input_(checked(options, found.path)),
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

    // Whether the output's name comes of the input's.
    static bool writesBeside(const WorkOptions& options, const std::string& path) {
        return (options.task == Task::Compress || options.task == Task::Decompress) &&
               !options.toStdout && options.output.empty() && path != kStdin;
    }

    // What is no regular file has no coded form to stand beside it. Told before it is opened:
    // opening a pipe waits for its writer. A link, and a file of several names, would not be what
    // they were.
    static const std::string& checked(const WorkOptions& options, const std::string& path) {
        struct stat status {};
        if (!writesBeside(options, path) || lstat(path.c_str(), &status) != 0) return path;
        if (!options.force && S_ISLNK(status.st_mode)) throw SystemFailure(path, ELOOP);
        if (S_ISLNK(status.st_mode)) stat(path.c_str(), &status);
        if (S_ISDIR(status.st_mode)) return path;
        if (!S_ISREG(status.st_mode)) throw Failure("not a regular file; use --stdout or --output");
        if (!options.force && status.st_nlink > 1)
            throw LeftAlone(options.quiet
                                ? ""
                                : "left alone, as it has " + std::to_string(status.st_nlink - 1) +
                                      " other name(s); use --force to do it");
        return path;
    }

    // Asks about a file that is in the way, where there is someone to ask.
    bool mayReplace(const std::string& path) const {
        struct stat existing {};
        if (options_.force || input_.isStdin() || isatty(STDIN_FILENO) == 0 ||
            isatty(STDERR_FILENO) == 0 || stat(path.c_str(), &existing) != 0 ||
            !S_ISREG(existing.st_mode))
            return options_.force;
        std::fprintf(stderr, "vekdc: %s exists; replace it (y or n)? ", printable(path).c_str());
        const int answer = std::getchar();
        for (int c = answer; c != '\n' && c != EOF;) c = std::getchar();
        return answer == 'y' || answer == 'Y';
    }

    void open(const std::string& path) {
        if (toStdout()) {
            output_ = std::make_unique<OutputFile>();
            if (output_->isSameAs(input_)) throw Failure("input and output are the same file");
            return;
        }
        output_ = std::make_unique<OutputFile>(path, mayReplace(path), input_);
        if (options_.task == Task::Decompress) output_->leaveHoles();
    }

    // Where an output goes that is to have this name.
    std::string placed(const std::string& name) const {
        namespace fs = std::filesystem;
        if (options_.outputFolder.empty()) return fs::path(input_.path()).replace_filename(name);
        const fs::path folder = fs::path(options_.outputFolder) / fs::path(place_).parent_path();
        std::error_code error;
        fs::create_directories(folder, error);
        if (error) throw SystemFailure(folder, error.value());
        return folder / name;
    }

    bool removes() const { return options_.remove && !input_.isStdin() && !toStdout() && !warned_; }

    void finish() {
        output_->commit(removes());
        if (removes()) removeFile(input_.path());
        progress_.clear();
        if (options_.verbose) report(*output_);
    }

    void report(const OutputFile& output) const {
        const double rate = static_cast<double>(std::max(source_.offset(), output.written())) /
                            std::max(progress_.seconds(), 1e-9);
        std::fprintf(stderr, "%s: %llu -> %llu bytes, %s/s\n", printable(input_.name()).c_str(),
                     static_cast<unsigned long long>(source_.offset()),
                     static_cast<unsigned long long>(output.written()),
                     sizeText(static_cast<uint64_t>(rate)).c_str());
    }

    const Format& formatToWrite() const {
        const Format* format = options_.format;
        if (!options_.formatGiven && !options_.output.empty()) {
            const Format* named = formatBySuffix(options_.output);
            if (format != nullptr && named != nullptr && named != format)
                throw Failure("the output's suffix is that of " + std::string(named->name()) +
                              "; use --format to say which format is meant");
            if (named != nullptr) format = named;
        }
        return format == nullptr ? *formatByName("gz") : *format;
    }

    void requireFitting(const Format& format) const {
        for (const auto& [key, value] : options_.settings.own) {
            const auto own = format.options();
            if (std::none_of(own.begin(), own.end(),
                             [&, &key = key](const auto& option) { return key == option.name; }))
                throw Failure("--" + key + " is an option of " + formatsWith(key) + ", not of " +
                              format.name());
        }
    }

    std::string packedPath(const Format& format) const {
        if (toStdout() || !options_.output.empty()) return options_.output;
        const std::string suffix = options_.suffix.empty()
                                       ? std::string(format.suffixes().front().packed)
                                       : options_.suffix;
        const bool has = options_.suffix.empty() ? formatBySuffix(input_.path()) == &format
                                                 : endsWith(input_.path(), suffix);
        if (has && !options_.force)
            throw Failure("already has a suffix of the format; use --force to compress it again");
        return placed(baseName(input_.path()) + suffix);
    }

    void compress() {
        const Format& format = formatToWrite();
        requireFitting(format);
        open(packedPath(format));
        if (output_->isTerminal() && !options_.force)
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
        format.compress(source_, *output_, own);
        finish();
    }

    /// Null for what no format recognises.
    const Format* recognised() {
        if (input_.isTerminal() && !options_.force)
            throw Failure("compressed data is not read from a terminal; use --force to do it");
        if (options_.format != nullptr && options_.formatGiven) return options_.format;
        const Bytes start = source_.peek(kMagicBytes);
        return formatByStart(start.first(std::min(start.size(), kMagicBytes)));
    }

    const Format& recognise() {
        const Format* format = recognised();
        if (format == nullptr && source_.atEnd()) throw FormatError(0, "the file is empty");
        if (format == nullptr) throw FormatError(0, "not in any format that vekdc knows");
        requireFitting(*format);
        return *format;
    }

    std::string plainPath() const {
        if (toStdout() || !options_.output.empty()) return options_.output;
        Suffix suffix{options_.suffix, ""};
        const bool known = options_.suffix.empty()
                               ? formatBySuffix(input_.path(), &suffix) != nullptr
                               : endsWith(input_.path(), options_.suffix);
        if (!known) throw Failure("unknown suffix; use --stdout or --output");
        std::string name = baseName(input_.path());
        name.replace(name.size() - suffix.packed.size(), suffix.packed.size(), suffix.plain);
        return placed(name);
    }

    // A part that keeps a name begins an output of that name; it stays in the folder that it would
    // go to without.
    void restore(const Stored& stored) {
        const std::string name = baseName(stored.name);
        const bool named = !name.empty() && name != "." && name != "..";
        if (output_ && !named) return;
        if (output_) output_->commit(removes());
        open(named ? placed(name) : plainPath());
        if (stored.modified != 0) output_->setModified(stored.modified);
    }

    // Writes to the output that is open, or opens it.
    class ToOutput : public Sink {
     public:
        explicit ToOutput(FileWork& work) : work_(work) {}
        void write(Bytes bytes) override {
            open();
            work_.output_->write(bytes);
        }
        void open() {
            if (!work_.output_) work_.open(work_.plainPath());
        }

     private:
        FileWork& work_;
    };

    void decompress() {
        ToOutput sink(*this);
        const bool restores = options_.restoreName && !toStdout() && options_.output.empty();
        if (options_.force && toStdout() && recognised() == nullptr) {
            copy(sink);
            return;
        }
        const Format& format = recognise();
        Settings own = settings();
        if (restores) {
            own.stored = [this](const Stored& stored) { restore(stored); };
        } else {
            sink.open();
        }
        try {
            format.decompress(source_, sink, own);
        } catch (const FormatError&) {
            const bool keeps = options_.keepPartial && output_ && output_->written() != 0;
            if (keeps || toStdout()) output_->commit(false);
            throw;
        }
        sink.open();
        finish();
    }

    // What is not compressed passes as it is.
    void copy(ToOutput& sink) {
        sink.open();
        for (Bytes bytes = source_.peek(); !bytes.empty(); bytes = source_.peek()) {
            sink.write(bytes);
            source_.skip(bytes.size());
        }
        finish();
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
    std::string place_;  // Below an output folder.
    InputFile input_;
    Progress progress_;
    Source source_;
    std::unique_ptr<OutputFile> output_;
    bool warned_ = false;
};

// What lies below a folder and is not meant: what is coded already, and what is not.
bool isMeant(const Found& found, const WorkOptions& options) {
    if (!found.walked || options.force) return true;
    const bool coded = options.suffix.empty() ? formatBySuffix(found.path) != nullptr
                                              : endsWith(found.path, options.suffix);
    return coded != (options.task == Task::Compress);
}

}  // namespace

ExitStatus workOnFiles(const std::vector<std::string>& paths, const WorkOptions& options) {
    ExitStatus worst = kSuccess;
    for (const std::string& path : paths) {
        const ExitStatus status = walk(path, options.recursive, [&](const Found& found) {
            if (!isMeant(found, options)) return kSuccess;
            return guarded(found.path, [&] { return FileWork(options, found).run(); });
        });
        worst = worse(worst, status);
    }
    return worst;
}

}  // namespace vekdc
