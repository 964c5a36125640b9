// Tests of what misspelt words may have meant.
#include "nearest.h"

#include <gtest/gtest.h>

namespace {

using namespace veltor::tool;

const std::vector<std::string> words{"get", "set", "search", "status", "add", "auth", "completion"};

TEST(Nearest, TyposAreLettersPutInLeftOutReplacedAndExchanged)
{
    EXPECT_EQ(typosBetween("search", "search"), 0U);
    EXPECT_EQ(typosBetween("serch", "search"), 1U);
    EXPECT_EQ(typosBetween("ssearch", "search"), 1U);
    EXPECT_EQ(typosBetween("searcg", "search"), 1U);
    EXPECT_EQ(typosBetween("saerch", "search"), 1U);
    EXPECT_EQ(typosBetween("", "get"), 3U);
    EXPECT_GT(typosBetween(std::string(1000, 'a'), std::string(1000, 'a')), 20U);
}

TEST(Nearest, WordsAreThoseWithTheFewestTypos)
{
    struct Row
    {
        const char* given;
        std::vector<std::string> nearest;
    };
    const Row rows[] = {
        {"serch", {"search"}},
        {"gte", {"get"}},
        {"bet", {"get", "set"}},
        {"staus", {"status"}},
        {"comp", {"completion"}},
        {"sta", {"status"}},
        {"nonsense", {}},
        {"x", {}},
        {"", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.given);
        EXPECT_EQ(nearestWords(row.given, words), row.nearest);
    }
}

TEST(Nearest, WordsAreAskedFor)
{
    EXPECT_EQ(didYouMean({}), "");
    EXPECT_EQ(didYouMean({"a"}), "; did you mean a?");
    EXPECT_EQ(didYouMean({"a", "b", "c"}), "; did you mean a, b or c?");
}

} // namespace
