// The index of a value list: what it answers is what a walk over the values would find, in every syntax that it
// serves, in any order of changes, and however the values come to be others than it knew.
#include "value_index.h"

#include "LDIF_AttrType.h"
#include "LDIF_DN.h"
#include "LDIF_Exception.h"
#include "LDIF_Value.h"
#include "support/failure_of.h"
#include "support/locale_guard.h"

#include <algorithm>
#include <cctype>
#include <clocale>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <string>
#include <utility>
#include <vector>

using veltor::detail::ValueIndex;
using veltor::test::failureOf;
using veltor::test::LocaleGuard;

namespace {

using namespace std::string_literals;
using Texts = std::vector<std::string>;

/// A syntax with a spelling for each pair of numbers: texts of one key are equal, texts of two keys are not.
struct Row
{
    const char* name;
    const char* attribute;
    std::string (*spelled)(int key, int spelling);
};

std::string withCase(std::string text, int spelling)
{
    for (std::size_t index = 0; index < text.size(); ++index) {
        if ((spelling >> (index % 3) & 1) != 0) {
            text[index] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[index])));
        }
    }
    return text;
}

const Row rows[] = {
    {"case-exact", "charset", [](int key, int) { return withCase("value ", key % 2) + std::to_string(key / 2); }},
    {"case-blind", "cn", [](int key, int spelling) { return withCase("value " + std::to_string(key), spelling); }},
    {"unknown attribute", "unknown", [](int key, int) { return withCase("value", key % 2) + std::to_string(key / 2); }},
    {"number", "zor-slapdSizeLimit",
     [](int key, int spelling) {
         const Texts around[] = {{"", ""}, {"0", ""}, {" (", ")"}, {"+", " "}};
         return around[spelling % 4][0] + std::to_string(key) + around[spelling % 4][1];
     }},
    {"DN", "zor-slapdSuffix",
     [](int key, int spelling) {
         const char* const separators[] = {",", ";", " , ", ", "};
         return withCase("cn=value " + std::to_string(key), spelling) + separators[spelling % 4] + "o=X";
     }},
    {"DN of several pairs", "zor-slapdReplicaSubtree",
     [](int key, int spelling) {
         const std::string number = std::to_string(key);
         return withCase(spelling % 2 == 0 ? "cn=a" + number + "+sn=b" : "sn=b+cn=a" + number, spelling);
     }},
    {"password", "zor-slapdAdminPW",
     [](int key, int spelling) {
         const std::string clear = "Secret" + std::to_string(key);
         // As the file tells it, and as a client does.
         return spelling % 2 == 0 ? clear : LDIF_Value(getAttrType("zor-slapdAdminPW"), clear.c_str()).str();
     }},
};

/// The list without an index: every question is a walk.
class WalkedList
{
public:
    explicit WalkedList(const char* attribute) : type_(getAttrType(attribute)) {}

    std::size_t find(const std::string& text) const
    {
        const LDIF_Value candidate(type_, text.c_str());
        const auto place = std::find_if(values_.begin(), values_.end(),
                                        [&](const LDIF_Value& value) { return value.compare(candidate) == 0; });
        return static_cast<std::size_t>(place - values_.begin());
    }
    void add(const std::string& text)
    {
        if (find(text) == values_.size()) {
            push(text);
        }
    }
    void push(const std::string& text) { values_.emplace_back(type_, text.c_str()); }
    void remove(const std::string& text)
    {
        if (const std::size_t place = find(text); place != values_.size()) {
            values_.erase(values_.begin() + static_cast<std::ptrdiff_t>(place));
        }
    }
    void clear() { values_.clear(); }
    const std::vector<LDIF_Value>& values() const { return values_; }

private:
    const _AttrType* type_;
    std::vector<LDIF_Value> values_;
};

template <class Values>
Texts textsOf(const Values& values)
{
    Texts texts;
    for (const LDIF_Value& value : values) {
        texts.push_back(value.str());
    }
    return texts;
}

std::size_t positionOf(const LDIF_Values& list, const std::string& text)
{
    return static_cast<std::size_t>(list.find(text) - list.begin());
}

} // namespace

TEST(ValueIndex, AnswersAsAWalkOverManyValuesWould)
{
    constexpr int count = 20000;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Values list(row.attribute);
        for (int key = 0; key < count; ++key) {
            list += row.spelled(key, 0);
        }
        ASSERT_EQ(list.size(), static_cast<std::size_t>(count));
        for (int key = 0; key < count; ++key) {
            list += row.spelled(key, key % 8);
        }
        ASSERT_EQ(list.size(), static_cast<std::size_t>(count));
        for (int key = 0; key < count; ++key) {
            ASSERT_EQ(positionOf(list, row.spelled(key, key % 5)), static_cast<std::size_t>(key));
        }
        ASSERT_EQ(positionOf(list, row.spelled(count, 0)), static_cast<std::size_t>(count));

        // Every second one goes, backwards, and some that are not there.
        Texts removed;
        for (int key = count + 10; key >= 0; key -= 2) {
            removed.push_back(row.spelled(key, key % 7));
        }
        list.remove(removed);
        ASSERT_EQ(list.size(), static_cast<std::size_t>(count / 2));
        for (int key = 0; key < count; ++key) {
            const int expected = key % 2 == 0 ? count / 2 : key / 2;
            ASSERT_EQ(positionOf(list, row.spelled(key, key % 3)), static_cast<std::size_t>(expected));
        }
    }
}

TEST(ValueIndex, IsUsedByEveryWayOfTakingAListIn)
{
    constexpr int count = 20000;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Values first(row.attribute);
        LDIF_Values second(row.attribute);
        for (int key = 0; key < count; ++key) {
            (key % 2 == 0 ? first : second) += row.spelled(key, 0);
            if (key % 5 == 0) {
                second += row.spelled(key, 3);
            }
        }
        LDIF_Values added = first;
        added += second;
        EXPECT_EQ(added.size(), static_cast<std::size_t>(count));
        LDIF_Values assigned("cn");
        assigned = added;
        EXPECT_TRUE(textsOf(assigned) == textsOf(added));
        LDIF_Values absorbed = first;
        absorbed.absorb(std::move(second));
        EXPECT_TRUE(textsOf(absorbed) == textsOf(added));
        absorbed -= row.spelled(0, 1);
        EXPECT_EQ(positionOf(absorbed, row.spelled(2, 1)), 0U);
        EXPECT_EQ(positionOf(absorbed, row.spelled(0, 1)), absorbed.size());
    }
}

namespace {

/// One change or question in a random order of them.
struct Step
{
    unsigned operation;
    int key;
    int spelling;
};

constexpr unsigned operations = 16;

rc::Gen<std::vector<Step>> steps()
{
    return rc::gen::scale(6.0, rc::gen::container<std::vector<Step>>(rc::gen::build<Step>(
                                   rc::gen::set(&Step::operation, rc::gen::inRange(0U, operations)),
                                   rc::gen::set(&Step::key, rc::gen::inRange(0, 60)),
                                   rc::gen::set(&Step::spelling, rc::gen::inRange(0, 8)))));
}

} // namespace

RC_GTEST_PROP(ValueIndex, AgreesWithAWalkInAnyOrderOfChanges, ())
{
    const Row& row = rows[*rc::gen::inRange<std::size_t>(0, std::size(rows))];
    const auto script = *steps();
    const LocaleGuard guard("C");
    LDIF_Values list(row.attribute);
    WalkedList walked(row.attribute);
    // Begins on either side of where an index is worth its while.
    const int present = *rc::gen::inRange(0, 40);
    for (int key = 0; key < present; ++key) {
        list += row.spelled(key, 0);
        walked.add(row.spelled(key, 0));
    }
    for (const Step& step : script) {
        const std::string text = row.spelled(step.key, step.spelling);
        switch (step.operation) {
        case 0:
        case 1:
        case 2:
        case 3:
        case 4:
            list += text;
            walked.add(text);
            break;
        case 5:
        case 6:
            list -= text;
            walked.remove(text);
            break;
        case 7: {
            Texts texts;
            for (int key = step.key; key < 60; key += 1 + step.spelling) {
                texts.push_back(row.spelled(key, key % 8));
                walked.remove(texts.back());
            }
            list.remove(texts);
            break;
        }
        case 8:
            std::setlocale(LC_ALL, step.key % 2 == 0 ? "C" : "C.UTF-8");
            break;
        case 9: {
            LDIF_Values copy(list);
            list = std::move(copy);
            break;
        }
        case 10: {
            LDIF_Values other(row.attribute);
            other += text;
            other += row.spelled(step.key / 2, 0);
            walked.add(text);
            walked.add(row.spelled(step.key / 2, 0));
            list.absorb(std::move(other));
            break;
        }
        case 11:
            // A duplicate comes in behind the list's back: the first one counts.
            list.values.push_back(LDIF_Value(list.type, text.c_str()));
            walked.push(text);
            break;
        case 12:
            if (step.key == 0) {
                list.values.clear();
                walked.clear();
            }
            break;
        default:
            RC_ASSERT(positionOf(list, text) == walked.find(text));
            break;
        }
        RC_ASSERT(list.size() == walked.values().size());
    }
    RC_ASSERT(textsOf(list) == textsOf(walked.values()));
    for (int key = 0; key < 60; ++key) {
        const std::string text = row.spelled(key, 1);
        RC_ASSERT(positionOf(list, text) == walked.find(text));
    }
}

namespace {

LDIF_Values namesUpTo(int count)
{
    LDIF_Values list("cn");
    for (int key = 0; key < count; ++key) {
        list += "value " + std::to_string(key);
    }
    return list;
}

} // namespace

TEST(ValueIndex, ValuesThatChangeThroughAReferenceAreFound)
{
    LDIF_Values list = namesUpTo(100);
    const LDIF_Values& constant = list;
    ASSERT_EQ(positionOf(constant, "value 99"), 99U);
    LDIF_Value& kept = list.values[50];
    ASSERT_EQ(positionOf(constant, "value 99"), 99U);
    kept = LDIF_Value(list.type, "another");
    EXPECT_EQ(positionOf(constant, "ANOTHER"), 50U);
    EXPECT_EQ(positionOf(constant, "value 50"), 100U);
    // Two values are equal now, of which the first counts.
    kept = LDIF_Value(list.type, "value 99");
    EXPECT_EQ(positionOf(constant, "value 99"), 50U);
    list += "VALUE 99";
    EXPECT_EQ(list.size(), 100U);
    list -= "value 99";
    EXPECT_EQ(positionOf(constant, "value 99"), 98U);
}

TEST(ValueIndex, EveryWayToAMutableValueIsKnown)
{
    struct Access
    {
        const char* name;
        LDIF_Value& (*get)(LDIF_Values& list);
    };
    const Access ways[] = {
        {"begin of the list", [](LDIF_Values& list) -> LDIF_Value& { return *list.begin(); }},
        {"end of the list", [](LDIF_Values& list) -> LDIF_Value& { return *(list.end() - 1); }},
        {"find", [](LDIF_Values& list) -> LDIF_Value& { return *list.find("value 5"); }},
        {"begin", [](LDIF_Values& list) -> LDIF_Value& { return *list.values.begin(); }},
        {"end", [](LDIF_Values& list) -> LDIF_Value& { return list.values.end()[-1]; }},
        {"rbegin", [](LDIF_Values& list) -> LDIF_Value& { return *list.values.rbegin(); }},
        {"rend", [](LDIF_Values& list) -> LDIF_Value& { return *(list.values.rend() - 1); }},
        {"data", [](LDIF_Values& list) -> LDIF_Value& { return list.values.data()[3]; }},
        {"[]", [](LDIF_Values& list) -> LDIF_Value& { return list.values[3]; }},
        {"at", [](LDIF_Values& list) -> LDIF_Value& { return list.values.at(3); }},
        {"front", [](LDIF_Values& list) -> LDIF_Value& { return list.values.front(); }},
        {"back", [](LDIF_Values& list) -> LDIF_Value& { return list.values.back(); }},
        {"emplace_back", [](LDIF_Values& list) -> LDIF_Value& { return list.values.emplace_back(list.type, "new"); }},
        {"emplace",
         [](LDIF_Values& list) -> LDIF_Value& { return *list.values.emplace(list.values.cbegin(), list.type, "new"); }},
        {"insert",
         [](LDIF_Values& list) -> LDIF_Value& {
             return *list.values.insert(list.values.cbegin() + 2, LDIF_Value(list.type, "new"));
         }},
        {"erase", [](LDIF_Values& list) -> LDIF_Value& { return *list.values.erase(list.values.cbegin() + 7); }},
    };
    for (const Access& way : ways) {
        SCOPED_TRACE(way.name);
        LDIF_Values list = namesUpTo(40);
        ASSERT_EQ(positionOf(std::as_const(list), "value 20"), 20U);
        LDIF_Value& value = way.get(list);
        // A look-up between, so that an index could have been made again.
        ASSERT_EQ(positionOf(std::as_const(list), "no such value"), list.size());
        value = LDIF_Value(list.type, "changed");
        const LDIF_Values& constant = list;
        ASSERT_NE(positionOf(constant, "changed"), list.size());
        EXPECT_EQ(&constant.values[positionOf(constant, "changed")], &value);
        list += "Changed";
        EXPECT_NE(textsOf(list).back(), "Changed");
    }
}

TEST(ValueIndex, AMarkGoesWhereTheValuesGo)
{
    LDIF_Values list = namesUpTo(40);
    LDIF_Value& kept = list.values[3];
    LDIF_Values moved = std::move(list);
    ASSERT_EQ(positionOf(std::as_const(moved), "value 20"), 20U);
    kept = LDIF_Value(moved.type, "changed");
    EXPECT_EQ(positionOf(std::as_const(moved), "changed"), 3U);
    LDIF_Values other = namesUpTo(30);
    swap(other.values, moved.values);
    ASSERT_EQ(positionOf(std::as_const(other), "value 20"), 20U);
    ASSERT_EQ(positionOf(std::as_const(moved), "value 20"), 20U);
    kept = LDIF_Value(other.type, "changed again");
    EXPECT_EQ(positionOf(std::as_const(other), "changed again"), 3U);
    EXPECT_EQ(positionOf(std::as_const(moved), "changed again"), 30U);
}

TEST(ValueIndex, ListsOfSeveralTypesAreWalked)
{
    LDIF_Values list = namesUpTo(40);
    list.values.push_back(LDIF_Value(getAttrType("charset"), "Exact"));
    const LDIF_Values& constant = list;
    // Each value is compared by its own type.
    EXPECT_EQ(positionOf(constant, "exact"), 41U);
    EXPECT_EQ(positionOf(constant, "Exact"), 40U);
    EXPECT_EQ(positionOf(constant, "VALUE 7"), 7U);
    list.type = getAttrType("charset");
    EXPECT_EQ(positionOf(constant, "VALUE 7"), 7U);
    EXPECT_EQ(positionOf(constant, "exact"), 41U);
}

TEST(ValueIndex, AnotherComparisonOfATypeIsNoticed)
{
    _AttrType type = *getAttrType("cn");
    LDIF_Values list("cn");
    list.type = &type;
    for (int key = 0; key < 40; ++key) {
        list += "value " + std::to_string(key);
    }
    const LDIF_Values& constant = list;
    ASSERT_EQ(positionOf(constant, "VALUE 7"), 7U);
    type.match = cesCompare;
    EXPECT_EQ(positionOf(constant, "VALUE 7"), 40U);
    EXPECT_EQ(positionOf(constant, "value 7"), 7U);
    type.match = [](const LDIF_Value&, const LDIF_Value&) { return 0; };
    EXPECT_EQ(positionOf(constant, "anything"), 0U);
    type.match = cisCompare;
    type.toStr = [](const LDIF_Value&) { return "the same"s; };
    EXPECT_EQ(positionOf(constant, "anything"), 0U);
}

TEST(ValueIndex, ValuesWithoutANumberComplainAsInAWalk)
{
    LDIF_Values list("zor-slapdSizeLimit");
    for (int key = 0; key < 40; ++key) {
        list += std::to_string(key);
    }
    ASSERT_EQ(positionOf(std::as_const(list), "7"), 7U);
    list.values[10].binaryLength = 0;
    EXPECT_EQ(positionOf(std::as_const(list), "7"), 7U);
    const auto failure = failureOf([&] { (void)std::as_const(list).find("11"); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 18);
    EXPECT_EQ(failure->msg, "integer compare on non-integer value");
    EXPECT_EQ(failure->value, "10");
}

TEST(ValueIndex, ManyRemovalsEndWhereATextIsRefused)
{
    for (const int count : {5, 40}) {
        SCOPED_TRACE(count);
        LDIF_Values list("zor-slapdSizeLimit");
        for (int key = 0; key < count; ++key) {
            list += std::to_string(key);
        }
        const auto failure = failureOf([&] { list.remove({"1", "absent"}); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->msg, "Value is not valid integer syntax");
        EXPECT_EQ(failure->value, "absent");
        EXPECT_EQ(failure->attrType, list.type);
        EXPECT_EQ(list.size(), static_cast<std::size_t>(count - 1));
        EXPECT_EQ(positionOf(std::as_const(list), "1"), list.size());
        EXPECT_EQ(positionOf(std::as_const(list), "2"), 1U);
        // Once nothing is left, no text is looked at.
        Texts all = textsOf(list);
        all.push_back("absent");
        list.remove(all);
        EXPECT_TRUE(list.empty());
        list.remove({"absent"});
    }
}

TEST(ValueIndex, OfAListThatCannotBeIndexedThereIsNone)
{
    const auto indexOf = [](const LDIF_Values& list) {
        return ValueIndex::of(*list.type, {list.values.data(), list.size()}) != nullptr;
    };
    EXPECT_TRUE(indexOf(namesUpTo(20)));
    EXPECT_TRUE(indexOf(LDIF_Values("cn")));
    LDIF_Values mixed = namesUpTo(20);
    mixed.values.push_back(LDIF_Value(getAttrType("charset"), "x"));
    EXPECT_FALSE(indexOf(mixed));
    _AttrType foreign = *getAttrType("cn");
    foreign.match = [](const LDIF_Value&, const LDIF_Value&) { return 0; };
    LDIF_Values list("cn");
    list.type = &foreign;
    list += "a";
    EXPECT_FALSE(indexOf(list));
}
