// The texts in which a change ends.
#include "change_outcome.h"

#include "change_engine.h"
#include "escape.h"
#include "ldif_output.h"
#include "masked_text.h"
#include "secrets.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <syslog.h>
#include <unistd.h>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* nothingWritten = "nothing was written";
/// What helps where the disk or the rights stood in the way.
constexpr const char* triedAgain = "; run the command again when the cause is mended";
/// What the library says of a lock that stays busy.
constexpr const char* heldByAnother = " is being changed by ";

/// What the library says of the failure that it keeps.
std::string keptMessage(void* handle)
{
    cfg_failure failure = {};
    return cfg_failure_at(handle, 0, &failure) == LDAP_SUCCESS ? failure.message : "";
}

bool isStepOfTheDisk(int code)
{
    return code == LDAP_INSUFFICIENT_ACCESS || code == LDAP_OTHER;
}

bool isHeldByAnother(std::string_view message)
{
    return message.find(heldByAnother) != std::string_view::npos;
}

/// Whether the library says so of an install that failed. What a crash would leave is not known then.
bool newTextIsInPlace(std::string_view message)
{
    return message.ends_with("the new text is in place");
}

std::string linesOf(const std::vector<Outcome>& outcomes)
{
    std::string lines;
    for (const Outcome& outcome : outcomes) {
        if (!outcome.isPrinted) {
            continue;
        }
        lines += escaped(std::string(shownDn(outcome.dn)) + ": " + outcome.what) + '\n';
        lines += outcome.goneComments.empty() ? "" : "  with the comment\n";
        for (const std::string& comment : outcome.goneComments) {
            lines += "  " + escaped(comment) + '\n';
        }
    }
    return lines;
}

Json jsonFor(const std::optional<std::vector<std::string>>& values)
{
    if (!values) {
        return nullptr;
    }
    Json array = Json::array();
    for (const std::string& value : *values) {
        array.push_back(jsonText(value));
    }
    return array;
}

Json jsonFor(const std::vector<AttributeChange>& attributes)
{
    Json array = Json::array();
    for (const AttributeChange& attribute : attributes) {
        array.push_back({{"name", jsonText(attribute.name)},
                         {"before", jsonFor(attribute.before)},
                         {"after", jsonFor(attribute.after)}});
    }
    return array;
}

Json jsonFor(const std::vector<Outcome>& outcomes)
{
    Json changes = Json::array();
    for (const Outcome& outcome : outcomes) {
        changes.push_back({{"dn", jsonDn(outcome.dn)},
                           {"what", jsonText(outcome.what)},
                           {"attributes", jsonFor(outcome.attributes)},
                           {"goneComments", jsonFor(std::optional(outcome.goneComments))}});
    }
    return changes;
}

bool hasSecret(std::string_view name, const StoredValues& values)
{
    return std::any_of(values.begin(), values.end(), [&](std::string_view value) { return isSecret(name, value); });
}

std::optional<std::vector<std::string>> shownValues(std::string_view name, const StoredValues& values)
{
    if (hasSecret(name, values)) {
        return std::nullopt;
    }
    return std::vector<std::string>(values.begin(), values.end());
}

/// Each of the values that the other list does not have, behind a sign.
void appendMissing(std::string& out, const StoredValues& values, const StoredValues& other, const char* sign)
{
    for (const std::string_view value : values) {
        if (std::find(other.begin(), other.end(), value) == other.end()) {
            out += sign;
            out += value.empty() ? "\"\"" : value;
        }
    }
}

std::string counted(std::size_t count, const char* one, const char* several)
{
    return std::to_string(count) + ' ' + (count == 1 ? one : several);
}

} // namespace

AttributeChange changeOf(std::string_view name, const StoredValues& before, const StoredValues& after)
{
    return {std::string(shownName(name)), shownValues(name, before), shownValues(name, after)};
}

std::string differenceOf(std::string_view name, const StoredValues& before, const StoredValues& after)
{
    if (before == after) {
        return {};
    }
    const std::string shown(shownName(name));
    if (hasSecret(name, before) || hasSecret(name, after)) {
        return shown + (after.empty() ? " removed" : " changed");
    }
    std::string text;
    if (before.size() == 1 && after.size() == 1) {
        text.append(" ").append(before.front()).append(" -> ").append(after.front());
    } else {
        appendMissing(text, after, before, " + ");
        appendMissing(text, before, after, " - ");
    }
    return shown + ':' + (text.empty() ? " other order" : text);
}

Outcome outcomeOf(const EntryDifference& difference)
{
    const cfg_message* const before = difference.before;
    const cfg_message* const after = difference.after;
    Outcome outcome{std::string(textOf(after == nullptr ? *before : *after)), ""};
    if (before != nullptr && after != nullptr) {
        for (const std::string_view name : difference.attributes) {
            const StoredValues old = valuesOf(attributeOf(*before, name));
            const StoredValues made = valuesOf(attributeOf(*after, name));
            outcome.what += (outcome.what.empty() ? "" : "; ") + differenceOf(name, old, made);
            outcome.attributes.push_back(changeOf(name, old, made));
        }
        return outcome;
    }
    outcome.what = before == nullptr ? "added" : "deleted";
    const cfg_message* attribute = before == nullptr ? after->children : before->children;
    for (; attribute != nullptr; attribute = attribute->next) {
        const StoredValues values = valuesOf(attribute);
        outcome.attributes.push_back(changeOf(textOf(*attribute), before == nullptr ? StoredValues() : values,
                                              before == nullptr ? values : StoredValues()));
    }
    return outcome;
}

void tellEnding(Ending ending, const ChangeReport& report, const WriteOptions& options, const std::string& backup,
                const std::string& difference, Output& output)
{
    output.noteState(ending == Ending::written ? "all changes are in the file; see them with: veltor diff"
                                               : "nothing was written; run the command again");
    Document& document = output.document();
    document.set("dryRun", options.dryRun);
    document.set("changes", jsonFor(report.outcomes));
    if (ending != Ending::unchanged) {
        document.setChanged();
    }
    if (ending == Ending::dryRun) {
        document.set("difference", jsonText(difference));
    }
    if (ending == Ending::written) {
        document.set("backup", jsonTextOrNull(backup));
    }
    if (output.json() || output.quiet()) {
        return;
    }
    std::string lines = "unchanged\n";
    if (ending == Ending::dryRun) {
        lines = escapedLines(difference) + "dry run: ";
        if (!report.dns.empty()) {
            lines += counted(report.changes, "change", "changes") + " in " +
                     counted(report.dns.size(), "entry", "entries") + ", ";
        }
        lines += "nothing written\n";
    } else if (ending == Ending::written) {
        lines = linesOf(report.outcomes) + "written";
        lines += backup.empty() ? "" : escaped("; backup " + backup);
        lines += report.oldPassword && !backup.empty() ? " (holds the old password)\n" : "\n";
    }
    output.write(lines);
}

std::string differenceFor(const ChangeReport& report, std::string_view before, std::string_view after,
                          const std::string& file)
{
    return maskedDifference(before, after, file,
                            report.source.empty() ? "(after the change)" : "(after " + report.source + ')');
}

Failure lockFailure(void* handle, const std::string& file, int code, int timeoutSeconds)
{
    const std::string codes = codesOf(code, cfg_get_exterror(handle));
    const FailureFacts facts = keptFacts(handle, code, file);
    const std::string message = keptMessage(handle);
    if (code == LDAP_BUSY) {
        // The library puts the name of the file into quotes.
        const std::size_t finding = message.find(heldByAnother);
        return {ExitCode::busy,
                finding == std::string::npos ? message : file + message.substr(finding),
                {codes, "waited " + std::to_string(timeoutSeconds) +
                            " s; nothing was written; --lock-timeout SECONDS waits longer"},
                facts};
    }
    if (isStepOfTheDisk(code) && cfg_get_file_line(handle) == 0) {
        return {ExitCode::writeFailed, file + ": " + message, {codes, std::string(nothingWritten) + triedAgain}, facts};
    }
    return libraryFailure(handle, code, {Stage::update, "", SourcePlace(), nothingWritten});
}

Failure changedMeanwhile(const std::string& file)
{
    return {ExitCode::busy,
            file + " was changed by somebody else meanwhile",
            {"nothing was written; run the command again: it begins from what is there now"}};
}

Failure installFailure(void* handle, const std::string& file, int code, const ChangeReport& report)
{
    const std::string codes = codesOf(code, cfg_get_exterror(handle));
    const FailureFacts facts = keptFacts(handle, code, file);
    std::string message = keptMessage(handle);
    const bool written = newTextIsInPlace(message);
    if (written) {
        tellLog(file, report);
    }
    if (code == LDAP_BUSY) {
        return {ExitCode::busy, message, {codes, "run the command again: it begins from what is there by then"}, facts};
    }
    if (isStepOfTheDisk(code)) {
        if (!message.ends_with("is in place") && !message.ends_with("nothing is left behind")) {
            message += "; the old text is in place";
        }
        return {ExitCode::writeFailed,
                file + ": " + message,
                {codes, written ? "the change is in the file; whether it outlasts a crash of the machine is not known: "
                                  "look at it again after one"
                                : std::string(nothingWritten) + triedAgain},
                facts};
    }
    return libraryFailure(handle, code, {Stage::update, "", SourcePlace(), nothingWritten});
}

// Who reads the log learns who changed what, and no secret. They do not know the folder that this runs in.
void tellLog(const std::string& file, const ChangeReport& report)
{
    const std::string line =
        escaped("uid " + std::to_string(::getuid()) + " changed " + resolvedName(file) + ": " + report.log);
    ::openlog("veltor", LOG_PID, LOG_AUTHPRIV);
    ::syslog(LOG_NOTICE, "%s", line.c_str());
    ::closelog();
}

int waitForLock(void* handle, int timeoutMs, const std::function<int(int)>& call)
{
    constexpr int longestSliceMs = 100;
    for (int left = timeoutMs;; left -= longestSliceMs) {
        const SignalsHeldBack untilTried;
        const int code = call(std::min(left, longestSliceMs));
        if (code != LDAP_BUSY || left <= longestSliceMs || !isHeldByAnother(keptMessage(handle))) {
            return code;
        }
    }
}

} // namespace veltor::tool
