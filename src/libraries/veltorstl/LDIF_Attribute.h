// One attribute of an entry, and the attribute list of an entry.
#ifndef VELTOR_LDIF_ATTRIBUTE_H
#define VELTOR_LDIF_ATTRIBUTE_H

#include "LDIF_Comment.h"
#include "LDIF_Line.h"
#include "LDIF_Util.h"
#include "LDIF_Value.h"
#include "list.h"

#include <string>
#include <string_view>

/// One attribute: its name as written, the comment lines above it, its typed values.
class LDIF_Attribute
{
public:
    cisString name;
    LDIF_Comment comment;
    LDIF_Values values;

    /// An attribute with one value, or with none when the value is empty.
    /// @throws LDIF_Exception for a value that the attribute's type refuses
    LDIF_Attribute(const std::string& name, const std::string& value);

    /// An attribute from a line of the file.
    /// @throws LDIF_Exception 80/1000 for a line that is not an attribute line; else as above
    LDIF_Attribute(const LDIF_Line& line, const LDIF_Comment& comment);

    /// An attribute without values whose record is known.
    LDIF_Attribute(std::string_view name, veltor::detail::SharedName sharedName, const _AttrType* type);

    LDIF_Attribute(const LDIF_Attribute&) = default;
    LDIF_Attribute(LDIF_Attribute&&) noexcept = default;
    LDIF_Attribute& operator=(const LDIF_Attribute&) = default;
    LDIF_Attribute& operator=(LDIF_Attribute&&) noexcept = default;
    ~LDIF_Attribute() = default;

    /// The comment lines, then one line for each value, each with its line feed.
    virtual std::string str() const;

    /// Appends str() to a text: a std::string or a veltor::detail::RenderedText.
    template <class Text>
    void appendTo(Text& text) const;

    /// Adds the comment lines, then the values, of an attribute of this name that is given up.
    void merge(LDIF_Attribute&& other);
};

/// The attributes of an entry.
///
/// Invariants: sorted by name as strcasecmp orders, and no two names compare equal. The operations below keep
/// them; nothing else may insert.
class LDIF_Attributes : public veltor::detail::List<LDIF_Attribute>
{
public:
    /// Inserts an attribute at its place, or merges it into the one of its name: first the comment lines are
    /// appended, then the values added. The end is looked at first, since attributes mostly arrive in order.
    /// @throws LDIF_Exception for a value that can't be added; the comment lines are in by then
    LDIF_Attributes& operator+=(const LDIF_Attribute& attribute);
    LDIF_Attributes& operator+=(LDIF_Attribute&& attribute);

    /// Merges a whole list.
    LDIF_Attributes& operator+=(const LDIF_Attributes& other);

    /// Removes the attribute of that name, if there is one; only the name is looked at.
    LDIF_Attributes& operator-=(const LDIF_Attribute& attribute);

    /// The attribute of that name, or end().
    iterator find(const cisString& name);
    const_iterator find(const cisString& name) const;

    /// The attributes' texts in order.
    std::string str() const;

    /// Appends str() to a text: a std::string or a veltor::detail::RenderedText.
    template <class Text>
    void appendTo(Text& text) const;

private:
    const_iterator placeOf(const cisString& name) const;
};

namespace veltor::detail {

/// The name of a line type, as messages show it.
const char* lineTypeName(LDIF_Line::Type type);

} // namespace veltor::detail

#endif
