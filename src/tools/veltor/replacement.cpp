// A file that loads goes through the change engine. For the others there is no set to begin.
#include "replacement.h"

#include "handle.h"
#include "secrets.h"
#include "stored_tree.h"
#include "whole_text.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

bool isThere(const std::string& file)
{
    struct stat status = {};
    return ::lstat(file.c_str(), &status) == 0;
}

bool loads(const std::string& file)
{
    try {
        const Session session(readingOf(file));
        return true;
    } catch (const Failure& failure) {
        if (failure.exit() == ExitCode::file && !unreadableFile(file)) {
            return false;
        }
        throw;
    }
}

/// Puts into the report which entries differ, and which of their attributes.
void noteDifferences(const StoredTree& before, const StoredTree& after, ChangeReport& report)
{
    const char* separator = ": ";
    for (const EntryDifference& difference : differencesOf(before, after)) {
        const cfg_message& entry = difference.after == nullptr ? *difference.before : *difference.after;
        std::string what = difference.after == nullptr ? "deleted" : difference.before == nullptr ? "added" : "";
        for (const std::string_view name : difference.attributes) {
            const StoredValues old = valuesOf(attributeOf(*difference.before, name));
            what +=
                (what.empty() ? "" : ", ") + logged(std::string(name), valuesOf(attributeOf(*difference.after, name)));
            report.oldPassword = report.oldPassword || (!old.empty() && isPassword(name));
        }
        report.outcomes.push_back(outcomeOf(difference));
        report.outcomes.back().isPrinted = false;
        report.changes += difference.attributes.empty() ? 1 : difference.attributes.size();
        report.dns.emplace_back(textOf(entry));
        report.log += std::exchange(separator, "; ") + std::string(shownDn(report.dns.back())) + ": " + what;
    }
}

void giveTheOwnerOf(const std::string& like, const std::string& file)
{
    struct stat status = {};
    if (::geteuid() == 0 && ::stat(like.c_str(), &status) == 0 &&
        ::lchown(file.c_str(), status.st_uid, status.st_gid) != 0) {
        warn(file + ": can't be given to the owner of " + like + ": " + std::strerror(errno));
    }
}

void makeFile(const Replacement& replacement, const std::string& file, const ChangeReport& report)
{
    if (!madeFile(file, view(replacement.after), report)) {
        throw changedMeanwhile(file);
    }
    giveTheOwnerOf(replacement.like, file);
}

// Signals are held back by each try, so that none hides what became of the file.
void replaceUnloadable(const Replacement& replacement, const std::string& file, const std::string& backup,
                       const WriteOptions& options, const std::function<void()>& tell, const ChangeReport& report)
{
    const Handle handle = newHandle(backup);
    const WipedText& before = *replacement.before;
    const int code = waitForLock(handle.get(), lockTimeoutMs(options), [&](int timeoutMs) {
        const int tried = cfg_replace_s(handle.get(), file.c_str(), before.data(), before.size(),
                                        replacement.after.data(), replacement.after.size(), timeoutMs);
        if (tried == LDAP_SUCCESS) {
            tellLog(file, report);
            tell();
        }
        return tried;
    });
    if (code == LDAP_SUCCESS) {
        return;
    }
    if (code != LDAP_BUSY) {
        throw installFailure(handle.get(), file, code, report);
    }
    throw textInPlace(file) == before ? lockFailure(handle.get(), file, code, options.lockTimeoutSeconds)
                                      : changedMeanwhile(file);
}

} // namespace

bool madeFile(const std::string& file, std::string_view text, const ChangeReport& report)
{
    const Handle handle = newHandle();
    const int code = cfg_create_s(handle.get(), file.c_str(), text.data(), text.size());
    if (code != LDAP_SUCCESS && code != LDAP_ALREADY_EXISTS) {
        throw installFailure(handle.get(), file, code, report);
    }
    if (code == LDAP_SUCCESS) {
        tellLog(file, report);
    }
    return code == LDAP_SUCCESS;
}

std::optional<WipedText> textInPlace(const std::string& file)
{
    if (!isThere(file)) {
        return std::nullopt;
    }
    requirePlainFile(file, "nothing was written");
    return readConfiguration(file);
}

ExitCode replaceWholeText(Replacement replacement, const TargetOptions& target, const WriteOptions& options,
                          Output& output)
{
    const std::string file = fileOf(target);
    output.document().setFile(file);
    ChangeReport report;
    report.source = replacement.source;
    report.log = replacement.log;
    if (replacement.before && loads(file)) {
        ChangeEngine engine(target, options, output);
        if (engine.before() != *replacement.before) {
            throw changedMeanwhile(file);
        }
        noteDifferences(StoredTree(engine.handle()), StoredTree(replacement.readFrom), report);
        engine.replaceText(std::move(replacement.after), replacement.readFrom);
        return engine.finish(report);
    }
    if (replacement.before && !isRootOrOwner(file)) {
        throw Failure(ExitCode::authentication, file + ": it does not load, so that nobody can bind to it",
                      {"nothing was written; root and the owner of the file may replace it"});
    }
    const std::string backup = backupFor(target, options);
    if (options.dryRun) {
        const WipedText before = replacement.before.value_or(WipedText());
        tellEnding(Ending::dryRun, report, options, "",
                   differenceFor(report, view(before), view(replacement.after), file), output);
        return options.exitCode ? ExitCode::no : ExitCode::done;
    }
    const auto tell = [&](const std::string& kept) { tellEnding(Ending::written, report, options, kept, "", output); };
    if (replacement.before) {
        replaceUnloadable(
            replacement, file, backup, options, [&] { tell(backup); }, report);
    } else {
        const SignalsHeldBack untilTold;
        makeFile(replacement, file, report);
        tell("");
    }
    return ExitCode::done;
}

} // namespace veltor::tool
