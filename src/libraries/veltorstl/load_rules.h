// What a load takes and what ends it: the decisions that the loader and the check of a file have in common.
#ifndef VELTOR_LOAD_RULES_H
#define VELTOR_LOAD_RULES_H

class LDIF_Attribute;
class LDIF_Exception;

namespace veltor::detail {

/// What the root of a file without these attributes gets when the first entry is at hand.
inline constexpr char defaultCharset[] = "ISO-8859-1";
inline constexpr char defaultVersion[] = "1";

/// Which of the two attributes that may stand before the first entry were read.
struct RootNames
{
    bool versionSeen = false;
    bool charsetSeen = false;

    /// Decides about an attribute outside every entry.
    /// @return the flag to be set once the attribute is in
    /// @throws LDIF_Exception 19/1006 for the second one of a name, 65/1007 for any other name
    bool& admit(const LDIF_Attribute& attribute);
};

/// True when the refusal of an attribute ends the load; otherwise its line is kept as zor-slapdInvalidLine.
bool endsLoad(const LDIF_Exception& refusal);

} // namespace veltor::detail

#endif
