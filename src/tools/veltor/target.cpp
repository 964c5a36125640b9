// Options, locale, password, bind: in this order, so that nobody types a password for a file that can't be read.
#include "target.h"

#include "credentials.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <langinfo.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <veltor/cfg.h>

namespace veltor::tool {

namespace {

constexpr const char* fileVariable = "VELTOR_FILE";

constexpr const char* writeAdvice = "nothing was written; without -D root and the owner of the file can write";

// Options that mean a network or a change set for the LDAP tools whose habits this command line follows.
void addRefusedOptions(CLI::App& app)
{
    const auto refuse = [](const char* reason) {
        return [reason](const CLI::results_t&) -> bool { throw CLI::ValidationError(reason); };
    };
    for (const char* name : {"-H", "-p"}) {
        app.add_option(name, refuse("veltor works on a file; did you mean -F?"))->group("");
    }
    app.add_flag("-Z", [](std::int64_t) { throw CLI::ValidationError("veltor works on a file; did you mean -F?"); })
        ->group("");
    app.add_flag("-c",
                 [](std::int64_t) { throw CLI::ValidationError("a change set is all or nothing: there is no -c"); })
        ->group("");
}

int passwordSources(const TargetOptions& options)
{
    return (options.askPassword ? 1 : 0) + (options.passwordFile ? 1 : 0) + (options.password ? 1 : 0);
}

void checkBindOptions(const TargetOptions& options)
{
    if (passwordSources(options) > 1) {
        throw Failure(ExitCode::usage, "-W, -y and -w exclude each other", {"give one of them"});
    }
    if (passwordSources(options) == 1 && !options.bindDn) {
        throw Failure(ExitCode::usage, "a password needs the DN that it belongs to", {"add -D DN"});
    }
}

WipedText passwordOf(const TargetOptions& options)
{
    if (options.passwordFile) {
        return readPasswordFile(*options.passwordFile);
    }
    if (options.password) {
        warn("-w shows the password in the process list and the shell's history; -W and -y FILE do not");
        WipedText password;
        append(password, *options.password);
        password.push_back('\0');
        return password;
    }
    return askPassword("Password for " + *options.bindDn + ": ");
}

/// The character set of the environment's locale, "" for a locale that is not installed.
std::string environmentCharset()
{
    const locale_t fromEnvironment = ::newlocale(LC_ALL_MASK, "", nullptr);
    if (fromEnvironment == nullptr) {
        return {};
    }
    std::string charset = ::nl_langinfo_l(CODESET, fromEnvironment);
    ::freelocale(fromEnvironment);
    return charset;
}

// The library reads files in the character set of the locale, and in the C locale that is ASCII alone.
// A locale that is not installed behaves like C.
void leaveTheCLocale()
{
    const std::string charset = environmentCharset();
    if (charset.empty() || charset == "ANSI_X3.4-1968") {
        ::setenv("LC_ALL", "C.UTF-8", 1);
    }
}

// Root and the owner can edit the file, so no password would hold them back.
void requireRootOrOwner(const std::string& file)
{
    struct stat status = {};
    if (::stat(file.c_str(), &status) != 0) {
        // The bind tells what is wrong with it.
        return;
    }
    if (::geteuid() != 0 && ::geteuid() != status.st_uid) {
        throw Failure(ExitCode::authentication, file + ": only root and the owner of the file change it without a bind",
                      {"nothing was written; bind as the administrator with -D DN and -W, -y FILE or -w PASSWORD"});
    }
}

void bindAnonymously(void* handle)
{
    const int code = cfg_bind_s(handle, nullptr, nullptr, LDAP_AUTH_SIMPLE);
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(handle, code, {Stage::bind, ""});
    }
}

void bindAs(void* handle, const std::string& dn, const WipedText& password, Purpose purpose)
{
    if (looksEncoded(password)) {
        throw wrongCredentials(dn, "a text of the form >...< is an encoded password; give the clear one");
    }
    const int code = cfg_bind_s(handle, dn.c_str(), password.data(), LDAP_AUTH_SIMPLE);
    if (code != LDAP_SUCCESS) {
        const char* advice = purpose == Purpose::write ? writeAdvice : "";
        throw libraryFailure(handle, code, {Stage::bind, dn, "", advice});
    }
}

} // namespace

bool sameFile(const struct stat& left, const struct stat& right)
{
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino && left.st_size == right.st_size &&
           left.st_mtim.tv_sec == right.st_mtim.tv_sec && left.st_mtim.tv_nsec == right.st_mtim.tv_nsec;
}

bool environmentHasUtf8()
{
    return environmentCharset() == "UTF-8";
}

void addTargetOptions(CLI::App& app, TargetOptions& options)
{
    // First, because the help puts an empty line behind a group of options that others follow.
    addRefusedOptions(app);
    app.add_option("-F,--file", options.file, "Configuration file; else $VELTOR_FILE, else the library's default")
        ->type_name("FILE");
    app.add_option("-D", options.bindDn, "Bind as this DN; without it the bind is anonymous")->type_name("DN");
    app.add_flag("-W", options.askPassword, "Ask for the password on the terminal");
    app.add_option("-y", options.passwordFile, "Read the password from FILE (mode 0640 or narrower), - is stdin")
        ->type_name("FILE");
    app.add_option("-w", options.password, "The password itself; unsafe, it shows in ps and in the history")
        ->type_name("PASSWORD");
    app.add_flag("-x")->description("Accepted, no effect");
}

std::string fileOf(const TargetOptions& options)
{
    if (options.file) {
        return *options.file;
    }
    const char* fromEnvironment = std::getenv(fileVariable);
    if (fromEnvironment != nullptr && *fromEnvironment != '\0') {
        return fromEnvironment;
    }
    return getDefaultConfigFilename();
}

void Session::Unbind::operator()(void* handle) const
{
    cfg_unbind(handle);
}

RewriteWatch::RewriteWatch(std::string file) : file_(std::move(file))
{
    watching_ = ::stat(file_.c_str(), &before_) == 0;
}

RewriteWatch::~RewriteWatch()
{
    finish();
}

void RewriteWatch::finish()
{
    struct stat after = {};
    if (watching_ && ::stat(file_.c_str(), &after) == 0 && !sameFile(before_, after)) {
        warn(file_ + " changed while it was read: a file with lines that can't be used is rewritten at load");
    }
    watching_ = false;
}

Session::Session(const TargetOptions& options, Purpose purpose, const std::string& backup)
    : file_(fileOf(options)), watch_(file_)
{
    checkBindOptions(options);
    disableCoreDumps();
    if (purpose == Purpose::write) {
        // With a backup the file is made anew: nobody may read its passwords before its mode is set.
        ::umask(::umask(0) | S_IWGRP | S_IRWXO);
    }
    leaveTheCLocale();
    handle_.reset(cfg_init());
    if (!handle_) {
        throw Failure(ExitCode::internal, "out of memory");
    }
    if (cfg_set_option(handle_.get(), CFG_OPT_CONFIG_FILE, file_.c_str()) != LDAP_SUCCESS) {
        throw Failure(ExitCode::usage, "-F: a file name has 1 to 4096 bytes", {"nothing was read"});
    }
    if (!backup.empty() && cfg_set_option(handle_.get(), CFG_OPT_BACKUP_FILE, backup.c_str()) != LDAP_SUCCESS) {
        throw Failure(ExitCode::usage, "--backup: a file name has 1 to 4096 bytes", {"nothing was read"});
    }
    if (!options.bindDn) {
        if (purpose == Purpose::write) {
            requireRootOrOwner(file_);
        }
        bindAnonymously(handle_.get());
    } else {
        if (const std::optional<Failure> failure = unreadableFile(file_)) {
            throw *failure;
        }
        bindAs(handle_.get(), *options.bindDn, passwordOf(options), purpose);
    }
    if (purpose == Purpose::write) {
        // From here on it is us who change the file.
        watch_.finish();
    }
}

int Session::endBackup()
{
    cfg_set_option(handle_.get(), CFG_OPT_BACKUP_FILE, nullptr);
    // The name is taken over by a bind, and who asks has been established by the first one.
    return cfg_bind_s(handle_.get(), nullptr, nullptr, LDAP_AUTH_SIMPLE);
}

} // namespace veltor::tool
