// veltor edit: the file in somebody's editor. Nobody is locked out meanwhile, and nothing that was typed is lost.
#include "commands.h"
#include "editor.h"
#include "escape.h"
#include "findings.h"
#include "masked_copy.h"
#include "masked_text.h"
#include "memory_file.h"
#include "names.h"
#include "question.h"
#include "replacement.h"
#include "secrets.h"
#include "shell_word.h"
#include "take_in.h"
#include "text_diff.h"
#include "whole_text.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace veltor::tool {

namespace {

constexpr const char* editFooter =
    R"(The editor is VISUAL, else EDITOR, else vi. It gets a copy in which *** (1-4f0a), *** (2-4f0a)
and so on stand for what is hidden: such a line may be moved, copied and deleted, and each mask
that is left becomes the old text again. veltor passwd sets a password.

What comes back is checked, shown as a difference and installed after a question. The file is
not locked while the editor is open: what somebody else has changed meanwhile is shown, and can
be taken in. Errors can be corrected in the editor; a text that the server could not start from
is not installed. An empty text is a cancel. A text that is not installed is kept, in a folder
beside the file whose name is told.

)";

/// The kinds of findings that are refused in a text that is new, since the server reads something else there.
constexpr std::string_view refusedKinds[] = {
    "rejected-line", "dn-line-without-colon", "lost-last-value", "duplicate-entry",
    "empty-dn",      "second-value",          "double-colon",    "stripped-parentheses",
};

/// Tabs and carriage returns aside: the one is a blank, and the other nothing to the reader.
bool hasControlCharacter(std::string_view line)
{
    while (!line.empty()) {
        const Character character = firstCharacter(line);
        if (character.length != 0 && isControl(character.codePoint) &&
            std::string_view("\t\r\n").find(line.front()) == std::string_view::npos) {
            return true;
        }
        line.remove_prefix(std::max<std::size_t>(character.length, 1));
    }
    return false;
}

/// The lines, comments aside, with a control character that no line of the text had before. 1-based.
std::vector<std::size_t> controlledLines(const WipedText& text, const WipedText& before)
{
    const auto withoutEnd = [](std::string_view line) { return line.substr(0, line.size() - lineEndOf(line).size()); };
    std::set<std::string_view> known;
    for (const std::string_view line : linesOf(view(before))) {
        known.insert(withoutEnd(line));
    }
    std::vector<std::size_t> found;
    std::size_t number = 0;
    for (const std::string_view line : linesOf(view(text))) {
        ++number;
        if (line.front() != '#' && hasControlCharacter(line) && known.count(withoutEnd(line)) == 0) {
            found.push_back(number);
        }
    }
    return found;
}

bool isBlank(const WipedText& text)
{
    return view(text).find_first_not_of(" \t\r\n") == std::string_view::npos;
}

struct Problem
{
    std::size_t line;
    std::string word, finding;
};

/// The person and the text, from the first look at the file to the install.
class Editing
{
public:
    Editing(const TargetOptions& target, const WriteOptions& options, Output& output)
        : target_(target), options_(options), output_(output), environment_(currentEnvironment()),
          terminal_("an editor needs a terminal",
                    "nothing was written; veltor set, modify and apply change the file without one"),
          file_(fileOf(target))
    {
        target_.heldPassword = std::make_shared<WipedText>();
    }

    ExitCode run();

private:
    enum class Next { edit, judge, end };

    void begin();
    Next judge();
    Next judgeText(const WipedText& text);
    Next install(const WipedText& text);
    Next takeInOrEdit(const WipedText& text, const Failure& failure);
    Next afterProblems(const std::vector<Problem>& problems, const WipedText& edited);
    Next afterFailure(const Failure& failure);
    std::vector<Problem> problemsIn(const std::vector<Finding>& findings, const Unmasked& unmasked) const;
    std::string refusalOf(const Finding& finding) const;
    void take(const WipedText& text);
    void show(const std::vector<Problem>& problems) const;
    char choice(const std::string& question, std::string_view letters, char onEnter = ' ') const;
    Failure withTheDraft(const Failure& failure);
    std::string place(std::size_t line) const { return file_ + ':' + std::to_string(line); }

    TargetOptions target_;
    const WriteOptions& options_;
    Output& output_;
    std::vector<std::string> environment_;
    Terminal terminal_;
    std::string file_;
    WipedText base_; ///< what the file held when it was last looked at
    std::vector<Finding> baseFindings_;
    std::optional<MaskedCopy> copy_; ///< of what was last put into the draft
    std::optional<Draft> draft_;
    bool isWork_ = false;     ///< the draft was in the editor
    bool hasTakenIn_ = false; ///< what is in the draft is more than was typed there
    ExitCode exit_ = ExitCode::done;
};

// The file may be one that does not load: then it is edited to make it load again.
void Editing::begin()
{
    output_.document().setFile(file_);
    leaveTheCLocale();
    backupFor(target_, options_);
    requirePlainFile(file_, "nothing was written");
    if (const std::optional<Failure> failure = unreadableFile(file_)) {
        throw *failure;
    }
    try {
        const Session session(target_, Purpose::authenticate);
    } catch (const Failure& failure) {
        if (failure.exit() != ExitCode::file || !isRootOrOwner(file_)) {
            throw;
        }
        terminal_.show(failure.message());
    }
    base_ = readConfiguration(file_);
    const std::size_t zero = view(base_).find('\0');
    if (zero != std::string_view::npos) {
        const auto line = 1 + std::count(base_.begin(), base_.begin() + static_cast<std::ptrdiff_t>(zero), '\n');
        throw Failure(ExitCode::refused,
                      place(static_cast<std::size_t>(line)) + ": there is a zero byte, which editors do not keep",
                      {"nothing was written; veltor fmt writes the file as it is read"});
    }
    baseFindings_ = findingsIn(base_);
    draft_.emplace(file_);
    take(base_);
}

/// Puts a text into the draft, masked.
void Editing::take(const WipedText& text)
{
    copy_.emplace(view(text));
    draft_->write(copy_->text());
}

void Editing::show(const std::vector<Problem>& problems) const
{
    std::string lines;
    for (const Problem& problem : problems) {
        lines += escaped(problem.line == 0 ? file_ : place(problem.line));
        lines += ": " + problem.word + ": " + escaped(problem.finding) + '\n';
    }
    terminal_.show(lines);
}

/// Asks until one of the letters is the answer. The last one is also that of the end of the input.
/// @param onEnter  what an empty answer is; a blank for nothing
char Editing::choice(const std::string& question, std::string_view letters, char onEnter) const
{
    for (;;) {
        const std::optional<std::string> answer = terminal_.answer(question);
        if (!answer) {
            return letters.back();
        }
        const char letter = answer->empty() ? onEnter : answer->front();
        for (const char allowed : letters) {
            if (answer->size() <= 1 && sameName({&allowed, 1}, {&letter, 1})) {
                return allowed;
            }
        }
    }
}

Editing::Next Editing::judge()
{
    const WipedText edited = draft_->read();
    if (view(edited) == copy_->text() && copy_->unmasked(view(edited)).text == base_) {
        return judgeText(base_);
    }
    if (isBlank(edited)) {
        draft_->discard();
        draft_.reset();
        throw Failure(ExitCode::no, "cancelled: the text is empty",
                      {"nothing was written; veltor edit begins from the file again"});
    }
    const Unmasked unmasked = copy_->unmasked(view(edited));
    std::vector<Problem> problems;
    for (const MaskRefusal& refusal : unmasked.refusals) {
        problems.push_back({refusal.line, "error", refusal.finding});
    }
    if (problems.empty()) {
        const std::vector<Finding> findings = findingsIn(unmasked.text);
        problems = problemsIn(findings, unmasked);
        if (problems.empty()) {
            std::vector<Problem> warnings;
            for (const Finding& finding : newFindings(findings, baseFindings_)) {
                warnings.push_back(
                    {static_cast<std::size_t>(finding.line), wordFor(finding.severity), finding.message});
            }
            show(warnings);
        }
    }
    return problems.empty() ? judgeText(unmasked.text) : afterProblems(problems, edited);
}

/// What no writing command lets into the file, though the server would start from it; "" for anything else.
std::string Editing::refusalOf(const Finding& finding) const
{
    if (finding.kind == "unknown-attribute") {
        return options_.allowUnknown ? "" : finding.message + "; --allow-unknown stores it as free text";
    }
    const auto* const kind = std::find(std::begin(refusedKinds), std::end(refusedKinds), finding.kind);
    return kind == std::end(refusedKinds) ? "" : finding.message;
}

/// What keeps the text from being installed.
std::vector<Problem> Editing::problemsIn(const std::vector<Finding>& findings, const Unmasked& unmasked) const
{
    std::vector<Problem> problems;
    for (const std::size_t line : controlledLines(unmasked.text, base_)) {
        problems.push_back({line, "error", "a control character, which no name, value or DN may hold"});
    }
    std::vector<std::size_t> clear;
    for (const Finding& finding : newFindings(findings, baseFindings_)) {
        // A mask of something else may have become one.
        if (finding.kind == "clear-password") {
            clear.push_back(static_cast<std::size_t>(finding.line));
        }
        const std::string refusal = finding.severity == Severity::error ? "" : refusalOf(finding);
        if (!refusal.empty()) {
            problems.push_back({static_cast<std::size_t>(finding.line), "error", refusal});
        }
    }
    for (const Finding& finding : findings) {
        const auto line = static_cast<std::size_t>(finding.line);
        const bool typed = !std::binary_search(unmasked.lines.begin(), unmasked.lines.end(), line);
        if (finding.severity == Severity::error) {
            problems.push_back({line, "error", finding.message});
        } else if (finding.kind == "clear-password" &&
                   (typed || std::find(clear.begin(), clear.end(), line) != clear.end())) {
            problems.push_back({line, "error",
                                "a password is stored encoded, and can't be typed here; leave it out and use: "
                                "veltor passwd -b " +
                                    shellWord(shownDn(finding.dn)) + ' ' + finding.attribute});
        }
    }
    return problems;
}

Editing::Next Editing::afterProblems(const std::vector<Problem>& problems, const WipedText& edited)
{
    const Problem& first = problems.front();
    const Failure refusal(ExitCode::refused, (first.line == 0 ? file_ : place(first.line)) + ": " + first.finding,
                          {"nothing was written; correct this line"});
    if (options_.yes) {
        throw refusal;
    }
    show(problems);
    for (;;) {
        switch (choice("What now? (e)dit again, (d)iff, e(x)it: ", "edx")) {
        case 'e':
            return Next::edit;
        case 'd':
            // The text may have a secret where it does not belong: it is compared with its masks.
            terminal_.show(shownDifference(copy_->text(), view(edited), file_, "(edited)"));
            break;
        default:
            throw refusal;
        }
    }
}

/// A text that could be installed.
Editing::Next Editing::judgeText(const WipedText& text)
{
    if (text == base_) {
        tellEnding(Ending::unchanged, {}, options_, "", "", output_);
        draft_->discard();
        draft_.reset();
        return Next::end;
    }
    if (options_.yes || options_.dryRun) {
        return install(text);
    }
    terminal_.show(shownDifference(view(base_), view(text), file_, "(edited)"));
    switch (choice("Install this? (y)es, (e)dit again, e(x)it [x]: ", "yenx", 'x')) {
    case 'y':
        return install(text);
    case 'e':
        return Next::edit;
    default:
        throw Failure(ExitCode::no, "not installed", {"nothing was written; veltor edit begins from the file again"});
    }
}

Editing::Next Editing::install(const WipedText& text)
{
    try {
        const MemoryFile memory(view(text));
        const Session reading(readingOf(memory.name()));
        Replacement replacement;
        replacement.before = base_;
        replacement.after = text;
        replacement.readFrom = reading.handle();
        replacement.source = "edit";
        replacement.log = "edited";
        exit_ = replaceWholeText(std::move(replacement), target_, options_, output_);
    } catch (const Failure& failure) {
        const bool isOver = failure.exit() == ExitCode::writeFailed || failure.exit() == ExitCode::internal;
        if (isOver || options_.yes) {
            throw;
        }
        return textInPlace(file_) == base_ ? afterFailure(failure) : takeInOrEdit(text, failure);
    }
    if (options_.dryRun) {
        output_.document().set("kept", jsonText(draft_->name()));
        output_.print("the text is kept as " + draft_->name());
    } else {
        draft_->discard();
    }
    draft_.reset();
    return Next::end;
}

Editing::Next Editing::afterFailure(const Failure& failure)
{
    terminal_.show(failure.message());
    const bool mayPass = failure.exit() == ExitCode::busy;
    switch (mayPass ? choice("What now? (t)ry again, (e)dit again, e(x)it: ", "tex")
                    : choice("What now? (e)dit again, e(x)it: ", "ex")) {
    case 't':
        return Next::judge;
    case 'e':
        return Next::edit;
    default:
        throw failure;
    }
}

/// Somebody else has changed the file.
Editing::Next Editing::takeInOrEdit(const WipedText& text, const Failure& failure)
{
    std::optional<WipedText> now = textInPlace(file_);
    if (!now) {
        return afterFailure(
            {ExitCode::busy, file_ + " is gone", {"nothing was written; veltor restore puts a backup back"}});
    }
    terminal_.show(escaped(file_ + " was changed by somebody else meanwhile:") + '\n' +
                   shownDifference(view(base_), view(*now), "(when you began)", "(now)"));
    switch (choice("What now? (t)ake it in, (e)dit again, e(x)it: ", "tex")) {
    case 't': {
        const TakenIn taken = takeIn(view(base_), view(text), view(*now));
        std::vector<Problem> overlaps;
        for (const std::size_t line : taken.overlaps) {
            overlaps.push_back({line, "warning", "both have changed what stands here; your lines are kept"});
        }
        show(overlaps);
        base_ = std::move(*now);
        baseFindings_ = findingsIn(base_);
        hasTakenIn_ = true;
        take(taken.text);
        return Next::judge;
    }
    case 'e':
        return Next::edit;
    default:
        throw failure;
    }
}

/// The failure with the name of the draft, if anything was typed.
Failure Editing::withTheDraft(const Failure& failure)
{
    std::vector<std::string> details = failure.details();
    bool typed = isWork_;
    try {
        typed = typed && (hasTakenIn_ || view(draft_->read()) != copy_->text());
    } catch (const Failure&) {
        // What can't be read may be somebody's work all the same.
    }
    const bool isThere = ::access(draft_->name().c_str(), F_OK) == 0;
    if (isWork_ && draft_->hasMore() && !(typed && isThere)) {
        details.push_back("what the editor left is kept in " + draft_->folder());
        output_.document().set("kept", jsonText(draft_->folder()));
    } else if (typed && isThere) {
        details.push_back("your text is kept as " + draft_->name() +
                          "; to go on from it: " + commandToGoOnFrom(draft_->name(), file_));
        output_.document().set("kept", jsonText(draft_->name()));
    } else {
        draft_->discard();
    }
    return {failure.exit(), failure.what(), std::move(details), failure.facts()};
}

ExitCode Editing::run()
{
    try {
        begin();
        for (Next next = Next::edit; next != Next::end;) {
            if (next == Next::edit) {
                isWork_ = true;
                draft_->edit(environment_);
            }
            next = judge();
        }
        return exit_;
    } catch (const Failure& failure) {
        if (!draft_) {
            throw;
        }
        throw withTheDraft(failure);
    } catch (const std::exception& error) {
        if (!draft_) {
            throw;
        }
        throw withTheDraft({ExitCode::internal, std::string("internal error: ") + error.what()});
    }
}

ExitCode edit(const WriteOptions& options, const TargetOptions& target, Output& output)
{
    if (output.showSecrets()) {
        throw Failure(ExitCode::usage, "edit shows no secrets: they would end up in the editor's files",
                      {"nothing was written; leave out --show-secrets; veltor passwd sets a password"});
    }
    return Editing(target, options, output).run();
}

} // namespace

Command editCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<WriteOptions>();
    CLI::App* command = application.add_subcommand("edit", "Change the file in an editor")->group("Commands");
    addWriteOptions(*command, *options);
    command->footer(std::string(editFooter) + writeFooter);
    return {command, [options, &target, &output] { return edit(*options, target, output); }};
}

} // namespace veltor::tool
