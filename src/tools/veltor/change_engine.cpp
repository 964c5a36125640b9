// The set begins under the lock and ends with the scope. Signals wait while it is installed.
#include "change_engine.h"

#include "administrator.h"
#include "backup_name.h"
#include "names.h"
#include "question.h"
#include "results.h"
#include "secrets.h"

#include <cstring>
#include <limits>
#include <unistd.h>
#include <utility>
#include <vector>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

const char* const writeFooter =
    R"(A change is all or nothing: it is made under a lock, read back, and put in the place of
the old text in one step. The file keeps its owner and mode, and the old text is kept as
FILE.bak unless --backup or --no-backup says otherwise. Root and the owner of the file
need no password; everybody else binds as the administrator.

The options common to all commands (-F, -D, -W, -y, -w, --local) are accepted here too;
see veltor --help.)";

namespace {

constexpr int millisecondsPerSecond = 1000;
constexpr int longestTimeoutSeconds = std::numeric_limits<int>::max() / millisecondsPerSecond;

Session openedToWrite(const TargetOptions& target, const std::string& backup, Output& output)
{
    output.document().setFile(fileOf(target));
    return Session(target, Purpose::write, backup);
}

/// What stands behind the last line feed.
std::string_view unterminatedLine(std::string_view text)
{
    return text.substr(text.rfind('\n') + 1);
}

extern "C" int noteLostValue(void* context, const cfg_finding* finding)
{
    const bool lost = std::strcmp(finding->kind, "lost-last-value") == 0;
    *static_cast<bool*>(context) = lost;
    return lost ? 1 : 0;
}

} // namespace

std::string backupFor(const TargetOptions& target, const WriteOptions& options)
{
    if (options.noBackup && options.backup) {
        throw Failure(ExitCode::usage, "--backup and --no-backup exclude each other",
                      {"nothing was written; give one of them"});
    }
    if (options.noBackup) {
        return {};
    }
    const std::string file = fileOf(target);
    if (file.empty() && !options.backup) {
        return {};
    }
    std::string backup = options.backup.value_or(file + ".bak");
    if (const std::string fault = faultOfBackupName(backup, file); !fault.empty()) {
        throw Failure(ExitCode::usage, (options.backup ? "--backup: " : "") + fault,
                      {std::string("nothing was written; ") +
                       (options.backup ? "name another file" : "--backup names another file for the old text")});
    }
    return backup;
}

int lockTimeoutMs(const WriteOptions& options)
{
    return options.lockTimeoutSeconds * millisecondsPerSecond;
}

void addWriteOptions(CLI::App& command, WriteOptions& options)
{
    command.add_option("--backup", options.backup, "Keep the old text under this name; without it FILE.bak")
        ->type_name("FILE");
    command.add_flag("--no-backup", options.noBackup, "Keep no old text");
    command
        .add_option("--lock-timeout", options.lockTimeoutSeconds,
                    "Wait so long for another writer; without it 10, 0 does not wait")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, longestTimeoutSeconds).description(""));
    command.add_flag("-n,--dry-run", options.dryRun, "Print the difference that the change makes, and write nothing");
    command.add_flag("--exit-code", options.exitCode, "With -n: exit status 1 if something would change");
    command.add_flag("--allow-unknown", options.allowUnknown, "Store attributes whose names are not known");
    command.add_flag("--allow-lockout", options.allowLockout, "Permit that nobody can bind as administrator any more");
    command.add_flag("--yes", options.yes, "Ask no question: the answer is yes");
}

ChangeEngine::ChangeEngine(const TargetOptions& target, const WriteOptions& options, Output& output)
    : options_(options), output_(output), backup_(backupFor(target, options)),
      session_(openedToWrite(target, backup_, output))
{
    begin();
    before_ = rendered(handle());
    hadAdministrator_ = hasAdministrator(handle());
}

ChangeEngine::~ChangeEngine()
{
    rollBack();
}

void ChangeEngine::begin()
{
    const int code =
        waitForLock(handle(), lockTimeoutMs(options_), [&](int timeoutMs) { return cfg_begin_s(handle(), timeoutMs); });
    if (code != LDAP_SUCCESS) {
        throw lockFailure(handle(), session_.file(), code, options_.lockTimeoutSeconds);
    }
    begun_ = true;
}

void ChangeEngine::rollBack()
{
    if (begun_) {
        cfg_rollback_s(handle());
    }
    begun_ = false;
}

WipedText ChangeEngine::after() const
{
    return replacement_ ? *replacement_ : rendered(handle());
}

void ChangeEngine::replaceText(WipedText text, void* readFrom)
{
    replacement_ = std::move(text);
    readFrom_ = readFrom;
}

// A load drops the value of a last line without a line feed, and what follows such a line makes that permanent.
void ChangeEngine::requireWholeLastLine(const WipedText& after)
{
    const std::string_view last = unterminatedLine(view(before_));
    // Somebody has seen what a whole text makes of that line.
    if (replacement_ || last.empty() || unterminatedLine(view(after)) == last) {
        return;
    }
    bool lost = false;
    cfg_check_s(handle(), session_.file().c_str(), noteLostValue, &lost);
    if (!lost) {
        return;
    }
    const std::string finding = session_.file() + ": the last line has no line feed, so its value is not read, and "
                                                  "this change would drop it from the file";
    if (options_.yes || options_.dryRun) {
        warn(finding);
        return;
    }
    requireConsent(finding, after);
}

// Nobody waits for the answer. With the lock the changes are gone, and their text is installed instead.
void ChangeEngine::requireConsent(const std::string& finding, const WipedText& after)
{
    rollBack();
    if (!confirmed(finding)) {
        throw Failure(ExitCode::no, finding, {"nothing was written; end the file with a line feed"},
                      {.file = session_.file()});
    }
    begin();
    if (rendered(handle()) != before_) {
        throw changedMeanwhile(session_.file());
    }
    replacement_ = after;
}

void ChangeEngine::install(const ChangeReport& report)
{
    begun_ = false;
    const int code =
        replacement_ ? cfg_install_s(handle(), replacement_->data(), replacement_->size()) : cfg_commit_s(handle());
    if (code != LDAP_SUCCESS) {
        throw installFailure(handle(), session_.file(), code, report);
    }
    tellLog(session_.file(), report);
}

void ChangeEngine::requireAdministrator() const
{
    if (hadAdministrator_ && !options_.allowLockout && !hasAdministrator(replacement_ ? readFrom_ : handle())) {
        throw Failure(ExitCode::refused, session_.file() + ": after this change nobody could bind as administrator",
                      {"nothing was written; --allow-lockout permits that"}, {.file = session_.file()});
    }
}

ExitCode ChangeEngine::finish(const ChangeReport& report)
{
    const WipedText text = after();
    if (text == before_) {
        tellEnding(Ending::unchanged, report, options_, backup_, "", output_);
        return ExitCode::done;
    }
    requireAdministrator();
    requireWholeLastLine(text);
    if (options_.dryRun) {
        tellEnding(Ending::dryRun, report, options_, backup_,
                   differenceFor(report, view(before_), view(text), session_.file()), output_);
        return options_.exitCode ? ExitCode::no : ExitCode::done;
    }
    // A signal that comes from here on waits for what is printed: it must not hide that the file was changed.
    const SignalsHeldBack untilTold;
    install(report);
    tellEnding(Ending::written, report, options_, backup_, "", output_);
    return ExitCode::done;
}

WipedText rendered(void* handle)
{
    char* text = nullptr;
    std::size_t size = 0;
    const int code = cfg_render_s(handle, &text, &size);
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(handle, code, {Stage::update, "", SourcePlace(), "nothing was written"});
    }
    WipedText copy;
    append(copy, {text, size});
    ::explicit_bzero(text, size);
    cfg_memfree(text);
    return copy;
}

std::string logged(const std::string& attribute, const StoredValues& values)
{
    const std::optional<cfg_attr_type> type = attributeType(attribute);
    const std::string_view syntax = type ? type->syntax : "";
    if ((syntax != "int" && syntax != "enum" && syntax != "mask") || values.empty()) {
        return std::string(shownName(attribute));
    }
    std::string text = attribute + '=';
    for (const std::string_view& value : values) {
        text += (&value == &values.front() ? "" : "|") + std::string(value);
    }
    return text;
}

} // namespace veltor::tool
