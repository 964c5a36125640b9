// Single quotes leave everything as it is but themselves.
#include "shell_word.h"

#include <algorithm>

namespace veltor::tool {

namespace {

bool isPlain(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') ||
           std::string_view("_./,:=@%+-").find(character) != std::string_view::npos;
}

} // namespace

std::string shellWord(std::string_view text)
{
    if (!text.empty() && std::all_of(text.begin(), text.end(), isPlain)) {
        return std::string(text);
    }
    std::string word = "'";
    for (const char character : text) {
        word += character == '\'' ? "'\\''" : std::string(1, character);
    }
    return word + '\'';
}

} // namespace veltor::tool
