// The text of a value: what it keeps at every length around the border between in place and elsewhere.
#include "compact_text.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <utility>

using veltor::detail::CompactText;
using veltor::detail::Region;

namespace {

/// A text of which no two lengths and no two beginnings agree.
std::string sample(std::size_t length, char first = 'a')
{
    std::string text;
    for (std::size_t index = 0; index < length; ++index) {
        text += static_cast<char>(first + static_cast<char>((index * 7 + length) % 26));
    }
    return text;
}

constexpr std::size_t longest = 40;

void expectText(const CompactText& text, const std::string& expected)
{
    EXPECT_EQ(text.view(), expected);
    EXPECT_EQ(text.size(), expected.size());
    EXPECT_EQ(text.empty(), expected.empty());
    EXPECT_EQ(text.c_str()[expected.size()], '\0');
}

} // namespace

TEST(CompactText, KeepsTextsOfAnyLength)
{
    expectText(CompactText(), "");
    for (std::size_t length = 0; length <= longest; ++length) {
        SCOPED_TRACE(length);
        expectText(CompactText(sample(length)), sample(length));
    }
    const std::string large(100000, 'x');
    expectText(CompactText(large), large);
}

TEST(CompactText, KeepsNulAndEveryOtherByte)
{
    for (const std::size_t length : {1U, 14U, 15U, 16U, 17U}) {
        for (int byte = 0; byte < 256; ++byte) {
            SCOPED_TRACE(std::to_string(length) + " times " + std::to_string(byte));
            const std::string text(length, static_cast<char>(byte));
            expectText(CompactText(text), text);
        }
    }
}

TEST(CompactText, UpToFifteenCharactersAreInPlace)
{
    for (std::size_t length = 0; length <= longest; ++length) {
        SCOPED_TRACE(length);
        const CompactText text(sample(length));
        const void* const where = text.c_str();
        const bool inPlace = where >= static_cast<const void*>(&text) && where < static_cast<const void*>(&text + 1);
        EXPECT_EQ(inPlace, length <= 15);
    }
}

TEST(CompactText, EveryLengthReplacesEveryLength)
{
    for (std::size_t from = 0; from <= longest; ++from) {
        for (std::size_t to = 0; to <= longest; ++to) {
            SCOPED_TRACE(std::to_string(from) + " becomes " + std::to_string(to));
            CompactText assigned(sample(from));
            assigned.assign(sample(to, 'A'));
            expectText(assigned, sample(to, 'A'));

            const CompactText source(sample(to, 'A'));
            CompactText copied(sample(from));
            EXPECT_EQ(&(copied = source), &copied);
            expectText(copied, sample(to, 'A'));
            expectText(source, sample(to, 'A'));

            CompactText given(sample(to, 'A'));
            CompactText taken(sample(from));
            EXPECT_EQ(&(taken = std::move(given)), &taken);
            expectText(taken, sample(to, 'A'));
            expectText(given, "");
        }
    }
}

TEST(CompactText, CopiesAndMovesByConstruction)
{
    for (std::size_t length = 0; length <= longest; ++length) {
        SCOPED_TRACE(length);
        CompactText text(sample(length));
        const CompactText copy(text);
        expectText(copy, sample(length));
        const char* const where = text.c_str();
        const CompactText moved(std::move(text));
        expectText(moved, sample(length));
        expectText(text, "");
        if (length > 15) {
            EXPECT_EQ(moved.c_str(), where);
            EXPECT_NE(copy.c_str(), where);
        }
        text.assign("again");
        expectText(text, "again");
    }
}

TEST(CompactText, AssigningATextToItselfKeepsIt)
{
    for (std::size_t length = 0; length <= longest; ++length) {
        SCOPED_TRACE(length);
        CompactText text(sample(length));
        CompactText& same = text;
        text = same;
        expectText(text, sample(length));
        text = std::move(same);
        expectText(text, sample(length));
        text.assign(text.view());
        expectText(text, sample(length));
        // A part of itself, too.
        text.assign(text.view().substr(length / 2));
        expectText(text, sample(length).substr(length / 2));
    }
}

TEST(CompactText, OutlivesTheRegionItWasMadeIn)
{
    CompactText kept;
    CompactText copy;
    {
        const Region region;
        CompactText text(sample(longest));
        copy = text;
        kept = std::move(text);
    }
    expectText(kept, sample(longest));
    expectText(copy, sample(longest));
    copy.assign(sample(longest - 1));
    expectText(copy, sample(longest - 1));
}
