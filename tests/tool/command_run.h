// A command of the tool, run in the process of a test.
#ifndef VELTOR_TESTS_TOOL_COMMAND_RUN_H
#define VELTOR_TESTS_TOOL_COMMAND_RUN_H

#include "commands.h"
#include "ldif_output.h"

#include <cstdio>
#include <initializer_list>
#include <string>
#include <unistd.h>
#include <vector>

namespace veltor::tool {

using MakeCommand = Command (*)(CLI::App& application, const TargetOptions& target, Output& output);

/// Parses the line and runs the one of the commands that it names. Prints what the tool would.
/// @return  the exit status
inline int runLine(std::initializer_list<MakeCommand> makers, const std::string& line)
{
    CLI::App application;
    application.fallthrough();
    TargetOptions target;
    addTargetOptions(application, target);
    OutputOptions outputOptions;
    addOutputOptions(application, outputOptions);
    Output output(outputOptions);
    std::vector<Command> commands;
    for (const MakeCommand make : makers) {
        commands.push_back(make(application, target, output));
    }
    ExitCode exit = ExitCode::internal;
    try {
        application.parse(line);
        for (const Command& command : commands) {
            exit = command.commandLine->parsed() ? command.run() : exit;
        }
    } catch (const Failure& failure) {
        output.document().setFailure(failure);
        exit = failure.exit();
        if (!output.json()) {
            std::fputs(failure.message().c_str(), stderr);
        }
    }
    if (output.json()) {
        writeOut(STDOUT_FILENO, view(output.document().text(exit)));
    }
    return static_cast<int>(exit);
}

} // namespace veltor::tool

#endif
