// Decides character by character what may reach a terminal as it is.
#include "escape.h"

namespace veltor::tool {

namespace {

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0U) == 0x80U;
}

bool isHarmless(std::uint32_t codePoint)
{
    const bool lineBreak = codePoint == 0x2028 || codePoint == 0x2029;
    const bool direction = codePoint == 0x061C || codePoint == 0x200E || codePoint == 0x200F ||
                           (codePoint >= 0x202A && codePoint <= 0x202E) || (codePoint >= 0x2066 && codePoint <= 0x2069);
    // What has no width hides in a name. A byte order mark is one of them.
    const bool invisible = codePoint == 0x200B || codePoint == 0x2060 || codePoint == 0xFEFF;
    return !isControl(codePoint) && !lineBreak && !direction && !invisible;
}

template <typename Text>
void appendHex(Text& out, unsigned char byte)
{
    static constexpr char digits[] = "0123456789abcdef";
    for (const char character : {'\\', 'x', digits[byte >> 4U], digits[byte & 0x0FU]}) {
        out.push_back(character);
    }
}

template <typename Text>
void appendEscapedTo(Text& out, std::string_view text)
{
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        const std::string_view taken = text.substr(0, character.length == 0 ? 1 : character.length);
        if (character.length != 0 && isHarmless(character.codePoint)) {
            out.insert(out.end(), taken.begin(), taken.end());
        } else {
            for (const char byte : taken) {
                appendHex(out, static_cast<unsigned char>(byte));
            }
        }
        text.remove_prefix(taken.size());
    }
}

} // namespace

// What is not UTF-8 here a terminal may read as the control character that it hides.
Character firstCharacter(std::string_view text)
{
    const auto byteAt = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char first = byteAt(0);
    if (first < 0x80) {
        return {first, 1};
    }
    struct Form
    {
        unsigned char mask, lead;
        std::size_t length;
        std::uint32_t smallest;
    };
    static constexpr Form forms[] = {{0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};
    for (const Form& form : forms) {
        if ((first & form.mask) != form.lead || text.size() < form.length) {
            continue;
        }
        std::uint32_t codePoint = first & static_cast<unsigned char>(~form.mask);
        for (std::size_t index = 1; index < form.length; ++index) {
            if (!isContinuation(byteAt(index))) {
                return {0, 0};
            }
            codePoint = (codePoint << 6U) | (byteAt(index) & 0x3FU);
        }
        const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
        return codePoint < form.smallest || codePoint > 0x10FFFF || surrogate ? Character{0, 0}
                                                                              : Character{codePoint, form.length};
    }
    return {0, 0};
}

bool isControl(std::uint32_t codePoint)
{
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint <= 0x9F);
}

std::string escaped(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    appendEscapedTo(out, text);
    return out;
}

void appendEscaped(WipedText& out, std::string_view text)
{
    appendEscapedTo(out, text);
}

std::string escapedLines(std::string_view text)
{
    std::string out;
    for (;;) {
        const std::size_t feed = text.find('\n');
        out += escaped(text.substr(0, feed));
        if (feed == std::string_view::npos) {
            return out;
        }
        out += '\n';
        text.remove_prefix(feed + 1);
    }
}

std::size_t columnsOf(std::string_view escapedText)
{
    std::size_t columns = 0;
    for (const char byte : escapedText) {
        columns += isContinuation(static_cast<unsigned char>(byte)) ? 0 : 1;
    }
    return columns;
}

} // namespace veltor::tool
