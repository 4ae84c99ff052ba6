#include "tools/vekdc/app/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <thread>

#include "tools/vekdc/app/arguments.h"
#include "tools/vekdc/io/files.h"

namespace vekdc {
namespace {

constexpr unsigned kMaxJobs = 256;

std::string formatNames() {
    std::string names;
    for (const Format* format : formats())
        names += (names.empty() ? "" : ", ") + std::string(format->name());
    return names;
}

const std::string& notEmpty(const std::string& option, const std::string& name) {
    if (name.empty()) throw UsageError(option + " takes a name, which is empty here");
    return name;
}

}  // namespace

void addJobs(CLI::App& app, CommandLine& line) {
    const auto set = [&line](const std::string& text) {
        const std::optional<uint64_t> number = numberFrom(text);
        if (!number || *number > kMaxJobs)
            throw UsageError("--jobs takes a number from 0 to 256, not " + text);
        line.work.settings.jobs = static_cast<unsigned>(*number);
    };
    app.add_option_function<std::string>("-j,-T,--jobs,--threads", set,
                                         "Threads for each file; 0: one a processor")
        ->type_name("N");
}

void addFiles(CLI::App& app, CommandLine& line) {
    line.readsStdin = true;
    app.add_option("FILE", line.paths, "Files; - or none: standard input");
}

void addFormat(CLI::App& app, CommandLine& line) {
    const auto set = [&line](const std::string& name) { line.format = notEmpty("--format", name); };
    app.add_option_function<std::string>("--format", set, "Format of the data: " + formatNames())
        ->type_name("NAME");
}

void addInputOptions(CLI::App& app, CommandLine& line) {
    addFiles(app, line);
    addFormat(app, line);
    addJobs(app, line);
    app.add_flag("-r,--recursive", line.work.recursive, "Work on the files below folders");
    app.add_flag("-q,--quiet", line.work.quiet, "No progress, no warnings");
    app.add_flag("-v,--verbose", line.work.verbose, "Say what was done with each file");
    app.add_flag("--progress", line.progress, "Show progress even where there is no terminal");
}

void addOutputOptions(CLI::App& app, CommandLine& line) {
    WorkOptions& work = line.work;
    app.add_flag("-f,--force", work.force,
                 "Replace existing files, follow links, use terminals; with -dc, pass on what is "
                 "not compressed");
    auto* toStdout =
        app.add_flag("-c,--stdout,--to-stdout", work.toStdout, "Write to standard output");
    const auto setOutput = [&work](const std::string& path) {
        work.toStdout = path == kStdin;
        if (!work.toStdout) work.output = notEmpty("--output", path);
    };
    auto* output = app.add_option_function<std::string>("-o,--output", setOutput,
                                                        "Write to this file; -: standard output")
                       ->type_name("FILE")
                       ->excludes(toStdout);
    const auto setFolder = [&work](const std::string& path) {
        work.outputFolder = notEmpty("--output-dir", path);
    };
    app.add_option_function<std::string>("--output-dir", setFolder,
                                         "Write outputs below this folder")
        ->type_name("FOLDER")
        ->excludes(toStdout)
        ->excludes(output);
    const auto setSuffix = [&work](const std::string& suffix) {
        work.suffix = notEmpty("--suffix", suffix);
        if (suffix.find('/') != std::string::npos)
            throw UsageError("--suffix takes no name with a slash");
    };
    app.add_option_function<std::string>("-S,--suffix", setSuffix,
                                         "Suffix in place of the format's")
        ->type_name(".SUFFIX");
    auto* keep = app.add_flag("-k,--keep", line.keep, "Keep the input files (the default)");
    app.add_flag("--remove,--rm", line.remove, "Remove each input file once its output is complete")
        ->excludes(keep);
    auto* noName = app.add_flag("-n,--no-name", line.noName,
                                "Store neither name nor time stamp, restore none");
    app.add_flag("-N,--name", work.restoreName,
                 "Decompressing, give outputs the names and time stamps that are stored")
        ->excludes(noName);
}

void addLevels(CLI::App& app, CommandLine& line) {
    app.add_flag(
        "--fastest{0},-1{1},-2{2},-3{3},-4{4},-5{5},-6{6},-7{7},-8{8},-9{9},--best{10}",
        line.levels,
        "Effort, from fast to small; 6 unless given; --best: all that the format can, at least -9");
}

void addDecoding(CLI::App& app, CommandLine& line) {
    app.add_flag("--keep-partial", line.work.keepPartial,
                 "Keep what was decoded of a broken file before its fault");
    app.add_flag("--sparse,!--no-sparse", line.work.sparse,
                 "Zeros in new files become holes (the default), or do not");
}

void addFormatOptions(CLI::App& app, CommandLine& line) {
    for (const Format* format : formats()) {
        for (const FormatOption& option : format->options()) {
            const std::string key = option.name;
            const std::string flag = "--" + key;
            const std::string help = formatsWith(key) + ": " + option.help;
            if (app.get_option_no_throw(flag) != nullptr) continue;
            const auto set = [&line, key](const std::string& value) {
                line.work.settings.own[key] = value;
            };
            if (option.valueName == nullptr) {
                app.add_flag_callback(
                    flag, [set] { set(""); }, help);
            } else {
                app.add_option_function<std::string>(flag, set, help)->type_name(option.valueName);
            }
        }
    }
}

void addTasks(CLI::App& app, CommandLine& line) {
    const auto add = [&](const char* names, Task task, const char* help) {
        app.add_flag_callback(
            names, [&line, task] { line.work.task = std::max(line.work.task, task); }, help);
    };
    add("-z,--compress", Task::Compress, "Compress (the default)");
    add("-d,--decompress,--uncompress", Task::Decompress, "Decompress");
    add("-t,--test", Task::Test, "Verify compressed files without writing");
    add("-l,--list", Task::Info, "Say what compressed files hold");
}

void complete(CommandLine& line) {
    WorkOptions& work = line.work;
    if (line.paths.empty() && line.readsStdin) line.paths.emplace_back(kStdin);
    if (!line.levels.empty()) work.settings.setLevel(line.levels.back());
    if (!line.format.empty()) {
        work.format = formatByName(line.format);
        work.formatGiven = true;
        if (work.format == nullptr)
            throw UsageError("there is no format " + line.format + ", only " + formatNames());
    }
    if (!work.output.empty() && line.paths.size() > 1)
        throw UsageError("--output takes one input file");
    const Format* named = formatBySuffix("x" + work.suffix);
    if (named != nullptr && !work.formatGiven && work.task == Task::Compress) {
        if (work.format != nullptr && work.format != named)
            throw UsageError("--suffix " + work.suffix + " is that of " + named->name() +
                             "; use --format to say which format is meant");
        work.format = named;
    }
    if (work.settings.jobs == 0)
        work.settings.jobs = std::clamp(std::thread::hardware_concurrency(), 1U, kMaxJobs);
    work.remove = line.remove || (work.remove && !line.keep);
    work.storeName = !line.noName;
    if (line.progress) work.progress = Progress::When::Always;
}

}  // namespace vekdc
