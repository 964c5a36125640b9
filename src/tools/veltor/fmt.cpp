// veltor fmt: the file in the library's own layout.
#include "commands.h"
#include "memory_file.h"
#include "results.h"
#include "whole_text.h"

#include <memory>
#include <string>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* footer =
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

/// True when both have read the same entries with the same values.
bool readTheSame(const Session& left, const Session& right)
{
    Results leftTree;
    Results rightTree;
    for (const auto& [session, results] : {std::pair(&left, &leftTree), std::pair(&right, &rightTree)}) {
        const int code = cfg_read_s(session->handle(), "", LDAP_SCOPE_SUBTREE, results->receiver());
        if (code != LDAP_SUCCESS) {
            throw libraryFailure(session->handle(), code, {Stage::update, "", "", "nothing was written"});
        }
    }
    return isEqualLevel(leftTree.first(), rightTree.first());
}

// A value or a DN that the own form can't express would come back as another.
void requireSameConfiguration(const Session& reading, const WipedText& text)
{
    bool same = false;
    try {
        const MemoryFile copy(view(text));
        const Session again(readingOf(copy.name()));
        same = readTheSame(reading, again) && rendered(again.handle()) == text;
    } catch (const Failure&) {
        same = false;
    }
    if (!same) {
        throw Failure(ExitCode::refused, reading.file() + ": the library's own form can't express all of it",
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
    command->footer(std::string(footer) + writeFooter);
    return {command, [options, &target, &output] { return format(*options, target, output); }};
}

} // namespace veltor::tool
