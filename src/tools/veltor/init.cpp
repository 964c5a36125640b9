// veltor init: a first configuration, which the server can start from and the administrator bind to.
#include "assignments.h"
#include "change_scan.h"
#include "commands.h"
#include "escape.h"
#include "handle.h"
#include "ldif_output.h"
#include "masked_text.h"
#include "memory_file.h"
#include "names.h"
#include "new_password.h"
#include "question.h"
#include "replacement.h"
#include "results.h"
#include "word_list.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* initFooter =
    R"(The suffix is the DN at the top of the directory, such as dc=example,dc=com; a server may
have several. It is asked for if it is not given. -D is the DN of the administrator, cn=root
without it. The administrator's password is asked for twice on the terminal, or read from the
file of -T: one line feed at its end is not part of it, and a file with more permissions
than 0640 is refused. It has 1 to 46 bytes, no control characters, and not the form >...<.

The file has the mode 0640. Root gives it to the account "ldap" if there is one. A name that
exists is an error (exit status 8): nothing is ever replaced.)";

constexpr const char* administratorDn = "zor-slapdAdminDN";
constexpr const char* administratorPassword = "zor-slapdAdminPW";
constexpr const char* suffixName = "zor-slapdSuffix";

/// The account that the server runs as.
constexpr const char* serverAccount = "ldap";

// In the library's own layout, so that veltor fmt has nothing to do. What stands between @ is filled in.
constexpr std::string_view freshText =
    R"(# Configuration of the directory server.
#
# An empty line ends an entry. A line that begins with "#" is a comment and belongs to what follows
# it. The server reads this file when it starts. "veltor explain NAME" tells what a setting may
# hold; "veltor set", "veltor passwd" and "veltor edit" change this file and look at every value
# first; "veltor check" tells what is wrong with it. Keep the mode at 0640, since passwords are
# encoded here and not encrypted.
charset: @charset@
# The version of this file's format, always 1.
version: 1

# The server as a whole.
dn: cn=Configuration
cn: Configuration
objectclass: top
objectclass: zor-slapdConfiguration
# Who may change this configuration. "veltor passwd" sets a new password.
zor-slapdAdminDN: @administrator@
zor-slapdAdminPW: @password@
zor-slapdErrorLog: /var/log/ldap/slapd.err
zor-slapdPort: 389
# How the directory stores the passwords of its entries.
zor-slapdPwEncryption: sha
# A search of anybody but the administrator ends after this many entries and seconds.
zor-slapdSizeLimit: 500
# How much goes to the system's log, low, medium or high.
zor-slapdSysLogLevel: m
zor-slapdTimeLimit: 900

# Object classes and attribute types. The order is the order of loading.
dn: cn=Schemas, cn=Configuration
cn: Schemas
objectclass: top
objectclass: zor-slapdSchemas
zor-slapdIncludeSchema: /usr/ldap/etc/schema/system.at
zor-slapdIncludeSchema: /usr/ldap/etc/schema/system.oc
zor-slapdIncludeSchema: /usr/ldap/etc/schema/user.at
zor-slapdIncludeSchema: /usr/ldap/etc/schema/user.oc
# What administrators add over LDAP is kept here.
zor-slapdSchemaAdditions: /usr/ldap/etc/schema/modified
zor-slapdSchemaCheck: V3_lenient

dn: cn=Databases, cn=Configuration
cn: Databases
objectclass: top
objectclass: container

# The directory itself.
dn: cn=Directory, cn=Databases, cn=Configuration
cn: Directory
objectclass: top
objectclass: zor-slapdDatabase
zor-slapdDbInstance: ldapdb
zor-slapdDbName: ldapdb
zor-slapdReadOnly: false
# The DN at the top of the directory, one line for each if there are several.
@suffixes@# The database knows the server by the account that it runs as.
zor-slapdUseProcessIdPw: true

# Encrypted connections. They need a key database in zor-slapdSslKeyDatabase, and SSL, SSLOnly, TLS
# or SSLTLS in place of none.
dn: cn=TLS, cn=Configuration
cn: TLS
objectclass: top
objectclass: zor-slapdTLS
zor-slapdSecurity: none

# End of the configuration.
)";

struct InitOptions
{
    std::optional<std::string> file;
    std::vector<std::string> suffixes;
    std::optional<std::string> passwordFile;
    bool dryRun = false;
    bool exitCode = false; ///< of a dry run: says by the exit status that there would be a new file
};

Failure cantBeMade(const std::string& finding, const std::string& advice)
{
    return {ExitCode::writeFailed, finding, {"nothing was written; " + advice}};
}

Failure existing(const std::string& file, const std::string& what, const std::string& advice)
{
    return {ExitCode::entry,
            file + ": " + what,
            {codesOf(LDAP_ALREADY_EXISTS, 0), "nothing was written; " + advice},
            {.ldap = LDAP_ALREADY_EXISTS, .code = LDAP_ALREADY_EXISTS, .file = file}};
}

std::string folderOf(const std::string& file)
{
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

// Before anybody types a password for a file that can't be made.
void requireRoomFor(const std::string& file)
{
    if (file.empty() || file.back() == '/') {
        throw Failure(ExitCode::usage, '"' + file + "\" is not the name of a file",
                      {"nothing was written; name the file to make"});
    }
    struct stat status = {};
    if (::lstat(file.c_str(), &status) == 0) {
        if (S_ISLNK(status.st_mode) && ::stat(file.c_str(), &status) != 0) {
            throw existing(file, "there is a symbolic link that leads nowhere",
                           "remove the link, or name another file");
        }
        throw existing(file, "exists",
                       S_ISREG(status.st_mode) ? "name another file; veltor edit changes this one"
                                               : "name another file");
    }
    const std::string folder = folderOf(file);
    if (::stat(folder.c_str(), &status) != 0) {
        const std::string advice = errno == ENOENT ? "make the folder, or name another file" : "name another file";
        throw cantBeMade(file + ": the folder " + folder + ": " + std::strerror(errno), advice);
    }
    if (!S_ISDIR(status.st_mode)) {
        throw cantBeMade(file + ": " + folder + " is no folder", "name another file");
    }
    if (::eaccess(folder.c_str(), W_OK | X_OK) != 0) {
        throw cantBeMade(file + ": the folder " + folder + ": " + std::strerror(errno),
                         "this account makes no file there: be another one, or name another file");
    }
}

/// Puts values into an entry of its own and reads them back, which makes of each what the file holds: a DN in its
/// normal form, a password encoded.
class StoredForm
{
public:
    StoredForm() : file_("dn: cn=Configuration\ncn: Configuration\nobjectclass: top\n"), handle_(newHandle())
    {
        require(cfg_set_option(handle_.get(), CFG_OPT_CONFIG_FILE, file_.name().c_str()));
        require(cfg_bind_s(handle_.get(), nullptr, nullptr, LDAP_AUTH_SIMPLE));
    }

    /// @param value  ends with a NUL
    WipedText of(const char* name, WipedText value)
    {
        std::string type = name;
        char* values[] = {value.data(), nullptr};
        LDAPMod modification = {};
        modification.mod_op = LDAP_MOD_REPLACE;
        modification.mod_type = type.data();
        modification.mod_values = values;
        LDAPMod* modifications[] = {&modification, nullptr};
        require(cfg_modify_s(handle_.get(), configurationDn, modifications));
        Results results;
        require(cfg_read_s(handle_.get(), configurationDn, LDAP_SCOPE_BASE, results.receiver()));
        const cfg_message* attribute = results.first()->children;
        while (attribute != nullptr && textOf(*attribute) != name) {
            attribute = attribute->next;
        }
        if (attribute == nullptr || attribute->children == nullptr) {
            throw Failure(ExitCode::internal, std::string(name) + " is not stored", {"nothing was written"});
        }
        WipedText stored;
        append(stored, textOf(*attribute->children));
        return stored;
    }

private:
    void require(int code) const
    {
        if (code != LDAP_SUCCESS) {
            throw libraryFailure(handle_.get(), code, {Stage::update, "", SourcePlace(), "nothing was written"});
        }
    }

    MemoryFile file_;
    Handle handle_;
};

/// The DN as the file holds it.
/// @param option  what gave it, for messages
std::string storedDn(StoredForm& stored, const char* name, const std::string& dn, const std::string& option)
{
    const std::optional<std::string> finding = dn.empty() ? "an empty DN" : whyUnstorable(name, dn);
    if (finding) {
        throw Failure(ExitCode::refused, option + ": " + *finding,
                      {"nothing was written; a DN looks like dc=example,dc=com"});
    }
    try {
        WipedText value;
        append(value, dn);
        value.push_back('\0');
        return std::string(view(stored.of(name, std::move(value))));
    } catch (const Failure& failure) {
        throw Failure(failure.exit(), option + ": \"" + dn + "\" is not a DN",
                      {failure.details().front(), "nothing was written; a DN looks like dc=example,dc=com"},
                      failure.facts());
    }
}

/// The text with what is filled in.
WipedText filledIn(const std::vector<std::pair<std::string_view, std::string_view>>& values)
{
    WipedText text;
    std::string_view rest = freshText;
    for (const auto& [mark, value] : values) {
        const std::size_t at = rest.find(mark);
        append(text, rest.substr(0, at));
        append(text, value);
        rest.remove_prefix(at + mark.size());
    }
    append(text, rest);
    return text;
}

bool isAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char character) { return (character & 0x80) == 0; });
}

std::vector<std::string> askedSuffixes()
{
    const Terminal terminal("there is no suffix for the directory",
                            "nothing was written; there is no terminal to ask on; give it with --suffix DN");
    return {terminal.answer("Suffix of the directory, such as dc=example,dc=com: ").value_or("")};
}

/// What is asked for, as the file will hold it.
struct Fresh
{
    std::vector<std::string> suffixes;
    std::string administrator;
    WipedText text;
};

Fresh freshConfiguration(const InitOptions& options, const TargetOptions& target)
{
    StoredForm stored;
    Fresh fresh;
    fresh.administrator = storedDn(stored, administratorDn, target.bindDn.value_or("cn=root"), "-D");
    std::string lines;
    for (const std::string& given : options.suffixes.empty() ? askedSuffixes() : options.suffixes) {
        const std::string suffix = storedDn(stored, suffixName, given, "--suffix");
        if (std::any_of(fresh.suffixes.begin(), fresh.suffixes.end(),
                        [&](const std::string& other) { return sameName(suffix, other); })) {
            continue;
        }
        fresh.suffixes.push_back(suffix);
        lines += std::string(suffixName) + ": " + suffix + '\n';
    }
    WipedText password;
    // A dry run shows no password, and asks for none.
    if (options.dryRun && !options.passwordFile) {
        append(password, std::string_view("x\0", 2));
    } else {
        password = newPassword(configurationDn, administratorPassword, options.passwordFile);
    }
    const WipedText encoded = stored.of(administratorPassword, std::move(password));
    const bool ascii = isAscii(lines) && isAscii(fresh.administrator);
    fresh.text = filledIn({{"@charset@", ascii ? "ISO-8859-1" : "UTF-8"},
                           {"@administrator@", fresh.administrator},
                           {"@password@", view(encoded)},
                           {"@suffixes@", lines}});
    return fresh;
}

// The server could not read a file of root's that only its owner and group read.
void giveToServer(const std::string& file)
{
    const passwd* const account = ::geteuid() == 0 ? ::getpwnam(serverAccount) : nullptr;
    if (account != nullptr && ::lchown(file.c_str(), account->pw_uid, account->pw_gid) != 0) {
        warn(file + ": the account \"" + serverAccount + "\" can't have it: " + std::strerror(errno));
    }
}

ExitCode init(const InitOptions& options, const TargetOptions& given, Output& output)
{
    TargetOptions target = given;
    if (options.file && target.file) {
        throw Failure(ExitCode::usage, "FILE and -F both name the file to make", {"nothing was written; give one"});
    }
    if (target.askPassword || target.passwordFile || target.password) {
        throw Failure(
            ExitCode::usage, "-W, -y and -w are for a file that exists: there is nothing to bind to",
            {"nothing was written; -T FILE gives the password of the new one, and without it it is asked for"});
    }
    target.file = options.file ? options.file : target.file;
    const std::string file = fileOf(target);
    output.document().setFile(file);
    requireRoomFor(file);
    leaveTheCLocale();
    const Fresh fresh = freshConfiguration(options, target);
    output.document().set("dryRun", options.dryRun);
    output.document().setChanged();
    if (options.dryRun) {
        const std::string shown = maskedText(view(fresh.text));
        output.document().set("text", jsonText(shown));
        if (!output.json() && !output.quiet()) {
            writeOut(STDOUT_FILENO, escapedLines(shown));
        }
        return options.exitCode ? ExitCode::no : ExitCode::done;
    }
    ChangeReport report;
    report.log = "made, administrator " + fresh.administrator;
    // A signal would leave a file that is root's, or one that nobody was told of.
    const SignalsHeldBack untilTold;
    if (!madeFile(file, view(fresh.text), report)) {
        throw existing(file, "exists", "somebody else has just made it");
    }
    giveToServer(file);
    output.noteState("the file was made; look at it with: veltor check");
    output.print(file + ": written, with the administrator " + fresh.administrator + " and the suffix " +
                 joined(fresh.suffixes, "; "));
    return ExitCode::done;
}

} // namespace

Command initCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<InitOptions>();
    CLI::App* command = application.add_subcommand("init", "Make a fresh configuration")->group("Commands");
    command->add_option("--suffix", options->suffixes, "The DN at the top of the directory; may be repeated")
        ->type_name("DN")
        ->allow_extra_args(false);
    command->add_option("-T", options->passwordFile, "Read the administrator's password from FILE, - is stdin")
        ->type_name("FILE");
    command->add_flag("-n,--dry-run", options->dryRun, "Print the text with its secrets masked, and write nothing");
    command->add_flag("--exit-code", options->exitCode, "With -n: exit status 1, as there would be a new file");
    command->add_option("FILE", options->file, "The file to make; the same as -F FILE")->type_name("");
    command->footer(initFooter);
    return {command, [options, &target, &output] { return init(*options, target, output); }};
}

} // namespace veltor::tool
