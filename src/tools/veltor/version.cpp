// veltor version: which one this is.
#include "commands.h"
#include "ldif_output.h"

#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>

namespace veltor::tool {

namespace {

ExitCode version(Output& output)
{
    if (output.json()) {
        output.document().set("version", VELTOR_VERSION);
    } else {
        writeOut(STDOUT_FILENO, "veltor " VELTOR_VERSION "\n");
    }
    return ExitCode::done;
}

} // namespace

Command versionCommand(CLI::App& application, const TargetOptions&, Output& output)
{
    CLI::App* command = application.add_subcommand("version", "Print the version")->group("Commands");
    return {command, [&output] { return version(output); }};
}

} // namespace veltor::tool
