// Distinguished names: their parts, parser, printed form, order and arithmetic.
//
// Order, wanted and relied on: an ancestor compares +1 against its descendants, and the relational operators
// of the three classes are inverted with respect to compare(). An ordered set of DNs therefore lists every
// ancestor before its descendants, which the tree view needs.
//
// The parsing constructors take what they understand off the front of a text and leave the rest, its leading
// white space and parentheses stripped, to the caller. All throw LDIF_Exception: 34 with 1011 (attribute
// type missing), 1012 (bad attribute type), 1013 (value missing) or 1014 (bad value); 162 for text that the
// locale can't read; 80/1000 for a failure of the system.
#ifndef VELTOR_LDIF_DN_H
#define VELTOR_LDIF_DN_H

#include "LDIF_Util.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace veltor::detail {
template <class Character>
class DnParser;
}

/// The attribute type of one pair, as written.
class LDIF_RDN_attribute : public cisString
{
public:
    explicit LDIF_RDN_attribute(cisString& text);

private:
    template <class Character>
    friend class veltor::detail::DnParser;
    LDIF_RDN_attribute() = default;
};

/// The value of one pair: its bytes with all escapes resolved, and how it was written.
class LDIF_RDN_value : public cisString
{
public:
    enum Form : std::int32_t { binary = 0, quoted = 1, plain = 2 };

    std::int32_t form = quoted; ///< a Form; an empty text is `quoted`

    explicit LDIF_RDN_value(cisString& text);

    /// The printed form.
    /// @throws LDIF_Exception 34/1013 for an empty value
    virtual std::string str() const;

private:
    template <class Character>
    friend class veltor::detail::DnParser;
    LDIF_RDN_value() = default;
};

/// An attribute type and its value. The order of the virtual functions is ABI, here and below.
class LDIF_RDN_pair : public std::pair<LDIF_RDN_attribute, LDIF_RDN_value>
{
public:
    explicit LDIF_RDN_pair(cisString& text);

    /// Types first, then values, both without regard to case; the form of a value takes no part.
    virtual int compare(const LDIF_RDN_pair& other) const;
    virtual std::string str() const;
    virtual bool operator==(const LDIF_RDN_pair& other) const { return compare(other) == 0; }
    virtual bool operator<(const LDIF_RDN_pair& other) const { return compare(other) > 0; }
    virtual bool operator>(const LDIF_RDN_pair& other) const { return compare(other) < 0; }
    virtual bool operator!=(const LDIF_RDN_pair& other) const { return compare(other) != 0; }
    virtual bool operator<=(const LDIF_RDN_pair& other) const { return compare(other) >= 0; }
    virtual bool operator>=(const LDIF_RDN_pair& other) const { return compare(other) <= 0; }

private:
    template <class Character>
    friend class veltor::detail::DnParser;
    LDIF_RDN_pair(LDIF_RDN_attribute&& attribute, LDIF_RDN_value&& value);
};

/// The pairs of one level, ascending by compare() and without duplicates.
class LDIF_RDN : public std::vector<LDIF_RDN_pair>
{
public:
    LDIF_RDN() = default;
    explicit LDIF_RDN(cisString& text);

    /// Inserts a pair at its place; of equal pairs the first stays.
    virtual LDIF_RDN& operator+=(const LDIF_RDN_pair& pair);
    virtual std::string str() const;
    virtual int compare(const LDIF_RDN& other) const;
    virtual bool operator==(const LDIF_RDN& other) const { return compare(other) == 0; }
    virtual bool operator<(const LDIF_RDN& other) const { return compare(other) > 0; }
    virtual bool operator>(const LDIF_RDN& other) const { return compare(other) < 0; }
    virtual bool operator!=(const LDIF_RDN& other) const { return compare(other) != 0; }
    virtual bool operator<=(const LDIF_RDN& other) const { return compare(other) >= 0; }
    virtual bool operator>=(const LDIF_RDN& other) const { return compare(other) <= 0; }
};

/// A distinguished name. Element 0 is the RDN nearest the root, the last one the most specific; without
/// elements it names the root.
class LDIF_DN : public std::vector<LDIF_RDN>
{
public:
    LDIF_DN() = default;
    LDIF_DN(const LDIF_DN&) = default;
    LDIF_DN(LDIF_DN&&) noexcept = default;
    LDIF_DN& operator=(const LDIF_DN&) = default;
    LDIF_DN& operator=(LDIF_DN&&) noexcept = default;
    ~LDIF_DN() = default;

    /// Parses a whole DN. On a DN that is not empty the new RDNs go to the root side of those present: this
    /// does not clear first, on purpose. After a failure the RDNs parsed before it are in.
    virtual LDIF_DN& operator=(const cisString& text);

    /// One level deeper.
    virtual LDIF_DN& operator+=(const LDIF_RDN& rdn);

    /// The nearest common ancestor.
    virtual LDIF_DN intersection(const LDIF_DN& other) const;

    /// Strips the common root-side part: makes a DN relative to an ancestor.
    virtual LDIF_DN& operator-=(const LDIF_DN& other);

    virtual std::string str() const;
    virtual int compare(const LDIF_DN& other) const;
    virtual bool operator==(const LDIF_DN& other) const { return compare(other) == 0; }
    virtual bool operator<(const LDIF_DN& other) const { return compare(other) > 0; }
    virtual bool operator>(const LDIF_DN& other) const { return compare(other) < 0; }
    virtual bool operator!=(const LDIF_DN& other) const { return compare(other) != 0; }
    virtual bool operator<=(const LDIF_DN& other) const { return compare(other) >= 0; }
    virtual bool operator>=(const LDIF_DN& other) const { return compare(other) <= 0; }
};

std::ostream& operator<<(std::ostream& stream, const LDIF_RDN_value& value);
std::ostream& operator<<(std::ostream& stream, const LDIF_RDN_pair& pair);
std::ostream& operator<<(std::ostream& stream, const LDIF_RDN& rdn);
std::ostream& operator<<(std::ostream& stream, const LDIF_DN& dn);

namespace veltor::detail {

/// The DN's text for a message: empty where it can't be printed, since a report must not fail.
std::string printable(const LDIF_DN& dn);

} // namespace veltor::detail

#endif
