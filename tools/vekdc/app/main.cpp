// The command line: subcommands, options, exit status.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>

#include "tools/vekdc/app/work.h"
#include "tools/vekdc/io/files.h"
#include "vekdc.h"

namespace {

using vekdc::ExitStatus;
using vekdc::Task;
using vekdc::WorkOptions;

constexpr unsigned kMaxJobs = 256;

struct CommandLine {
    WorkOptions work;
    std::vector<std::string> paths;
    std::vector<int> levels;  // As given; the last one holds.
    std::string format;
    std::string algorithm = "crc32";
    bool check = false;
    bool noName = false;
    bool progress = false;
    bool keep = false;
};

std::string formatNames() {
    std::string names;
    for (const vekdc::Format* format : vekdc::formats())
        names += (names.empty() ? "" : ", ") + std::string(format->name());
    return names;
}

CLI::App* addFileCommand(CLI::App& app, CommandLine& line, const char* name, const char* help) {
    CLI::App* command = app.add_subcommand(name, help);
    command->add_option("FILE", line.paths, "Files; - or none: standard input");
    command->add_option("--format", line.format, "Format of the data: " + formatNames());
    command
        ->add_option("-j,--jobs", line.work.settings.jobs,
                     "Threads for each file; 0: one a processor")
        ->check(CLI::Range(0U, kMaxJobs));
    command->add_flag("-q,--quiet", line.work.quiet, "No progress, no warnings");
    command->add_flag("-v,--verbose", line.work.verbose, "Say what was done with each file");
    command->add_flag("--progress", line.progress, "Show progress even where there is no terminal");
    return command;
}

void addWritingOptions(CLI::App& command, CommandLine& line) {
    WorkOptions& work = line.work;
    command.add_flag("-f,--force", work.force, "Replace existing files, write to terminals");
    auto* toStdout = command.add_flag("-c,--stdout", work.toStdout, "Write to standard output");
    command.add_option("-o,--output", work.output, "Write to this file")->excludes(toStdout);
    auto* keep = command.add_flag("-k,--keep", line.keep, "Keep the input files (the default)");
    command.add_flag("--remove", work.remove, "Remove each input file once its output is complete")
        ->excludes(keep);
}

/// The formats that have an option, "lz4, lzo".
std::string formatsWith(const std::string& option) {
    std::string names;
    for (const vekdc::Format* format : vekdc::formats())
        for (const vekdc::FormatOption& own : format->options())
            if (own.name == option)
                names += (names.empty() ? "" : ", ") + std::string(format->name());
    return names;
}

// Options that not all formats have.
void addFormatOptions(CLI::App& command, CommandLine& line) {
    for (const vekdc::Format* format : vekdc::formats()) {
        for (const vekdc::FormatOption& option : format->options()) {
            const std::string key = option.name;
            const std::string flag = "--" + key;
            const std::string help = formatsWith(key) + ": " + option.help;
            if (command.get_option_no_throw(flag) != nullptr) continue;
            if (option.valueName == nullptr) {
                command.add_flag_callback(
                    flag, [&line, key] { line.work.settings.own[key] = ""; }, help);
            } else {
                command
                    .add_option_function<std::string>(
                        flag,
                        [&line, key](const std::string& value) {
                            line.work.settings.own[key] = value;
                        },
                        help)
                    ->type_name(option.valueName);
            }
        }
    }
}

void addCommands(CLI::App& app, CommandLine& line, std::function<ExitStatus()>& run) {
    const auto files = [&](CLI::App* command, Task task) {
        command->callback([&line, &run, task] {
            run = [&line, task] {
                line.work.task = task;
                return vekdc::workOnFiles(line.paths, line.work);
            };
        });
    };

    CLI::App* compress = addFileCommand(app, line, "compress", "Compress files");
    addWritingOptions(*compress, line);
    compress->add_flag("-1{1},-2{2},-3{3},-4{4},-5{5},-6{6},-7{7},-8{8},-9{9}", line.levels,
                       "Effort, from fast to small; 6 unless given");
    compress->add_flag("--fastest", line.work.settings.fastest, "Faster than -1, and larger");
    compress->add_flag("--no-name", line.noName, "Store neither name nor time stamp");
    addFormatOptions(*compress, line);
    files(compress, Task::Compress);

    CLI::App* decompress = addFileCommand(app, line, "decompress", "Decompress files");
    addWritingOptions(*decompress, line);
    decompress->add_flag("--keep-partial", line.work.keepPartial,
                         "Keep what was decoded of a broken file before its fault");
    addFormatOptions(*decompress, line);
    files(decompress, Task::Decompress);

    CLI::App* test = addFileCommand(app, line, "test", "Verify compressed files without writing");
    addFormatOptions(*test, line);
    files(test, Task::Test);

    CLI::App* info = addFileCommand(app, line, "info", "Say what compressed files hold");
    addFormatOptions(*info, line);
    files(info, Task::Info);

    CLI::App* sum = app.add_subcommand("sum", "Print checksums of files");
    sum->add_option("FILE", line.paths, "Files; - or none: standard input");
    sum->add_option("-a,--algorithm", line.algorithm, "crc32 (the default), crc32c, bzip2, adler32")
        ->check(CLI::IsMember({"crc32", "crc32c", "bzip2", "adler32"}));
    sum->add_flag("--check", line.check, "Read checksums and names from the files, and compare");
    sum->add_flag("-q,--quiet", line.work.quiet,
                  "With --check: print nothing for files that are as they were");
    sum->callback([&line, &run] {
        run = [&line] {
            return line.check ? vekdc::checkSums(line.paths, line.algorithm, line.work.quiet)
                              : vekdc::sumFiles(line.paths, line.algorithm);
        };
    });

    CLI::App* demo = app.add_subcommand("demo", "Compress and verify generated samples in memory");
    demo->add_option("-j,--jobs", line.work.settings.jobs, "Threads; 0: one a processor")
        ->check(CLI::Range(0U, kMaxJobs));
    demo->callback(
        [&line, &run] { run = [&line] { return vekdc::demonstrate(line.work.settings.jobs); }; });
}

// Whatever options alone cannot say.
void complete(CommandLine& line) {
    WorkOptions& work = line.work;
    if (line.paths.empty()) line.paths.emplace_back(vekdc::kStdin);
    if (!line.levels.empty()) work.settings.level = line.levels.back();
    if (!line.format.empty()) {
        work.format = vekdc::formatByName(line.format);
        if (work.format == nullptr)
            throw CLI::ValidationError(
                "--format", "there is no format " + line.format + ", only " + formatNames());
    }
    if (!work.output.empty() && line.paths.size() > 1)
        throw CLI::ValidationError("--output", "takes one input file");
    if (work.settings.jobs == 0)
        work.settings.jobs = std::clamp(std::thread::hardware_concurrency(), 1U, kMaxJobs);
    work.storeName = !line.noName;
    if (line.progress) work.progress = vekdc::Progress::When::Always;
}

// The nine levels are one option; its name says so more shortly than CLI11 would.
class HelpFormatter : public CLI::Formatter {
 public:
    std::string make_option_name(const CLI::Option* option, bool isPositional) const override {
        return option->check_name("-9") ? "-1 .. -9"
                                        : CLI::Formatter::make_option_name(option, isPositional);
    }
};

std::string versionText() {
    const VekLibraryVersion& library = *vekdcGetLibVersion();
    const auto number = [](int part) { return std::to_string(part); };
    return "vekdc " + number(VEKDC_VERSION_MAJOR) + "." + number(VEKDC_VERSION_MINOR) + "." +
           number(VEKDC_VERSION_PATCH) + "\n" + library.name + " " + library.version;
}

// Text output that a full disk swallowed is a failure too.
int flushed(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    vekdc::complain("standard output", std::strerror(errno));
    return vekdc::kFailure;
}

int runProgram(int argc, char** argv) {
    CommandLine line;
    std::function<ExitStatus()> run;
    CLI::App app("Compress, decompress and verify files", "vekdc");
    app.set_version_flag("--version", versionText());
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(1);
    app.footer("Exit status: 0 when all went well, 1 after a failure, 2 after a warning.");
    addCommands(app, line, run);
    try {
        app.parse(argc, argv);
        complete(line);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return flushed(app.exit(error));
        std::fprintf(stderr, "vekdc: %s (see vekdc --help)\n", error.what());
        return vekdc::kFailure;
    }
    return flushed(run());
}

}  // namespace

int main(int argc, char** argv) {
    vekdc::occupyStandardDescriptors();
    vekdc::installSignalHandlers();
    try {
        return runProgram(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vekdc: %s\n", error.what());
        return vekdc::kFailure;
    }
}
