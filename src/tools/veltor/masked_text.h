// Configuration texts as they may be shown: with a mask in place of each secret.
#ifndef VELTOR_TOOL_MASKED_TEXT_H
#define VELTOR_TOOL_MASKED_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

/// Of a line without a secret.
inline constexpr std::size_t nothingHidden = std::string_view::npos;

/// For each of the lines of a text where what must be hidden begins. It goes as far as the line's end.
std::vector<std::size_t> hiddenParts(const std::vector<std::string_view>& lines);

/// The bytes of a line that end it: line feeds and carriage returns.
std::string_view lineEndOf(std::string_view line);

/// The text with *** for each secret: values of passwords and of the server's environment, and whatever looks like one
/// in an unknown attribute, a rejected line, a comment, a DN, or a line without a colon. Lines are told apart as the
/// library reads them, continuation lines among them. Each line stays a line, with its line end, so that line numbers
/// are those of the text.
std::string maskedText(std::string_view text);

/// Two texts that are going to be compared.
struct MaskedTexts
{
    std::string before, after;
};

/// Both texts masked as above, with *** where a line is in both of them, and otherwise "*** (before)" and
/// "*** (after)". They are equal exactly when the texts are.
MaskedTexts maskedTexts(std::string_view before, std::string_view after);

/// The unified difference of two texts, masked, not escaped; "" for none.
std::string maskedDifference(std::string_view before, std::string_view after, const std::string& beforeLabel,
                             const std::string& afterLabel);

} // namespace veltor::tool

#endif
