// veltor auth: may these credentials administer?
#include "commands.h"
#include "secrets.h"

#include <nlohmann/json.hpp>
#include <string>

namespace veltor::tool {

namespace {

constexpr const char* authFooter =
    R"(Without a password the answer is yes for root and for the owner of the file; everybody else
is asked for one. Exit status 0 is yes, 5 is no.

The options common to all commands (-F, -D, -W, -y, -w, --local) are accepted here too;
see veltor --help.)";

ExitCode authenticate(const TargetOptions& target, Output& output)
{
    output.document().setFile(fileOf(target));
    const Session session(target, Purpose::authenticate);
    output.document().set("boundAs",
                          session.boundAs().empty() ? nlohmann::ordered_json(nullptr) : jsonDn(session.boundAs()));
    const std::string who =
        session.boundAs().empty() ? "root and the owner of the file" : std::string(shownDn(session.boundAs()));
    output.print(session.file() + ": " + who + " may administer");
    return ExitCode::done;
}

} // namespace

Command authCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    CLI::App* command =
        application.add_subcommand("auth", "Tell whether these credentials may administer")->group("Commands");
    command->footer(authFooter);
    return {command, [&target, &output] { return authenticate(target, output); }};
}

} // namespace veltor::tool
