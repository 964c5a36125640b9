// veltor unset: takes settings out of one entry.
#include "assignments.h"
#include "commands.h"
#include "names.h"
#include "update.h"

#include <memory>
#include <string>
#include <vector>

namespace veltor::tool {

namespace {

constexpr const char* unsetFooter =
    R"(The comment lines directly above a setting go with it, and are printed. A setting that is
not there changes nothing; with --strict it is an error (exit status 8). So is a name that
neither veltor nor the entry knows (3), unless --allow-unknown is given.

)";

struct UnsetOptions
{
    std::string dn = configurationDn;
    bool strict = false;
    std::vector<std::string> names;
    UpdateOptions update;
};

ExitCode unset(UnsetOptions& options, const TargetOptions& target, Output& output)
{
    options.update.lenient = !options.strict;
    options.update.knownNamesOnly = true;
    ChangeRecord record{ChangeRecord::Kind::modify, options.dn, {}, {}};
    for (const std::string& name : options.names) {
        // What the catalogue does not have may still stand in the file, and be taken out.
        record.operations.push_back({ChangeOperation::Kind::remove, settingName(name, true), {}, {}});
    }
    ChangeSet changes{{"", "unset"}, {}};
    changes.records.push_back(std::move(record));
    return carryOut(std::move(changes), target, options.update, output);
}

} // namespace

Command unsetCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<UnsetOptions>();
    CLI::App* command = application.add_subcommand("unset", "Take settings out of an entry")->group("Commands");
    const CLI::Option* const entry =
        command->add_option("-b", options->dn, "The entry; without it cn=Configuration")->type_name("DN");
    command->add_flag("--strict", options->strict, "A setting that is not there is an error");
    addWriteOptions(*command, options->update.write);
    command->add_option("NAME", options->names, "The settings")->type_name("")->required();
    command->footer(std::string(unsetFooter) + writeFooter);
    return {command, [options, entry, &target, &output] {
                // Who names an entry means it.
                options->update.tellElsewhere = entry->empty();
                return unset(*options, target, output);
            }};
}

} // namespace veltor::tool
