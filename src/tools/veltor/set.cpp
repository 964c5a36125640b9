// veltor set: settings of one entry by their names.
#include "assignments.h"
#include "commands.h"
#include "escape.h"
#include "update.h"

#include <memory>
#include <string>
#include <vector>

namespace veltor::tool {

namespace {

constexpr const char* setFooter =
    R"(NAME=VALUE sets the one value, NAME+=VALUE adds one, NAME-=VALUE takes one away; several
assignments of one name come together. NAME is a setting, with or without the zor-slapd or
zor- in front of it. Setting what is set already changes nothing. Passwords are for:
veltor passwd.

)";

struct SetOptions
{
    std::string dn = configurationDn;
    std::string comment;
    std::vector<std::string> assignments;
    UpdateOptions update;
};

ExitCode set(const SetOptions& options, const TargetOptions& target, Output& output)
{
    if (escaped(options.comment) != options.comment) {
        throw Failure(ExitCode::usage, "-m: a comment is one line of text",
                      {"nothing was written; leave line feeds and control characters out"});
    }
    ChangeSet changes{{"", "set"}, {}};
    changes.records.push_back(
        recordOf(options.dn, options.assignments, options.comment, options.update.write.allowUnknown));
    return carryOut(std::move(changes), target, options.update, output);
}

} // namespace

Command setCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<SetOptions>();
    options->update.lenient = true;
    CLI::App* command = application.add_subcommand("set", "Change settings of an entry")->group("Commands");
    const CLI::Option* const entry =
        command->add_option("-b", options->dn, "The entry; without it cn=Configuration")->type_name("DN");
    command->add_option("-m", options->comment, "Add this comment line above what changes")->type_name("TEXT");
    addWriteOptions(*command, options->update.write);
    command->add_option("NAME=VALUE", options->assignments, "What to set")->type_name("")->required();
    command->footer(std::string(setFooter) + writeFooter);
    return {command, [options, entry, &target, &output] {
                // Who names an entry means it.
                options->update.tellElsewhere = entry->empty();
                return set(*options, target, output);
            }};
}

} // namespace veltor::tool
