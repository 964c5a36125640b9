// The set begins under the lock and ends with the scope. Signals wait while it is installed.
#include "change_engine.h"

#include "escape.h"
#include "ldif_output.h"
#include "masked_text.h"
#include "names.h"
#include "question.h"
#include "results.h"
#include "text_diff.h"

#include <csignal>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <syslog.h>
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

using Json = nlohmann::ordered_json;

constexpr int millisecondsPerSecond = 1000;
constexpr int longestTimeoutSeconds = std::numeric_limits<int>::max() / millisecondsPerSecond;

/// True for two names of one file, which a backup would destroy.
bool nameTheSameFile(const std::string& left, const std::string& right)
{
    struct stat leftStatus = {};
    struct stat rightStatus = {};
    return left == right || (::stat(left.c_str(), &leftStatus) == 0 && ::stat(right.c_str(), &rightStatus) == 0 &&
                             leftStatus.st_dev == rightStatus.st_dev && leftStatus.st_ino == rightStatus.st_ino);
}

std::string backupFor(const TargetOptions& target, const WriteOptions& options)
{
    if (options.noBackup && options.backup) {
        throw Failure(ExitCode::usage, "--backup and --no-backup exclude each other", {"nothing was written"});
    }
    if (options.noBackup) {
        return {};
    }
    const std::string file = fileOf(target);
    if (!options.backup) {
        return file.empty() ? file : file + ".bak";
    }
    const auto refuse = [](const std::string& finding) {
        throw Failure(ExitCode::usage, "--backup: " + finding, {"nothing was written"});
    };
    if (options.backup->empty()) {
        refuse("a file name has 1 to 4096 bytes");
    }
    if (nameTheSameFile(*options.backup, file)) {
        refuse(*options.backup + " is the configuration file itself");
    }
    struct stat status = {};
    if (::stat(options.backup->c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        refuse(*options.backup + " is a folder");
    }
    return *options.backup;
}

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

/// The failure to begin: the lock was not free, or could not be taken, or the file can't be read any more.
Failure beginFailure(const Session& session, int code, int timeoutSeconds)
{
    const std::string codes = codesOf(code, cfg_get_exterror(session.handle()));
    const std::string message = keptMessage(session.handle());
    if (code == LDAP_BUSY) {
        // The library puts the name of the file into quotes.
        const std::size_t finding = message.find(" is being changed by ");
        return {ExitCode::busy,
                finding == std::string::npos ? message : session.file() + message.substr(finding),
                {codes, "waited " + std::to_string(timeoutSeconds) +
                            " s; nothing was written; --lock-timeout SECONDS waits longer"}};
    }
    if (isStepOfTheDisk(code) && cfg_get_file_line(session.handle()) == 0) {
        return {ExitCode::writeFailed, session.file() + ": " + message, {codes, "nothing was written"}};
    }
    return libraryFailure(session.handle(), code, {Stage::update, "", "", "nothing was written"});
}

Failure commitFailure(const Session& session, int code)
{
    const std::string codes = codesOf(code, cfg_get_exterror(session.handle()));
    std::string message = keptMessage(session.handle());
    if (code == LDAP_BUSY) {
        return {ExitCode::busy, message, {codes, "run the command again: it begins from what is there by then"}};
    }
    if (isStepOfTheDisk(code)) {
        const bool written = message.ends_with("the new text is in place");
        if (!message.ends_with("is in place")) {
            message += "; the old text is in place";
        }
        return {ExitCode::writeFailed,
                session.file() + ": " + message,
                {codes, written ? "the change is in the file; whether it outlasts a crash of the machine is not known"
                                : "nothing was written"}};
    }
    return libraryFailure(session.handle(), code, {Stage::update, "", "", "nothing was written"});
}

/// Holds the signals that end a process back for its scope. They take effect behind it.
class SignalsHeldBack
{
public:
    SignalsHeldBack()
    {
        sigset_t held;
        ::sigemptyset(&held);
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGALRM, SIGPIPE, SIGTSTP}) {
            ::sigaddset(&held, signal);
        }
        ::sigprocmask(SIG_BLOCK, &held, &old_);
    }
    SignalsHeldBack(const SignalsHeldBack&) = delete;
    SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;
    ~SignalsHeldBack() { ::sigprocmask(SIG_SETMASK, &old_, nullptr); }

private:
    sigset_t old_{};
};

Session openedToWrite(const TargetOptions& target, const std::string& backup, Output& output)
{
    output.document().setFile(fileOf(target));
    return Session(target, Purpose::write, backup);
}

std::string linesOf(const std::vector<Outcome>& outcomes)
{
    std::string lines;
    for (const Outcome& outcome : outcomes) {
        lines += escaped(outcome.dn + ": " + outcome.what) + '\n';
        lines += outcome.goneComments.empty() ? "" : "  with the comment\n";
        for (const std::string& comment : outcome.goneComments) {
            lines += "  " + escaped(comment) + '\n';
        }
    }
    return lines;
}

Json jsonFor(const std::vector<Outcome>& outcomes)
{
    Json changes = Json::array();
    for (const Outcome& outcome : outcomes) {
        Json comments = Json::array();
        for (const std::string& comment : outcome.goneComments) {
            comments.push_back(jsonText(comment));
        }
        changes.push_back({{"dn", jsonText(outcome.dn)}, {"what", jsonText(outcome.what)}, {"goneComments", comments}});
    }
    return changes;
}

/// What stands behind the last line feed.
std::string_view unterminatedLine(std::string_view text)
{
    return text.substr(text.rfind('\n') + 1);
}

/// True when the file names an administrator, and has a password for it that can be read.
bool hasAdministrator(void* handle)
{
    std::string dn = "zor-slapdAdminDN";
    std::string password = "zor-slapdAdminPW";
    char* names[] = {dn.data(), password.data(), nullptr};
    Results results;
    // A search decodes passwords, and fails where that can't be done.
    if (cfg_search_s(handle, "cn=Configuration", LDAP_SCOPE_BASE, "", names, 0, results.receiver()) != LDAP_SUCCESS ||
        results.first() == nullptr) {
        return false;
    }
    const auto hasText = [&](const std::string& name) {
        for (const cfg_message* attribute = results.first()->children; attribute != nullptr;
             attribute = attribute->next) {
            if (sameName(attribute->text, name)) {
                return attribute->children != nullptr && *attribute->children->text != '\0';
            }
        }
        return false;
    };
    return hasText(dn) && hasText(password);
}

std::string counted(std::size_t count, const char* one, const char* several)
{
    return std::to_string(count) + ' ' + (count == 1 ? one : several);
}

// Who reads the log learns who changed what, and no secret.
void tellLog(const std::string& file, const std::string& log)
{
    const std::string line = escaped("uid " + std::to_string(::getuid()) + " changed " + file + ": " + log);
    ::openlog("veltor", LOG_PID, LOG_AUTHPRIV);
    ::syslog(LOG_NOTICE, "%s", line.c_str());
    ::closelog();
}

extern "C" int noteLostValue(void* context, const cfg_finding* finding)
{
    const bool lost = std::strcmp(finding->kind, "lost-last-value") == 0;
    *static_cast<bool*>(context) = lost;
    return lost ? 1 : 0;
}

} // namespace

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
    const int code = cfg_begin_s(handle(), options.lockTimeoutSeconds * millisecondsPerSecond);
    if (code != LDAP_SUCCESS) {
        throw beginFailure(session_, code, options.lockTimeoutSeconds);
    }
    begun_ = true;
    before_ = rendered(handle());
    hadAdministrator_ = hasAdministrator(handle());
}

ChangeEngine::~ChangeEngine()
{
    if (begun_) {
        cfg_rollback_s(handle());
    }
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
void ChangeEngine::requireWholeLastLine(std::string_view after)
{
    const std::string_view last = unterminatedLine(view(before_));
    if (last.empty() || unterminatedLine(after) == last) {
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
    if (!confirmed(finding)) {
        throw Failure(ExitCode::refused, finding, {"nothing was written; end the file with a line feed"});
    }
}

bool ChangeEngine::commit()
{
    const WipedText text = after();
    if (text == before_) {
        return false;
    }
    requireWholeLastLine(view(text));
    install();
    return true;
}

void ChangeEngine::install()
{
    const SignalsHeldBack untilInstalled;
    begun_ = false;
    const int code =
        replacement_ ? cfg_install_s(handle(), replacement_->data(), replacement_->size()) : cfg_commit_s(handle());
    if (code != LDAP_SUCCESS) {
        throw commitFailure(session_, code);
    }
}

void ChangeEngine::requireAdministrator() const
{
    if (hadAdministrator_ && !options_.allowLockout && !hasAdministrator(replacement_ ? readFrom_ : handle())) {
        throw Failure(ExitCode::refused, session_.file() + ": after this change nobody could bind as administrator",
                      {"nothing was written; --allow-lockout permits that"});
    }
}

std::string ChangeEngine::difference(const ChangeReport& report, std::string_view after) const
{
    const MaskedTexts texts = maskedTexts(view(before_), after);
    const std::string label = report.source.empty() ? "(after the change)" : "(after " + report.source + ")";
    return unifiedDiff(texts.before, texts.after, session_.file(), label);
}

void ChangeEngine::tell(const ChangeReport& report, Ending ending, const std::string& difference)
{
    Document& document = output_.document();
    document.set("dryRun", options_.dryRun);
    document.set("changes", jsonFor(report.outcomes));
    if (ending != Ending::unchanged) {
        document.setChanged();
    }
    if (ending == Ending::dryRun) {
        document.set("difference", jsonText(difference));
    }
    if (ending == Ending::written) {
        document.set("backup", jsonTextOrNull(backup_));
    }
    if (output_.json() || output_.quiet()) {
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
        const bool telling = report.oldPassword && !backup_.empty();
        lines = linesOf(report.outcomes) + escaped(notice()) + (telling ? " (holds the old password)\n" : "\n");
    }
    writeOut(STDOUT_FILENO, lines);
}

ExitCode ChangeEngine::finish(const ChangeReport& report)
{
    const WipedText text = after();
    if (text == before_) {
        tell(report, Ending::unchanged);
        return ExitCode::done;
    }
    requireAdministrator();
    requireWholeLastLine(view(text));
    if (options_.dryRun) {
        tell(report, Ending::dryRun, difference(report, view(text)));
        return options_.exitCode ? ExitCode::no : ExitCode::done;
    }
    // A signal that comes from here on waits for what is printed: it must not hide that the file was changed.
    const SignalsHeldBack untilTold;
    install();
    tellLog(session_.file(), report.log);
    try {
        tell(report, Ending::written);
    } catch (const Failure& failure) {
        throw Failure(failure.exit(), failure.what(), {"all changes are in the file"});
    }
    return ExitCode::done;
}

WipedText rendered(void* handle)
{
    char* text = nullptr;
    std::size_t size = 0;
    const int code = cfg_render_s(handle, &text, &size);
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(handle, code, {Stage::update, "", "", "nothing was written"});
    }
    WipedText copy;
    append(copy, {text, size});
    ::explicit_bzero(text, size);
    cfg_memfree(text);
    return copy;
}

std::string logged(const std::string& attribute, const std::vector<WipedText>& values)
{
    const std::optional<cfg_attr_type> type = attributeType(attribute);
    const std::string_view syntax = type ? type->syntax : "";
    if ((syntax != "int" && syntax != "enum" && syntax != "mask") || values.empty()) {
        return attribute;
    }
    std::string text = attribute + '=';
    for (const WipedText& value : values) {
        text += (&value == &values.front() ? "" : "|") + std::string(view(value));
    }
    return text;
}

std::string ChangeEngine::notice() const
{
    return backup_.empty() ? "written" : "written; backup " + backup_;
}

} // namespace veltor::tool
