// veltor fmt: the file in the library's own layout.
#include "commands.h"
#include "memory_file.h"
#include "secrets.h"
#include "stored_tree.h"
#include "whole_text.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* fmtFooter =
    R"(Every other command leaves the lines alone that it is not about. This one writes each of them
as the library would: attributes in order, continuation lines joined, line ends that are
line feeds, rejected lines as values of zor-slapdInvalidLine. Comments stay with what they
stand above. What the server reads is the same before and after, which is checked.

)";

bool isEqualLevel(const cfg_message* left, const cfg_message* right)
{
    for (; left != nullptr && right != nullptr; left = left->next, right = right->next) {
        if (std::string_view(left->text) != right->text || !isEqualLevel(left->children, right->children)) {
            return false;
        }
    }
    return left == nullptr && right == nullptr;
}

/// What both have not read alike, "" for nothing.
std::string whatDiffers(const Session& left, const Session& right)
{
    const StoredTree before(left.handle());
    const StoredTree after(right.handle());
    const std::vector<EntryDifference> differences = differencesOf(before, after);
    if (differences.empty()) {
        return isEqualLevel(before.first(), after.first())
                   ? ""
                   : "the order of entries or attributes, or how a name is written";
    }
    const EntryDifference& first = differences.front();
    const std::string dn(shownDn(textOf(first.before == nullptr ? *first.after : *first.before)));
    return first.attributes.empty() ? dn : dn + ": " + std::string(shownName(first.attributes.front()));
}

// A value or a DN that the own form can't express would come back as another.
void requireSameConfiguration(const Session& reading, const WipedText& text)
{
    std::string finding;
    try {
        const MemoryFile copy(view(text));
        const Session again(readingOf(copy.name()));
        finding = whatDiffers(reading, again);
        if (finding.empty() && rendered(again.handle()) != text) {
            finding = "it would be written in another way the next time";
        }
    } catch (const Failure&) {
        finding = "a load would fail";
    }
    if (!finding.empty()) {
        throw Failure(ExitCode::refused,
                      reading.file() + ": the library's own form can't express all of it: " + finding,
                      {"nothing was written; what would not come back is told by: veltor check"});
    }
}

ExitCode format(const WriteOptions& options, const TargetOptions& target, Output& output)
{
    ChangeEngine engine(target, options, output);
    const Session reading(readingOf(engine.session().file()));
    WipedText text = rendered(reading.handle());
    if (text != engine.before()) {
        requireSameConfiguration(reading, text);
    }
    engine.replaceText(std::move(text), reading.handle());
    ChangeReport report;
    report.source = "fmt";
    report.log = "the library's own layout";
    return engine.finish(report);
}

} // namespace

Command fmtCommand(CLI::App& application, const TargetOptions& target, Output& output)
{
    const auto options = std::make_shared<WriteOptions>();
    CLI::App* command =
        application.add_subcommand("fmt", "Write the file in the library's own layout")->group("Commands");
    addWriteOptions(*command, *options);
    command->footer(std::string(fmtFooter) + writeFooter);
    return {command, [options, &target, &output] { return format(*options, target, output); }};
}

} // namespace veltor::tool
