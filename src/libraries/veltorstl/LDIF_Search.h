// Filters and search results.
#ifndef VELTOR_LDIF_SEARCH_H
#define VELTOR_LDIF_SEARCH_H

#include "LDIF_Entry.h"
#include "LDIF_Util.h"

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// A filter of one term: an attribute, and the value that it must have, if any. No parentheses, no boolean
/// operators, no substrings.
class LDIF_Filter
{
public:
    cisString attribute = "objectclass"; ///< the attribute to test
    std::string value;                   ///< the value to look for, escapes resolved
    bool presence = true;                ///< the attribute need only be there

    /// "objectclass" present.
    LDIF_Filter() = default;
    LDIF_Filter(const LDIF_Filter&) = default;
    LDIF_Filter(LDIF_Filter&&) noexcept = default;
    LDIF_Filter& operator=(const LDIF_Filter&) = default;
    LDIF_Filter& operator=(LDIF_Filter&&) noexcept = default;
    ~LDIF_Filter() = default;

    /// Parses "attribute", "attribute=*" or "attribute=value" with \xx for a byte. Whatever stands behind a
    /// leading "*" is ignored, on purpose; an escape that is cut short or not hexadecimal ends the value.
    /// @throws LDIF_Exception 162/162 for text that the process locale can't read
    LDIF_Filter& operator=(const std::string& text);

    /// @throws LDIF_Exception when the value does not suit the attribute's type and there is a value to compare
    virtual bool match(const LDIF_Entry& entry) const;
};

/// The attributes that a search returns, letter case ignored; none means all.
using LDIF_AttrFilter = std::set<cisString>;

/// What a search found: copies of the entries in the order of the walk, and what was asked.
class LDIF_Search_Results
{
public:
    /// The LDAP scope numbers.
    enum Scope : std::int32_t {
        base = 0,     ///< the base entry alone
        oneLevel = 1, ///< the entries directly below the base
        subtree = 2   ///< the base and everything below it
    };

    std::vector<LDIF_Entry> entries;
    Scope scope = base;
    LDIF_Filter filter;
    LDIF_AttrFilter attrFilter;
    bool typesOnly = false; ///< print attribute names without values

    LDIF_Search_Results() = default;
    LDIF_Search_Results(Scope scope, const LDIF_Filter& filter, const LDIF_AttrFilter& attrFilter, bool typesOnly);

    /// Visits an entry and, by scope, what is below it: depth first, parents before children.
    /// @param isBase  the entry is the search base, which a one-level search tests but never returns
    void addEntry(const LDIF_Entry& entry, const bool& isBase);

private:
    void addCopy(const LDIF_Entry& entry);
};

namespace veltor::detail {

/// The scope that a caller's number means: whatever is neither one level nor the subtree is the base alone.
LDIF_Search_Results::Scope scopeOf(int scope);

/// A filter at work on one entry after the other: what it compares with is built once for a type.
class FilterRun
{
public:
    /// @param filter  must outlive the run
    explicit FilterRun(const LDIF_Filter& filter) : filter_(filter), finder_(filter.attribute) {}

    /// What LDIF_Filter::match() says of the entry. @throws as that
    bool matches(const LDIF_Entry& entry) { return matches(entry, likelyPlace(entry)); }

    /// False when the entry surely does not match, which takes no look at its attributes.
    bool mayMatch(const LDIF_Entry& entry) const noexcept { return finder_.mayFindIn(entry.attributes); }

    /// What matches() will look at first, for who has that fetched and passes it on; null if it is not known.
    const LDIF_Attribute* likelyPlace(const LDIF_Entry& entry) const noexcept
    {
        return finder_.likelyPlace(entry.attributes);
    }
    bool matches(const LDIF_Entry& entry, const LDIF_Attribute* likelyPlace);

private:
    const LDIF_Filter& filter_;
    LDIF_Attributes::Finder finder_;
    // Built when there is a value to compare with, and not before: without one, no text is wrong.
    std::optional<LDIF_Value> candidate_;
};

/// What a search for copies would find, in its order: entries of the tree itself, good until that changes.
/// @throws what comparing with the filter's value raises, with this position
std::vector<const LDIF_Entry*> select(const LDIF_Entry& base, LDIF_Search_Results::Scope scope,
                                      const LDIF_Filter& filter);

} // namespace veltor::detail

/// The results as text: their number, then each entry's DN line and attributes.
std::ostream& operator<<(std::ostream& stream, const LDIF_Search_Results& results);

#endif
