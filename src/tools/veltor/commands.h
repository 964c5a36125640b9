// The commands of the tool, one source each. A new command is its source, one declaration here, one line in the list
// of main.cpp, and its source's name in CMakeLists.txt.
#ifndef VELTOR_TOOL_COMMANDS_H
#define VELTOR_TOOL_COMMANDS_H

#include "exit_codes.h"
#include "output.h"
#include "target.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <string_view>

namespace veltor::tool {

struct Command
{
    CLI::App* commandLine;         ///< owned by the application's command line
    std::function<ExitCode()> run; ///< called after the parse if this command was given; throws Failure
    bool hasForms = false;         ///< it takes its form from the output; the others have text and JSON
};

/// Each adds its command to the application's command line.
/// @param target  the common options, filled when run is called; must outlive the command
/// @param output  how the run prints; must outlive the command
Command initCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command searchCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command getCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command explainCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command checkCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command statusCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command treeCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command addCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command modifyCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command deleteCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command setCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command unsetCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command applyCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command passwdCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command authCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command editCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command diffCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command fmtCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command backupCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command restoreCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command completionCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command helpCommand(CLI::App& application, const TargetOptions& target, Output& output);
Command versionCommand(CLI::App& application, const TargetOptions& target, Output& output);

/// The failure for a word that stands where a command is meant, with the commands that it may have meant.
/// @param finding  what is wrong with it
Failure unknownCommand(const CLI::App& application, const std::string& name, const std::string& finding);

/// Answers a completion script: reads from standard input where the cursor is, prints what may stand there, and for
/// whatever is wrong nothing.
/// @param shell  "bash" or "zsh"
void answerShell(const CLI::App& application, std::string_view shell);

} // namespace veltor::tool

#endif
