// veltor, the administration tool: takes the command line apart, runs the command, turns failures into messages
// and exit codes.
#include "commands.h"
#include "credentials.h"
#include "escape.h"
#include "front_options.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace veltor::tool;

constexpr const char* toolFooter =
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
        output.write(view(output.document().text(failure.exit())));
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
            output.write(view(output.document().text(exit)));
        }
        return exitStatus(exit);
    } catch (const Failure& failure) {
        return tell(failure, output);
    } catch (const std::exception& error) {
        return tell(internalError(error), output);
    }
}

// ---- The command line ----

struct CommandRow
{
    const char* name;
    Command (*add)(CLI::App& application, const TargetOptions& target, Output& output);
    bool isAboutAll = false; ///< it speaks of the others
};

/// In the order of the help.
constexpr CommandRow allCommands[] = {
    {"init", initCommand},       {"get", getCommand},         {"explain", explainCommand},
    {"search", searchCommand},   {"tree", treeCommand},       {"check", checkCommand},
    {"status", statusCommand},   {"set", setCommand},         {"unset", unsetCommand},
    {"add", addCommand},         {"modify", modifyCommand},   {"apply", applyCommand},
    {"delete", deleteCommand},   {"passwd", passwdCommand},   {"auth", authCommand},
    {"edit", editCommand},       {"diff", diffCommand},       {"fmt", fmtCommand},
    {"backup", backupCommand},   {"restore", restoreCommand}, {"completion", completionCommand},
    {"help", helpCommand, true}, {"version", versionCommand},
};

using Words = std::vector<std::string>;
using CommandRows = std::vector<CommandRow>;

/// The commands that a command line can mean: those whose names stand somewhere in it. To describe all of them to the
/// parser takes longer than most of them run.
CommandRows commandsIn(const Words& words)
{
    CommandRows named;
    for (const CommandRow& row : allCommands) {
        if (std::find(words.begin(), words.end(), row.name) == words.end()) {
            continue;
        }
        if (row.isAboutAll) {
            return {std::begin(allCommands), std::end(allCommands)};
        }
        named.push_back(row);
    }
    return named;
}

/// Takes out the second empty line that the parser puts behind options when hidden ones follow.
class HelpText : public CLI::Formatter
{
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override
    {
        std::string text = CLI::Formatter::make_help(app, std::move(name), mode);
        for (std::size_t at = text.find("\n\n\n"); at != std::string::npos; at = text.find("\n\n\n", at)) {
            text.erase(at, 1);
        }
        return text;
    }
};

/// The parser with its commands, for one run.
class CommandLine
{
public:
    explicit CommandLine(const CommandRows& rows)
    {
        application_.formatter(std::make_shared<HelpText>());
        application_.get_formatter()->label("SUBCOMMAND", "COMMAND");
        application_.get_formatter()->column_width(24);
        application_.footer(toolFooter);
        application_.fallthrough();
        application_.require_subcommand(1);
        addTargetOptions(application_, target_);
        addOutputOptions(application_, outputOptions_);
        application_.set_help_flag("-h,--help", "Print this help");
        application_.set_version_flag("-V,--version", "veltor " VELTOR_VERSION, "Print the version");
        for (const CommandRow& row : rows) {
            commands_.push_back(row.add(application_, target_, output_));
            output_.acceptNulOption(*commands_.back().commandLine);
        }
    }

    /// Parses and runs.
    /// @return  the exit status; nothing if what is to be told is about all commands, and there are only some
    std::optional<int> run(const Words& words)
    {
        try {
            // The parser takes them from the end.
            application_.parse(Words(words.rbegin(), words.rend()));
        } catch (const CLI::ParseError& error) {
            if (application_.get_subcommands().empty() && commands_.size() < std::size(allCommands)) {
                return std::nullopt;
            }
            return end(error, words);
        }
        const auto given = std::find_if(commands_.begin(), commands_.end(),
                                        [](const Command& command) { return command.commandLine->parsed(); });
        return runAndTell(*given, output_);
    }

    const CLI::App& application() const { return application_; }

private:
    int end(const CLI::ParseError& error, const Words& words)
    {
        outputOptions_.json = outputOptions_.json || asksForJson(words);
        // Help and version come as an exception as well.
        if (dynamic_cast<const CLI::Success*>(&error) != nullptr) {
            return runAndTell({nullptr, [&] { return tellOfItself(error); }, true}, output_);
        }
        return tell(refusedCommandLine(application_, error), output_);
    }

    ExitCode tellOfItself(const CLI::ParseError& asked)
    {
        const bool version = dynamic_cast<const CLI::CallForVersion*>(&asked) != nullptr;
        if (!output_.json()) {
            output_.write(version ? std::string(asked.what()) + '\n' : application_.help());
        } else if (version) {
            output_.document().set("version", VELTOR_VERSION);
        } else {
            output_.document().set("help", application_.help());
        }
        return ExitCode::done;
    }

    CLI::App application_{"Reads and changes the configuration of the directory server.", "veltor"};
    TargetOptions target_;
    OutputOptions outputOptions_;
    Output output_{outputOptions_};
    std::vector<Command> commands_;
};

int run(int argc, char** argv)
{
    const CommandRows all(std::begin(allCommands), std::end(allCommands));
    // What the completion scripts call. It is no command that anybody types.
    if (argc == 3 && std::string_view(argv[1]) == "__complete") {
        answerShell(CommandLine(all).application(), argv[2]);
        return exitStatus(ExitCode::done);
    }
    const Words given(argv + 1, argv + argc);
    const bool hasOptionsInFront = !given.empty() && given.front().starts_with('-');
    const Words words = hasOptionsInFront ? FrontOptions().putBehind(given) : given;
    if (const std::optional<int> status = CommandLine(commandsIn(words)).run(words)) {
        return *status;
    }
    return CommandLine(all).run(words).value();
}

} // namespace

int main(int argc, char** argv)
{
    // A write beyond the limit of the file size is then an error like any other, and the file is looked at afterwards.
    std::signal(SIGXFSZ, SIG_IGN);
    // Hardly a command does without the file and the passwords in it.
    disableCoreDumps();
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
