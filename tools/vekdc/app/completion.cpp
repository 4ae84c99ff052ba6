#include "tools/vekdc/app/completion.h"

#include <algorithm>

#include "tools/vekdc/app/roles.h"
#include "tools/vekdc/app/sum.h"
#include "tools/vekdc/formats/format.h"

namespace vekdc {
namespace {

using Words = std::vector<std::string>;

std::string join(const Words& words, const std::string& between) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

/// In single quotes, for bash and zsh.
std::string inQuotes(const std::string& text) {
    return "'" + replaced(text, "'", "'\\''") + "'";
}

std::string inFishQuotes(const std::string& text) {
    return "'" + replaced(replaced(text, "\\", "\\\\"), "'", "\\'") + "'";
}

struct Option {
    Words shorts;  ///< Single letters.
    Words longs;
    std::string help;
    std::string value;  ///< What it takes: FILE, FOLDER or another name; empty: nothing.
    Words choices;      ///< The values that there are; empty: any.

    Words spelled() const {
        Words words;
        words.reserve(shorts.size() + longs.size());
        for (const std::string& letter : shorts) words.push_back("-" + letter);
        for (const std::string& word : longs) words.push_back("--" + word);
        return words;
    }
};

Words choicesOf(const CLI::Option& option) {
    Words words;
    if (option.check_lname("format"))
        for (const Format* format : formats()) words.emplace_back(format->name());
    if (option.check_lname("algorithm")) words = kSumAlgorithms;
    return words;
}

/// What an option takes; behind a colon the parser lists the choices.
std::string valueOf(const CLI::Option& option) {
    const std::string type = option.get_type_size() == 0 ? "" : option.get_type_name();
    return type.substr(0, type.find(':'));
}

std::vector<Option> optionsOf(const CLI::App& app) {
    std::vector<Option> options;
    options.reserve(app.get_options().size());
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) continue;
        options.push_back({option->get_snames(), option->get_lnames(), option->get_description(),
                           valueOf(*option), choicesOf(*option)});
    }
    return options;
}

/// The names of the commands, and help, which is none of its own.
Words commandNames(const std::vector<CompletedCommand>& commands) {
    Words names;
    for (const CompletedCommand& command : commands)
        if (!command.name.empty()) names.push_back(command.name);
    names.emplace_back("help");
    return names;
}

Words spelledOptions(const CLI::App& app) {
    Words words;
    for (const Option& option : optionsOf(app)) {
        const Words own = option.spelled();
        words.insert(words.end(), own.begin(), own.end());
    }
    return words;
}

// --- bash ----------------------------------------------------------------------------------------

std::string bashValues(const std::vector<CompletedCommand>& commands) {
    Words seen;
    std::string text;
    for (const CompletedCommand& command : commands) {
        for (const Option& option : optionsOf(*command.app)) {
            const std::string names = join(option.spelled(), "|");
            if (option.value.empty() || std::find(seen.begin(), seen.end(), names) != seen.end())
                continue;
            seen.push_back(names);
            text += "        " + names + ") ";
            if (!option.choices.empty())
                text += "list='-W \"" + join(option.choices, " ") + "\"'";
            else if (option.value == "FOLDER")
                text += "list=-d";
            else
                text += "list=-f";
            text += " ;;\n";
        }
    }
    return text;
}

std::string bashCompletion(const std::vector<CompletedCommand>& commands) {
    std::string options;
    for (size_t i = 1; i < commands.size(); ++i)
        options += "        " + commands[i].name +
                   ") options=" + inQuotes(join(spelledOptions(*commands[i].app), " ")) + " ;;\n";
    return "# Completion of vekdc for bash, printed by `vekdc completion bash`.\n"
           "_vekdc() {\n"
           "    local word=$2 before=$3 command=${COMP_WORDS[1]} options list=\n"
           "    [ \"$before\" != = ] || before=${COMP_WORDS[COMP_CWORD - 2]}\n"
           "    [ \"$word\" != = ] || word=\n"
           "    [ \"${1##*/}\" = vekdc ] || command=\n"
           "    case $command in\n" +
           options + "        *) options=" + inQuotes(join(spelledOptions(*commands[0].app), " ")) +
           " ;;\n"
           "    esac\n"
           "    case $before in\n" +
           bashValues(commands) +
           "    esac\n"
           "    if [ -z \"$list\" ]; then\n"
           "        case $word:$command:$COMP_CWORD in\n"
           "            -*) list='-W \"$options\"' ;;\n"
           "            *::1) list=-f ;;\n"
           "            *:*:1) list='-f -W \"" +
           join(commandNames(commands), " ") +
           "\"' ;;\n"
           "            *:help:2) list='-W \"" +
           join(commandNames(commands), " ") +
           "\"' ;;\n"
           "            *:completion:2) list='-W \"" +
           join(shellNames(), " ") +
           "\"' ;;\n"
           "            *:run:2) list=-c ;;\n"
           "            *) list=-f ;;\n"
           "        esac\n"
           "    fi\n"
           "    mapfile -t COMPREPLY < <(eval \"compgen $list -- \\\"\\$word\\\"\")\n"
           "}\n"
           "complete -o filenames -F _vekdc vekdc " +
           join(roleNames(), " ") + "\n";
}

// --- zsh -----------------------------------------------------------------------------------------

std::string zshOption(const Option& option) {
    const Words names = option.spelled();
    std::string help = option.help;
    for (const char* special : {"\\", "[", "]", ":"})
        help = replaced(help, special, std::string("\\") + special);
    std::string spec = "[" + help + "]";
    if (!option.value.empty()) {
        spec += ":" + option.value + ":";
        if (!option.choices.empty())
            spec += "(" + join(option.choices, " ") + ")";
        else if (option.value == "FOLDER")
            spec += "_files -/";
        else
            spec += option.value == "FILE" ? "_files" : " ";
    }
    if (names.size() == 1) return inQuotes(names[0] + spec);
    return inQuotes("(" + join(names, " ") + ")") + "{" + join(names, ",") + "}" + inQuotes(spec);
}

std::string zshArguments(const CompletedCommand& command) {
    Words specs;
    for (const Option& option : optionsOf(*command.app)) specs.push_back(zshOption(option));
    if (command.name == "run") {
        specs.emplace_back("'1:program:_command_names -e'");
        specs.emplace_back("'*::argument:_normal'");
    } else if (command.name == "completion") {
        specs.push_back("'1:shell:(" + join(shellNames(), " ") + ")'");
    } else {
        specs.emplace_back("'*:file:_files'");
    }
    return "_arguments -s -S \\\n            " + join(specs, " \\\n            ");
}

std::string zshCompletion(const std::vector<CompletedCommand>& commands) {
    std::string cases;
    std::string described;
    for (size_t i = 1; i < commands.size(); ++i) {
        cases += "        " + commands[i].name +
                 ")\n            words[1]=(); (( CURRENT-- ))\n            " +
                 zshArguments(commands[i]) + " ;;\n";
        described += " " + inQuotes(commands[i].name + ":" + commands[i].help);
    }
    return "#compdef vekdc " + join(roleNames(), " ") +
           "\n# Completion of vekdc for zsh, printed by `vekdc completion zsh`.\n"
           "_vekdc() {\n"
           "    local command=${words[2]}\n"
           "    local -a commands=(" +
           described +
           " 'help:Help on a command')\n"
           "    if [[ ${words[1]:t} != vekdc ]]; then\n"
           "        command=\n"
           "    elif (( CURRENT == 2 )) && [[ $command != -* ]]; then\n"
           "        _describe command commands\n"
           "        _files\n"
           "        return\n"
           "    fi\n"
           "    case $command in\n" +
           cases +
           "        help) _describe command commands ;;\n"
           "        *)\n            " +
           zshArguments(commands[0]) +
           " ;;\n"
           "    esac\n"
           "}\n"
           // Read by the shell as a function of its own, or by `source`.
           "if [ \"$funcstack[1]\" = _vekdc ]; then _vekdc \"$@\"; else compdef _vekdc vekdc " +
           join(roleNames(), " ") + "; fi\n";
}

// --- fish ----------------------------------------------------------------------------------------

std::string fishOptions(const std::string& start, const CLI::App& app) {
    std::string text;
    for (const Option& option : optionsOf(app)) {
        std::string line = start;
        for (const std::string& letter : option.shorts) line += " -s " + letter;
        for (const std::string& word : option.longs) line += " -l " + word;
        if (!option.choices.empty())
            line += " -x -a " + inFishQuotes(join(option.choices, " "));
        else if (option.value == "FOLDER")
            line += " -x -a '(__fish_complete_directories)'";
        else if (!option.value.empty())
            line += option.value == "FILE" ? " -r -F" : " -x";
        text += line + " -d " + inFishQuotes(option.help) + "\n";
    }
    return text;
}

std::string fishCompletion(const std::vector<CompletedCommand>& commands) {
    const std::string names = join(commandNames(commands), " ");
    std::string text = "# Completion of vekdc for fish, printed by `vekdc completion fish`.\n";
    for (size_t i = 1; i < commands.size(); ++i) {
        const std::string& name = commands[i].name;
        text += "complete -c vekdc -n __fish_use_subcommand -a " + name + " -d " +
                inFishQuotes(commands[i].help) + "\n" +
                fishOptions("complete -c vekdc -n '__fish_seen_subcommand_from " + name + "'",
                            *commands[i].app);
    }
    text +=
        "complete -c vekdc -n __fish_use_subcommand -a help -d 'Help on a command'\n"
        "complete -c vekdc -n '__fish_seen_subcommand_from help' -x -a '" +
        names +
        "'\n"
        "complete -c vekdc -n '__fish_seen_subcommand_from completion' -x -a '" +
        join(shellNames(), " ") +
        "'\n"
        "complete -c vekdc -n '__fish_seen_subcommand_from run' -x -a "
        "'(__fish_complete_subcommand --fcs-skip=2)'\n" +
        fishOptions("complete -c vekdc -n 'not __fish_seen_subcommand_from " + names + "'",
                    *commands[0].app);
    for (const std::string& role : roleNames())
        text += fishOptions("complete -c " + role, *commands[0].app);
    return text;
}

}  // namespace

const Words& shellNames() {
    static const Words names = {"bash", "zsh", "fish"};
    return names;
}

std::string completionFor(const std::string& shell, const std::vector<CompletedCommand>& commands) {
    if (shell == "bash") return bashCompletion(commands);
    return shell == "zsh" ? zshCompletion(commands) : fishCompletion(commands);
}

}  // namespace vekdc
