// A whole text in the place of the file's, also of one that does not load any more or is gone.
#ifndef VELTOR_TOOL_REPLACEMENT_H
#define VELTOR_TOOL_REPLACEMENT_H

#include "change_engine.h"
#include "wiped_text.h"

#include <optional>
#include <string>

namespace veltor::tool {

struct Replacement
{
    std::optional<WipedText> before; ///< what was shown of the file: no other text is overwritten; unset: no file
    WipedText after;
    void* readFrom;     ///< a handle that has read the new text
    std::string source; ///< where it comes from, for the heading of the difference
    std::string like;   ///< a new file gets owner and group of this one, where root makes it
    std::string log;    ///< what was done, for the system's log
};

/// Makes a new file of this text, and tells the log.
/// @return  false when there is one of that name
/// @throws Failure  for a text that does not load and for steps that fail: nothing is left behind
bool madeFile(const std::string& file, std::string_view text, const ChangeReport& report);

/// What the file holds now, nothing where there is none.
/// @throws Failure (file) for one that can't be read
std::optional<WipedText> textInPlace(const std::string& file);

/// Installs the text and tells what came of it, as ChangeEngine::finish does. A file that does not load is replaced for
/// root and its owner alone, since nobody can bind to it.
/// @throws Failure  as ChangeEngine; busy for a file that holds another text than the one that was shown
ExitCode replaceWholeText(Replacement replacement, const TargetOptions& target, const WriteOptions& options,
                          Output& output);

} // namespace veltor::tool

#endif
