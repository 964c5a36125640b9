// veltor passwd: a password, typed twice or from a file, never on the command line.
#include "assignments.h"
#include "commands.h"
#include "names.h"
#include "new_password.h"
#include "results.h"
#include "secrets.h"
#include "update.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* passwdFooter =
    R"(The password is asked for twice on the terminal, or read from FILE: one line feed at its end
is not part of it, and a file with more permissions than 0640 is refused. It has 1 to 46
bytes, no control characters, and not the form >...<. The backup holds the old password.

)";

struct PasswordOptions
{
    std::string name = "zor-slapdAdminPW";
    std::string dn = configurationDn;
    std::optional<std::string> file;
    UpdateOptions update;
};

void requireEntry(const Session& session, const std::string& dn)
{
    Results entry;
    const int code = cfg_read_s(session.handle(), dn.c_str(), LDAP_SCOPE_BASE, entry.receiver());
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(session.handle(), code, {Stage::update, dn, SourcePlace(), "nothing was written"});
    }
}

ExitCode setPassword(const PasswordOptions& options, const TargetOptions& target, Output& output)
{
    const std::string name = fullName(options.name, {"nothing was written; see: veltor explain --list '*PW'"});
    if (!isPassword(name)) {
        throw Failure(ExitCode::refused, name + " is not a password",
                      {"nothing was written; use: veltor set " + name + "=VALUE"}, factsAbout(options.dn, name));
    }
    if (options.file == "-" && target.passwordFile == "-") {
        throw Failure(ExitCode::usage, "standard input can't give both the new password and the one to bind with",
                      {"nothing was read; name a file with -T or with -y"});
    }
    // Before anybody types a new one that nothing could come of. What is typed to bind with serves twice.
    TargetOptions once = target;
    once.heldPassword = std::make_shared<WipedText>();
    requireEntry(Session(once, Purpose::authenticate), options.dn);
    ChangeRecord record{ChangeRecord::Kind::modify, options.dn, {}, {}};
    ChangeOperation& operation =
        record.operations.emplace_back(ChangeOperation{ChangeOperation::Kind::replace, name, {}, {}});
    operation.values.push_back({newPassword(options.dn, name, options.file), {}});
    ChangeSet changes{{"", "passwd"}, {}};
    changes.records.push_back(std::move(record));
    return carryOut(std::move(changes), once, options.update, output);
}

} // namespace

Command passwdCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<PasswordOptions>();
    CLI::App* command = application.add_subcommand("passwd", "Set a password")->group("Commands");
    command->add_option("-b", options->dn, "The entry; without it cn=Configuration")->type_name("DN");
    command->add_option("-T", options->file, "Read the new password from FILE, - is stdin")->type_name("FILE");
    addWriteOptions(*command, options->update.write);
    command->add_option("NAME", options->name, "The attribute; without it zor-slapdAdminPW")->type_name("");
    command->footer(std::string(passwdFooter) + writeFooter);
    return {command, [options, &target, &output] { return setPassword(*options, target, output); }};
}

} // namespace veltor::tool
