// Words of the commands that messages propose.
#ifndef VELTOR_TOOL_SHELL_WORD_H
#define VELTOR_TOOL_SHELL_WORD_H

#include <string>
#include <string_view>

namespace veltor::tool {

/// The text as one word of a shell's command line, in quotes if it needs them: whoever pastes it runs nothing else.
std::string shellWord(std::string_view text);

} // namespace veltor::tool

#endif
