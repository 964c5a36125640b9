// Attributes and the attribute lists of entries.
#include "LDIF_Attribute.h"

#include "LDIF_AttrType.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <strings.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "support/ldif.h"

using veltor::test::attributeLine;
using veltor::test::commentOf;
using veltor::test::expectFailure;
using veltor::test::failureOf;
using veltor::test::lineOf;

namespace {

// A DN whose printed form, "cn=(", does not parse again: it is valid as a first value and can't be merged.
const char* const unmergeableDn = "cn=\\28";

LDIF_Attribute attributeOf(const std::string& name, std::initializer_list<const char*> values,
                           std::initializer_list<std::string> comment = {})
{
    LDIF_Attribute attribute(name, "");
    attribute.comment = commentOf(comment);
    for (const char* const value : values) {
        attribute.values += std::string(value);
    }
    return attribute;
}

LDIF_Attributes listOf(std::initializer_list<LDIF_Attribute> attributes)
{
    LDIF_Attributes list;
    for (const auto& attribute : attributes) {
        list += attribute;
    }
    return list;
}

std::vector<std::string> namesOf(const LDIF_Attributes& list)
{
    std::vector<std::string> names;
    for (const auto& attribute : list) {
        names.push_back(attribute.name);
    }
    return names;
}

using Names = std::vector<std::string>;

} // namespace

// ---- One attribute ----

TEST(LdifAttribute, ANameAndAValueGiveOneCheckedValue)
{
    const LDIF_Attribute attribute("zor-slapdPort", " 0389 ");
    EXPECT_EQ(static_cast<const std::string&>(attribute.name), "zor-slapdPort");
    EXPECT_TRUE(attribute.comment.lines.empty());
    EXPECT_EQ(attribute.values.name, "zor-slapdPort");
    EXPECT_EQ(attribute.values.type, getAttrType("zor-slapdPort"));
    EXPECT_EQ(attribute.str(), "zor-slapdPort: 389\n");
}

TEST(LdifAttribute, AnEmptyValueGivesNoValues)
{
    // zor-slapdPort would refuse an empty text, so nothing is added and nothing checked.
    for (const char* const name : {"cn", "zor-slapdPort"}) {
        SCOPED_TRACE(name);
        LDIF_Attribute attribute(name, "");
        EXPECT_TRUE(attribute.values.empty());
        EXPECT_EQ(attribute.str(), "");
        attribute.comment = commentOf({"# above"});
        EXPECT_EQ(attribute.str(), "# above\n");
    }
}

TEST(LdifAttribute, TheTypeIsFoundInAnyLetterCaseAndTheNameKept)
{
    const LDIF_Attribute attribute("ZOR-SLAPDPORT", "389");
    EXPECT_EQ(attribute.values.type, getAttrType("zor-slapdPort"));
    EXPECT_EQ(attribute.str(), "ZOR-SLAPDPORT: 389\n");
    EXPECT_TRUE(attribute.name == "zor-slapdport");
}

TEST(LdifAttribute, AnUnknownNameTakesAnyText)
{
    const LDIF_Attribute attribute("something", "any (text)");
    EXPECT_EQ(attribute.values.type, defaultAttrType);
    EXPECT_EQ(attribute.str(), "something: any (text)\n");
}

TEST(LdifAttribute, AValueThatTheTypeRefusesPassesThroughBothConstructors)
{
    const auto fromTexts = failureOf([] { LDIF_Attribute("zor-slapdPort", "abc"); });
    expectFailure(fromTexts, 21, 1016, "Value is not valid integer syntax");
    EXPECT_EQ(fromTexts.value, "abc");
    EXPECT_EQ(fromTexts.attribute, "zor-slapdPort");
    EXPECT_EQ(fromTexts.attrType, getAttrType("zor-slapdPort"));

    const auto fromLine =
        failureOf([] { LDIF_Attribute(attributeLine("zor-slapdPort", "65536"), commentOf({"# c"})); });
    expectFailure(fromLine, 21, 1015, "Integer value out of range");
    EXPECT_EQ(fromLine.value, "65536");
    EXPECT_EQ(fromLine.attribute, "zor-slapdPort");
}

TEST(LdifAttribute, ALineGivesItsNameValueAndTheCommentAboveIt)
{
    const LDIF_Comment above = commentOf({"# one", "#two"});
    const LDIF_Attribute attribute(attributeLine("CN", "a b"), above);
    EXPECT_EQ(static_cast<const std::string&>(attribute.name), "CN");
    EXPECT_EQ(attribute.str(), "# one\n#two\nCN: a b\n");
    EXPECT_EQ(above.lines.size(), 2U) << "the comment is copied";
}

TEST(LdifAttribute, ALineWithAnEmptyValueGivesAnEmptyValue)
{
    // Unlike the constructor from texts: the line's value is added whatever it is, and checked.
    const LDIF_Attribute attribute(attributeLine("cn", ""), LDIF_Comment());
    EXPECT_EQ(attribute.values.size(), 1U);
    EXPECT_EQ(attribute.str(), "cn: \n");

    const auto failure = failureOf([] { LDIF_Attribute(attributeLine("zor-slapdPort", ""), LDIF_Comment()); });
    expectFailure(failure, 21, 1016, "Value is not valid integer syntax");
}

TEST(LdifAttribute, OtherLinesAreRefusedByTheNameOfTheirType)
{
    const struct
    {
        int type;
        const char* message;
    } rows[] = {
        {0, "Illegal constructor LDIF_Attribute( LDIF_Line::endOfFile );"},
        {1, "Illegal constructor LDIF_Attribute( LDIF_Line::blankLine );"},
        {2, "Illegal constructor LDIF_Attribute( LDIF_Line::comment );"},
        {3, "Illegal constructor LDIF_Attribute( LDIF_Line::dn );"},
        {5, "Illegal constructor LDIF_Attribute( LDIF_Line::UNKNOWN );"},
        {-1, "Illegal constructor LDIF_Attribute( LDIF_Line::UNKNOWN );"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        const LDIF_Line line = lineOf(static_cast<LDIF_Line::Type>(row.type), "cn", "a");
        expectFailure(failureOf([&] { LDIF_Attribute(line, LDIF_Comment()); }), 80, 1000, row.message);
    }
}

TEST(LdifAttribute, CopiesAreItsOwnInAllThreeFields)
{
    LDIF_Attribute original = attributeOf("cn", {"a"}, {"# one"});
    LDIF_Attribute copy(original);
    LDIF_Attribute assigned("zor-slapdPort", "1");
    assigned = original;
    original.name = "sn";
    original.comment.lines.clear();
    original.values += std::string("b");
    EXPECT_EQ(copy.str(), "# one\ncn: a\n");
    EXPECT_EQ(assigned.str(), "# one\ncn: a\n");
    EXPECT_TRUE(assigned.name == "cn");
    EXPECT_EQ(assigned.values.type, getAttrType("cn"));
}

TEST(LdifAttribute, TheTextIsTheCommentThenALineForEachValue)
{
    EXPECT_EQ(attributeOf("objectclass", {"top", "person"}, {"# one", "# two"}).str(),
              "# one\n# two\nobjectclass: top\nobjectclass: person\n");
    std::string text = "before\n";
    attributeOf("cn", {"a"}, {"# one"}).appendTo(text);
    EXPECT_EQ(text, "before\n# one\ncn: a\n");
}

// ---- The list ----

TEST(LdifAttributes, KeepsItsElementsInNameOrder)
{
    EXPECT_EQ(namesOf(listOf({{"b", "1"}, {"a", "2"}, {"c", "3"}})), (Names{"a", "b", "c"}));
    EXPECT_EQ(listOf({{"b", "1"}, {"a", "2"}, {"c", "3"}}).str(), "a: 2\nb: 1\nc: 3\n");
}

TEST(LdifAttributes, TheOrderIgnoresLetterCase)
{
    EXPECT_EQ(namesOf(listOf({{"B", "1"}, {"a", "2"}, {"C", "3"}, {"_", "4"}})), (Names{"_", "a", "B", "C"}));
}

TEST(LdifAttributes, AnEmptyNameSortsFirst)
{
    EXPECT_EQ(namesOf(listOf({{"a", "1"}, {"", "2"}})), (Names{"", "a"}));
}

TEST(LdifAttributes, TheSameNameInAnyLetterCaseMerges)
{
    LDIF_Attributes list;
    list += attributeOf("objectclass", {"top", "person"}, {"# one"});
    list += attributeOf("OBJECTCLASS", {"Person", "account"}, {"# two", "# three"});
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list.str(), "# one\n# two\n# three\nobjectclass: top\nobjectclass: person\nobjectclass: account\n");
}

TEST(LdifAttributes, SingleValuedTypesTakeASecondValue)
{
    // Deliberate: the flag is reported, never enforced.
    LDIF_Attributes list;
    list += LDIF_Attribute("zor-slapdPort", "389");
    list += LDIF_Attribute("ZOR-SLAPDPORT", "636");
    EXPECT_EQ(list.str(), "zor-slapdPort: 389\nzor-slapdPort: 636\n");
}

TEST(LdifAttributes, AddingGivesTheListItself)
{
    LDIF_Attributes list;
    const LDIF_Attribute attribute("cn", "a");
    EXPECT_EQ(&(list += attribute), &list);
    EXPECT_EQ(&(list += LDIF_Attribute("cn", "b")), &list);
    EXPECT_EQ(&(list += LDIF_Attributes()), &list);
    EXPECT_EQ(&(list -= attribute), &list);
}

TEST(LdifAttributes, AddingLeavesTheArgumentAlone)
{
    LDIF_Attributes list = listOf({attributeOf("cn", {"a"}, {"# one"})});
    const LDIF_Attribute attribute = attributeOf("CN", {"b"}, {"# two"});
    list += attribute;
    EXPECT_EQ(attribute.str(), "# two\nCN: b\n");
}

TEST(LdifAttributes, AnElementCanBeAddedToItsOwnList)
{
    LDIF_Attributes list = listOf({attributeOf("cn", {"a"}, {"# one"}), attributeOf("sn", {"b"})});
    const LDIF_Attribute& first = list.front();
    list += first;
    EXPECT_EQ(list.str(), "# one\n# one\ncn: a\nsn: b\n");
}

TEST(LdifAttributes, AListCanBeAddedToItself)
{
    LDIF_Attributes list = listOf({attributeOf("cn", {"a"}, {"# one"}), attributeOf("sn", {"b"})});
    const LDIF_Attributes& same = list;
    list += same;
    EXPECT_EQ(list.str(), "# one\n# one\ncn: a\nsn: b\n");
}

TEST(LdifAttributes, AFailedMergeHasAppendedTheCommentAlready)
{
    LDIF_Attributes list = listOf({attributeOf("zor-slapdSuffix", {"o=x"}, {"# one"})});
    const LDIF_Attribute refused = attributeOf("zor-slapdSuffix", {unmergeableDn}, {"# two"});
    expectFailure(failureOf([&] { list += refused; }), 34, 1013, "Missing RDN attribute value");
    EXPECT_EQ(list.str(), "# one\n# two\nzor-slapdSuffix: o=x\n");

    LDIF_Attribute givenUp = refused;
    expectFailure(failureOf([&] { list += std::move(givenUp); }), 34, 1013, "Missing RDN attribute value");
    EXPECT_EQ(list.str(), "# one\n# two\n# two\nzor-slapdSuffix: o=x\n");

    LDIF_Attributes other;
    other += refused;
    expectFailure(failureOf([&] { list += other; }), 34, 1013, "Missing RDN attribute value");
    EXPECT_EQ(list.str(), "# one\n# two\n# two\n# two\nzor-slapdSuffix: o=x\n");
}

TEST(LdifAttributes, AForeignFailureOfAMergeIsTranslated)
{
    LDIF_Attributes list = listOf({{"cn", "a"}});
    _AttrType failing = *getAttrType("cn");
    failing.match = [](const LDIF_Value&, const LDIF_Value&) -> int { throw std::runtime_error("no match"); };
    list.front().values.begin()->attrType = &failing;
    expectFailure(failureOf([&] { list += LDIF_Attribute("cn", "b"); }), 80, 1000,
                  "System error in LDIF_Values::operator +=");
    EXPECT_EQ(list.size(), 1U);
}

TEST(LdifAttributes, MergingAListKeepsOrderAndMergesEqualNames)
{
    const struct
    {
        const char* name;
        LDIF_Attributes left, right;
        const char* text;
    } rows[] = {
        {"both empty", {}, {}, ""},
        {"left empty", {}, listOf({{"b", "1"}, {"a", "2"}}), "a: 2\nb: 1\n"},
        {"right empty", listOf({{"b", "1"}, {"a", "2"}}), {}, "a: 2\nb: 1\n"},
        {"right before", listOf({{"m", "1"}}), listOf({{"a", "2"}, {"b", "3"}}), "a: 2\nb: 3\nm: 1\n"},
        {"right behind", listOf({{"m", "1"}}), listOf({{"x", "2"}, {"y", "3"}}), "m: 1\nx: 2\ny: 3\n"},
        {"interleaved", listOf({{"b", "1"}, {"d", "2"}}), listOf({{"a", "3"}, {"C", "4"}, {"e", "5"}}),
         "a: 3\nb: 1\nC: 4\nd: 2\ne: 5\n"},
        {"equal", listOf({attributeOf("b", {"1"}, {"# l"})}), listOf({attributeOf("B", {"1", "2"}, {"# r"})}),
         "# l\n# r\nb: 1\nb: 2\n"},
        {"equal at both ends", listOf({{"a", "1"}, {"m", "2"}, {"z", "3"}}), listOf({{"A", "4"}, {"Z", "5"}}),
         "a: 1\na: 4\nm: 2\nz: 3\nz: 5\n"},
        {"several before one", listOf({{"z", "1"}}),
         listOf({{"a", "2"}, {"b", "3"}, {"c", "4"}, {"z", "5"}, {"zz", "6"}}),
         "a: 2\nb: 3\nc: 4\nz: 1\nz: 5\nzz: 6\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Attributes merged = row.left;
        const std::string rightText = row.right.str();
        merged += row.right;
        EXPECT_EQ(merged.str(), row.text);
        EXPECT_EQ(row.right.str(), rightText);
    }
}

TEST(LdifAttributes, RemovingLooksAtTheNameAlone)
{
    LDIF_Attributes list = listOf({{"a", "1"}, {"b", "2"}, {"c", "3"}});
    list -= attributeOf("B", {"something else"}, {"# c"});
    EXPECT_EQ(list.str(), "a: 1\nc: 3\n");
}

TEST(LdifAttributes, RemovingAnAbsentNameChangesNothing)
{
    LDIF_Attributes list = listOf({{"a", "1"}, {"c", "3"}});
    for (const char* const name : {"", "0", "b", "d", "aa"}) {
        SCOPED_TRACE(name);
        list -= LDIF_Attribute(name, "");
        EXPECT_EQ(list.str(), "a: 1\nc: 3\n");
    }
    LDIF_Attributes empty;
    empty -= LDIF_Attribute("a", "");
    EXPECT_TRUE(empty.empty());
}

TEST(LdifAttributes, RemovingAnElementOfItsOwnListIsSafe)
{
    LDIF_Attributes list = listOf({{"a", "1"}, {"b", "2"}});
    const LDIF_Attribute& first = list.front();
    list -= first;
    EXPECT_EQ(list.str(), "b: 2\n");
}

TEST(LdifAttributes, FindIgnoresLetterCase)
{
    LDIF_Attributes list = listOf({{"cn", "a"}, {"objectclass", "top"}, {"sn", "b"}});
    const struct
    {
        const char* name;
        const char* found;
    } rows[] = {
        {"cn", "cn"},    {"Cn", "cn"},   {"SN", "sn"},     {"objectCLASS", "objectclass"},
        {"", nullptr},   {"a", nullptr}, {"c", nullptr},   {"cn2", nullptr},
        {"zz", nullptr}, {"s", nullptr}, {"sn0", nullptr}, {"object", nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto found = list.find(row.name);
        const auto constFound = std::as_const(list).find(row.name);
        EXPECT_EQ(constFound - list.cbegin(), found - list.begin());
        if (row.found == nullptr) {
            EXPECT_TRUE(found == list.end());
        } else {
            ASSERT_TRUE(found != list.end());
            EXPECT_EQ(static_cast<const std::string&>(found->name), row.found);
        }
    }
}

TEST(LdifAttributes, FindInAnEmptyListGivesTheEnd)
{
    LDIF_Attributes empty;
    EXPECT_TRUE(empty.find("cn") == empty.end());
    EXPECT_TRUE(empty.find("") == empty.end());
}

TEST(LdifAttributes, WhatIsFoundCanBeChanged)
{
    LDIF_Attributes list = listOf({{"cn", "a"}});
    list.find("CN")->values += std::string("b");
    EXPECT_EQ(list.str(), "cn: a\ncn: b\n");
}

TEST(LdifAttributes, AnEmptyListHasNoText)
{
    EXPECT_EQ(LDIF_Attributes().str(), "");
    std::string text = "before\n";
    listOf({{"b", "1"}, {"a", "2"}}).appendTo(text);
    EXPECT_EQ(text, "before\na: 2\nb: 1\n");
}

namespace {

// The same list as plain texts: the names in first spelling, sorted, with the values that came.
struct PlainList
{
    std::vector<std::pair<std::string, std::vector<std::string>>> attributes;

    void add(const std::string& name, const std::string& value)
    {
        auto place = attributes.begin();
        while (place != attributes.end() && strcasecmp(place->first.c_str(), name.c_str()) < 0) {
            ++place;
        }
        if (place == attributes.end() || strcasecmp(place->first.c_str(), name.c_str()) != 0) {
            place = attributes.insert(place, {name, {}});
        }
        auto& values = place->second;
        if (std::find(values.begin(), values.end(), value) == values.end()) {
            values.push_back(value);
        }
    }

    std::string str() const
    {
        std::string text;
        for (const auto& [name, values] : attributes) {
            for (const auto& value : values) {
                text += name + ": " + value + "\n";
            }
        }
        return text;
    }
};

rc::Gen<std::vector<std::pair<std::string, std::string>>> additions()
{
    const auto name = rc::gen::container<std::string>(rc::gen::element('a', 'A', 'b', 'B', '-', '_', 'z'));
    const auto value = rc::gen::container<std::string>(rc::gen::element('x', 'y'));
    return rc::gen::container<std::vector<std::pair<std::string, std::string>>>(
        rc::gen::pair(rc::gen::resize(3, name), rc::gen::resize(2, value)));
}

} // namespace

TEST(LdifAttributes, AnySequenceOfAdditionsKeepsOrderAndUniqueness)
{
    EXPECT_TRUE(rc::check("one by one", [] {
        LDIF_Attributes list;
        PlainList plain;
        for (const auto& [name, value] : *additions()) {
            list += LDIF_Attribute(attributeLine(name, value), LDIF_Comment());
            plain.add(name, value);
            RC_ASSERT(list.str() == plain.str());
        }
    }));
    EXPECT_TRUE(rc::check("list by list", [] {
        LDIF_Attributes left;
        PlainList plain;
        for (const auto& [name, value] : *additions()) {
            left += LDIF_Attribute(attributeLine(name, value), LDIF_Comment());
            plain.add(name, value);
        }
        LDIF_Attributes right;
        const auto more = *additions();
        for (const auto& [name, value] : more) {
            right += LDIF_Attribute(attributeLine(name, value), LDIF_Comment());
        }
        for (const auto& attribute : right) {
            for (const auto& value : attribute.values) {
                plain.add(attribute.name, value.str());
            }
        }
        left += right;
        RC_ASSERT(left.str() == plain.str());
        for (const auto& attribute : right) {
            const auto found = left.find(attribute.name);
            RC_ASSERT(found != left.end());
            RC_ASSERT(found->name == attribute.name);
        }
    }));
}

// ---- The map of the names ----

namespace {

using Finder = LDIF_Attributes::Finder;

// Names at both ends of the catalogue and at the seam of the map's words, a name that stands there twice, and names
// that it does not know, before, between and behind the others.
const std::vector<std::string>& someNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> made = {"aaa", "description", "zor-slapdIdleTimeOut", "zor-slapdIdleTimeOuts", "zzz",
                                         "",    "unknown"};
        for (const std::size_t index : {0U, 1U, 2U, 3U, 30U, 62U, 63U, 64U, 65U, 90U, 113U, 114U, 115U}) {
            made.emplace_back(attrMapArray.at(index).name);
        }
        return made;
    }();
    return names;
}

LDIF_Attributes mapped(const std::vector<std::string>& names)
{
    LDIF_Attributes list;
    for (const auto& name : names) {
        list += LDIF_Attribute(name, "");
    }
    list.mapNames();
    return list;
}

/// Whether looking with the map finds just what looking without it finds.
bool mapAgrees(const LDIF_Attributes& list)
{
    const auto agrees = [&](const std::string& name) {
        const cisString wanted(name);
        const auto place = list.find(wanted);
        const Finder finder(wanted);
        return finder.find(list) == (place == list.end() ? nullptr : place) &&
               (place == list.end() || finder.mayFindIn(list));
    };
    return std::all_of(someNames().begin(), someNames().end(), agrees);
}

} // namespace

TEST(LdifAttributes, AMapFindsWhatIsThere)
{
    EXPECT_TRUE(mapAgrees(LDIF_Attributes()));
    EXPECT_TRUE(mapAgrees(mapped(someNames())));
    EXPECT_TRUE(rc::check([] {
        auto names = *rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(someNames()));
        const LDIF_Attributes list = mapped(names);
        RC_ASSERT(mapAgrees(list));
        RC_ASSERT(mapAgrees(LDIF_Attributes(list)));
    }));
}

TEST(LdifAttributes, AMapTellsWhatIsNotThere)
{
    const LDIF_Attributes list = mapped({"cn", "zor-slapdPort", "zor-slapdWorkers"});
    for (const char* const name : {"charset", "objectclass", "zor-slapdPeerDN", "zor-slapdVersion", "unknown"}) {
        const cisString wanted(name);
        EXPECT_FALSE(Finder(wanted).mayFindIn(list)) << name;
    }
    for (const char* const name : {"CN", "zor-slapdport", "zor-slapdWorkers"}) {
        const cisString wanted(name);
        const Finder finder(wanted);
        EXPECT_TRUE(finder.mayFindIn(list)) << name;
        EXPECT_EQ(finder.likelyPlace(list), list.find(wanted)) << name;
    }
    const cisString other("another");
    EXPECT_TRUE(Finder(other).mayFindIn(mapped({"unknown"})))
        << "the names that the catalogue does not know share a bit";
}

TEST(LdifAttributes, ARecordOfAnotherNameLeavesAListWithoutAMap)
{
    _AttrType foreign = *getAttrType("cn");
    LDIF_Attributes list = mapped({"cn", "zor-slapdPort"});
    list.find("cn")->values.type = &foreign;
    list.mapNames();
    const cisString absent("zor-slapdPeerDN");
    EXPECT_TRUE(Finder(absent).mayFindIn(list));
    EXPECT_TRUE(mapAgrees(list));
}

TEST(LdifAttributes, WhoeverMayRenameEndsTheMap)
{
    const LDIF_Attribute added("zor-slapdPeerDN", "");
    const struct
    {
        const char* name;
        void (*change)(LDIF_Attributes&, const LDIF_Attribute&);
    } rows[] = {
        {"begin", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.begin(); }},
        {"end", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.end(); }},
        {"rbegin", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.rbegin(); }},
        {"rend", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.rend(); }},
        {"data", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.data(); }},
        {"[]", [](LDIF_Attributes& list, const LDIF_Attribute&) { static_cast<void>(list[0]); }},
        {"at", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.at(0); }},
        {"front", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.front(); }},
        {"back", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.back(); }},
        {"find", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.find("cn"); }},
        {"push_back", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.push_back(one); }},
        {"push_back of a temporary",
         [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.push_back(LDIF_Attribute(one)); }},
        {"emplace_back", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.emplace_back(one); }},
        {"emplace", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.emplace(list.cend(), one); }},
        {"insert", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.insert(list.cend(), one); }},
        {"insert of a temporary",
         [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.insert(list.cend(), LDIF_Attribute(one)); }},
        {"insert of some", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.insert(list.cend(), 1, one); }},
        {"insert of a range",
         [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.insert(list.cend(), &one, &one + 1); }},
        {"insert of a list", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.insert(list.cend(), {one}); }},
        {"assign of a list", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.assign({one}); }},
        {"erase", [](LDIF_Attributes& list, const LDIF_Attribute&) { list.erase(list.cbegin()); }},
        {"erase of a range",
         [](LDIF_Attributes& list, const LDIF_Attribute&) { list.erase(list.cbegin(), list.cbegin()); }},
        {"resize", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.resize(3, one); }},
        {"assign", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.assign(1, one); }},
        {"assign of a range", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list.assign(&one, &one + 1); }},
        {"+=", [](LDIF_Attributes& list, const LDIF_Attribute& one) { list += one; }},
    };
    const cisString name("zor-slapdPeerDN");
    const Finder finder(name);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Attributes list = mapped({"cn", "version"});
        ASSERT_FALSE(finder.mayFindIn(list));
        row.change(list, added);
        EXPECT_TRUE(finder.mayFindIn(list));
        EXPECT_TRUE(mapAgrees(list));
    }
}

TEST(LdifAttributes, ARenamedAttributeIsFound)
{
    LDIF_Attributes list = mapped({"cn", "version"});
    LDIF_Attribute& first = list.front();
    first.name = "charset";
    const cisString name("charset");
    EXPECT_EQ(Finder(name).find(list), &std::as_const(list).front());
}

TEST(LdifAttributes, TheMapGoesWithTheAttributes)
{
    const cisString cn("cn");
    const cisString version("version");
    LDIF_Attributes left = mapped({"cn"});
    LDIF_Attributes right = mapped({"version"});
    swap(left, right);
    EXPECT_TRUE(mapAgrees(left) && mapAgrees(right));
    EXPECT_FALSE(Finder(cn).mayFindIn(left));
    left.swap(right);
    EXPECT_TRUE(mapAgrees(left) && mapAgrees(right));
    EXPECT_FALSE(Finder(version).mayFindIn(left));
    right = left;
    EXPECT_TRUE(mapAgrees(right));
    right = mapped({"version"});
    EXPECT_TRUE(mapAgrees(right));
    LDIF_Attributes moved(std::move(right));
    EXPECT_TRUE(mapAgrees(moved));
    moved -= LDIF_Attribute("version", "");
    moved += LDIF_Attribute("cn", "");
    EXPECT_TRUE(mapAgrees(moved));
}
