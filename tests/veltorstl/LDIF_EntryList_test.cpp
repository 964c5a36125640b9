// The list of children: the interface of a vector, and the questions of the tree.
#include "LDIF_EntryList.h"

#include "LDIF_Entry.h"

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <pthread.h>
#include <random>
#include <ranges>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "support/ldif.h"

using veltor::test::commentOf;
using veltor::test::dnOf;

namespace {

using Names = std::vector<std::string>;

LDIF_Entry entryOf(const std::string& dn)
{
    return LDIF_Entry(dnOf(dn));
}

LDIF_EntryList listOf(const Names& names)
{
    LDIF_EntryList list;
    for (const auto& name : names) {
        list.push_back(entryOf(name));
    }
    return list;
}

Names namesOf(const LDIF_EntryList& list)
{
    Names names;
    for (const auto& entry : list) {
        names.push_back(entry.dn.str());
    }
    return names;
}

/// "o=0", "o=1" and so on.
Names numbered(std::size_t count)
{
    Names names;
    for (std::size_t number = 0; number < count; ++number) {
        names.push_back("o=" + std::to_string(number));
    }
    return names;
}

/// The names that the walk inside finds, which closes no holes.
Names walked(const LDIF_EntryList& list)
{
    Names names;
    std::size_t slot = 0;
    while (const LDIF_Entry* const entry = list.nextFrom(slot)) {
        names.push_back(entry->dn.str());
    }
    return names;
}

/// What lies below a DN, taken out of a list.
std::vector<std::unique_ptr<LDIF_Entry>> takenFrom(LDIF_EntryList&& list, const LDIF_DN& dn, std::size_t from)
{
    std::vector<std::unique_ptr<LDIF_Entry>> taken;
    list.giveAway(dn, from, [&](std::unique_ptr<LDIF_Entry>&& entry) { taken.push_back(std::move(entry)); });
    return taken;
}

std::vector<std::unique_ptr<LDIF_Entry>> takenFrom(LDIF_EntryList& list, const LDIF_DN& dn, std::size_t from)
{
    return takenFrom(std::move(list), dn, from);
}

LDIF_Entry& appendTo(LDIF_EntryList& list, std::unique_ptr<LDIF_Entry> entry)
{
    list.makeRoom();
    return list.append(std::move(entry));
}

bool byName(const LDIF_Entry& left, const LDIF_Entry& right)
{
    return left.dn.str() < right.dn.str();
}

} // namespace

// ---- What the types promise ----

static_assert(std::random_access_iterator<LDIF_EntryList::iterator>);
static_assert(std::random_access_iterator<LDIF_EntryList::const_iterator>);
static_assert(std::sortable<LDIF_EntryList::iterator, bool (*)(const LDIF_Entry&, const LDIF_Entry&)>);
static_assert(std::ranges::random_access_range<LDIF_EntryList>);
static_assert(std::ranges::random_access_range<const LDIF_EntryList>);
static_assert(std::is_same_v<LDIF_EntryList::value_type, std::iterator_traits<LDIF_EntryList::iterator>::value_type>);
static_assert(
    std::is_same_v<std::iterator_traits<LDIF_EntryList::iterator>::iterator_category, std::random_access_iterator_tag>);
static_assert(std::is_convertible_v<LDIF_EntryList::iterator, LDIF_EntryList::const_iterator>);
static_assert(!std::is_convertible_v<LDIF_EntryList::const_iterator, LDIF_EntryList::iterator>);
static_assert(std::is_same_v<std::iter_reference_t<LDIF_EntryList::const_iterator>, const LDIF_Entry&>);
static_assert(std::is_nothrow_move_constructible_v<LDIF_EntryList>);
static_assert(std::is_nothrow_move_assignable_v<LDIF_EntryList>);
static_assert(std::is_nothrow_swappable_v<LDIF_EntryList>);
static_assert(std::is_same_v<LDIF_EntryList::reference, LDIF_Entry&>);
static_assert(std::is_same_v<LDIF_EntryList::const_reference, const LDIF_Entry&>);

// ---- Construction, copies, moves ----

TEST(LdifEntryList, ANewListIsEmpty)
{
    LDIF_EntryList list;
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.size(), 0U);
    EXPECT_EQ(list.capacity(), 0U);
    EXPECT_TRUE(list.begin() == list.end());
    EXPECT_TRUE(std::as_const(list).begin() == std::as_const(list).end());
    EXPECT_TRUE(list.cbegin() == list.cend());
    EXPECT_TRUE(list.rbegin() == list.rend());
    EXPECT_TRUE(list.crbegin() == list.crend());
    EXPECT_EQ(walked(list), Names());
}

TEST(LdifEntryList, IsMadeFromACountAndFromEntries)
{
    const LDIF_EntryList blank(3);
    EXPECT_EQ(namesOf(blank), (Names{"", "", ""}));
    const LDIF_EntryList same(2, entryOf("o=x"));
    EXPECT_EQ(namesOf(same), (Names{"o=x", "o=x"}));
    const LDIF_EntryList braced{entryOf("o=b"), entryOf("o=a")};
    EXPECT_EQ(namesOf(braced), (Names{"o=b", "o=a"}));
    EXPECT_TRUE(LDIF_EntryList(0).empty());
}

TEST(LdifEntryList, CopiesAreDeep)
{
    LDIF_EntryList original = listOf({"o=a", "o=b"});
    original[0].children.push_back(entryOf("cn=below"));
    const LDIF_EntryList copy(original);
    LDIF_EntryList assigned = listOf({"o=gone"});
    assigned = original;
    original[0].children[0].dn = dnOf("cn=changed");
    original[1].comment = commentOf({"# changed"});
    original.push_back(entryOf("o=c"));
    for (const LDIF_EntryList* const kept : {&copy, &std::as_const(assigned)}) {
        EXPECT_EQ(namesOf(*kept), (Names{"o=a", "o=b"}));
        EXPECT_EQ((*kept)[0].children[0].dn.str(), "cn=below");
        EXPECT_EQ((*kept)[1].comment.str(), "");
    }
}

TEST(LdifEntryList, AssignmentToItselfChangesNothing)
{
    LDIF_EntryList list = listOf({"o=a", "o=b"});
    LDIF_EntryList& same = list;
    list = same;
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b"}));
    list = std::move(same);
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b"}));
}

TEST(LdifEntryList, AMovedListLeavesAnEmptyOneThatCanBeUsed)
{
    LDIF_EntryList source = listOf(numbered(20));
    const LDIF_Entry* const first = &source.front();
    LDIF_EntryList target(std::move(source));
    EXPECT_EQ(namesOf(target), numbered(20));
    EXPECT_EQ(&target.front(), first) << "entries keep their addresses";
    EXPECT_TRUE(source.empty());
    source.push_back(entryOf("o=new"));
    EXPECT_EQ(namesOf(source), Names{"o=new"});

    LDIF_EntryList assigned = listOf({"o=gone"});
    assigned = std::move(target);
    EXPECT_EQ(namesOf(assigned), numbered(20));
    EXPECT_TRUE(target.empty());
    EXPECT_EQ(target.equalOrAncestor(dnOf("o=1"), 0), nullptr);
}

TEST(LdifEntryList, AssignReplacesTheEntries)
{
    LDIF_EntryList list = listOf(numbered(15));
    list.assign(2, entryOf("o=x"));
    EXPECT_EQ(namesOf(list), (Names{"o=x", "o=x"}));
    list.assign({entryOf("o=b"), entryOf("o=a"), entryOf("o=c")});
    EXPECT_EQ(namesOf(list), (Names{"o=b", "o=a", "o=c"}));
    const std::vector<LDIF_Entry> others{entryOf("o=p"), entryOf("o=q")};
    list.assign(others.begin(), others.end());
    EXPECT_EQ(namesOf(list), (Names{"o=p", "o=q"}));
    list.assign(others.begin(), others.begin());
    EXPECT_TRUE(list.empty());
    list = {entryOf("o=r")};
    EXPECT_EQ(namesOf(list), Names{"o=r"});
    list.assign(3, list[0]);
    EXPECT_EQ(namesOf(list), (Names{"o=r", "o=r", "o=r"})) << "of an entry of its own";
}

TEST(LdifEntryList, SwapExchangesTheEntries)
{
    LDIF_EntryList left = listOf({"o=a", "o=b"});
    LDIF_EntryList right = listOf(numbered(20));
    left.swap(right);
    EXPECT_EQ(namesOf(left), numbered(20));
    EXPECT_EQ(namesOf(right), (Names{"o=a", "o=b"}));
    swap(left, right);
    EXPECT_EQ(namesOf(left), (Names{"o=a", "o=b"}));
    LDIF_EntryList empty;
    empty.swap(left);
    EXPECT_TRUE(left.empty());
    EXPECT_EQ(namesOf(empty), (Names{"o=a", "o=b"}));
}

// ---- Size and room ----

TEST(LdifEntryList, ReserveMakesRoomAndShrinkingGivesItBack)
{
    LDIF_EntryList list;
    list.reserve(100);
    EXPECT_GE(list.capacity(), 100U);
    EXPECT_TRUE(list.empty());
    list.push_back(entryOf("o=a"));
    EXPECT_GE(list.capacity(), 100U);
    list.reserve(1);
    EXPECT_GE(list.capacity(), 100U) << "reserve never shrinks";
    list.shrink_to_fit();
    EXPECT_LT(list.capacity(), 100U);
    EXPECT_EQ(namesOf(list), Names{"o=a"});
    EXPECT_GE(list.max_size(), static_cast<std::size_t>(std::numeric_limits<int>::max()));
    LDIF_EntryList empty;
    empty.shrink_to_fit();
    EXPECT_TRUE(empty.empty());
}

TEST(LdifEntryList, ResizeCutsOrFills)
{
    LDIF_EntryList list = listOf({"o=a", "o=b", "o=c"});
    list.resize(2);
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b"}));
    list.resize(3);
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b", ""}));
    list.resize(5, entryOf("o=x"));
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b", "", "o=x", "o=x"}));
    list.resize(5, entryOf("o=y"));
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b", "", "o=x", "o=x"}));
    list.resize(6, list[0]);
    EXPECT_EQ(list.back().dn.str(), "o=a");
    list.resize(0);
    EXPECT_TRUE(list.empty());
}

TEST(LdifEntryList, ClearEmptiesAListThatCanBeUsedAgain)
{
    LDIF_EntryList list = listOf(numbered(20));
    list.clear();
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(list.begin() == list.end());
    list.push_back(entryOf("o=a"));
    EXPECT_EQ(namesOf(list), Names{"o=a"});
    list.clear();
    list.clear();
    EXPECT_TRUE(list.empty());
}

// ---- Access ----

TEST(LdifEntryList, GivesItsEntriesByPosition)
{
    LDIF_EntryList list = listOf({"o=a", "o=b", "o=c"});
    const LDIF_EntryList& constant = list;
    EXPECT_EQ(list[1].dn.str(), "o=b");
    EXPECT_EQ(constant[1].dn.str(), "o=b");
    EXPECT_EQ(list.at(2).dn.str(), "o=c");
    EXPECT_EQ(constant.at(2).dn.str(), "o=c");
    EXPECT_EQ(list.front().dn.str(), "o=a");
    EXPECT_EQ(constant.front().dn.str(), "o=a");
    EXPECT_EQ(list.back().dn.str(), "o=c");
    EXPECT_EQ(constant.back().dn.str(), "o=c");
    EXPECT_EQ(&list[1], &constant.at(1));
    list[1].dn = dnOf("o=changed");
    EXPECT_EQ(constant[1].dn.str(), "o=changed");
}

TEST(LdifEntryList, APositionBehindTheEndIsOutOfRange)
{
    LDIF_EntryList list = listOf({"o=a"});
    const LDIF_EntryList& constant = list;
    EXPECT_THROW(static_cast<void>(list.at(1)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(constant.at(1)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(LDIF_EntryList().at(0)), std::out_of_range);
}

TEST(LdifEntryList, EntriesKeepTheirAddressesWhileOthersComeAndGo)
{
    LDIF_EntryList list = listOf({"o=kept", "o=b", "o=c"});
    const LDIF_Entry* const kept = &list.front();
    for (int number = 0; number < 100; ++number) {
        list.push_back(entryOf("o=" + std::to_string(number)));
    }
    list.insert(list.begin(), entryOf("o=first"));
    list.erase(list.begin() + 2, list.begin() + 50);
    EXPECT_EQ(&list[1], kept);
    EXPECT_EQ(kept->dn.str(), "o=kept");
}

// ---- Insertion and removal ----

TEST(LdifEntryList, PushesCopiesAndMoves)
{
    LDIF_EntryList list;
    const LDIF_Entry constant = entryOf("o=a");
    list.push_back(constant);
    LDIF_Entry moved = entryOf("o=b");
    moved.children.push_back(entryOf("cn=below"));
    const LDIF_Entry* const below = &moved.children.front();
    list.push_back(std::move(moved));
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b"}));
    EXPECT_EQ(&list[1].children.front(), below) << "what is below moves along";
    list.push_back(list[0]);
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b", "o=a"}));
    EXPECT_EQ(constant.dn.str(), "o=a");
}

TEST(LdifEntryList, EmplacesEntriesFromTheirArguments)
{
    LDIF_EntryList list;
    LDIF_Entry& back = list.emplace_back(dnOf("o=b"));
    EXPECT_EQ(&back, &list.back());
    EXPECT_EQ(list.emplace_back().dn.str(), "");
    const auto place = list.emplace(list.begin(), dnOf("o=a"));
    EXPECT_TRUE(place == list.begin());
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b", ""}));
}

TEST(LdifEntryList, PopsTheLastEntry)
{
    LDIF_EntryList list = listOf({"o=a", "o=b"});
    list.pop_back();
    EXPECT_EQ(namesOf(list), Names{"o=a"});
    list.pop_back();
    EXPECT_TRUE(list.empty());
}

TEST(LdifEntryList, InsertsBeforeAPositionAndGivesTheFirstNewOne)
{
    LDIF_EntryList list = listOf({"o=a", "o=d"});
    auto place = list.insert(list.begin() + 1, entryOf("o=b"));
    EXPECT_EQ(place - list.begin(), 1);
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b", "o=d"}));

    const LDIF_Entry constant = entryOf("o=c");
    place = list.insert(list.cbegin() + 2, constant);
    EXPECT_EQ(place - list.begin(), 2);
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b", "o=c", "o=d"}));

    place = list.insert(list.end(), 2, entryOf("o=e"));
    EXPECT_EQ(place - list.begin(), 4);
    EXPECT_EQ(namesOf(list), (Names{"o=a", "o=b", "o=c", "o=d", "o=e", "o=e"}));

    const std::vector<LDIF_Entry> others{entryOf("o=1"), entryOf("o=2")};
    place = list.insert(list.begin(), others.begin(), others.end());
    EXPECT_EQ(place - list.begin(), 0);
    place = list.insert(list.begin() + 1, {entryOf("o=3"), entryOf("o=4")});
    EXPECT_EQ(place - list.begin(), 1);
    EXPECT_EQ(namesOf(list), (Names{"o=1", "o=3", "o=4", "o=2", "o=a", "o=b", "o=c", "o=d", "o=e", "o=e"}));

    place = list.insert(list.begin() + 2, others.begin(), others.begin());
    EXPECT_EQ(place - list.begin(), 2);
    place = list.insert(list.begin() + 3, 0, constant);
    EXPECT_EQ(place - list.begin(), 3);
    EXPECT_EQ(list.size(), 10U);
}

TEST(LdifEntryList, InsertsIntoAnEmptyList)
{
    LDIF_EntryList one;
    const auto place = one.insert(one.begin(), entryOf("o=a"));
    EXPECT_TRUE(place == one.begin());
    EXPECT_EQ(namesOf(one), Names{"o=a"});
    LDIF_EntryList two;
    two.insert(two.cend(), {entryOf("o=a"), entryOf("o=b")});
    EXPECT_EQ(namesOf(two), (Names{"o=a", "o=b"}));
}

TEST(LdifEntryList, InsertsACopyOfItsOwnEntry)
{
    LDIF_EntryList list = listOf({"o=a", "o=b"});
    list.insert(list.begin(), list[1]);
    list.insert(list.begin(), 2, list.back());
    EXPECT_EQ(namesOf(list), (Names{"o=b", "o=b", "o=b", "o=a", "o=b"}));
}

TEST(LdifEntryList, ErasesAnEntryOrARangeAndGivesTheNext)
{
    LDIF_EntryList list = listOf(numbered(6));
    auto place = list.erase(list.begin() + 1);
    EXPECT_EQ(place->dn.str(), "o=2");
    place = list.erase(list.cbegin() + 1, list.cbegin() + 3);
    EXPECT_EQ(place->dn.str(), "o=4");
    EXPECT_EQ(namesOf(list), (Names{"o=0", "o=4", "o=5"}));
    place = list.erase(list.begin() + 2);
    EXPECT_TRUE(place == list.end());
    place = list.erase(list.begin(), list.begin());
    EXPECT_TRUE(place == list.begin());
    place = list.erase(list.begin(), list.end());
    EXPECT_TRUE(place == list.end());
    EXPECT_TRUE(list.empty());
}

// ---- Iterators ----

TEST(LdifEntryList, IteratorsStepAndCompareAsPositionsDo)
{
    LDIF_EntryList list = listOf(numbered(5));
    auto place = list.begin();
    EXPECT_EQ((*place).dn.str(), "o=0");
    EXPECT_EQ(place->dn.str(), "o=0");
    EXPECT_EQ((++place)->dn.str(), "o=1");
    EXPECT_EQ((place++)->dn.str(), "o=1");
    EXPECT_EQ((place--)->dn.str(), "o=2");
    EXPECT_EQ((--place)->dn.str(), "o=0");
    EXPECT_EQ((place += 4)->dn.str(), "o=4");
    EXPECT_EQ((place -= 2)->dn.str(), "o=2");
    EXPECT_EQ((place + 1)->dn.str(), "o=3");
    EXPECT_EQ((1 + place)->dn.str(), "o=3");
    EXPECT_EQ((place - 2)->dn.str(), "o=0");
    EXPECT_EQ(place[2].dn.str(), "o=4");
    EXPECT_EQ(place[-1].dn.str(), "o=1");
    EXPECT_EQ(place - list.cbegin(), 2);
    EXPECT_EQ(list.end() - list.begin(), 5);

    const LDIF_EntryList::const_iterator constant = place;
    EXPECT_TRUE(constant == place);
    EXPECT_TRUE(place != place + 1);
    EXPECT_TRUE(place < place + 1);
    EXPECT_TRUE(place + 1 > place);
    EXPECT_TRUE(place <= place);
    EXPECT_TRUE(place >= place);
    EXPECT_FALSE(place < place);
}

TEST(LdifEntryList, ReverseIteratorsStartAtTheEnd)
{
    LDIF_EntryList list = listOf(numbered(3));
    Names names;
    for (auto place = list.rbegin(); place != list.rend(); ++place) {
        names.push_back(place->dn.str());
    }
    const LDIF_EntryList& constant = list;
    for (auto place = constant.rbegin(); place != constant.rend(); ++place) {
        names.push_back(place->dn.str());
    }
    for (auto place = list.crbegin(); place != list.crend(); ++place) {
        names.push_back(place->dn.str());
    }
    EXPECT_EQ(names, (Names{"o=2", "o=1", "o=0", "o=2", "o=1", "o=0", "o=2", "o=1", "o=0"}));
}

TEST(LdifEntryList, TheStandardAlgorithmsWork)
{
    LDIF_EntryList list = listOf(numbered(9));
    for (auto& entry : list) {
        entry.children.push_back(entryOf("cn=below," + entry.dn.str()));
    }
    std::shuffle(list.begin(), list.end(), std::mt19937(4711)); // NOLINT: any fixed order serves
    EXPECT_NE(namesOf(list), numbered(9));
    std::sort(list.begin(), list.end(), byName);
    EXPECT_EQ(namesOf(list), numbered(9));
    for (const auto& entry : list) {
        EXPECT_EQ(entry.children.size(), 1U);
        EXPECT_NE(entry.children[0].dn.str().find(entry.dn.str()), std::string::npos) << "children stay with theirs";
    }

    const auto found = std::lower_bound(list.begin(), list.end(), entryOf("o=4"), byName);
    EXPECT_EQ(found - list.begin(), 4);
    EXPECT_EQ(std::distance(list.begin(), list.end()), 9);
    EXPECT_EQ(std::count_if(list.cbegin(), list.cend(), [](const auto& entry) { return entry.dn.size() == 1; }), 9);
    std::rotate(list.begin(), list.begin() + 3, list.end());
    EXPECT_EQ(list.front().dn.str(), "o=3");
    std::reverse(list.begin(), list.end());
    EXPECT_EQ(list.front().dn.str(), "o=2");
    std::iter_swap(list.begin(), list.begin() + 1);
    EXPECT_EQ(list.front().dn.str(), "o=1");
    std::stable_sort(list.begin(), list.end(), byName);
    EXPECT_EQ(namesOf(list), numbered(9));
    list.erase(
        std::remove_if(list.begin(), list.end(), [](const LDIF_Entry& entry) { return entry.dn.str() == "o=4"; }),
        list.end());
    EXPECT_EQ(list.size(), 8U);
    std::partial_sort(list.begin(), list.begin() + 2, list.end(),
                      [](const auto& left, const auto& right) { return byName(right, left); });
    EXPECT_EQ(list[0].dn.str(), "o=8");
    EXPECT_EQ(list[1].dn.str(), "o=7");
    std::ranges::sort(list, std::less<>(), [](const LDIF_Entry& entry) { return entry.dn.str(); });
    EXPECT_EQ(list.back().dn.str(), "o=8");
    LDIF_EntryList copies;
    std::copy(list.begin(), list.end(), std::back_inserter(copies));
    EXPECT_EQ(namesOf(copies), namesOf(list));
    const std::vector<LDIF_Entry> plain(list.begin(), list.end());
    EXPECT_EQ(plain.size(), 8U);
}

// ---- What the tree asks ----

TEST(LdifEntryList, GivesTheChildThatIsEqualOrAnAncestor)
{
    for (const std::size_t width : {0U, 8U, 9U, 10U, 50U}) {
        SCOPED_TRACE(width);
        LDIF_EntryList list = listOf(numbered(width));
        list.push_back(entryOf("o=x"));
        list.push_back(entryOf("cn=a,ou=b,o=y"));
        const struct
        {
            const char* dn;
            std::size_t from;
            const char* answer;
        } rows[] = {
            {"O=X", 0, "o=x"},
            {"cn=deep,cn=c,o=x", 0, "o=x"},
            {"CN=A,OU=B,O=Y", 0, "cn=a, ou=b, o=y"},
            {"sn=z,cn=a,ou=b,o=y", 0, "cn=a, ou=b, o=y"},
            {"ou=b,o=y", 0, ""},
            {"o=y", 0, ""},
            {"o=none", 0, ""},
            {"", 0, ""},
            {"o=x,o=above", 1, "o=x"},
            {"cn=below,o=x,o=higher,o=above", 2, "o=x"},
            {"o=x,o=above", 0, ""},
            {"o=x", 1, ""},
            {"cn=a,ou=b,o=y,o=above", 1, "cn=a, ou=b, o=y"},
        };
        for (const auto& row : rows) {
            SCOPED_TRACE(row.dn);
            const LDIF_Entry* const answer = list.equalOrAncestor(dnOf(row.dn), row.from);
            EXPECT_EQ(answer == nullptr ? "" : answer->dn.str(), row.answer);
        }
    }
    EXPECT_EQ(LDIF_EntryList().equalOrAncestor(dnOf("o=x"), 0), nullptr);
}

TEST(LdifEntryList, TakesTheDescendantsOutInOrder)
{
    for (const std::size_t width : {0U, 50U}) {
        SCOPED_TRACE(width);
        LDIF_EntryList list = listOf(numbered(width));
        for (const char* const dn : {"cn=b,o=x", "o=y", "cn=c,ou=d,o=x", "cn=a,o=x", "cn=a,o=z"}) {
            list.push_back(entryOf(dn));
        }
        const LDIF_Entry* const last = &list.back();
        auto taken = takenFrom(list, dnOf("O=X"), 0);
        ASSERT_EQ(taken.size(), 3U);
        EXPECT_EQ(taken[0]->dn.str(), "cn=b, o=x");
        EXPECT_EQ(taken[1]->dn.str(), "cn=c, ou=d, o=x");
        EXPECT_EQ(taken[2]->dn.str(), "cn=a, o=x");

        Names expected = numbered(width);
        expected.insert(expected.end(), {"o=y", "cn=a, o=z"});
        EXPECT_EQ(list.size(), width + 2);
        EXPECT_EQ(walked(list), expected) << "holes are skipped";
        EXPECT_EQ(list.equalOrAncestor(dnOf("cn=a,o=x"), 0), nullptr);
        EXPECT_EQ(list.equalOrAncestor(dnOf("cn=a,o=z"), 0), last);
        EXPECT_TRUE(takenFrom(list, dnOf("o=x"), 0).empty()) << "nothing is left to take";
        EXPECT_TRUE(takenFrom(list, dnOf("cn=a,o=z"), 0).empty()) << "equal is not below";
        EXPECT_EQ(namesOf(list), expected) << "holes are closed";
        EXPECT_EQ(takenFrom(list, dnOf("o=z,o=above"), 1).size(), 1U);
    }
    EXPECT_TRUE(takenFrom(LDIF_EntryList(), dnOf("o=x"), 0).empty());
}

TEST(LdifEntryList, WhatCannotBeTakenStaysWhereItIs)
{
    for (const std::size_t width : {0U, 50U}) {
        SCOPED_TRACE(width);
        LDIF_EntryList list = listOf(numbered(width));
        for (const char* const dn : {"cn=a,o=x", "cn=b,o=x", "cn=c,o=x"}) {
            list.push_back(entryOf(dn));
        }
        std::vector<std::unique_ptr<LDIF_Entry>> taken;
        EXPECT_THROW(list.giveAway(dnOf("o=x"), 0,
                                   [&](std::unique_ptr<LDIF_Entry>&& entry) {
                                       if (entry->dn.str() == "cn=b, o=x") {
                                           throw std::runtime_error("full");
                                       }
                                       taken.push_back(std::move(entry));
                                   }),
                     std::runtime_error);
        Names expected = numbered(width);
        expected.push_back("cn=b, o=x");
        EXPECT_EQ(walked(list), expected);
        EXPECT_EQ(list.size(), width + 1);
        EXPECT_EQ(taken.size(), 2U);
        EXPECT_EQ(takenFrom(list, dnOf("o=x"), 0).size(), 1U) << "it can be taken later";
    }
}

TEST(LdifEntryList, HolesShowInNoPositionCopyOrSize)
{
    Names expected;
    LDIF_EntryList list;
    for (int number = 0; number < 40; ++number) {
        list.push_back(entryOf("cn=" + std::to_string(number) + (number % 4 == 1 ? ",o=x" : ",o=y")));
        if (number % 4 != 1) {
            expected.push_back(list.back().dn.str());
        }
    }
    const auto holed = [&] {
        LDIF_EntryList copy = list;
        takenFrom(copy, dnOf("o=x"), 0);
        return copy;
    };
    const std::string first = expected.front();
    const std::string last = expected.back();
    const struct
    {
        const char* name;
        void (*change)(LDIF_EntryList& list);
        void (*expect)(Names& names);
    } rows[] = {
        {"nothing", [](LDIF_EntryList&) {}, [](Names&) {}},
        {"push_back", [](LDIF_EntryList& l) { l.push_back(entryOf("o=n")); }, [](Names& n) { n.push_back("o=n"); }},
        {"append", [](LDIF_EntryList& l) { appendTo(l, std::make_unique<LDIF_Entry>(dnOf("o=n"))); },
         [](Names& n) { n.push_back("o=n"); }},
        {"pop_back", [](LDIF_EntryList& l) { l.pop_back(); }, [](Names& n) { n.pop_back(); }},
        {"insert", [](LDIF_EntryList& l) { l.insert(l.begin() + 3, entryOf("o=n")); },
         [](Names& n) { n.insert(n.begin() + 3, "o=n"); }},
        {"insert several", [](LDIF_EntryList& l) { l.insert(l.cbegin() + 3, 2, entryOf("o=n")); },
         [](Names& n) { n.insert(n.begin() + 3, 2, "o=n"); }},
        {"erase", [](LDIF_EntryList& l) { l.erase(l.begin() + 3, l.begin() + 5); },
         [](Names& n) { n.erase(n.begin() + 3, n.begin() + 5); }},
        {"resize up", [](LDIF_EntryList& l) { l.resize(l.size() + 1, entryOf("o=n")); },
         [](Names& n) { n.push_back("o=n"); }},
        {"resize down", [](LDIF_EntryList& l) { l.resize(3); }, [](Names& n) { n.resize(3); }},
        {"shrink", [](LDIF_EntryList& l) { l.shrink_to_fit(); }, [](Names&) {}},
        {"emplace", [](LDIF_EntryList& l) { l.emplace(l.cbegin(), dnOf("o=n")); },
         [](Names& n) { n.insert(n.begin(), "o=n"); }},
        {"emplace_back", [](LDIF_EntryList& l) { l.emplace_back(dnOf("o=n")); }, [](Names& n) { n.push_back("o=n"); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_EntryList changed = holed();
        EXPECT_EQ(changed.size(), 30U);
        Names wanted = expected;
        row.change(changed);
        row.expect(wanted);
        EXPECT_EQ(changed.size(), wanted.size());
        EXPECT_EQ(walked(changed), wanted);
        EXPECT_EQ(namesOf(changed), wanted);
        for (const auto& name : wanted) {
            EXPECT_NE(changed.equalOrAncestor(dnOf(name), 0), nullptr) << name;
        }
    }
    LDIF_EntryList positions = holed();
    EXPECT_EQ(positions[1].dn.str(), expected[1]);
    positions = holed();
    EXPECT_EQ(positions.at(29).dn.str(), last);
    positions = holed();
    EXPECT_THROW(static_cast<void>(positions.at(30)), std::out_of_range);
    positions = holed();
    EXPECT_EQ(positions.front().dn.str(), first);
    positions = holed();
    EXPECT_EQ(positions.back().dn.str(), last);
    EXPECT_EQ(std::as_const(positions).rbegin()->dn.str(), last);
    const LDIF_EntryList copy(holed());
    EXPECT_EQ(namesOf(copy), expected);
}

TEST(LdifEntryList, AListOfHolesAloneIsEmpty)
{
    for (const int width : {3, 30}) {
        SCOPED_TRACE(width);
        LDIF_EntryList list;
        for (int number = 0; number < width; ++number) {
            list.push_back(entryOf("cn=" + std::to_string(number) + ",o=x"));
        }
        EXPECT_EQ(takenFrom(list, dnOf("o=x"), 0).size(), static_cast<std::size_t>(width));
        EXPECT_TRUE(list.empty());
        EXPECT_EQ(walked(list), Names());
        EXPECT_TRUE(list.begin() == list.end());
        EXPECT_EQ(list.equalOrAncestor(dnOf("cn=1,o=x"), 0), nullptr);
        list.push_back(entryOf("cn=1,o=x"));
        EXPECT_EQ(namesOf(list), Names{"cn=1, o=x"});
    }
}

TEST(LdifEntryList, AppendGivesTheEntryThatItTookOver)
{
    LDIF_EntryList list;
    auto entry = std::make_unique<LDIF_Entry>(dnOf("o=a"));
    const LDIF_Entry* const address = entry.get();
    EXPECT_EQ(&appendTo(list, std::move(entry)), address);
    EXPECT_EQ(&list.front(), address);
}

TEST(LdifEntryList, RemovesAChildOfItsOwn)
{
    for (const std::size_t width : {3U, 30U}) {
        SCOPED_TRACE(width);
        LDIF_EntryList list = listOf(numbered(width));
        list.remove(*list.equalOrAncestor(dnOf("o=1"), 0));
        list.remove(list[1]);
        EXPECT_EQ(list.size(), width - 2);
        EXPECT_EQ(list.equalOrAncestor(dnOf("o=1"), 0), nullptr);
        EXPECT_EQ(list.equalOrAncestor(dnOf("o=2"), 0), nullptr);
        EXPECT_NE(list.equalOrAncestor(dnOf("o=0"), 0), nullptr);
        Names expected = numbered(width);
        expected.erase(expected.begin() + 1, expected.begin() + 3);
        EXPECT_EQ(namesOf(list), expected);
    }
}

TEST(LdifEntryList, RemovesTheVeryChildAmongEqualOnes)
{
    for (const std::size_t width : {3U, 30U}) {
        SCOPED_TRACE(width);
        LDIF_EntryList list = listOf(numbered(width));
        list.push_back(entryOf("o=1"));
        const LDIF_Entry* const first = &list[1];
        list.remove(list.back());
        EXPECT_EQ(namesOf(list), numbered(width));
        EXPECT_EQ(&list[1], first);
    }
}

TEST(LdifEntryList, TheWalkGoesOnFromAnySlot)
{
    const LDIF_EntryList list = listOf({"o=a", "o=b"});
    std::size_t slot = 0;
    EXPECT_EQ(list.nextFrom(slot), &list[0]);
    EXPECT_EQ(list.nextFrom(slot), &list[1]);
    EXPECT_EQ(list.nextFrom(slot), nullptr);
    EXPECT_EQ(list.nextFrom(slot), nullptr);
    slot = 1;
    EXPECT_EQ(list.nextFrom(slot), &list[1]);
    std::size_t none = 0;
    EXPECT_EQ(LDIF_EntryList().nextFrom(none), nullptr);
}

TEST(LdifEntryList, AnySequenceOfCallsAgreesWithAVector)
{
    EXPECT_TRUE(rc::check([] {
        LDIF_EntryList list;
        Names plain;
        const auto calls = *rc::gen::container<std::vector<int>>(60, rc::gen::inRange(0, 10));
        int number = 0;
        for (const int call : calls) {
            // Every third name lies below "o=x", so that taking descendants leaves holes.
            std::string name = "o=" + std::to_string(number);
            if (number % 3 == 0) {
                name = "cn=" + std::to_string(number) + ", o=x";
            }
            ++number;
            const auto place = static_cast<std::ptrdiff_t>(*rc::gen::inRange<std::size_t>(0, plain.size() + 1));
            switch (call) {
            case 0:
            case 1:
            case 2:
                list.push_back(entryOf(name));
                plain.push_back(name);
                break;
            case 3:
            case 4:
                appendTo(list, std::make_unique<LDIF_Entry>(dnOf(name)));
                plain.push_back(name);
                break;
            case 5:
                list.insert(list.cbegin() + place, entryOf(name));
                plain.insert(plain.begin() + place, name);
                break;
            case 6:
                if (place < std::ssize(plain)) {
                    list.erase(list.begin() + place);
                    plain.erase(plain.begin() + place);
                }
                break;
            case 7:
                if (place < std::ssize(plain)) {
                    list.remove(*list.equalOrAncestor(dnOf(plain[static_cast<std::size_t>(place)]), 0));
                    plain.erase(plain.begin() + place);
                }
                break;
            case 8: {
                Names taken;
                for (const auto& entry : takenFrom(list, dnOf("o=x"), 0)) {
                    taken.push_back(entry->dn.str());
                }
                Names wanted;
                std::copy_if(plain.begin(), plain.end(), std::back_inserter(wanted),
                             [](const std::string& text) { return text.ends_with(", o=x"); });
                RC_ASSERT(taken == wanted);
                std::erase_if(plain, [](const std::string& text) { return text.ends_with(", o=x"); });
                break;
            }
            default:
                list = LDIF_EntryList(list);
                break;
            }
            RC_ASSERT(list.size() == plain.size());
            RC_ASSERT(walked(list) == plain);
            for (const auto& wanted : plain) {
                const LDIF_Entry* const answer = list.equalOrAncestor(dnOf(wanted), 0);
                RC_ASSERT(answer != nullptr);
                RC_ASSERT(answer->dn.str() == wanted);
            }
        }
        RC_ASSERT(namesOf(list) == plain);
    }));
}

// ---- Deep trees ----

namespace {

constexpr int depth = 20000;

/// A chain of entries, one below the other.
LDIF_Entry chain()
{
    LDIF_Entry top = entryOf("cn=leaf");
    for (int level = 0; level < depth; ++level) {
        LDIF_Entry parent = entryOf("cn=node");
        parent.children.push_back(std::move(top));
        top = std::move(parent);
    }
    return top;
}

/// Runs work on a thread with this little stack.
void withStack(std::size_t bytes, void (*work)())
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
    pthread_t thread{};
    const auto run = [](void* given) -> void* {
        (*static_cast<void (**)()>(given))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

// 20,000 levels at 6 bytes each do not fit, so no call per level can.
constexpr std::size_t littleStack = std::size_t{128} * 1024;

} // namespace

TEST(LdifEntryList, ADeepTreeIsFreedWithoutStack)
{
    withStack(littleStack, [] {
        LDIF_Entry destroyed = chain();
        EXPECT_EQ(destroyed.children.size(), 1U);
    });
    withStack(littleStack, [] {
        LDIF_Entry cleared = chain();
        cleared.clear();
        EXPECT_TRUE(cleared.children.empty());
    });
    withStack(littleStack, [] {
        LDIF_Entry erased = chain();
        erased.children.erase(erased.children.begin());
        EXPECT_TRUE(erased.children.empty());
    });
    withStack(littleStack, [] {
        LDIF_Entry removed = chain();
        removed.children.remove(removed.children[0]);
        EXPECT_TRUE(removed.children.empty());
    });
    withStack(littleStack, [] {
        LDIF_Entry assigned = chain();
        assigned = entryOf("o=x");
        EXPECT_TRUE(assigned.children.empty());
    });
    withStack(littleStack, [] {
        LDIF_Entry popped = chain();
        popped.children.pop_back();
        popped.children.resize(0);
        EXPECT_TRUE(popped.children.empty());
    });
}

TEST(LdifEntryList, ADeepTreeIsWalkedWithoutStack)
{
    withStack(littleStack, [] {
        const LDIF_Entry top = chain();
        int count = 0;
        std::size_t deepest = 0;
        for (veltor::detail::TreeWalk walk(top); walk.current() != nullptr; walk.next()) {
            ++count;
            deepest = std::max(deepest, walk.depth());
        }
        EXPECT_EQ(count, depth + 1);
        EXPECT_EQ(deepest, static_cast<std::size_t>(depth));
        std::string text;
        top.appendTreeTo(text);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2 * (depth + 1));
    });
}
