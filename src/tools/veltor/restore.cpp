// veltor restore: the text of a backup in the file's place.
#include "commands.h"
#include "ldif_output.h"
#include "question.h"
#include "replacement.h"
#include "whole_text.h"

#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

namespace veltor::tool {

namespace {

constexpr const char* footer =
    R"(Without a name the text of FILE.bak is put back. It is read as the server would, shown as a
difference with its secrets masked, and installed after a question. The text that was in the
file becomes the new backup, so that a second restore takes the first one back. Root and the
owner restore also a file that does not load any more, or is gone.

)";

struct RestoreOptions
{
    std::optional<std::string> from;
    WriteOptions write;
};

// Asked before the lock is taken: nobody waits for the answer.
void ask(const std::string& difference, const std::string& file, const std::string& from, const Output& output)
{
    // Standard output belongs to the document, if there is one.
    writeOut(output.json() ? STDERR_FILENO : STDOUT_FILENO, difference);
    if (!confirmed(file + " becomes what " + from + " holds")) {
        throw Failure(ExitCode::no, "not restored", {"nothing was written; veltor restore asks again, --yes does not"});
    }
}

ExitCode restore(const RestoreOptions& options, const TargetOptions& target, Output& output)
{
    const std::string file = fileOf(target);
    output.document().setFile(file);
    const std::string from = options.from.value_or(file + ".bak");
    Replacement replacement;
    replacement.after = readConfiguration(from);
    const Session backup(readingOf(from));
    // What is put back must be what was found good.
    if (readConfiguration(from) != replacement.after) {
        throw Failure(ExitCode::busy, from + " is being changed", {"nothing was written; run the command again"});
    }
    replacement.readFrom = backup.handle();
    replacement.before = textInPlace(file);
    replacement.source = from;
    replacement.like = from;
    replacement.log = "restored from " + resolvedName(from);
    const WipedText before = replacement.before.value_or(WipedText());
    const std::string difference = shownDifference(view(before), view(replacement.after), file, from);
    if (!difference.empty() && !options.write.yes && !options.write.dryRun) {
        ask(difference, file, from, output);
    }
    return replaceWholeText(std::move(replacement), target, options.write, output);
}

} // namespace

Command restoreCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<RestoreOptions>();
    CLI::App* command = application.add_subcommand("restore", "Put a backup back")->group("Commands");
    command->add_option("BACKUP", options->from, "The text to put back; without it FILE.bak")->type_name("");
    addWriteOptions(*command, options->write);
    command->footer(std::string(footer) + writeFooter);
    return {command, [options, &target, &output] { return restore(*options, target, output); }};
}

} // namespace veltor::tool
