// What the commands have in common that read, compare or put back whole texts.
#ifndef VELTOR_TOOL_WHOLE_TEXT_H
#define VELTOR_TOOL_WHOLE_TEXT_H

#include "change_engine.h"
#include "wiped_text.h"

#include <string>
#include <string_view>

namespace veltor::tool {

/// The bytes of a configuration file, as they are.
/// @param state  of things, as a failure tells it
/// @throws Failure (file)
WipedText readConfiguration(const std::string& file, const std::string& state = "nothing was written");

/// Refuses what can't be read twice, such as a pipe, and would be waited for.
/// @param state  of things, as a failure tells it
/// @throws Failure (file)
void requirePlainFile(const std::string& file, const std::string& state);

/// The options that read this file without a bind.
TargetOptions readingOf(const std::string& file);

/// The difference that is shown: secrets masked, harmless for a terminal.
std::string shownDifference(std::string_view before, std::string_view after, const std::string& beforeLabel,
                            const std::string& afterLabel);

} // namespace veltor::tool

#endif
