// veltor explain: what an attribute may hold, and where it is set now.
#include "commands.h"
#include "escape.h"
#include "ldif_output.h"
#include "names.h"
#include "results.h"
#include "secrets.h"
#include "setting_words.h"

#include <fnmatch.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* explainFooter =
    R"(A name may be given without "zor-slapd" or "zor-" in front. The pattern of --list has the
wildcards of the shell, and is held against the name with and without that.

Exit status 1 says that the list is empty.)";

struct ExplainOptions
{
    bool list = false;
    std::vector<std::string> names; ///< or the pattern of the list
};

/// A value that an attribute has now.
struct Setting
{
    std::string dn;
    std::optional<std::string> value; ///< nothing for a secret
    int line;                         ///< 0: not known
};

/// What of the file an explanation tells.
struct Settings
{
    std::vector<Setting> values;
    std::string unreadable; ///< why the file can't be read, "" if it can
};

Settings settingsOf(const Session& session, const std::string& name)
{
    Results everything;
    const int code = cfg_read_s(session.handle(), "", LDAP_SCOPE_SUBTREE, everything.receiver());
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(session.handle(), code, {Stage::search, ""});
    }
    Settings settings;
    for (const cfg_message* entry = everything.first(); entry != nullptr; entry = entry->next) {
        for (const cfg_message* attribute = entry->children; attribute != nullptr; attribute = attribute->next) {
            if (!sameName(textOf(*attribute), name)) {
                continue;
            }
            for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
                int line = 0;
                if (cfg_locate_s(session.handle(), entry->text, attribute->text, value->text, &line) != LDAP_SUCCESS) {
                    line = 0;
                }
                std::optional<std::string> told;
                if (!isSecret(name, textOf(*value))) {
                    told = textOf(*value);
                }
                settings.values.push_back({std::string(textOf(*entry)), std::move(told), line});
            }
        }
    }
    return settings;
}

// What a setting may hold is known without the file.
std::vector<Settings> readSettings(const std::vector<std::string>& names, const TargetOptions& target)
{
    std::vector<Settings> all;
    all.reserve(names.size());
    try {
        const Session session(target);
        for (const std::string& name : names) {
            all.push_back(settingsOf(session, name));
        }
    } catch (const Failure& failure) {
        if (failure.exit() != ExitCode::file) {
            throw;
        }
        all.assign(names.size(), Settings{{}, failure.what()});
    }
    return all;
}

std::string textFor(const cfg_attr_type& type, const Settings& settings, const std::string& file)
{
    std::string out = std::string(type.name) + "   " + valuesOf(type) + "   " + remarksOf(type) + '\n';
    if (!settings.unreadable.empty()) {
        return out + "  now: not known: " + escaped(settings.unreadable) + '\n';
    }
    if (settings.values.empty()) {
        return out + "  now: not set\n";
    }
    for (const Setting& setting : settings.values) {
        const std::string value = setting.value ? escaped(*setting.value) : "***";
        const std::string dn = setting.dn.empty() ? "above the entries" : escaped(shownDn(setting.dn));
        out.append("  now: ").append(value).append("   ").append(dn).append(", ").append(escaped(file));
        out += setting.line > 0 ? ':' + std::to_string(setting.line) + '\n' : "\n";
    }
    return out;
}

Json jsonFor(const cfg_attr_type& type)
{
    const bool ranged = type.minimum != 0 || type.maximum != 0;
    return {{"name", type.name},
            {"syntax", type.syntax},
            {"enum", type.enum_values == nullptr ? Json(nullptr) : Json(listOf(type))},
            {"min", ranged ? Json(type.minimum) : Json(nullptr)},
            {"max", ranged ? Json(type.maximum) : Json(nullptr)},
            {"mask", type.bitmask == 0 ? Json(nullptr) : Json(type.bitmask)},
            {"single", type.single_valued != 0}};
}

Json jsonFor(const Settings& settings)
{
    if (!settings.unreadable.empty()) {
        return nullptr;
    }
    Json values = Json::array();
    for (const Setting& setting : settings.values) {
        values.push_back({{"dn", jsonDn(setting.dn)},
                          {"value", setting.value ? jsonText(*setting.value) : Json(nullptr)},
                          {"line", setting.line > 0 ? Json(setting.line) : Json(nullptr)}});
    }
    return values;
}

bool matches(const std::string& pattern, const char* name)
{
    std::string_view rest = name;
    for (const std::string_view prefix : {"", "zor-slapd", "zor-"}) {
        if (rest.starts_with(prefix) &&
            ::fnmatch(pattern.c_str(), name + prefix.size(), FNM_CASEFOLD | FNM_NOESCAPE) == 0) {
            return true;
        }
    }
    return false;
}

ExitCode list(const std::string& pattern, Output& output)
{
    std::string out;
    Json settings = Json::array();
    for (const cfg_attr_type& type : catalogue()) {
        if (matches(pattern, type.name)) {
            out += std::string(type.name) + "   " + valuesOf(type) + "   " + remarksOf(type) + '\n';
            settings.push_back(jsonFor(type));
        }
    }
    const bool none = settings.empty();
    if (output.json()) {
        output.document().set("settings", std::move(settings));
    } else if (none && !output.quiet()) {
        tellNote("no setting matches \"" + pattern + '"');
    }
    writeOut(STDOUT_FILENO, output.json() ? "" : out);
    return none ? ExitCode::no : ExitCode::done;
}

ExitCode explain(const ExplainOptions& options, const TargetOptions& target, Output& output)
{
    output.formOf({Form::text});
    if (options.list) {
        if (options.names.size() > 1) {
            throw Failure(ExitCode::usage, "--list takes one pattern",
                          {"nothing was read; put it in quotes, or the shell makes file names of it"});
        }
        return list(options.names.empty() ? "*" : options.names.front(), output);
    }
    if (options.names.empty()) {
        throw Failure(ExitCode::usage, "explain needs the name of a setting",
                      {"nothing was read; see: veltor explain --list"});
    }
    std::vector<std::string> names;
    names.reserve(options.names.size());
    for (const std::string& name : options.names) {
        names.push_back(fullName(name, {"nothing was read; see: veltor explain --list"}));
    }
    const std::string file = fileOf(target);
    output.document().setFile(file);
    const std::vector<Settings> settings = readSettings(names, target);
    std::string out;
    Json explained = Json::array();
    for (std::size_t index = 0; index < names.size(); ++index) {
        // The name is of the catalogue.
        const cfg_attr_type type = attributeType(names[index]).value();
        out += textFor(type, settings[index], file);
        explained.push_back(jsonFor(type));
        explained.back()["values"] = jsonFor(settings[index]);
    }
    if (output.json()) {
        output.document().set("settings", std::move(explained));
        return ExitCode::done;
    }
    writeOut(STDOUT_FILENO, out);
    return ExitCode::done;
}

} // namespace

Command explainCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<ExplainOptions>();
    CLI::App* command = application.add_subcommand("explain", "Tell what a setting may hold")->group("Commands");
    command->add_flag("--list", options->list, "List the settings, all or those that match a pattern");
    command->add_option("NAME", options->names, "The settings, or the pattern of the list")->type_name("");
    command->footer(explainFooter);
    return {command, [options, &target, &output] { return explain(*options, target, output); }, true};
}

} // namespace veltor::tool
