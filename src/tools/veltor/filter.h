// Search filters: the grammar of RFC 4515, and what a filter says of an entry.
#ifndef VELTOR_TOOL_FILTER_H
#define VELTOR_TOOL_FILTER_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>
#include <veltor/cfg.h>

namespace veltor::tool {

/// A filter, or a part of one.
struct Filter
{
    enum class Kind {
        conjunction, ///< of its parts; without parts true (RFC 4526)
        disjunction, ///< of its parts; without parts false
        negation,    ///< of its one part
        present,     ///< the rest are terms about an attribute
        equality,    ///< also the approximate one of LDAP, which servers may define so
        substrings,
        greaterOrEqual,
        lessOrEqual,
    };

    Kind kind = Kind::conjunction;
    std::vector<Filter> parts{};
    std::string attribute{};
    std::string value{}; ///< decoded
    /// substrings: what the value begins with, holds in this order, and ends with; at least two, decoded, any of
    /// them may be empty.
    std::vector<std::string> pieces{};
};

/// What a filter says of an entry. Nothing can be said of a value that is hidden.
enum class Truth { no, undefined, yes };

/// True for an argument that is meant as a filter and not as an attribute name: it is empty, begins with a parenthesis,
/// or has an equals sign.
bool isFilter(std::string_view argument);

/// Finds what an attribute name of a filter means; throws a Failure for a name that is not clear.
using NameReader = std::function<std::string(const std::string&)>;

/// Reads a filter. One term may stand without parentheses, "" and "()" are true, and blanks are allowed between the
/// parts of a filter and around a value, since no value of a file begins or ends with one.
///
/// @param nameReader  for the names in the filter; without it they are taken as they are
/// @throws Failure (usage) with the filter and a caret below the column that it is about
Filter parseFilter(std::string_view text, const NameReader& nameReader = {});

/// True when the filter has the attribute in one of its terms, in any letter case.
bool speaksOf(const Filter& filter, std::string_view attribute);

/// Answers a term of equality whose value is not empty: whether the entry has the value, compared as the attribute's
/// type compares.
using EqualityTest = std::function<bool(const Filter& term, const cfg_message& entry)>;

/// Evaluates a filter by the rules of RFC 4511 for three truth values. Numbers are ordered by their value, other values
/// as texts, with regard to letter case only where the attribute's type compares so. An attribute that is missing makes
/// each of its terms false. Values that are not shown are there, and nothing more can be learned of them.
///
/// @param entry        as cfg_read_s returns it
/// @param showSecrets  no value is hidden
Truth evaluate(const Filter& filter, const cfg_message& entry, const EqualityTest& equality, bool showSecrets);

} // namespace veltor::tool

#endif
