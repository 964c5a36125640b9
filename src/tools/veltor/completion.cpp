// veltor completion: the script with which a shell asks this tool what may stand at the cursor, and the answer to it.
#include "bash_line.h"
#include "commands.h"
#include "complete.h"
#include "completion_scripts.h"
#include "ldif_output.h"
#include "results.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* completionFooter =
    R"(To try it:   source <(veltor completion bash)
             source <(veltor completion zsh)      after compinit

Installed, it is found by the shells themselves. Completed are commands, options, settings
and their values where there is a list of these, DNs of the file if it can be read, and
names of files. Nothing is asked for, nothing is locked and nothing is written.)";

// No command line is longer.
constexpr std::size_t mostInput = 1U << 20U;

ExitCode completion(const std::string& shell, Output& output)
{
    const auto* const script = std::find_if(std::begin(completionScripts), std::end(completionScripts),
                                            [&](const CompletionScript& row) { return shell == row.shell; });
    if (script == std::end(completionScripts)) {
        throw Failure(ExitCode::usage, '"' + shell + "\" is not one of: bash, zsh",
                      {"nothing was printed; for other shells there is no completion"});
    }
    if (output.json()) {
        output.document().set("script", script->text);
    } else {
        writeOut(STDOUT_FILENO, script->text);
    }
    return ExitCode::done;
}

// ---- The answer to a shell ----

std::string standardInput()
{
    std::string text;
    char buffer[4096];
    for (ssize_t count = 1; count > 0 && text.size() < mostInput;) {
        count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        text.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return text;
}

/// The texts that end with a zero byte.
std::vector<std::string> textsOf(const std::string& input)
{
    std::vector<std::string> texts;
    for (std::size_t begin = 0; begin < input.size();) {
        const std::size_t end = std::min(input.find('\0', begin), input.size());
        texts.push_back(input.substr(begin, end - begin));
        begin = end + 1;
    }
    return texts;
}

// The shell has not replaced a tilde yet.
std::optional<std::string> withoutTilde(const std::optional<std::string>& file)
{
    const char* const home = std::getenv("HOME");
    return file && file->starts_with("~/") && home != nullptr ? home + file->substr(1) : file;
}

/// Reads without a bind and without a lock. A file that can't be read has no names.
std::vector<std::string> entryNames(const std::optional<std::string>& file)
{
    std::vector<std::string> dns;
    try {
        TargetOptions target;
        target.file = withoutTilde(file);
        const Session session(target);
        Results results;
        cfg_read_s(session.handle(), "", LDAP_SCOPE_SUBTREE, results.receiver());
        for (const cfg_message* entry = results.first(); entry != nullptr; entry = entry->next) {
            dns.emplace_back(textOf(*entry));
        }
    } catch (const Failure&) {
        // Somebody who is typing is not told what is wrong with the file; the command will.
        dns.clear();
    }
    // The root has no DN to be typed.
    dns.erase(std::remove(dns.begin(), dns.end(), ""), dns.end());
    return dns;
}

std::string headerOf(const Completions& completions)
{
    return completions.unfinished ? "unfinished\n" : "\n";
}

std::string answerToBash(const CLI::App& application, const std::vector<std::string>& texts)
{
    if (texts.size() != 2) {
        return {};
    }
    BashLine line = parseBashLine(texts[1], texts[0]);
    if (line.words.empty()) {
        return {};
    }
    line.words.erase(line.words.begin());
    const Completions completions = complete(application, line.words, line.current, entryNames);
    // Bash knows where the name of a file begins.
    std::string answer = completions.fileNameAt ? "files\n" : headerOf(completions);
    for (const Candidate& candidate : completions.candidates) {
        if (const std::optional<std::string> reply = bashReply(line, candidate.word)) {
            answer += *reply + '\n';
        }
    }
    return answer;
}

std::string answerToZsh(const CLI::App& application, std::vector<std::string> texts)
{
    if (texts.empty()) {
        return {};
    }
    const std::string current = std::move(texts.back());
    texts.pop_back();
    const Completions completions = complete(application, texts, current, entryNames);
    std::string answer =
        completions.fileNameAt ? "files " + std::to_string(*completions.fileNameAt) + '\n' : headerOf(completions);
    for (const Candidate& candidate : completions.candidates) {
        answer += candidate.word;
        answer += candidate.meaning.empty() ? "" : '\t' + candidate.meaning;
        answer += '\n';
    }
    return answer;
}

} // namespace

void answerShell(const CLI::App& application, std::string_view shell)
{
    const std::vector<std::string> texts = textsOf(standardInput());
    writeOut(STDOUT_FILENO, shell == "bash" ? answerToBash(application, texts) : answerToZsh(application, texts));
}

Command completionCommand(CLI::App& application, const TargetOptions&, Output& output)
{
    const auto shell = std::make_shared<std::string>();
    CLI::App* command =
        application.add_subcommand("completion", "Print the completion script of a shell")->group("Commands");
    command->add_option("SHELL", *shell, "bash or zsh")->type_name("")->required();
    command->footer(completionFooter);
    return {command, [shell, &output] { return completion(*shell, output); }};
}

} // namespace veltor::tool
