// A file that loads goes through the change engine. For the others there is no set to begin.
#include "replacement.h"

#include "whole_text.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

struct Unbind
{
    void operator()(void* handle) const { cfg_unbind(handle); }
};

using Handle = std::unique_ptr<void, Unbind>;

Handle newHandle(const std::string& backup)
{
    Handle handle(cfg_init());
    if (!handle) {
        throw Failure(ExitCode::internal, "out of memory");
    }
    if (!backup.empty() && cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, backup.c_str()) != LDAP_SUCCESS) {
        throw Failure(ExitCode::usage, "--backup: a file name has 1 to 4096 bytes", {"nothing was written"});
    }
    return handle;
}

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

Failure changedMeanwhile(const std::string& file)
{
    return {ExitCode::busy,
            file + " was changed by somebody else meanwhile",
            {"nothing was written; run the command again: it begins from what is there now"}};
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
    const Handle handle = newHandle("");
    const int code = cfg_create_s(handle.get(), file.c_str(), replacement.after.data(), replacement.after.size());
    if (code == LDAP_ALREADY_EXISTS) {
        throw changedMeanwhile(file);
    }
    if (code != LDAP_SUCCESS) {
        throw installFailure(handle.get(), file, code, report);
    }
    giveTheOwnerOf(replacement.like, file);
    tellLog(file, report);
}

void replaceUnloadable(const Replacement& replacement, const std::string& file, const std::string& backup,
                       const WriteOptions& options, const ChangeReport& report)
{
    const Handle handle = newHandle(backup);
    const int code = cfg_replace_s(handle.get(), file.c_str(), replacement.before->data(), replacement.before->size(),
                                   replacement.after.data(), replacement.after.size(), lockTimeoutMs(options));
    if (code == LDAP_SUCCESS) {
        tellLog(file, report);
        return;
    }
    if (textInPlace(file) != replacement.before) {
        throw code == LDAP_BUSY ? changedMeanwhile(file) : installFailure(handle.get(), file, code, report);
    }
    throw code == LDAP_BUSY ? lockFailure(handle.get(), file, code, options.lockTimeoutSeconds)
                            : installFailure(handle.get(), file, code, report);
}

} // namespace

std::optional<WipedText> textInPlace(const std::string& file)
{
    if (!isThere(file)) {
        return std::nullopt;
    }
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
        engine.replaceText(std::move(replacement.after), replacement.readFrom);
        return engine.finish(report);
    }
    if (replacement.before && !isRootOrOwner(file)) {
        throw Failure(ExitCode::authentication, file + ": it does not load, so that nobody can bind to it",
                      {"nothing was written; root and the owner of the file may replace it"});
    }
    const std::string backup = backupFor(target, options);
    if (options.dryRun) {
        const WipedText nothing;
        const WipedText& before = replacement.before ? *replacement.before : nothing;
        tellEnding(Ending::dryRun, report, options, "",
                   differenceFor(report, view(before), view(replacement.after), file), output);
        return options.exitCode ? ExitCode::no : ExitCode::done;
    }
    const SignalsHeldBack untilTold;
    if (replacement.before) {
        replaceUnloadable(replacement, file, backup, options, report);
    } else {
        makeFile(replacement, file, report);
    }
    tellEnding(Ending::written, report, options, replacement.before ? backup : "", "", output);
    return ExitCode::done;
}

} // namespace veltor::tool
