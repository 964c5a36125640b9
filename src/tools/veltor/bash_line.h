// A command line as bash's completion hands it over, and words as its reply has to spell them.
#ifndef VELTOR_TOOL_BASH_LINE_H
#define VELTOR_TOOL_BASH_LINE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

struct BashLine
{
    std::vector<std::string> words; ///< before the one at the cursor, without quotes; the command's name is the first
    std::string current;            ///< the word at the cursor as far as it stands before that, without quotes
    char quote = '\0';              ///< the quote that is open at the cursor, a zero byte for none
    std::size_t kept = 0;           ///< so many bytes of current stand before the part that the reply replaces
};

/// Takes a line apart. Variables and the like stay as they stand: nothing is expanded.
/// @param line    up to the cursor
/// @param breaks  the characters at which bash begins another part of a word (COMP_WORDBREAKS)
BashLine parseBashLine(std::string_view line, std::string_view breaks);

/// The part of a word that replaces what stands at the cursor, with the quotes that it needs there; nothing for a word
/// that can't be written there.
std::optional<std::string> bashReply(const BashLine& line, std::string_view word);

} // namespace veltor::tool

#endif
