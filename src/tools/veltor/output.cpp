// Options first, then what they come to for a stream.
#include "output.h"

#include "escape.h"
#include "ldif_output.h"
#include "text_diff.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <unistd.h>

namespace veltor::tool {

namespace {

struct FormName
{
    const char* name;
    Form form;
};

constexpr FormName formNames[] = {
    {"text", Form::text}, {"ldif", Form::ldif}, {"json", Form::json}, {"value", Form::value}};

const FormName& named(std::string_view name)
{
    const auto found =
        std::find_if(std::begin(formNames), std::end(formNames), [&](const FormName& row) { return name == row.name; });
    if (found == std::end(formNames)) {
        throw Failure(ExitCode::usage, "--format: \"" + std::string(name) + "\" is not one of: text, ldif, json, value",
                      {"nothing was read; see: veltor --help"});
    }
    return *found;
}

std::string listOf(std::initializer_list<Form> forms)
{
    std::string list;
    for (const FormName& row : formNames) {
        if (row.form == Form::json || std::find(forms.begin(), forms.end(), row.form) != forms.end()) {
            list += (list.empty() ? "" : ", ") + std::string(row.name);
        }
    }
    return list;
}

bool isSet(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

} // namespace

void addOutputOptions(CLI::App& app, OutputOptions& options)
{
    app.add_option("--format", options.format, "Print text, ldif, json or value (bare values)")->type_name("FORM");
    app.add_flag("--json", options.json, "Print one JSON document; the same as --format json");
    app.add_flag("-0", options.endWithNul, "End bare values with a zero byte");
    app.add_flag("--show-secrets", options.showSecrets, "Print passwords as clear text");
    app.add_option("--color", options.colour, "Colour auto, always or never")->type_name("WHEN");
    app.add_flag("-q", options.quiet, "Print less");
    app.add_flag("-v", options.verbose, "Print more: with an error also its causes");
}

bool asksForJson(const std::vector<std::string>& arguments)
{
    for (std::size_t index = 0; index < arguments.size() && arguments[index] != "--"; ++index) {
        const std::string& argument = arguments[index];
        const bool format = argument == "--format" && index + 1 < arguments.size() && arguments[index + 1] == "json";
        if (argument == "--json" || argument == "--format=json" || format) {
            return true;
        }
    }
    return false;
}

void Output::acceptNulOption(CLI::App& command)
{
    command.add_flag("-0", options_.endWithNul)->group("");
}

Form Output::formOf(std::initializer_list<Form> forms) const
{
    if (options_.colour != "auto" && options_.colour != "always" && options_.colour != "never") {
        throw Failure(ExitCode::usage, "--color: \"" + options_.colour + "\" is not one of: auto, always, never",
                      {"nothing was read; see: veltor --help"});
    }
    if (options_.json && !options_.format.empty() && options_.format != "json") {
        throw Failure(ExitCode::usage, "--json and --format " + options_.format + " exclude each other",
                      {"nothing was read; give one of them"});
    }
    Form form = *forms.begin();
    if (options_.json) {
        form = Form::json;
    } else if (!options_.format.empty()) {
        form = named(options_.format).form;
    } else if (options_.endWithNul) {
        form = Form::value;
    }
    if (options_.endWithNul && form != Form::value) {
        throw Failure(ExitCode::usage, "-0 ends bare values, and this is not their form",
                      {"nothing was read; use --format value"});
    }
    if (form != Form::json && std::find(forms.begin(), forms.end(), form) == forms.end()) {
        const std::string option = options_.format.empty() ? "-0" : "--format " + options_.format;
        throw Failure(ExitCode::usage, option + ": this command has the forms " + listOf(forms),
                      {"nothing was read; choose one of these"});
    }
    return form;
}

bool Output::coloured(int descriptor) const
{
    if (options_.colour != "auto") {
        return options_.colour == "always";
    }
    const char* terminal = std::getenv("TERM");
    const bool dumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    return !isSet("NO_COLOR") && !dumb && ::isatty(descriptor) == 1;
}

std::string Output::coloured(int descriptor, std::string_view word, const char* colour) const
{
    return coloured(descriptor) ? colour + std::string(word) + "\x1B[0m" : std::string(word);
}

std::string Output::colouredDifference(int descriptor, std::string_view difference) const
{
    constexpr std::size_t headingLines = 2;
    std::string text;
    std::size_t number = 0;
    for (const std::string_view line : linesOf(difference)) {
        const bool changed = ++number > headingLines && (line.front() == '-' || line.front() == '+');
        const std::size_t length = line.size() - (line.ends_with('\n') ? 1 : 0);
        text += changed ? coloured(descriptor, line.substr(0, length), line.front() == '-' ? red : green)
                        : std::string(line.substr(0, length));
        text += line.substr(length);
    }
    return text;
}

void Output::appendBareValue(WipedText& out, std::string_view value) const
{
    if (::isatty(STDOUT_FILENO) == 1) {
        appendEscaped(out, value);
    } else {
        append(out, value);
    }
    out.push_back(options_.endWithNul ? '\0' : '\n');
}

void Output::write(std::string_view text) const
{
    try {
        writeOut(STDOUT_FILENO, text);
    } catch (const Failure& failure) {
        throw Failure(failure.exit(), failure.what(), state_.empty() ? failure.details() : std::vector{state_});
    }
}

void Output::print(const std::string& line) const
{
    if (!json() && !quiet()) {
        write(escaped(line) + '\n');
    }
}

void checkShowSecrets(const Output& output, const Session& session)
{
    if (output.showSecrets() && !session.mayAdminister()) {
        throw Failure(ExitCode::usage, "--show-secrets needs a bind as the administrator",
                      {"nothing was printed; add -W, -y FILE or -w PASSWORD"});
    }
}

} // namespace veltor::tool
