// Filters and search results.
#include "LDIF_Search.h"

#include "LDIF_Exception.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <ostream>
#include <type_traits>

using veltor::detail::Layer;
using veltor::detail::wrapping;

namespace {

/// A text without the white space at its ends. Parentheses stay: the parser gives them no meaning, so one that is
/// there belongs to the name or to the value.
std::string trimmed(const std::string& text)
{
    const auto cut = [](const auto& whole, auto isSpace) {
        const auto first = std::find_if_not(whole.begin(), whole.end(), isSpace);
        const auto last = std::find_if_not(whole.rbegin(), std::make_reverse_iterator(first), isSpace).base();
        return std::decay_t<decltype(whole)>(first, last);
    };
    if (veltor::detail::isPlainAscii(text)) {
        return cut(text, veltor::detail::isAsciiSpace);
    }
    return wide2multibyte(cut(multibyte2wide(text), w_my_isspace));
}

/// The value of an equality filter: \xx stands for a byte. Copying stops at an escape that is not one.
std::string unescaped(const std::string& text)
{
    std::string value;
    if (veltor::detail::localeReadsAscii()) {
        for (std::size_t position = 0; position < text.size(); ++position) {
            if (text[position] != '\\') {
                value += text[position];
                continue;
            }
            if (text.size() - position < 3) {
                break;
            }
            const int high = veltor::detail::hexValue(text[position + 1]);
            const int low = veltor::detail::hexValue(text[position + 2]);
            if (high < 0 || low < 0) {
                break;
            }
            value += static_cast<char>(high * 16 + low);
            position += 2;
        }
        return value;
    }
    // In other encodings a digit is what the locale reads as one.
    for (std::string rest = text; !rest.empty();) {
        if (rest.front() != '\\') {
            value += rest.front();
            rest.erase(0, 1);
            continue;
        }
        char byte = 0;
        if (rest.size() < 3 || !hex2byte(rest.erase(0, 1), byte)) {
            break;
        }
        value += byte;
    }
    return value;
}

/// The matches below an entry, in the order of the walk.
///
/// The entries lie all over the memory, so the walk runs ahead: what may match is fetched and waits until those before
/// it were looked at.
class Matches
{
public:
    /// @param whole  everything below, not just the children
    Matches(const LDIF_Entry& top, bool whole, veltor::detail::FilterRun& run) : run_(run), scout_(top), whole_(whole)
    {
        scout_.next();
        fetchLevel();
    }

    /// The next match; null behind the last.
    const LDIF_Entry* next()
    {
        for (;;) {
            while (last_ - first_ < waiting_.size() && scout_.current() != nullptr) {
                advance();
            }
            if (first_ == last_) {
                return nullptr;
            }
            const Waiting& waiting = waiting_[first_++ % waiting_.size()];
            if (run_.matches(*waiting.entry, waiting.place)) {
                return waiting.entry;
            }
        }
    }

private:
    struct Waiting
    {
        const LDIF_Entry* entry;
        const LDIF_Attribute* place;
    };

    static constexpr std::size_t entriesAhead = 8;

    static void fetch(const LDIF_Entry* entry) noexcept
    {
        if (entry != nullptr) {
            __builtin_prefetch(&entry->attributes);
            __builtin_prefetch(&entry->children);
        }
    }

    /// Fetches the first entries of a level that the walk has come to.
    void fetchLevel() noexcept
    {
        for (std::size_t slots = 1; slots < entriesAhead; ++slots) {
            fetch(scout_.ahead(slots));
        }
    }

    void advance()
    {
        const LDIF_Entry* const entry = scout_.current();
        if (run_.mayMatch(*entry)) {
            const LDIF_Attribute* const place = run_.likelyPlace(*entry);
            if (place != nullptr) {
                __builtin_prefetch(&place->values);
                __builtin_prefetch(&place->values.type);
            }
            waiting_[last_++ % waiting_.size()] = {entry, place};
        }
        const std::size_t depth = scout_.depth();
        scout_.next(whole_);
        if (scout_.depth() > depth) {
            fetchLevel();
        }
        fetch(scout_.ahead(entriesAhead));
    }

    veltor::detail::FilterRun& run_;
    veltor::detail::TreeWalk scout_;
    bool whole_;
    std::array<Waiting, 4> waiting_ = {};
    std::size_t first_ = 0;
    std::size_t last_ = 0;
};

/// Calls `take` with each match in scope: depth first, parents before children.
template <class Take>
void visitMatches(const LDIF_Entry& entry, bool isBase, LDIF_Search_Results::Scope scope, const LDIF_Filter& filter,
                  Take&& take)
{
    veltor::detail::FilterRun run(filter);
    // The base of a one-level search is tested all the same: a filter that can't be compared fails there too.
    if (run.matches(entry) && !(scope == LDIF_Search_Results::oneLevel && isBase)) {
        take(entry);
    }
    const bool whole = scope == LDIF_Search_Results::subtree;
    if (!whole && (scope == LDIF_Search_Results::base || !isBase)) {
        return;
    }
    Matches below(entry, whole, run);
    while (const LDIF_Entry* const match = below.next()) {
        take(*match);
    }
}

} // namespace

LDIF_Filter& LDIF_Filter::operator=(const std::string& text)
{
    presence = true;
    attribute = "objectclass";
    value.clear();

    const std::string term = trimmed(text);
    const auto equals = term.find('=');
    if (equals == 0 || term.empty()) {
        return *this;
    }
    attribute = trimmed(term.substr(0, equals));
    const std::string rest = equals == std::string::npos ? "" : trimmed(term.substr(equals + 1));
    if (!rest.empty() && rest.front() != '*') {
        presence = false;
        value = unescaped(rest);
    }
    return *this;
}

bool LDIF_Filter::match(const LDIF_Entry& entry) const
{
    return veltor::detail::FilterRun(*this).matches(entry);
}

LDIF_Search_Results::LDIF_Search_Results(Scope wantedScope, const LDIF_Filter& wantedFilter,
                                         const LDIF_AttrFilter& wantedAttributes, bool namesOnly)
    : scope(wantedScope), filter(wantedFilter), attrFilter(wantedAttributes), typesOnly(namesOnly)
{
}

void LDIF_Search_Results::addCopy(const LDIF_Entry& entry)
{
    LDIF_Entry copy(entry.dn);
    copy.dnLabel = entry.dnLabel;
    for (const auto& attribute : entry.attributes) {
        if (attrFilter.empty() || attrFilter.count(attribute.name) != 0) {
            copy += attribute;
        }
    }
    entries.push_back(std::move(copy));
}

void LDIF_Search_Results::addEntry(const LDIF_Entry& entry, const bool& isBase)
{
    wrapping(Layer{VELTOR_HERE, ""},
             [&] { visitMatches(entry, isBase, scope, filter, [&](const LDIF_Entry& match) { addCopy(match); }); });
}

LDIF_Search_Results::Scope veltor::detail::scopeOf(int scope)
{
    switch (scope) {
    case LDIF_Search_Results::oneLevel:
        return LDIF_Search_Results::oneLevel;
    case LDIF_Search_Results::subtree:
        return LDIF_Search_Results::subtree;
    default:
        return LDIF_Search_Results::base;
    }
}

// ---- Searches without copies ----

bool veltor::detail::FilterRun::matches(const LDIF_Entry& entry, const LDIF_Attribute* likelyPlace)
{
    const LDIF_Attribute* const found = finder_.find(entry.attributes, likelyPlace);
    if (found == nullptr) {
        return false;
    }
    if (filter_.presence) {
        return true;
    }
    const LDIF_Values& list = found->values;
    if (list.empty()) {
        return false;
    }
    // Lists of one name have one type, unless somebody gave one of them another.
    if (!candidate_ || candidate_->attrType != list.type) {
        candidate_.emplace(list.type, filter_.value.c_str());
    }
    if (list.size() == 1) {
        return list.begin()->compare(*candidate_) == 0;
    }
    return list.values.placeOf(*candidate_).position != list.size();
}

std::vector<const LDIF_Entry*> veltor::detail::select(const LDIF_Entry& base, LDIF_Search_Results::Scope scope,
                                                      const LDIF_Filter& filter)
{
    std::vector<const LDIF_Entry*> found;
    wrapping(Layer{VELTOR_HERE, ""}, [&] {
        visitMatches(base, true, scope, filter, [&](const LDIF_Entry& match) { found.push_back(&match); });
    });
    return found;
}

std::ostream& operator<<(std::ostream& stream, const LDIF_Search_Results& results)
{
    stream << results.entries.size() << " entr" << (results.entries.size() == 1 ? "y" : "ies") << " found.\n";
    for (const auto& entry : results.entries) {
        stream << '\n' << entry.dnLabel << ": " << entry.dn << '\n';
        for (const auto& attribute : entry.attributes) {
            if (results.typesOnly) {
                stream << attribute.name << '\n';
                continue;
            }
            for (const auto& value : attribute.values) {
                stream << attribute.name << ": " << value << '\n';
            }
        }
    }
    return stream;
}
