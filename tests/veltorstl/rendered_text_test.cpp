// Rendered texts: what is appended comes out in order, whatever its length and however long the text was expected to
// be.
#include "rendered_text.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

using veltor::detail::RenderedText;

namespace {

std::string textOf(const RenderedText& text)
{
    std::string whole;
    text.handOver([&whole](std::string_view piece) {
        whole += piece;
        return true;
    });
    return whole;
}

std::string sample(std::size_t length)
{
    std::string text(length, ' ');
    for (std::size_t position = 0; position < length; ++position) {
        text[position] = static_cast<char>('!' + position % 89);
    }
    return text;
}

} // namespace

TEST(RenderedText, IsEmptyAtFirst)
{
    EXPECT_EQ(textOf(RenderedText(0)), "");
    EXPECT_EQ(textOf(RenderedText(10'000'000)), "");
}

TEST(RenderedText, KeepsTheOrderOfTextsAndCharacters)
{
    RenderedText text(100);
    text.append("cn").append(": ").append("").append(std::string_view());
    text.push_back('a');
    text.push_back('\n');
    EXPECT_EQ(textOf(text), "cn: a\n");
    text.append("# more\n");
    EXPECT_EQ(textOf(text), "cn: a\n# more\n");
}

TEST(RenderedText, GrowsBeyondWhatWasExpected)
{
    // Of a little memory, of memory in steps, and of several blocks; the lengths never meet an end evenly.
    for (const std::size_t expected : {0U, 1U, 4096U, 200'000U, 1'000'001U}) {
        for (const std::size_t step : {1U, 7U, 4099U, 300'007U, 3'000'017U}) {
            SCOPED_TRACE(std::to_string(expected) + " bytes expected, steps of " + std::to_string(step));
            RenderedText text(expected);
            std::string same;
            const std::string piece = sample(step);
            while (same.size() < 2 * expected + 200'000) {
                text.append(piece);
                text.push_back('\n');
                same += piece;
                same += '\n';
            }
            EXPECT_TRUE(textOf(text) == same);
        }
    }
}

TEST(RenderedText, EndsHandingOverWhenAPieceIsRefused)
{
    RenderedText text(1);
    text.append(sample(1'000'000));
    std::vector<std::string_view> pieces;
    text.handOver([&pieces](std::string_view piece) {
        pieces.push_back(piece);
        return pieces.size() < 2;
    });
    ASSERT_EQ(pieces.size(), 2U);
    EXPECT_TRUE(sample(1'000'000).starts_with(std::string(pieces[0]) + std::string(pieces[1])));
}
