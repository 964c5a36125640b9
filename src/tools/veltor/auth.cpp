// veltor auth: may these credentials administer?
#include "commands.h"
#include "escape.h"
#include "ldif_output.h"

#include <string>
#include <unistd.h>

namespace veltor::tool {

namespace {

constexpr const char* footer =
    R"(Without a password the answer is yes for root and for the owner of the file; everybody else
is asked for one. Exit status 0 is yes, 5 is no.

The options common to all commands (-F, -D, -W, -y, -w, --local) are accepted here too;
see veltor --help.)";

ExitCode authenticate(const TargetOptions& target)
{
    const Session session(target, Purpose::authenticate);
    const std::string who = session.boundAs().empty() ? "root and the owner of the file" : session.boundAs();
    writeOut(STDOUT_FILENO, escaped(session.file() + ": " + who + " may administer") + '\n');
    return ExitCode::done;
}

} // namespace

Command authCommand(CLI::App& application, const TargetOptions& target)
{
    CLI::App* command =
        application.add_subcommand("auth", "Tell whether these credentials may administer")->group("Commands");
    command->footer(footer);
    return {command, [&target] { return authenticate(target); }};
}

} // namespace veltor::tool
