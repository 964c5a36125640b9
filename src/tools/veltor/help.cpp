// veltor help: what COMMAND --help prints, for those who look for the command first.
#include "commands.h"
#include "ldif_output.h"
#include "nearest.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>
#include <vector>

namespace veltor::tool {

namespace {

const CLI::App* commandNamed(const CLI::App& application, const std::string& name)
{
    const std::vector<const CLI::App*> found =
        application.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

ExitCode help(const CLI::App& application, const std::string& name, Output& output)
{
    const CLI::App* const subject = name.empty() ? &application : commandNamed(application, name);
    if (subject == nullptr) {
        throw unknownCommand(application, name, '"' + name + "\" is no command");
    }
    const std::string full = application.get_name() + (name.empty() ? "" : " " + name);
    const std::string text = application.get_formatter()->make_help(subject, full, CLI::AppFormatMode::Normal);
    if (output.json()) {
        output.document().set("help", text);
    } else {
        writeOut(STDOUT_FILENO, text);
    }
    return ExitCode::done;
}

} // namespace

Failure unknownCommand(const CLI::App& application, const std::string& name, const std::string& finding)
{
    std::vector<std::string> names;
    for (const CLI::App* command : application.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    return {ExitCode::usage, finding + didYouMean(nearestWords(name, names)), {"nothing was read; see: veltor --help"}};
}

Command helpCommand(CLI::App& application, const TargetOptions&, Output& output)
{
    const auto name = std::make_shared<std::string>();
    CLI::App* command = application.add_subcommand("help", "Print the help of a command")->group("Commands");
    command->add_option("COMMAND", *name, "The command; without it the help of all of them")->type_name("");
    return {command, [name, &application, &output] { return help(application, *name, output); }};
}

} // namespace veltor::tool
