// The dynamic array of the data model, held against std::vector: contents after any operations, how long elements live,
// and what a copy that fails leaves behind.
#include "list.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <numeric>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using veltor::detail::List;

namespace {

struct CopyFailed : std::runtime_error
{
    CopyFailed() : std::runtime_error("copy") {}
};

/// An element that knows where it lives. Copies fail on command; moves never do.
class Element
{
public:
    explicit Element(int number = 0) : number_(number) { begin(); }
    Element(const Element& other) : number_(other.number())
    {
        failOnCommand();
        begin();
        ++copies;
    }
    Element(Element&& other) noexcept : number_(std::exchange(other.number_, movedFrom))
    {
        begin();
        ++moves;
    }
    Element& operator=(const Element& other)
    {
        failOnCommand();
        number_ = other.number();
        ++copies;
        return *this;
    }
    Element& operator=(Element&& other) noexcept
    {
        number_ = std::exchange(other.number_, movedFrom);
        ++moves;
        return *this;
    }
    ~Element()
    {
        if (alive.erase(this) != 1) {
            ++strayLives;
        }
    }

    int number() const
    {
        if (alive.count(this) == 0) {
            ++strayLives;
        }
        return number_;
    }
    friend bool operator==(const Element& left, const Element& right) { return left.number() == right.number(); }

    static void reset()
    {
        alive.clear();
        strayLives = copies = moves = 0;
        copiesUntilFailure = -1;
    }

    static inline std::set<const Element*> alive;
    static inline int strayLives = 0; // begun twice, ended twice, or read outside of a life
    static inline int copies = 0;
    static inline int moves = 0;
    static inline int copiesUntilFailure = -1;

private:
    static constexpr int movedFrom = -1;

    static void failOnCommand()
    {
        if (copiesUntilFailure == 0) {
            copiesUntilFailure = -1;
            throw CopyFailed();
        }
        copiesUntilFailure -= copiesUntilFailure > 0 ? 1 : 0;
    }
    void begin()
    {
        if (!alive.insert(this).second) {
            ++strayLives;
        }
    }

    int number_;
};

template <class Sequence>
std::vector<int> numbersOf(const Sequence& sequence)
{
    std::vector<int> numbers;
    for (const Element& element : sequence) {
        numbers.push_back(element.number());
    }
    return numbers;
}

struct Command
{
    unsigned operation;
    unsigned place;
    unsigned amount;
};

constexpr unsigned operations = 24;

/// Runs a command on a list or on a vector. What it says about places is cut to what there is.
template <class Sequence>
void run(const Command& command, int number, Sequence& sequence, Sequence& other)
{
    const auto at = [&sequence](std::size_t offset) { return sequence.begin() + static_cast<std::ptrdiff_t>(offset); };
    const std::size_t place = command.place % (sequence.size() + 1);
    const std::size_t amount = command.amount % 7;
    const std::size_t behind = std::min(sequence.size(), place + amount);
    const Element fresh(number);
    switch (command.operation) {
    case 0:
    case 1:
    case 2:
        sequence.push_back(fresh);
        break;
    case 3:
        sequence.push_back(Element(number));
        break;
    case 4:
        sequence.emplace_back(number);
        break;
    case 5:
        if (!sequence.empty()) {
            sequence.push_back(sequence.front());
        }
        break;
    case 6:
        sequence.insert(at(place), fresh);
        break;
    case 7:
        sequence.insert(at(place), Element(number));
        break;
    case 8:
        if (!sequence.empty()) {
            sequence.insert(at(place), sequence[command.amount % sequence.size()]);
        }
        break;
    case 9:
        sequence.insert(at(place), amount, fresh);
        break;
    case 10:
        sequence.insert(at(place), other.begin(), other.end());
        break;
    case 11:
        sequence.insert(at(place), {fresh, Element(number + 1)});
        break;
    case 12:
        if (place < sequence.size()) {
            sequence.erase(at(place));
        }
        break;
    case 13:
        sequence.erase(at(place), at(behind));
        break;
    case 14:
        sequence.resize(command.amount % 9);
        break;
    case 15:
        sequence.resize(command.amount % 9, fresh);
        break;
    case 16:
        sequence.assign(amount, fresh);
        break;
    case 17:
        sequence.assign(at(place), at(behind));
        break;
    case 18:
        if (!sequence.empty()) {
            sequence.pop_back();
        }
        break;
    case 19:
        sequence.reserve(command.amount % 20);
        break;
    case 20:
        sequence.shrink_to_fit();
        break;
    case 21:
        sequence.swap(other);
        break;
    case 22:
        other = sequence;
        break;
    default:
        other = std::move(sequence);
        sequence.clear();
        break;
    }
}

rc::Gen<std::vector<Command>> commands()
{
    const auto number = [] { return rc::gen::inRange(0U, 1000U); };
    return rc::gen::container<std::vector<Command>>(
        rc::gen::build<Command>(rc::gen::set(&Command::operation, rc::gen::inRange(0U, operations)),
                                rc::gen::set(&Command::place, number()), rc::gen::set(&Command::amount, number())));
}

template <std::size_t inPlace>
void behavesLikeAVector()
{
    const auto script = *commands();
    Element::reset();
    {
        List<Element, inPlace> list;
        List<Element, inPlace> other;
        std::vector<Element> model;
        std::vector<Element> otherModel;
        int number = 0;
        for (const Command& command : script) {
            number += 10;
            run(command, number, list, other);
            run(command, number, model, otherModel);
            RC_ASSERT(numbersOf(list) == numbersOf(model));
            RC_ASSERT(numbersOf(other) == numbersOf(otherModel));
            RC_ASSERT(list.size() == model.size());
            RC_ASSERT(list.empty() == model.empty());
            RC_ASSERT(list.capacity() >= list.size());
            RC_ASSERT(Element::alive.size() == 2 * (model.size() + otherModel.size()));
        }
        const List<Element, inPlace> copy(list);
        RC_ASSERT(copy == list);
        List<Element, inPlace> moved(std::move(list));
        RC_ASSERT(numbersOf(moved) == numbersOf(model));
        RC_ASSERT(list.empty());
    }
    RC_ASSERT(Element::alive.empty());
    RC_ASSERT(Element::strayLives == 0);
}

template <std::size_t inPlace>
void losesNothingWhenACopyFails()
{
    const auto script = *commands();
    const auto failing = *rc::gen::build<Command>(rc::gen::set(&Command::operation, rc::gen::inRange(0U, operations)),
                                                  rc::gen::set(&Command::place, rc::gen::inRange(0U, 1000U)),
                                                  rc::gen::set(&Command::amount, rc::gen::inRange(0U, 1000U)));
    const int copiesBefore = *rc::gen::inRange(0, 4);
    Element::reset();
    {
        List<Element, inPlace> list;
        List<Element, inPlace> other;
        for (const Command& command : script) {
            run(command, 1, list, other);
        }
        const auto before = numbersOf(list);
        const auto otherBefore = numbersOf(other);
        Element::copiesUntilFailure = copiesBefore;
        try {
            run(failing, 2, list, other);
        } catch (const CopyFailed&) {
            RC_ASSERT(numbersOf(list) == before);
            RC_ASSERT(numbersOf(other) == otherBefore);
            RC_ASSERT(Element::alive.size() == list.size() + other.size());
            RC_TAG("failed");
        }
        Element::copiesUntilFailure = -1;
    }
    RC_ASSERT(Element::alive.empty());
    RC_ASSERT(Element::strayLives == 0);
}

} // namespace

RC_GTEST_PROP(List, BehavesLikeAVector, ())
{
    behavesLikeAVector<0>();
}

RC_GTEST_PROP(List, BehavesLikeAVectorWithOneInPlace, ())
{
    behavesLikeAVector<1>();
}

RC_GTEST_PROP(List, BehavesLikeAVectorWithThreeInPlace, ())
{
    behavesLikeAVector<3>();
}

RC_GTEST_PROP(List, LosesNothingWhenACopyFails, ())
{
    losesNothingWhenACopyFails<0>();
    losesNothingWhenACopyFails<1>();
    losesNothingWhenACopyFails<3>();
}

TEST(List, ACopyThatFailsLeavesNoElementsBehind)
{
    Element::reset();
    {
        const List<Element, 1> list{Element(1), Element(2), Element(3)};
        for (const int copies : {0, 1, 2}) {
            SCOPED_TRACE(copies);
            Element::copiesUntilFailure = copies;
            EXPECT_THROW((List<Element, 1>(list)), CopyFailed);
            EXPECT_EQ(Element::alive.size(), 3U);
        }
    }
    EXPECT_TRUE(Element::alive.empty());
    EXPECT_EQ(Element::strayLives, 0);
}

TEST(List, HeadsAreSmall)
{
    EXPECT_EQ(sizeof(List<Element>), 16U);
    EXPECT_EQ(sizeof(List<Element, 1>), 16U);
    EXPECT_EQ((sizeof(List<std::pair<void*, void*>, 1>)), 24U);
}

TEST(List, GrowingMovesAndDoesNotCopy)
{
    Element::reset();
    {
        List<Element, 1> list;
        for (int number = 0; number < 100; ++number) {
            list.emplace_back(number);
        }
        EXPECT_EQ(Element::copies, 0);
        // Room grows by a part of the size, so all moves together are a multiple of it.
        EXPECT_LT(Element::moves, 500);
        list.insert(list.begin(), Element(-5));
        EXPECT_EQ(Element::copies, 0);
        EXPECT_EQ(list.front().number(), -5);
        EXPECT_EQ(list.back().number(), 99);
    }
    EXPECT_EQ(Element::strayLives, 0);
}

TEST(List, ElementsInPlaceNeedNoMemory)
{
    List<Element, 3> list;
    EXPECT_EQ(list.capacity(), 3U);
    list.resize(3);
    EXPECT_EQ(list.capacity(), 3U);
    const void* const inside = list.data();
    EXPECT_GE(inside, static_cast<const void*>(&list));
    EXPECT_LT(inside, static_cast<const void*>(&list + 1));
    list.resize(4);
    EXPECT_NE(static_cast<const void*>(list.data()), inside);
    list.resize(2);
    list.shrink_to_fit();
    EXPECT_EQ(static_cast<const void*>(list.data()), inside);
}

TEST(List, MovingALongListKeepsItsElementsWhereTheyAre)
{
    List<std::string, 1> list{"a", "b"};
    const std::string* const elements = list.data();
    List<std::string, 1> moved(std::move(list));
    EXPECT_EQ(moved.data(), elements);
    EXPECT_TRUE(list.empty());
    list.push_back("c");
    EXPECT_EQ(list.back(), "c");
}

TEST(List, AnswersFromBothEnds)
{
    const List<int, 1> list{1, 2, 3};
    EXPECT_EQ(list.front(), 1);
    EXPECT_EQ(list.back(), 3);
    EXPECT_EQ(list[1], 2);
    EXPECT_EQ(list.at(2), 3);
    EXPECT_THROW((void)list.at(3), std::out_of_range);
    EXPECT_EQ(std::vector<int>(list.rbegin(), list.rend()), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(std::vector<int>(list.crbegin(), list.crend()), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(std::accumulate(list.cbegin(), list.cend(), 0), 6);
    EXPECT_TRUE((list == List<int, 1>{1, 2, 3}));
    EXPECT_TRUE((list != List<int, 1>{1, 2}));
    EXPECT_TRUE((list != List<int, 1>{1, 2, 4}));
}

TEST(List, AssigningAListToItselfKeepsIt)
{
    for (const std::size_t size : {1U, 2U, 9U}) {
        SCOPED_TRACE(size);
        List<std::string, 1> list(size, "a text that does not fit into a string itself");
        const List<std::string, 1> before(list);
        const List<std::string, 1>& same = list;
        list = same;
        EXPECT_TRUE(list == before);
        list.swap(list);
        EXPECT_TRUE(list == before);
    }
}

TEST(List, MoreElementsThanAListMayHoldAreRefused)
{
    List<int> list;
    EXPECT_THROW(list.reserve(std::size_t{1} << 31U), std::length_error);
    EXPECT_TRUE(list.empty());
}
