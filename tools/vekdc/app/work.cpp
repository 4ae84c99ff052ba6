#include "tools/vekdc/app/work.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>
#include <utility>

#include "tools/vekdc/app/names.h"
#include "tools/vekdc/app/walk.h"
#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

/// One file from start to end.
class FileWork {
 public:
    FileWork(const WorkOptions& options, const Found& found)
        : options_(options),
          found_(found),
          input_(checkedInput(options, found.path)),
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
        if (options_.task == Task::Decompress && options_.sparse) output_->leaveHoles();
    }

    bool removes() const { return options_.remove && !input_.isStdin() && !toStdout() && !warned_; }

    void finish() {
        output_->commit(removes());
        if (removes()) removeFile(input_.path());
        progress_.clear();
        if (options_.verbose) report();
    }

    void report() const {
        const uint64_t written = before_ + output_->written();
        const double rate = static_cast<double>(std::max(source_.offset(), written)) /
                            std::max(progress_.seconds(), 1e-9);
        std::fprintf(stderr, "%s: %llu -> %llu bytes, %s/s\n", printable(input_.name()).c_str(),
                     static_cast<unsigned long long>(source_.offset()),
                     static_cast<unsigned long long>(written),
                     sizeText(static_cast<uint64_t>(rate)).c_str());
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

    void compress() {
        const Format& format = formatToWrite(options_);
        requireFitting(format);
        open(toStdout() ? "" : packedPath(options_, found_, format));
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

    void openPlain() { open(toStdout() ? "" : plainPath(options_, found_)); }

    // With --name each part that keeps a name begins an output of that name, in the folder that it
    // would go to without. Otherwise the second such part does, as in an archive of several files;
    // what came before gets its own name then.
    void beginPart(const Stored& stored) {
        const std::string name = baseName(stored.name);
        const bool named = !name.empty() && name != "." && name != "..";
        const bool first = parts_++ == 0;
        if (first) first_ = {named ? placedPath(options_, found_, name) : "", stored.modified};
        if (first && !options_.restoreName) return;
        if (!first && !named) return;
        if (!first) {
            if (!options_.restoreName) nameFirst();
            output_->commit(removes());
            before_ += output_->written();
        }
        if (named) {
            open(placedPath(options_, found_, name));
        } else {
            openPlain();
        }
        if (stored.modified != 0) output_->setModified(stored.modified);
    }

    void nameFirst() {
        const Stored first = std::exchange(first_, {});
        if (first.name.empty()) return;
        output_->renameTo(first.name, mayReplace(first.name));
        if (first.modified != 0) output_->setModified(first.modified);
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
            if (!work_.output_) work_.openPlain();
        }

     private:
        FileWork& work_;
    };

    void decompress() {
        ToOutput sink(*this);
        const bool named = !toStdout() && options_.output.empty();
        if (options_.force && toStdout() && recognised() == nullptr) {
            copy(sink);
            return;
        }
        const Format& format = recognise();
        Settings own = settings();
        if (named) own.stored = [this](const Stored& stored) { beginPart(stored); };
        if (!named || !options_.restoreName) sink.open();
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
    Found found_;
    InputFile input_;
    Progress progress_;
    Source source_;
    std::unique_ptr<OutputFile> output_;
    uint64_t parts_ = 0;   // That said what is stored of them.
    Stored first_;         // What the first part's output becomes if others follow, by its path.
    uint64_t before_ = 0;  // Bytes in outputs that are complete, of a file that makes several.
    bool warned_ = false;
};

}  // namespace

ExitStatus workOnFiles(const std::vector<std::string>& paths, const WorkOptions& options) {
    ExitStatus worst = kSuccess;
    for (const std::string& path : paths) {
        const auto work = [&](const Found& found) {
            if (!isMeant(options, found)) return kSuccess;
            return guarded(found.path, [&] { return FileWork(options, found).run(); });
        };
        worst = worse(worst, walk(pathMeant(options, path), options.recursive, work));
    }
    return worst;
}

}  // namespace vekdc
