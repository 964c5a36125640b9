// Changes of a tree, told as changes of the text that it was read from.
//
// The rules, in the order of the functions that follow them:
//
//   entry removed      its DN and attribute lines with the comments between them, the comment block directly above, the
//                      blank line that closes it
//   value removed      its physical lines, and every line that says it again
//   value new          in the place of a removed one, with that line's name and separator; what is left over behind the
//                      attribute's last line
//   order changed      all lines of the attribute, each as it stands, in the place of the first
//   attribute removed  also the comment lines above its lines
//   attribute new      behind the entry's last attribute line, in its first place
//   comment new        in the place of the block directly above
//   entry new          behind the last line of the subtree of its nearest ancestor
//
// Everything else stays byte for byte.
#ifndef VELTOR_KEPT_LAYOUT_H
#define VELTOR_KEPT_LAYOUT_H

#include "LDIF_DN.h"
#include "LDIF_Entry.h"
#include "edited_text.h"
#include "entry_lines.h"
#include "load.h"

#include <cstddef>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace veltor::detail {

/// What a change set touched. What is said and did not change does no harm.
struct Changes
{
    /// A comment that was set: of an entry, or of one of its attributes.
    struct NewComment
    {
        LDIF_DN dn;
        cisString attribute; // empty: the entry's own
        bool operator<(const NewComment& other) const
        {
            const int order = dn.compare(other.dn);
            return order != 0 ? order < 0 : attribute < other.attribute;
        }
    };

    std::set<LDIF_DN> entries; // added, changed or removed; those of new comments among them
    std::set<NewComment> comments;
};

/// A text, and where the entries of the tree stand in it that was loaded from it, with TextUse::settled.
struct LaidOutText
{
    std::string_view text;
    const EntryPlaces& places; // those of removed entries without an entry
};

/// The comment lines that changes took away and brought.
struct CommentBalance
{
    std::vector<TextRange> removed; // parts of the old text; all comment lines in them
    std::size_t added = 0;
};

/// The text as the tree wants it, with as few changes as the rules allow.
/// @param source  outlives the result
/// @throws LDIF_Exception 34/1013 for a DN of a new entry that can't be printed
EditedText withLayoutKept(const LaidOutText& source, LDIF_Entry& root, const Changes& changes,
                          CommentBalance& comments);

/// Refuses a text that lost a comment line that nobody removed.
/// @throws LDIF_Exception 21/21
void needsComments(std::string_view before, CommentBalance balance, std::string_view after);

} // namespace veltor::detail

#endif
