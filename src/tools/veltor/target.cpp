// Options, locale, password, bind: in this order, so that nobody types a password for a file that can't be read.
#include "target.h"

#include "credentials.h"
#include "results.h"
#include "secrets.h"

#include <cstdlib>
#include <langinfo.h>
#include <locale.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* fileVariable = "VELTOR_FILE";

constexpr const char* writeAdvice = "nothing was written; root and the owner of the file need no password";

constexpr const char* administratorAdvice = "nothing was read; whose password it takes is told by: veltor get adminDN";

constexpr const char* configuration = "cn=Configuration";
constexpr const char* administrator = "zor-slapdAdminDN";

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
        throw Failure(ExitCode::usage, "-W, -y and -w exclude each other", {"nothing was read; give one of them"});
    }
    if (options.local && (options.bindDn || passwordSources(options) > 0)) {
        throw Failure(ExitCode::usage, "--local is without a bind: it excludes -D, -W, -y and -w",
                      {"nothing was read; leave one of them out"});
    }
}

WipedText givenPassword(const TargetOptions& options, const std::string& dn)
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
    return askPassword("Password for " + std::string(shownDn(dn)) + ": ");
}

WipedText passwordOf(const TargetOptions& options, const std::string& dn)
{
    if (!options.heldPassword) {
        return givenPassword(options, dn);
    }
    if (options.heldPassword->empty()) {
        *options.heldPassword = givenPassword(options, dn);
    }
    return *options.heldPassword;
}

/// The character set of the environment's locale, "" for a locale that is not installed.
std::string environmentCharset()
{
    // Stays loaded until the next one is: cfg_init asks for the same one, and would read a dozen files again.
    static locale_t kept = nullptr;
    const locale_t fromEnvironment = ::newlocale(LC_ALL_MASK, "", nullptr);
    if (kept != nullptr) {
        ::freelocale(kept);
    }
    kept = fromEnvironment;
    return fromEnvironment == nullptr ? "" : ::nl_langinfo_l(CODESET, fromEnvironment);
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
        const char* advice = purpose == Purpose::write          ? writeAdvice
                             : purpose == Purpose::authenticate ? administratorAdvice
                                                                : "";
        throw libraryFailure(handle, code, {Stage::bind, dn, SourcePlace(), advice});
    }
}

/// The DN that the file names as its administrator's. Reads the file.
std::string administratorOf(void* handle, const std::string& file)
{
    bindAnonymously(handle);
    Results entry;
    const int code = cfg_read_s(handle, configuration, LDAP_SCOPE_BASE, entry.receiver());
    if (code != LDAP_SUCCESS && code != LDAP_NO_SUCH_OBJECT) {
        throw libraryFailure(handle, code, {Stage::search, configuration});
    }
    const cfg_message* attribute = entry.first() == nullptr ? nullptr : entry.first()->children;
    for (; attribute != nullptr; attribute = attribute->next) {
        if (::strcasecmp(attribute->text, administrator) == 0 && attribute->children != nullptr) {
            return attribute->children->text;
        }
    }
    throw Failure(ExitCode::authentication, file + ": there is no " + administrator + " to bind as",
                  {"nothing was read; give the DN with -D, or no password at all as root or the owner of the file"});
}

} // namespace

// The library reads files in the character set of the locale, and in the C locale that is ASCII alone.
// A locale that is not installed behaves like C.
void leaveTheCLocale()
{
    const std::string charset = environmentCharset();
    if (charset.empty() || charset == "ANSI_X3.4-1968") {
        ::setenv("LC_ALL", "C.UTF-8", 1);
    }
}

bool isRootOrOwner(const std::string& file)
{
    struct stat status = {};
    return ::geteuid() == 0 || (::stat(file.c_str(), &status) == 0 && ::geteuid() == status.st_uid);
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
    app.add_option("-D", options.bindDn, "Bind as this DN; without it as the file's administrator")->type_name("DN");
    app.add_flag("-W", options.askPassword, "Ask for the password on the terminal");
    app.add_option("-y", options.passwordFile, "Read the password from FILE (mode 0640 or narrower), - is stdin")
        ->type_name("FILE");
    app.add_option("-w", options.password, "The password itself; unsafe, it shows in ps and in the history")
        ->type_name("PASSWORD");
    app.add_flag("--local", options.local, "No password: for root and the owner of the file, and their default");
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

std::string resolvedName(const std::string& file)
{
    const std::unique_ptr<char, void (*)(void*)> path(::realpath(file.c_str(), nullptr), std::free);
    return path ? std::string(path.get()) : file;
}

Session::Session(const TargetOptions& options, Purpose purpose, const std::string& backup) : file_(fileOf(options))
{
    checkBindOptions(options);
    leaveTheCLocale();
    handle_ = newHandle(backup);
    if (cfg_set_option(handle_.get(), CFG_OPT_CONFIG_FILE, file_.c_str()) != LDAP_SUCCESS) {
        throw Failure(ExitCode::usage, "-F: a file name has 1 to 4096 bytes",
                      {"nothing was read; name a file that there is"});
    }
    // Ahead of the bind, whose load would write a file with lines that can't be used.
    cfg_set_write_mode(handle_.get(), purpose == Purpose::write ? CFG_WRITE_SAFE : CFG_WRITE_NEVER);
    bind(options, purpose);
}

void Session::bind(const TargetOptions& options, Purpose purpose)
{
    if (const std::optional<Failure> failure = unreadableFile(file_)) {
        throw *failure;
    }
    const bool local = isRootOrOwner(file_);
    if (options.local && !local) {
        throw Failure(ExitCode::authentication, file_ + ": --local is for root and the owner of the file",
                      {"nothing was read; bind as the administrator with -W, -y FILE or -w PASSWORD"});
    }
    const bool asked = options.bindDn || passwordSources(options) > 0;
    if (!asked && (local || purpose == Purpose::read)) {
        bindAnonymously(handle_.get());
        mayAdminister_ = local;
        return;
    }
    const std::string dn = options.bindDn ? *options.bindDn : administratorOf(handle_.get(), file_);
    bindAs(handle_.get(), dn, passwordOf(options, dn), purpose);
    boundAs_ = dn;
    mayAdminister_ = true;
}

} // namespace veltor::tool
