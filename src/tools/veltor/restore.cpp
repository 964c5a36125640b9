// veltor restore: the text of a backup in the file's place.
#include "commands.h"
#include "ldif_output.h"
#include "question.h"
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
file becomes the new backup, so that a second restore takes the first one back.

)";

struct RestoreOptions
{
    std::optional<std::string> from;
    WriteOptions write;
};

ExitCode restore(const RestoreOptions& options, const TargetOptions& target, Output& output)
{
    const std::string from = options.from.value_or(fileOf(target) + ".bak");
    // Before the lock: nobody waits for a backup that can't be used.
    WipedText text = readConfiguration(from);
    const Session backup(readingOf(from));
    ChangeEngine engine(target, options.write, output);
    const std::string difference = shownDifference(view(engine.before()), view(text), engine.session().file(), from);
    if (!difference.empty() && !options.write.yes && !options.write.dryRun) {
        // Standard output belongs to the document, if there is one.
        writeOut(output.json() ? STDERR_FILENO : STDOUT_FILENO, difference);
        if (!confirmed(engine.session().file() + " becomes what " + from + " holds")) {
            throw Failure(ExitCode::no, "not restored", {"nothing was written"});
        }
    }
    engine.replaceText(std::move(text), backup.handle());
    ChangeReport report;
    report.source = from;
    report.log = "restored from " + from;
    return engine.finish(report);
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
