// veltor apply: makes entries as they are described.
#include "change_records.h"
#include "commands.h"
#include "update.h"

#include <memory>
#include <string>

namespace veltor::tool {

namespace {

constexpr const char* applyFooter =
    R"(An entry that is missing is added; each attribute that is named gets just the values that are
told, and others stay as they are, or go with --prune: all but secrets, which veltor search
does not print, objectclass, and the attribute that names the entry. Entries that are not
told stay as they are. What is so already changes nothing.

)";

struct ApplyOptions
{
    std::string file = "-";
    UpdateOptions update;
};

ExitCode apply(const ApplyOptions& options, const TargetOptions& target, Output& output)
{
    ChangeSet changes = changesFrom(options.file, RecordForm::newEntries, target, "apply");
    for (ChangeRecord& record : changes.records) {
        record.kind = ChangeRecord::Kind::ensure;
    }
    return carryOut(std::move(changes), target, options.update, output);
}

} // namespace

Command applyCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<ApplyOptions>();
    CLI::App* command = application.add_subcommand("apply", "Make entries as they are described")->group("Commands");
    command->add_option("-f", options->file, "Read the entries from FILE; without it, or with -, from standard input")
        ->type_name("FILE");
    command->add_flag("--prune", options->update.prune, "Remove the other attributes of these entries");
    command->add_flag("--orphan", options->update.orphan, "Add entries whose parent is missing");
    addWriteOptions(*command, options->update.write);
    command->footer(std::string(applyFooter) + writeFooter);
    return {command, [options, &target, &output] { return apply(*options, target, output); }};
}

} // namespace veltor::tool
