// Typed values, and the value list of one attribute.
#ifndef VELTOR_LDIF_VALUE_H
#define VELTOR_LDIF_VALUE_H

#include "LDIF_AttrTypeRecord.h"
#include "compact_text.h"
#include "list.h"
#include "shared_name.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

class LDIF_DN;

/// One value: built through the syntax of its type, so it has passed that type's checks and holds the normal
/// form of its text.
///
/// Invariant: there is a binary form exactly when binaryLength is not 0.
class LDIF_Value
{
public:
    const _AttrType* attrType = nullptr; ///< whose syntax built the value; not owned
    std::int32_t binaryLength = 0;       ///< bytes of the binary form, 0 when there is none

    /// Builds a value from its text, read up to the first NUL.
    /// @throws LDIF_Exception the syntax's complaint, wrapped with the text and the type's name; 80/1000 for a
    ///         null type and for a failure of the system
    LDIF_Value(const _AttrType* type, const char* text);

    /// Builds a value from a binary form of the given length in bytes.
    LDIF_Value(const _AttrType* type, const void* data, int length);

    /// Copies are deep.
    /// @throws LDIF_Exception 80/1000 for a value that breaks the invariant, 90/1000 when memory is short
    LDIF_Value(const LDIF_Value& other);
    LDIF_Value(LDIF_Value&& other) noexcept;
    LDIF_Value& operator=(const LDIF_Value& other);
    LDIF_Value& operator=(LDIF_Value&& other) noexcept;
    ~LDIF_Value();

    /// The text form, as the type gives it.
    std::string str() const;

    /// Orders or equates by this value's type, whatever the type of the other.
    int compare(const LDIF_Value& other) const;

    /// The same with a text, which is checked and normalised as a value would be.
    int compare(const std::string& text) const;

    // What the syntaxes read and fill in.

    /// Followed by a NUL.
    std::string_view text() const { return text_.view(); }
    const char* cText() const { return text_.c_str(); }
    void setText(std::string_view text) { text_.assign(text); }
    /// Valid until the value changes or moves; null when there is none.
    const void* binary() const;
    /// Stores a copy of a binary form, in place of a DN. @throws LDIF_Exception 90/1000 when memory is short
    void setBinary(const void* data, int length);
    const LDIF_DN* dn() const { return hasDn() ? payload_.dn : nullptr; }
    /// Stores a DN, in place of a binary form.
    void setDn(LDIF_DN&& dn);

private:
    // What the other constructors begin with: should they fail, the destructor takes back what was made.
    explicit LDIF_Value(const _AttrType* type) noexcept : attrType(type) {}

    // A number is a binary form that needs no memory of its own.
    static constexpr std::size_t smallBinary = 8;

    enum class Holds : std::uint8_t { nothing, small, block, dn, dnInRegion };
    union Payload {
        std::byte small[smallBinary];
        void* block; // from malloc
        LDIF_DN* dn;
    };

    bool hasDn() const { return holds_ >= Holds::dn; }
    bool hasBinary() const { return holds_ == Holds::small || holds_ == Holds::block; }
    void take(LDIF_Value& other) noexcept;
    void dropPayload() noexcept;

    // In the room that binaryLength leaves.
    Holds holds_ = Holds::nothing;
    Payload payload_ = {};
    veltor::detail::CompactText text_;
};

static_assert(sizeof(LDIF_Value) == 40);

std::ostream& operator<<(std::ostream& stream, const LDIF_Value& value);

/// The values of one attribute, in the order in which they came, without duplicates as the type's comparison
/// sees them. The type's single-valued flag is not enforced, on purpose.
class LDIF_Values
{
public:
    // Most attributes have one value, which lies in the list itself.
    using List = veltor::detail::List<LDIF_Value, 1>;
    using iterator = List::iterator;
    using const_iterator = List::const_iterator;

    List values;
    veltor::detail::SharedName name; ///< the attribute's name, as given
    const _AttrType* type;           ///< the record of that name, or the default record; not owned

    explicit LDIF_Values(const std::string& name);
    /// An empty list whose record is known.
    LDIF_Values(veltor::detail::SharedName name, const _AttrType* type);
    LDIF_Values(const LDIF_Values&) = default;
    LDIF_Values(LDIF_Values&&) noexcept = default;
    /// Takes over name and type, then adds the other's values one by one. When that fails part-way the list is
    /// left with what was added.
    LDIF_Values& operator=(const LDIF_Values& other);
    LDIF_Values& operator=(LDIF_Values&&) noexcept = default;
    ~LDIF_Values() = default;

    iterator begin() { return values.begin(); }
    iterator end() { return values.end(); }
    const_iterator begin() const { return values.begin(); }
    const_iterator end() const { return values.end(); }
    std::size_t size() const { return values.size(); }
    bool empty() const { return values.empty(); }

    /// One line for each value: the name, ": ", the text, a line feed.
    std::string str() const;

    /// Appends str() to a text.
    void appendTo(std::string& text) const;

    /// Adds a value unless an equal one is there. Values and lists are added by their texts.
    /// @throws LDIF_Exception for a text that the type refuses
    LDIF_Values& operator+=(const std::string& text);
    LDIF_Values& operator+=(const LDIF_Value& value);
    LDIF_Values& operator+=(const LDIF_Values& other);

    /// Removes the first value equal to the text; none is no error. @throws LDIF_Exception for a text that the
    /// type refuses, unless the list is empty
    LDIF_Values& operator-=(const std::string& text);

    /// The first value equal to the text, or end(). An empty list does not look at the text.
    iterator find(const std::string& text);
    const_iterator find(const std::string& text) const;

    /// What += would make of the other's values, which are given up.
    void absorb(LDIF_Values&& other);

private:
    bool contains(const LDIF_Value& candidate) const;
    void dropFrom(std::size_t count);
};

#endif
