// veltor passwd: a password, typed twice or from a file, never on the command line.
#include "assignments.h"
#include "commands.h"
#include "credentials.h"
#include "names.h"
#include "secrets.h"
#include "update.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace veltor::tool {

namespace {

constexpr const char* footer =
    R"(The password is asked for twice on the terminal, or read from FILE: one line feed at its end
is not part of it, and a file with more permissions than 0640 is refused. It has 1 to 46
bytes, no control characters, and not the form >...<. The backup holds the old password.

)";

constexpr int tries = 3;

struct PasswordOptions
{
    std::string name = "zor-slapdAdminPW";
    std::string dn = configurationDn;
    std::optional<std::string> file;
    UpdateOptions update;
};

/// Why the attribute can't have this password.
std::optional<std::string> whyRefused(const std::string& name, const WipedText& password)
{
    const std::string_view text(password.data());
    const std::optional<cfg_attr_type> type = attributeType(name);
    const auto size = static_cast<long>(text.size());
    if (type && (size < type->minimum || size > type->maximum)) {
        return "a text of " + std::to_string(size) + " bytes; " + std::to_string(type->minimum) + " to " +
               std::to_string(type->maximum) + " are allowed";
    }
    if (looksEncoded(password)) {
        return "a text of the form >...< is an encoded password; give the clear one";
    }
    return whyUnstorable(name, text);
}

WipedText askedTwice(const std::string& name)
{
    for (int left = tries; left > 0; --left) {
        WipedText password = askPassword("New password for " + name + ": ", "-T FILE", true);
        if (const auto finding = whyRefused(name, password)) {
            warn(*finding);
        } else if (askPassword("Again: ", "-T FILE", true) == password) {
            return password;
        } else {
            warn("the two are not the same");
        }
    }
    throw Failure(ExitCode::refused, name + ": there is no new password after " + std::to_string(tries) + " tries",
                  {"nothing was written"});
}

WipedText newPassword(const PasswordOptions& options, const std::string& name)
{
    if (!options.file) {
        return askedTwice(name);
    }
    WipedText password = readPasswordFile(*options.file, "-T");
    if (const auto finding = whyRefused(name, password)) {
        throw Failure(ExitCode::refused, options.dn + ": " + name + ": " + *finding, {"nothing was written"});
    }
    return password;
}

ExitCode setPassword(const PasswordOptions& options, const TargetOptions& target, Output& output)
{
    const std::string name = settingName(options.name, false);
    if (!isPassword(name)) {
        throw Failure(ExitCode::refused, name + " is not a password", {"nothing was written; use: veltor set"});
    }
    if (options.file == "-" && target.passwordFile == "-") {
        throw Failure(ExitCode::usage, "standard input can't give both the new password and the one to bind with",
                      {"nothing was read; name a file with -T or with -y"});
    }
    // Before anybody types a password for a file that can't be read.
    if (const std::optional<Failure> failure = unreadableFile(fileOf(target))) {
        throw *failure;
    }
    disableCoreDumps();
    ChangeRecord record{ChangeRecord::Kind::modify, options.dn, {}, {}};
    ChangeOperation& operation =
        record.operations.emplace_back(ChangeOperation{ChangeOperation::Kind::replace, name, {}, {}});
    operation.values.push_back({newPassword(options, name), {}});
    ChangeSet changes;
    changes.records.push_back(std::move(record));
    return carryOut(std::move(changes), target, options.update, output);
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
    command->footer(std::string(footer) + writeFooter);
    return {command, [options, &target, &output] { return setPassword(*options, target, output); }};
}

} // namespace veltor::tool
