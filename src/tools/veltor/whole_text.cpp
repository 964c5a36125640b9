// Texts are read whole into memory that is wiped, and never into a file of ours.
#include "whole_text.h"

#include "change_records.h"
#include "escape.h"
#include "ldif_output.h"
#include "masked_text.h"

#include <sys/stat.h>
#include <unistd.h>

namespace veltor::tool {

WipedText readConfiguration(const std::string& file, const std::string& state)
{
    constexpr const char* step = "name another file";
    if (const std::optional<Failure> failure = unreadableFile(file, state, step)) {
        throw *failure;
    }
    try {
        return readChangeFile(file);
    } catch (const Failure& failure) {
        throw Failure(failure.exit(), failure.what(), {state + "; " + step}, failure.facts());
    }
}

void requirePlainFile(const std::string& file, const std::string& state)
{
    struct stat status = {};
    if (::stat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw Failure(ExitCode::file, file + " is no plain file", {state + "; name another file"}, {.file = file});
    }
}

TargetOptions readingOf(const std::string& file)
{
    TargetOptions options;
    options.file = file;
    return options;
}

std::string shownDifference(std::string_view before, std::string_view after, const std::string& beforeLabel,
                            const std::string& afterLabel)
{
    return escapedLines(maskedDifference(before, after, beforeLabel, afterLabel));
}

} // namespace veltor::tool
