// Makes foreign text harmless for a terminal: whatever a file, an option or a password prompt names may hold
// escape sequences, and an error message must not run them.
#ifndef VELTOR_TOOL_ESCAPE_H
#define VELTOR_TOOL_ESCAPE_H

#include "wiped_text.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace veltor::tool {

struct Character
{
    std::uint32_t codePoint;
    std::size_t length; ///< bytes; 0 when they are not UTF-8
};

/// The character that a text begins with. Overlong forms, surrogates and numbers above U+10FFFF are not UTF-8.
Character firstCharacter(std::string_view text);

/// True for C0, DEL and C1. A tab is one of them.
bool isControl(std::uint32_t codePoint);

/// The text with each byte of a control character, of a character that turns the writing direction or breaks
/// the line, and of anything that is not UTF-8 shown as \xHH (two lower-case digits). A backslash stays as it
/// is: DNs are full of them.
std::string escaped(std::string_view text);

/// Adds the escaped text, of which no copy stays behind.
void appendEscaped(WipedText& out, std::string_view text);

/// The text with each of its lines escaped; the line feeds between them stay.
std::string escapedLines(std::string_view text);

/// The number of columns that an escaped text takes, one for each character.
std::size_t columnsOf(std::string_view escapedText);

} // namespace veltor::tool

#endif
