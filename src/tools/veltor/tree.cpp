// veltor tree: which entries there are, as a drawing.
#include "commands.h"
#include "ldif_output.h"
#include "tree_drawing.h"

#include <memory>
#include <unistd.h>
#include <veltor/cfg.h>

namespace veltor::tool {

namespace {

constexpr const char* footer =
    R"(Entries whose parent is missing are marked with a star and drawn under the nearest entry
above them; the missing ones are listed below the drawing.

The options common to all commands (-F, -D, -W, -y, -w) are accepted here too;
see veltor --help.)";

struct TreeOptions
{
    bool ascii = false;
};

ExitCode tree(const TreeOptions& options, const TargetOptions& target)
{
    // Of the terminal, which the locale of the environment describes; the session may leave it.
    const bool ascii = options.ascii || !environmentHasUtf8();
    const Session session(target);
    const char* drawing = cfg_tree_view(session.handle(), ascii ? 0 : 1);
    if (drawing == nullptr) {
        throw libraryFailure(session.handle(), cfg_get_errno(session.handle()), {Stage::search, ""});
    }
    writeOut(STDOUT_FILENO, ascii ? asciiTree(drawing) : unicodeTree(drawing));
    return ExitCode::done;
}

} // namespace

Command treeCommand(CLI::App& application, const TargetOptions& target)
{
    const auto options = std::make_shared<TreeOptions>();
    CLI::App* command = application.add_subcommand("tree", "Draw the tree of entries")->group("Commands");
    command->add_flag("--ascii", options->ascii, "Draw in ASCII, also in a locale that has line characters");
    command->footer(footer);
    return {command, [options, &target] { return tree(*options, target); }};
}

} // namespace veltor::tool
