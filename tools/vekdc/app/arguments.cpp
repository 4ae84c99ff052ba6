// The first word is a command, or everything is the habit of gzip and its like: options and files,
// compressed unless an option or the name that the program is called by says otherwise.
#include "tools/vekdc/app/arguments.h"

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

#include "tools/vekdc/app/completion.h"
#include "tools/vekdc/app/options.h"
#include "tools/vekdc/app/roles.h"
#include "tools/vekdc/app/run.h"
#include "vekdc.h"

namespace vekdc {
namespace {

// --- commands ------------------------------------------------------------------------------------

void runOnFiles(CommandLine& line) {
    line.run = [&line] { return workOnFiles(line.paths, line.work); };
}

void addHabits(CLI::App& app, CommandLine& line) {
    addTasks(app, line);
    addInputOptions(app, line);
    addOutputOptions(app, line);
    addLevels(app, line);
    addDecoding(app, line);
    addFormatOptions(app, line);
    runOnFiles(line);
}

void addCompress(CLI::App& app, CommandLine& line) {
    addInputOptions(app, line);
    addOutputOptions(app, line);
    addLevels(app, line);
    addFormatOptions(app, line);
    runOnFiles(line);
}

void addDecompress(CLI::App& app, CommandLine& line) {
    line.work.task = Task::Decompress;
    addInputOptions(app, line);
    addOutputOptions(app, line);
    addDecoding(app, line);
    addFormatOptions(app, line);
    runOnFiles(line);
}

template <Task Reading>
void addReading(CLI::App& app, CommandLine& line) {
    line.work.task = Reading;
    addInputOptions(app, line);
    app.add_flag("-f,--force", line.work.force,
                 "Read from terminals; below folders, read all files");
    addFormatOptions(app, line);
    runOnFiles(line);
}

void addSum(CLI::App& app, CommandLine& line) {
    addFiles(app, line);
    app.add_option("-a,--algorithm", line.sum.algorithm,
                   "crc32 (the default), crc32c, bzip2, adler32")
        ->transform(CLI::IsMember(kSumAlgorithms, CLI::ignore_case))
        ->type_name("NAME");
    app.add_flag("--tag", line.sum.tag, "Print lines that name the algorithm");
    app.add_flag("-c,--check", line.check, "Read checksums and names from the files, and compare");
    app.add_flag("-q,--quiet", line.sum.quiet,
                 "With --check: print nothing for files that are as they were");
    line.run = [&line] {
        return line.check ? checkSums(line.paths, line.sum) : sumFiles(line.paths, line.sum);
    };
}

void addBench(CLI::App& app, CommandLine& line) {
    app.add_option("FILE", line.paths, "Files, each of which is read into memory")->required();
    addFormat(app, line);
    addJobs(app, line);
    app.add_flag("--csv", line.bench.csv, "Print comma-separated values");
    app.add_option("--plot", line.bench.plot, "Draw ratio over speed by gnuplot, .svg or .png")
        ->type_name("FILE");
    app.add_flag("-f,--force", line.bench.force, "Replace an existing picture");
    addFormatOptions(app, line);
    line.run = [&line] {
        line.bench.format = line.work.format;
        line.bench.settings = line.work.settings;
        return benchFiles(line.paths, line.bench);
    };
}

void addRun(CLI::App& app, CommandLine& line) {
    app.add_option("PROGRAM", line.paths, "Program and its arguments")->required();
    line.run = [&line] { return runProgram(line.paths); };
}

void addDemo(CLI::App& app, CommandLine& line) {
    app.add_option("FILE", line.paths, "Files to show beside the generated samples");
    addJobs(app, line);
    line.run = [&line] { return demonstrate(line.paths, line.work.settings.jobs); };
}

ExitStatus printCompletion(const std::string& shell);

void addCompletion(CLI::App& app, CommandLine& line) {
    app.add_option("SHELL", line.paths, "bash, zsh or fish")
        ->required()
        ->expected(1)
        ->check(CLI::IsMember(shellNames()));
    line.run = [&line] { return printCompletion(line.paths.front()); };
}

struct Command {
    std::string_view name;
    const char* help;
    void (*add)(CLI::App&, CommandLine&);
};

constexpr std::array kCommands = {
    Command{"compress", "Compress files", addCompress},
    Command{"decompress", "Decompress files", addDecompress},
    Command{"test", "Verify compressed files without writing", addReading<Task::Test>},
    Command{"info", "Say what compressed files hold", addReading<Task::Info>},
    Command{"sum", "Print checksums of files, or check them", addSum},
    Command{"bench", "Compare all formats and levels on files, in memory", addBench},
    Command{"run", "Run a program with the drop-in libraries", addRun},
    Command{"demo", "Compress and verify samples in memory", addDemo},
    Command{"completion", "Print what a shell completes vekdc's words by", addCompletion},
};

constexpr Command kHabits{"", "Compress, decompress and verify files", addHabits};

const Command* commandByName(std::string_view name) {
    const auto* found = std::find_if(kCommands.begin(), kCommands.end(),
                                     [&](const Command& command) { return command.name == name; });
    return found == kCommands.end() ? nullptr : found;
}

ExitStatus printCompletion(const std::string& shell) {
    std::vector<CompletedCommand> commands;
    CommandLine line;
    const auto describe = [&](const Command& command) {
        auto app = std::make_unique<CLI::App>(command.help);
        app->set_version_flag("-V,--version", "");
        command.add(*app, line);
        commands.push_back({std::string(command.name), command.help, std::move(app)});
    };
    describe(kHabits);
    for (const Command& command : kCommands) describe(command);
    std::fputs(completionFor(shell, commands).c_str(), stdout);
    return kSuccess;
}

std::string unknownCommand(const std::string& word, const char* what) {
    std::vector<std::string_view> names = {"help"};
    for (const Command& command : kCommands) names.push_back(command.name);
    const std::string_view near = nearest(word, names);
    return word + what + (near.empty() ? "" : "; did you mean " + std::string(near) + "?");
}

// A word that can only be meant for a command: no option, no path, and no file.
bool looksLikeCommand(const std::string& word) {
    struct stat status {};
    return !word.empty() &&
           word.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos &&
           lstat(word.c_str(), &status) != 0;
}

// What stands behind a program's name is for that program.
void protectProgram(std::vector<std::string>& words) {
    const auto program = std::find_if(words.begin(), words.end(), [](const std::string& word) {
        return word == "--" || !word.starts_with('-');
    });
    if (program != words.end() && *program != "--") words.insert(program, "--");
}

// Takes the command off the words, and "help COMMAND" as "COMMAND --help".
const Command& takeCommand(std::vector<std::string>& words) {
    if (words.empty()) return kHabits;
    if (words.front() == "help") {
        words.erase(words.begin());
        if (words.empty() || words.front() == "help") {
            words = {"--help"};
            return kHabits;
        }
        if (commandByName(words.front()) == nullptr)
            throw UsageError(unknownCommand(words.front(), " is no command"));
        words.resize(1);
        words.emplace_back("--help");
    }
    if (const Command* command = commandByName(words.front())) {
        words.erase(words.begin());
        if (command->name == "run") protectProgram(words);
        return *command;
    }
    if (looksLikeCommand(words.front()))
        throw UsageError(unknownCommand(words.front(), " is neither a command nor a file"));
    return kHabits;
}

// --- words and help ------------------------------------------------------------------------------

bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// A word in brackets, "[a,b]", is a list of two for the parser. A mark in front hides that from it,
// and is taken away when an option has the word.
constexpr char kMark = 1;

void hideBrackets(std::vector<std::string>& words) {
    for (std::string& word : words)
        if (word.starts_with('[') || word.starts_with(kMark)) word.insert(0, 1, kMark);
}

void showBrackets(CLI::App& app) {
    const auto show = [](std::string& word) {
        if (word.starts_with(kMark)) word.erase(0, 1);
        return std::string();
    };
    for (CLI::Option* option : app.get_options())
        if (option->get_type_size() != 0) option->transform(CLI::Validator(show, ""));
}

// What the parser would take for something else: -12 for -1 -2, and the word behind --fast, which
// is level 1 unless a number follows, for its value.
std::vector<std::string> normalised(const std::vector<std::string>& words) {
    std::vector<std::string> out;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word == "--") {
            out.insert(out.end(), words.begin() + static_cast<ptrdiff_t>(i), words.end());
            break;
        }
        if (word.starts_with('-') && isDigits(word.substr(1)) && (word.size() > 2 || word == "-0"))
            throw UsageError(word + " is no level; they are -1 to -9");
        if (word != "--fast") {
            out.push_back(word);
        } else if (i + 1 < words.size() && numberFrom(words[i + 1])) {
            out.push_back("--fast=" + words[++i]);
        } else {
            out.emplace_back("-1");
        }
    }
    return out;
}

std::string versionText() {
    const VekLibraryVersion& library = *vekdcGetLibVersion();
    const auto number = [](int part) { return std::to_string(part); };
    return "vekdc " + number(VEKDC_VERSION_MAJOR) + "." + number(VEKDC_VERSION_MINOR) + "." +
           number(VEKDC_VERSION_PATCH) + "\n" + library.name + " " + library.version;
}

std::string footer(bool listsCommands) {
    std::string text;
    if (listsCommands) {
        text = "Or, with options of their own (vekdc help COMMAND):\n";
        for (const Command& command : kCommands)
            text += "  vekdc " + std::string(command.name) +
                    std::string(12 - command.name.size(), ' ') + command.help + "\n";
        text += "\n";
    }
    return text + "Exit status: 0 when all went well, 1 after a failure, 2 after a warning.";
}

// The levels are one option; its name says so more shortly than CLI11 would. What excludes what is
// said when it matters, and what a word without a value stands for is of no use.
class HelpFormatter : public CLI::Formatter {
 public:
    std::string make_option_name(const CLI::Option* option, bool isPositional) const override {
        if (option->check_name("-9")) return "--fastest,-1 .. -9,--best";
        const std::string name = CLI::Formatter::make_option_name(option, isPositional);
        return name.substr(0, name.find('{'));
    }
    std::string make_option_opts(const CLI::Option* option) const override {
        if (option->get_positional()) return " ...";
        return option->get_type_size() == 0 ? "" : " " + option->get_type_name();
    }
};

void play(const Role& role, WorkOptions& work) {
    work.format = formatByName(role.format);
    work.task = role.task;
    work.toStdout = role.toStdout;
    work.remove = role.remove;
}

}  // namespace

std::function<ExitStatus()> readArguments(int argc, char** argv) {
    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    const Role* role = argc == 0 ? nullptr : roleOf(argv[0]);
    const Command& command = role == nullptr ? takeCommand(words) : kHabits;
    const auto line = std::make_shared<CommandLine>();
    if (role != nullptr) play(*role, line->work);

    std::string name = role == nullptr ? "vekdc" : std::string(role->name);
    if (!command.name.empty()) name += " " + std::string(command.name);
    CLI::App app(command.help, name);
    app.set_version_flag("-V,--version", versionText());
    app.formatter(std::make_shared<HelpFormatter>());
    app.footer(footer(role == nullptr && command.name.empty()));
    command.add(app, *line);
    showBrackets(app);
    words = normalised(words);
    hideBrackets(words);
    std::reverse(words.begin(), words.end());  // As the parser wants them.
    try {
        app.parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) throw UsageError(error.what());
        app.exit(error);
        return [] { return kSuccess; };
    }
    complete(*line);
    return [line] { return line->run(); };
}

}  // namespace vekdc
