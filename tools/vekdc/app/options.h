// The options, in the groups in which commands have them, and what they come to.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/vekdc/app/bench.h"
#include "tools/vekdc/app/sum.h"
#include "tools/vekdc/app/work.h"

namespace CLI {
class App;
}

namespace vekdc {

struct CommandLine {
    WorkOptions work;
    SumOptions sum;
    BenchOptions bench;
    std::vector<std::string> paths;
    std::vector<int> levels;  // As given; the last one holds.
    std::string format;
    bool check = false;
    bool readsStdin = false;  // Where no file is named.
    bool noName = false;
    bool progress = false;
    bool keep = false;
    bool remove = false;
    std::function<ExitStatus()> run;
};

void addFiles(CLI::App& app, CommandLine& line);
/// -z, -d, -t and -l, in the place of commands.
void addTasks(CLI::App& app, CommandLine& line);
void addJobs(CLI::App& app, CommandLine& line);
void addFormat(CLI::App& app, CommandLine& line);
void addInputOptions(CLI::App& app, CommandLine& line);
void addOutputOptions(CLI::App& app, CommandLine& line);
void addLevels(CLI::App& app, CommandLine& line);
void addDecoding(CLI::App& app, CommandLine& line);
/// Those that not all formats have.
void addFormatOptions(CLI::App& app, CommandLine& line);

/// Does, when all is read, what options alone cannot say; throws UsageError.
void complete(CommandLine& line);

}  // namespace vekdc
