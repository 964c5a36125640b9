// veltor get: the values of some attributes of one entry, bare enough for a script.
#include "commands.h"
#include "elsewhere.h"
#include "escape.h"
#include "ldif_output.h"
#include "names.h"
#include "secrets.h"
#include "stored_tree.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>
#include <vector>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* getFooter =
    R"(One name: its values, one per line. Several: "name: value" lines. A name may be given
without "zor-slapd" or "zor-" in front. A hidden value is shown as ***.

Exit status 1 says that one of the names has no value.)";

struct GetOptions
{
    std::string base = "cn=Configuration";
    std::vector<std::string> names;
};

/// An attribute of the entry under its full name. The node's values belong to the result that it was found in.
struct Found
{
    std::string name;
    cfg_message node;
};

// A name that the catalogue does not have may be in the file all the same.
std::vector<std::string> namesIn(const cfg_message& entry, const std::vector<std::string>& given)
{
    std::vector<std::string> names;
    for (const std::string& name : given) {
        NameResult result = lookUpName(name);
        const cfg_message* attribute = result.name.empty() ? attributeOf(entry, name) : nullptr;
        if (attribute != nullptr) {
            result.name = textOf(*attribute);
        }
        if (result.name.empty()) {
            refuseName(name, result, {"nothing was printed; see: veltor explain --list"});
        }
        const auto same = [&](const std::string& other) { return sameName(other, result.name); };
        if (std::none_of(names.begin(), names.end(), same)) {
            names.push_back(std::move(result.name));
        }
    }
    return names;
}

// Passwords as clear text come from a search, which wants an attribute that the entry has.
void readShown(const Session& session, const std::string& base, const std::vector<std::string>& names,
               const cfg_message& stored, Results& shown)
{
    std::vector<std::string> present;
    for (const std::string& name : names) {
        if (attributeOf(stored, name) != nullptr) {
            present.push_back(name);
        }
    }
    if (present.empty()) {
        return;
    }
    std::vector<char*> pointers;
    pointers.reserve(present.size() + 1);
    for (std::string& name : present) {
        pointers.push_back(name.data());
    }
    pointers.push_back(nullptr);
    const std::string filter = present.front() + "=*";
    const int code = cfg_search_s(session.handle(), base.c_str(), LDAP_SCOPE_BASE, filter.c_str(), pointers.data(), 0,
                                  shown.receiver());
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(session.handle(), code, {Stage::search, base});
    }
}

void appendText(WipedText& out, const Found& found, bool withName, const EntryForm& form)
{
    bool hidden = false;
    for (const cfg_message* value = found.node.children; value != nullptr; value = value->next) {
        const bool hides = !form.showSecrets && isSecret(found.name, textOf(*value));
        if (hides && hidden) {
            continue;
        }
        hidden = hidden || hides;
        append(out, withName ? escaped(found.name) + ": " : "");
        appendEscaped(out, hides ? "***" : textOf(*value));
        out.push_back('\n');
    }
}

/// @return  false when a value is hidden: a script must not take a mask for a value
bool appendBare(WipedText& out, const Found& found, const Output& output)
{
    bool complete = true;
    for (const cfg_message* value = found.node.children; value != nullptr; value = value->next) {
        if (output.showSecrets() || !isSecret(found.name, textOf(*value))) {
            output.appendBareValue(out, textOf(*value));
        } else {
            complete = false;
        }
    }
    return complete;
}

ExitCode get(const GetOptions& options, const TargetOptions& target, Output& output)
{
    const Form form = output.formOf({Form::text, Form::value, Form::ldif});
    output.document().setFile(fileOf(target));
    const Session session(target);
    checkShowSecrets(output, session);
    Results stored;
    const int code = cfg_read_s(session.handle(), options.base.c_str(), LDAP_SCOPE_BASE, stored.receiver());
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(session.handle(), code, {Stage::search, options.base});
    }
    const std::vector<std::string> names = namesIn(*stored.first(), options.names);
    Results shown;
    if (output.showSecrets()) {
        readShown(session, options.base, names, *stored.first(), shown);
    }
    const cfg_message& source = shown.first() == nullptr ? *stored.first() : *shown.first();

    std::vector<Found> found;
    nlohmann::ordered_json missing = nlohmann::ordered_json::array();
    std::vector<std::string> notes;
    for (const std::string& name : names) {
        const cfg_message* attribute = attributeOf(source, name);
        if (attribute == nullptr || attribute->children == nullptr) {
            missing.push_back(jsonText(name));
            const std::string other = whereElse(session.handle(), name);
            notes.push_back(name + " has no value" + (other.empty() ? "" : "; " + other));
        } else {
            found.push_back({name, *attribute});
        }
    }
    // The full name is told, however the file spells it.
    for (std::size_t index = 0; index < found.size(); ++index) {
        found[index].node.text = found[index].name.data();
        found[index].node.next = index + 1 < found.size() ? &found[index + 1].node : nullptr;
    }
    cfg_message entry = source;
    entry.children = found.empty() ? nullptr : &found.front().node;
    entry.next = nullptr;

    EntryForm entryForm;
    entryForm.showSecrets = output.showSecrets();
    WipedText out;
    if (form == Form::json) {
        output.document().addEntry(entry, entryForm);
        if (!missing.empty()) {
            output.document().set("missing", missing);
        }
    } else if (form == Form::ldif) {
        appendEntry(out, entry, entryForm);
    } else {
        for (const Found& one : found) {
            if (form == Form::text) {
                appendText(out, one, names.size() > 1, entryForm);
            } else if (!appendBare(out, one, output)) {
                notes.push_back(one.name + " is hidden; --show-secrets shows it");
            }
        }
    }
    writeOut(STDOUT_FILENO, view(out));
    if (!output.quiet() && form != Form::json) {
        for (const std::string& note : notes) {
            tellNote(std::string(shownDn(textOf(entry))) + ": " + note);
        }
    }
    return notes.empty() ? ExitCode::done : ExitCode::no;
}

} // namespace

Command getCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<GetOptions>();
    CLI::App* command = application.add_subcommand("get", "Print the values of attributes")->group("Commands");
    command->add_option("-b", options->base, "The entry; without it cn=Configuration")->type_name("DN");
    command->add_option("NAME", options->names, "The attributes")->type_name("")->required();
    command->footer(getFooter);
    return {command, [options, &target, &output] { return get(*options, target, output); }, true};
}

} // namespace veltor::tool
