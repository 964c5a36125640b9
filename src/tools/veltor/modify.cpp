// veltor modify and veltor add: change records from a file or from standard input.
#include "change_records.h"
#include "commands.h"
#include "update.h"

#include <memory>
#include <string>

namespace veltor::tool {

namespace {

constexpr const char* modifyFooter =
    R"(Change records are those of RFC 2849: add, delete, modify. Renaming, controls, ":<" URLs
and "include:" lines are refused, and no file but FILE is read. All records are looked at
before the first is carried out; what is wrong with them is told with line and column.

Adding a value that is there and deleting an attribute or a value that is not there are
errors (exit status 8); with --lenient they change nothing.

)";

constexpr const char* addFooter =
    R"(An entry that exists is an error (exit status 8), and so is one whose parent is missing
(exit status 3). URLs and "include:" lines are refused, and no file but FILE is read. All
entries are looked at before the first is added.

)";

struct ModifyOptions
{
    std::string file = "-";
    bool contentIsAdd = false;
    UpdateOptions update;
};

ExitCode runChanges(const ModifyOptions& options, RecordForm form, const std::string& command,
                    const TargetOptions& target, Output& output)
{
    return carryOut(changesFrom(options.file, form, target, command), target, options.update, output);
}

void addFileOption(CLI::App& command, ModifyOptions& options)
{
    command.add_option("-f", options.file, "Read the records from FILE; without it, or with -, from standard input")
        ->type_name("FILE");
    command.add_flag("--orphan", options.update.orphan, "Add entries whose parent is missing");
    addWriteOptions(command, options.update.write);
}

} // namespace

Command modifyCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<ModifyOptions>();
    CLI::App* command = application.add_subcommand("modify", "Carry out change records")->group("Commands");
    command->add_flag("-a", options->contentIsAdd, "Take records without a changetype as new entries");
    command->add_flag("--lenient", options->update.lenient, "Values that are there, or not there, are no error");
    addFileOption(*command, *options);
    command->footer(std::string(modifyFooter) + writeFooter);
    return {command, [options, &target, &output] {
                return runChanges(*options, options->contentIsAdd ? RecordForm::changesAndContent : RecordForm::changes,
                                  "modify", target, output);
            }};
}

Command addCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<ModifyOptions>();
    CLI::App* command = application.add_subcommand("add", "Add entries from LDIF")->group("Commands");
    addFileOption(*command, *options);
    command->footer(std::string(addFooter) + writeFooter);
    return {command, [options, &target, &output] {
                return runChanges(*options, RecordForm::newEntries, "add", target, output);
            }};
}

} // namespace veltor::tool
