// veltor delete: entries by their DNs.
#include "commands.h"
#include "update.h"

#include <memory>
#include <string>
#include <vector>

namespace veltor::tool {

namespace {

constexpr const char* footer =
    R"(An entry that does not exist is an error (exit status 8), and so is one with entries below
it unless -r is given.

)";

struct DeleteOptions
{
    std::vector<std::string> dns;
    UpdateOptions update;
};

ExitCode deleteEntries(const DeleteOptions& options, const TargetOptions& target, Output& output)
{
    ChangeSet changes{"", {}, {"DN", "DNs"}};
    for (const std::string& dn : options.dns) {
        changes.records.push_back({ChangeRecord::Kind::remove, dn, {}, {}});
    }
    return carryOut(std::move(changes), target, options.update, output);
}

} // namespace

Command deleteCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<DeleteOptions>();
    CLI::App* command = application.add_subcommand("delete", "Delete entries")->group("Commands");
    command->add_flag("-r", options->update.withSubtree, "Delete the entries below as well");
    addWriteOptions(*command, options->update.write);
    command->add_option("DN", options->dns, "The entries")->type_name("")->required();
    command->footer(std::string(footer) + writeFooter);
    return {command, [options, &target, &output] { return deleteEntries(*options, target, output); }};
}

} // namespace veltor::tool
