// Filters, searches and printed results.
#include "LDIF_Search.h"

#include "LDIF_AttrType.h"
#include "LDIF_File.h"

#include <cstddef>
#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "support/ldif.h"
#include "support/locale_guard.h"
#include "support/made_locale.h"
#include "support/temporary_folder.h"

using veltor::test::commentOf;
using veltor::test::dnOf;
using veltor::test::expectFailure;
using veltor::test::failureOf;
using veltor::test::inBothLocales;
using veltor::test::LocaleGuard;
using veltor::test::MadeLocale;
using veltor::test::TemporaryFolder;

namespace {

using Results = LDIF_Search_Results;
using Texts = std::vector<std::string>;

LDIF_Filter filterOf(const std::string& text)
{
    LDIF_Filter filter;
    filter = text;
    return filter;
}

/// "attribute present", or "attribute has 'value'".
std::string described(const LDIF_Filter& filter)
{
    const std::string name = filter.attribute;
    return filter.presence ? name + " present" + (filter.value.empty() ? "" : " and '" + filter.value + "'")
                           : name + " has '" + filter.value + "'";
}

struct FilterRow
{
    const char* text;
    const char* filter; ///< as described
};

void expectFilters(std::initializer_list<FilterRow> rows)
{
    inBothLocales([&] {
        for (const FilterRow& row : rows) {
            SCOPED_TRACE("'" + std::string(row.text) + "'");
            EXPECT_EQ(described(filterOf(row.text)), row.filter);
        }
    });
}

std::string printed(const Results& results)
{
    std::ostringstream stream;
    stream << results;
    return stream.str();
}

Texts dnsOf(const Results& results)
{
    Texts dns;
    for (const auto& entry : results.entries) {
        dns.push_back(entry.dn.str());
    }
    return dns;
}

constexpr std::string_view configuration = "version: 1\n"
                                           "charset: UTF-8\n"
                                           "\n"
                                           "# the top\n"
                                           "dn: o=x\n"
                                           "objectclass: organization\n"
                                           "objectclass: top\n"
                                           "\n"
                                           "DN: cn=b, o=x\n"
                                           "sn: second\n"
                                           "# about the port\n"
                                           "zor-slapdPort: 389\n"
                                           "CN: b\n"
                                           "cn: B two\n"
                                           "objectclass: person\n"
                                           "\n"
                                           "dn: cn=a, o=x\n"
                                           "cn: a\n"
                                           "\n"
                                           "dn: cn=leaf, cn=b, o=x\n"
                                           "cn: leaf\n"
                                           "objectclass: TOP\n"
                                           "\n"
                                           "dn: cn=orphan, ou=missing, cn=b, o=x\n"
                                           "cn: orphan\n"
                                           "objectclass: top\n"
                                           "\n"
                                           "dn: o=y\n"
                                           "objectclass: top\n";

/// A store of that configuration.
struct Store
{
    TemporaryFolder folder;
    LDIF_File file{folder.write("zorslapd.conf", configuration), ""};

    Results search(const std::string& base, int scope, const std::string& filter,
                   const LDIF_AttrFilter& attributes = {}, bool typesOnly = false)
    {
        return file.search(dnOf(base), static_cast<Results::Scope>(scope), filterOf(filter), attributes, typesOnly);
    }
};

} // namespace

// ---- Filter parsing ----

TEST(LdifFilter, TheDefaultAsksForTheObjectClass)
{
    EXPECT_EQ(described(LDIF_Filter()), "objectclass present");
    static_assert(std::is_polymorphic_v<LDIF_Filter>);
}

TEST(LdifFilter, IsParsedTheSameInBothLocales)
{
    expectFilters({
        // The default.
        {"", "objectclass present"},
        {"   ", "objectclass present"},
        {" \t\n ", "objectclass present"},
        {"=x", "objectclass present"},
        {"  =x", "objectclass present"},
        {"=", "objectclass present"},
        {"=*", "objectclass present"},
        // Presence.
        {"cn", "cn present"},
        {"  cn  ", "cn present"},
        {"cn=", "cn present"},
        {"cn=   ", "cn present"},
        {"cn=*", "cn present"},
        {" cn = * ", "cn present"},
        {"cn=*abc", "cn present"},
        {"cn=* abc=d", "cn present"},
        {"CN=*", "CN present"},
        {"c n", "c n present"},
        // Values.
        {"cn=x", "cn has 'x'"},
        {"  cn  =  x y  ", "cn has 'x y'"},
        {"cn=x=y", "cn has 'x=y'"},
        {"cn==x", "cn has '=x'"},
        {"cn=a*", "cn has 'a*'"},
        {"cn=a*b", "cn has 'a*b'"},
        {"cn=\tx\t", "cn has 'x'"},
        {"&cn=x", "&cn has 'x'"},
        {"cn=\"x\"", "cn has '\"x\"'"},
        {"cn>=x", "cn> has 'x'"},
        // Escapes.
        {"cn=a\\41b", "cn has 'aAb'"},
        {"cn=\\41\\42\\43", "cn has 'ABC'"},
        {"cn=\\2a", "cn has '*'"},
        {"cn=\\2Ax", "cn has '*x'"},
        {"cn=\\2a\\2A", "cn has '**'"},
        {"cn=\\5c41", "cn has '\\41'"},
        {"cn=\\20x\\20", "cn has ' x '"},
        {"cn=x\\20 ", "cn has 'x '"},
        {"cn=\\28x\\29", "cn has '(x)'"},
        {"cn=a\\4", "cn has 'a'"},
        {"cn=a\\", "cn has 'a'"},
        {"cn=a\\zz", "cn has 'a'"},
        {"cn=a\\4zb", "cn has 'a'"},
        {"cn=a\\z4b", "cn has 'a'"},
        {"cn=a\\\\41", "cn has 'a'"},
        {"cn=a\\ 41", "cn has 'a'"},
        {"cn=\\", "cn has ''"},
        {"cn=\\4", "cn has ''"},
        {"cn=\\zz", "cn has ''"},
        {"cn=\\41\\zz\\42", "cn has 'A'"},
        {"c\\6e=x", "c\\6e has 'x'"},
    });
}

TEST(LdifFilter, KnowsNoParentheses)
{
    // White space alone is stripped; a parenthesis is a character like any other.
    expectFilters({
        {"(cn=x)", "(cn has 'x)'"},
        {" ( cn = x ) ", "( cn has 'x )'"},
        {"cn=(x)", "cn has '(x)'"},
        {"cn=x)", "cn has 'x)'"},
        {"cn=(*)", "cn has '(*)'"},
        {"(cn)", "(cn) present"},
        {"cn)", "cn) present"},
        {"cn)=x", "cn) has 'x'"},
        {"()", "() present"},
        {"(", "( present"},
        {"(=x", "( has 'x'"},
        {"cn=()", "cn has '()'"},
        {"(objectclass=*)", "(objectclass present"},
        {"(&(cn=x)(sn=y))", "(&(cn has 'x)(sn=y))'"},
    });
}

TEST(LdifFilter, AnEscapedNulIsAByteOfTheValue)
{
    inBothLocales([&] {
        EXPECT_EQ(filterOf("cn=a\\00b").value, std::string("a\0b", 3));
        EXPECT_EQ(filterOf("cn=\\ffx").value, "\xFFx");
    });
}

TEST(LdifFilter, IsReadThroughTheLocaleWhereTheEncodingIsAnother)
{
    const MadeLocale made("ja_JP", "EUC-JP");
    if (!made.isThere()) {
        GTEST_SKIP() << "this system can't make the locale " << made.name();
    }
    const LocaleGuard locale(made.name());
    const FilterRow rows[] = {
        {" cn = x ", "cn has 'x'"},
        {"cn=*", "cn present"},
        {"cn=\xA4\xA2 ", "cn has '\xA4\xA2'"},
        {"cn=a\\41b", "cn has 'aAb'"},
        {"cn=\\41\xA4\xA2", "cn has 'A\xA4\xA2'"},
        {"cn=\xA4\xA2\\41", "cn has '\xA4\xA2"
                            "A'"},
        {"cn=\\a4\\A2", "cn has '\xA4\xA2'"},
        {"cn=a\\4", "cn has 'a'"},
        {"cn=a\\zzb", "cn has 'a'"},
        {"cn=a\\4\xA4\xA2", "cn has 'a'"},
    };
    for (const FilterRow& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(described(filterOf(row.text)), row.filter);
    }
    EXPECT_EQ(filterOf("cn=a\\00b").value, std::string("a\0b", 3));
}

TEST(LdifFilter, TakesTextBeyondAsciiWhereTheLocaleDoes)
{
    {
        const LocaleGuard locale("C.UTF-8");
        EXPECT_EQ(described(filterOf(" cn = Bj\xC3\xB6rn ")), "cn has 'Bj\xC3\xB6rn'");
        EXPECT_EQ(described(filterOf("cn=\\41\xC3\xB6\\42")), "cn has 'A\xC3\xB6"
                                                              "B'");
        EXPECT_EQ(described(filterOf("c\xC3\xB6")), "c\xC3\xB6 present");
        // White space is what the locale counts as such: U+2003 is an em space.
        EXPECT_EQ(described(filterOf("\xE2\x80\x83"
                                     "cn\xE2\x80\x83=\xE2\x80\x83x\xE2\x80\x83")),
                  "cn has 'x'");
        const auto failure = failureOf([] { filterOf("cn=\xFF"); });
        EXPECT_EQ(failure.ldapErr, 162);
        EXPECT_EQ(failure.extErr, 162);
    }
    const LocaleGuard locale("C");
    const auto failure = failureOf([] { filterOf("cn=Bj\xC3\xB6rn"); });
    EXPECT_EQ(failure.ldapErr, 162);
    EXPECT_EQ(failure.extErr, 162);
}

TEST(LdifFilter, AssignmentForgetsWhatItHeld)
{
    LDIF_Filter filter = filterOf("cn=x");
    LDIF_Filter& result = filter = std::string("sn");
    EXPECT_EQ(&result, &filter);
    EXPECT_EQ(described(filter), "sn present");
    filter = std::string("cn=x");
    filter = std::string();
    EXPECT_EQ(described(filter), "objectclass present");
    filter = filterOf("sn=y");
    EXPECT_EQ(described(filter), "sn has 'y'");
}

TEST(LdifFilter, ParsingLeavesTheTextAlone)
{
    const std::string text = "  (cn=\\41)  ";
    LDIF_Filter filter;
    filter = text;
    EXPECT_EQ(text, "  (cn=\\41)  ");
}

// ---- Matching ----

TEST(LdifFilter, MatchesByNameInAnyLetterCaseAndByTheTypesComparison)
{
    LDIF_Entry entry(dnOf("o=x"));
    entry += LDIF_Attribute("CN", "First Name");
    entry += LDIF_Attribute("CN", "second");
    entry += LDIF_Attribute("zor-slapdPort", "389");
    entry += LDIF_Attribute("zor-slapdErrorLog", "/var/Log");
    entry += LDIF_Attribute("zor-slapdAdminDN", "cn=Admin,o=x");
    entry += LDIF_Attribute("zor-slapdReadOnly", "TRUE");
    entry += LDIF_Attribute("zor-slapdAdminPW", "secret");
    entry += LDIF_Attribute("description", "");
    const struct
    {
        const char* filter;
        bool matches;
    } rows[] = {
        {"cn", true},
        {"Cn=*", true},
        {"cn=first name", true},
        {"cn=SECOND", true},
        {"cn=first", false},
        {"cn=third", false},
        {"sn", false},
        {"sn=x", false},
        {"", false},
        {"objectclass", false},
        {"zor-slapdport=0389", true},
        {"zor-slapdPort=+389", true},
        {"zor-slapdPort=390", false},
        {"zor-slapdErrorLog=/var/Log", true},
        {"zor-slapdErrorLog=/var/log", false},
        {"zor-slapdAdminDN=CN=admin ; O=X", true},
        {"zor-slapdAdminDN=cn=admin", false},
        {"zor-slapdReadOnly=true", true},
        {"zor-slapdReadOnly=false", false},
        {"zor-slapdAdminPW=secret", true},
        {"zor-slapdAdminPW=Secret", false},
        {"description=*", true},
        {"description=x", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.filter);
        EXPECT_EQ(filterOf(row.filter).match(entry), row.matches);
    }
    EXPECT_TRUE(filterOf("zor-slapdPort").match(entry));
}

TEST(LdifFilter, AnAttributeWithoutValuesIsPresentAndHoldsNothing)
{
    LDIF_Entry entry(dnOf("o=x"));
    entry += LDIF_Attribute("zor-slapdPort", "");
    EXPECT_TRUE(filterOf("zor-slapdPort").match(entry));
    EXPECT_FALSE(filterOf("zor-slapdPort=389").match(entry));
    EXPECT_FALSE(filterOf("zor-slapdPort=abc").match(entry)) << "nothing is there to compare with";
}

TEST(LdifFilter, AValueThatTheTypeRefusesFailsWhereThereIsOneToCompare)
{
    LDIF_Entry entry(dnOf("o=x"));
    entry += LDIF_Attribute("zor-slapdPort", "389");
    const auto failure = failureOf([&] { static_cast<void>(filterOf("zor-slapdPort=abc").match(entry)); });
    expectFailure(failure, 21, 1016, "Value is not valid integer syntax");
    EXPECT_EQ(failure.value, "abc");
    EXPECT_FALSE(filterOf("zor-slapdSecurePort=abc").match(entry)) << "the entry lacks the attribute";
}

TEST(LdifFilter, AnEmptyEntryMatchesNothing)
{
    const LDIF_Entry empty;
    EXPECT_FALSE(LDIF_Filter().match(empty));
    EXPECT_FALSE(filterOf("cn").match(empty));
    EXPECT_FALSE(filterOf("cn=x").match(empty));
}

TEST(LdifFilter, ADerivedFilterDecidesForItself)
{
    struct Everything : LDIF_Filter
    {
        bool match(const LDIF_Entry&) const override { return true; }
    };
    const Everything everything;
    const LDIF_Filter& filter = everything;
    EXPECT_TRUE(filter.match(LDIF_Entry()));
}

// ---- Scopes ----

TEST(LdifSearchResults, TheScopesHaveTheLdapNumbers)
{
    EXPECT_EQ(static_cast<int>(Results::base), 0);
    EXPECT_EQ(static_cast<int>(Results::oneLevel), 1);
    EXPECT_EQ(static_cast<int>(Results::subtree), 2);
}

TEST(LdifFileSearch, TheScopeDecidesWhatIsVisited)
{
    const struct
    {
        const char* base;
        int scope;
        const char* filter;
        Texts found;
    } rows[] = {
        {"o=x", 0, "", {"o=x"}},
        {"O=X", 0, "objectclass", {"o=x"}},
        {"cn=a,o=x", 0, "", {}},
        {"cn=a,o=x", 0, "cn", {"cn=a, o=x"}},
        {"o=x", 1, "cn", {"cn=b, o=x", "cn=a, o=x"}},
        {"o=x", 1, "", {"cn=b, o=x"}},
        {"cn=b,o=x", 1, "", {"cn=leaf, cn=b, o=x", "cn=orphan, ou=missing, cn=b, o=x"}},
        {"cn=leaf,cn=b,o=x", 1, "cn", {}},
        {"o=x", 2, "", {"o=x", "cn=b, o=x", "cn=leaf, cn=b, o=x", "cn=orphan, ou=missing, cn=b, o=x"}},
        {"o=x", 2, "cn", {"cn=b, o=x", "cn=leaf, cn=b, o=x", "cn=orphan, ou=missing, cn=b, o=x", "cn=a, o=x"}},
        {"cn=orphan,ou=missing,cn=b,o=x", 2, "", {"cn=orphan, ou=missing, cn=b, o=x"}},
        {"o=x", 2, "objectclass=top", {"o=x", "cn=leaf, cn=b, o=x", "cn=orphan, ou=missing, cn=b, o=x"}},
        {"o=x", 2, "cn=LEAF", {"cn=leaf, cn=b, o=x"}},
        {"o=x", 2, "cn=nobody", {}},
        {"", 0, "version", {""}},
        {"", 0, "", {}},
        {"", 1, "", {"o=x", "o=y"}},
        {"", 2, "objectclass=top", {"o=x", "cn=leaf, cn=b, o=x", "cn=orphan, ou=missing, cn=b, o=x", "o=y"}},
    };
    Store store;
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.base) + " scope " + std::to_string(row.scope) + " " + row.filter);
        EXPECT_EQ(dnsOf(store.search(row.base, row.scope, row.filter)), row.found);
    }
}

TEST(LdifFileSearch, AMissingBaseIsReported)
{
    Store store;
    for (const int scope : {0, 1, 2}) {
        for (const char* const base : {"o=none", "ou=missing,cn=b,o=x", "cn=a,cn=leaf,cn=b,o=x", "cn=b"}) {
            SCOPED_TRACE(std::string(base) + " scope " + std::to_string(scope));
            expectFailure(failureOf([&] { store.search(base, scope, ""); }), 32, 32, "Base entry not found");
        }
    }
}

TEST(LdifFileSearch, AOneLevelSearchNeverGivesTheBase)
{
    Store store;
    for (const char* const filter : {"", "objectclass", "objectclass=organization", "cn", "objectclass=top"}) {
        SCOPED_TRACE(filter);
        for (const auto& dn : dnsOf(store.search("o=x", 1, filter))) {
            EXPECT_NE(dn, "o=x");
        }
    }
}

TEST(LdifFileSearch, AOneLevelSearchTestsTheBaseAllTheSame)
{
    // The base has a port to compare with, nothing below it has: the filter fails there already.
    Store store;
    expectFailure(failureOf([&] { store.search("cn=b,o=x", 1, "zor-slapdPort=abc"); }), 21, 1016,
                  "Value is not valid integer syntax");
    EXPECT_EQ(dnsOf(store.search("cn=leaf,cn=b,o=x", 1, "zor-slapdPort=abc")), Texts());
}

TEST(LdifFileSearch, AFailureOfTheWalkIsPassedOnWithItsPosition)
{
    Store store;
    const auto failure = failureOf([&] { store.search("o=x", 2, "zor-slapdPort=abc"); });
    expectFailure(failure, 21, 1016, "Value is not valid integer syntax");
    EXPECT_EQ(failure.value, "abc");
    EXPECT_EQ(failure.srcFile, "LDIF_Search.cpp");
    ASSERT_NE(failure.nested.get(), nullptr);
    EXPECT_EQ(failure.nested->msg, failure.msg);
    // Beyond the entries with a port nothing fails.
    EXPECT_EQ(dnsOf(store.search("cn=a,o=x", 2, "zor-slapdPort=abc")), Texts());
    EXPECT_EQ(dnsOf(store.search("o=x", 0, "zor-slapdPort=abc")), Texts());
}

TEST(LdifFileSearch, AForeignFailureOfTheWalkGoesThrough)
{
    Store store;
    _AttrType failing = *getAttrType("cn");
    failing.match = [](const LDIF_Value&, const LDIF_Value&) -> int { throw std::range_error("no match"); };
    store.file.root.find(dnOf("cn=a,o=x"))->attributes.find("cn")->values.begin()->attrType = &failing;
    EXPECT_THROW(store.search("o=x", 2, "cn=a"), std::range_error);
}

TEST(LdifFileSearch, TheValueToCompareWithIsBuiltOnceForAType)
{
    static int built = 0;
    const auto counted = [](LDIF_Value& value, const std::string& text) {
        ++built;
        cesFromStr(value, text);
    };
    _AttrType counting = *getAttrType("cn");
    counting.fromStr = counted;
    _AttrType other = counting;

    Store store;
    const auto giveType = [&](const char* dn, const _AttrType& type) {
        store.file.root.find(dnOf(dn))->attributes.find("cn")->values.type = &type;
    };
    for (const char* const dn : {"cn=b,o=x", "cn=a,o=x", "cn=leaf,cn=b,o=x", "cn=orphan,ou=missing,cn=b,o=x"}) {
        giveType(dn, counting);
    }
    built = 0;
    EXPECT_EQ(dnsOf(store.search("", 2, "cn=b")), Texts{"cn=b, o=x"});
    EXPECT_EQ(built, 1);

    // In the order of the walk b, leaf, orphan, a.
    giveType("cn=leaf,cn=b,o=x", other);
    built = 0;
    EXPECT_EQ(dnsOf(store.search("", 2, "cn=a")), Texts{"cn=a, o=x"});
    EXPECT_EQ(built, 3) << "a list of another type has values of that type";
}

TEST(LdifFileSearch, SelectGivesTheTreesOwnEntries)
{
    Store store;
    const auto select = [&](const char* base, Results::Scope scope, const char* filter) {
        return store.file.select(dnOf(base), scope, filterOf(filter));
    };
    const auto entry = [&](const char* dn) { return static_cast<const LDIF_Entry*>(store.file.root.find(dnOf(dn))); };
    using Entries = std::vector<const LDIF_Entry*>;
    EXPECT_EQ(select("cn=b,o=x", Results::subtree, "objectclass=top"),
              (Entries{entry("cn=leaf,cn=b,o=x"), entry("cn=orphan,ou=missing,cn=b,o=x")}));
    EXPECT_EQ(select("o=x", Results::oneLevel, "cn"), (Entries{entry("cn=b,o=x"), entry("cn=a,o=x")}));
    EXPECT_EQ(select("o=x", Results::base, ""), Entries{entry("o=x")});
    EXPECT_EQ(select("o=x", Results::base, "cn"), Entries{});
    expectFailure(failureOf([&] { select("o=none", Results::base, ""); }), 32, 32, "Base entry not found");

    const auto failure = failureOf([&] { select("o=x", Results::subtree, "zor-slapdPort=abc"); });
    expectFailure(failure, 21, 1016, "Value is not valid integer syntax");
    EXPECT_EQ(failure.srcFile, "LDIF_Search.cpp");
    const auto searched = failureOf([&] { store.search("o=x", 2, "zor-slapdPort=abc"); });
    EXPECT_EQ(searched.value, failure.value);
    EXPECT_EQ(searched.attribute, failure.attribute);
    for (const LDIF_Exception *left = &failure, *right = &searched; left != nullptr || right != nullptr;
         left = left->nested, right = right->nested) {
        ASSERT_TRUE(left != nullptr && right != nullptr) << "as many layers";
        EXPECT_EQ(left->srcFile, right->srcFile);
    }
}

namespace {

/// A tree of levels of every width: o=x has three children, of which each has more than the one before it, and so on.
std::string unevenTree()
{
    std::string text = "dn: o=x\nobjectclass: top\n\n";
    int number = 0;
    const auto addBelow = [&](const auto& self, const std::string& parent, int width, int depth) -> void {
        for (int child = 0; child < width; ++child, ++number) {
            const std::string dn = "cn=" + std::to_string(number) + "," + parent;
            text += "dn: " + dn + "\ncn: " + std::to_string(number) + "\n";
            text += number % 3 == 0 ? "" : "objectclass: top\n";
            text += number % 5 == 0 ? "unknown: " + std::to_string(number % 7) + "\n" : "";
            text += number % 4 == 0 ? "zor-slapdPort: " + std::to_string(1 + number % 7) + "\n\n" : "\n";
            if (depth > 0) {
                self(self, dn, child * 5 % 23, depth - 1);
            }
        }
    };
    addBelow(addBelow, "o=x", 12, 2);
    return text;
}

/// What the filter says of each entry, in the order of the tree.
std::vector<const LDIF_Entry*> matchesOneByOne(const LDIF_Entry& top, const LDIF_Filter& filter, bool whole)
{
    std::vector<const LDIF_Entry*> found;
    const auto visit = [&](const auto& self, const LDIF_Entry& entry, int depth) -> void {
        if (filter.match(entry) && (whole || depth == 1)) {
            found.push_back(&entry);
        }
        if (whole || depth == 0) {
            for (const LDIF_Entry& child : entry.children) {
                self(self, child, depth + 1);
            }
        }
    };
    visit(visit, top, 0);
    return found;
}

} // namespace

TEST(LdifFileSearch, AWalkThatReadsAheadFindsWhatEachEntryMatches)
{
    const TemporaryFolder folder;
    LDIF_File file(folder.write("zorslapd.conf", unevenTree()), "");
    const auto check = [&](const char* when) {
        for (const char* const base : {"", "o=x", "cn=0,o=x", "cn=1,o=x"}) {
            const LDIF_Entry* const top = file.root.find(dnOf(base));
            for (const char* const filter : {"objectclass", "cn=17", "unknown", "unknown=3", "zor-slapdPort=3",
                                             "zor-slapdPeerDN", "never=1", "CN"}) {
                SCOPED_TRACE(std::string(when) + ": " + base + " " + filter);
                if (top == nullptr) {
                    continue;
                }
                const LDIF_Entry& entry = *top;
                EXPECT_EQ(file.select(dnOf(base), Results::subtree, filterOf(filter)),
                          matchesOneByOne(entry, filterOf(filter), true));
                EXPECT_EQ(file.select(dnOf(base), Results::oneLevel, filterOf(filter)),
                          matchesOneByOne(entry, filterOf(filter), false));
            }
        }
    };
    check("as loaded");
    ASSERT_GT(file.select(dnOf("o=x"), Results::subtree, filterOf("cn")).size(), 500U);
    // Holes in levels, and attributes that came later.
    std::vector<LDIF_DN> gone;
    for (const LDIF_Entry* const entry : file.select(dnOf(""), Results::subtree, filterOf("unknown=3"))) {
        gone.push_back(entry->dn);
    }
    for (const LDIF_DN& dn : gone) {
        if (file.root.find(dn) != nullptr) {
            file.erase(dn, true);
        }
    }
    *file.root.find(dnOf("o=x")) += LDIF_Attribute("zor-slapdPeerDN", "cn=x");
    check("changed");
}

// ---- What results hold ----

TEST(LdifFileSearch, TheResultsKeepWhatWasAsked)
{
    Store store;
    const auto results = store.search("o=x", 1, "cn=b", {"cn", "CN", "sn"}, true);
    EXPECT_EQ(results.scope, Results::oneLevel);
    EXPECT_EQ(described(results.filter), "cn has 'b'");
    EXPECT_EQ(results.attrFilter.size(), 2U) << "a set without regard to case";
    EXPECT_EQ(results.attrFilter.count("SN"), 1U);
    EXPECT_TRUE(results.typesOnly);
    EXPECT_EQ(results.entries.size(), 1U);
    EXPECT_FALSE(store.search("o=x", 0, "").typesOnly);
}

TEST(LdifFileSearch, EntriesAreCopiesWithTheirLabelAndWithoutChildren)
{
    Store store;
    auto results = store.search("cn=b,o=x", 0, "");
    ASSERT_EQ(results.entries.size(), 1U);
    LDIF_Entry& entry = results.entries.front();
    EXPECT_EQ(static_cast<const std::string&>(entry.dnLabel), "DN");
    EXPECT_EQ(entry.dn.str(), "cn=b, o=x");
    EXPECT_EQ(entry.relDn.str(), "cn=b, o=x");
    EXPECT_TRUE(entry.children.empty());
    EXPECT_TRUE(entry.comment.lines.empty());
    EXPECT_EQ(entry.str(), "DN: cn=b, o=x\n"
                           "CN: b\nCN: B two\n"
                           "objectclass: person\n"
                           "sn: second\n"
                           "# about the port\n"
                           "zor-slapdPort: 389\n\n");
    entry.attributes.clear();
    EXPECT_EQ(store.search("cn=b,o=x", 0, "").entries.front().attributes.size(), 4U) << "the tree is untouched";
}

TEST(LdifFileSearch, OnlyTheAttributesAskedForAreCopied)
{
    Store store;
    const auto results = store.search("o=x", 2, "objectclass", {"CN", "absent"});
    EXPECT_EQ(printed(results), "4 entries found.\n"
                                "\ndn: o=x\n"
                                "\nDN: cn=b, o=x\nCN: b\nCN: B two\n"
                                "\ndn: cn=leaf, cn=b, o=x\ncn: leaf\n"
                                "\ndn: cn=orphan, ou=missing, cn=b, o=x\ncn: orphan\n");
}

TEST(LdifFileSearch, ChangesInMemoryAreFound)
{
    Store store;
    store.file.root.find(dnOf("cn=a,o=x"))->attributes += LDIF_Attribute("objectclass", "new");
    EXPECT_EQ(dnsOf(store.search("", 2, "objectclass=NEW")), Texts{"cn=a, o=x"});
}

TEST(LdifSearchResults, VisitingAnEntryThatIsNoBaseStopsThereUnlessTheScopeIsSubtree)
{
    LDIF_Entry top(dnOf("o=x"));
    LDIF_Entry child(dnOf("cn=a,o=x"));
    top += child;
    const struct
    {
        Results::Scope scope;
        bool isBase;
        Texts found;
    } rows[] = {
        {Results::base, true, {"o=x"}},
        {Results::base, false, {"o=x"}},
        {Results::oneLevel, true, {"cn=a, o=x"}},
        {Results::oneLevel, false, {"o=x"}},
        {Results::subtree, true, {"o=x", "cn=a, o=x"}},
        {Results::subtree, false, {"o=x", "cn=a, o=x"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.scope) + (row.isBase ? " base" : ""));
        LDIF_Entry tree = top;
        tree += LDIF_Attribute("objectclass", "top");
        tree.children.front() += LDIF_Attribute("objectclass", "top");
        Results results;
        results.scope = row.scope;
        results.addEntry(tree, row.isBase);
        EXPECT_EQ(dnsOf(results), row.found);
        results.addEntry(tree, row.isBase);
        EXPECT_EQ(results.entries.size(), 2 * row.found.size()) << "results are appended";
    }
}

// ---- Printing ----

TEST(LdifSearchResults, TheCountIsSpelledAsItShould)
{
    Store store;
    EXPECT_EQ(printed(Results()), "0 entries found.\n");
    EXPECT_EQ(printed(store.search("cn=leaf,cn=b,o=x", 1, "")), "0 entries found.\n");
    EXPECT_EQ(printed(store.search("o=y", 0, "")), "1 entry found.\n\ndn: o=y\nobjectclass: top\n");
    EXPECT_EQ(printed(store.search("", 1, "")).substr(0, 17), "2 entries found.\n");
}

TEST(LdifSearchResults, EveryValueHasALineOfItsOwn)
{
    Store store;
    EXPECT_EQ(printed(store.search("cn=b,o=x", 0, "")), "1 entry found.\n"
                                                        "\n"
                                                        "DN: cn=b, o=x\n"
                                                        "CN: b\n"
                                                        "CN: B two\n"
                                                        "objectclass: person\n"
                                                        "sn: second\n"
                                                        "zor-slapdPort: 389\n");
}

TEST(LdifSearchResults, TypesOnlyPrintsEachNameOnce)
{
    Store store;
    EXPECT_EQ(printed(store.search("cn=b,o=x", 0, "", {}, true)), "1 entry found.\n"
                                                                  "\n"
                                                                  "DN: cn=b, o=x\n"
                                                                  "CN\n"
                                                                  "objectclass\n"
                                                                  "sn\n"
                                                                  "zor-slapdPort\n");
}

TEST(LdifSearchResults, PrintingGivesTheStreamAndFailsForADnWithAnEmptyValue)
{
    std::ostringstream stream;
    EXPECT_EQ(&(stream << Results()), &stream);
    Results results;
    results.entries.emplace_back(dnOf("cn="));
    expectFailure(failureOf([&] { stream << results; }), 34, 1013, "Missing RDN attribute value");
}
