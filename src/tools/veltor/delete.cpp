// veltor delete: entries by their DNs.
#include "commands.h"
#include "update.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltor::tool {

namespace {

constexpr const char* deleteFooter =
    R"(An entry that does not exist is an error (exit status 8), and so is one with entries below
it unless -r is given. The DNs of a file stand one a line. Entries are deleted in the order
in which they are named, those on the command line first, and all of them or none.

)";

struct DeleteOptions
{
    std::vector<std::string> dns;
    std::optional<std::string> file;
    UpdateOptions update;
};

ExitCode deleteEntries(const DeleteOptions& options, const TargetOptions& target, Output& output)
{
    if (options.dns.empty() && !options.file) {
        throw Failure(ExitCode::usage, "delete needs the DN of an entry",
                      {"nothing was written; list the DNs with: veltor search --format value dn"});
    }
    ChangeSet changes =
        options.file ? deletionsFrom(*options.file, target) : ChangeSet{{"", "delete"}, {}, deletionWording};
    std::vector<ChangeRecord> named;
    for (const std::string& dn : options.dns) {
        named.push_back({ChangeRecord::Kind::remove, dn, {}, {}});
    }
    changes.records.insert(changes.records.begin(), named.begin(), named.end());
    return carryOut(std::move(changes), target, options.update, output);
}

} // namespace

Command deleteCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<DeleteOptions>();
    CLI::App* command = application.add_subcommand("delete", "Delete entries")->group("Commands");
    command->add_flag("-r", options->update.withSubtree, "Delete the entries below as well");
    command->add_option("-f", options->file, "Read DNs from FILE, one a line, - is standard input")->type_name("FILE");
    addWriteOptions(*command, options->update.write);
    command->add_option("DN", options->dns, "The entries")->type_name("");
    command->footer(std::string(deleteFooter) + writeFooter);
    return {command, [options, &target, &output] { return deleteEntries(*options, target, output); }};
}

} // namespace veltor::tool
