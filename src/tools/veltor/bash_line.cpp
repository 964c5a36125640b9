// Follows bash's own rules for quotes; the part that a reply replaces is the one that readline takes for the word.
#include "bash_line.h"

namespace veltor::tool {

namespace {

constexpr std::string_view blanks = " \t\n";
constexpr std::string_view escapedInDoubleQuotes = "$`\"\\";

bool isOneOf(char character, std::string_view set)
{
    return set.find(character) != std::string_view::npos;
}

/// True for what means itself wherever it stands in a word. A byte of a character beyond ASCII does.
bool isPlain(char character)
{
    const bool isLetter = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
    const bool isDigit = character >= '0' && character <= '9';
    return isLetter || isDigit || static_cast<unsigned char>(character) >= 0x80 || isOneOf(character, "_@%+=:,./-");
}

} // namespace

BashLine parseBashLine(std::string_view line, std::string_view breaks)
{
    BashLine result;
    bool inWord = false;
    std::size_t behindQuote = 0;
    for (std::size_t index = 0; index < line.size(); ++index) {
        const char character = line[index];
        const bool hasNext = index + 1 < line.size();
        if (result.quote == '\0' && isOneOf(character, blanks)) {
            if (inWord) {
                result.words.push_back(std::move(result.current));
            }
            result.current.clear();
            result.kept = 0;
            inWord = false;
            continue;
        }
        inWord = true;
        if (character == result.quote) {
            result.quote = '\0';
        } else if (result.quote == '\0' && (character == '\'' || character == '"')) {
            result.quote = character;
            behindQuote = result.current.size();
        } else if (result.quote == '\0' && character == '\\') {
            if (hasNext) {
                result.current += line[++index];
            }
        } else if (result.quote == '"' && character == '\\' && hasNext &&
                   isOneOf(line[index + 1], escapedInDoubleQuotes)) {
            result.current += line[++index];
        } else {
            result.current += character;
            if (result.quote == '\0' && isOneOf(character, breaks)) {
                result.kept = result.current.size();
            }
        }
    }
    if (result.quote != '\0') {
        result.kept = behindQuote;
    }
    return result;
}

std::optional<std::string> bashReply(const BashLine& line, std::string_view word)
{
    std::string reply;
    for (const char character : word.substr(line.kept)) {
        if (line.quote == '\'' && character == '\'') {
            reply += "'\\''";
            continue;
        }
        // Inside double quotes nothing keeps the shell's history from it.
        if (line.quote == '"' && character == '!') {
            return std::nullopt;
        }
        const bool needsBackslash =
            line.quote == '\0' ? !isPlain(character) : line.quote == '"' && isOneOf(character, escapedInDoubleQuotes);
        reply += needsBackslash ? "\\" : "";
        reply += character;
    }
    return reply;
}

} // namespace veltor::tool
