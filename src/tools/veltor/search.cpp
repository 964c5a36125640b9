// veltor search: the entries below a base that match a filter, as LDIF.
#include "commands.h"
#include "credentials.h"
#include "filter.h"
#include "ldif_output.h"
#include "results.h"

#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>
#include <veltor/cfg.h>

namespace veltor::tool {

namespace {

constexpr const char* footer =
    R"(The first argument is a filter if it is empty, begins with "(" or holds "="; if not, it
is the name of an attribute as well. The default filter is (objectclass=*): an entry
without an objectclass is found by a filter on one of its other attributes only.

The options common to all commands (-F, -D, -W, -y, -w) are accepted here too;
see veltor --help.)";

struct SearchOptions
{
    std::string base;
    std::string scope = "sub";
    bool namesOnly = false;
    int plainness = 0; ///< how often -L was given
    bool showSecrets = false;
    std::optional<std::string> first; ///< the filter, or the first of the names
    std::vector<std::string> names;
};

struct Scope
{
    const char* option;
    const char* name; ///< as ldapsearch calls it in its heading
    int number;       ///< as cfg_search_s takes it
    bool withBase;
};

constexpr Scope scopes[] = {
    {"base", "baseObject", LDAP_SCOPE_BASE, true},
    {"one", "oneLevel", LDAP_SCOPE_ONELEVEL, true},
    {"sub", "subtree", LDAP_SCOPE_SUBTREE, true},
    {"children", "children", LDAP_SCOPE_SUBTREE, false},
};

const Scope& scopeNamed(const std::string& option)
{
    for (const Scope& scope : scopes) {
        if (option == scope.option) {
            return scope;
        }
    }
    throw Failure(ExitCode::usage, "-s: \"" + option + "\" is not one of: base, one, sub, children",
                  {"nothing was read"});
}

/// The filter and the attribute names that the arguments mean.
struct Question
{
    std::string filter; ///< as given, for the heading; empty for the default filter
    std::string term;   ///< as the library takes it
    std::vector<std::string> names;
};

Question questionOf(const SearchOptions& options)
{
    Question question;
    if (options.first && isFilter(*options.first)) {
        question.filter = *options.first;
        question.term = checkedFilter(question.filter);
    } else if (options.first) {
        question.names.push_back(*options.first);
    }
    for (const std::string& name : options.names) {
        if (isFilter(name)) {
            throw Failure(ExitCode::usage, '"' + name + "\" is not an attribute name",
                          {"nothing was read; the filter is the first argument, and there is one"});
        }
        question.names.push_back(name);
    }
    return question;
}

void runSearch(const Session& session, const SearchOptions& options, int scope, const Question& question,
               Results& results)
{
    std::vector<std::string> names = question.names;
    std::vector<char*> pointers;
    for (std::string& name : names) {
        // The LDAP name for "all of them" is a null list here.
        if (name == "*") {
            pointers.clear();
            break;
        }
        pointers.push_back(name.data());
    }
    pointers.push_back(nullptr);
    char** attributes = pointers.size() == 1 ? nullptr : pointers.data();
    const int code = cfg_search_s(session.handle(), options.base.c_str(), scope, question.term.c_str(), attributes,
                                  options.namesOnly ? 1 : 0, results.receiver());
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(session.handle(), code, {Stage::search, options.base});
    }
}

// The library has no scope for "everything below the base". If the base matches the filter, it is the first
// entry of the subtree; a base search tells whether it does, and how its DN is written.
const cfg_message* withoutBase(const Session& session, const SearchOptions& options, const Question& question,
                               const cfg_message* subtree)
{
    Results base;
    runSearch(session, options, LDAP_SCOPE_BASE, question, base);
    const bool leads = base.first() != nullptr && subtree != nullptr &&
                       std::string_view(base.first()->text) == std::string_view(subtree->text);
    return leads ? subtree->next : subtree;
}

void appendHeading(WipedText& out, const SearchOptions& options, const Scope& scope, const Question& question)
{
    std::string requested;
    for (const std::string& name : question.names) {
        requested += (requested.empty() ? "" : " ") + name;
    }
    appendLdifComment(out, "base <" + options.base + "> with scope " + scope.name);
    appendLdifComment(out, "filter: " + (question.term.empty() ? "(objectclass=*)" : question.filter));
    appendLdifComment(out, "requesting: " + (requested.empty() ? "ALL" : requested));
    appendLdifComment(out, "");
    append(out, "\n");
}

void print(const SearchOptions& options, const Scope& scope, const Question& question, const cfg_message* entries)
{
    const bool withVersion = options.plainness == 1 || options.plainness == 2;
    const bool withComments = options.plainness < 2;
    WipedText out;
    if (withVersion) {
        append(out, "version: 1\n\n");
    }
    if (withComments) {
        appendHeading(out, options, scope, question);
    }
    std::size_t count = 0;
    for (const cfg_message* entry = entries; entry != nullptr; entry = entry->next, ++count) {
        appendEntry(out, *entry, {options.namesOnly, options.showSecrets});
    }
    if (withComments) {
        appendLdifComment(out, "numEntries: " + std::to_string(count));
    }
    writeOut(STDOUT_FILENO, view(out));
}

ExitCode search(const SearchOptions& options, const TargetOptions& target)
{
    const Scope& scope = scopeNamed(options.scope);
    const Question question = questionOf(options);
    if (options.showSecrets && !target.bindDn) {
        throw Failure(ExitCode::usage, "--show-secrets needs a bind as the administrator",
                      {"nothing was read; add -D DN and -W, -y FILE or -w PASSWORD"});
    }
    const Session session(target);
    Results results;
    runSearch(session, options, scope.number, question, results);
    const cfg_message* entries =
        scope.withBase ? results.first() : withoutBase(session, options, question, results.first());
    print(options, scope, question, entries);
    return ExitCode::done;
}

} // namespace

Command searchCommand(CLI::App& application, const TargetOptions& target)
{
    const auto options = std::make_shared<SearchOptions>();
    CLI::App* command = application.add_subcommand("search", "Print entries as LDIF")->group("Commands");
    command->add_option("-b", options->base, "Search at and below this DN; without it the whole tree")->type_name("DN");
    command->add_option("-s", options->scope, "base, one, sub or children; without it sub")->type_name("SCOPE");
    command->add_flag("-A", options->namesOnly, "Print attribute names alone");
    command->add_flag("-L", options->plainness,
                      "Begin with the version line of LDIF; -LL: no heading; -LLL: entries only");
    command->add_flag("--show-secrets", options->showSecrets,
                      "Print passwords as clear text; needs a bind as the administrator");
    command->add_option("FILTER", options->first, "NAME=* or NAME=VALUE, in parentheses or not")->type_name("");
    command->add_option("ATTRIBUTE", options->names, "Print these attributes alone")->type_name("");
    command->footer(footer);
    return {command, [options, &target] { return search(*options, target); }};
}

} // namespace veltor::tool
