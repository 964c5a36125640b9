// veltor search: the entries below a base that match a filter, as LDIF.
#include "change_scan.h"
#include "commands.h"
#include "filter.h"
#include "ldif_output.h"
#include "names.h"
#include "results.h"
#include "secrets.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* searchFooter =
    R"(The first argument is a filter if it is empty, begins with "(" or holds "="; if not, it
is the name of an attribute as well. Filters are those of RFC 4515: (NAME=VALUE), with stars
for any text, (NAME>=VALUE), (NAME<=VALUE), (NAME=*) for "has it", and (&...), (|...), (!...)
around them. Without a filter all entries are printed; the root, which holds version and
charset, is found with -s base or by a filter. Hidden values match nothing but (NAME=*).

With --format value the bare values of the attributes are printed, one per line; dn is the
DN of the entry.

The options common to all commands (-F, -D, -W, -y, -w) are accepted here too;
see veltor --help.)";

struct SearchOptions
{
    std::string base;
    std::string scope = "sub";
    bool namesOnly = false;
    int plainness = 0; ///< how often -L was given
    bool comments = false;
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
                  {"nothing was read; see: veltor help search"});
}

/// The filter and the attribute names that the arguments mean.
struct Question
{
    std::optional<std::string> text; ///< the filter as given, for the heading
    Filter filter;
    std::vector<std::string> names;
};

// A file may hold names that nobody knows, so these are looked for as they are.
std::string foundName(const std::string& given)
{
    const NameResult result = lookUpName(given);
    if (result.ambiguous) {
        refuseName(given, result, {"nothing was read; give the name in full"});
    }
    return result.name.empty() ? given : result.name;
}

Question questionOf(const SearchOptions& options)
{
    Question question;
    if (options.first && isFilter(*options.first)) {
        question.text = *options.first;
        question.filter = parseFilter(*options.first, foundName);
    } else if (options.first) {
        question.names.push_back(foundName(*options.first));
    }
    for (const std::string& name : options.names) {
        if (isFilter(name)) {
            throw Failure(ExitCode::usage, '"' + name + "\" is not an attribute name",
                          {"nothing was read; the filter is the first argument, and there is one"});
        }
        question.names.push_back(foundName(name));
    }
    return question;
}

bool isChosen(const Question& question, std::string_view attribute)
{
    // The names that LDAP has for all of them, besides none.
    return question.names.empty() || std::any_of(question.names.begin(), question.names.end(), [&](const auto& name) {
               return name == "*" || sameName(name, attribute);
           });
}

void require(const Session& session, int code, const std::string& dn)
{
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(session.handle(), code, {Stage::search, dn});
    }
}

// ---- Equality ----

/// The value in the form in which nothing of it means anything to the library's parser.
std::string escapedValue(std::string_view value)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string escapes;
    for (const char character : value) {
        const auto byte = static_cast<unsigned char>(character);
        escapes += '\\';
        escapes += digits[byte >> 4U];
        escapes += digits[byte & 0x0FU];
    }
    return escapes;
}

/// Knows the entries that the library finds for each term of equality. One search for a term is enough for all of
/// them, and it compares as the attribute's type does.
class FoundEntries
{
public:
    FoundEntries(const Session& session, const Filter& filter, bool showSecrets) { look(session, filter, showSecrets); }

    bool operator()(const Filter& term, const cfg_message& entry) const
    {
        const auto found = found_.find(&term);
        return found != found_.end() && found->second.count(entry.text) != 0;
    }

private:
    void look(const Session& session, const Filter& filter, bool showSecrets)
    {
        for (const Filter& part : filter.parts) {
            look(session, part, showSecrets);
        }
        // A hidden password is not compared, so its decoding must not fail either.
        const bool hidden = !showSecrets && isPassword(filter.attribute);
        if (filter.kind != Filter::Kind::equality || filter.value.empty() || hidden) {
            return;
        }
        const std::string term = filter.attribute + '=' + escapedValue(filter.value);
        std::string none = "1.1";
        char* attributes[] = {none.data(), nullptr};
        Results results;
        require(session,
                cfg_search_s(session.handle(), "", LDAP_SCOPE_SUBTREE, term.c_str(), attributes, 0, results.receiver()),
                "");
        std::set<std::string, std::less<>>& dns = found_[&filter];
        for (const cfg_message* entry = results.first(); entry != nullptr; entry = entry->next) {
            dns.emplace(entry->text);
        }
    }

    std::map<const Filter*, std::set<std::string, std::less<>>> found_;
};

// ---- Passwords ----

/// Takes the values of one attribute over as new nodes, since nodes of a result can't leave it.
cfg_message* copyOfValues(const cfg_message* values)
{
    cfg_message* first = nullptr;
    cfg_message** last = &first;
    for (; values != nullptr; values = values->next) {
        *last = static_cast<cfg_message*>(std::calloc(1, sizeof(cfg_message)));
        char* const text = ::strdup(values->text);
        if (*last == nullptr || text == nullptr) {
            std::free(text);
            cfg_msgfree(first);
            throw std::bad_alloc();
        }
        (*last)->kind = values->kind;
        (*last)->text = text;
        last = &(*last)->next;
    }
    return first;
}

/// Puts the clear texts of passwords in place of the stored ones, where they are printed or compared.
void decodePasswords(const Session& session, const Question& question, cfg_message* entries)
{
    for (cfg_message* entry = entries; entry != nullptr; entry = entry->next) {
        for (cfg_message* attribute = entry->children; attribute != nullptr; attribute = attribute->next) {
            std::string name = attribute->text;
            if (!isPassword(name) || (!isChosen(question, name) && !speaksOf(question.filter, name))) {
                continue;
            }
            char* attributes[] = {name.data(), nullptr};
            Results clear;
            require(session,
                    cfg_search_s(session.handle(), entry->text, LDAP_SCOPE_BASE, (name + "=*").c_str(), attributes, 0,
                                 clear.receiver()),
                    entry->text);
            if (clear.first() == nullptr || clear.first()->children == nullptr) {
                continue;
            }
            cfg_message* const values = copyOfValues(clear.first()->children->children);
            cfg_msgfree(std::exchange(attribute->children, values));
        }
    }
}

// ---- Output ----

std::string commentOf(const Session& session, const std::string& dn, const char* attribute)
{
    char* text = nullptr;
    require(session, cfg_get_comment_s(session.handle(), dn.c_str(), attribute, &text), dn);
    const std::unique_ptr<char, void (*)(void*)> owner(text, cfg_memfree);
    return text;
}

void appendHeading(WipedText& out, const SearchOptions& options, const Scope& scope, const Question& question)
{
    std::string requested;
    for (const std::string& name : question.names) {
        requested += (requested.empty() ? "" : " ") + name;
    }
    appendLdifComment(out, "base <" + std::string(shownDn(options.base)) + "> with scope " + scope.name);
    appendLdifComment(out, "filter: " + question.text.value_or("none"));
    appendLdifComment(out, "requesting: " + (requested.empty() ? "ALL" : requested));
    appendLdifComment(out, "");
    append(out, "\n");
}

/// True for an entry that is to be printed.
bool isWanted(const cfg_message& entry, const Scope& scope, const Question& question, const FoundEntries& found,
              bool showSecrets)
{
    // Nobody who asks for all entries asks for the root above them.
    const bool isRoot = entry.text == nullptr || *entry.text == '\0';
    if (isRoot && !question.text && scope.number != LDAP_SCOPE_BASE) {
        return false;
    }
    return evaluate(question.filter, entry, std::cref(found), showSecrets) == Truth::yes;
}

/// The values of the named attributes, in the order of the names; dn is that of the entry.
/// @return  false when a value is hidden: a script must not take a mask for a value
bool appendValues(WipedText& out, const cfg_message& entry, const Question& question, const Output& output)
{
    bool complete = true;
    const auto appendUnlessSecret = [&](bool secret, std::string_view value) {
        complete = complete && !(secret && !output.showSecrets());
        if (!secret || output.showSecrets()) {
            output.appendBareValue(out, value);
        }
    };
    for (const std::string& name : question.names) {
        if (isDnLabel(name)) {
            appendUnlessSecret(isSecretDn(textOf(entry)), textOf(entry));
        }
        for (const cfg_message* attribute = entry.children; attribute != nullptr; attribute = attribute->next) {
            if (name != "*" && !sameName(name, textOf(*attribute))) {
                continue;
            }
            for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
                appendUnlessSecret(isSecret(textOf(*attribute), textOf(*value)), textOf(*value));
            }
        }
    }
    return complete;
}

ExitCode printValues(const std::vector<const cfg_message*>& entries, const Question& question, const Output& output)
{
    WipedText out;
    bool complete = true;
    for (const cfg_message* const entry : entries) {
        complete = appendValues(out, *entry, question, output) && complete;
    }
    writeOut(STDOUT_FILENO, view(out));
    if (!complete && !output.quiet()) {
        tellNote("there are hidden values; --show-secrets shows them");
    }
    return complete ? ExitCode::done : ExitCode::no;
}

void requireNames(const SearchOptions& options, const Question& question)
{
    if (options.namesOnly) {
        throw Failure(ExitCode::usage, "-A prints no values, and --format value nothing else",
                      {"nothing was read; leave one of them out"});
    }
    if (question.names.empty()) {
        throw Failure(ExitCode::usage, "--format value prints the values of attributes that are named",
                      {"nothing was read; name them behind the filter; dn is the DN of the entry"});
    }
}

void print(const SearchOptions& options, const EntryForm& form, const Scope& scope, const Question& question,
           const std::vector<const cfg_message*>& entries)
{
    const bool withVersion = options.plainness == 1 || options.plainness == 2;
    const bool withHeading = options.plainness < 2;
    WipedText out;
    if (withVersion) {
        append(out, "version: 1\n\n");
    }
    if (withHeading) {
        appendHeading(out, options, scope, question);
    }
    for (const cfg_message* const entry : entries) {
        appendEntry(out, *entry, form);
    }
    if (withHeading) {
        appendLdifComment(out, "numEntries: " + std::to_string(entries.size()));
    }
    writeOut(STDOUT_FILENO, view(out));
}

ExitCode search(const SearchOptions& options, const TargetOptions& target, Output& output)
{
    const Form outputForm = output.formOf({Form::ldif, Form::value});
    const Scope& scope = scopeNamed(options.scope);
    const Question question = questionOf(options);
    if (outputForm == Form::value) {
        requireNames(options, question);
    }
    output.document().setFile(fileOf(target));
    const Session session(target);
    checkShowSecrets(output, session);
    Results results;
    require(session, cfg_read_s(session.handle(), options.base.c_str(), scope.number, results.receiver()),
            options.base);
    if (output.showSecrets()) {
        decodePasswords(session, question, *results.receiver());
    }
    EntryForm form{options.namesOnly, output.showSecrets()};
    form.chosen = [&](std::string_view attribute) { return isChosen(question, attribute); };
    if (options.comments) {
        form.commentOf = [&](const cfg_message& entry, const cfg_message* attribute) {
            return commentOf(session, entry.text, attribute == nullptr ? nullptr : attribute->text);
        };
    }
    const FoundEntries found(session, question.filter, output.showSecrets());
    std::vector<const cfg_message*> entries;
    // The base leads its subtree.
    const cfg_message* const first = results.first();
    for (const cfg_message* entry = scope.withBase || first == nullptr ? first : first->next; entry != nullptr;
         entry = entry->next) {
        if (isWanted(*entry, scope, question, found, output.showSecrets())) {
            entries.push_back(entry);
        }
    }
    if (outputForm == Form::value) {
        return printValues(entries, question, output);
    }
    if (output.json()) {
        output.document().beginEntries();
        for (const cfg_message* const entry : entries) {
            output.document().addEntry(*entry, form);
        }
    } else {
        print(options, form, scope, question, entries);
    }
    return ExitCode::done;
}

} // namespace

Command searchCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<SearchOptions>();
    CLI::App* command = application.add_subcommand("search", "Print entries as LDIF")->group("Commands");
    command->add_option("-b", options->base, "Search at and below this DN; without it the whole tree")->type_name("DN");
    command->add_option("-s", options->scope, "base, one, sub or children; without it sub")->type_name("SCOPE");
    command->add_flag("-A", options->namesOnly, "Print attribute names alone");
    command->add_flag("-L", options->plainness,
                      "Begin with the version line of LDIF; -LL: no heading; -LLL: entries only");
    command->add_flag("--comments", options->comments, "Print the comment blocks of entries and attributes as well");
    command->add_option("FILTER", options->first, "Print the entries that this filter of RFC 4515 matches")
        ->type_name("");
    command->add_option("ATTRIBUTE", options->names, "Print these attributes alone")->type_name("");
    command->footer(searchFooter);
    return {command, [options, &target, &output] { return search(*options, target, output); }, true};
}

} // namespace veltor::tool
