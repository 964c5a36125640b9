// veltor diff: what differs between two configurations, as texts with their secrets masked or as change records.
#include "change_scan.h"
#include "commands.h"
#include "dn_text.h"
#include "ldif_output.h"
#include "output.h"
#include "secrets.h"
#include "stored_tree.h"
#include "whole_text.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* diffFooter =
    R"(Without names the backup FILE.bak is compared with the file, with one name that file with
it. The exit status is 0 for no difference, 1 for one, and 2 or more for an error. Secrets
are masked: *** is the same in both texts, *** (before) and *** (after) are not.

With --ldif come the change records that make the second configuration of the first:
veltor modify takes them. They name the old values as well as the new ones. A password that
differs is only printed, in its stored form, with --show-secrets, to who may administer both
of them; without it the command stops. A version or charset that differs is a comment.

The options common to all commands (-F, -D, -W, -y, -w, --local) are accepted here too;
see veltor --help.)";

struct DiffOptions
{
    std::optional<std::string> before, after;
    bool ldif = false;
};

/// The change records that make one tree of another.
class Records
{
public:
    explicit Records(bool showSecrets) : showSecrets_(showSecrets) {}

    /// @return  the records, empty for equal trees
    WipedText make(const StoredTree& before, const StoredTree& after)
    {
        append(out_, "version: 1\n");
        const std::size_t head = out_.size();
        lookForOrphans(before, after);
        for (const EntryDifference& difference : differencesOf(before, after)) {
            const cfg_message& entry = difference.after == nullptr ? *difference.before : *difference.after;
            if (textOf(entry).empty()) {
                appendRoot(difference);
            } else if (difference.after == nullptr) {
                appendRemoval(*difference.before);
            } else if (difference.before == nullptr) {
                appendNew(*difference.after);
            } else {
                appendChange(difference);
            }
        }
        if (out_.size() == head) {
            out_.clear();
        }
        return std::move(out_);
    }

private:
    void begin(const cfg_message& entry, std::string_view change, std::string_view comment = "")
    {
        requireDn(entry);
        append(out_, "\n");
        if (!comment.empty()) {
            appendLdifComment(out_, comment);
        }
        appendLdifLine(out_, "dn", textOf(entry));
        appendLdifLine(out_, "changetype", change);
    }

    void lookForOrphans(const StoredTree& before, const StoredTree& after)
    {
        for (const cfg_message* entry : after.entries()) {
            std::string_view above = parentOf(textOf(*entry));
            if (!above.empty() && after.find(above) == nullptr) {
                orphans_.insert(entry);
            }
            for (; !above.empty() && after.find(above) == nullptr; above = parentOf(above)) {
                goneFromAbove_.insert(before.find(above));
            }
        }
    }

    void requireDn(const cfg_message& entry) const
    {
        if (!showSecrets_ && isSecretDn(textOf(entry))) {
            throw Failure(ExitCode::usage, "the DN of an entry that differs has a secret in it",
                          {"nothing was printed; --show-secrets prints it as it stands in the file"});
        }
    }

    // The file keeps any text before a colon as a name.
    static void requireName(const cfg_message& entry, std::string_view name)
    {
        if (!isAttributeDescription(name)) {
            throw Failure(ExitCode::refused,
                          std::string(shownDn(textOf(entry))) + ": \"" + std::string(shownName(name)) +
                              "\" differs, and change records can't name it",
                          {"nothing was printed; without --ldif the difference is printed as text"});
        }
    }

    void appendValue(const cfg_message& entry, std::string_view name, std::string_view value)
    {
        if (!showSecrets_ && isSecret(name, value)) {
            throw Failure(ExitCode::usage,
                          std::string(textOf(entry)) + ": " + std::string(shownName(name)) + " is a secret and differs",
                          {"nothing was printed; --show-secrets prints it as it is stored"});
        }
        appendLdifLine(out_, name, value);
    }

    // A deletion takes no entry from under those that are below it.
    void requireNothingBelow(const cfg_message& entry) const
    {
        if (goneFromAbove_.count(&entry) != 0) {
            throw Failure(ExitCode::refused,
                          std::string(textOf(entry)) + ": this entry is gone and those below it are not, which change "
                                                       "records can't make",
                          {"nothing was printed; without --ldif the difference is printed as text"});
        }
    }

    void appendRemoval(const cfg_message& entry)
    {
        requireDn(entry);
        requireNothingBelow(entry);
        append(out_, "\n");
        // What is lost, for whoever wants it back.
        for (const cfg_message* attribute = entry.children; attribute != nullptr; attribute = attribute->next) {
            for (const std::string_view value : valuesOf(attribute)) {
                const bool hidden = !showSecrets_ && isSecret(textOf(*attribute), value);
                appendLdifComment(out_, std::string(hidden ? shownName(textOf(*attribute)) : textOf(*attribute)) +
                                            ": " + (hidden ? "hidden" : std::string(value)));
            }
        }
        appendLdifLine(out_, "dn", textOf(entry));
        appendLdifLine(out_, "changetype", "delete");
    }

    // There is no DN for what stands above the entries.
    void appendRoot(const EntryDifference& difference)
    {
        append(out_, "\n");
        appendLdifComment(out_, "Above the entries, where no change record reaches:");
        appendRootValues("- ", difference.before, difference.after);
        appendRootValues("+ ", difference.after, difference.before);
        warn("version or charset differ; that is told in a comment, since change records can't: see veltor edit");
    }

    void appendRootValues(const std::string& sign, const cfg_message* root, const cfg_message* other)
    {
        const cfg_message* attribute = root == nullptr ? nullptr : root->children;
        for (; attribute != nullptr; attribute = attribute->next) {
            const std::string name(textOf(*attribute));
            const StoredValues values = valuesOf(attribute);
            if (other != nullptr && valuesOf(attributeOf(*other, name)) == values) {
                continue;
            }
            for (const std::string_view value : values) {
                appendLdifComment(out_, sign + name + ": " + std::string(value));
            }
        }
    }

    void appendNew(const cfg_message& entry)
    {
        begin(entry, "add",
              orphans_.count(&entry) == 0 ? "" : "The entry above is missing: veltor modify --orphan permits that.");
        for (const cfg_message* attribute = entry.children; attribute != nullptr; attribute = attribute->next) {
            const std::string_view name = textOf(*attribute);
            requireName(entry, name);
            for (const std::string_view value : valuesOf(attribute)) {
                appendValue(entry, name, value);
            }
        }
    }

    void appendOperation(const cfg_message& entry, std::string_view operation, std::string_view name,
                         const StoredValues& values)
    {
        if (values.empty()) {
            return;
        }
        appendLdifLine(out_, operation, name);
        for (const std::string_view value : values) {
            appendValue(entry, name, value);
        }
        append(out_, "-\n");
    }

    void appendChange(const EntryDifference& difference)
    {
        begin(*difference.after, "modify");
        for (const std::string_view name : difference.attributes) {
            requireName(*difference.after, name);
            appendDifference(*difference.after, name, valuesOf(attributeOf(*difference.before, name)),
                             valuesOf(attributeOf(*difference.after, name)));
        }
    }

    void appendDifference(const cfg_message& entry, std::string_view name, const StoredValues& oldValues,
                          const StoredValues& newValues)
    {
        const auto without = [](const StoredValues& values, const StoredValues& others) {
            const std::set<std::string_view> known(others.begin(), others.end());
            StoredValues rest;
            std::copy_if(values.begin(), values.end(), std::back_inserter(rest),
                         [&](std::string_view value) { return known.count(value) == 0; });
            return rest;
        };
        const StoredValues gone = without(oldValues, newValues);
        const StoredValues come = without(newValues, oldValues);
        StoredValues made = without(oldValues, gone);
        made.insert(made.end(), come.begin(), come.end());
        // New values come behind those that stay; for another order all of them go first.
        const bool inOrder = made == newValues;
        appendOperation(entry, "delete", name, inOrder ? gone : oldValues);
        appendOperation(entry, "add", name, inOrder ? come : newValues);
    }

    bool showSecrets_;
    std::set<const cfg_message*> orphans_;       ///< entries whose parent is missing
    std::set<const cfg_message*> goneFromAbove_; ///< entries of the tree before that are missing above others
    WipedText out_;
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
    return Records(output.showSecrets()).make(StoredTree(beforeSession.handle()), StoredTree(afterSession.handle()));
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
