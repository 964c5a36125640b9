// veltor, the administration tool: takes the command line apart, runs the command, turns failures into messages
// and exit codes.
#include "commands.h"
#include "escape.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace veltor::tool;

constexpr const char* footer =
    R"(Exit status: 0 done, 1 no, 2 usage, 3 refused, 4 file, 5 wrong DN or password, 6 busy,
7 write failed, 8 entry or value missing or in the way, 70 internal error.
See veltor(1).)";

int exitStatus(ExitCode code)
{
    return static_cast<int>(code);
}

Failure refusedCommandLine(const CLI::App& application, const CLI::ParseError& error)
{
    const std::vector<CLI::App*> given = application.get_subcommands();
    if (!given.empty()) {
        return {ExitCode::usage, error.what(), {"nothing was read; see: veltor help " + given.front()->get_name()}};
    }
    // The parser asks for the command before it looks at words that are none.
    const std::vector<std::string> unknown = application.remaining();
    const bool lacksCommand = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if (lacksCommand && !unknown.empty()) {
        return unknownCommand(application, unknown.front(),
                              '"' + unknown.front() + "\" is neither a command nor an option");
    }
    return {
        ExitCode::usage, lacksCommand ? "there is no command" : error.what(), {"nothing was read; see: veltor --help"}};
}

// The failure on standard error, or in the document.
int tell(const Failure& failure, Output& output)
{
    if (output.json()) {
        output.document().setFailure(failure);
        writeOut(STDOUT_FILENO, view(output.document().text(failure.exit())));
        return exitStatus(failure.exit());
    }
    std::string message = failure.message(output.coloured(STDERR_FILENO, "error", red));
    message += output.verbose() ? failure.causes() : "";
    std::fputs(message.c_str(), stderr);
    return exitStatus(failure.exit());
}

Failure internalError(const std::exception& error)
{
    return {ExitCode::internal,
            std::string("internal error: ") + error.what(),
            {"a change that was not told of as written was not made"}};
}

ExitCode runCommand(const Command& command, const Output& output)
{
    if (!command.hasForms) {
        output.formOf({Form::text});
    }
    return command.run();
}

int runAndTell(const Command& command, Output& output)
{
    try {
        const ExitCode exit = runCommand(command, output);
        if (output.json()) {
            writeOut(STDOUT_FILENO, view(output.document().text(exit)));
        }
        return exitStatus(exit);
    } catch (const Failure& failure) {
        return tell(failure, output);
    } catch (const std::exception& error) {
        return tell(internalError(error), output);
    }
}

int run(int argc, char** argv)
{
    CLI::App application{"Reads and changes the configuration of the directory server.", "veltor"};
    application.get_formatter()->label("SUBCOMMAND", "COMMAND");
    application.get_formatter()->column_width(24);
    application.footer(footer);
    application.fallthrough();
    application.require_subcommand(1);
    TargetOptions target;
    addTargetOptions(application, target);
    OutputOptions outputOptions;
    addOutputOptions(application, outputOptions);
    Output output(outputOptions);
    application.set_help_flag("-h,--help", "Print this help");
    application.set_version_flag("-V,--version", "veltor " VELTOR_VERSION, "Print the version");
    const std::vector<Command> commands{
        initCommand(application, target, output),    getCommand(application, target, output),
        explainCommand(application, target, output), searchCommand(application, target, output),
        treeCommand(application, target, output),    checkCommand(application, target, output),
        statusCommand(application, target, output),  setCommand(application, target, output),
        unsetCommand(application, target, output),   addCommand(application, target, output),
        modifyCommand(application, target, output),  applyCommand(application, target, output),
        deleteCommand(application, target, output),  passwdCommand(application, target, output),
        authCommand(application, target, output),    diffCommand(application, target, output),
        fmtCommand(application, target, output),     backupCommand(application, target, output),
        restoreCommand(application, target, output), completionCommand(application, target, output),
        helpCommand(application, target, output),    versionCommand(application, target, output),
    };
    // What the completion scripts call. It is no command that anybody types.
    if (argc == 3 && std::string_view(argv[1]) == "__complete") {
        answerShell(application, argv[2]);
        return exitStatus(ExitCode::done);
    }
    try {
        application.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return application.exit(success);
    } catch (const CLI::ParseError& error) {
        outputOptions.json = outputOptions.json || asksForJson({argv + 1, argv + argc});
        return tell(refusedCommandLine(application, error), output);
    }
    const auto given = std::find_if(commands.begin(), commands.end(),
                                    [](const Command& command) { return command.commandLine->parsed(); });
    return runAndTell(*given, output);
}

} // namespace

int main(int argc, char** argv)
{
    // A write beyond the limit of the file size is then an error like any other, and the file is looked at afterwards.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const Failure& failure) {
        std::fputs(failure.message().c_str(), stderr);
        return exitStatus(failure.exit());
    } catch (const std::exception& error) {
        std::fputs(internalError(error).message().c_str(), stderr);
        return exitStatus(ExitCode::internal);
    }
}
