// veltor tree: which entries there are, as a drawing.
#include "commands.h"
#include "ldif_output.h"
#include "results.h"
#include "tree_drawing.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>
#include <vector>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* treeFooter =
    R"(Entries whose parent is missing are marked with a star and drawn under the nearest entry
above them; the missing ones are listed below the drawing.

The options common to all commands (-F, -D, -W, -y, -w) are accepted here too;
see veltor --help.)";

struct TreeOptions
{
    std::string base;
    bool ascii = false;
};

Tree readTree(const Session& session, const std::string& base)
{
    Results entries;
    const int code = cfg_read_s(session.handle(), base.c_str(), LDAP_SCOPE_SUBTREE, entries.receiver());
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(session.handle(), code, {Stage::search, base});
    }
    std::vector<std::string> dns;
    for (const cfg_message* entry = entries.first(); entry != nullptr; entry = entry->next) {
        // The root above the entries is none.
        if (entry->text != nullptr && *entry->text != '\0') {
            dns.emplace_back(entry->text);
        }
    }
    return treeOf(dns);
}

void fill(Document& document, const Tree& tree)
{
    Json branches = Json::array();
    for (const Branch& branch : tree.branches) {
        branches.push_back({{"dn", jsonDn(branch.dn)}, {"depth", branch.depth}, {"orphan", branch.orphan}});
    }
    Json undefined = Json::array();
    for (const std::string& dn : tree.missing) {
        undefined.push_back(jsonDn(dn));
    }
    document.set("tree", std::move(branches));
    document.set("undefined", std::move(undefined));
}

ExitCode tree(const TreeOptions& options, const TargetOptions& target, Output& output)
{
    output.formOf({Form::text});
    output.document().setFile(fileOf(target));
    // Of the terminal, which the locale of the environment describes; the session may leave it.
    const bool ascii = options.ascii || !environmentHasUtf8();
    const Session session(target);
    const Tree tree = readTree(session, options.base);
    if (output.json()) {
        fill(output.document(), tree);
    } else {
        writeOut(STDOUT_FILENO, drawn(tree, ascii, options.base.empty()));
    }
    return ExitCode::done;
}

} // namespace

Command treeCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<TreeOptions>();
    CLI::App* command = application.add_subcommand("tree", "Draw the tree of entries")->group("Commands");
    command->add_option("-b", options->base, "Draw this entry and what is below it")->type_name("DN");
    command->add_flag("--ascii", options->ascii, "Draw in ASCII, also in a locale that has line characters");
    command->footer(treeFooter);
    return {command, [options, &target, &output] { return tree(*options, target, output); }, true};
}

} // namespace veltor::tool
