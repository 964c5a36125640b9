// Makes foreign text harmless for a terminal: whatever a file, an option or a password prompt names may hold
// escape sequences, and an error message must not run them.
#ifndef VELTOR_TOOL_ESCAPE_H
#define VELTOR_TOOL_ESCAPE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace veltor::tool {

/// The text with each byte of a control character, of a character that turns the writing direction or breaks
/// the line, and of anything that is not UTF-8 shown as \xHH (two lower-case digits). A backslash stays as it
/// is: DNs are full of them.
std::string escaped(std::string_view text);

/// The number of columns that an escaped text takes, one for each character.
std::size_t columnsOf(std::string_view escapedText);

} // namespace veltor::tool

#endif
