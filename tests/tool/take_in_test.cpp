// Two changes of one text.
#include "take_in.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

using veltor::tool::takeIn;
using veltor::tool::TakenIn;

namespace {

/// A text with a line for each character.
std::string lines(const std::string& characters)
{
    std::string text;
    for (const char character : characters) {
        text += std::string(1, character) + '\n';
    }
    return text;
}

std::string textOf(const TakenIn& taken)
{
    return {taken.text.begin(), taken.text.end()};
}

std::string changedAtRandom(const std::string& characters, std::mt19937& random, char letter)
{
    std::string changed;
    for (const char character : characters) {
        switch (random() % 8) {
        case 0:
            break;
        case 1:
            changed += letter;
            break;
        case 2:
            changed += {letter, character};
            break;
        default:
            changed += character;
        }
    }
    return changed;
}

} // namespace

TEST(TakeIn, BringsBothChangesTogether)
{
    struct Row
    {
        const char *base, *mine, *theirs, *result;
        std::vector<std::size_t> overlaps;
    };
    const Row rows[] = {
        {"abc", "abc", "abc", "abc", {}},
        {"abc", "aXc", "abc", "aXc", {}},
        {"abc", "abc", "aYc", "aYc", {}},
        {"abcde", "aXcde", "abcYe", "aXcYe", {}},
        {"abcde", "abcXe", "aYcde", "aYcXe", {}},
        // Neighbours do not overlap.
        {"abcd", "aXcd", "abYd", "aXYd", {}},
        {"abcd", "abXd", "aYcd", "aYXd", {}},
        {"abcd", "acd", "abYd", "aYd", {}},
        // What comes in in front of a line, and a change of that line.
        {"abc", "aXbc", "aYc", "aXYc", {}},
        {"abc", "aXc", "aYbc", "aYXc", {}},
        {"abc", "abXc", "aYc", "aYXc", {}},
        // The same change of both.
        {"abc", "aXc", "aXc", "aXc", {}},
        {"abc", "ac", "ac", "ac", {}},
        {"abc", "abXc", "abXc", "abXc", {}},
        // Both have changed the same lines: mine stand there.
        {"abc", "aXc", "aYc", "aXc", {2}},
        {"abc", "aXc", "ac", "aXc", {2}},
        {"abc", "ac", "aYc", "ac", {2}},
        {"abcde", "aXe", "abYde", "aXe", {2}},
        {"abcde", "abXde", "aYe", "abXde", {2}},
        {"abcdefgh", "aXXdefgZ", "aYcdefgY", "aXXdefgZ", {2, 8}},
        // What stands beside them is theirs.
        {"abcd", "aXcd", "aYYd", "aXYd", {2}},
        {"abcd", "abXd", "aYYd", "aYXd", {3}},
        // Both have put lines into one place.
        {"abc", "abXc", "abYc", "abYXc", {3}},
        {"abc", "abcX", "abcY", "abcYX", {4}},
        {"", "X", "Y", "YX", {1}},
        {"abc", "", "abc", "", {}},
        {"abc", "", "abYc", "", {1}},
    };
    for (const Row& row : rows) {
        const TakenIn taken = takeIn(lines(row.base), lines(row.mine), lines(row.theirs));
        EXPECT_EQ(textOf(taken), lines(row.result)) << row.base << ' ' << row.mine << ' ' << row.theirs;
        EXPECT_EQ(taken.overlaps, row.overlaps) << row.base << ' ' << row.mine << ' ' << row.theirs;
    }
}

TEST(TakeIn, LineWithoutALineFeedStaysALine)
{
    EXPECT_EQ(textOf(takeIn("a\nb", "X\nb", "a\nb\nY\n")), "X\nb\nY\n");
    EXPECT_EQ(textOf(takeIn("a\nb", "a\nb", "Y\nb")), "Y\nb");
}

TEST(TakeIn, EveryLineThatIsMineAloneIsThereAndOneSidedChangesAreTheSide)
{
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        const std::string base = std::string("abcdefghijkl").substr(0, random() % 13);
        const std::string mine = changedAtRandom(base, random, 'X');
        const std::string theirs = changedAtRandom(base, random, 'Y');
        EXPECT_EQ(textOf(takeIn(lines(base), lines(mine), lines(base))), lines(mine));
        EXPECT_EQ(textOf(takeIn(lines(base), lines(base), lines(theirs))), lines(theirs));
        const TakenIn taken = takeIn(lines(base), lines(mine), lines(theirs));
        const std::string text = textOf(taken);
        EXPECT_EQ(std::count(text.begin(), text.end(), 'X'), std::count(mine.begin(), mine.end(), 'X'))
            << base << ' ' << mine << ' ' << theirs;
        if (taken.overlaps.empty()) {
            EXPECT_EQ(std::count(text.begin(), text.end(), 'Y'), std::count(theirs.begin(), theirs.end(), 'Y'))
                << base << ' ' << mine << ' ' << theirs;
        }
        // Whoever sits where changes nothing, unless both have changed the same.
        if (taken.overlaps.empty()) {
            EXPECT_EQ(textOf(takeIn(lines(base), lines(theirs), lines(mine))), text)
                << base << ' ' << mine << ' ' << theirs;
        }
    }
}
