// Somebody's editor on a text of ours.
#ifndef VELTOR_TOOL_EDITOR_H
#define VELTOR_TOOL_EDITOR_H

#include "wiped_text.h"

#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

/// A text in a file for an editor: in a folder of its own, which nobody else can look into and where the editor may put
/// what it likes. It stands beside the file that it is a draft of, so that it outlasts a restart of the machine.
/// A signal that ends the process while the object lives tells where the draft is, and ends the editor too.
class Draft
{
public:
    /// Makes the folder, FILE.edit-XXXXXX with the mode 0700, and in it an empty file of the same name as FILE with the
    /// mode 0600.
    /// @param file  symbolic links are followed
    /// @throws Failure  (writeFailed)
    explicit Draft(const std::string& file);
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    /// Leaves the folder, unless it was discarded.
    ~Draft();

    const std::string& name() const { return name_; }

    /// @throws Failure  (writeFailed)
    void write(std::string_view text) const;

    /// What is in the file now, whether the editor wrote to it or put another in its place.
    /// @throws Failure  (file)
    WipedText read() const;

    /// Runs the editor until it ends: $VISUAL, else $EDITOR, else vi, as a command line of the shell. Its standard
    /// streams are the terminal.
    /// @param environment  "NAME=VALUE" each, for the editor and to look it up
    /// @throws Failure  usage for an editor that can't be run, no for one that says that it failed or dies
    void edit(const std::vector<std::string>& environment) const;

    const std::string& folder() const { return folder_; }

    /// True when the editor has left something beside the file, such as what it saves of a text when it dies.
    bool hasMore() const;

    /// Removes the folder with what the editor has left in it.
    void discard();

private:
    std::string folder_, name_;
};

/// The environment of the process as it is now.
std::vector<std::string> currentEnvironment();

/// The command that begins an edit of the file with a text that was kept.
std::string commandToGoOnFrom(const std::string& kept, const std::string& file);

} // namespace veltor::tool

#endif
