// Filters. The first line of an input is the filter, the others are the attributes of an entry. A filter whose value
// is written in escapes alone says the same; matching an entry agrees with looking at all its values, and with the
// way a search takes; an entry is found by each of its values.
#include "LDIF_AttrType.h"
#include "LDIF_Entry.h"
#include "LDIF_Search.h"
#include "fuzz.h"

#include <algorithm>

using namespace veltor::fuzz;
using veltor::detail::FilterRun;

namespace {

std::string told(const LDIF_Filter& filter)
{
    return "[" + filter.attribute + "] [" + filter.value + "] " + (filter.presence ? "present" : "equal");
}

std::string inEscapes(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        text += '\\';
        byte2hex(static_cast<unsigned char>(byte), text);
    }
    return text;
}

/// What a filter text would have to be to say the same in escapes alone.
std::string writtenInEscapes(const LDIF_Filter& filter)
{
    if (filter.presence) {
        return filter.attribute + "=*";
    }
    // An empty value is written as an escape that is none.
    return filter.attribute + "=" + (filter.value.empty() ? "\\" : inEscapes(filter.value));
}

LDIF_Entry entryOf(std::string_view lines)
{
    LDIF_Entry entry;
    veltor::detail::LineReader reader(lines);
    static_cast<void>(failureOf([&] {
        LDIF_Line line;
        for (reader.next(line); line.type != LDIF_Line::endOfFile; reader.next(line)) {
            if (line.type == LDIF_Line::attribute && line.valid) {
                // A file gives every attribute a value; an entry may hold some without.
                static_cast<void>(failureOf([&] { entry += LDIF_Attribute(line.name, line.value); }));
            }
        }
    }));
    return entry;
}

/// A match as text: what it says, or its failure.
template <class Match>
std::string outcome(Match&& match)
{
    bool matches = false;
    const auto failure = failureOf([&] { matches = match(); });
    return failure ? std::to_string(failure->ldapErr) + "/" + std::to_string(failure->extErr) : matches ? "yes" : "no";
}

bool matchesByWalk(const LDIF_Filter& filter, const LDIF_Entry& entry)
{
    for (const LDIF_Attribute& attribute : entry.attributes) {
        if (attribute.name != filter.attribute) {
            continue;
        }
        if (filter.presence || attribute.values.empty()) {
            return filter.presence;
        }
        const LDIF_Value candidate(attribute.values.type, filter.value.c_str());
        return std::any_of(attribute.values.begin(), attribute.values.end(),
                           [&](const LDIF_Value& value) { return value.compare(candidate) == 0; });
    }
    return false;
}

void matchInAllWays(const LDIF_Filter& filter, LDIF_Entry& entry)
{
    const std::string expected = outcome([&] { return matchesByWalk(filter, entry); });
    requireSame("a match is what a walk finds", expected, outcome([&] { return filter.match(entry); }));
    requireSame("a search matches alike", expected, outcome([&] { return FilterRun(filter).matches(entry); }));
    // A load leaves a map of the names behind.
    entry.attributes.mapNames();
    FilterRun run(filter);
    const bool mayMatch = run.mayMatch(entry);
    const std::string mapped = outcome([&] { return run.matches(entry); });
    requireSame("a map of the names changes nothing", expected, mapped);
    requireSame("a filter may be used again", expected, outcome([&] { return run.matches(entry); }));
    require(mayMatch || expected == "no", "what surely does not match does not match");
}

/// A DN may print as another one, or as none: see the target for DNs.
bool isPrintedDnLost(const LDIF_Value& value)
{
    bool isLost = false;
    const auto failure = failureOf([&] {
        const LDIF_Value again(value.attrType, value.str().c_str());
        isLost = value.dn() != nullptr && *again.dn() != *value.dn();
    });
    return value.dn() != nullptr && (failure || isLost);
}

void findByEachValue(const LDIF_Entry& entry)
{
    const auto passwordMatch = veltor::detail::attrTypeOf("zor-slapdAdminPW")->match;
    for (const LDIF_Attribute& attribute : entry.attributes) {
        LDIF_Filter filter;
        // The filter language can't say every name.
        if (failureOf([&] { filter = attribute.name + "=*"; }) || filter.attribute != attribute.name) {
            continue;
        }
        require(filter.match(entry), "an entry is found by each of its names", attribute.name);
        for (const LDIF_Value& value : attribute.values) {
            // Passwords are looked for by their clear text.
            if (attribute.values.type->match == passwordMatch || isPrintedDnLost(value)) {
                continue;
            }
            filter.presence = false;
            filter.value = value.str();
            require(filter.match(entry), "an entry is found by each of its values", attribute.name, filter.value);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    useLocale("C.UTF-8");
    auto rest = textOf(data, size);
    const std::string text(takeUpTo(rest, "\n"));
    LDIF_Entry entry = entryOf(rest);
    findByEachValue(entry);

    LDIF_Filter filter;
    if (const auto failure = failureOf([&] { filter = text; })) {
        require(failure->ldapErr == 162, "only the locale refuses a filter", reasonOf(failure));
        return 0;
    }
    LDIF_Filter again;
    again = writtenInEscapes(filter);
    requireSame("a filter in escapes says the same", told(filter), told(again));
    matchInAllWays(filter, entry);
    return 0;
}
