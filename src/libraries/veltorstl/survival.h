// What a write and the load that follows it make of names, values and trees: the safe mode refuses what would come
// back as something else.
#ifndef VELTOR_SURVIVAL_H
#define VELTOR_SURVIVAL_H

#include <string>

class LDIF_Attributes;
class LDIF_Comment;
class LDIF_DN;
class LDIF_Entry;
class LDIF_Line;

namespace veltor::detail {

/// Refuses a name that no attribute that comes new into the file may have.
/// @throws LDIF_Exception 21/21 unless it is a descriptor as LDAP defines it (a letter, then letters, digits and
///         hyphens) and not the label of DN lines
void needsUsableName(const std::string& name);

/// Refuses a value that would come back as another.
/// @throws LDIF_Exception 21/21, with attribute, value and what would come back; what the attribute's type raises
void needsToSurvive(const std::string& name, const std::string& text);

/// Refuses a DN that can't be printed or would come back as another.
/// @throws LDIF_Exception 34/34; 65/65 for the empty DN, whose entry would merge into the root
void needsToSurvive(const LDIF_DN& dn);

/// Refuses a comment line that would come back as another.
/// @throws LDIF_Exception 21/21
void needsToSurvive(const LDIF_Line& comment);

/// True when two lists would be written alike.
bool areEqual(const LDIF_Attributes& left, const LDIF_Attributes& right);

/// A tree with what stands behind its last entry.
struct TreeAndTrailer
{
    const LDIF_Entry& root;
    const LDIF_Comment& trailingComment;
};

/// Refuses a tree that did not come back as it was: the same DNs in the same order, the same names, values and
/// comment lines.
/// @throws LDIF_Exception 21/21 and 34/34 with the first difference
void needsEqual(const TreeAndTrailer& meant, const TreeAndTrailer& read);

/// The same without a look at comment lines.
void needsEqualEntries(const LDIF_Entry& meant, const LDIF_Entry& read);

} // namespace veltor::detail

#endif
