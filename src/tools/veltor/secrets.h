// Which values are not for every eye.
#ifndef VELTOR_TOOL_SECRETS_H
#define VELTOR_TOOL_SECRETS_H

#include <cstddef>
#include <string>
#include <string_view>

namespace veltor::tool {

/// What stands in texts and differences in place of a secret; the other two where it is not the same in both texts.
inline constexpr std::string_view secretMask = "***";
inline constexpr std::string_view secretMaskBefore = "*** (before)";
inline constexpr std::string_view secretMaskAfter = "*** (after)";

/// What the masks of an editor's copy begin with, each of which stands for a secret of its own.
inline constexpr std::string_view numberedMaskBegin = "*** (";

/// "*** (1)" for 1, with a tag "*** (1-tag)".
/// @param tag  of small letters and digits
std::string numberedMask(std::size_t number, std::string_view tag = "");

/// True for a text that is one of the masks, or several in a row. It must never come in as a password: somebody
/// applies back what was printed.
bool isMask(std::string_view value);

/// True for what was typed or shown in place of a secret, whatever stands behind it: the reader strips blanks and
/// parentheses.
bool beginsLikeMask(std::string_view hidden);

/// True for values that are shown on request only: passwords, environment settings of the server, whatever looks like
/// one under a name that the catalogue does not know or in a line that the load rejects, and a value in which the
/// name of one stands before a colon.
///
/// @param attribute  "" for a whole line of the file
bool isSecret(std::string_view attribute, std::string_view value);

/// True when what stands before the last colon of a line looks like the name of a secret. A name that the catalogue
/// has is known for what it is.
bool isSecretLine(std::string_view line);

/// True for a DN that has taken a line into it that looks like a secret.
bool isSecretDn(std::string_view dn);

/// True for the attributes whose values are stored encoded.
bool isPassword(std::string_view attribute);

/// One word: a mistyped line may have its value in what is taken for its name.
bool isOneWord(std::string_view name);

/// The name as it may be shown: *** for one that has a secret in it.
std::string_view shownName(std::string_view name);

/// The DN, or a mask for one that is a secret's line by mistake.
std::string_view shownDn(std::string_view dn);

/// The value as an error may quote it: in double quotes, or *** for a secret.
std::string quotedUnlessSecret(std::string_view attribute, std::string_view value);

} // namespace veltor::tool

#endif
