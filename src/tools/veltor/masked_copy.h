// A configuration text for somebody's editor: with numbered masks in place of its secrets, which become the secrets
// again when the text comes back.
#ifndef VELTOR_TOOL_MASKED_COPY_H
#define VELTOR_TOOL_MASKED_COPY_H

#include "wiped_text.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

/// A mask that can't become a secret again.
struct MaskRefusal
{
    std::size_t line; ///< 1-based
    std::string finding;
};

/// What came back from the editor.
struct Unmasked
{
    WipedText text;                      ///< line for line what was edited
    std::vector<std::size_t> lines;      ///< 1-based, those with a secret that was put back, in order
    std::vector<MaskRefusal> refusals{}; ///< the text is of use without any alone
};

/// The masks are "*** (1-4f0a)", "*** (2-4f0a)" and so on, one for each line of the file with a secret, so that a line
/// can be moved, copied or deleted, and its entry renamed, without a guess which secret is meant. What is behind the
/// number is made of the names and DNs of these lines: a text that was kept when other lines were hidden has masks that
/// stand for nothing now.
class MaskedCopy
{
public:
    explicit MaskedCopy(std::string_view text);

    /// The text to edit. What is masked is what maskedText masks; all else is as it was.
    const std::string& text() const { return text_; }

    /// Puts the secrets back for their masks. A mask is refused where its secret would not be hidden any more, where
    /// something was typed around it, and where it is none of the text's.
    Unmasked unmasked(std::string_view edited) const;

private:
    std::map<std::string, WipedText, std::less<>> secrets_; ///< by their masks
    std::string text_;
};

} // namespace veltor::tool

#endif
