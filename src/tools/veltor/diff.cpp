// veltor diff: what differs between two configurations, as texts with their secrets masked or as change records.
#include "commands.h"
#include "difference_records.h"
#include "ldif_output.h"
#include "output.h"
#include "whole_text.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unistd.h>

namespace veltor::tool {

namespace {

constexpr const char* diffFooter =
    R"(Without names the backup FILE.bak is compared with the file, with one name that file with
it. The exit status is 0 for no difference, 1 for one, and 2 or more for an error. Secrets
are masked: *** is the same in both texts, *** (before) and *** (after) are not.

With --ldif come the change records that make the second configuration of the first:
veltor modify takes them, where a comment says so with an option. They name the old values
as well as the new ones. What records can't make is refused (exit status 3). A password that
differs is only printed, in its stored form, with --show-secrets, to who may administer both
of them; without it the command stops. A version or charset that differs is a comment.

The options common to all commands (-F, -D, -W, -y, -w, --local) are accepted here too;
see veltor --help.)";

struct DiffOptions
{
    std::optional<std::string> before, after;
    bool ldif = false;
};

/// Opens one of the files to compare. Its secrets are for those alone who may administer this very file.
Session opened(const std::string& file, TargetOptions target, const Output& output)
{
    if (!output.showSecrets()) {
        return Session(readingOf(file));
    }
    target.file = file;
    try {
        Session session(target);
        checkShowSecrets(output, session);
        return session;
    } catch (const Failure& failure) {
        const std::string_view finding = failure.what();
        const std::string place = finding.starts_with(file) ? "" : file + ": ";
        throw Failure(failure.exit(), place + std::string(finding), failure.details(), failure.facts());
    }
}

WipedText ldifOf(const std::string& before, const std::string& after, TargetOptions target, const Output& output)
{
    target.heldPassword = std::make_shared<WipedText>();
    const Session beforeSession = opened(before, target, output);
    const Session afterSession = opened(after, target, output);
    return changeRecords(beforeSession, afterSession, output.showSecrets());
}

WipedText textDiffOf(const std::string& before, const std::string& after)
{
    const WipedText beforeText = readConfiguration(before, "nothing was compared");
    const WipedText afterText = readConfiguration(after, "nothing was compared");
    WipedText out;
    append(out, shownDifference(view(beforeText), view(afterText), before, after));
    return out;
}

void requireReadable(const std::string& file, const char* nextStep)
{
    if (const std::optional<Failure> failure = unreadableFile(file, "nothing was compared", nextStep)) {
        throw *failure;
    }
}

ExitCode diff(const DiffOptions& options, const TargetOptions& target, Output& output)
{
    if (output.showSecrets() && !options.ldif) {
        throw Failure(ExitCode::usage, "the texts are compared with their secrets masked",
                      {"nothing was read; --show-secrets goes with --ldif"});
    }
    const std::string after = options.after ? *options.after : fileOf(target);
    const std::string before = options.before.value_or(after + ".bak");
    output.document().setFile(after);
    // What is named may be a pipe: the output of another command is compared as well.
    if (!options.before || options.ldif) {
        requirePlainFile(before, "nothing was compared");
    }
    if (!options.after || options.ldif) {
        requirePlainFile(after, "nothing was compared");
    }
    requireReadable(before, options.before ? "name another file" : "make a backup with: veltor backup");
    requireReadable(after, "name another file");
    const WipedText out = options.ldif ? ldifOf(before, after, target, output) : textDiffOf(before, after);
    if (output.json()) {
        output.document().set("different", !out.empty());
        output.document().setText("difference", view(out));
    } else if (options.ldif && !output.quiet()) {
        writeOut(STDOUT_FILENO, view(out));
    } else if (!output.quiet()) {
        writeOut(STDOUT_FILENO, output.colouredDifference(STDOUT_FILENO, view(out)));
    }
    return out.empty() ? ExitCode::done : ExitCode::no;
}

} // namespace

Command diffCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<DiffOptions>();
    CLI::App* command =
        application.add_subcommand("diff", "Tell what differs between two configurations")->group("Commands");
    command->add_flag("--ldif", options->ldif, "Print change records that veltor modify takes");
    command->add_option("A", options->before, "The file before; without it the backup FILE.bak")->type_name("");
    command->add_option("B", options->after, "The file after; without it the configuration file")->type_name("");
    command->footer(diffFooter);
    return {command, [options, &target, &output] { return diff(*options, target, output); }};
}

} // namespace veltor::tool
