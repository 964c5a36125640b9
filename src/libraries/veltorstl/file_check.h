// The check of a configuration text: what would end a load of it, and what a load would take otherwise than it stands.
#ifndef VELTOR_FILE_CHECK_H
#define VELTOR_FILE_CHECK_H

#include "veltor/cfg_admin.h"

#include <string_view>

namespace veltor::detail {

/// A kind of finding. The words are part of the API: cfg_admin.h lists them.
struct FindingKind
{
    const char* word;
    int severity;
};

/// Every kind that there is.
namespace finding {
// The load ends there.
inline constexpr FindingKind unreadableText{"unreadable-text", 3};
inline constexpr FindingKind badDn{"bad-dn", 3};
inline constexpr FindingKind lineTakenForDn{"line-taken-for-dn", 3};
inline constexpr FindingKind attributeBeforeFirstEntry{"attribute-before-first-entry", 3};
inline constexpr FindingKind attributeOutsideEntry{"attribute-outside-entry", 3};
inline constexpr FindingKind lineOutsideEntry{"line-outside-entry", 3};
inline constexpr FindingKind badRootValue{"bad-root-value", 3};
inline constexpr FindingKind secondRootAttribute{"second-root-attribute", 3};
inline constexpr FindingKind unmergeableEntry{"unmergeable-entry", 3};
inline constexpr FindingKind loadFailure{"load-failure", 3};
// The server reads something else, or the file is at risk.
inline constexpr FindingKind rejectedLine{"rejected-line", 2};
inline constexpr FindingKind keptInvalidLine{"kept-invalid-line", 2};
inline constexpr FindingKind dnLineWithoutColon{"dn-line-without-colon", 2};
inline constexpr FindingKind lostLastValue{"lost-last-value", 2};
inline constexpr FindingKind duplicateEntry{"duplicate-entry", 2};
inline constexpr FindingKind emptyDn{"empty-dn", 2};
inline constexpr FindingKind secondValue{"second-value", 2};
inline constexpr FindingKind unknownAttribute{"unknown-attribute", 2};
inline constexpr FindingKind noObjectclass{"no-objectclass", 2};
inline constexpr FindingKind carriageReturn{"carriage-return", 2};
inline constexpr FindingKind nulByte{"nul-byte", 2};
inline constexpr FindingKind doubleColon{"double-colon", 2};
inline constexpr FindingKind strippedParentheses{"stripped-parentheses", 2};
inline constexpr FindingKind unstableName{"unstable-name", 2};
inline constexpr FindingKind unstableValue{"unstable-value", 2};
inline constexpr FindingKind unstableDn{"unstable-dn", 2};
inline constexpr FindingKind unprintableDn{"unprintable-dn", 2};
inline constexpr FindingKind clearPassword{"clear-password", 2};
inline constexpr FindingKind undecodablePassword{"undecodable-password", 2};
inline constexpr FindingKind writableFile{"writable-file", 2};
inline constexpr FindingKind writableFolder{"writable-folder", 2};
// The rest.
inline constexpr FindingKind missingParent{"missing-parent", 1};
inline constexpr FindingKind repeatedValue{"repeated-value", 1};
inline constexpr FindingKind unterminatedLastLine{"unterminated-last-line", 1};
inline constexpr FindingKind carriageReturnAtLineEnd{"carriage-return-at-line-end", 1};
inline constexpr FindingKind passwordInComment{"password-in-comment", 1};
inline constexpr FindingKind groupWritableFile{"group-writable-file", 1};
inline constexpr FindingKind groupWritableFolder{"group-writable-folder", 1};

inline constexpr const FindingKind* all[] = {
    &unreadableText,
    &badDn,
    &lineTakenForDn,
    &attributeBeforeFirstEntry,
    &attributeOutsideEntry,
    &lineOutsideEntry,
    &badRootValue,
    &secondRootAttribute,
    &unmergeableEntry,
    &loadFailure,
    &rejectedLine,
    &keptInvalidLine,
    &dnLineWithoutColon,
    &lostLastValue,
    &duplicateEntry,
    &emptyDn,
    &secondValue,
    &unknownAttribute,
    &noObjectclass,
    &carriageReturn,
    &nulByte,
    &doubleColon,
    &strippedParentheses,
    &unstableName,
    &unstableValue,
    &unstableDn,
    &unprintableDn,
    &clearPassword,
    &undecodablePassword,
    &writableFile,
    &writableFolder,
    &missingParent,
    &repeatedValue,
    &unterminatedLastLine,
    &carriageReturnAtLineEnd,
    &passwordInComment,
    &groupWritableFile,
    &groupWritableFolder,
};
} // namespace finding

/// Reads a text as a load does, and tells of each thing that is wrong with it: in the order of the lines, and behind
/// them what only the whole text shows.
///
/// There is a finding of severity 3 exactly when a load of the text fails; the first one has the line and the code of
/// that failure. The lines that a load keeps as zor-slapdInvalidLine before that are those of kind rejectedLine.
///
/// @return false when the callback ended the check
/// @throws std::bad_alloc; LDIF_Exception that is a failure of the system
bool checkText(std::string_view text, cfg_finding_fn report, void* context);

} // namespace veltor::detail

#endif
