// veltor check: what is wrong with a configuration file, sentence by sentence with the line.
#include "commands.h"
#include "escape.h"
#include "findings.h"
#include "ldif_output.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace veltor::tool {

namespace {

constexpr const char* checkFooter =
    R"(An error keeps the server from starting. A warning says that the server reads something
else than what stands in the file, or that the file is at risk. The rest are notes.

Exit status 1 says that there is an error or a warning, with --strict also a note.)";

struct CheckOptions
{
    bool deep = false;
    bool strict = false;
    std::optional<std::string> file;
};

std::string lineFor(const Finding& finding, const std::string& file, const Output& output)
{
    std::string out = escaped(file);
    out += finding.line > 0 ? ':' + std::to_string(finding.line) : "";
    const char* colour = finding.severity == Severity::error ? red : yellow;
    const std::string word = wordFor(finding.severity);
    out += ": " + (finding.severity == Severity::note ? word : output.coloured(STDOUT_FILENO, word, colour));
    out += ": " + escaped(finding.message);
    out += output.verbose() ? " [" + finding.kind + ']' : "";
    return out + '\n';
}

std::string textFor(const std::vector<Finding>& findings, const std::string& file, const Output& output)
{
    std::string out;
    for (const Finding& finding : findings) {
        if (!output.quiet() || finding.severity != Severity::note) {
            out += lineFor(finding, file, output);
        }
    }
    if (!output.quiet()) {
        out += findings.empty() ? escaped(file) + ": nothing found\n" : totalsOf(countsOf(findings)) + '\n';
    }
    return out;
}

ExitCode check(const CheckOptions& options, const TargetOptions& given, Output& output)
{
    output.formOf({Form::text});
    TargetOptions target = given;
    if (options.file && target.file) {
        throw Failure(ExitCode::usage, "FILE and -F both name the file to check", {"nothing was read; give one"});
    }
    if (options.file) {
        target.file = options.file;
    }
    const std::string file = fileOf(target);
    output.document().setFile(file);
    std::vector<Finding> findings = allFindingsOf(file);
    if (options.deep && countsOf(findings).errors == 0) {
        std::vector<Finding> deep = deepFindingsOf(target);
        std::move(deep.begin(), deep.end(), std::back_inserter(findings));
    } else if (options.deep) {
        findings.push_back({.severity = Severity::note,
                            .kind = "not-looked-deeper",
                            .message = "--deep did not look further: the file does not load"});
    }
    const Counts counts = countsOf(findings);
    if (output.json()) {
        output.document().set("findings", jsonOf(findings));
        output.document().set("counts", jsonOf(counts));
    } else {
        writeOut(STDOUT_FILENO, textFor(findings, file, output));
    }
    const bool fails = counts.errors + counts.warnings > 0 || (options.strict && counts.notes > 0);
    return fails ? ExitCode::no : ExitCode::done;
}

} // namespace

Command checkCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* command = application.add_subcommand("check", "Tell what is wrong with the file")->group("Commands");
    command->add_flag("--deep", options->deep, "Look also at paths, ports, TLS settings and the backup");
    command->add_flag("--strict", options->strict, "Exit with 1 also for a note");
    command->add_option("FILE", options->file, "The file; the same as -F FILE")->type_name("");
    command->footer(checkFooter);
    return {command, [options, &target, &output] { return check(*options, target, output); }, true};
}

} // namespace veltor::tool
