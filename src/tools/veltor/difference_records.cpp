// Each record is looked at with the rules of what carries it out: a record that is refused, or makes something else of
// the file, is worse than none.
#include "difference_records.h"

#include "administrator.h"
#include "change_records.h"
#include "change_scan.h"
#include "dn_text.h"
#include "entry_rules.h"
#include "escape.h"
#include "ldif_output.h"
#include "memory_file.h"
#include "names.h"
#include "secrets.h"
#include "stored_tree.h"
#include "whole_text.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <vector>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

/// A configuration to compare, and what of it a change can bring about.
class Side
{
public:
    explicit Side(const Session& session) : file_(session.file()), handle_(session.handle()), tree_(handle_) {}

    const std::string& file() const { return file_; }

    void* handle() const { return handle_; }
    const StoredTree& tree() const { return tree_; }

    /// The entry as the library's own form gives it back, null for one that comes back under another DN. What it has
    /// not, a change could not name either.
    const cfg_message* asItComesBack(const cfg_message& entry) const
    {
        if (!isReadAgain_) {
            isReadAgain_ = true;
            readAgain();
        }
        return again_ ? again_->find(entry) : nullptr;
    }

private:
    void readAgain() const
    {
        try {
            const MemoryFile copy(view(rendered(handle_)));
            session_.emplace(readingOf(copy.name()));
            again_.emplace(session_->handle());
        } catch (const Failure&) {
            // A form that does not load gives nothing back.
            again_.reset();
        }
    }

    std::string file_;
    void* handle_;
    StoredTree tree_;
    mutable bool isReadAgain_ = false;
    mutable std::optional<Session> session_;
    mutable std::optional<StoredTree> again_; ///< read from the own form, when somebody asks for it
};

StoredValues without(const StoredValues& values, const StoredValues& others)
{
    const std::set<std::string_view> known(others.begin(), others.end());
    StoredValues rest;
    std::copy_if(values.begin(), values.end(), std::back_inserter(rest),
                 [&](std::string_view value) { return known.count(value) == 0; });
    return rest;
}

/// The change records that make one configuration of another.
class Records
{
public:
    Records(const Side& before, const Side& after, bool showSecrets)
        : before_(before), after_(after), showSecrets_(showSecrets)
    {
    }

    WipedText make()
    {
        const std::vector<EntryDifference> differences = differencesOf(before_.tree(), after_.tree());
        if (differences.empty()) {
            return {};
        }
        append(out_, "version: 1\n");
        if (hasAdministrator(before_.handle()) && !hasAdministrator(after_.handle())) {
            append(out_, "\n");
            appendLdifComment(out_,
                              "Nobody could bind as administrator then: veltor modify --allow-lockout permits that.");
        }
        lookForOrphans();
        requireLastLine();
        std::string above;
        for (const EntryDifference& difference : differences) {
            if (textOf(difference.after == nullptr ? *difference.before : *difference.after).empty()) {
                above = appendRoot(difference);
                continue;
            }
            const std::size_t begin = out_.size();
            if (difference.after == nullptr) {
                appendRemoval(*difference.before);
            } else if (difference.before == nullptr) {
                appendNew(*difference.after);
            } else {
                appendChange(*difference.before, *difference.after, difference.attributes);
            }
            requireTaken(difference.after == nullptr ? *difference.before : *difference.after, begin);
        }
        if (!above.empty()) {
            warn("what stands above the entries differs (" + above +
                 "); that is told in a comment, since change records can't: see veltor edit");
        }
        return std::move(out_);
    }

private:
    /// What a modification does to one attribute. Of the values before and after, lists of what goes and what comes.
    struct Step
    {
        std::string_view name;
        StoredValues gone, come;
        bool isWhole = false; ///< all values go, whatever they are, and what comes replaces them
    };

    // ---- Refusals ----

    [[noreturn]] static void refuse(const cfg_message& entry, std::string_view name, const std::string& finding)
    {
        std::string headline(shownDn(textOf(entry)));
        headline.append(": ").append(name.empty() ? "this entry" : shownName(name));
        headline.append(" differs, and change records can't make it: ").append(finding);
        throw Failure(ExitCode::refused, headline,
                      {"nothing was printed; without --ldif the difference is printed as text"},
                      factsAbout(std::string(textOf(entry)), std::string(name)));
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

    void requireShown(const cfg_message& entry, std::string_view name, const StoredValues& values) const
    {
        const bool hidden = !showSecrets_ && std::any_of(values.begin(), values.end(),
                                                         [&](std::string_view value) { return isSecret(name, value); });
        if (hidden) {
            const std::string place = textOf(entry).empty() ? "above the entries" : std::string(shownDn(textOf(entry)));
            throw Failure(ExitCode::usage, place + ": " + std::string(shownName(name)) + " is a secret and differs",
                          {"nothing was printed; --show-secrets prints it as it is stored"});
        }
    }

    void requireDecoded(const cfg_message& entry, std::string_view name) const
    {
        if (isPassword(name) && !canBeDecoded(after_.handle(), std::string(textOf(entry)), std::string(name))) {
            refuse(entry, name, "the stored password can't be decoded");
        }
    }

    static void requireComesBack(const Side& side, const cfg_message& entry)
    {
        if (side.asItComesBack(entry) == nullptr) {
            refuse(entry, "", "it would come back under another DN");
        }
    }

    void requireComesBack(const cfg_message& entry, std::string_view name, const StoredValues& values) const
    {
        // What it would be is better known than that it would be something else.
        const auto why = [&](std::string_view value) { return whyUnstorable(name, value).has_value(); };
        if (std::none_of(values.begin(), values.end(), why) && !comesBack(after_, entry, name, values)) {
            refuse(entry, name, "a value would come back as another one");
        }
    }

    static bool comesBack(const Side& side, const cfg_message& entry, std::string_view name, const StoredValues& values)
    {
        const cfg_message* const again = side.asItComesBack(entry);
        const StoredValues known = again == nullptr ? StoredValues() : valuesOf(attributeOf(*again, name));
        const std::set<std::string_view> kept(known.begin(), known.end());
        return std::all_of(values.begin(), values.end(),
                           [&](std::string_view value) { return kept.count(value) != 0; });
    }

    static void requireSingle(const cfg_message& entry, std::string_view name, std::size_t before, std::size_t after)
    {
        if (isTooMany(name, before, after)) {
            refuse(entry, name, "only one value is allowed, and there would be " + std::to_string(after));
        }
    }

    // A deletion takes no entry from under those that are below it.
    void requireNothingBelow(const cfg_message& entry) const
    {
        if (goneFromAbove_.count(&entry) != 0) {
            throw Failure(ExitCode::refused,
                          std::string(shownDn(textOf(entry))) +
                              ": this entry is gone and those below it are not, which change records can't make",
                          {"nothing was printed; without --ldif the difference is printed as text"});
        }
    }

    // A last line without a line feed is written anew when something comes behind it. What stays as it is must not be
    // one that would read differently then.
    void requireLastLine() const
    {
        const WipedText text = readConfiguration(before_.file(), "nothing was compared");
        if (text.empty() || text.back() == '\n') {
            return;
        }
        for (const cfg_message* entry : before_.tree().entries()) {
            const cfg_message* const after = after_.tree().find(*entry);
            for (const cfg_message* attribute = after == nullptr ? nullptr : entry->children; attribute != nullptr;
                 attribute = attribute->next) {
                const std::string_view name = textOf(*attribute);
                const StoredValues values = valuesOf(attribute);
                const StoredValues stay = without(values, without(values, valuesOf(attributeOf(*after, name))));
                if (!comesBack(before_, *entry, name, stay)) {
                    throw Failure(ExitCode::refused,
                                  before_.file() + ": the last line has no line feed, and behind a change it could be "
                                                   "read differently",
                                  {"nothing was printed; end the file with a line feed"}, {.file = before_.file()});
                }
            }
        }
    }

    /// Has the record that begins there looked at as veltor modify does, ahead of all others.
    void requireTaken(const cfg_message& entry, std::size_t begin) const
    {
        WipedText record;
        append(record, view(out_).substr(begin));
        try {
            readChanges({"", "modify"}, record, RecordForm::changes);
        } catch (const Failure& failure) {
            // The place is one in a text that nobody sees.
            std::string_view finding = failure.what();
            const std::string place = failure.facts().source.text() + ": ";
            finding.remove_prefix(finding.starts_with(place) ? place.size() : 0);
            refuse(entry, failure.facts().attribute, std::string(finding));
        }
    }

    // ---- Records ----

    void lookForOrphans()
    {
        for (const cfg_message* entry : after_.tree().entries()) {
            std::string_view above = parentOf(textOf(*entry));
            if (!above.empty() && after_.tree().find(above) == nullptr) {
                orphans_.insert(entry);
            }
            // Only what is there already can be below an entry that is deleted, and what comes in between comes later.
            for (; before_.tree().find(*entry) != nullptr && !above.empty(); above = parentOf(above)) {
                if (after_.tree().find(above) == nullptr) {
                    goneFromAbove_.insert(before_.tree().find(above));
                }
            }
        }
    }

    /// @param comments  lines that go above the record
    void begin(const cfg_message& entry, std::string_view change, const WipedText& comments)
    {
        append(out_, "\n");
        append(out_, view(comments));
        appendLdifLine(out_, "dn", textOf(entry));
        appendLdifLine(out_, "changetype", change);
    }

    /// "# SIGN NAME: VALUE". No copy of the value stays behind.
    static void appendValueComment(WipedText& out, std::string_view sign, std::string_view name, std::string_view value)
    {
        append(out, "# ");
        append(out, sign);
        appendEscaped(out, name);
        append(out, ": ");
        appendEscaped(out, value);
        out.push_back('\n');
    }

    /// What is lost, for whoever wants it back.
    void appendLost(WipedText& comments, std::string_view name, const StoredValues& values) const
    {
        for (const std::string_view value : values) {
            const bool hidden = !showSecrets_ && isSecret(name, value);
            appendValueComment(comments, "", hidden ? shownName(name) : name, hidden ? "hidden" : value);
        }
    }

    static void appendIfUnknown(WipedText& comments, bool isUnknown)
    {
        if (isUnknown) {
            appendLdifComment(comments, "A name in it is not known: veltor modify --allow-unknown permits that.");
        }
    }

    void appendRemoval(const cfg_message& entry)
    {
        requireDn(entry);
        requireNothingBelow(entry);
        requireComesBack(before_, entry);
        WipedText comments;
        for (const cfg_message* attribute = entry.children; attribute != nullptr; attribute = attribute->next) {
            appendLost(comments, textOf(*attribute), valuesOf(attribute));
        }
        begin(entry, "delete", comments);
    }

    /// There is no DN for what stands above the entries.
    /// @return  the names of what differs
    std::string appendRoot(const EntryDifference& difference)
    {
        append(out_, "\n");
        appendLdifComment(out_, "Above the entries, where no change record reaches:");
        std::vector<std::string> names;
        appendRootValues("- ", difference.before, difference.after, names);
        appendRootValues("+ ", difference.after, difference.before, names);
        std::string list;
        for (const std::string& name : names) {
            list += (list.empty() ? "" : ", ") + name;
        }
        return list;
    }

    void appendRootValues(std::string_view sign, const cfg_message* root, const cfg_message* other,
                          std::vector<std::string>& names)
    {
        const cfg_message* attribute = root == nullptr ? nullptr : root->children;
        for (; attribute != nullptr; attribute = attribute->next) {
            const std::string name(textOf(*attribute));
            const StoredValues values = valuesOf(attribute);
            if (other != nullptr && valuesOf(attributeOf(*other, name)) == values) {
                continue;
            }
            requireShown(*root, name, values);
            const std::string shown(shownName(name));
            if (std::find(names.begin(), names.end(), shown) == names.end()) {
                names.push_back(shown);
            }
            for (const std::string_view value : values) {
                appendValueComment(out_, sign, name, value);
            }
        }
    }

    void appendNew(const cfg_message& entry)
    {
        requireDn(entry);
        requireComesBack(after_, entry);
        WipedText comments;
        if (orphans_.count(&entry) != 0) {
            appendLdifComment(comments, "The entry above is missing: veltor modify --orphan permits that.");
        }
        bool isUnknown = false;
        for (const cfg_message* attribute = entry.children; attribute != nullptr; attribute = attribute->next) {
            isUnknown = isUnknown || (attribute->children != nullptr && !attributeType(textOf(*attribute)));
        }
        appendIfUnknown(comments, isUnknown);
        begin(entry, "add", comments);
        for (const cfg_message* attribute = entry.children; attribute != nullptr; attribute = attribute->next) {
            const std::string_view name = textOf(*attribute);
            const StoredValues values = valuesOf(attribute);
            requireName(entry, name);
            requireShown(entry, name, values);
            requireSingle(entry, name, 0, values.size());
            requireDecoded(entry, name);
            requireComesBack(entry, name, values);
            for (const std::string_view value : values) {
                appendLdifLine(out_, name, value);
            }
        }
    }

    void appendOperation(std::string_view operation, std::string_view name, const StoredValues& values)
    {
        appendLdifLine(out_, operation, name);
        for (const std::string_view value : values) {
            appendLdifLine(out_, name, value);
        }
        append(out_, "-\n");
    }

    void appendChange(const cfg_message& before, const cfg_message& after, const std::vector<std::string_view>& names)
    {
        requireDn(after);
        requireComesBack(after_, after);
        std::vector<Step> steps;
        WipedText comments;
        bool isUnknown = false;
        for (const std::string_view name : names) {
            requireName(after, name);
            const Step& step = steps.emplace_back(
                stepFor(after, name, valuesOf(attributeOf(before, name)), valuesOf(attributeOf(after, name))));
            isUnknown = isUnknown || (!step.come.empty() && !attributeType(name));
            if (step.isWhole) {
                appendLost(comments, name, step.gone);
            }
        }
        const auto valuesIn = [](const cfg_message& entry) {
            return [&entry](std::string_view name) { return valuesOf(attributeOf(entry, name)); };
        };
        if (const auto name = losesItsName(textOf(after), valuesIn(before), valuesIn(after)); !name.empty()) {
            refuse(after, name, "the entry is named by this value, which stays");
        }
        appendIfUnknown(comments, isUnknown);
        begin(after, "modify", comments);
        for (const Step& step : steps) {
            if (step.isWhole) {
                appendOperation(step.come.empty() ? "delete" : "replace", step.name, step.come);
                continue;
            }
            if (!step.gone.empty()) {
                appendOperation("delete", step.name, step.gone);
            }
            if (!step.come.empty()) {
                appendOperation("add", step.name, step.come);
            }
        }
    }

    Step stepFor(const cfg_message& entry, std::string_view name, const StoredValues& oldValues,
                 const StoredValues& newValues) const
    {
        Step step{name, without(oldValues, newValues), without(newValues, oldValues)};
        StoredValues made = without(oldValues, step.gone);
        made.insert(made.end(), step.come.begin(), step.come.end());
        // New values come behind those that stay; for another order all of them go first.
        if (made != newValues) {
            step.gone = oldValues;
            step.come = newValues;
        }
        requireShown(entry, name, step.gone);
        requireShown(entry, name, step.come);
        requireSingle(entry, name, oldValues.size(), newValues.size());
        if (!step.come.empty()) {
            requireDecoded(entry, name);
        }
        if (!step.gone.empty() && !canBeNamed(entry, name, step.gone)) {
            step.isWhole = true;
            step.gone = oldValues;
            step.come = newValues;
            requireShown(entry, name, step.come);
        }
        requireComesBack(entry, name, step.come);
        return step;
    }

    /// False for values that can't be told to go: modify would refuse them, or not find them.
    bool canBeNamed(const cfg_message& entry, std::string_view name, const StoredValues& values) const
    {
        return std::none_of(values.begin(), values.end(),
                            [&](std::string_view value) { return whyUnstorable(name, value).has_value(); }) &&
               comesBack(before_, entry, name, values) &&
               (!isPassword(name) || canBeDecoded(before_.handle(), std::string(textOf(entry)), std::string(name)));
    }

    const Side& before_;
    const Side& after_;
    bool showSecrets_;
    std::set<const cfg_message*> orphans_;       ///< entries whose parent is missing
    std::set<const cfg_message*> goneFromAbove_; ///< entries of the tree before that are missing above others
    WipedText out_;
};

} // namespace

WipedText changeRecords(const Session& before, const Session& after, bool showSecrets)
{
    const Side beforeSide(before);
    const Side afterSide(after);
    return Records(beforeSide, afterSide, showSecrets).make();
}

} // namespace veltor::tool
