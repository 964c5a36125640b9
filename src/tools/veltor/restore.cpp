// veltor restore: the text of a backup in the file's place.
#include "commands.h"
#include "editor.h"
#include "escape.h"
#include "findings.h"
#include "ldif_output.h"
#include "masked_text.h"
#include "question.h"
#include "replacement.h"
#include "secrets.h"
#include "text_diff.h"
#include "whole_text.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace veltor::tool {

namespace {

constexpr const char* restoreFooter =
    R"(Without a name the text of FILE.bak is put back. It is read as the server would, shown as a
difference with its secrets masked, and installed after a question. What veltor check finds in
it, and not in the file, is told first. The text that was in the file becomes the new backup,
so that a second restore takes the first one back. Root and the owner restore also a file that
does not load any more, or is gone.

)";

struct RestoreOptions
{
    std::optional<std::string> from;
    WriteOptions write;
};

/// Tells what comes into the file that was not wrong with it before. Nothing of that keeps the server from starting.
void tellFindings(const Replacement& replacement, const std::string& from, Output& output)
{
    const std::vector<Finding> before = replacement.before ? findingsIn(*replacement.before) : std::vector<Finding>();
    const std::vector<Finding> findings = newFindings(findingsIn(replacement.after), before);
    for (const Finding& finding : findings) {
        const std::string line = finding.line > 0 ? ':' + std::to_string(finding.line) : "";
        writeOut(STDERR_FILENO,
                 escaped(from + line + ": " + wordFor(finding.severity) + ": " + finding.message) + '\n');
    }
    output.document().set("findings", jsonOf(findings));
}

/// The beginning of what is hidden of a line, with the lines that continue it.
WipedText hiddenText(const std::vector<std::string_view>& lines, const std::vector<std::size_t>& hiddenFrom,
                     std::size_t index)
{
    const auto withoutEnd = [](std::string_view line) { return line.substr(0, line.size() - lineEndOf(line).size()); };
    constexpr std::size_t enough = 256;
    WipedText text;
    const std::string_view line = withoutEnd(lines[index]);
    append(text, line.substr(std::min(hiddenFrom[index], line.size())));
    while (++index < lines.size() && text.size() < enough &&
           (lines[index].front() == ' ' || lines[index].front() == '\t')) {
        append(text, withoutEnd(lines[index]).substr(1));
    }
    return text;
}

/// The first line, comments aside, that has a mask where a secret would be; 0 for none.
std::size_t lineWithMask(std::string_view text)
{
    const std::vector<std::string_view> lines = linesOf(text);
    const std::vector<std::size_t> hiddenFrom = hiddenParts(lines);
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const bool hidden = hiddenFrom[index] != nothingHidden && !lines[index].starts_with('#');
        if (hidden && beginsLikeMask(view(hiddenText(lines, hiddenFrom, index)))) {
            return index + 1;
        }
    }
    return 0;
}

// What veltor edit has kept looks like a backup, and a mask would become a password.
void requireNoMask(std::string_view text, const std::string& from, const std::string& file)
{
    if (const std::size_t line = lineWithMask(text); line != 0) {
        throw Failure(
            ExitCode::refused, from + ':' + std::to_string(line) + ": *** stands for a hidden value and is none",
            {"nothing was written; an edit goes on from a text that it has kept: " + commandToGoOnFrom(from, file)});
    }
}

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
    requirePlainFile(from, "nothing was written");
    Replacement replacement;
    replacement.after = readConfiguration(from);
    const Session backup(readingOf(from));
    // What is put back must be what was found good.
    if (readConfiguration(from) != replacement.after) {
        throw Failure(ExitCode::busy, from + " is being changed", {"nothing was written; run the command again"});
    }
    requireNoMask(view(replacement.after), from, file);
    replacement.readFrom = backup.handle();
    replacement.before = textInPlace(file);
    replacement.source = from;
    replacement.like = from;
    replacement.log = "restored from " + resolvedName(from);
    tellFindings(replacement, from, output);
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
    command->footer(std::string(restoreFooter) + writeFooter);
    return {command, [options, &target, &output] { return restore(*options, target, output); }};
}

} // namespace veltor::tool
